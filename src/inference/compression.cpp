// Approximation of the initial tables of a junction forest.
//
// The initial clique tables of a tree at sum equilibrium are the marginals
// of its joint distribution P, which they represent as the product of the
// clique tables over the product of the separator tables. Zeroing a set of
// cells Z_C in clique C multiplies P by the indicator of "x_C not in Z_C",
// so the tables then represent P restricted to the configurations that
// avoid every zeroed set. A collect and distribute over the whole tree
// brings them to equilibrium again, and the total it finds is 1 - P(Z),
// the mass removed, which is exact rather than the sum of the per-clique
// masses.
#include "inference/compression.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "compile/compiled_forest.h"
#include "inference/propagation.h"
#include "inference/propagation_engine.h"
#include "table/plan.h"
#include "table/table.h"

namespace orvel {

using namespace engine;

namespace {

// Zeroes the smallest non-zero cells of `table` whose sum stays within
// `epsilon` of its total; `sorted` is a reused scratch vector. Whether a
// cell was zeroed.
bool zero_smallest(Table *table, double epsilon, std::vector<ov_number_t> &sorted) {
  ov_number_t *data = table->data.get();
  double total = 0.0;
  sorted.clear();
  for (Size i = 0; i < table->size; ++i)
    if (data[i] > 0.0f) {
      sorted.push_back(data[i]);
      total += data[i];
    }
  std::sort(sorted.begin(), sorted.end());
  const double budget = epsilon * total;
  double removed = 0.0;
  std::size_t count = 0;
  while (count < sorted.size() && removed + sorted[count] <= budget) removed += sorted[count++];
  if (count == 0) return false;
  // Every cell below the last one taken goes, and of the cells equal to it
  // as many as were taken.
  const ov_number_t last = sorted[count - 1];
  std::size_t equal =
      static_cast<std::size_t>(std::count(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(count), last));
  for (Size i = 0; i < table->size; ++i) {
    if (!(data[i] > 0.0f) || data[i] > last) continue;
    if (data[i] < last) {
      data[i] = 0.0f;
    } else if (equal > 0) {
      data[i] = 0.0f;
      --equal;
    }
  }
  return true;
}

// Approximates one tree that holds its initial tables; returns the total of
// what is left, or a negative number with the code recorded. A tree where
// nothing is small enough is left exactly as it is.
double approximate_tree(JunctionTree *tree, double epsilon, std::vector<ov_number_t> &sorted) {
  bool zeroed = false;
  for (Clique *clique : tree->cliques)
    if (zero_smallest(clique->table, epsilon, sorted)) zeroed = true;
  if (!zeroed) return 1.0;
  for (Clique *clique : tree->cliques) clique->active = true;
  tree->step_constant = tree->total_constant = 1.0;
  tree->step_log_constant = tree->total_log_constant = 0.0;
  const Run run{tree, ov_equilibrium_sum, ov_mode_normal};
  if (collect_and_distribute(run, tree->root, true) != ov_error_none ||
      compute_marginals(tree, false, ov_equilibrium_sum, ov_mode_normal) != ov_error_none)
    return -1.0;
  const double kept = tree->step_constant;
  save_tables(tree);
  for (Clique *clique : tree->cliques) clique->active = false;
  return kept;
}

} // namespace

ov_error_t approximation_state(const Domain *domain) noexcept {
  if (needs_cg_or_decisions(domain)) return ov_error_usage;
  if (domain->forest->compressed != 0) return ov_error_compressed;
  return ov_error_none;
}

double domain_approximate(Domain *domain, double epsilon) {
  // From the initial tables of every tree, kept in the table memory, which
  // then takes the approximated ones.
  if (domain_reset_inference_engine(domain) != ov_error_none) return -1.0;
  if (!has_table_memory(domain) && domain_save_to_memory(domain) != ov_error_none) return -1.0;
  std::vector<ov_number_t> sorted;
  double kept = 1.0;
  for (auto &tree : domain->forest->junction_trees) {
    const double tree_kept = approximate_tree(tree.get(), epsilon, sorted);
    // A failure leaves the tree at the tables it had: the memory still
    // holds them unless the tree was saved.
    if (tree_kept < 0.0) {
      const ov_status_t code = ov_error_code();
      jt_initialize(tree.get(), false);
      return fail(static_cast<ov_error_t>(code)), -1.0;
    }
    kept *= tree_kept;
    // Back to the initial state from the memory, the beliefs without
    // evidence with it; entered findings wait for the next propagation.
    if (jt_initialize(tree.get(), false) != ov_error_none) return -1.0;
    for (Node *node : tree->members)
      if (node->is_discrete())
        std::copy_n(node->belief_table->data.get(), node->state_count, node->initial_belief.data());
  }
  log_printf(domain, "Approximation with epsilon %g removed probability mass %g\n", epsilon, 1.0 - kept);
  set_error(ov_error_none);
  return std::max(0.0, 1.0 - kept);
}

} // namespace orvel

// Compression of the clique tables.
namespace orvel {

namespace {

struct CliqueMaps {
  Table *table = nullptr;
  std::vector<KernelPlan *> plans;              // plans whose finer table is this clique's
  std::vector<std::vector<std::uint16_t>> maps; // for each plan, the source cell of each kept cell
  Buffer<ov_number_t> kept;                     // the non-zero cells, in order
  std::vector<std::uint32_t> cells;             // the full-table cell of each kept cell
  Size kept_count = 0;
};

Size forest_cells(const Domain *domain) noexcept {
  Size cells = 0;
  for (const auto &table : domain->tables)
    if (table->role == role_clique || table->role == role_separator) cells = size_add(cells, table->size);
  return cells;
}

// The kept cells of a clique and the source cell of each in every plan, by
// one odometer walk over the full table, last node fastest.
ov_status_t map_clique(CliqueMaps &c) {
  const Table *table = c.table;
  const ov_number_t *data = table->data.get();
  for (Size i = 0; i < table->size; ++i)
    if (data[i] != 0.0f) ++c.kept_count;
  if (c.kept_count == 0) return fail(ov_error_usage);
  c.kept = alloc_array<ov_number_t>(c.kept_count);
  if (!c.kept) return ov_error_code();
  const std::uint32_t d = table->discrete_count;
  const std::size_t p = c.plans.size();
  c.maps.assign(p, std::vector<std::uint16_t>(c.kept_count));
  c.cells.resize(c.kept_count);
  std::vector<std::uint32_t> state(d, 0);
  std::vector<Size> source(p, 0);
  Size at = 0;
  for (Size i = 0; i < table->size; ++i) {
    if (data[i] != 0.0f) {
      c.kept[at] = data[i];
      c.cells[at] = static_cast<std::uint32_t>(i);
      for (std::size_t j = 0; j < p; ++j) c.maps[j][at] = static_cast<std::uint16_t>(source[j]);
      ++at;
    }
    for (std::uint32_t k = d; k-- > 0;) {
      const std::uint32_t count = table->nodes[k]->state_count;
      if (++state[k] < count) {
        for (std::size_t j = 0; j < p; ++j) source[j] += c.plans[j]->saved()[k].stride;
        break;
      }
      state[k] = 0;
      for (std::size_t j = 0; j < p; ++j) source[j] -= Size{count - 1} * c.plans[j]->saved()[k].stride;
    }
  }
  return ov_error_none;
}

} // namespace

ov_error_t compression_state(const Domain *domain) noexcept {
  if (needs_cg_or_decisions(domain) || !domain->chain_components.empty()) return ov_error_usage;
  if (domain->forest->compressed != 0) return ov_error_compressed;
  for (const auto &tree : domain->forest->junction_trees)
    if (tree->equilibrium == ov_equilibrium_none || tree->changed_evidence_count > 0 || tree->tables_changed ||
        (tree->evidence_mode != ov_mode_normal && tree->evidence_propagated))
      return ov_error_usage;
  return ov_error_none;
}

double domain_compress(Domain *domain) {
  CompiledForest &forest = *domain->forest;
  const Size before = forest_cells(domain);
  // The cliques to compress: those every plan of which, as finer table, has
  // dimensions, and which no plan reads as its coarser table.
  std::vector<CliqueMaps> cliques;
  std::unordered_map<const Table *, std::size_t> index;
  for (auto &clique : forest.cliques) {
    index.emplace(clique->table, cliques.size());
    cliques.push_back({});
    cliques.back().table = clique->table;
  }
  std::vector<bool> keep_full(cliques.size(), false);
  for (auto &plan : forest.kernel_plans) {
    if (auto found = index.find(plan->source); found != index.end()) keep_full[found->second] = true;
    auto found = index.find(plan->target);
    if (found == index.end()) continue;
    if (!plan->has_dimensions()) keep_full[found->second] = true;
    // A 16-bit map cannot reach past 65536 cells: such a clique stays full.
    if (plan->source != nullptr && plan->source->size > 65536) keep_full[found->second] = true;
    cliques[found->second].plans.push_back(plan.get());
  }
  for (std::size_t i = 0; i < cliques.size(); ++i)
    if (!keep_full[i] && map_clique(cliques[i]) != ov_error_none) return -1.0;

  // Nothing fails from here on but the new table memory, which then goes.
  const bool had_memory = has_table_memory(domain);
  for (std::size_t i = 0; i < cliques.size(); ++i) {
    if (keep_full[i]) continue;
    CliqueMaps &c = cliques[i];
    forest.cliques[i]->compressed_cells = std::move(c.cells);
    c.table->data = std::move(c.kept);
    c.table->size = c.kept_count;
    for (std::size_t j = 0; j < c.plans.size(); ++j) c.plans[j]->compressed_map = std::move(c.maps[j]);
  }
  forest.compressed = 1;
  domain_reclaim_memory_tables(domain);
  // Without memory the trees load their node tables through the maps.
  if (had_memory && domain_save_to_memory(domain) != ov_error_none) domain_reclaim_memory_tables(domain);
  const Size after = forest_cells(domain);
  log_printf(domain, "Compression: %llu clique and separator cells before, %llu after\n",
             static_cast<unsigned long long>(before), static_cast<unsigned long long>(after));
  set_error(ov_error_none);
  return static_cast<double>(after);
}

} // namespace orvel
