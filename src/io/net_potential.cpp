// The potential block of NET files: parents, information links, tables,
// models, adaptation tables and chain graph potentials, and the table data in
// flat and nested form with the normal(...) terms of conditional Gaussian
// tables.
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "api/error.h"
#include "expr/expression.h"
#include "expr/expression_parser.h"
#include "expr/model.h"
#include "io/name_resolver.h"
#include "io/net_parser.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

namespace {

const char *shown_name(const Node *node) noexcept { return node->name ? node->name->c_str() : ""; }

// `(` [children] [`|` parents] `)`: the list holds the parents, then the
// children; `child_count` is the number of children.
ov_status_t read_potential_nodes(NetParser &p, NodeList &list, std::uint32_t &child_count) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  std::vector<Node *> children, parents;
  bool in_parents = false;
  for (;;) {
    int token = net_next(p);
    if (token == ')') break;
    if (!in_parents && token == '|') {
      in_parents = true;
      continue;
    }
    if (token == tok_name || (in_parents && token == tok_dotted_name)) {
      std::string path = p.ctx.text_or_empty();
      Node *node = resolve_node_path(&p.ctx, p.scope, path.data());
      if (node == nullptr) return ov_error_code();
      (in_parents ? parents : children).push_back(node);
      continue;
    }
    if (in_parents) return net_unexpected(p, token, "`)' or a node name expected");
    return net_unexpected(p, token, "`|', `)', or a node name expected");
  }
  list.clear();
  for (Node *node : parents) list.push_back(node);
  for (Node *node : children) list.push_back(node);
  child_count = static_cast<std::uint32_t>(children.size());
  return set_error(ov_error_none);
}

// The soft checks of a potential's node list; true if any fired.
bool check_potential_nodes(NetParser &p, const NodeList &list, std::uint32_t child_count) {
  const std::uint32_t parent_count = list.size() - child_count;
  const std::uint32_t before = p.ctx.error_count;
  for (std::uint32_t i = 0; i < parent_count; ++i)
    if (list[i]->category == ov_category_utility)
      parse_reportf(&p.ctx, "utility node `%s' specified as parent", message_name(shown_name(list[i])).text);
  if (child_count > 1)
    for (std::uint32_t i = parent_count; i < list.size(); ++i)
      if (list[i]->category != ov_category_chance || !list[i]->is_discrete()) {
        parse_report(&p.ctx, "undirected links may only be specified for discrete chance nodes");
        break;
      }
  for (std::uint32_t i = 0; i < list.size(); ++i)
    for (std::uint32_t j = i + 1; j < list.size(); ++j)
      if (list[i] == list[j]) {
        parse_reportf(&p.ctx, "node `%s' appears twice in potential specification",
                      message_name(shown_name(list[i])).text);
        break;
      }
  for (std::uint32_t c = parent_count; c < list.size(); ++c) {
    if (!list[c]->is_discrete()) continue;
    for (std::uint32_t i = 0; i < parent_count; ++i)
      if (!list[i]->is_discrete())
        parse_reportf(&p.ctx, "continuous node `%s' is not allowed as parent of discrete node `%s'",
                      message_name(shown_name(list[i])).text, message_name(shown_name(list[c])).text);
  }
  for (std::uint32_t i = 0; i + 1 < parent_count; ++i)
    if (!list[i]->is_discrete() && list[i + 1]->is_discrete()) {
      parse_report(&p.ctx, "discrete parents must appear before continuous parents");
      break;
    }
  for (Node *node : list)
    if (node->category == ov_category_instance)
      parse_reportf(&p.ctx, "class instance node `%s' found in potential specification",
                    message_name(shown_name(node)).text);
  return p.ctx.error_count != before;
}

// The links of the block: information links of a decision, parents of each
// child, the parent order of a single child.
ov_status_t link_potential_nodes(NetParser &p, const NodeList &list, std::uint32_t child_count) {
  const std::uint32_t parent_count = list.size() - child_count;
  Node *first = list[parent_count];
  if (first->category == ov_category_decision) {
    if (!first->parents.empty() || p.decisions_specified.count(first) != 0)
      parse_reportf(&p.ctx, "information links specified twice for %s", message_name(shown_name(first)).text);
    p.decisions_specified.insert(first);
  }
  for (std::uint32_t i = 0; i < parent_count; ++i)
    for (std::uint32_t c = parent_count; c < list.size(); ++c) {
      Node *parent = list[i], *child = list[c];
      if (child->parents.contains(parent)) continue;
      if (child->table != nullptr)
        parse_reportf(&p.ctx, "the directed link %s --> %s should have been included in the potential for %s",
                      message_name(shown_name(parent)).text, message_name(shown_name(child)).text,
                      message_name(shown_name(child)).text);
      ov_status_t status = ov_node_add_parent(child, parent);
      if (status == ov_error_cyclic_network)
        return net_hard(p, ov_error_cyclic_network, "adding the link %s --> %s creates a directed cycle",
                        message_name(shown_name(parent)).text, message_name(shown_name(child)).text);
      if (status != ov_error_none) return net_api_error(p);
    }
  if (child_count == 1) {
    if (first->parents.size() != parent_count) {
      parse_reportf(&p.ctx, "potential for node %s must include all parents", message_name(shown_name(first)).text);
    } else {
      // The block fixes the order of the parents.
      for (std::uint32_t i = 0; i < parent_count; ++i) first->parents[i] = list[i];
    }
  }
  return set_error(ov_error_none);
}

// The table of the block, or null for a decision (with success recorded).
ov_status_t make_potential_table(NetParser &p, NodeList &list, std::uint32_t child_count, Table *&table) {
  table = nullptr;
  const std::uint32_t parent_count = list.size() - child_count;
  Node *first = list[parent_count];
  if (first->category == ov_category_decision) return set_error(ov_error_none);
  if (first->category == ov_category_utility) {
    NodeList parents;
    for (std::uint32_t i = 0; i < parent_count; ++i) parents.push_back(list[i]);
    table = table_new(p.scope, parents.data(), ov_table_kind_utility, role_plain, false, true);
    if (table == nullptr) return net_api_error(p);
    if (first->table != nullptr) {
      parse_reportf(&p.ctx, "utility potential specified twice for node `%s'", message_name(shown_name(first)).text);
      first->table->owner = nullptr;
    }
    first->table = table;
    table->owner = first;
    return set_error(ov_error_none);
  }
  if (child_count == 1 && !first->is_discrete()) {
    // The child stands after the discrete parents, ahead of the continuous ones.
    std::uint32_t discrete = 0;
    while (discrete < parent_count && list[discrete]->is_discrete()) ++discrete;
    list.erase_at(parent_count);
    list.insert(discrete, first);
  }
  table = table_new(p.scope, list.data(), ov_table_kind_probability, role_plain, false, true);
  if (table == nullptr) return net_api_error(p);
  for (std::uint32_t i = 0; i < table->continuous_count; ++i) table->cg_roles[i] = i == 0 ? cg_head : cg_tail;
  if (child_count == 1) {
    if (first->table != nullptr) {
      parse_reportf(&p.ctx, "conditional probability potential specified twice for node `%s'",
                    message_name(shown_name(first)).text);
      first->table->owner = nullptr;
    }
    first->table = table;
    table->owner = first;
  }
  return set_error(ov_error_none);
}

// `model_nodes = ( names );` after the `=`.
ov_status_t read_model_nodes(NetParser &p, Node *child) {
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  NodeList nodes;
  std::vector<std::string> names;
  for (;;) {
    int token = net_next(p);
    if (token == ')') break;
    if (token != tok_name && token != tok_dotted_name) return net_unexpected(p, token, "`)' or a node name expected");
    std::string path = p.ctx.text_or_empty();
    Node *node = resolve_node_path(&p.ctx, p.scope, path.data());
    if (node == nullptr) return ov_error_code();
    nodes.push_back(node);
    names.push_back(path);
  }
  bool bad = false;
  for (std::uint32_t i = 0; i < nodes.size(); ++i) {
    if (!child->parents.contains(nodes[i])) {
      parse_reportf(&p.ctx, "node `%s' is not a parent of node `%s'", message_name(names[i].c_str()).text,
                    message_name(shown_name(child)).text);
      bad = true;
    }
    for (std::uint32_t j = i + 1; j < nodes.size(); ++j)
      if (nodes[i] == nodes[j]) {
        parse_reportf(&p.ctx, "node `%s' appears twice in `model_nodes' attribute",
                      message_name(names[i].c_str()).text);
        bad = true;
        break;
      }
  }
  if (bad) return fail(ov_error_parse);
  if (ov_node_new_model(child, nodes.data()) == nullptr) return net_api_error(p);
  return net_expect(p, ';');
}

// `model_data = ( slot, slot, ... );` after the `=`.
ov_status_t read_model_data(NetParser &p, Model *model) {
  ov_count_t size = ov_model_get_size(model);
  if (size < 0 || model_make_array(model) != ov_error_none) return net_api_error(p);
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  for (ov_count_t i = 0; i < size; ++i) {
    const int end = i < size - 1 ? ',' : ')';
    int token = net_next_expression(p);
    if (token == end) continue;
    unget_token(&p.ctx, token);
    Expression *expression = parse_expression(&p.ctx);
    if (expression == nullptr) {
      ov_error_t code = ov_error_code();
      return fail(code == ov_error_none ? ov_error_parse : code);
    }
    if (ov_model_set_expression(model, i, expression) != ov_error_none) {
      ov_status_t status = net_api_error(p);
      ov_expression_delete(expression);
      return fail(static_cast<ov_error_t>(status));
    }
    token = net_next_expression(p);
    if (token != end) return net_unexpected(p, token, "`%c' expected", end);
  }
  return net_expect(p, ';');
}

ov_status_t read_samples_per_interval(NetParser &p, Model *model) {
  int token = net_next(p);
  if (token != tok_number) return net_unexpected(p, token, "number expected");
  const double value = p.ctx.number;
  if (!(value >= 1 && value <= 4294967295.0 && std::floor(value) == value))
    return net_hard(p, ov_error_parse, "`samples_per_interval' must be a positive integer");
  if (ov_model_set_number_of_samples_per_interval(model, static_cast<std::uint32_t>(value)) != ov_error_none)
    return net_api_error(p);
  return net_expect(p, ';');
}

// One `normal ( mean , variance )` into the CG record `record` of `table`.
ov_status_t read_normal(NetParser &p, Table *table, double *record) {
  int token = net_next(p);
  if (token != tok_name || std::strcmp(p.ctx.text_or_empty(), "normal") != 0)
    return net_unexpected(p, token, "the keyword `normal' was expected");
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  static const char *const term_expected = "<number> or <node name> expected in mean value expression";
  double sign = 1.0;
  token = net_next_expression(p);
  if (token == '+' || token == '-') {
    if (token == '-') sign = -1.0;
    token = net_next_expression(p);
  }
  for (;;) {
    double coefficient = 1.0;
    bool named = false;
    if (token == tok_number) {
      coefficient = p.ctx.number;
      token = net_next_expression(p);
      if (token == '*') {
        token = net_next_expression(p);
        if (token != tok_name && token != tok_dotted_name) return net_unexpected(p, token, "%s", term_expected);
        named = true;
      } else {
        record[0] += sign * coefficient;
      }
    } else if (token == tok_name || token == tok_dotted_name) {
      named = true;
    } else {
      return net_unexpected(p, token, "%s", term_expected);
    }
    if (named) {
      std::string path = p.ctx.text_or_empty();
      Node *node = resolve_node_path(&p.ctx, p.scope, path.data());
      if (node == nullptr) return ov_error_code();
      const std::int64_t position = table_continuous_index(table, node);
      if (position <= 0) {
        parse_reportf(&p.ctx, "node `%s' is not part of the table", message_name(path.c_str()).text);
      } else {
        const auto j = static_cast<std::uint32_t>(position);
        record[cg_entry_offset(j, 0)] += sign * coefficient;
      }
      token = net_next_expression(p);
    }
    if (token == ',') break;
    if (token != '+' && token != '-') return net_unexpected(p, token, "expected one of: ,+-");
    sign = token == '-' ? -1.0 : 1.0;
    token = net_next_expression(p);
  }
  token = net_next(p);
  if (token != tok_number) return net_unexpected(p, token, "variance (a nonnegative <number>) expected");
  if (p.ctx.number < 0) parse_report(&p.ctx, "variance must be nonnegative");
  record[cg_entry_offset(0, 0)] = p.ctx.number;
  return net_expect(p, ')');
}

ov_status_t read_number_leaf(NetParser &p, std::vector<float> &numbers, bool warn) {
  int token = net_next(p);
  if (token != tok_number) return net_unexpected(p, token, "number expected");
  if (warn && p.ctx.number < 0) parse_note(&p.ctx, "warning: negative value in probability potential");
  numbers.push_back(static_cast<float>(p.ctx.number));
  return ov_error_none;
}

// The flat form: `(` one value per configuration `)`.
ov_status_t read_flat_table(NetParser &p, Table *table) {
  if (table->continuous_count == 0) {
    if (!table->data) return net_api_error(p);
    return parse_number_list(p, table->size, table->data.get(), table->value_kind != ov_table_kind_probability);
  }
  if (net_expect(p, '(') != ov_error_none) return ov_error_code();
  for (Size i = 0; i < table->size; ++i)
    if (read_normal(p, table, table->cg_data.get() + static_cast<std::size_t>(i) * table->cg_stride) != ov_error_none)
      return ov_error_code();
  return net_expect(p, ')');
}

} // namespace

ov_status_t read_nested_table(NetParser &p, const NodeList &nodes, Table *table, std::vector<float> &numbers,
                              bool warn) {
  std::uint32_t discrete = 0;
  while (discrete < nodes.size() && nodes[discrete]->is_discrete()) ++discrete;
  const bool normal_leaves = discrete < nodes.size();
  Size configuration = 0;
  // Per level: the sub-items read so far, and whether the level counts the
  // states of its node (a node without states yet, old node format only).
  std::vector<std::uint32_t> read(discrete, 0);
  std::vector<bool> counting(discrete, false);
  std::uint32_t depth = 0;
  for (;;) {
    if (depth < discrete) {
      if (net_expect(p, '(') != ov_error_none) return ov_error_code();
      read[depth] = 0;
      counting[depth] = nodes[depth]->state_count == 0;
      ++depth;
      if (!counting[depth - 1]) continue;
      // A level that counts may be empty.
      int token = net_next(p);
      unget_token(&p.ctx, token);
      if (token != ')') continue;
      return net_hard(p, ov_error_parse, "empty list of states");
    }
    if (normal_leaves) {
      if (table == nullptr || configuration >= table->size) return net_hard(p, ov_error_parse, "`)' expected");
      if (read_normal(p, table, table->cg_data.get() + static_cast<std::size_t>(configuration) * table->cg_stride) !=
          ov_error_none)
        return ov_error_code();
    } else if (read_number_leaf(p, numbers, warn) != ov_error_none) {
      return ov_error_code();
    }
    ++configuration;
    // Close the levels that are complete.
    while (depth > 0) {
      const std::uint32_t level = depth - 1;
      ++read[level];
      Node *node = nodes[level];
      if (counting[level]) {
        int token = net_next(p);
        if (token != ')') {
          unget_token(&p.ctx, token);
          break;
        }
        node->state_count = read[level];
        --depth;
        continue;
      }
      if (read[level] < node->state_count) break;
      if (net_expect(p, ')') != ov_error_none) return ov_error_code();
      --depth;
    }
    if (depth == 0) return set_error(ov_error_none);
  }
}

ov_status_t read_table_data(NetParser &p, Table *table) {
  const std::uint32_t d = table->discrete_count;
  bool flat;
  if (d == 1) {
    flat = true;
  } else if (d == 0) {
    int token = net_next(p);
    unget_token(&p.ctx, token);
    flat = token == '(';
  } else {
    int token = net_next(p);
    if (token != '(') return net_unexpected(p, token, "`(' expected");
    int second = net_next(p);
    unget_token(&p.ctx, second);
    unget_token(&p.ctx, '(');
    flat = second != '(';
  }
  if (flat) return read_flat_table(p, table);
  if (!table->data) return net_api_error(p);
  std::vector<float> numbers;
  if (table->continuous_count == 0) numbers.reserve(table->size);
  if (read_nested_table(p, table->nodes, table, numbers, table->value_kind == ov_table_kind_probability) !=
      ov_error_none)
    return ov_error_code();
  if (table->continuous_count == 0) std::copy(numbers.begin(), numbers.end(), table->data.get());
  return set_error(ov_error_none);
}

ov_status_t parse_potential(NetParser &p) {
  NodeList list;
  std::uint32_t child_count = 0;
  if (read_potential_nodes(p, list, child_count) != ov_error_none) return ov_error_code();
  if (child_count == 0) return net_hard(p, ov_error_parse, "empty child node list");
  if (check_potential_nodes(p, list, child_count)) return fail(ov_error_parse);
  if (link_potential_nodes(p, list, child_count) != ov_error_none) return ov_error_code();
  Node *child = list[list.size() - child_count];
  Table *table = nullptr;
  if (make_potential_table(p, list, child_count, table) != ov_error_none) return ov_error_code();
  if (child_count > 1) {
    ov_status_t status = domain_add_chain_potential(p.scope, table, child_count);
    if (status == ov_error_cyclic_network)
      return net_hard(p, ov_error_cyclic_network, "adding chain potential creates a directed cycle");
    if (status != ov_error_none) return net_api_error(p);
    if (p.scope->is_class()) parse_report(&p.ctx, "undirected links are not allowed in classes");
  }

  if (net_expect(p, '{') != ov_error_none) return ov_error_code();
  if (table == nullptr) return net_expect(p, '}');
  int token = net_next(p);
  if (token == '}') {
    parse_note(&p.ctx, "warning: no potential data specified");
    return set_error(ov_error_none);
  }
  unget_token(&p.ctx, token);
  const bool own = child_count == 1; // the table is the child's own
  bool data_given = false, model_nodes_seen = false, experience_seen = false, fading_seen = false;
  bool model_data_seen = false;
  for (;;) {
    token = net_next(p);
    if (token == '}') break;
    if (token != tok_name) return net_unexpected(p, token, "`}' or an attribute name expected");
    const std::string key = p.ctx.text_or_empty();
    const bool discrete_chance = child->category == ov_category_chance && child->is_discrete();
    ov_status_t status = ov_error_none;
    if (key == "data") {
      if ((status = net_expect(p, '=')) == ov_error_none && (status = read_table_data(p, table)) == ov_error_none)
        status = net_expect(p, ';');
      data_given = true;
    } else if (key == "model_nodes") {
      if (!own) return net_hard(p, ov_error_parse, "models cannot be specified for chain graph potentials");
      if (model_nodes_seen) return net_hard(p, ov_error_parse, "`model_nodes' attribute specified twice");
      if (!child->is_discrete()) return net_hard(p, ov_error_parse, "models can only be specified for discrete nodes");
      model_nodes_seen = true;
      if ((status = net_expect(p, '=')) == ov_error_none) status = read_model_nodes(p, child);
    } else if (key == "model_data") {
      if (!own) return net_hard(p, ov_error_parse, "models cannot be specified for chain graph potentials");
      if (!model_nodes_seen || !child->model)
        return net_hard(p, ov_error_parse, "`model_nodes' attribute has not been specified");
      if (model_data_seen || child->model->expressions)
        return net_hard(p, ov_error_parse, "`model_data' attribute specified twice");
      model_data_seen = true;
      if ((status = net_expect(p, '=')) == ov_error_none) status = read_model_data(p, child->model.get());
    } else if (key == "samples_per_interval") {
      if (!own) return net_hard(p, ov_error_parse, "models cannot be specified for chain graph potentials");
      if (!model_nodes_seen || !child->model)
        return net_hard(p, ov_error_parse, "`model_nodes' attribute has not been specified");
      if ((status = net_expect(p, '=')) == ov_error_none) status = read_samples_per_interval(p, child->model.get());
    } else if (key == "experience" || key == "fading") {
      const bool experience = key == "experience";
      const char *what = experience ? "experience" : "fading";
      if (!own) return net_hard(p, ov_error_parse, "%s data cannot be specified for chain graph potentials", what);
      if (!discrete_chance)
        return net_hard(p, ov_error_parse, "%s data can only be specified for discrete chance nodes", what);
      bool &seen = experience ? experience_seen : fading_seen;
      if (seen) return net_hard(p, ov_error_parse, "`%s' attribute specified twice", what);
      seen = true;
      Table *learned = node_learning_table(child, experience ? ov_table_kind_experience : ov_table_kind_fading);
      if (learned == nullptr) return net_api_error(p);
      if ((status = net_expect(p, '=')) == ov_error_none && (status = read_table_data(p, learned)) == ov_error_none)
        status = net_expect(p, ';');
    } else {
      return net_hard(p, ov_error_parse, "unknown field");
    }
    if (status != ov_error_none) return status;
  }
  // Stored data is what the model generates.
  if (child->model && data_given) child->model->table_is_stale = 0;
  return set_error(ov_error_none);
}

} // namespace orvel
