// Propagation on junction trees: one collect towards a root and one
// distribute from it, run incrementally.
//
// Only the change of evidence is multiplied into the tree, findings that
// only exclude states are applied by writing zeros, the collect covers only
// the part of the tree that changed, and a tree is re-initialised from the
// node tables only when a zero must be undone. Nothing here allocates once
// the first initialisation of a tree (at compile time) has run.
//
// Conditional Gaussian propagation is not part of this engine: a tree of a
// domain with continuous nodes is refused with usage (at compile time, so
// that such a domain never counts as compiled). A tree of an influence
// diagram is solved by inference/decisions.h at sum equilibrium in normal
// mode; other equilibria and modes are usage. cg_influence_diagrams_not_supported
// stays the code of the mix of the two, which node creation refuses.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Brings a junction tree to its initial sum equilibrium from the node
// tables (or from the domain's table memory). With first_time the tree is
// fresh from compilation.
ov_status_t jt_initialize(JunctionTree *tree, bool first_time);
// Brings the tree into the asked equilibrium with the entered evidence;
// `clique`, if given, is the root of the run.
ov_status_t propagate_tree(JunctionTree *tree, Clique *clique, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode);
// Re-initialises each tree with changed tables, another equilibrium than
// sum, or propagated evidence.
ov_status_t domain_reset_inference_engine(Domain *domain);
// Copies the forest's tables to the domain's table memory, from which later
// initialisations restore them.
ov_status_t domain_save_to_memory(Domain *domain);

// Propagation over the whole forest (propagate_domain.cpp): each tree in
// turn, stopping at the first that fails.
ov_status_t propagate_domain(Domain *domain, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode);
// Resets the inference engine and retracts every finding.
ov_status_t domain_initialize(Domain *domain);
// Whether some tree has node tables changed since its initialisation.
bool domain_tables_to_propagate(const Domain *domain) noexcept;

// Writes the beliefs after the first propagation of a compile to the log.
ov_status_t log_initial_beliefs(Domain *domain);

// Whether the node belongs to the tree's evidence: chance and decision nodes.
inline bool takes_evidence(const Node *node) noexcept {
  return node->category == ov_category_chance || node->category == ov_category_decision;
}
// Whether a domain holds nodes that this engine cannot propagate.
inline bool needs_cg_or_decisions(const Domain *domain) noexcept {
  return domain->continuous_count > 0 || domain->decision_count > 0 || domain->utility_count > 0;
}

} // namespace orvel
