// Exported result queries.
#include <cmath>

#include "api/boundary.h"
#include "compile/clique.h"
#include "compile/junction_tree.h"
#include "inference/cg_propagation.h"
#include "inference/decisions.h"
#include "inference/evidence.h"
#include "inference/propagation.h"
#include "inference/results.h"
#include "model/domain.h"
#include "table/table.h"

using namespace orvel;

namespace {

bool is_chance(const ov_node_s *node, ov_kind_t kind) noexcept {
  return node != nullptr && node->category == ov_category_chance && node->kind == kind;
}

} // namespace

extern "C" {

ov_number_t ov_node_get_belief(ov_node_t node, ov_index_t state) {
  if (check_usage(!is_chance(node, ov_kind_discrete) || !valid_state(node, state))) return -1.0f;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return -1.0f;
  return node->belief_table->data[static_cast<std::size_t>(state)];
}

ov_double_t ov_node_get_mean(ov_node_t node) {
  if (check_usage(!is_chance(node, ov_kind_continuous))) return -1.0;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return -1.0;
  return node_mean(node);
}

ov_double_t ov_node_get_variance(ov_node_t node) {
  if (check_usage(!is_chance(node, ov_kind_continuous))) return -1.0;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return -1.0;
  return node_variance(node);
}

ov_table_t ov_node_get_distribution(ov_node_t node) {
  if (check_usage(!is_chance(node, ov_kind_continuous) || node->value_propagated)) return nullptr;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return nullptr;
  return guarded<ov_table_t>(nullptr, [&] { return cg_node_distribution(node); });
}

ov_number_t ov_node_get_expected_utility(ov_node_t node, ov_index_t state) {
  if (check_usage(node == nullptr || node->category != ov_category_decision || !node->is_discrete() ||
                  !valid_state(node, state)))
    return -1.0f;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return -1.0f;
  return node->utility_table->data[static_cast<std::size_t>(state)];
}

ov_table_t ov_node_get_policy(ov_node_t node) {
  if (check_usage(node == nullptr || node->category != ov_category_decision || !node->is_discrete())) return nullptr;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return nullptr;
  return guarded<ov_table_t>(nullptr, [&] { return decision_policy(node, false); });
}

ov_table_t ov_node_get_policy_utilities(ov_node_t node) {
  if (check_usage(node == nullptr || node->category != ov_category_decision || !node->is_discrete())) return nullptr;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return nullptr;
  return guarded<ov_table_t>(nullptr, [&] { return decision_policy(node, true); });
}

ov_status_t ov_domain_set_limited_memory(ov_domain_t domain, int limited) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  set_limited_memory(domain, limited != 0);
  return ov_error_none;
}

int ov_domain_get_limited_memory(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return domain->limited_memory ? 1 : 0;
}

ov_double_t ov_domain_get_expected_utility(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  if (refuse(domain_result_state(domain))) return -1.0;
  return domain_expected_utility(domain);
}

ov_table_t ov_domain_get_marginal(ov_domain_t domain, ov_node_t *nodes) {
  if (check_usage(domain == nullptr || nodes == nullptr || !node_list_is_set_of(nodes, domain))) return nullptr;
  NodeList list(nodes);
  if (check_usage(!marginal_list_valid(list))) return nullptr;
  if (refuse(compiled_state(domain))) return nullptr;
  return guarded<ov_table_t>(nullptr, [&] { return domain_get_marginal(domain, list); });
}

ov_double_t ov_domain_get_conflict(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  if (refuse(domain_result_state(domain))) return -1.0;
  return domain_conflict(domain);
}

ov_double_t ov_jt_get_conflict(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return -1.0;
  if (refuse(tree_result_state(tree->domain, tree))) return -1.0;
  if (tree->cg_evidence_propagated) return set_error(ov_error_cg_evidence_incorporated), -1.0;
  return tree_conflict(tree);
}

ov_double_t ov_clique_get_conflict(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return -1.0;
  if (refuse(tree_result_state(clique->domain, clique->junction_tree))) return -1.0;
  if (clique->junction_tree->cg_evidence_propagated) return set_error(ov_error_cg_evidence_incorporated), -1.0;
  return clique->factor;
}

ov_clique_t ov_node_get_conflict_clique(ov_node_t node) {
  if (check_usage(node == nullptr || !takes_evidence(node))) return nullptr;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return nullptr;
  if (node->junction_tree->cg_evidence_propagated) return set_error(ov_error_cg_evidence_incorporated), nullptr;
  return node->conflict_clique;
}

ov_double_t ov_domain_get_normalization_constant(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  if (refuse(domain_result_state(domain))) return -1.0;
  return domain_normalization_constant(domain);
}

ov_double_t ov_domain_get_log_normalization_constant(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return 1.0;
  if (refuse(domain_result_state(domain))) return 1.0;
  return domain_log_normalization_constant(domain);
}

ov_double_t ov_node_get_entropy(ov_node_t node) {
  if (check_usage(!is_chance(node, ov_kind_discrete))) return -1.0;
  if (refuse(tree_result_state(node->home, node->junction_tree))) return -1.0;
  if (refuse(information_state(node->junction_tree))) return -1.0;
  return node_entropy(node);
}

ov_double_t ov_node_get_mutual_information(ov_node_t a, ov_node_t b) {
  if (check_usage(!is_chance(a, ov_kind_discrete) || !is_chance(b, ov_kind_discrete) || a->home != b->home))
    return -1.0;
  return guarded<double>(-1.0, [&] { return mutual_information(a, b); });
}

} // extern "C"
