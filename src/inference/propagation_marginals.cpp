// The node marginals after a propagation.
#include "inference/propagation_engine.h"

#include <algorithm>

#include "table/algebra.h"

namespace orvel::engine {

namespace {

double table_total(const Table *table, ov_equilibrium_t equilibrium) noexcept {
  double total = 0.0;
  for (Size i = 0; i < table->size; ++i)
    total = equilibrium == ov_equilibrium_max ? std::max(total, static_cast<double>(table->data[i]))
                                              : total + table->data[i];
  return total;
}

ov_status_t compute_node_marginal(Node *node, bool shortcut, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  Table *belief = node->belief_table;
  if (shortcut && node->is_discrete() && node->category == ov_category_chance && mode == ov_mode_normal &&
      node->instantiated_state >= 0) {
    std::fill_n(belief->data.get(), belief->size, 0.0f);
    belief->data[node->instantiated_state] = 1.0f;
    return ov_error_none;
  }
  if (table_marginalize(node->marginal_plan, equilibrium, mode, false) != ov_error_none) return ov_error_code();
  if (node->category == ov_category_chance && mode == ov_mode_fast_retraction) {
    const double total = table_total(belief, equilibrium);
    if (!(total >= smallest_normal)) return fail(total >= 0.0 ? ov_error_normalization : ov_error_error);
    const double scale = 1.0 / total;
    for (Size i = 0; i < belief->size; ++i) belief->data[i] = static_cast<ov_number_t>(belief->data[i] * scale);
  }
  return ov_error_none;
}

} // namespace

ov_status_t compute_marginals(JunctionTree *tree, bool shortcut, ov_equilibrium_t equilibrium,
                              ov_evidence_mode_t mode) {
  for (Node *node : tree->members)
    if (compute_node_marginal(node, shortcut, equilibrium, mode) != ov_error_none) return ov_error_code();
  return ov_error_none;
}

} // namespace orvel::engine
