// Simulation from node tables and from a propagated junction forest.
#include "learn/simulate.h"

#include <vector>

#include "api/error.h"
#include "inference/evidence.h"
#include "inference/propagation.h"
#include "learn/random.h"
#include "table/table.h"

namespace orvel {

namespace {

void clear_samples(Domain *domain) noexcept {
  for (auto &node : domain->nodes) {
    node->simulated_state = -1;
    node->simulated_value_set = false;
  }
}

bool has_sample(const Node *node) noexcept {
  return node->is_discrete() ? node->simulated_state >= 0 : node->simulated_value_set;
}

// Samples a node after its parents, from its table.
ov_status_t sample_node(Domain *domain, Node *node) {
  if (has_sample(node)) return ov_error_none;
  for (Node *parent : node->parents)
    if (sample_node(domain, parent) != ov_error_none) return ov_error_code();
  Table *table = node->table;
  if (table == nullptr) return fail(ov_error_usage);
  if (table_allocate(table) != ov_error_none) return ov_error_code();
  const std::uint32_t discrete_parents = node->is_discrete() ? table->discrete_count - 1 : table->discrete_count;
  // The position of the discrete parents' configuration, the last fastest.
  Size position = 0;
  for (std::uint32_t i = 0; i < discrete_parents; ++i) {
    const Node *parent = table->nodes[i];
    position = position * parent->state_count + static_cast<Size>(parent->simulated_state);
  }
  if (!node->is_discrete()) {
    // Intercept plus the regression on each continuous parent, then a
    // normal deviate with the conditional variance.
    const double *cg = table->cg_data.get() + static_cast<std::size_t>(position) * table->cg_stride;
    double mean = cg[cg_mean_offset(0)];
    for (std::uint32_t k = 1; k < table->continuous_count; ++k)
      mean += cg[cg_entry_offset(k, 0)] * table->nodes[table->discrete_count + k]->simulated_value;
    const double variance = cg[cg_entry_offset(0, 0)];
    node->simulated_value = random_normal(domain->random, mean, variance > 0.0 ? variance : 0.0);
    node->simulated_value_set = true;
    return ov_error_none;
  }
  const ov_number_t *row = table->data.get() + static_cast<std::size_t>(position) * node->state_count;
  float total = 0.0f;
  for (std::uint32_t s = 0; s < node->state_count; ++s) {
    if (row[s] < 0.0f) return fail(ov_error_negative_probability);
    total += row[s];
  }
  if (!(total > 0.0f)) return fail(ov_error_zero_sum);
  node->simulated_state = static_cast<std::int32_t>(random_choose(domain->random, row, node->state_count, total));
  return ov_error_none;
}

ov_status_t simulate_from_tables(Domain *domain) {
  if (!domain->chain_components.empty()) return fail(ov_error_usage);
  for (auto &owned : domain->nodes) {
    const Node *node = owned.get();
    if (!takes_evidence(node) || !node->is_discrete()) continue;
    const bool needs_instantiation = node->category == ov_category_decision || evidence_entered(node);
    if (needs_instantiation && entered_state(node) < 0) return fail(ov_error_usage);
  }
  clear_samples(domain);
  for (auto &owned : domain->nodes) {
    Node *node = owned.get();
    if (!takes_evidence(node)) continue;
    if (node->is_discrete()) {
      if (evidence_entered(node) || node->category == ov_category_decision) node->simulated_state = entered_state(node);
    } else if (node->value_entered) {
      node->simulated_value = node->entered_value;
      node->simulated_value_set = true;
    }
  }
  for (auto &owned : domain->nodes) {
    const Node *node = owned.get();
    if (node->category == ov_category_chance && node->table == nullptr && !has_sample(node))
      return fail(ov_error_usage);
  }
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it)
    if (takes_evidence(it->get()) && sample_node(domain, it->get()) != ov_error_none) return ov_error_code();
  return ov_error_none;
}

// Draws the members of a clique given the states already drawn for some of
// them (those of its separator with the parent), in proportion to the
// clique's cells; returns the conditional probability of the cell drawn.
ov_status_t sample_clique(Domain *domain, Clique *clique, std::vector<ov_number_t> &weights, std::vector<Size> &cells,
                          double &probability) {
  const Table *table = clique->table;
  const std::uint32_t d = table->discrete_count;
  std::vector<std::uint32_t> strides(d);
  std::uint32_t stride = 1;
  for (std::uint32_t i = d; i-- > 0;) {
    strides[i] = stride;
    stride *= table->nodes[i]->state_count;
  }
  weights.clear();
  cells.clear();
  double total = 0.0;
  for (Size cell = 0; cell < table->size; ++cell) {
    bool consistent = true;
    for (std::uint32_t i = 0; i < d && consistent; ++i) {
      const Node *node = table->nodes[i];
      if (node->simulated_state >= 0)
        consistent = (cell / strides[i]) % node->state_count == static_cast<std::uint32_t>(node->simulated_state);
    }
    if (!consistent) continue;
    weights.push_back(table->data[cell]);
    cells.push_back(cell);
    total += table->data[cell];
  }
  if (!(total > 0.0)) return fail(ov_error_zero_sum);
  const std::uint32_t chosen = random_choose(domain->random, weights.data(), static_cast<std::uint32_t>(weights.size()),
                                             static_cast<float>(total));
  probability = weights[chosen] / total;
  const Size cell = cells[chosen];
  for (std::uint32_t i = 0; i < d; ++i) {
    Node *node = table->nodes[i];
    if (node->simulated_state < 0)
      node->simulated_state = static_cast<std::int32_t>((cell / strides[i]) % node->state_count);
  }
  return ov_error_none;
}

ov_status_t sample_subtree(Domain *domain, Clique *clique, const Clique *parent, std::vector<ov_number_t> &weights,
                           std::vector<Size> &cells, double &probability) {
  double p = 1.0;
  if (sample_clique(domain, clique, weights, cells, p) != ov_error_none) return ov_error_code();
  probability *= p;
  for (CliqueLink &link : clique->links)
    if (link.neighbour != parent &&
        sample_subtree(domain, link.neighbour, clique, weights, cells, probability) != ov_error_none)
      return ov_error_code();
  return ov_error_none;
}

ov_status_t simulate_from_forest(Domain *domain) {
  for (auto &tree : domain->junction_trees)
    if (tree->equilibrium != ov_equilibrium_sum ||
        (tree->evidence_mode != ov_mode_normal && tree->evidence_propagated) || tree->changed_evidence_count > 0 ||
        tree->tables_changed)
      return fail(ov_error_usage);
  clear_samples(domain);
  std::vector<ov_number_t> weights;
  std::vector<Size> cells;
  for (auto &tree : domain->junction_trees) {
    double probability = 1.0;
    if (sample_subtree(domain, tree->root, nullptr, weights, cells, probability) != ov_error_none)
      return ov_error_code();
    tree->probability_of_random_selection = probability;
  }
  return ov_error_none;
}

} // namespace

ov_status_t domain_simulate(Domain *domain) {
  ov_status_t status = domain->compiled != 0 ? simulate_from_forest(domain) : simulate_from_tables(domain);
  if (status != ov_error_none) {
    clear_samples(domain);
    return fail(static_cast<ov_error_t>(status));
  }
  return set_error(ov_error_none);
}

} // namespace orvel
