// Results read from a propagated junction forest.
#pragma once

#include "compile/junction_tree.h"
#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// The joint of the listed nodes (discrete chance nodes of one tree) under
// the tree's equilibrium, as a new detached table the caller deletes; null
// on failure. Nodes that share no clique are joined by a walk through the
// tree. A domain with continuous nodes is refused with usage.
Table *domain_get_marginal(Domain *domain, const NodeList &nodes);
// Whether a node list may be asked for a marginal: discrete chance nodes
// first, then continuous chance nodes, nothing else.
bool marginal_list_valid(const NodeList &nodes) noexcept;
// The propagated mean and variance of a continuous chance node.
double node_mean(const Node *node) noexcept;
double node_variance(const Node *node) noexcept;
// The tree's conflict: the product of the prior probabilities of the single
// findings divided by the probability of all of them together.
double tree_conflict(const JunctionTree *tree) noexcept;
// Entropy of a node's belief (natural logarithm).
double node_entropy(const Node *node) noexcept;
// Mutual information of two nodes of one tree; null joint on failure gives -1.
double node_mutual_information(Node *a, Node *b);

// What stands in the way of reading results from a tree of the domain:
// not_compiled without a forest (or a tree), no_equilibrium for a tree that
// holds none; else none.
inline ov_error_t tree_result_state(const Domain *domain, const JunctionTree *tree) noexcept {
  if (!domain_is_compiled(domain) || tree == nullptr) return ov_error_not_compiled;
  if (tree->equilibrium == ov_equilibrium_none) return ov_error_no_equilibrium;
  return ov_error_none;
}
// The same for every tree of the domain.
ov_error_t domain_result_state(const Domain *domain) noexcept;
// Entropy and mutual information need sum-marginals of normal mode: usage
// for a tree without them, else none.
ov_error_t information_state(const JunctionTree *tree) noexcept;

// The conflict of the whole forest, the product over its trees; -1 with
// cg_evidence_incorporated when a tree has CG evidence propagated.
double domain_conflict(const Domain *domain) noexcept;
// The normalization constant of the forest and its logarithm.
double domain_normalization_constant(const Domain *domain) noexcept;
double domain_log_normalization_constant(const Domain *domain) noexcept;
// Mutual information of two discrete chance nodes of one domain, refusing
// (with -1) as the result queries do: the entropy for one node, 0 for nodes
// of different trees.
double mutual_information(Node *a, Node *b);

} // namespace orvel
