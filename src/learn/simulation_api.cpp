// Exported calls of simulation.
#include "api/boundary.h"
#include "compile/compiled_forest.h"
#include "inference/propagation.h"
#include "learn/simulate.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_status_t ov_domain_simulate(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  return guarded_status([&] { return domain_simulate(domain); });
}

ov_index_t ov_node_get_sampled_state(ov_node_t node) {
  if (check_usage(node == nullptr || !takes_evidence(node) || !node->is_discrete() || node->simulated_state < 0))
    return -1;
  return node->simulated_state;
}

ov_double_t ov_node_get_sampled_value(ov_node_t node) {
  if (check_usage(node == nullptr || !takes_evidence(node) || node->is_discrete() || !node->simulated_value_set))
    return -1.0;
  return node->simulated_value;
}

ov_double_t ov_domain_get_probability_of_random_selection(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  if (refuse(compiled_state(domain))) return -1.0;
  return domain_probability_of_random_selection(domain);
}

} // extern "C"
