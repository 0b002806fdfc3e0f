// Exported calls of propagation and table memory.
#include "api/boundary.h"
#include "compile/clique.h"
#include "compile/junction_tree.h"
#include "inference/propagation.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_status_t ov_domain_propagate(ov_domain_t domain, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  if (check_usage(domain == nullptr || !valid_equilibrium(equilibrium) || !valid_evidence_mode(mode)))
    return ov_error_usage;
  if (refuse(compiled_state(domain))) return ov_error_not_compiled;
  return guarded_status([&] { return propagate_domain(domain, equilibrium, mode); });
}

ov_status_t ov_jt_propagate(ov_junction_tree_t tree, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  if (check_usage(tree == nullptr || !valid_equilibrium(equilibrium) || !valid_evidence_mode(mode)))
    return ov_error_usage;
  if (refuse(compiled_state(tree->domain))) return ov_error_not_compiled;
  return guarded_status([&] { return propagate_tree(tree, nullptr, equilibrium, mode); });
}

ov_status_t ov_clique_propagate(ov_clique_t clique, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  if (check_usage(clique == nullptr || !valid_equilibrium(equilibrium) || !valid_evidence_mode(mode)))
    return ov_error_usage;
  if (refuse(compiled_state(clique->domain))) return ov_error_not_compiled;
  return guarded_status([&] { return propagate_tree(clique->junction_tree, clique, equilibrium, mode); });
}

ov_status_t ov_domain_reset_inference_engine(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  if (refuse(compiled_state(domain))) return ov_error_not_compiled;
  return guarded_status([&] { return domain_reset_inference_engine(domain); });
}

ov_status_t ov_domain_initialize(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  if (refuse(compiled_state(domain))) return ov_error_not_compiled;
  return guarded_status([&] { return domain_initialize(domain); });
}

int ov_domain_tables_to_propagate(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  if (refuse(compiled_state(domain))) return -1;
  return domain_tables_to_propagate(domain) ? 1 : 0;
}

int ov_jt_tables_to_propagate(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return -1;
  return tree->tables_changed ? 1 : 0;
}

ov_status_t ov_domain_save_to_memory(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  if (refuse(compiled_state(domain))) return ov_error_not_compiled;
  return guarded_status([&] { return domain_save_to_memory(domain); });
}

} // extern "C"
