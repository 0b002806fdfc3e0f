// Unfolding a class into a plain domain: every instance is expanded in
// place, recursively; bindings become edges and output clones disappear.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "api/error.h"
#include "expr/model.h"
#include "model/domain.h"
#include "model/graph.h"
#include "model/node.h"
#include "oo/class.h"
#include "oo/clone.h"
#include "table/table.h"

namespace orvel {

namespace {

// Maps the nodes of one class (by number) to the nodes made for them.
using NodeMap = std::vector<Node *>;

Node *mapped(const NodeMap &map, const Node *node) noexcept { return map[node->number - 1]; }

// The node of `target` standing for the class node `node`, reached through
// the instance nodes of `path`: states, label, attributes and position,
// without parents or tables.
Node *unfold_node(Node *node, Domain *target, const std::vector<Node *> &path) {
  Node *copy = node_create(target, node->category, node->kind, ov_subtype_label, false);
  if (copy == nullptr) return nullptr;
  copy->source = std::make_unique<NodeList>();
  copy->source->reserve(static_cast<std::uint32_t>(path.size() + 1));
  for (Node *instance : path) copy->source->push_back(instance);
  copy->source->push_back(node);
  copy->label = node->label;
  copy_attributes(node->attributes, copy->attributes);
  copy->position_x = node->position_x;
  copy->position_y = node->position_y;
  if (node->is_discrete()) {
    copy->state_count = node->state_count;
    copy->subtype = node->subtype;
    if (node->state_labels) copy->state_labels = std::make_shared<StateLabels>(*node->state_labels);
    if (node->state_values) copy->state_values = std::make_shared<StateValues>(*node->state_values);
  }
  return copy;
}

// A copy of `table` over the mapped nodes, owned by `owner`; null on
// failure.
Table *copy_table(const Table *table, const NodeMap &map, Node *owner) {
  NodeList nodes;
  nodes.reserve(table->nodes.size());
  for (Node *member : table->nodes) {
    Node *to = mapped(map, member);
    if (to == nullptr) return set_error(ov_error_usage), nullptr;
    nodes.push_back(to);
  }
  Table *copy = table_new(owner->home, nodes.data(), table->value_kind, table->role, false, true);
  if (copy == nullptr) return nullptr;
  if (table->data) std::memcpy(copy->data.get(), table->data.get(), sizeof(ov_number_t) * table->size);
  if (table->cg_data)
    std::memcpy(copy->cg_data.get(), table->cg_data.get(), sizeof(double) * table->size * table->cg_stride);
  if (table->cg_roles) std::memcpy(copy->cg_roles.get(), table->cg_roles.get(), table->continuous_count);
  copy->owner = owner;
  return copy;
}

// Parents, tables, model and edge constraints of the copy of a plain class
// node.
ov_status_t unfold_links(Node *node, const NodeMap &map) {
  Node *copy = mapped(map, node);
  // Continuous parents are appended and discrete ones go to the front, so
  // this order gives the copy the parent order of the class node.
  std::uint32_t first_continuous = 0;
  while (first_continuous < node->parents.size() && node->parents[first_continuous]->is_discrete()) ++first_continuous;
  for (std::uint32_t i = first_continuous; i < node->parents.size(); ++i)
    if (add_parent(copy, mapped(map, node->parents[i]), false) != ov_error_none) return ov_error_code();
  for (std::uint32_t i = first_continuous; i-- > 0;)
    if (add_parent(copy, mapped(map, node->parents[i]), false) != ov_error_none) return ov_error_code();

  struct Slot {
    const Table *from;
    Table **to;
  };
  for (Slot slot : {Slot{node->table, &copy->table}, Slot{node->experience_table, &copy->experience_table},
                    Slot{node->fading_table, &copy->fading_table}}) {
    if (slot.from == nullptr) continue;
    Table *table = copy_table(slot.from, map, copy);
    if (table == nullptr) return ov_error_code();
    *slot.to = table;
  }

  if (node->model) {
    ModelPtr model = model_copy(node->model.get(), copy);
    if (!model) return ov_error_code();
    for (Node *parent : node->parents) model_replace_node(model.get(), parent, mapped(map, parent));
    copy->model = std::move(model);
  }

  for (const auto &[other, value] : node->edge_constraints) {
    Node *to = other->home == node->home ? mapped(map, other) : nullptr;
    if (to != nullptr && set_edge_constraint(copy, to, value) != ov_error_none) return ov_error_code();
  }
  return set_error(ov_error_none);
}

// Makes the bound inputs of an unfolded instance disappear: the children of
// each one go over to the node it is bound to.
ov_status_t unfold_bindings(Node *instance, const NodeMap &inner, const NodeMap &map) {
  const NodeList &inputs = instance->instance_class->class_info.inputs;
  for (std::uint32_t i = 0; i < inputs.size() && i < instance->input_bindings.size(); ++i) {
    Node *actual = instance->input_bindings[i];
    if (actual == nullptr) continue;
    Node *formal = mapped(inner, inputs[i]);
    Node *real = mapped(map, actual);
    if (formal == nullptr || real == nullptr || !interchangeable(formal, real)) return fail(ov_error_illegal_binding);
    while (!formal->children.empty()) {
      if (switch_parent(formal->children[0], formal, real, false) != ov_error_none) {
        const ov_status_t code = ov_error_code();
        return fail(code == ov_error_usage ? ov_error_illegal_binding : static_cast<ov_error_t>(code));
      }
    }
    if (node_delete(formal) != ov_error_none) return ov_error_code();
  }
  return set_error(ov_error_none);
}

// Adds the nodes of `cls`, with its instances expanded, to `target`, and
// fills `map` with the node made for each plain node and each output clone.
ov_status_t unfold_into(Domain *cls, Domain *target, std::vector<Node *> &path, NodeMap &map) {
  map.assign(cls->node_count(), nullptr);
  std::vector<NodeMap> inner(cls->node_count());
  // Newest first, as the class lists its nodes.
  for (std::uint32_t i = cls->node_count(); i-- > 0;) {
    Node *node = cls->nodes[i].get();
    if (node->master != nullptr) continue;
    if (node->category == ov_category_instance) {
      Domain *nested = node->instance_class;
      if (nested == nullptr) return fail(ov_error_usage);
      path.push_back(node);
      const ov_status_t status = unfold_into(nested, target, path, inner[i]);
      path.pop_back();
      if (status != ov_error_none) return status;
      const NodeList &outputs = nested->class_info.outputs;
      for (std::uint32_t k = 0; k < outputs.size() && k < node->output_clones.size(); ++k)
        map[node->output_clones[k]->number - 1] = mapped(inner[i], outputs[k]);
    } else {
      map[i] = unfold_node(node, target, path);
      if (map[i] == nullptr) return ov_error_code();
    }
  }
  for (std::uint32_t i = cls->node_count(); i-- > 0;) {
    Node *node = cls->nodes[i].get();
    if (node->master != nullptr) continue;
    const ov_status_t status =
        node->category == ov_category_instance ? unfold_bindings(node, inner[i], map) : unfold_links(node, map);
    if (status != ov_error_none) return status;
  }
  return set_error(ov_error_none);
}

// Whether the links of a domain form no directed cycle: the nodes are taken
// off in the order of a topological sort, and all of them must go.
bool domain_is_acyclic(const Domain *domain) {
  std::vector<std::uint32_t> waiting(domain->node_count());
  std::vector<Node *> ready;
  for (const auto &node : domain->nodes) {
    waiting[node->number - 1] = node->parents.size();
    if (node->parents.empty()) ready.push_back(node.get());
  }
  std::size_t done = 0;
  while (!ready.empty()) {
    Node *node = ready.back();
    ready.pop_back();
    ++done;
    for (Node *child : node->children)
      if (--waiting[child->number - 1] == 0) ready.push_back(child);
  }
  return done == domain->node_count();
}

} // namespace

Domain *class_create_domain(Domain *cls) {
  auto domain = std::make_unique<Domain>();
  copy_attributes(cls->attributes, domain->attributes);
  domain->node_width = cls->node_width;
  domain->node_height = cls->node_height;
  std::vector<Node *> path;
  NodeMap map;
  // Edges are added without a cycle test each, which would make unfolding
  // quadratic in the size of the domain; the result is tested once.
  if (unfold_into(cls, domain.get(), path, map) != ov_error_none ||
      (!domain_is_acyclic(domain.get()) && fail(ov_error_cyclic_network) != ov_error_none)) {
    const ov_error_t code = static_cast<ov_error_t>(ov_error_code());
    domain_delete(domain.release());
    set_error(code);
    return nullptr;
  }
  // The nodes were made in the order in which the class lists them, newest
  // first; turned round, the domain lists them in that order too.
  std::reverse(domain->nodes.begin(), domain->nodes.end());
  for (std::uint32_t i = 0; i < domain->nodes.size(); ++i) domain->nodes[i]->number = i + 1;
  std::reverse(domain->tables.begin(), domain->tables.end());
  for (std::uint32_t i = 0; i < domain->tables.size(); ++i) domain->tables[i]->serial = i + 1;
  set_error(ov_error_none);
  return domain.release();
}

} // namespace orvel
