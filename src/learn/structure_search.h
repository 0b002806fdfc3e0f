// The two phases of structure learning: the independence tests and the
// partially directed graph (PDAG) built from their verdicts.
#pragma once

#include <cstdint>
#include <vector>

#include "model/domain.h"

namespace orvel {

struct StructureSearch {
  Domain *domain;
  std::vector<Node *> nodes;           // in list order: the vertices
  std::vector<std::uint8_t> usable;    // by vertex: has case data and at least 2 states
  std::vector<std::uint8_t> complete;  // by vertex: has a value in every case
  std::vector<EdgeTestRecord> records; // by pair_index
  std::uint64_t test_count = 0;
  std::vector<std::uint32_t> vertex_of; // node number - 1 -> vertex

  EdgeTestRecord &record(const Node *a, const Node *b);
  const EdgeTestRecord &record(const Node *a, const Node *b) const;
};

inline bool pair_connected(const EdgeTestRecord &r) noexcept {
  const bool required =
      r.constraint >= ov_constraint_edge_required && r.constraint <= ov_constraint_backward_edge_required;
  return required || (r.constraint != ov_constraint_edge_forbidden && r.independent_count == 0);
}
inline bool pair_settled(const EdgeTestRecord &r) noexcept {
  return r.constraint >= ov_constraint_edge_required && r.constraint <= ov_constraint_edge_forbidden;
}

// Runs the tests, filling the records; no test at all leaves test_count 0.
ov_status_t run_independence_tests(StructureSearch &search);
// Builds the PDAG from the records, orients it and adds its edges to the
// domain, logging each step.
ov_status_t orient_and_add_edges(StructureSearch &search);

} // namespace orvel
