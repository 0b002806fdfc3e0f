// Nodes: creation, names, states, the invalidation cascades and deletion.
#include "model/node.h"

#include <cctype>
#include <cfloat>
#include <cmath>
#include <cstdio>

#include "api/error.h"
#include "api/locale_guard.h"
#include "expr/model.h"
#include "model/domain.h"
#include "model/graph.h"
#include "oo/class.h"
#include "table/table.h"

namespace orvel {

Node *node_create(Domain *domain, ov_category_t category, ov_kind_t kind, ov_subtype_t subtype, bool is_clone) {
  (void)is_clone;
  // Influence diagrams and continuous nodes do not mix.
  bool id_node = category == ov_category_decision || category == ov_category_utility ||
                 domain->decision_count + domain->utility_count > 0;
  bool cg_node = kind == ov_kind_continuous || domain->continuous_count > 0;
  if (category != ov_category_instance && id_node && cg_node) {
    set_error(ov_error_cg_influence_diagrams_not_supported);
    return nullptr;
  }
  auto node = std::make_unique<Node>();
  // Room for one more, growing geometrically so that filling a domain stays linear.
  if (domain->nodes.size() == domain->nodes.capacity()) domain->nodes.reserve(2 * domain->nodes.size() + 1);
  domain_uncompile(domain);

  node->home = domain;
  node->category = category;
  node->kind = kind;
  if (kind == ov_kind_discrete) {
    node->subtype = subtype;
    node->state_count = subtype == ov_subtype_boolean ? 2 : 1;
  } else {
    node->state_count = 0;
  }
  node->number = domain->node_count() + 1;
  if (kind == ov_kind_discrete)
    ++domain->discrete_count;
  else
    ++domain->continuous_count;
  switch (category) {
  case ov_category_chance: ++domain->chance_count; break;
  case ov_category_decision: ++domain->decision_count; break;
  case ov_category_utility: ++domain->utility_count; break;
  case ov_category_instance: ++domain->instance_count; break;
  default: break;
  }
  Node *created = node.get();
  domain->nodes.push_back(std::move(node));
  set_error(ov_error_none);
  return created;
}

// ---------------------------------------------------------------- names

bool name_is_valid(const char *name) noexcept {
  auto first = static_cast<unsigned char>(name[0]);
  if (!(std::isalpha(first) || first == '_')) return false;
  for (const char *c = name + 1; *c != 0; ++c) {
    auto ch = static_cast<unsigned char>(*c);
    if (!(std::isalnum(ch) || ch == '_')) return false;
  }
  return true;
}

ov_status_t node_set_name(Node *node, const char *name) {
  if (node->name && *node->name == name) return set_error(ov_error_none);
  Domain *domain = node->home;
  if (domain_find_node(domain, name) != nullptr) return fail(ov_error_twice);
  {
    LocaleGuard guard;
    if (!guard.ok()) return ov_error_code();
    if (!name_is_valid(name)) return fail(ov_error_invalid_name);
  }
  std::optional<std::string> old_name = std::move(node->name);
  try {
    node->name.emplace(name);
  } catch (...) {
    node->name = std::move(old_name);
    throw;
  }
  name_table_rename(domain, node, old_name);
  return set_error(ov_error_none);
}

const char *node_get_name(Node *node) {
  if (node->name) return node->name->c_str();
  Domain *domain = node->home;
  char text[64 + 64];
  if (node->master != nullptr && node->master->name && node->instance != nullptr && node->instance->name) {
    std::string joined = *node->instance->name + "_" + *node->master->name;
    ov_status_t status = node_set_name(node, joined.c_str());
    if (status == ov_error_none) return node->name->c_str();
    if (status != ov_error_twice) return nullptr;
  }
  const char *pattern;
  switch (node->category) {
  case ov_category_instance: pattern = "I%s"; break;
  case ov_category_chance: pattern = "C%s"; break;
  case ov_category_decision: pattern = "D%s"; break;
  case ov_category_utility: pattern = "U%s"; break;
  default: pattern = "X%s"; break;
  }
  std::snprintf(text, sizeof text, pattern, format_count(domain, node->number));
  ov_status_t status = node_set_name(node, text);
  for (std::uint64_t n = domain->node_count(); status == ov_error_twice;) {
    std::snprintf(text, sizeof text, pattern, format_count(domain, ++n));
    status = node_set_name(node, text);
  }
  return status == ov_error_none ? node->name->c_str() : nullptr;
}

ov_status_t domain_repair_names(Domain *domain) {
  // Oldest first; the numbers do not change while names do.
  for (std::uint32_t i = 0; i < domain->node_count(); ++i) {
    Node *node = domain->nodes[i].get();
    if (!node->name) continue;
    std::string repaired = *node->name;
    {
      LocaleGuard guard;
      if (!guard.ok()) return ov_error_code();
      for (std::size_t k = 0; k < repaired.size(); ++k) {
        auto ch = static_cast<unsigned char>(repaired[k]);
        bool legal = ch == '_' || (k == 0 ? std::isalpha(ch) : std::isalnum(ch));
        if (!legal) repaired[k] = '_';
      }
    }
    // An empty name fails on its terminator, which is repaired like any other
    // illegal first character.
    if (repaired.empty()) repaired.push_back('_');
    ov_status_t status = node_set_name(node, repaired.c_str());
    while (status == ov_error_twice) {
      repaired += '_';
      status = node_set_name(node, repaired.c_str());
    }
    if (status != ov_error_none) return status;
  }
  return set_error(ov_error_none);
}

// ---------------------------------------------------------------- states

const char *state_label(const Node *node, std::uint32_t state) noexcept {
  if (node->state_labels && state < node->state_labels->size() && (*node->state_labels)[state])
    return (*node->state_labels)[state]->c_str();
  if (node->subtype == ov_subtype_boolean) {
    if (state == 0) return "false";
    if (state == 1) return "true";
  }
  return "";
}

double state_value(const Node *node, std::uint32_t state) noexcept {
  if (node->state_values && state < node->state_values->size()) return (*node->state_values)[state];
  if (node->subtype == ov_subtype_interval) {
    if (state == 0) return -DBL_MAX;
    if (state == node->state_count) return DBL_MAX;
  }
  return -1.0;
}

bool values_increase(const Node *node) noexcept {
  if (!node->state_values) return false;
  const StateValues &v = *node->state_values;
  std::uint32_t last = node->subtype == ov_subtype_interval ? node->state_count : node->state_count - 1;
  if (v.size() <= last) return false;
  for (std::uint32_t i = 0; i < last; ++i)
    if (!(v[i] < v[i + 1])) return false;
  return true;
}

// ---------------------------------------------------------------- cascades

void touch_table(Node *node) noexcept {
  if (node->junction_tree != nullptr) junction_tree_note_table_change(node->junction_tree);
  if (node->category == ov_category_chance) node->home->learning.log_likelihood_valid = 0;
}

void invalidate_model(Node *node) noexcept {
  if (!node->model) return;
  node->model->table_is_stale = 1;
  touch_table(node);
}

namespace {

// The position of a node among its class's outputs when the class has
// instances, else -1.
std::int64_t output_position_with_instances(const Node *node) noexcept {
  const Domain *home = node->home;
  if (!home->is_class() || home->class_info.instances.empty()) return -1;
  return home->class_info.outputs.index_of(node);
}

} // namespace

void invalidate_dependants(Node *node) noexcept {
  invalidate_model(node);
  for (Node *child : node->children) invalidate_model(child);
  std::int64_t position = output_position_with_instances(node);
  if (position < 0) return;
  for (Node *instance : node->home->class_info.instances) {
    if (static_cast<std::uint32_t>(position) < instance->output_clones.size())
      invalidate_dependants(instance->output_clones[static_cast<std::uint32_t>(position)]);
  }
}

void refresh_clones(Node *node) noexcept {
  std::int64_t position = output_position_with_instances(node);
  if (position < 0) return;
  for (Node *instance : node->home->class_info.instances) {
    if (static_cast<std::uint32_t>(position) >= instance->output_clones.size()) continue;
    Node *clone = instance->output_clones[static_cast<std::uint32_t>(position)];
    if (node->is_discrete()) {
      clone->subtype = node->subtype;
      clone->state_labels = node->state_labels;
      clone->state_values = node->state_values;
    }
    refresh_clones(clone);
  }
}

// ---------------------------------------------------------------- deletion

namespace {

void count_out(Domain *domain, const Node *node) noexcept {
  if (node->is_discrete())
    --domain->discrete_count;
  else
    --domain->continuous_count;
  switch (node->category) {
  case ov_category_chance: --domain->chance_count; break;
  case ov_category_decision: --domain->decision_count; break;
  case ov_category_utility: --domain->utility_count; break;
  case ov_category_instance: --domain->instance_count; break;
  default: break;
  }
}

// Takes the record off the domain, keeps the numbers dense and forgets the
// node in its partners' edge constraints and its class's instance list.
void unlink_node(Domain *domain, Node *node) noexcept {
  for (auto &[other, value] : node->edge_constraints) {
    (void)value;
    auto &theirs = other->edge_constraints;
    for (auto it = theirs.begin(); it != theirs.end(); ++it)
      if (it->first == node) {
        theirs.erase(it);
        break;
      }
  }
  if (node->category == ov_category_instance && node->instance_class != nullptr)
    node->instance_class->class_info.instances.remove(node);
  count_out(domain, node);
  std::uint32_t index = node->number - 1;
  domain->nodes.erase(domain->nodes.begin() + index);
  for (std::uint32_t i = index; i < domain->nodes.size(); ++i) domain->nodes[i]->number = i + 1;
}

void delete_owned_table(Table *&table) noexcept {
  table_delete(table);
  table = nullptr;
}

} // namespace

ov_status_t node_delete(Node *node) {
  Domain *domain = node->home;
  if (domain->is_class()) {
    // An interface node leaves the interface first, which keeps the
    // bindings and clones of the class's instances in line.
    if (domain->class_info.inputs.contains(node)) node_remove_from_inputs(node);
    if (domain->class_info.outputs.contains(node)) node_remove_from_outputs(node);
    if (node->category == ov_category_instance)
      while (!node->output_clones.empty()) {
        Node *clone = node->output_clones.back();
        node->output_clones.erase_at(node->output_clones.size() - 1);
        node_delete(clone);
      }
    for (auto &other : domain->nodes)
      for (Node *&bound : other->input_bindings)
        if (bound == node) bound = nullptr;
    if (node->instance != nullptr) node->instance->output_clones.remove(node);
  }
  delete_owned_table(node->table);
  node->model.reset();
  delete_owned_table(node->experience_table);
  delete_owned_table(node->fading_table);

  while (!node->parents.empty()) remove_parent(node, node->parents.back());
  while (!node->children.empty()) remove_parent(node->children.back(), node);

  name_table_remove(domain, node);
  domain_uncompile(domain);
  unlink_node(domain, node);
  return set_error(ov_error_none);
}

} // namespace orvel
