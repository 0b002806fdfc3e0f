// Kernel plans: how the cells of a finer table line up with a coarser one.
//
// A plan holds, for each discrete node of the finer table (the target), one
// dimension record. The kernels walk the target by these records with fixed
// strides and never compute an index per cell. The dimension array has two
// halves: the first keeps the target's own order with the strides the nodes
// have in the source; the second is rebuilt before every operation
// (plan_reset) with the source's nodes first, in the source's order, then
// the target's other nodes, and is then trimmed and merged for the one
// operation (plan_prepare and its variants).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "api/memory.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel {

struct PlanDimension {
  std::uint32_t count = 0;              // states in this dimension
  std::uint32_t stride = 0;             // cells of the target per step
  std::uint32_t sum_flag = 0;           // 1 summed, 0 maximised (influence-diagram marginals)
  const ov_number_t *weights = nullptr; // not owned: multiplies along this dimension when summing
};

// The dimension records of a plan, shared by the plans bound to it.
struct PlanLayout {
  // 2n records for the n discrete nodes of the target: the saved order, then
  // the current, merged dimensions.
  std::vector<PlanDimension> dimensions;
  // For each discrete node of the target, in its order: its place in the
  // source's node list, or no_place.
  std::vector<std::uint32_t> source_places;
  // For each discrete node of the target, in its order: its stride in the
  // target.
  std::vector<Size> target_strides;
  // Whether a decision node of the target is missing from the source.
  bool inner_decisions = false;
  // For a small target (at most cell_map_limit cells): each target cell's
  // cell in the source, so that the kernels of small tables are one plain
  // loop without any walk set-up. Empty for larger targets.
  std::vector<std::uint16_t> cell_map;
};

// The largest target that gets a cell map: two bytes per cell, and beyond
// a few thousand cells the strided walks are as fast.
constexpr Size cell_map_limit = 4096;

// A plan's dimensions as plan_prepare shapes them, kept between operations:
// they are merged again only when the concurrency level or the set of
// dimensions that evidence fixes changes.
struct PlanShape {
  std::vector<PlanDimension> dimensions; // room for n; the first shared + inner are in use
  std::uint32_t shared_count = 0;
  std::uint32_t inner_count = 0;
  Size base_offset = 0;
  std::uint64_t fixed = 0; // the target's nodes (by position) dropped as fixed when merged
  std::uint32_t level = 0; // the concurrency level merged for; 0 until merged
};

constexpr std::uint32_t no_place = 0xFFFFFFFFu;

struct KernelPlan {
  std::uint32_t serial = 0; // position on the domain's plan list from 1
  Domain *domain = nullptr;
  Table *target = nullptr;         // the finer table, probability role
  Table *target_utility = nullptr; // optional finer table, utility role
  Table *source = nullptr;         // the coarser table, probability role
  Table *source_utility = nullptr; // optional coarser table, utility role
  // Null for a plan without dimensions (plan_for_tables), whose tables have
  // the same discrete nodes in the same order.
  std::shared_ptr<PlanLayout> layout;
  bool bound = false;                // made by plan_bind: the layout belongs to another plan
  std::uint32_t dimension_count = 0; // n, the discrete nodes of the target
  // For each continuous node of the source, its place among the target's
  // continuous nodes.
  std::vector<std::uint32_t> cg_index_map;
  // The prepared dimensions, without (0) and with (1) fixed dimensions
  // dropped; see plan_shape.
  PlanShape shapes[2];
  std::uint32_t shared_count = 0; // current dimensions that both tables have, outermost
  std::uint32_t inner_count = 0;  // current dimensions of the target alone
  Size base_offset = 0;           // target cells skipped first: fixed states times strides
  // For a compressed domain: for each target cell the cell of the source.
  // Made by domain compression, which is not part of this library yet.
  std::vector<std::uint16_t> compressed_map;

  // The first given table of each pair: T and S of the operations.
  Table *finer() const noexcept { return target != nullptr ? target : target_utility; }
  Table *coarser() const noexcept { return source != nullptr ? source : source_utility; }
  bool has_dimensions() const noexcept { return layout != nullptr; }
  // The current (second-half) dimensions.
  PlanDimension *current() noexcept { return layout ? layout->dimensions.data() + dimension_count : nullptr; }
  const PlanDimension *current() const noexcept {
    return layout ? layout->dimensions.data() + dimension_count : nullptr;
  }
  const PlanDimension *saved() const noexcept { return layout ? layout->dimensions.data() : nullptr; }
};

// A plan from `source`/`source_utility` (coarser) to `target`/`target_utility`
// (finer), linked on the domain's list; null with usage for tables of the
// wrong kind, of differing pairs, of other domains, or whose nodes do not
// nest. Either table of a pair may be null, not both.
KernelPlan *plan_new(Table *target, Table *target_utility, Table *source, Table *source_utility);
// A further plan for tables with the discrete nodes of `plan`'s tables,
// sharing its dimensions.
KernelPlan *plan_bind(KernelPlan *plan, Table *target, Table *source);
// A plan without dimensions for two tables with the same discrete nodes in
// the same order; only the continuous nodes of `source` are mapped.
KernelPlan *plan_for_tables(Table *target, Table *source);
// Unlinks and frees a plan. Null is accepted.
void plan_delete(KernelPlan *plan) noexcept;

// Rebuilds the current dimensions, unmerged, and clears the offset.
void plan_reset(KernelPlan *plan) noexcept;
// Removes the inner dimensions of nodes that evidence has fixed to one
// state; with `with_test` only where that state's propagated finding is 1.0.
void plan_drop_fixed(KernelPlan *plan, bool with_test) noexcept;
// Joins adjacent dimensions where the strides allow, keeping the first
// shared dimension apart where it suits the split over threads.
void plan_merge(KernelPlan *plan) noexcept;
// Joins within `dims[0..n)`; `level` 2 or more protects the first dimension
// as described for plan_merge. Returns the new number of dimensions.
std::uint32_t merge_dimensions(PlanDimension *dims, std::uint32_t n, std::uint32_t level) noexcept;

// plan_reset, plan_drop_fixed without test if `restrict`, plan_merge.
ov_status_t plan_prepare(KernelPlan *plan, bool restrict) noexcept;
// As plan_prepare(no restrict), dropping fixed dimensions only where the
// finding confirms them, and with the propagated findings as weights of the
// inner dimensions of nodes whose finding is not all 1.0.
ov_status_t plan_prepare_weighted(KernelPlan *plan) noexcept;
// As plan_prepare, with sum_flag 1 on the inner dimensions of chance nodes
// and of decision nodes with propagated evidence, 0 on other decisions.
ov_status_t plan_prepare_summing(KernelPlan *plan, bool restrict) noexcept;

// The plan's dimensions prepared as plan_prepare(plan, restrict) would
// leave them, merged only when the concurrency level or the set of fixed
// dimensions has changed since the last call; the plan's own current
// dimensions are not touched. Never allocates.
const PlanShape &plan_shape(KernelPlan *plan, bool restrict) noexcept;

// The cell map of a small target, to run an operation over every cell by;
// null for a larger target, and with `restrict` where evidence fixes an
// inner dimension (the operation reads a slice).
const std::uint16_t *plan_cell_map(const KernelPlan *plan, bool restrict) noexcept;

// Whether a node's propagated finding is other than all 1.0.
bool has_propagated_evidence(const Node *node) noexcept;

} // namespace orvel
