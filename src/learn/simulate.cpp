// Simulation from node tables and from a propagated junction forest.
#include "learn/simulate.h"

#include <algorithm>
#include <vector>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "compile/tree_walk.h"
#include "inference/cg_propagation.h"
#include "inference/evidence.h"
#include "inference/propagation.h"
#include "learn/random.h"
#include "table/marginalize.h"
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
    node->simulated_value = random_normal(*domain->random, mean, variance > 0.0 ? variance : 0.0);
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
  node->simulated_state = static_cast<std::int32_t>(random_choose(*domain->random, row, node->state_count, total));
  return ov_error_none;
}

ov_status_t simulate_from_tables(Domain *domain) {
  if (!domain->chain_components.empty()) return fail(ov_error_usage);
  // A chance node with findings is drawn from them only if they fix it and
  // its parents: otherwise the draws would not follow the conditional
  // distribution given the evidence.
  for (auto &owned : domain->nodes) {
    const Node *node = owned.get();
    if (!takes_evidence(node)) continue;
    if (node->category == ov_category_decision) {
      if (!node_instantiated(node)) return fail(ov_error_usage);
      continue;
    }
    if (!evidence_entered(node)) continue;
    if (!node_instantiated(node)) return fail(ov_error_usage);
    for (const Node *parent : node->parents)
      if (!node_instantiated(parent)) return fail(ov_error_usage);
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

// sample_clique for a compressed clique: its kept cells are scanned, those
// that agree with the states drawn taking part. Zero cells never change the
// sums of the choice, so the cell drawn is the one the full table gives.
ov_status_t sample_compressed_clique(Domain *domain, const Clique *clique, std::vector<ov_number_t> &weights,
                                     std::vector<std::uint32_t> &cells, double &probability) {
  const Table *table = clique->table;
  const std::uint32_t d = table->discrete_count;
  std::vector<std::uint32_t> strides(d);
  discrete_strides(table, strides.data());
  auto state_of = [&](std::uint32_t cell, std::uint32_t i) {
    return (cell / strides[i]) % table->nodes[i]->state_count;
  };
  weights.clear();
  cells.clear();
  double total = 0.0;
  for (Size k = 0; k < table->size; ++k) {
    const std::uint32_t cell = clique->compressed_cells[k];
    bool agrees = true;
    for (std::uint32_t i = 0; i < d && agrees; ++i) {
      const std::int32_t drawn = table->nodes[i]->simulated_state;
      agrees = drawn < 0 || state_of(cell, i) == static_cast<std::uint32_t>(drawn);
    }
    if (!agrees) continue;
    weights.push_back(table->data[k]);
    cells.push_back(cell);
    total += table->data[k];
  }
  if (!(total > 0.0)) return fail(ov_error_zero_sum);
  const std::uint32_t chosen = random_choose(*domain->random, weights.data(),
                                             static_cast<std::uint32_t>(weights.size()), static_cast<float>(total));
  probability = weights[chosen] / total;
  for (std::uint32_t i = 0; i < d; ++i)
    if (table->nodes[i]->simulated_state < 0)
      table->nodes[i]->simulated_state = static_cast<std::int32_t>(state_of(cells[chosen], i));
  return ov_error_none;
}

// Draws the members of a clique given the states already drawn for some of
// them (those of its separator with the parent), in proportion to the
// clique's cells; returns the conditional probability of the cell drawn.
// Only the cells that agree with the drawn states are visited: the drawn
// members fix an offset, and the others span a block that is walked by its
// strides in ascending cell order, the last member fastest.
ov_status_t sample_clique(Domain *domain, Clique *clique, std::vector<ov_number_t> &weights,
                          std::vector<std::uint32_t> &free_members, double &probability) {
  if (!clique->compressed_cells.empty())
    return sample_compressed_clique(domain, clique, weights, free_members, probability);
  const Table *table = clique->table;
  const std::uint32_t d = table->discrete_count;
  struct Dimension {
    std::uint32_t count;
    Size stride;
  };
  std::vector<Dimension> block;
  free_members.clear();
  Size base = 0;
  Size stride = 1;
  for (std::uint32_t i = d; i-- > 0;) {
    const Node *node = table->nodes[i];
    if (node->simulated_state >= 0) {
      base += static_cast<Size>(node->simulated_state) * stride;
    } else {
      block.push_back({node->state_count, stride});
      free_members.push_back(i);
    }
    stride *= node->state_count;
  }
  // Outermost first; the innermost run is read as one strided loop.
  std::reverse(block.begin(), block.end());
  std::reverse(free_members.begin(), free_members.end());
  const ov_number_t *data = table->data.get() + base;
  weights.clear();
  double total = 0.0;
  const std::uint32_t inner_count = block.empty() ? 1 : block.back().count;
  const Size inner_stride = block.empty() ? 0 : block.back().stride;
  const std::size_t outer = block.empty() ? 0 : block.size() - 1;
  std::vector<std::uint32_t> state(outer, 0);
  Size offset = 0;
  for (;;) {
    const ov_number_t *run = data + offset;
    for (std::uint32_t k = 0; k < inner_count; ++k) {
      const ov_number_t w = run[static_cast<std::size_t>(k) * inner_stride];
      weights.push_back(w);
      total += w;
    }
    std::size_t i = outer;
    for (; i > 0; --i) {
      offset += block[i - 1].stride;
      if (++state[i - 1] < block[i - 1].count) break;
      offset -= block[i - 1].stride * block[i - 1].count;
      state[i - 1] = 0;
    }
    if (i == 0) break; // every combination visited
  }
  if (!(total > 0.0)) return fail(ov_error_zero_sum);
  std::uint32_t chosen = random_choose(*domain->random, weights.data(), static_cast<std::uint32_t>(weights.size()),
                                       static_cast<float>(total));
  probability = weights[chosen] / total;
  // The chosen position within the block, read as a mixed-radix number.
  for (std::size_t i = block.size(); i-- > 0;) {
    table->nodes[free_members[i]]->simulated_state = static_cast<std::int32_t>(chosen % block[i].count);
    chosen /= block[i].count;
  }
  return ov_error_none;
}

// Samples the cliques of a tree from its root outwards, each given the
// states its neighbour nearer the root has fixed.
ov_status_t sample_tree(Domain *domain, JunctionTree *tree, std::vector<ov_number_t> &weights,
                        std::vector<std::uint32_t> &free_members, double &probability) {
  WalkStack stack;
  ov_status_t status = ov_error_none;
  walk_tree(stack, tree->root, [&](WalkStep &step) {
    double p = 1.0;
    status = sample_clique(domain, step.clique, weights, free_members, p);
    if (status != ov_error_none) return WalkVisit::stop;
    probability *= p;
    return WalkVisit::into;
  });
  return status;
}

ov_status_t simulate_from_forest(Domain *domain) {
  for (auto &tree : domain->forest->junction_trees)
    if (tree->equilibrium != ov_equilibrium_sum ||
        (tree->evidence_mode != ov_mode_normal && tree->evidence_propagated) || tree->changed_evidence_count > 0 ||
        tree->tables_changed)
      return fail(ov_error_usage);
  clear_samples(domain);
  if (domain->continuous_count > 0) {
    // Mixed networks are drawn by the solver that propagates them.
    RandomState &random = *domain->random;
    std::vector<float> cells;
    auto choose = [&](const std::vector<double> &w) {
      cells.assign(w.begin(), w.end());
      float total = 0.0f;
      for (float x : cells) total += x;
      return random_choose(random, cells.data(), static_cast<std::uint32_t>(cells.size()), total);
    };
    auto standard_normal = [&] { return random_normal(random, 0.0, 1.0); };
    for (auto &tree : domain->forest->junction_trees)
      if (simulate_cg_tree(tree.get(), choose, standard_normal) != ov_error_none) return ov_error_code();
    return ov_error_none;
  }
  std::vector<ov_number_t> weights;
  std::vector<std::uint32_t> free_members;
  for (auto &tree : domain->forest->junction_trees) {
    double probability = 1.0;
    if (sample_tree(domain, tree.get(), weights, free_members, probability) != ov_error_none) return ov_error_code();
    tree->probability_of_random_selection = probability;
  }
  return ov_error_none;
}

} // namespace

ov_status_t domain_simulate(Domain *domain) {
  ov_status_t status = domain_is_compiled(domain) ? simulate_from_forest(domain) : simulate_from_tables(domain);
  if (status != ov_error_none) {
    clear_samples(domain);
    return fail(static_cast<ov_error_t>(status));
  }
  return set_error(ov_error_none);
}

double domain_probability_of_random_selection(const Domain *domain) noexcept {
  double product = 1.0;
  for (auto &tree : domain->forest->junction_trees) product *= tree->probability_of_random_selection;
  return product;
}

} // namespace orvel
