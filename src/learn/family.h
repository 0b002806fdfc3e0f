// The joint of a node's family read from the clique that holds the node's
// table: the E-step of EM and the posterior of adaptation.
#pragma once

#include <cstdint>
#include <vector>

#include "model/domain.h"
#include "orvel.h"
#include "table/table.h"

namespace orvel {

// One discrete node of the home clique, with its stride there and in the
// family table (0 when the node is not of the family).
struct FamilyDimension {
  Node *node = nullptr;
  std::uint32_t count = 0;
  std::uint64_t clique_stride = 0;
  std::uint64_t family_stride = 0;
};

// How a family table lines up with its home clique, made once per run so
// that reading a marginal allocates nothing.
struct FamilyView {
  Node *node = nullptr;
  const Table *clique_table = nullptr;
  std::uint64_t family_size = 0;
  std::vector<FamilyDimension> dimensions;        // the clique's discrete nodes, in its order
  std::vector<std::uint64_t> family_strides;      // the family table's nodes, in its order
  std::vector<double> sums;                       // family_size working cells
  std::vector<const FamilyDimension *> free_dims; // working: dimensions walked
  std::vector<std::uint32_t> counters;            // working: the walk's position
};

// Prepares the view of a discrete chance node in a compiled domain; usage
// when the node's table does not lie in its home clique.
ov_status_t family_view_make(FamilyView &view, Node *node);

// The family's unnormalised joint from the clique into view.sums, with the
// nodes of `fixed` (state per dimension, -1 for free) held at their states;
// cells those states exclude are zero in a propagated clique and are not
// visited. Returns the total of the cells visited.
double family_view_gather(FamilyView &view, const std::int32_t *fixed) noexcept;

// The cell of the family table selected by `state_of(node)` for each of
// its nodes, last node fastest.
template <class StateOf>
std::uint64_t family_cell(const Table *table, const std::vector<std::uint64_t> &strides, StateOf &&state_of) noexcept {
  std::uint64_t cell = 0;
  for (std::uint32_t k = 0; k < strides.size(); ++k)
    cell += static_cast<std::uint64_t>(state_of(table->nodes[k])) * strides[k];
  return cell;
}

} // namespace orvel
