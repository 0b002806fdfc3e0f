// The NET parser: tokens and errors, net and node blocks, and the pieces all blocks share.
#include "io/net_parser.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <memory>

#include "api/error.h"
#include "io/net_parse_pieces.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

// ---------------------------------------------------------------- tokens and errors

int net_next(NetParser &p) noexcept {
  const std::uint32_t before = p.ctx.error_count;
  int token = p.ctx.next_token(&p.ctx);
  p.scanner_reported = p.ctx.error_count != before;
  return token;
}

int net_next_expression(NetParser &p) noexcept {
  const std::uint32_t before = p.ctx.error_count;
  int token = scan_expression_token(&p.ctx);
  p.scanner_reported = p.ctx.error_count != before;
  return token;
}

namespace {

void report_v(NetParser &p, const char *format, va_list args) noexcept {
  char message[message_capacity];
  std::vsnprintf(message, sizeof message, format, args);
  parse_report(&p.ctx, message);
}

} // namespace

ov_status_t net_hard(NetParser &p, ov_error_t code, const char *format, ...) noexcept {
  va_list args;
  va_start(args, format);
  report_v(p, format, args);
  va_end(args);
  return fail(code);
}

ov_status_t net_unexpected(NetParser &p, int token, const char *format, ...) noexcept {
  if (token == tok_error && p.scanner_reported) {
    ov_error_t code = ov_error_code();
    return fail(code == ov_error_none ? ov_error_parse : code);
  }
  va_list args;
  va_start(args, format);
  report_v(p, format, args);
  va_end(args);
  return fail(ov_error_parse);
}

ov_status_t net_api_error(NetParser &p) noexcept {
  ov_error_t code = ov_error_code();
  if (code == ov_error_none) code = ov_error_error;
  parse_reportf(&p.ctx, "API error: %s", ov_error_name(code));
  return fail(code);
}

ov_status_t net_expect(NetParser &p, int c) noexcept {
  int token = net_next(p);
  if (token == c) return ov_error_none;
  return net_unexpected(p, token, "`%c' expected", c);
}

// Turns round the entries added to an attribute list since it held
// `old_count` entries (they stand newest first at its head) and puts them
// behind the older ones, so that the list is in file order.
void attributes_in_file_order(AttributeList &list, std::size_t old_count) {
  std::vector<std::unique_ptr<Attribute>> entries;
  for (std::unique_ptr<Attribute> a = std::move(list.first); a;) {
    std::unique_ptr<Attribute> next = std::move(a->next);
    entries.push_back(std::move(a));
    a = std::move(next);
  }
  const std::size_t added = entries.size() - std::min(old_count, entries.size());
  std::reverse(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(added));
  std::rotate(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(added), entries.end());
  for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
    (*it)->next = std::move(list.first);
    list.first = std::move(*it);
  }
}

namespace {

std::size_t attribute_count(const AttributeList &list) noexcept {
  std::size_t n = 0;
  for (const Attribute *a = list.first.get(); a != nullptr; a = a->next.get()) ++n;
  return n;
}

// The rest of an attribute item `name = value ;` whose name has been read: a
// string value stored with the key test off.
ov_status_t parse_user_attribute(NetParser &p, AttributeList &list, const std::string &key) {
  int token = net_next(p);
  if (token != tok_string) return net_unexpected(p, token, "value of a user-defined attribute must be a string");
  if (attribute_set(list, key.c_str(), p.ctx.text_or_empty(), false) != ov_error_none) return net_api_error(p);
  return net_expect(p, ';');
}

// `(` names `)` of a class's inputs or outputs, recorded for the binding pass.
ov_status_t parse_interface_names(NetParser &p, std::vector<NameAtLine> &names) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  for (;;) {
    int token = net_next(p);
    if (token == ')') break;
    if (token != tok_name && token != tok_dotted_name) return net_unexpected(p, token, "node name or `)' expected");
    names.push_back({token_text(p), p.ctx.line});
  }
  return net_expect(p, ';');
}

} // namespace

// Items of a net block, or the attribute items of a class block (with its
// two interface keys), after the key.
ov_status_t parse_scope_attribute(NetParser &p, const std::string &key) {
  if (net_expect(p, '=') != ov_error_none) return ov_error_code();
  Domain *scope = p.scope;
  if (key == "node_size") {
    float size[2];
    if (parse_number_list(p, 2, size, false) != ov_error_none) return ov_error_code();
    scope->node_width = clamp_to_int(static_cast<double>(size[0]) + 0.5);
    scope->node_height = clamp_to_int(static_cast<double>(size[1]) + 0.5);
    return net_expect(p, ';');
  }
  if (scope->is_class() && (key == "inputs" || key == "outputs")) {
    bool &seen = key == "inputs" ? p.inputs_seen : p.outputs_seen;
    if (seen) return net_hard(p, ov_error_parse, "attribute `%s' defined twice", key.c_str());
    seen = true;
    return parse_interface_names(p, key == "inputs" ? p.inputs : p.outputs);
  }
  return parse_user_attribute(p, scope->attributes, key);
}

ov_status_t parse_net_block(NetParser &p) {
  if (net_expect(p, '{') != ov_error_none) return ov_error_code();
  const std::size_t old_count = attribute_count(p.scope->attributes);
  for (;;) {
    int token = net_next(p);
    if (token == '}') break;
    if (token != tok_name) return net_unexpected(p, token, "`}' or an attribute name expected");
    std::string key = token_text(p);
    if (parse_scope_attribute(p, key) != ov_error_none) return ov_error_code();
  }
  attributes_in_file_order(p.scope->attributes, old_count);
  return set_error(ov_error_none);
}

namespace {

bool is_discrete_state_node(const Node *node) noexcept { return node->has_states(); }

} // namespace

// `(` strings `)`, after the `=` of a states item. With `keep` false the
// labels are read for their syntax only.
ov_status_t parse_state_list(NetParser &p, std::vector<std::optional<std::string>> &labels) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  for (;;) {
    int token = net_next(p);
    if (token == ')') break;
    if (token != tok_string) return net_unexpected(p, token, "state or `)' expected");
    labels.emplace_back(p.ctx.text_or_empty());
  }
  if (labels.empty()) return net_hard(p, ov_error_parse, "empty list of states");
  return set_error(ov_error_none);
}

void set_states(Node *node, std::vector<std::optional<std::string>> &&labels) {
  auto shared = std::make_shared<StateLabels>(std::move(labels));
  node->state_count = static_cast<std::uint32_t>(shared->size());
  node->state_labels = std::move(shared);
  node->state_values.reset();
}

namespace {

ov_status_t parse_states_item(NetParser &p, Node *node) {
  bool keep = true;
  if (!is_discrete_state_node(node)) {
    parse_report(&p.ctx, "only discrete nodes can have states");
    keep = false;
  } else if (node->state_labels) {
    parse_report(&p.ctx, "states specified twice (or more)");
    keep = false;
  }
  std::vector<std::optional<std::string>> labels;
  if (parse_state_list(p, labels) != ov_error_none) return ov_error_code();
  if (keep) set_states(node, std::move(labels));
  return set_error(ov_error_none);
}

ov_status_t parse_subtype_item(NetParser &p, Node *node) {
  const bool discrete = is_discrete_state_node(node);
  if (!discrete) parse_report(&p.ctx, "subtype designations only make sense for discrete nodes");
  int token = net_next(p);
  static const char *const expected = "`label', `boolean', `number', or `interval' expected";
  if (token != tok_name) return net_unexpected(p, token, "%s", expected);
  const char *text = p.ctx.text_or_empty();
  ov_subtype_t subtype;
  if (std::strcmp(text, "label") == 0)
    subtype = ov_subtype_label;
  else if (std::strcmp(text, "boolean") == 0)
    subtype = ov_subtype_boolean;
  else if (std::strcmp(text, "number") == 0)
    subtype = ov_subtype_number;
  else if (std::strcmp(text, "interval") == 0)
    subtype = ov_subtype_interval;
  else {
    parse_report(&p.ctx, expected);
    return set_error(ov_error_none);
  }
  if (discrete) node->subtype = subtype;
  return set_error(ov_error_none);
}

ov_status_t parse_state_values_item(NetParser &p, Node *node) {
  if (!is_discrete_state_node(node)) return net_hard(p, ov_error_parse, "only discrete nodes can have state values");
  if (node->subtype != ov_subtype_number && node->subtype != ov_subtype_interval)
    return net_hard(p, ov_error_parse, "only numeric nodes can have state values");
  if (!node->state_labels) return net_hard(p, ov_error_parse, "states must be specified before state values");
  if (node->state_values) return net_hard(p, ov_error_parse, "state values have already been specified");
  auto values = std::make_shared<StateValues>(static_cast<std::size_t>(node->state_count) + 1, -1.0);
  if (node->subtype == ov_subtype_interval) {
    values->front() = -DBL_MAX;
    values->back() = DBL_MAX;
  }
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  std::uint64_t count = 0;
  for (;;) {
    int token = net_next_expression(p);
    if (token == ')') break;
    double sign = 1.0;
    if (token == '+' || token == '-') {
      if (token == '-') sign = -1.0;
      token = net_next_expression(p);
    }
    double value;
    if (token == tok_number)
      value = p.ctx.number;
    else if (token == tok_name && std::strcmp(p.ctx.text_or_empty(), "infinity") == 0)
      value = DBL_MAX;
    else
      return net_unexpected(p, token, "state value expected");
    if (count < values->size()) (*values)[count] = sign * value;
    ++count;
  }
  const std::uint64_t wanted = node->subtype == ov_subtype_number ? node->state_count : node->state_count + 1ull;
  if (count != wanted) parse_report(&p.ctx, "incorrect number of state values");
  node->state_values = std::move(values);
  return net_expect(p, ';');
}

// label, position and user attributes: the items shared by node and
// instance blocks. `handled` is false for any other key.
ov_status_t parse_common_node_item(NetParser &p, Node *node, const std::string &key, bool &handled) {
  handled = true;
  if (key == "label") {
    int token = net_next(p);
    if (token != tok_string) return net_unexpected(p, token, "string expected");
    if (ov_node_set_label(node, p.ctx.text_or_empty()) != ov_error_none) return net_api_error(p);
    return net_expect(p, ';');
  }
  if (key == "position") {
    float position[2];
    if (parse_number_list(p, 2, position, true) != ov_error_none) return ov_error_code();
    node->position_x = clamp_to_int(position[0]);
    node->position_y = clamp_to_int(position[1]);
    return net_expect(p, ';');
  }
  handled = false;
  return ov_error_none;
}

} // namespace

// Items up to `}` of a node or (with `instance`) an instance block.
ov_status_t parse_node_items(NetParser &p, Node *node, bool instance) {
  if (net_expect(p, '{') != ov_error_none) return ov_error_code();
  for (;;) {
    int token = net_next(p);
    if (token == '}') break;
    if (token != tok_name) return net_unexpected(p, token, "`}' or an attribute name expected");
    std::string key = token_text(p);
    if (net_expect(p, '=') != ov_error_none) return ov_error_code();
    bool handled;
    if (parse_common_node_item(p, node, key, handled) != ov_error_none) return ov_error_code();
    if (handled) continue;
    ov_status_t status;
    if (!instance && key == "states") {
      if ((status = parse_states_item(p, node)) == ov_error_none) status = net_expect(p, ';');
    } else if (!instance && key == "subtype") {
      if ((status = parse_subtype_item(p, node)) == ov_error_none) status = net_expect(p, ';');
    } else if (!instance && key == "state_values") {
      status = parse_state_values_item(p, node);
    } else {
      status = parse_user_attribute(p, node->attributes, key);
    }
    if (status != ov_error_none) return status;
  }
  attributes_in_file_order(node->attributes, 0);
  if (!instance && is_discrete_state_node(node) && node->subtype == ov_subtype_boolean && node->state_count != 2)
    parse_report(&p.ctx, "a boolean node must have exactly two states");
  return set_error(ov_error_none);
}

ov_status_t parse_node_block(NetParser &p, ov_category_t category, ov_kind_t kind) {
  Node *node = ov_domain_new_node(p.scope, category, kind);
  if (node == nullptr) return net_api_error(p);
  int token = net_next(p);
  if (token != tok_name) return net_unexpected(p, token, "name expected");
  std::string name = token_text(p);
  ov_status_t status = ov_node_set_name(node, name.c_str());
  if (status == ov_error_twice)
    return net_hard(p, ov_error_twice, "a node with name `%s' already exists", message_name(name.c_str()).text);
  if (status != ov_error_none) return net_api_error(p);
  return parse_node_items(p, node, false);
}

// ---------------------------------------------------------------- shared pieces

ov_status_t parse_number_list(NetParser &p, std::uint32_t count, float *values, bool allow_negative) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  for (std::uint32_t i = 0; i < count; ++i) {
    int token = net_next(p);
    if (token != tok_number) return net_unexpected(p, token, "number expected");
    if (!allow_negative && p.ctx.number < 0) parse_report(&p.ctx, "<number> must be nonnegative");
    values[i] = static_cast<float>(p.ctx.number);
  }
  return net_expect(p, ')');
}

void domain_finish_lists(Domain *domain) noexcept {
  std::reverse(domain->nodes.begin(), domain->nodes.end());
  for (std::uint32_t i = 0; i < domain->nodes.size(); ++i) domain->nodes[i]->number = i + 1;
  std::reverse(domain->tables.begin(), domain->tables.end());
  for (std::uint32_t i = 0; i < domain->tables.size(); ++i) domain->tables[i]->serial = i + 1;
}

} // namespace orvel
