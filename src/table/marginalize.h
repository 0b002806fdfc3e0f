// Marginals onto a separator by a kernel plan, and the zeroing of cells
// that disagree with a state: the table walks of propagation.
#pragma once

#include <cstdint>

#include "api/memory.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Targets of at least this many cells are marginalised by one stream
// (stream_marginal) rather than by the kernels, unless several workers run.
constexpr Size stream_threshold = Size{1} << 20;

// Sums (or maximises) the plan's target onto its source's cells, walking
// the target in memory order and scattering into the source's cells by an
// odometer over the target's dimensions, so that a large clique is read as
// one stream whatever the separator. `values` has the source's size;
// `work` has room for three entries per dimension of the plan.
void stream_marginal(const KernelPlan *plan, double *values, bool max, std::uint32_t *work) noexcept;

// Marginalises the plan's target onto its source's cells into the domain's
// scratch vector (doubles), without touching the source: by stream_marginal
// (with `work`) for a large target, by the kernels otherwise, weighted by
// the propagated findings in fast retraction mode. Null on failure.
double *marginal_to_scratch(KernelPlan *plan, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode,
                            std::uint32_t *work);

// Writes the stride of each discrete member of the table (the last one
// fastest) into `strides` and returns it.
const std::uint32_t *discrete_strides(const Table *table, std::uint32_t *strides) noexcept;

// Writes 0 into every cell of the table whose state of member `index` is
// not `state`; `strides` as from discrete_strides.
void zero_other_states(Table *table, const std::uint32_t *strides, std::uint32_t index, std::uint32_t state) noexcept;

} // namespace orvel
