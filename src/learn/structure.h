// Structure learning: a constraint-based search of the PC family over the
// domain's cases. G² tests of conditional independence (with at most three
// conditioning nodes) thin out the complete graph; colliders are oriented,
// further directions derived by rules R1-R4, and what stays undirected is
// settled by the number of parameters each direction adds. Edge constraints
// override the data.
#pragma once

#include <cstddef>

#include "model/domain.h"

namespace orvel {

// Learns the edges of a domain of discrete chance nodes without edges. The
// test records stay on the domain.
ov_status_t domain_learn_structure(Domain *domain);

// The place of the record of a pair of distinct nodes, from their numbers.
inline std::size_t pair_index(const Node *a, const Node *b) noexcept {
  std::size_t hi = a->number, lo = b->number;
  if (hi < lo) std::swap(hi, lo);
  return (hi - 2) * (hi - 1) / 2 + (lo - 1);
}

// The p-value of the pair's marginal test, 1 for a pair without tests.
double data_independency(const Domain *domain, const Node *a, const Node *b) noexcept;

} // namespace orvel
