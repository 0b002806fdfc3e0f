// Propagation and initialisation of a whole junction forest, one tree at a
// time.
#include "api/error.h"
#include "compile/compiled_forest.h"
#include "compile/junction_tree.h"
#include "inference/evidence.h"
#include "inference/propagation.h"

namespace orvel {

ov_status_t propagate_domain(Domain *domain, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  for (auto &tree : domain->forest->junction_trees)
    if (propagate_tree(tree.get(), nullptr, equilibrium, mode) != ov_error_none) return ov_error_code();
  return set_error(ov_error_none);
}

ov_status_t domain_initialize(Domain *domain) {
  if (domain_reset_inference_engine(domain) != ov_error_none) return ov_error_code();
  domain_retract_findings(domain);
  return set_error(ov_error_none);
}

bool domain_tables_to_propagate(const Domain *domain) noexcept {
  for (auto &tree : domain->forest->junction_trees)
    if (tree->tables_changed) return true;
  return false;
}

} // namespace orvel
