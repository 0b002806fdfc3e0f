// Table generation: checks of the model and of the state values, the walks
// over the table's configurations for chance and utility nodes, and the
// walks over the nodes of a domain, a class or a junction tree.
#include "expr/generate.h"

#include <cmath>
#include <string>
#include <vector>

#include "api/boundary.h"
#include "api/error.h"
#include "api/memory.h"
#include "compile/junction_tree.h"
#include "expr/distribution.h"
#include "expr/evaluate.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "model/domain.h"
#include "table/table.h"

namespace orvel {

namespace {

// Whether the state values of a node, where it has some that matter (a
// discrete chance or decision node of subtype number or interval), strictly
// increase.
ov_status_t check_state_values(Node *node) noexcept {
  if (!node->has_states() || (node->subtype != ov_subtype_number && node->subtype != ov_subtype_interval))
    return ov_error_none;
  if (values_increase(node)) return ov_error_none;
  if (log_printf(node->home, "The state values of node %s do not form an increasing sequence.\n",
                 node_get_name(node)) != ov_error_none)
    return ov_error_io;
  return fail(ov_error_invalid_state_values);
}

// The type test of one slot's expression for the model's node.
bool slot_fits(Expression *expression, const Node *node) noexcept {
  if (resolve_expression_types(expression) != ov_error_none) return false;
  const int type = base_type(expression->value_type);
  if (node->category != ov_category_chance) return type == ov_value_number;
  switch (type) {
  case ov_value_number: return node->subtype == ov_subtype_number || node->subtype == ov_subtype_interval;
  case ov_value_boolean: return node->subtype == ov_subtype_boolean;
  case ov_value_label: return node->subtype == ov_subtype_label;
  default: return type == ov_value_distribution;
  }
}

// Checks every slot, logging each empty or ill-typed one.
ov_status_t check_slots(Model *model, Node *node) noexcept {
  Domain *domain = node->home;
  bool bad = false;
  for (Size i = 0; i < model->size; ++i) {
    Expression *expression = model->expressions[i];
    if (expression != nullptr && slot_fits(expression, node)) continue;
    bad = true;
    const char *what = expression == nullptr ? "No expression" : "Invalid expression";
    if (log_printf(domain, "%s at index %s\n", what, format_count(domain, i)) != ov_error_none) return ov_error_io;
  }
  return bad ? fail(ov_error_invalid_expression) : ov_error_none;
}

// The configuration walk shared by both node categories: `nodes` of the
// bindings from 0 to `count` vary (the last fastest), and `cell` runs once
// per configuration with the slot index of the model.
struct Walk {
  Bindings bindings;
  std::vector<Size> strides; // per table node: its stride among the model's slots, 0 if not a model node
  Size slot = 0;
};

Walk make_walk(const Table *table, const Model *model) {
  Walk walk;
  walk.bindings.samples_per_interval = model->samples_per_interval;
  const std::uint32_t count = table->discrete_count;
  walk.bindings.nodes.resize(count);
  walk.strides.assign(count, 0);
  Size stride = 1;
  for (std::uint32_t m = model->nodes.size(); m-- > 0;) {
    Node *model_node = model->nodes[m];
    for (std::uint32_t i = 0; i < count; ++i)
      if (table->nodes[i] == model_node) walk.strides[i] = stride;
    stride *= model_node->state_count;
  }
  for (std::uint32_t i = 0; i < count; ++i) walk.bindings.nodes[i].node = table->nodes[i];
  return walk;
}

// Runs `cell` for each configuration of the first `count` bound nodes, in
// table order, stopping at the first failure.
template <typename Cell> ov_status_t walk_configurations(Walk &walk, std::uint32_t count, Cell &cell) {
  std::vector<Binding> &nodes = walk.bindings.nodes;
  for (std::uint32_t i = 0; i < count; ++i) nodes[i].state = 0;
  walk.slot = 0;
  for (;;) {
    if (ov_status_t status = cell()) return status;
    std::uint32_t i = count;
    for (;;) {
      if (i == 0) return ov_error_none;
      --i;
      if (++nodes[i].state < nodes[i].node->state_count) {
        walk.slot += walk.strides[i];
        break;
      }
      walk.slot -= walk.strides[i] * (nodes[i].state - 1);
      nodes[i].state = 0;
    }
  }
}

// "(" and the states of the first `count` nodes, each followed by `separator`
// but the last, which gets `last`.
std::string states_text(const Walk &walk, std::uint32_t count, const char *last) {
  std::string text = "(";
  for (std::uint32_t i = 0; i < count; ++i) {
    text += std::to_string(walk.bindings.nodes[i].state);
    text += i + 1 < count ? "," : last;
  }
  if (count == 0) text += last;
  return text;
}

ov_status_t chance_walk(Walk &walk, Model *model, Table *table) {
  Domain *domain = table->domain;
  const std::uint32_t count = static_cast<std::uint32_t>(walk.bindings.nodes.size());
  Node *child = walk.bindings.nodes[count - 1].node;
  const std::uint32_t n = child->state_count;
  Buffer<double> buffer = alloc_array<double>(3 * static_cast<Size>(n) * count);
  if (!buffer) return fail(ov_error_no_memory);
  ov_number_t *cursor = table->data.get();
  auto cell = [&]() -> ov_status_t {
    if (ov_status_t status = distribution_values(model->expressions[walk.slot], walk.bindings, buffer.get(), n))
      return status;
    const double *average = buffer.get(), *minimum = average + n, *maximum = minimum + n;
    for (std::uint32_t j = 0; j < n; ++j) *cursor++ = static_cast<ov_number_t>(average[j]);
    for (std::uint32_t j = 0; j < n; ++j) {
      if (minimum[j] >= 0.0 && !(maximum[j] > minimum[j]) && !std::isnan(average[j])) continue;
      walk.bindings.nodes[count - 1].state = j;
      std::string line = states_text(walk, count, "): ");
      walk.bindings.nodes[count - 1].state = 0;
      if (log_printf(domain, "%s%g (min=%g, max=%g)\n", line.c_str(), average[j], minimum[j], maximum[j]) !=
          ov_error_none)
        return ov_error_io;
      if (minimum[j] < 0.0) return fail(ov_error_negative_probability);
      // A value that is not a number has no place in a table.
      if (std::isnan(average[j])) return fail(ov_error_computation_failed);
    }
    return ov_error_none;
  };
  // The child varies inside distribution_values, not in the walk.
  return walk_configurations(walk, count - 1, cell);
}

ov_status_t utility_walk(Walk &walk, Model *model, Table *table) {
  Domain *domain = table->domain;
  const std::uint32_t count = static_cast<std::uint32_t>(walk.bindings.nodes.size());
  Buffer<double> buffer = alloc_array<double>(3 * (static_cast<Size>(count) + 1));
  if (!buffer) return fail(ov_error_no_memory);
  ov_number_t *cursor = table->data.get();
  auto cell = [&]() -> ov_status_t {
    const Expression *expression = model->expressions[walk.slot];
    auto leaf = [&](double *out) -> ov_status_t {
      if (ov_status_t status = evaluate_number(expression, walk.bindings, out)) return status;
      out[1] = out[2] = out[0];
      return ov_error_none;
    };
    ov_status_t status = bind_parents(walk.bindings, 0, count, buffer.get(), 1, leaf);
    if (status == ov_error_none && std::isnan(buffer[0])) status = fail(ov_error_computation_failed);
    if (status != ov_error_none) {
      std::string line = states_text(walk, count, "");
      if (log_printf(domain, "%s): evaluation failed", line.c_str()) != ov_error_none) return ov_error_io;
      return fail(static_cast<ov_error_t>(status));
    }
    const double average = buffer[0], minimum = buffer[1], maximum = buffer[2];
    *cursor++ = static_cast<ov_number_t>(average);
    if (maximum > minimum) {
      std::string line = states_text(walk, count, "");
      if (log_printf(domain, "%s): %g (min=%g, max=%g)\n", line.c_str(), average, minimum, maximum) != ov_error_none)
        return ov_error_io;
    }
    if (table->value_kind == ov_table_kind_probability && minimum < 0.0) return fail(ov_error_negative_probability);
    return ov_error_none;
  };
  return walk_configurations(walk, count, cell);
}

} // namespace

ov_status_t generate_node_table(Node *node) noexcept {
  Model *model = node->model.get();
  if (model == nullptr || !model->table_is_stale) return set_error(ov_error_none);
  Domain *domain = node->home;
  return guarded_status([&]() -> ov_status_t {
    if (!model->expressions) {
      if (log_printf(domain, "Model for %s is unspecified\n", node_get_name(node)) != ov_error_none) return ov_error_io;
      return fail(ov_error_invalid_expression);
    }
    Table *table = node_table(node);
    if (table == nullptr) return ov_error_code();
    if (!table->data && table_allocate(table) != ov_error_none) return ov_error_code();
    const bool chance = node->category == ov_category_chance;
    if (log_printf(domain, "Using model for %s to generate a %s table\n", node_get_name(node),
                   chance ? "conditional probability" : "utility") != ov_error_none)
      return ov_error_io;
    if (ov_status_t status = check_state_values(node)) return status;
    for (Node *parent : node->parents)
      if (ov_status_t status = check_state_values(parent)) return status;
    if (ov_status_t status = check_slots(model, node)) return status;
    Walk walk = make_walk(table, model);
    ov_status_t status = ov_error_error;
    if (chance)
      status = chance_walk(walk, model, table);
    else if (node->category == ov_category_utility)
      status = utility_walk(walk, model, table);
    else
      status = fail(ov_error_error);
    if (status != ov_error_none) return status;
    model->table_is_stale = 0;
    touch_table(node);
    if (log_flush(domain) != ov_error_none) return ov_error_io;
    return set_error(ov_error_none);
  });
}

ov_status_t generate_domain_tables(Domain *domain) noexcept {
  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node))
    if (node->model)
      if (ov_status_t status = generate_node_table(node)) return status;
  return set_error(ov_error_none);
}

ov_status_t generate_tables_of_junction_tree(const JunctionTree *tree) noexcept {
  Domain *domain = tree->domain;
  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node))
    if (node->model && node->junction_tree == tree)
      if (ov_status_t status = generate_node_table(node)) return status;
  return ov_error_none;
}

} // namespace orvel
