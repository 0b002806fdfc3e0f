// Findings: what the caller asserts about single nodes, and the tests that
// compare the entered finding of a node with the one its tree incorporates.
//
// While a domain is compiled, each tree's changed_evidence_count equals the
// number of its nodes whose entered finding differs from the propagated one.
// Every writer of a finding keeps this true by one bracket: take the node out
// of the count if it differs, store, put it back if it differs now.
#pragma once

#include <cstdint>

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Whether the node's entered finding (or value) differs from the propagated.
bool finding_differs(const Node *node) noexcept;
// Whether propagation must start again from the initial tables: a state
// once excluded is now allowed, or a propagated value is gone or changed.
bool finding_retracted(const Node *node) noexcept;
// Whether any evidence is entered on the node.
bool evidence_entered(const Node *node) noexcept;
// Whether the tree incorporates evidence on the node.
bool evidence_propagated(const Node *node) noexcept;
// Whether a cell of the entered (or propagated) finding is neither 0 nor 1.
bool likelihood_entered(const Node *node) noexcept;
bool likelihood_propagated(const Node *node) noexcept;
// The single state the entered finding allows, or -1.
std::int32_t entered_state(const Node *node) noexcept;
// The only state with a non-zero cell among `count` cells, or -1.
std::int32_t single_state(const ov_number_t *cells, std::uint32_t count) noexcept;

// The writers of findings; each keeps the tree's count true. The discrete
// ones need a discrete chance or decision node and a valid state and value.
ov_status_t node_select_state(Node *node, std::uint32_t state);
ov_status_t node_enter_finding(Node *node, std::uint32_t state, ov_number_t value);
ov_status_t node_enter_value(Node *node, double value);
ov_status_t node_retract_findings(Node *node);
// Retracts on every chance and decision node, ignoring each result.
void domain_retract_findings(Domain *domain);
// A cell of the entered finding; 1 for every state while none is entered.
ov_number_t entered_finding_cell(const Node *node, std::uint32_t state) noexcept;

// Whether the node lies in a junction tree of a compiled domain.
inline bool node_in_forest(const Node *node) noexcept {
  return domain_is_compiled(node->home) && node->junction_tree != nullptr;
}
// What stands in the way of reading the propagated evidence of a node:
// not_compiled unless it lies in a junction tree, else none.
inline ov_error_t node_forest_state(const Node *node) noexcept {
  return node_in_forest(node) ? ov_error_none : ov_error_not_compiled;
}
// Whether the entered evidence pins the node down: a single state, or a
// value for a continuous node.
bool node_instantiated(const Node *node) noexcept;
// Whether the node's evidence agrees with what its tree has propagated.
bool node_consistent(const Node *node) noexcept;

// The evidence state of a domain over its trees.
bool domain_evidence_to_propagate(const Domain *domain) noexcept;
bool domain_evidence_propagated(const Domain *domain) noexcept;
bool domain_likelihood_propagated(const Domain *domain) noexcept;
bool domain_cg_evidence_propagated(const Domain *domain) noexcept;
// Whether every tree holds `equilibrium`.
bool domain_equilibrium_is(const Domain *domain, ov_equilibrium_t equilibrium) noexcept;
// Whether every tree with propagated evidence used `mode`; -1 with
// no_equilibrium when some tree holds none.
int domain_evidence_mode_is(const Domain *domain, ov_evidence_mode_t mode) noexcept;
// The same for one tree.
int jt_evidence_mode_is(const JunctionTree *tree, ov_evidence_mode_t mode) noexcept;

} // namespace orvel
