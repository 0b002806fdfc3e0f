// Influence diagrams: solution under the no-forgetting assumption on the
// strong junction tree, beside the engine of propagation.
//
// Each clique carries a probability potential and a probability-weighted
// utility potential. A collect towards the tree's strong root eliminates the
// nodes of each clique that its separator lacks in the compile's elimination
// order: a chance node (or a decision with a finding, which is then a decision
// taken) is summed, an open decision is maximised. At the root the sum of
// the probabilities and of the weighted utilities give the maximum expected
// utility. The expected utility of an option of a decision is that maximum
// with the option taken. Beliefs, and the probability of the findings, are
// those with the open decisions following their optimal policies.
//
// With limited memory a decision knows only its parents. Its policy is a
// table over its family, entered like a conditional table, and the policies
// are found by single policy updating; every decision is then summed.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Whether a domain is an influence diagram: decision or utility nodes.
inline bool has_decisions(const Domain *domain) noexcept {
  return domain->decision_count > 0 || domain->utility_count > 0;
}

// Solves the tree with its propagated findings: fills the beliefs of its
// chance and decision nodes, the expected utilities of its decisions and the
// tree's share of the maximum expected utility. Allocates its working
// potentials. inconsistency_or_underflow when the findings have probability 0.
ov_status_t solve_decision_tree(JunctionTree *tree);

// The optimal policy of a decision as a new table, detached, over the past
// that the solution maximises it on, then the decision: 1 at the option
// chosen in each configuration of the past, or (with `utilities`) the
// expected utility of each option there. The tree must be solved.
Table *decision_policy(Node *decision, bool utilities);

// Makes the decisions of the domain remember only their parents (limited)
// or the whole past; a change uncompiles the domain.
void set_limited_memory(Domain *domain, bool limited) noexcept;

// The maximum expected utility of the domain: the sum over its trees.
double domain_expected_utility(const Domain *domain) noexcept;

} // namespace orvel
