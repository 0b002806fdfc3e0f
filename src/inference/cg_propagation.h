// Mixed networks: exact propagation with conditional Gaussian nodes, beside
// the engine of propagation.
//
// Design. A tree with continuous nodes is solved on its strong junction
// tree (the compile eliminates continuous nodes before discrete ones, so
// the clique left last, the tree's root, is a strong root). Every potential
// is held in double precision in canonical form: for each configuration of
// its discrete nodes a log weight g, a vector h and a matrix K over its
// continuous nodes, standing for exp(g + h'x - x'Kx/2). A linear-Gaussian
// node with intercept a, coefficients b and variance v is the form of
// exp(-(y - a - b'x)^2 / 2v) / sqrt(2 pi v); products add forms, quotients
// subtract them.
//
// Continuous findings are entered by substitution into the node tables
// before anything is multiplied, so observed nodes leave every potential.
// Discrete findings multiply into a clique that holds their node.
//
// Collect to the strong root marginalises each clique onto its separator.
// Strongness makes this exact: what a clique eliminates towards its parent
// is either continuous only (integrated by a Schur complement of K), or
// the separator is discrete only (integrate, then sum). At the root the
// total is the density of the evidence. Distribute sends the parent's
// marginal divided by the collect message; where it sums a discrete node
// while continuous ones remain, the mixture is collapsed to one Gaussian
// with the same mean and covariance (weak marginalisation). In a strong
// tree the child's conditional given the separator depends on no discrete
// node outside it, so every clique ends with the exact discrete marginal
// and the exact first and second moments of its continuous nodes.
//
// This is the canonical-form scheme (Lauritzen 1992), not yet the
// head-and-tail scheme of Lauritzen and Jensen (2001): a continuous node of
// zero conditional variance has no canonical form and is refused with
// zero_variance instead of being propagated as a deterministic relation.
// A matrix that should be positive definite and is not gives rounding; a
// density of the evidence below the smallest normal double gives
// low_density. The solver allocates its potentials at each propagation.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Solves the tree with its propagated findings: fills the beliefs of its
// discrete nodes, the means and variances of its continuous nodes and the
// tree's normalisation constant (the density of the evidence).
ov_status_t solve_cg_tree(JunctionTree *tree);

// The distribution of an unobserved continuous node of a propagated tree
// as a mixture: a new detached table over the discrete nodes of the clique
// that holds it and the node, with per configuration its probability and
// the node's mean and variance given it. Null on failure.
Table *cg_node_distribution(Node *node);

// Draws the tree's chance nodes from their joint distribution given the
// propagated findings: the discrete nodes clique by clique from the strong
// root, then the continuous ones given all discrete states, each clique's
// given those already drawn. `choose` picks an index in proportion to the
// weights; `standard_normal` draws N(0, 1). Sets the samples of the nodes and
// the tree's probability_of_random_selection (of the discrete draw).
ov_status_t simulate_cg_tree(JunctionTree *tree,
                             const std::function<std::uint32_t(const std::vector<double> &)> &choose,
                             const std::function<double()> &standard_normal);

} // namespace orvel
