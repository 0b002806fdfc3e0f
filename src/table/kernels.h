// The kernel functions of the table algebra. Each walks the dimensions left
// in its call: first the shared ones (the source advances one cell per
// shared step, as the source is visited in its own order), then the inner
// ones (a block under one source cell), with the innermost loop over a fixed
// stride.
#pragma once

#include <cstdint>

#include "table/parallel.h"

namespace orvel {

// target *= source.
void kernel_multiply(const KernelCall &call);
// target_utility += source: utilities add where probabilities multiply.
void kernel_add(const KernelCall &call);
// target /= source, never dividing by 0: one-to-one cells are divided only
// by a divisor above 0; a block with no shared dimension is scaled only for
// a divisor above 0; a block under a shared cell is skipped only for a
// divisor equal to 0. Blocks are scaled by the reciprocal.
void kernel_divide(const KernelCall &call);

// source_values[j] = sum of the target cells under source cell j, in a
// double accumulator.
void kernel_sum(const KernelCall &call);
// source_values[j] = greatest target cell under source cell j (a float,
// held in the double vector).
void kernel_max(const KernelCall &call);
// As kernel_sum and kernel_max, with each cell multiplied by the weights of
// the inner dimensions that have them.
void kernel_weighted_sum(const KernelCall &call);
void kernel_weighted_max(const KernelCall &call);
// The same operations over every cell of a small target by its cell map
// (map[i]: the source cell of target cell i), for n target cells. The
// marginals add to (or raise) `values` as they stand, each value seeing its
// cells in the target's order.
void map_multiply(ov_number_t *target, const ov_number_t *source, const std::uint16_t *map, Size n) noexcept;
void map_sum(const ov_number_t *target, const std::uint16_t *map, Size n, double *values) noexcept;
void map_max(const ov_number_t *target, const std::uint16_t *map, Size n, double *values) noexcept;

// Influence-diagram marginal: source_values[j] gets the probability summed
// over dimensions with sum_flag 1 and maximised over the others, and
// source_values[size + j] the utility weighted by its probability, summed
// or maximised in the same way.
void kernel_influence(const KernelCall &call);

// Sum marginal with the conditional Gaussian part: the weights go to
// source_values, the CG data of the configurations under each source cell
// is merged into the source's CG data by moment matching (work_vector: the
// source's continuous_count doubles).
void kernel_cg_sum(const KernelCall &call);

} // namespace orvel
