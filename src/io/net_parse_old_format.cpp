// The old node format of NET files, a header and one record per node.
#include "io/net_parse_pieces.h"

#include <string>
#include <unordered_map>

#include "api/error.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

namespace {

struct OldNodeRecord {
  std::uint32_t first_use_line = 0;
  std::uint32_t defined_line = 0;
  bool defined = false;
};

using OldRecords = std::unordered_map<Node *, OldNodeRecord>;

// The node of that name, or a new discrete chance node without states. Names
// of this format are words and need not be identifiers.
Node *old_find_or_make(NetParser &p, OldRecords &records, const std::string &name) {
  Node *node = domain_find_node(p.scope, name.c_str());
  if (node != nullptr) return node;
  node = ov_domain_new_node(p.scope, ov_category_chance, ov_kind_discrete);
  if (node == nullptr) return nullptr;
  node->name.emplace(name);
  name_table_rename(p.scope, node, std::nullopt);
  node->state_count = 0;
  records[node].first_use_line = p.ctx.line;
  return node;
}

ov_status_t old_header(NetParser &p) {
  Domain *domain = p.scope;
  int token = net_next(p);
  if (token != tok_name) return net_unexpected(p, token, "name expected");
  if (attribute_set(domain->attributes, "name", p.ctx.text_or_empty(), false) != ov_error_none) return net_api_error(p);
  token = net_next(p);
  if (token != tok_string) return net_unexpected(p, token, "string expected");
  if (*p.ctx.text_or_empty() != 0 &&
      attribute_set(domain->attributes, "label", p.ctx.text_or_empty(), false) != ov_error_none)
    return net_api_error(p);
  double numbers[3];
  for (double &number : numbers) {
    token = net_next(p);
    if (token != tok_number) return net_unexpected(p, token, "number expected");
    number = p.ctx.number;
  }
  if (!(numbers[0] >= 0 && numbers[1] >= 0 && numbers[2] >= 0))
    return net_hard(p, ov_error_parse, "node width and height, and scale factor must be nonnegative");
  domain->node_width = clamp_to_int(numbers[0] * numbers[2] + 0.5);
  domain->node_height = clamp_to_int(numbers[1] * numbers[2] + 0.5);
  p.ctx.scale = numbers[2];
  attributes_in_file_order(domain->attributes, 0);
  return set_error(ov_error_none);
}

ov_status_t old_node_record(NetParser &p, OldRecords &records, const std::string &name) {
  Node *node = old_find_or_make(p, records, name);
  if (node == nullptr) return net_api_error(p);
  OldNodeRecord &record = records[node];
  if (record.defined)
    return net_hard(p, ov_error_parse, "node `%s' has already been defined (at line %s)",
                    message_name(name.c_str()).text, format_count(p.scope, record.defined_line));
  record.defined = true;
  record.defined_line = p.ctx.line;

  int token = net_next(p);
  if (token != tok_string) return net_unexpected(p, token, "string expected");
  if (ov_node_set_label(node, p.ctx.text_or_empty()) != ov_error_none) return net_api_error(p);
  double xy[2];
  for (double &v : xy) {
    token = net_next(p);
    if (token != tok_number) return net_unexpected(p, token, "number expected");
    v = p.ctx.number;
  }
  node->position_x = clamp_to_int(xy[0] * p.ctx.scale + 0.5);
  node->position_y = clamp_to_int(xy[1] * p.ctx.scale + 0.5);

  std::vector<std::optional<std::string>> labels;
  if (parse_state_list(p, labels) != ov_error_none) return ov_error_code();
  if (node->state_count != 0 && node->state_count != labels.size()) {
    parse_reportf(&p.ctx, "number of states (%s) does not match previous usage (line %s)",
                  format_count(p.scope, labels.size()), format_count(p.scope, record.first_use_line));
  } else {
    set_states(node, std::move(labels));
  }

  NodeList table_nodes;
  for (;;) {
    token = net_next(p);
    if (token == '(') break;
    if (token != tok_name) return net_unexpected(p, token, "parent node name or a left parenthesis expected");
    std::string parent_name = token_text(p);
    Node *parent = old_find_or_make(p, records, parent_name);
    if (parent == nullptr) return net_api_error(p);
    ov_status_t status = ov_node_add_parent(node, parent);
    if (status == ov_error_usage)
      return net_hard(p, ov_error_parse, "node `%s' appears twice as a parent of `%s'",
                      message_name(parent_name.c_str()).text, message_name(name.c_str()).text);
    if (status == ov_error_cyclic_network)
      return net_hard(p, ov_error_cyclic_network, "adding the link %s --> %s creates a directed cycle",
                      message_name(parent_name.c_str()).text, message_name(name.c_str()).text);
    if (status != ov_error_none) return net_api_error(p);
    table_nodes.push_back(parent);
  }
  unget_token(&p.ctx, '(');
  table_nodes.push_back(node);
  std::vector<float> numbers;
  if (read_nested_table(p, table_nodes, nullptr, numbers, true) != ov_error_none) return ov_error_code();
  for (Node *member : table_nodes)
    if (member->state_count == 0) return net_hard(p, ov_error_parse, "empty list of states");

  Table *table = table_new(p.scope, table_nodes.data(), ov_table_kind_probability, role_plain, false, true);
  if (table == nullptr) return net_api_error(p);
  if (table->size != numbers.size()) return net_hard(p, ov_error_parse, "number expected");
  std::copy(numbers.begin(), numbers.end(), table->data.get());
  if (node->table != nullptr) node->table->owner = nullptr;
  node->table = table;
  table->owner = node;
  return set_error(ov_error_none);
}

} // namespace

ov_status_t parse_old_net(NetParser &p) {
  OldRecords records;
  if (old_header(p) != ov_error_none) return ov_error_code();
  for (;;) {
    int token = net_next(p);
    if (token == tok_eof) break;
    if (token != tok_name) return net_unexpected(p, token, "node name (or end-of-file) expected");
    std::string name = token_text(p);
    if (old_node_record(p, records, name) != ov_error_none) return ov_error_code();
  }
  for (auto &node : p.scope->nodes) {
    const OldNodeRecord &record = records[node.get()];
    if (!record.defined)
      parse_reportf(&p.ctx, "node `%s' (used at line %s) has not been defined",
                    message_name(node->name ? node->name->c_str() : "").text,
                    format_count(p.scope, record.first_use_line));
  }
  if (p.ctx.error_count > 0) return counted_failure();
  domain_finish_lists(p.scope);
  return set_error(ov_error_none);
}

} // namespace orvel
