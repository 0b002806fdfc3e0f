// Exported result queries.
#include <cmath>

#include "api/boundary.h"
#include "compile/compiled_forest.h"
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

bool valid_state(const ov_node_s *node, ov_index_t state) noexcept {
  return state >= 0 && static_cast<std::uint64_t>(state) < node->state_count;
}

// The common tests after the arguments: not_compiled, then no_equilibrium
// for the tree in question. True when refused.
bool refuse_tree(const ov_domain_s *domain, const ov_junction_tree_s *tree) noexcept {
  if (domain->compiled == 0 || tree == nullptr) {
    set_error(ov_error_not_compiled);
    return true;
  }
  if (tree->equilibrium == ov_equilibrium_none) {
    set_error(ov_error_no_equilibrium);
    return true;
  }
  return false;
}

bool refuse_domain(const ov_domain_s *domain) noexcept {
  if (domain->compiled == 0) {
    set_error(ov_error_not_compiled);
    return true;
  }
  for (auto &tree : domain->forest->junction_trees)
    if (tree->equilibrium == ov_equilibrium_none) {
      set_error(ov_error_no_equilibrium);
      return true;
    }
  return false;
}

// Entropy and mutual information need sum-marginals of normal mode.
bool refuse_information(const ov_junction_tree_s *tree) noexcept {
  return check_usage(!(tree->equilibrium == ov_equilibrium_sum &&
                       (tree->evidence_mode == ov_mode_normal || !tree->evidence_propagated)));
}

} // namespace

extern "C" {

ov_number_t ov_node_get_belief(ov_node_t node, ov_index_t state) {
  if (check_usage(!is_chance(node, ov_kind_discrete) || !valid_state(node, state))) return -1.0f;
  if (refuse_tree(node->home, node->junction_tree)) return -1.0f;
  return node->belief_table->data[static_cast<std::size_t>(state)];
}

ov_double_t ov_node_get_mean(ov_node_t node) {
  if (check_usage(!is_chance(node, ov_kind_continuous))) return -1.0;
  if (refuse_tree(node->home, node->junction_tree)) return -1.0;
  if (node->value_propagated) return node->propagated_value;
  return node->belief_table->cg_data[0];
}

ov_double_t ov_node_get_variance(ov_node_t node) {
  if (check_usage(!is_chance(node, ov_kind_continuous))) return -1.0;
  if (refuse_tree(node->home, node->junction_tree)) return -1.0;
  if (node->value_propagated) return 0.0;
  return node->belief_table->cg_data[1];
}

ov_number_t ov_node_get_expected_utility(ov_node_t node, ov_index_t state) {
  if (check_usage(node == nullptr || node->category != ov_category_decision || !node->is_discrete() ||
                  !valid_state(node, state)))
    return -1.0f;
  if (refuse_tree(node->home, node->junction_tree)) return -1.0f;
  return node->utility_table->data[static_cast<std::size_t>(state)];
}

ov_table_t ov_domain_get_marginal(ov_domain_t domain, ov_node_t *nodes) {
  if (check_usage(domain == nullptr || nodes == nullptr || !node_list_is_set_of(nodes, domain))) return nullptr;
  NodeList list(nodes);
  // Discrete chance nodes first, then continuous chance nodes, nothing else.
  std::uint32_t i = 0;
  while (i < list.size() && is_chance(list[i], ov_kind_discrete)) ++i;
  while (i < list.size() && is_chance(list[i], ov_kind_continuous)) ++i;
  if (check_usage(i < list.size())) return nullptr;
  if (domain->compiled == 0) return set_error(ov_error_not_compiled), nullptr;
  return guarded<ov_table_t>(nullptr, [&]() -> ov_table_t {
    // Continuous marginals need conditional Gaussian propagation.
    if (domain->continuous_count > 0) return set_error(ov_error_cg_influence_diagrams_not_supported), nullptr;
    return domain_get_marginal(domain, list);
  });
}

ov_double_t ov_domain_get_conflict(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  if (refuse_domain(domain)) return -1.0;
  double product = 1.0;
  for (auto &tree : domain->forest->junction_trees) {
    if (tree->cg_evidence_propagated) return set_error(ov_error_cg_evidence_incorporated), -1.0;
    product *= tree_conflict(tree.get());
  }
  return product;
}

ov_double_t ov_jt_get_conflict(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return -1.0;
  if (refuse_tree(tree->domain, tree)) return -1.0;
  if (tree->cg_evidence_propagated) return set_error(ov_error_cg_evidence_incorporated), -1.0;
  return tree_conflict(tree);
}

ov_double_t ov_clique_get_conflict(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return -1.0;
  if (refuse_tree(clique->domain, clique->junction_tree)) return -1.0;
  if (clique->junction_tree->cg_evidence_propagated) return set_error(ov_error_cg_evidence_incorporated), -1.0;
  return clique->factor;
}

ov_clique_t ov_node_get_conflict_clique(ov_node_t node) {
  if (check_usage(node == nullptr || !takes_evidence(node))) return nullptr;
  if (refuse_tree(node->home, node->junction_tree)) return nullptr;
  if (node->junction_tree->cg_evidence_propagated) return set_error(ov_error_cg_evidence_incorporated), nullptr;
  return node->conflict_clique;
}

ov_double_t ov_domain_get_normalization_constant(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  if (refuse_domain(domain)) return -1.0;
  double product = 1.0;
  for (auto &tree : domain->forest->junction_trees) product *= tree->total_constant;
  return product;
}

ov_double_t ov_domain_get_log_normalization_constant(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return 1.0;
  if (refuse_domain(domain)) return 1.0;
  double sum = 0.0;
  for (auto &tree : domain->forest->junction_trees) sum += tree->total_log_constant;
  return sum;
}

ov_double_t ov_node_get_entropy(ov_node_t node) {
  if (check_usage(!is_chance(node, ov_kind_discrete))) return -1.0;
  if (refuse_tree(node->home, node->junction_tree)) return -1.0;
  if (refuse_information(node->junction_tree)) return -1.0;
  return node_entropy(node);
}

ov_double_t ov_node_get_mutual_information(ov_node_t a, ov_node_t b) {
  if (check_usage(!is_chance(a, ov_kind_discrete) || !is_chance(b, ov_kind_discrete) || a->home != b->home))
    return -1.0;
  if (a == b) return ov_node_get_entropy(a);
  if (refuse_tree(a->home, a->junction_tree) || refuse_tree(b->home, b->junction_tree)) return -1.0;
  if (a->junction_tree != b->junction_tree) return 0.0;
  if (refuse_information(a->junction_tree)) return -1.0;
  return guarded<double>(-1.0, [&] { return node_mutual_information(a, b); });
}

} // extern "C"
