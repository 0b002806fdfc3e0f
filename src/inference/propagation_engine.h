// The parts of the propagation engine shared by its files.
//
// The engine is split by stage: walks of the tree (propagation_walks.cpp),
// messages (propagation_messages.cpp), node marginals
// (propagation_marginals.cpp), initialisation
// (propagation_initialization.cpp), and the driver that enters evidence and
// runs a propagation (propagation.cpp). Nothing here is used outside
// inference/.
#pragma once

#include <cstdint>
#include <vector>

#include "api/error.h"
#include "compile/clique.h"
#include "compile/junction_tree.h"
#include "inference/evidence.h"
#include "model/domain.h"
#include "model/node.h"
#include "orvel.h"
#include "table/table.h"

namespace orvel::engine {

// The smallest normal and the largest finite 32-bit float, in doubles.
constexpr double smallest_normal = 1.1754943508222875e-38;
constexpr double largest_finite = 3.4028234663852886e+38;

// Totals of propagation: inconsistent evidence and underflow take the same
// path, since both leave nothing representable.
inline ov_status_t check_range(double x) noexcept {
  if (x >= smallest_normal && x < largest_finite) return ov_error_none;
  if (x >= 0.0 && x < smallest_normal) return fail(ov_error_inconsistency_or_underflow);
  if (x >= largest_finite) return fail(ov_error_overflow);
  // Negative or not a number: only a fault upstream gives this.
  return ov_error_code() != ov_error_none ? static_cast<ov_status_t>(ov_error_code()) : fail(ov_error_error);
}

// The link of `from` that leads to `to`.
inline CliqueLink &link_to(Clique *from, const Clique *to) noexcept {
  for (CliqueLink &link : from->links)
    if (link.neighbour == to) return link;
  return from->links.front(); // unreachable: links come in pairs
}

inline bool is_member(const Clique *clique, const Node *node) noexcept { return clique->table->nodes.contains(node); }

// The propagated cells of a discrete node.
inline ov_number_t *propagated(Node *node) noexcept { return node->propagated_finding->data.get(); }

inline bool has_likelihood(const Node *node) noexcept {
  return node->is_discrete() && node->propagated_finding != nullptr && evidence_propagated(node);
}

// With p the propagated finding and m the marginal: the sum of p * m at sum
// equilibrium, else the greatest p * m; with a single state, p * m there.
inline double likelihood_weight(const Node *node) noexcept {
  const ov_number_t *p = node->propagated_finding->data.get();
  const ov_number_t *m = node->belief_table->data.get();
  if (node->instantiated_state >= 0) {
    const std::int32_t s = node->instantiated_state;
    return static_cast<double>(p[s]) * m[s];
  }
  const bool sum = node->junction_tree->equilibrium != ov_equilibrium_max;
  double result = 0.0;
  for (std::uint32_t i = 0; i < node->state_count; ++i) {
    const double x = static_cast<double>(p[i]) * m[i];
    if (sum)
      result += x;
    else if (x > result)
      result = x;
  }
  return result;
}

// ---------------------------------------------------------------- walks

// The active clique with the smallest table, to start a collect from, after
// every clique on a path between active cliques is made active; null if
// none is active.
Clique *select_root(JunctionTree *tree) noexcept;
// From the first active clique (or else one holding as many of `nodes` as
// can be found together), activates the nearest clique holding each node,
// joins the active cliques and returns the one with the smallest table;
// null if there is nowhere to start.
Clique *select_for_hard_evidence(JunctionTree *tree, const std::vector<Node *> &nodes) noexcept;
// Applies each marked hard finding in the first active clique, leaves
// first, that holds its node: zeroes the cells that disagree, books the
// finding's weight in the clique and clears the marks of its members.
void apply_hard_evidence(Clique *start) noexcept;

// ---------------------------------------------------------------- messages

struct Run {
  JunctionTree *tree;
  ov_equilibrium_t equilibrium;
  ov_evidence_mode_t mode;
};

// Passes messages outwards from `root` over every link of the tree.
ov_status_t distribute(const Run &run, Clique *root);
// A collect to the root (`clique`, or the one select_root gives, or the
// tree's root), the normalisation there, and a distribute. With `joined`,
// every clique on a path between active cliques is active already and
// `clique`, if given, is one of them, so the active set needs no second walk.
ov_status_t collect_and_distribute(const Run &run, Clique *clique, bool joined);

// ---------------------------------------------------------------- marginals

// The marginal of every member of the tree; with `shortcut` an instantiated
// chance node's is written directly.
ov_status_t compute_marginals(JunctionTree *tree, bool shortcut, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode);

// ---------------------------------------------------------------- initialisation

// Resets the evidence state of the tree: constants, flags, factors and the
// propagated findings.
void reset_evidence_state(JunctionTree *tree) noexcept;
// The tree's node and clique lists and the domain's walk buffer; made once.
void prepare_tree(JunctionTree *tree);
// Copies the tree's tables from and to the domain's table memory.
void restore_tables(JunctionTree *tree) noexcept;
void save_tables(JunctionTree *tree) noexcept;
bool has_table_memory(const Domain *domain) noexcept;
// Loads the clique tables from the node tables, runs the first collect and
// distribute and computes the initial marginals.
ov_status_t initialize_tables(JunctionTree *tree, bool first_time);

} // namespace orvel::engine
