// Exported calls on findings and the evidence state of nodes, trees and
// domains.
#include "api/boundary.h"
#include "compile/compiled_forest.h"
#include "inference/evidence.h"
#include "inference/propagation.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

using namespace orvel;

namespace {

bool is_evidence_node(const ov_node_s *node) noexcept { return node != nullptr && takes_evidence(node); }
bool is_discrete_evidence_node(const ov_node_s *node) noexcept { return is_evidence_node(node) && node->is_discrete(); }
bool in_class(const ov_node_s *node) noexcept { return node->home->is_class(); }

} // namespace

extern "C" {

ov_status_t ov_node_select_state(ov_node_t node, ov_index_t state) {
  if (check_usage(!is_discrete_evidence_node(node) || in_class(node) || !valid_state(node, state)))
    return ov_error_usage;
  return guarded_status([&] { return node_select_state(node, static_cast<std::uint32_t>(state)); });
}

ov_status_t ov_node_enter_finding(ov_node_t node, ov_index_t state, ov_number_t value) {
  if (check_usage(!is_discrete_evidence_node(node) || in_class(node) || !valid_state(node, state) || !(value >= 0.0f)))
    return ov_error_usage;
  return guarded_status([&] { return node_enter_finding(node, static_cast<std::uint32_t>(state), value); });
}

ov_status_t ov_node_enter_value(ov_node_t node, ov_double_t value) {
  if (check_usage(!is_evidence_node(node) || node->is_discrete() || in_class(node))) return ov_error_usage;
  return guarded_status([&] { return node_enter_value(node, value); });
}

ov_status_t ov_node_retract_findings(ov_node_t node) {
  if (check_usage(!is_evidence_node(node) || in_class(node))) return ov_error_usage;
  return guarded_status([&] { return node_retract_findings(node); });
}

ov_status_t ov_domain_retract_findings(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  return guarded_status([&]() -> ov_status_t {
    domain_retract_findings(domain);
    return ov_error_none;
  });
}

ov_number_t ov_node_get_entered_finding(ov_node_t node, ov_index_t state) {
  if (check_usage(!is_discrete_evidence_node(node) || !valid_state(node, state))) return -1.0f;
  return entered_finding_cell(node, static_cast<std::uint32_t>(state));
}

ov_number_t ov_node_get_propagated_finding(ov_node_t node, ov_index_t state) {
  if (check_usage(!is_discrete_evidence_node(node) || !valid_state(node, state))) return -1.0f;
  if (refuse(node_forest_state(node))) return -1.0f;
  return node->propagated_finding->data[static_cast<std::size_t>(state)];
}

ov_double_t ov_node_get_entered_value(ov_node_t node) {
  if (check_usage(!is_evidence_node(node) || node->is_discrete() || !node->value_entered)) return -1.0;
  return node->entered_value;
}

ov_double_t ov_node_get_propagated_value(ov_node_t node) {
  if (check_usage(!is_evidence_node(node) || node->is_discrete())) return -1.0;
  if (refuse(node_forest_state(node))) return -1.0;
  if (check_usage(!node->value_propagated)) return -1.0;
  return node->propagated_value;
}

ov_index_t ov_node_get_entered_state(ov_node_t node) {
  if (check_usage(!is_discrete_evidence_node(node) || in_class(node))) return -1;
  return entered_state(node);
}

int ov_node_evidence_is_entered(ov_node_t node) {
  if (check_usage(!is_evidence_node(node) || in_class(node))) return -1;
  return evidence_entered(node) ? 1 : 0;
}

int ov_node_likelihood_is_entered(ov_node_t node) {
  if (check_usage(!is_evidence_node(node) || in_class(node))) return -1;
  return likelihood_entered(node) ? 1 : 0;
}

int ov_node_evidence_is_propagated(ov_node_t node) {
  if (check_usage(!is_evidence_node(node))) return -1;
  if (refuse(node_forest_state(node))) return -1;
  return evidence_propagated(node) ? 1 : 0;
}

int ov_node_likelihood_is_propagated(ov_node_t node) {
  if (check_usage(!is_evidence_node(node))) return -1;
  if (refuse(node_forest_state(node))) return -1;
  return likelihood_propagated(node) ? 1 : 0;
}

int ov_node_evidence_to_propagate(ov_node_t node) {
  if (check_usage(!is_evidence_node(node))) return -1;
  if (refuse(node_forest_state(node))) return -1;
  return finding_differs(node) ? 1 : 0;
}

int ov_node_evidence_to_retract(ov_node_t node) {
  if (check_usage(!is_evidence_node(node))) return -1;
  if (refuse(node_forest_state(node))) return -1;
  return finding_retracted(node) ? 1 : 0;
}

int ov_node_is_instantiated(ov_node_t node) {
  if (check_usage(!is_evidence_node(node) || in_class(node))) return -1;
  return node_instantiated(node) ? 1 : 0;
}

int ov_node_is_consistent(ov_node_t node) {
  if (check_usage(!is_evidence_node(node))) return -1;
  if (refuse(node_forest_state(node))) return -1;
  return node_consistent(node) ? 1 : 0;
}

int ov_jt_evidence_to_propagate(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return -1;
  return tree->changed_evidence_count > 0 ? 1 : 0;
}

int ov_domain_evidence_to_propagate(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  if (refuse(compiled_state(domain))) return -1;
  return domain_evidence_to_propagate(domain) ? 1 : 0;
}

int ov_jt_evidence_is_propagated(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return -1;
  return tree->evidence_propagated ? 1 : 0;
}

int ov_domain_evidence_is_propagated(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  if (refuse(compiled_state(domain))) return -1;
  return domain_evidence_propagated(domain) ? 1 : 0;
}

int ov_jt_likelihood_is_propagated(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return -1;
  return tree->likelihood_propagated ? 1 : 0;
}

int ov_domain_likelihood_is_propagated(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  if (refuse(compiled_state(domain))) return -1;
  return domain_likelihood_propagated(domain) ? 1 : 0;
}

int ov_jt_cg_evidence_is_propagated(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return -1;
  return tree->cg_evidence_propagated ? 1 : 0;
}

int ov_domain_cg_evidence_is_propagated(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  if (refuse(compiled_state(domain))) return -1;
  return domain_cg_evidence_propagated(domain) ? 1 : 0;
}

int ov_jt_equilibrium_is(ov_junction_tree_t tree, ov_equilibrium_t equilibrium) {
  if (check_usage(tree == nullptr || !valid_equilibrium(equilibrium))) return -1;
  return tree->equilibrium == equilibrium ? 1 : 0;
}

int ov_domain_equilibrium_is(ov_domain_t domain, ov_equilibrium_t equilibrium) {
  if (check_usage(domain == nullptr || !valid_equilibrium(equilibrium))) return -1;
  if (refuse(compiled_state(domain))) return -1;
  return domain_equilibrium_is(domain, equilibrium) ? 1 : 0;
}

int ov_jt_evidence_mode_is(ov_junction_tree_t tree, ov_evidence_mode_t mode) {
  if (check_usage(tree == nullptr || !valid_evidence_mode(mode))) return -1;
  return jt_evidence_mode_is(tree, mode);
}

int ov_domain_evidence_mode_is(ov_domain_t domain, ov_evidence_mode_t mode) {
  if (check_usage(domain == nullptr || !valid_evidence_mode(mode))) return -1;
  if (refuse(compiled_state(domain))) return -1;
  return domain_evidence_mode_is(domain, mode);
}

} // extern "C"
