// Copies of domains and nodes. A domain copy makes every record again in
// the same order, so that numbers, serials and list positions agree with the
// source, and turns every pointer into the source to its copy.
#include "oo/clone.h"

#include <cstring>
#include <memory>
#include <type_traits>
#include <vector>

#include "api/error.h"
#include "compile/forest_copy.h"
#include "expr/model.h"
#include "model/chain_component.h"
#include "model/graph.h"
#include "model/hooks.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

void copy_attributes(const AttributeList &from, AttributeList &to) {
  std::unique_ptr<Attribute> *tail = &to.first;
  while (*tail) tail = &(*tail)->next;
  for (const Attribute *a = from.first.get(); a != nullptr; a = a->next.get()) {
    auto copy = std::make_unique<Attribute>();
    copy->key = a->key;
    copy->value = a->value;
    *tail = std::move(copy);
    tail = &(*tail)->next;
  }
}

namespace {

// The description of a node that does not point at other nodes: category,
// kind, label, position, attributes and states.
void copy_description(const Node *from, Node *to) {
  to->label = from->label;
  to->position_x = from->position_x;
  to->position_y = from->position_y;
  copy_attributes(from->attributes, to->attributes);
  if (from->is_discrete()) {
    to->state_count = from->state_count;
    to->subtype = from->subtype;
    to->state_labels = from->state_labels ? std::make_shared<StateLabels>(*from->state_labels) : nullptr;
    to->state_values = from->state_values ? std::make_shared<StateValues>(*from->state_values) : nullptr;
  }
}

// A copy of `table` on `domain` over the nodes that `map_node` gives;
// null on failure.
template <class MapNode> Table *copy_table(const Table *table, Domain *domain, MapNode map_node) {
  NodeList nodes;
  nodes.reserve(table->nodes.size());
  for (Node *member : table->nodes) nodes.push_back(map_node(member));
  Table *copy = table_new(domain, nodes.data(), table->value_kind, table->role, false, false);
  if (copy == nullptr) return nullptr;
  if (table->cg_roles) std::memcpy(copy->cg_roles.get(), table->cg_roles.get(), table->continuous_count);
  // The data is written once, by the copy, rather than filled first: the
  // tables of a large forest make up most of the time of a clone.
  auto duplicate = [](auto &to, const auto &from, Size count) {
    if (!from) return true;
    to = alloc_array<std::remove_cvref_t<decltype(from[0])>>(count);
    if (!to) return false;
    std::memcpy(to.get(), from.get(), sizeof(from[0]) * count);
    return true;
  };
  if (!duplicate(copy->data, table->data, table->size) ||
      !duplicate(copy->cg_data, table->cg_data, size_multiply(table->size, table->cg_stride))) {
    table_delete(copy);
    set_error(ov_error_no_memory);
    return nullptr;
  }
  copy->owner = table->owner != nullptr ? map_node(table->owner) : nullptr;
  copy->compressed_cursor = table->compressed_cursor;
  return copy;
}

// A copy of a model for `owner`, over the copies of the model's parents.
template <class MapNode> ov_status_t copy_model(const Node *from, Node *owner, MapNode map_node) {
  if (!from->model) return set_error(ov_error_none);
  ModelPtr model = model_copy(from->model.get(), owner);
  if (!model) return ov_error_code();
  for (Node *parent : from->parents)
    if (map_node(parent) != parent) model_replace_node(model.get(), parent, map_node(parent));
  owner->model = std::move(model);
  return set_error(ov_error_none);
}

NodeList map_list(const NodeList &list, const std::vector<Node *> &map) {
  NodeList out;
  out.reserve(list.size());
  for (Node *node : list) out.push_back(map[node->number - 1]);
  return out;
}

// Everything of a node but its compiled state, in a domain whose nodes are
// all made.
void copy_node(const Node *from, Node *to, const std::vector<Node *> &map) {
  to->category = from->category;
  to->kind = from->kind;
  to->number = from->number;
  to->name = from->name;
  to->parents = map_list(from->parents, map);
  to->children = map_list(from->children, map);
  copy_description(from, to);
  to->edge_constraints.reserve(from->edge_constraints.size());
  for (const auto &[other, value] : from->edge_constraints)
    to->edge_constraints.emplace_back(map[other->number - 1], value);
  if (from->source) to->source = std::make_unique<NodeList>(*from->source);
  if (!from->is_discrete()) to->state_count = from->state_count;
  to->entered_finding = from->entered_finding;
  to->has_entered_finding = from->has_entered_finding;
  to->simulated_state = from->simulated_state;
  to->initial_belief = from->initial_belief;
  to->value_entered = from->value_entered;
  to->entered_value = from->entered_value;
  to->simulated_value = from->simulated_value;
  to->simulated_value_set = from->simulated_value_set;
  to->case_states = from->case_states;
  to->case_values = from->case_values;
  to->case_value_is_set = from->case_value_is_set;
}

ov_status_t clone_into(const Domain *from, Domain *to) {
  to->node_width = from->node_width;
  to->node_height = from->node_height;
  to->file_name = from->file_name;
  to->log_file = from->log_file;
  to->grain_size = from->grain_size;
  to->concurrency_level = from->concurrency_level;
  to->limited_memory = from->limited_memory;
  to->learning = from->learning;
  to->case_count = from->case_count;
  to->case_capacity = from->case_capacity;
  to->case_weights = from->case_weights;
  // Sized by the first propagation, so that later ones need not allocate.
  to->scratch_values.resize(from->scratch_values.size());
  random_state_assign(to->random.get(), from->random.get());
  copy_attributes(from->attributes, to->attributes);

  DomainCopyMap map;
  map.nodes.reserve(from->node_count());
  to->nodes.reserve(from->node_count());
  for (std::uint32_t i = 0; i < from->node_count(); ++i) {
    to->nodes.push_back(std::make_unique<Node>());
    to->nodes.back()->home = to;
    map.nodes.push_back(to->nodes.back().get());
  }
  to->discrete_count = from->discrete_count;
  to->continuous_count = from->continuous_count;
  to->chance_count = from->chance_count;
  to->decision_count = from->decision_count;
  to->utility_count = from->utility_count;
  to->instance_count = from->instance_count;
  for (std::uint32_t i = 0; i < from->node_count(); ++i) copy_node(from->nodes[i].get(), map.nodes[i], map.nodes);

  // Tables in list order, so that serials agree; a table handed out by a
  // query belongs to its caller and is left out.
  auto map_node = [&](const Node *node) { return map.nodes[node->number - 1]; };
  map.tables.reserve(from->tables.size());
  to->tables.reserve(from->tables.size());
  for (const auto &table : from->tables) {
    if (table->role == role_returned) {
      map.tables.push_back(nullptr);
      continue;
    }
    Table *copy = copy_table(table.get(), to, map_node);
    if (copy == nullptr) return ov_error_code();
    map.tables.push_back(copy);
  }
  auto map_table = [&](const Table *table) { return table != nullptr ? map.tables[table->serial - 1] : nullptr; };
  for (std::uint32_t i = 0; i < from->node_count(); ++i) {
    const Node *node = from->nodes[i].get();
    Node *copy = map.nodes[i];
    copy->table = map_table(node->table);
    copy->experience_table = map_table(node->experience_table);
    copy->fading_table = map_table(node->fading_table);
    if (copy_model(node, copy, map_node) != ov_error_none) return ov_error_code();
  }

  for (const auto &component : from->chain_components) {
    auto copy = std::make_unique<ChainComponent>();
    copy->domain = to;
    copy->members = map_list(component->members, map.nodes);
    copy->potentials.reserve(component->potentials.size());
    for (const Table *potential : component->potentials) copy->potentials.push_back(map_table(potential));
    for (Node *member : copy->members) member->chain_component = copy.get();
    map.components.push_back(copy.get());
    to->chain_components.push_back(std::move(copy));
  }

  forest_copy(from, to, map);
  return set_error(ov_error_none);
}

} // namespace

Domain *domain_clone(const Domain *domain) {
  if (domain->compiled != 0 && forest_is_compressed(domain)) return fail(ov_error_compressed), nullptr;
  auto copy = std::make_unique<Domain>();
  ov_status_t status = ov_error_no_memory;
  try {
    status = clone_into(domain, copy.get());
  } catch (const std::bad_alloc &) {
    set_error(ov_error_no_memory);
  }
  if (status != ov_error_none) {
    const ov_error_t code = static_cast<ov_error_t>(ov_error_code());
    domain_delete(copy.release());
    set_error(code);
    return nullptr;
  }
  return copy.release();
}

Node *node_clone(Node *node) {
  Domain *domain = node->home;
  Node *copy = node_create(domain, node->category, node->kind, node->subtype, false);
  if (copy == nullptr) return nullptr;
  auto map_node = [&](Node *n) { return n == node ? copy : n; };
  auto build = [&]() -> ov_status_t {
    copy_description(node, copy);
    // Continuous parents are appended and discrete ones go to the front, so
    // this order gives the copy the parent order of the node.
    std::uint32_t first_continuous = 0;
    while (first_continuous < node->parents.size() && node->parents[first_continuous]->is_discrete())
      ++first_continuous;
    for (std::uint32_t i = first_continuous; i < node->parents.size(); ++i)
      if (add_parent(copy, node->parents[i], false) != ov_error_none) return ov_error_code();
    for (std::uint32_t i = first_continuous; i-- > 0;)
      if (add_parent(copy, node->parents[i], false) != ov_error_none) return ov_error_code();
    if (node->table != nullptr) {
      Table *table = copy_table(node->table, domain, map_node);
      if (table == nullptr) return ov_error_code();
      copy->table = table;
    }
    return copy_model(node, copy, map_node);
  };
  ov_status_t status = ov_error_no_memory;
  try {
    status = build();
  } catch (const std::bad_alloc &) {
    set_error(ov_error_no_memory);
  }
  if (status != ov_error_none) {
    const ov_error_t code = static_cast<ov_error_t>(ov_error_code());
    node_delete(copy);
    set_error(code);
    return nullptr;
  }
  domain_uncompile(domain);
  return copy;
}

} // namespace orvel
