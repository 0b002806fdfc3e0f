// Initialisation of a junction tree from the node tables or the table memory.
#include "inference/propagation_engine.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "compile/compiled_forest.h"
#include "inference/propagation.h"
#include "model/chain_component.h"
#include "table/algebra.h"
#include "table/plan.h"

namespace orvel::engine {

namespace {

// Scales each row of a node table to sum one; strict refuses a zero row.
ov_status_t normalize_node_table(Table *table, bool strict) {
  if (table->continuous_count > 0) {
    std::fill_n(table->data.get(), table->size, 1.0f);
    return ov_error_none;
  }
  const Size row = table->discrete_count == 0 ? 1 : table->nodes[table->discrete_count - 1]->state_count;
  // A table whose rows already sum to one within single precision is left
  // as it is, so that normalising is idempotent: a table saved after a
  // compile and loaded again gives the same potentials.
  if (table->data && table->size != size_overflow && table->size % row == 0) {
    bool normalized = true;
    for (Size start = 0; normalized && start < table->size; start += row) {
      double sum = 0.0;
      for (Size k = 0; k < row; ++k) {
        const ov_number_t value = table->data[start + k];
        if (!(value >= 0.0f)) normalized = false;
        sum += value;
      }
      // Scaling rounds each number by at most half a unit in the last
      // place, so a scaled row sums to one within 2^-24 and is left alone.
      if (!(std::fabs(sum - 1.0) <= 0x1p-23)) normalized = false;
    }
    if (normalized) return ov_error_none;
  }
  return table_normalize_runs(table, row, strict);
}

ov_status_t check_node_tables(JunctionTree *tree) {
  for (Node *node : tree->members)
    if (node->category == ov_category_chance && node->table != nullptr &&
        normalize_node_table(node->table, true) != ov_error_none)
      return ov_error_code();
  for (ChainComponent *component : tree->components) {
    for (Table *potential : component->potentials)
      for (Size i = 0; i < potential->size; ++i)
        if (potential->data[i] < 0.0f) return fail(ov_error_negative_probability);
  }
  return ov_error_none;
}

// The normaliser of each chain component: the reciprocal of the sum of the
// product of its members' tables and chain potentials.
ov_status_t build_normalizers(JunctionTree *tree) {
  Domain *domain = tree->domain;
  for (ChainComponent *component : tree->components) {
    NodeList nodes = component->members;
    for (Node *node : component->normalizer->nodes)
      if (!nodes.contains(node)) nodes.push_back(node);
    Table *joint = table_new(domain, nodes.data(), ov_table_kind_probability, role_forest, true, true);
    if (joint == nullptr) return ov_error_code();
    ov_status_t status = ov_error_none;
    for (Node *member : component->members)
      if (status == ov_error_none && member->table != nullptr) status = multiply_tables(joint, member->table);
    for (Table *potential : component->potentials)
      if (status == ov_error_none) status = multiply_tables(joint, potential);
    if (status == ov_error_none)
      status = marginalize_tables(joint, component->normalizer, ov_equilibrium_sum, ov_mode_normal, false);
    table_delete(joint);
    if (status != ov_error_none) return fail(static_cast<ov_error_t>(status));
    Table *normalizer = component->normalizer;
    for (Size i = 0; i < normalizer->size; ++i) {
      if (!(normalizer->data[i] > 0.0f)) return fail(ov_error_chain_graph);
      // An infinite potential (or a product beyond float) has no normaliser.
      if (!std::isfinite(normalizer->data[i])) return fail(ov_error_overflow);
      normalizer->data[i] = 1.0f / normalizer->data[i];
    }
  }
  return ov_error_none;
}

ov_status_t fill_cliques(JunctionTree *tree) {
  for (Node *node : tree->homed)
    if (table_multiply_into(node->table_plan, false) != ov_error_none) return ov_error_code();
  for (ChainComponent *component : tree->normalized_components) {
    if (table_multiply_into(component->normalizer_plan, false) != ov_error_none) return ov_error_code();
    for (KernelPlan *plan : component->potential_plans)
      if (table_multiply_into(plan, false) != ov_error_none) return ov_error_code();
  }
  return ov_error_none;
}

// Post-order over the whole tree: each child's marginal onto its separator
// goes into the parent. The separators held 1, so nothing is divided.
ov_status_t initial_collect(Clique *root) {
  ov_status_t status = ov_error_none;
  walk_tree(
      root->domain->forest->walk_stack, root, [](WalkStep &) { return WalkVisit::into; },
      [&](WalkStep &step, WalkStep *) {
        if (step.parent == nullptr) return true;
        if (table_marginalize(link_to(step.clique, step.parent).plan, ov_equilibrium_sum, ov_mode_normal, false) !=
                ov_error_none ||
            table_multiply_into(step.down->plan, false) != ov_error_none)
          status = ov_error_code();
        return status == ov_error_none;
      });
  return status;
}

} // namespace

// Resets the evidence state of the tree: constants, flags, factors and the
// propagated findings.
void reset_evidence_state(JunctionTree *tree) noexcept {
  tree->total_constant = tree->step_constant = 1.0;
  tree->evidence_mode = ov_mode_normal;
  tree->evidence_propagated = tree->likelihood_propagated = tree->cg_evidence_propagated = false;
  tree->total_log_constant = tree->step_log_constant = 0.0;
  for (Clique *clique : tree->cliques) {
    for (Node *member : clique->table->nodes) member->conflict_clique = nullptr;
    clique->factor = 1.0;
  }
  tree->evidence_factor = 1.0;
  for (Node *node : tree->members) {
    if (!node->is_discrete()) {
      node->value_propagated = false;
      continue;
    }
    std::fill_n(propagated(node), node->state_count, 1.0f);
    node->instantiated_state = node->state_count == 1 ? 0 : -1;
  }
}

namespace {

// The walk buffers, the scratch vector and the initial beliefs that the
// tree's propagations use, sized once with its lists.
void size_tree_buffers(JunctionTree *tree) {
  Domain *domain = tree->domain;
  CompiledForest &forest = *domain->forest;
  tree->hard_nodes.reserve(tree->members.size());
  forest.walk_stack.reserve(tree->cliques.size());
  std::size_t widest = 0;
  for (Clique *clique : tree->cliques) widest = std::max<std::size_t>(widest, clique->table->nodes.size());
  if (forest.walk_strides.size() < 5 * widest) forest.walk_strides.resize(5 * widest);
  // The scratch vector of marginals, for the largest separator and marginal.
  Size largest = 1;
  for (Clique *clique : tree->cliques)
    for (CliqueLink &link : clique->links) largest = std::max(largest, link.separator->size);
  if (ensure_scratch(domain, largest) == nullptr) throw std::bad_alloc();
  for (Node *node : tree->members)
    if (node->is_discrete()) node->initial_belief.resize(node->state_count);
}

// The node, clique and component lists of every tree of the forest, in one
// pass over the domain, so that a tree's initialisation visits only its own
// nodes, and the buffers they need. The lists and the sizes stay as they
// are until the forest is compiled again.
void make_tree_lists(Domain *domain) {
  CompiledForest &forest = *domain->forest;
  for (auto &tree : forest.junction_trees) {
    tree->members.clear();
    tree->cliques.clear();
    tree->homed.clear();
    tree->components.clear();
    tree->normalized_components.clear();
  }
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it)
    if ((*it)->junction_tree != nullptr && takes_evidence(it->get()))
      (*it)->junction_tree->members.push_back(it->get());
  for (auto &node : domain->nodes)
    if (node->category == ov_category_chance && node->home_clique != nullptr)
      node->home_clique->junction_tree->homed.push_back(node.get());
  for (auto &clique : forest.cliques) clique->junction_tree->cliques.push_back(clique.get());
  for (auto &component : domain->chain_components) {
    if (!component->members.empty() && component->members[0]->junction_tree != nullptr)
      component->members[0]->junction_tree->components.push_back(component.get());
    if (component->normalizer_clique != nullptr)
      component->normalizer_clique->junction_tree->normalized_components.push_back(component.get());
  }
  for (auto &tree : forest.junction_trees) size_tree_buffers(tree.get());
  for (auto &tree : forest.junction_trees) tree->lists_made = true;
}

} // namespace

// The tree's node and clique lists and the domain's walk buffers; made once.
void prepare_tree(JunctionTree *tree) {
  if (!tree->lists_made) make_tree_lists(tree->domain);
}

void restore_tables(JunctionTree *tree) noexcept {
  const CompiledForest &forest = *tree->domain->forest;
  const ov_number_t *data = forest.memory_table_data.get();
  const double *cg = forest.memory_table_cg.get();
  const std::int8_t *kinds = forest.memory_table_kinds.get();
  for (const JunctionTree::SavedTable &saved : tree->saved_tables) {
    Table *table = saved.table;
    std::copy_n(data + saved.data, table->size, table->data.get());
    if (table->cg_stride > 0)
      std::copy_n(cg + saved.cg, static_cast<std::size_t>(table->size) * table->cg_stride, table->cg_data.get());
    if (table->continuous_count > 0) std::copy_n(kinds + saved.kinds, table->continuous_count, table->cg_roles.get());
  }
}

void save_tables(JunctionTree *tree) noexcept {
  CompiledForest &forest = *tree->domain->forest;
  ov_number_t *data = forest.memory_table_data.get();
  double *cg = forest.memory_table_cg.get();
  std::int8_t *kinds = forest.memory_table_kinds.get();
  for (const JunctionTree::SavedTable &saved : tree->saved_tables) {
    const Table *table = saved.table;
    std::copy_n(table->data.get(), table->size, data + saved.data);
    if (table->cg_stride > 0)
      std::copy_n(table->cg_data.get(), static_cast<std::size_t>(table->size) * table->cg_stride, cg + saved.cg);
    if (table->continuous_count > 0) std::copy_n(table->cg_roles.get(), table->continuous_count, kinds + saved.kinds);
  }
}

bool has_table_memory(const Domain *domain) noexcept { return static_cast<bool>(domain->forest->memory_table_data); }

namespace {

void copy_initial_beliefs(JunctionTree *tree) noexcept {
  for (Node *node : tree->members)
    if (node->is_discrete())
      std::copy_n(node->belief_table->data.get(), node->state_count, node->initial_belief.data());
}

} // namespace

ov_status_t initialize_tables(JunctionTree *tree, bool first_time) {
  if (!first_time)
    for (Clique *clique : tree->cliques) {
      table_fill(clique->table);
      if (clique->utility_table != nullptr) table_fill(clique->utility_table);
    }
  if (check_node_tables(tree) != ov_error_none || build_normalizers(tree) != ov_error_none ||
      fill_cliques(tree) != ov_error_none || initial_collect(tree->root) != ov_error_none)
    return ov_error_code();
  tree->initial_constant = 1.0;
  const Run run{tree, ov_equilibrium_sum, ov_mode_normal};
  if (distribute(run, tree->root) != ov_error_none ||
      compute_marginals(tree, false, ov_equilibrium_sum, ov_mode_normal) != ov_error_none)
    return ov_error_code();
  copy_initial_beliefs(tree);
  if (has_table_memory(tree->domain)) save_tables(tree);
  return ov_error_none;
}

} // namespace orvel::engine
