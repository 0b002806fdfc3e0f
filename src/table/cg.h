// The conditional Gaussian part of the table algebra.
//
// Within a configuration, a head (role 0) has a mean and covariances with
// the other heads; a head's entry with a tail (role 1) is the regression
// coefficient on that tail. Roles -1 ("old" head) and -2 ("new" head) stand
// only while a multiplication composes two regressions.
#pragma once

#include <cstdint>

#include "model/forward.h"
#include "orvel.h"
#include "table/plan.h"

namespace orvel {

// Roles that stand only within cg_multiply.
constexpr std::int8_t cg_old_head = -1; // stored byte 255
constexpr std::int8_t cg_new_head = -2; // stored byte 254

// Below this share of the sum of absolute terms a result is taken as
// cancellation: about 225 units of double rounding.
constexpr double cg_cancellation = 4.9960036108132044e-14;

// start + sum over k of b[k] times entry (row, heads[k]) of the
// configuration; exactly 0.0 when the result is at most cg_cancellation
// times the sum of the absolute terms (starting from |start|).
double cg_dot(const double *configuration, std::uint32_t row, const std::uint32_t *heads, const double *b,
              std::uint32_t count, double start) noexcept;

// Composes the regressions of one configuration: each new head with
// coefficients on old heads takes on their distribution. `roles` are the
// table's roles during the multiplication; `values` needs 2c doubles and
// `heads` c indices for c continuous nodes.
void cg_substitute(double *configuration, const std::int8_t *roles, std::uint32_t c, double *values,
                   std::uint32_t *heads) noexcept;

// Merges the source's CG part into the target's (the last step of
// table_multiply_into). Success at once if the source has no continuous
// node or no head.
ov_status_t cg_multiply(KernelPlan *plan);

// Which side of two opposing CG tables must be resolved first.
enum class CgResolution { none, fault, target, source };
// A = nodes that are tails in the source and heads in the target, B the
// converse; when both are non-zero one side must be split first.
CgResolution cg_choose_resolution(const KernelPlan *plan) noexcept;

// The CG half of a sum marginal on the plan's tables, for the cases without
// inner dimensions or without dimensions: moves each configuration's CG
// data to the source's layout. Weights go to `values`.
void cg_reduce_one_to_one(const KernelPlan *plan, double *values) noexcept;
// A tail of the source without any non-zero coefficient goes back to unset.
void cg_release_idle_tails(Table *table) noexcept;

} // namespace orvel
