// Exported calls of propagation and table memory.
#include "api/boundary.h"
#include "compile/compiled_forest.h"
#include "inference/evidence.h"
#include "inference/propagation.h"
#include "model/domain.h"

using namespace orvel;

namespace {

bool valid_run(ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) noexcept {
  return (equilibrium == ov_equilibrium_sum || equilibrium == ov_equilibrium_max) &&
         (mode == ov_mode_normal || mode == ov_mode_fast_retraction);
}

bool refuse_uncompiled(const ov_domain_s *domain) noexcept {
  if (domain->compiled != 0) return false;
  set_error(ov_error_not_compiled);
  return true;
}

} // namespace

extern "C" {

ov_status_t ov_domain_propagate(ov_domain_t domain, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  if (check_usage(domain == nullptr || !valid_run(equilibrium, mode))) return ov_error_usage;
  if (refuse_uncompiled(domain)) return ov_error_not_compiled;
  return guarded_status([&]() -> ov_status_t {
    for (auto &tree : domain->forest->junction_trees)
      if (propagate_tree(tree.get(), nullptr, equilibrium, mode) != ov_error_none) return ov_error_code();
    return set_error(ov_error_none);
  });
}

ov_status_t ov_jt_propagate(ov_junction_tree_t tree, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  if (check_usage(tree == nullptr || !valid_run(equilibrium, mode))) return ov_error_usage;
  if (refuse_uncompiled(tree->domain)) return ov_error_not_compiled;
  return guarded_status([&] { return propagate_tree(tree, nullptr, equilibrium, mode); });
}

ov_status_t ov_clique_propagate(ov_clique_t clique, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  if (check_usage(clique == nullptr || !valid_run(equilibrium, mode))) return ov_error_usage;
  if (refuse_uncompiled(clique->domain)) return ov_error_not_compiled;
  return guarded_status([&] { return propagate_tree(clique->junction_tree, clique, equilibrium, mode); });
}

ov_status_t ov_domain_reset_inference_engine(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  if (refuse_uncompiled(domain)) return ov_error_not_compiled;
  return guarded_status([&] { return domain_reset_inference_engine(domain); });
}

ov_status_t ov_domain_initialize(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  if (refuse_uncompiled(domain)) return ov_error_not_compiled;
  return guarded_status([&]() -> ov_status_t {
    if (domain_reset_inference_engine(domain) != ov_error_none) return ov_error_code();
    domain_retract_findings(domain);
    return set_error(ov_error_none);
  });
}

int ov_domain_tables_to_propagate(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  if (refuse_uncompiled(domain)) return -1;
  for (auto &tree : domain->forest->junction_trees)
    if (tree->tables_changed) return 1;
  return 0;
}

int ov_jt_tables_to_propagate(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return -1;
  return tree->tables_changed ? 1 : 0;
}

ov_status_t ov_domain_save_to_memory(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  if (refuse_uncompiled(domain)) return ov_error_not_compiled;
  return guarded_status([&] { return domain_save_to_memory(domain); });
}

} // extern "C"
