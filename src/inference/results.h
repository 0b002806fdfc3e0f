// Results read from a propagated junction forest.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// The joint of the listed nodes (discrete chance nodes of one tree) under
// the tree's equilibrium, as a new detached table the caller deletes; null
// on failure. Nodes that share no clique are joined by a walk through the
// tree.
Table *domain_get_marginal(Domain *domain, const NodeList &nodes);
// The tree's conflict: the product of the prior probabilities of the single
// findings divided by the probability of all of them together.
double tree_conflict(const JunctionTree *tree) noexcept;
// Entropy of a node's belief (natural logarithm).
double node_entropy(const Node *node) noexcept;
// Mutual information of two nodes of one tree; null joint on failure gives -1.
double node_mutual_information(Node *a, Node *b);

} // namespace orvel
