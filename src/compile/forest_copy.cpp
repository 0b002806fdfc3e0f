// Copying the compiled state: every record of the forest is made again and
// every pointer into the source domain is turned to its copy, so that the
// copy needs no triangulation, no table data and no propagation of its own.
#include "compile/forest_copy.h"

#include <cstring>
#include <functional>
#include <unordered_map>

#include "compile/compiled_forest.h"
#include "model/chain_component.h"
#include "table/plan.h"
#include "table/table.h"

namespace orvel {

namespace {

struct Remap {
  const DomainCopyMap &map;
  const Domain *source;
  const CompiledForest &from;
  CompiledForest &to;
  std::unordered_map<const PlanLayout *, std::shared_ptr<PlanLayout>> layouts;
  std::unordered_map<const ov_number_t *, const ov_number_t *> data;

  Remap(const DomainCopyMap &m, const Domain *s, CompiledForest &t) : map(m), source(s), from(*s->forest), to(t) {}
  Remap(const Remap &) = delete;
  Remap &operator=(const Remap &) = delete;

  Node *node(const Node *n) const noexcept { return n != nullptr ? map.nodes[n->number - 1] : nullptr; }
  Table *table(const Table *t) const noexcept {
    return t != nullptr && t->serial != 0 ? map.tables[t->serial - 1] : nullptr;
  }
  Clique *clique(const Clique *c) const noexcept { return c != nullptr ? to.cliques[c->position].get() : nullptr; }
  JunctionTree *tree(const JunctionTree *t) const noexcept {
    return t != nullptr ? to.junction_trees[t->position].get() : nullptr;
  }
  KernelPlan *plan(const KernelPlan *p) const noexcept {
    return p != nullptr ? to.kernel_plans[p->serial - 1].get() : nullptr;
  }
  ChainComponent *component(const ChainComponent *c) const noexcept {
    for (std::size_t i = 0; i < source->chain_components.size(); ++i)
      if (source->chain_components[i].get() == c) return map.components[i];
    return nullptr;
  }
  // The copies of a list, with the capacity of the list: what propagation
  // reserved is reserved again.
  template <class T, class One> std::vector<T *> all(const std::vector<T *> &list, One one) const {
    std::vector<T *> out;
    out.reserve(list.capacity());
    for (const T *item : list) out.push_back(one(item));
    return out;
  }
  // A weight pointer is the data of a propagated finding.
  const ov_number_t *weights(const ov_number_t *w) const noexcept {
    if (w == nullptr) return nullptr;
    auto found = data.find(w);
    return found != data.end() ? found->second : nullptr;
  }
  void dimensions(std::vector<PlanDimension> &list) const noexcept {
    for (PlanDimension &d : list) d.weights = weights(d.weights);
  }

  std::function<Node *(const Node *)> to_node = [this](const Node *n) { return node(n); };
  std::function<Clique *(const Clique *)> to_clique = [this](const Clique *c) { return clique(c); };
  std::function<KernelPlan *(const KernelPlan *)> to_plan = [this](const KernelPlan *p) { return plan(p); };
  std::function<ChainComponent *(const ChainComponent *)> to_component = [this](const ChainComponent *c) {
    return component(c);
  };
};

void copy_plans(Remap &r, Domain *to) {
  r.to.kernel_plans.reserve(r.from.kernel_plans.size());
  for (const KernelPlanPtr &source : r.from.kernel_plans) {
    KernelPlanPtr plan(new KernelPlan(*source));
    plan->domain = to;
    plan->target = r.table(source->target);
    plan->target_utility = r.table(source->target_utility);
    plan->source = r.table(source->source);
    plan->source_utility = r.table(source->source_utility);
    if (source->layout) {
      // Bound plans share one layout, and so do their copies.
      std::shared_ptr<PlanLayout> &layout = r.layouts[source->layout.get()];
      if (!layout) {
        layout = std::make_shared<PlanLayout>(*source->layout);
        r.dimensions(layout->dimensions);
      }
      plan->layout = layout;
    }
    for (PlanShape &shape : plan->shapes) r.dimensions(shape.dimensions);
    r.to.kernel_plans.push_back(std::move(plan));
  }
}

void copy_cliques(Remap &r, Domain *to) {
  r.to.cliques.reserve(r.from.cliques.size());
  for (std::size_t i = 0; i < r.from.cliques.size(); ++i) r.to.cliques.push_back(std::make_unique<Clique>());
  r.to.junction_trees.reserve(r.from.junction_trees.size());
  for (std::size_t i = 0; i < r.from.junction_trees.size(); ++i)
    r.to.junction_trees.push_back(std::make_unique<JunctionTree>());

  for (std::size_t i = 0; i < r.from.cliques.size(); ++i) {
    const Clique &source = *r.from.cliques[i];
    Clique &clique = *r.to.cliques[i];
    clique.number = source.number;
    clique.domain = to;
    clique.junction_tree = r.tree(source.junction_tree);
    clique.links.reserve(source.links.size());
    for (const CliqueLink &link : source.links)
      clique.links.push_back(CliqueLink{r.clique(link.neighbour), r.table(link.separator),
                                        r.table(link.separator_utilities), r.plan(link.plan)});
    clique.table = r.table(source.table);
    clique.utility_table = r.table(source.utility_table);
    clique.active = source.active;
    clique.factor = source.factor;
    clique.position = source.position;
  }

  for (std::size_t i = 0; i < r.from.junction_trees.size(); ++i) {
    const JunctionTree &source = *r.from.junction_trees[i];
    JunctionTree &tree = *r.to.junction_trees[i];
    tree.number = source.number;
    tree.domain = to;
    tree.root = r.clique(source.root);
    tree.changed_evidence_count = source.changed_evidence_count;
    tree.evidence_propagated = source.evidence_propagated;
    tree.likelihood_propagated = source.likelihood_propagated;
    tree.cg_evidence_propagated = source.cg_evidence_propagated;
    tree.tables_changed = source.tables_changed;
    tree.equilibrium = source.equilibrium;
    tree.evidence_mode = source.evidence_mode;
    tree.step_constant = source.step_constant;
    tree.total_constant = source.total_constant;
    tree.step_log_constant = source.step_log_constant;
    tree.total_log_constant = source.total_log_constant;
    tree.evidence_factor = source.evidence_factor;
    tree.initial_constant = source.initial_constant;
    tree.conflict_value = source.conflict_value;
    tree.expected_utility = source.expected_utility;
    tree.decision_utilities = source.decision_utilities;
    tree.position = source.position;
    // The lists keep their capacity: propagation never allocates.
    tree.members = r.all(source.members, r.to_node);
    tree.cliques = r.all(source.cliques, r.to_clique);
    tree.hard_nodes = r.all(source.hard_nodes, r.to_node);
    tree.homed = r.all(source.homed, r.to_node);
    tree.components = r.all(source.components, r.to_component);
    tree.normalized_components = r.all(source.normalized_components, r.to_component);
    tree.lists_made = source.lists_made;
    tree.saved_tables.reserve(source.saved_tables.capacity());
    for (const JunctionTree::SavedTable &saved : source.saved_tables)
      tree.saved_tables.push_back({r.table(saved.table), saved.data, saved.cg, saved.kinds});
    tree.probability_of_random_selection = source.probability_of_random_selection;
  }
}

// The saved table memory is as long as the forest tables together.
void copy_table_memory(const Domain *from, CompiledForest &to) {
  const CompiledForest &source = *from->forest;
  if (!source.memory_table_data) return;
  Size data = 0, cg = 0, kinds = 0;
  for (const auto &table : from->tables) {
    if (table->role < role_clique || table->role > role_forest) continue;
    data += table->size;
    cg += table->size * table->cg_stride;
    kinds += table->continuous_count;
  }
  auto copy = [](auto &into, const auto &buffer, Size count) {
    using T = std::remove_reference_t<decltype(buffer[0])>;
    if (!buffer) return;
    into = alloc_array<std::remove_const_t<T>>(count);
    if (!into) throw std::bad_alloc();
    std::memcpy(into.get(), buffer.get(), sizeof(T) * count);
  };
  copy(to.memory_table_data, source.memory_table_data, data);
  copy(to.memory_table_cg, source.memory_table_cg, cg);
  copy(to.memory_table_kinds, source.memory_table_kinds, kinds);
}

} // namespace

void forest_copy(const Domain *from, Domain *to, const DomainCopyMap &map) {
  const CompiledForest &source = *from->forest;
  CompiledForest &forest = *to->forest;
  Remap r(map, from, forest);
  for (const auto &table : from->tables)
    if (Table *copy = r.table(table.get()); copy != nullptr && table->data)
      r.data.emplace(table->data.get(), copy->data.get());

  forest.clique_count = source.clique_count;
  forest.junction_tree_count = source.junction_tree_count;
  forest.max_separators = source.max_separators;
  if (source.elimination_order) {
    NodeList order;
    order.reserve(source.elimination_order->size());
    for (Node *node : *source.elimination_order) order.push_back(r.node(node));
    forest.elimination_order = std::move(order);
  }
  // Plans first: links and nodes point at them.
  copy_plans(r, to);
  copy_cliques(r, to);
  copy_table_memory(from, forest);
  forest.compressed = source.compressed;
  forest.walk_strides = source.walk_strides;
  forest.walk_stack.reserve(source.walk_stack.capacity());

  for (const auto &node : from->nodes) {
    Node *copy = r.node(node.get());
    copy->junction_tree = r.tree(node->junction_tree);
    copy->home_clique = r.clique(node->home_clique);
    copy->table_plan = r.plan(node->table_plan);
    copy->extra_table_plan = r.plan(node->extra_table_plan);
    copy->marginal_plan = r.plan(node->marginal_plan);
    copy->marginal_source = r.table(node->marginal_source);
    copy->marginal_source_utility = r.table(node->marginal_source_utility);
    copy->elimination_number = node->elimination_number;
    copy->level = node->level;
    copy->neighbours = r.all(node->neighbours, r.to_node);
    copy->fill_ins = r.all(node->fill_ins, r.to_node);
    copy->belief_table = r.table(node->belief_table);
    copy->utility_table = r.table(node->utility_table);
    copy->conflict_clique = r.clique(node->conflict_clique);
    copy->propagated_finding = r.table(node->propagated_finding);
    copy->finding_clique = r.clique(node->finding_clique);
    copy->finding_plan = r.plan(node->finding_plan);
    copy->instantiated_state = node->instantiated_state;
    copy->value_propagated = node->value_propagated;
  }
  for (std::size_t i = 0; i < from->chain_components.size(); ++i) {
    const ChainComponent &component = *from->chain_components[i];
    ChainComponent &copy = *map.components[i];
    copy.normalizer = r.table(component.normalizer);
    copy.normalizer_clique = r.clique(component.normalizer_clique);
    copy.potential_cliques = r.all(component.potential_cliques, r.to_clique);
    copy.normalizer_plan = r.plan(component.normalizer_plan);
    copy.potential_plans = r.all(component.potential_plans, r.to_plan);
  }
  to->compiled = from->compiled;
}

} // namespace orvel
