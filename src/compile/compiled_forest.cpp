// The compiled state of a domain: its lifetime and its release.
#include "compile/compiled_forest.h"

#include "model/chain_component.h"
#include "model/domain.h"
#include "table/plan.h"
#include "table/table.h"

namespace orvel {

void CompiledForestDeleter::operator()(CompiledForest *forest) const noexcept { delete forest; }

CompiledForestPtr compiled_forest_new() { return CompiledForestPtr(new CompiledForest); }

void release_forest(Domain *domain, bool drop_triangulation) noexcept {
  CompiledForest &forest = *domain->forest;
  forest.cliques.clear();
  forest.junction_trees.clear();
  forest.clique_count = 0;
  forest.junction_tree_count = 0;

  // All kernel plans go first: they refer to the tables of the forest.
  forest.kernel_plans.clear();

  // Tables of the forest and of queries go; node tables, experience and
  // fading tables and chain potentials stay.
  auto &tables = domain->tables;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < tables.size(); ++i) {
    if (tables[i]->role == role_plain) {
      tables[kept] = std::move(tables[i]);
      tables[kept]->serial = static_cast<std::uint32_t>(kept + 1);
      ++kept;
    }
  }
  tables.resize(kept);

  for (auto &node : domain->nodes) {
    if (drop_triangulation) {
      node->elimination_number = 0;
      node->level = 0;
      node->neighbours = {};
      node->fill_ins = {};
    }
    node->junction_tree = nullptr;
    node->home_clique = nullptr;
    node->table_plan = nullptr;
    node->extra_table_plan = nullptr;
    node->marginal_plan = nullptr;
    node->marginal_source = nullptr;
    node->marginal_source_utility = nullptr;
    node->belief_table = nullptr;
    node->utility_table = nullptr;
    node->conflict_clique = nullptr;
    if (node->is_discrete()) {
      node->propagated_finding = nullptr;
      node->finding_clique = nullptr;
      node->finding_plan = nullptr;
      node->instantiated_state = -1;
    } else {
      node->value_propagated = false;
    }
  }
  domain->compiled = 0;
  for (auto &component : domain->chain_components) {
    component->normalizer = nullptr;
    component->normalizer_clique = nullptr;
    component->potential_cliques = {};
    component->normalizer_plan = nullptr;
    component->potential_plans = {};
  }
  if (drop_triangulation) forest.elimination_order.reset();
  domain_reclaim_memory_tables(domain);
  forest.compressed = 0;
  domain->learning.log_likelihood_valid = 0;
}

void domain_uncompile(Domain *domain) noexcept {
  if (domain_is_triangulated(domain)) release_forest(domain, true);
}

void domain_reclaim_memory_tables(Domain *domain) noexcept {
  CompiledForest &forest = *domain->forest;
  forest.memory_table_data.reset();
  forest.memory_table_cg.reset();
  forest.memory_table_kinds.reset();
}

bool forest_is_compressed(const Domain *domain) noexcept { return domain->forest->compressed != 0; }

void junction_tree_note_table_change(JunctionTree *tree) noexcept { tree->tables_changed = true; }

std::vector<KernelPlanPtr> &domain_kernel_plans(Domain *domain) noexcept { return domain->forest->kernel_plans; }

} // namespace orvel
