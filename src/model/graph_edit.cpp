// Structural edits of a network: links, the number of states, edge
// constraints, and the cycle test they rely on.
#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "api/error.h"
#include "expr/model.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/graph.h"
#include "table/table.h"

namespace orvel {

// ---------------------------------------------------------------- cycle test

namespace {

// Marks everything reachable downwards from `start` (from its children
// other than `skipped_child` when that is set, else from `start` itself)
// and reports whether `target` was reached. Marks are cleared before
// returning.
bool reaches_downwards(Node *start, const Node *target, const Node *skipped_child) {
  // Each node is recorded once, so the reserved room is never exceeded and
  // nothing below can throw once the first mark is set.
  std::vector<Node *> reached;
  reached.reserve(start->home->node_count());
  auto reach = [&](Node *node) noexcept {
    if (node->mark != 0) return;
    if (node->chain_component != nullptr) {
      // Undirected links are passed in both directions.
      for (Node *member : node->chain_component->members)
        if (member->mark == 0) {
          member->mark = 1;
          reached.push_back(member);
        }
    } else {
      node->mark = 1;
      reached.push_back(node);
    }
  };
  if (skipped_child == nullptr) {
    reach(start);
  } else {
    for (Node *child : start->children)
      if (child != skipped_child) reach(child);
  }
  for (std::size_t i = 0; i < reached.size() && target->mark == 0; ++i)
    for (Node *child : reached[i]->children) reach(child);
  const bool found = target->mark != 0;
  for (Node *node : reached) node->mark = 0;
  return found;
}

} // namespace

bool is_descendant(Node *node, Node *other) { return reaches_downwards(node, other, nullptr); }

// Used by the edge reversal: whether `child` can be reached from `parent`
// by a path other than the direct link.
bool reaches_by_other_path(Node *parent, Node *child) { return reaches_downwards(parent, child, child); }

// ---------------------------------------------------------------- helpers

namespace {

// Applies `op` to each chain potential of `member`'s component that holds
// `member`.
template <class F> void for_each_chain_potential(Node *member, F &&op) {
  if (member->chain_component == nullptr) return;
  for (Table *potential : member->chain_component->potentials)
    if (potential->nodes.contains(member)) op(potential);
}

// The position of a node among its class's outputs when the class has
// instances, else -1.
std::int64_t output_position(const Node *node) noexcept {
  const Domain *home = node->home;
  if (!home->is_class() || home->class_info.instances.empty()) return -1;
  return home->class_info.outputs.index_of(node);
}

} // namespace

// ---------------------------------------------------------------- links

bool parent_link_allowed(const Node *child, const Node *parent) noexcept {
  if (child == nullptr || parent == nullptr || child->home != parent->home) return false;
  if (child->parents.contains(parent)) return false;
  if (parent->category != ov_category_chance && parent->category != ov_category_decision) return false;
  if (child->is_discrete() && !parent->is_discrete()) return false;
  if (child->master != nullptr || child->category == ov_category_instance) return false;
  return !child->home->class_info.inputs.contains(child);
}

ov_status_t add_parent(Node *child, Node *parent, bool check_cycle) {
  if (!parent_link_allowed(child, parent)) return fail(ov_error_usage);
  if (check_cycle && is_descendant(child, parent)) return fail(ov_error_cyclic_network);
  child->parents.reserve_one();
  parent->children.reserve_one();

  Table *tables[3] = {child->table, child->experience_table, child->fading_table};
  for (std::uint32_t i = 0; i < 3; ++i) {
    Table *table = tables[i];
    if (table == nullptr) continue;
    if (table_add_node(table, parent) != ov_error_none) {
      const ov_status_t code = ov_error_code();
      // Narrowing keeps state 0, which holds the old numbers exactly.
      for (std::uint32_t j = 0; j < i; ++j)
        if (tables[j] != nullptr) table_remove_node(tables[j], parent);
      return fail(static_cast<ov_error_t>(code));
    }
    // A new continuous parent is a conditioning variable of the child.
    if (!parent->is_discrete()) table->cg_roles[table->continuous_count - 1] = cg_tail;
  }
  node_list_insert_by_kind(child->parents, parent);
  node_list_insert_by_kind(parent->children, child);
  domain_uncompile(child->home);
  return set_error(ov_error_none);
}

ov_status_t remove_parent(Node *child, Node *parent) {
  if (child == nullptr || !child->parents.contains(parent)) return fail(ov_error_usage);
  child->parents.remove(parent);
  parent->children.remove(child);
  for (Table *table : {child->table, child->experience_table, child->fading_table})
    if (table != nullptr) table_remove_node(table, parent);
  if (child->model) {
    // The model may drop itself here; invalidate_model then finds none.
    model_on_parent_removed(child->model.get(), parent);
    invalidate_model(child);
  }
  for_each_chain_potential(child, [&](Table *potential) { table_remove_node(potential, parent); });
  domain_uncompile(child->home);
  return set_error(ov_error_none);
}

bool interchangeable(const Node *a, const Node *b) noexcept {
  if (a->category != b->category || a->kind != b->kind) return false;
  if (!a->is_discrete()) return true;
  if (a->state_count != b->state_count || a->subtype != b->subtype) return false;
  switch (a->subtype) {
  case ov_subtype_label:
    for (std::uint32_t i = 0; i < a->state_count; ++i)
      if (std::strcmp(state_label(a, i), state_label(b, i)) != 0) return false;
    return true;
  case ov_subtype_number:
    for (std::uint32_t i = 0; i < a->state_count; ++i)
      if (state_value(a, i) != state_value(b, i)) return false;
    return true;
  case ov_subtype_interval:
    for (std::uint32_t i = 0; i <= a->state_count; ++i)
      if (state_value(a, i) != state_value(b, i)) return false;
    return true;
  default: return true;
  }
}

bool switch_allowed(const Node *child, const Node *old_parent, const Node *new_parent) noexcept {
  if (child == nullptr || new_parent == nullptr || child->home != new_parent->home) return false;
  if (child->parents.contains(new_parent)) return false;
  if (old_parent == nullptr || !child->parents.contains(old_parent)) return false;
  return interchangeable(old_parent, new_parent);
}

ov_status_t switch_parent(Node *child, Node *old_parent, Node *new_parent, bool check_cycle) {
  if (!switch_allowed(child, old_parent, new_parent)) return fail(ov_error_usage);
  if (check_cycle && is_descendant(child, new_parent)) return fail(ov_error_cyclic_network);
  new_parent->children.reserve_one();

  child->parents[static_cast<std::uint32_t>(child->parents.index_of(old_parent))] = new_parent;
  old_parent->children.remove(child);
  node_list_insert_by_kind(new_parent->children, child);
  // The two parents have the same states, so every cell keeps its meaning.
  auto replace = [&](Table *table) noexcept {
    if (table == nullptr) return;
    const std::int64_t at = table->nodes.index_of(old_parent);
    if (at >= 0) table->nodes[static_cast<std::uint32_t>(at)] = new_parent;
  };
  replace(child->table);
  replace(child->experience_table);
  replace(child->fading_table);
  for_each_chain_potential(child, replace);
  if (child->model) model_on_parent_switched(child->model.get(), old_parent, new_parent);
  domain_uncompile(child->home);
  return set_error(ov_error_none);
}

// ---------------------------------------------------------------- states

namespace {

struct StateHolders {
  std::vector<Node *> nodes;                      // the node and its output clones
  std::vector<std::pair<Table *, Node *>> tables; // each table with the node it holds
};

// Collects the node, the tables that hold it, and the same for each
// class-output clone of it, recursively.
void collect_state_holders(Node *node, StateHolders &holders) {
  holders.nodes.push_back(node);
  auto add = [&](Table *table) {
    if (table == nullptr || !table->nodes.contains(node)) return;
    for (const auto &entry : holders.tables)
      if (entry.first == table) return;
    holders.tables.emplace_back(table, node);
  };
  auto add_all = [&](Node *owner) {
    add(owner->table);
    add(owner->experience_table);
    add(owner->fading_table);
    for_each_chain_potential(owner, add);
  };
  add_all(node);
  for (Node *child : node->children) add_all(child);
  const std::int64_t position = output_position(node);
  if (position < 0) return;
  for (Node *instance : node->home->class_info.instances)
    if (static_cast<std::uint64_t>(position) < instance->output_clones.size())
      collect_state_holders(instance->output_clones[static_cast<std::uint32_t>(position)], holders);
}

// Whether an array of `count` elements of `T` can be addressed with the
// library's sizes.
template <class T> bool fits(std::uint64_t count) noexcept {
  return count < size_overflow &&
         size_multiply(static_cast<Size>(sizeof(T)), static_cast<Size>(count)) != size_overflow;
}

} // namespace

bool states_settable(const Node *node, std::uint64_t count) noexcept {
  return node != nullptr && node->has_states() && node->master == nullptr && count > 0 && count < size_overflow &&
         node->subtype != ov_subtype_boolean;
}

ov_status_t set_number_of_states(Node *node, std::uint32_t count) {
  if (!states_settable(node, count)) return fail(ov_error_usage);
  const std::uint32_t k = node->state_count;
  if (count == k) return set_error(ov_error_none);

  StateHolders holders;
  collect_state_holders(node, holders);
  StateLabels *labels = node->state_labels.get();
  StateValues *values = node->state_values.get();
  // The label and value arrays get their room before any table changes, so
  // that a failing table leaves only tables to set back.
  if (count > k) {
    if ((labels != nullptr && !fits<StateLabels::value_type>(count)) ||
        (values != nullptr && !fits<double>(std::uint64_t{count} + 1)))
      return fail(ov_error_no_memory);
    if (labels != nullptr) labels->reserve(count);
    if (values != nullptr) values->reserve(std::size_t{count} + 1);
  }

  std::size_t done = 0;
  for (; done < holders.tables.size(); ++done)
    if (table_resize_node(holders.tables[done].first, holders.tables[done].second, count) != ov_error_none) break;
  if (done < holders.tables.size()) {
    const ov_status_t code = ov_error_code();
    // Shrinking back to the old count cannot fail and restores each table.
    while (done-- > 0) table_resize_node(holders.tables[done].first, holders.tables[done].second, k);
    return fail(static_cast<ov_error_t>(code));
  }

  // Labels: new states have none, dropped ones go. Values: the top bound
  // of an interval node stays the top bound, new entries are -1.0.
  if (labels != nullptr && (count > k || labels->size() > count)) labels->resize(count);
  if (values != nullptr) {
    const double top = (*values)[k];
    if (count > k) {
      values->resize(std::size_t{count} + 1, -1.0);
      (*values)[k] = -1.0;
      (*values)[count] = top;
    } else {
      (*values)[count] = top;
      values->resize(std::size_t{count} + 1);
    }
  }
  for (Node *changed : holders.nodes) {
    changed->state_count = count;
    // A finding has the length of the old count: it cannot survive.
    changed->entered_finding.clear();
    changed->has_entered_finding = false;
  }
  // Models that refer to the node's states lose their expressions.
  for (Node *changed : holders.nodes) {
    auto notify = [&](Node *holder) {
      if (!holder->model) return;
      model_on_state_count_changed(holder->model.get(), changed);
      invalidate_model(holder);
    };
    notify(changed);
    for (Node *child : changed->children) notify(child);
  }
  refresh_clones(node);
  for (Node *changed : holders.nodes) domain_uncompile(changed->home);
  return set_error(ov_error_none);
}

// ---------------------------------------------------------------- constraints

int mirror_edge_constraint(int value) noexcept {
  switch (value) {
  case ov_constraint_forward_edge_required: return ov_constraint_backward_edge_required;
  case ov_constraint_backward_edge_required: return ov_constraint_forward_edge_required;
  case ov_constraint_forward_edge_forbidden: return ov_constraint_backward_edge_forbidden;
  case ov_constraint_backward_edge_forbidden: return ov_constraint_forward_edge_forbidden;
  default: return value;
  }
}

namespace {

std::int64_t constraint_index(const Node *node, const Node *other) noexcept {
  const auto &pairs = node->edge_constraints;
  for (std::size_t i = 0; i < pairs.size(); ++i)
    if (pairs[i].first == other) return static_cast<std::int64_t>(i);
  return -1;
}

// Removes the pair of `node` towards `other`: the last pair fills the gap.
void remove_constraint(Node *node, const Node *other) noexcept {
  const std::int64_t at = constraint_index(node, other);
  if (at < 0) return;
  auto &pairs = node->edge_constraints;
  pairs[static_cast<std::size_t>(at)] = pairs.back();
  pairs.pop_back();
}

// Stores a value towards `other`, in a place made beforehand if new.
void store_constraint(Node *node, Node *other, int value) noexcept {
  const std::int64_t at = constraint_index(node, other);
  if (at >= 0)
    node->edge_constraints[static_cast<std::size_t>(at)].second = value;
  else
    node->edge_constraints.emplace_back(other, value);
}

} // namespace

bool constraint_pair_valid(const Node *a, const Node *b) noexcept {
  return a != nullptr && b != nullptr && a != b && a->home == b->home;
}

int get_edge_constraint(const Node *a, const Node *b) noexcept {
  const std::int64_t at = constraint_index(a, b);
  return at < 0 ? ov_constraint_none : a->edge_constraints[static_cast<std::size_t>(at)].second;
}

ov_status_t set_edge_constraint(Node *a, Node *b, int value) {
  if (!constraint_pair_valid(a, b) || value < ov_constraint_none || value > ov_constraint_backward_edge_forbidden)
    return fail(ov_error_usage);
  if (value == ov_constraint_none) {
    remove_constraint(a, b);
    remove_constraint(b, a);
    return set_error(ov_error_none);
  }
  // Room on both sides first; if the second fails, the first stays unused.
  if (constraint_index(a, b) < 0) a->edge_constraints.reserve(a->edge_constraints.size() + 1);
  if (constraint_index(b, a) < 0) b->edge_constraints.reserve(b->edge_constraints.size() + 1);
  store_constraint(a, b, value);
  store_constraint(b, a, mirror_edge_constraint(value));
  return set_error(ov_error_none);
}

} // namespace orvel
