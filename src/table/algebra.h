// The table algebra: marginalising a finer table onto a coarser one,
// multiplying the coarser into the finer, dividing it out, normalising.
//
// "Target" is always the table with all the nodes (the finer one) and
// "source" the coarser, whichever way the numbers flow. Every operation
// prepares the plan's dimensions for itself and leaves them reset.
#pragma once

#include <cstdint>

#include "api/memory.h"
#include "model/forward.h"
#include "model/node_list.h"
#include "orvel.h"
#include "table/plan.h"

namespace orvel {

// The domain's double scratch vector with room for at least `count`
// elements; it grows and never shrinks. Null with no_memory.
double *ensure_scratch(Domain *domain, Size count);
// Moves `values` into the table's data: each double rounded to float.
void store_scratch(const double *values, Table *table) noexcept;

// Sums (sum equilibrium) or maximises (max equilibrium) the plan's target
// onto its source. With a utility target, the influence-diagram form: the
// source gets probabilities, the utility source expected utilities. In fast
// retraction mode the propagated findings weigh the summed-out dimensions.
// With `restrict`, dimensions of nodes fixed by evidence are read as one
// slice.
ov_status_t table_marginalize(KernelPlan *plan, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode, bool restrict);
// Multiplies the source into the target (adding utilities where both have
// them), including the conditional Gaussian part. With `restrict`, the
// cells of states that hard evidence excludes are left alone.
ov_status_t table_multiply_into(KernelPlan *plan, bool restrict);
// Divides the target by the source without ever dividing by 0: 0/0 gives 0
// and x/0 leaves x.
ov_status_t table_divide_into(KernelPlan *plan);

// Scales the table so that its cells sum to one. A negative cell gives
// negative_probability, a sum of 0 gives zero_sum; the table is then left
// as it was.
ov_status_t table_normalize(Table *table);
// Scales each run of `run_length` consecutive cells to sum one. A run that
// sums to 0 fails with zero_sum when `strict`, otherwise becomes uniform.
// A negative cell gives negative_probability before any change.
ov_status_t table_normalize_runs(Table *table, Size run_length, bool strict);

// Shorthand forms: a plan for the two tables, the operation, the plan
// deleted. Probability tables take the probability places of the plan,
// utility tables the utility places.
ov_status_t marginalize_tables(Table *finer, Table *coarser, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode,
                               bool restrict);
ov_status_t multiply_tables(Table *finer, Table *coarser);
ov_status_t divide_tables(Table *finer, Table *coarser);
// A new detached table of role 1 over `nodes` (discrete nodes first)
// holding the marginal of `table`; a copy if the lists are equal. The caller
// deletes it with table_delete. Null on failure.
Table *marginal_of(Table *table, const NodeList &nodes, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode,
                   bool restrict);

} // namespace orvel
