// The operations of the table algebra on prepared plans.
#include "table/algebra.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <vector>

#include "api/error.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/cg.h"
#include "table/kernels.h"
#include "table/parallel.h"
#include "table/table.h"

namespace orvel {

double *ensure_scratch(Domain *domain, Size count) {
  if (count == size_overflow) {
    set_error(ov_error_no_memory);
    return nullptr;
  }
  std::vector<double> &scratch = domain->scratch_values;
  if (scratch.size() < std::max<Size>(count, 1)) {
    try {
      scratch.resize(std::max<Size>(count, 1));
    } catch (const std::bad_alloc &) {
      set_error(ov_error_no_memory);
      return nullptr;
    }
  }
  return scratch.data();
}

void store_scratch(const double *values, Table *table) noexcept {
  ov_number_t *data = table->data.get();
  for (Size i = 0; i < table->size; ++i) data[i] = static_cast<ov_number_t>(values[i]);
}

namespace {

bool domain_is_compressed(const Domain *domain) noexcept {
  return domain->compiled != 0 && forest_is_compressed(domain);
}

// Allocates the data of each given table; the first failure's code.
ov_status_t allocate_all(std::initializer_list<Table *> tables) noexcept {
  for (Table *table : tables)
    if (table != nullptr && !table->data && table_allocate(table) != ov_error_none) return ov_error_code();
  return ov_error_none;
}

// Summing out a decision yields a mean over the options its evidence leaves
// open: the product of the sums of the propagated findings of the decision
// nodes of T that S lacks, which divides the marginal.
void correct_for_decisions(const KernelPlan *plan, double *values) noexcept {
  if (plan->domain->compiled == 0 || !plan->has_dimensions() || !plan->layout->inner_decisions) return;
  const Table *T = plan->finer();
  double product = 1.0;
  for (std::uint32_t i = 0; i < plan->dimension_count; ++i) {
    if (plan->layout->source_places[i] != no_place) continue;
    const Node *node = T->nodes[i];
    const Table *finding = node->propagated_finding;
    if (node->category != ov_category_decision || finding == nullptr || !finding->data) continue;
    double sum = 0.0;
    for (Size k = 0; k < finding->size; ++k) sum += finding->data[k];
    product *= sum;
  }
  if (product == 1.0) return;
  const double factor = 1.0 / product;
  const Size n = plan->coarser()->size;
  for (Size j = 0; j < n; ++j) values[j] *= factor;
}

ov_status_t marginalize_influence(KernelPlan *plan, bool restrict) {
  Table *T = plan->target;
  Table *TU = plan->target_utility;
  Table *S = plan->coarser();
  if (T == nullptr) return fail(ov_error_usage);
  if (allocate_all({T, TU, plan->source, plan->source_utility}) != ov_error_none) return ov_error_code();
  const Size n = S->size;
  double *values = ensure_scratch(plan->domain, size_multiply(2, n));
  if (values == nullptr) return ov_error_code();
  std::fill_n(values, 2 * static_cast<std::size_t>(n), 0.0);
  if (!plan->has_dimensions()) {
    for (Size i = 0; i < n; ++i) {
      values[i] = T->data[i];
      values[n + i] = static_cast<double>(T->data[i]) * TU->data[i];
    }
  } else {
    plan_prepare_summing(plan, restrict);
    ov_status_t status = run_table_kernel(plan, kernel_influence, nullptr, values, 0, 1);
    plan_reset(plan);
    if (status != ov_error_none) return status;
  }
  if (restrict)
    for (Size j = 0; j < n; ++j)
      if (values[j] > 0.0) values[n + j] /= values[j];
  if (plan->source != nullptr) store_scratch(values, plan->source);
  if (plan->source_utility != nullptr) store_scratch(values + n, plan->source_utility);
  return set_error(ov_error_none);
}

ov_status_t marginalize_weighted(KernelPlan *plan, ov_equilibrium_t equilibrium, double *values) {
  const Table *T = plan->target;
  if (!plan->has_dimensions()) {
    for (Size i = 0; i < T->size; ++i) values[i] = T->data[i];
  } else {
    plan_prepare_weighted(plan);
    ov_status_t status = run_table_kernel(
        plan, equilibrium == ov_equilibrium_sum ? kernel_weighted_sum : kernel_weighted_max, nullptr, values, 0, 1);
    plan_reset(plan);
    if (status != ov_error_none) return status;
  }
  store_scratch(values, plan->source);
  return set_error(ov_error_none);
}

ov_status_t marginalize_max(KernelPlan *plan, bool restrict, double *values) {
  const Table *T = plan->target;
  const Size n = plan->source->size;
  std::fill_n(values, n, -std::numeric_limits<double>::infinity());
  if (!plan->has_dimensions()) {
    for (Size i = 0; i < n; ++i) values[i] = T->data[i];
  } else if (!plan->compressed_map.empty() && domain_is_compressed(plan->domain)) {
    // Cells no kept cell reaches are zero, not minus infinity.
    std::fill_n(values, n, 0.0);
    map_max(T->data.get(), plan->compressed_map.data(), T->size, values);
  } else if (const std::uint16_t *map = plan_cell_map(plan, restrict); map != nullptr) {
    map_max(T->data.get(), map, T->size, values);
  } else {
    ov_status_t status = run_shaped_kernel(plan, plan_shape(plan, restrict), kernel_max, nullptr, values, 0, 0);
    if (status != ov_error_none) return status;
  }
  store_scratch(values, plan->source);
  return ov_error_none;
}

ov_status_t marginalize_sum(KernelPlan *plan, bool restrict, double *values) {
  const Table *T = plan->target;
  Table *S = plan->source;
  const Size n = S->size;

  // The source's roles come from the target's; a source without heads keeps
  // only the discrete sum.
  const std::uint32_t c = S->continuous_count;
  std::vector<std::int8_t> saved_roles;
  bool heads = false;
  if (c > 0) {
    saved_roles.assign(S->cg_roles.get(), S->cg_roles.get() + c);
    for (std::uint32_t i = 0; i < c; ++i) {
      S->cg_roles[i] = T->cg_roles[plan->cg_index_map[i]];
      if (S->cg_roles[i] < cg_tail) heads = true;
    }
    if (!heads) std::fill_n(S->cg_roles.get(), c, static_cast<std::int8_t>(cg_unset));
  }
  auto give_up = [&](ov_status_t status) {
    if (c > 0) std::copy(saved_roles.begin(), saved_roles.end(), S->cg_roles.get());
    return status;
  };

  std::fill_n(values, n, 0.0);
  bool inner = false;
  if (!plan->has_dimensions()) {
    if (heads)
      cg_reduce_one_to_one(plan, values);
    else
      for (Size i = 0; i < n; ++i) values[i] = T->data[i];
  } else if (!plan->compressed_map.empty() && domain_is_compressed(plan->domain)) {
    if (heads) return give_up(fail(ov_error_compressed));
    map_sum(T->data.get(), plan->compressed_map.data(), T->size, values);
  } else if (const std::uint16_t *map = plan_cell_map(plan, restrict); map != nullptr && !heads) {
    map_sum(T->data.get(), map, T->size, values);
  } else {
    const PlanShape &shape = plan_shape(plan, restrict);
    inner = shape.inner_count > 0;
    ov_status_t status = heads ? run_shaped_kernel(plan, shape, kernel_cg_sum, nullptr, values, c, 2 * S->cg_stride)
                               : run_shaped_kernel(plan, shape, kernel_sum, nullptr, values, 0, 0);
    if (status != ov_error_none) return give_up(status);
  }
  correct_for_decisions(plan, values);
  store_scratch(values, S);
  if (heads && !inner) cg_release_idle_tails(S);
  return ov_error_none;
}

} // namespace

ov_status_t table_marginalize(KernelPlan *plan, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode, bool restrict) {
  if (plan == nullptr) return fail(ov_error_usage);
  if (plan->target_utility != nullptr) return marginalize_influence(plan, restrict);
  Table *T = plan->target;
  Table *S = plan->source;
  if (T == nullptr || S == nullptr) return fail(ov_error_usage);
  if (allocate_all({T, S}) != ov_error_none) return ov_error_code();
  double *values = ensure_scratch(plan->domain, S->size);
  if (values == nullptr) return ov_error_code();
  if (mode == ov_mode_fast_retraction) return marginalize_weighted(plan, equilibrium, values);
  if (equilibrium != ov_equilibrium_sum) return marginalize_max(plan, restrict, values);
  return marginalize_sum(plan, restrict, values);
}

ov_status_t table_multiply_into(KernelPlan *plan, bool restrict) {
  if (plan == nullptr) return fail(ov_error_usage);
  Domain *domain = plan->domain;
  const bool compressed = !plan->compressed_map.empty() && domain_is_compressed(domain);

  // Utilities add where probabilities multiply.
  if (plan->source_utility != nullptr) {
    Table *TU = plan->target_utility;
    Table *SU = plan->source_utility;
    if (TU == nullptr) return fail(ov_error_usage);
    if (allocate_all({TU, SU}) != ov_error_none) return ov_error_code();
    if (!plan->has_dimensions()) {
      for (Size i = 0; i < TU->size; ++i) TU->data[i] += SU->data[i];
    } else if (compressed) {
      for (Size i = 0; i < TU->size; ++i) TU->data[i] += SU->data[plan->compressed_map[i]];
    } else {
      ov_status_t status = run_shaped_kernel(plan, plan_shape(plan, false), kernel_add, SU->data.get(), nullptr, 0, 0);
      if (status != ov_error_none) return status;
    }
  }
  if (plan->source == nullptr) return ov_error_none;
  Table *T = plan->target;
  Table *S = plan->source;
  if (T == nullptr) return fail(ov_error_usage);
  if (allocate_all({T, S}) != ov_error_none) return ov_error_code();

  if (!plan->has_dimensions()) {
    for (Size i = 0; i < T->size; ++i) T->data[i] *= S->data[i];
  } else if (compressed) {
    if (T->discrete_count == 0)
      T->data[0] *= S->data[0];
    else
      map_multiply(T->data.get(), S->data.get(), plan->compressed_map.data(), T->size);
  } else if (const std::uint16_t *map = plan_cell_map(plan, restrict); map != nullptr) {
    map_multiply(T->data.get(), S->data.get(), map, T->size);
  } else {
    ov_status_t status =
        run_shaped_kernel(plan, plan_shape(plan, restrict), kernel_multiply, S->data.get(), nullptr, 0, 0);
    if (status != ov_error_none) return status;
  }
  // Only a table with continuous nodes has a conditional Gaussian part.
  return plan->source->continuous_count == 0 ? ov_error_none : cg_multiply(plan);
}

ov_status_t table_divide_into(KernelPlan *plan) {
  if (plan == nullptr) return fail(ov_error_usage);
  if (domain_is_compressed(plan->domain)) return fail(ov_error_compressed);
  Table *T = plan->target;
  Table *S = plan->source;
  if (T == nullptr || S == nullptr) return fail(ov_error_usage);
  if (allocate_all({T, S}) != ov_error_none) return ov_error_code();
  if (!plan->has_dimensions()) {
    for (Size i = 0; i < T->size; ++i)
      if (S->data[i] > 0) T->data[i] = T->data[i] / S->data[i];
    return set_error(ov_error_none);
  }
  plan_prepare(plan, false);
  ov_status_t status = run_table_kernel(plan, kernel_divide, S->data.get(), nullptr, 0, 0);
  plan_reset(plan);
  if (status != ov_error_none) return status;
  return set_error(ov_error_none);
}

ov_status_t table_normalize_runs(Table *table, Size run_length, bool strict) {
  if (table == nullptr || run_length == 0 || table->size == size_overflow || table->size % run_length != 0)
    return fail(ov_error_usage);
  if (table_allocate(table) != ov_error_none) return ov_error_code();
  ov_number_t *data = table->data.get();
  const Size size = table->size;
  auto run_sum = [&](Size start) {
    double sum = 0.0;
    for (Size k = 0; k < run_length; ++k) sum += data[start + k];
    return sum;
  };
  // A negative number anywhere is reported before a run that cannot be
  // scaled, so the strict check sums the runs in the same pass and keeps
  // the first run's fault until every number has been seen. A run that
  // holds an infinite number has no distribution to scale to: scaling
  // would turn it into not-a-number.
  if (strict) {
    ov_error_t run_fault = ov_error_none;
    for (Size start = 0; start < size; start += run_length) {
      double sum = 0.0;
      for (Size k = 0; k < run_length; ++k) {
        const ov_number_t value = data[start + k];
        if (value < 0) return fail(ov_error_negative_probability);
        sum += value;
      }
      if (run_fault == ov_error_none && !(sum > 0.0)) run_fault = ov_error_zero_sum;
      if (run_fault == ov_error_none && !std::isfinite(sum)) run_fault = ov_error_overflow;
    }
    if (run_fault != ov_error_none) return fail(run_fault);
  } else {
    for (Size i = 0; i < size; ++i)
      if (data[i] < 0) return fail(ov_error_negative_probability);
  }
  for (Size start = 0; start < size; start += run_length) {
    const double sum = run_sum(start);
    if (sum > 0.0 && std::isfinite(sum)) {
      const double factor = 1.0 / sum;
      for (Size k = 0; k < run_length; ++k) data[start + k] = static_cast<ov_number_t>(data[start + k] * factor);
    } else {
      const ov_number_t uniform = static_cast<ov_number_t>(1.0 / run_length);
      for (Size k = 0; k < run_length; ++k) data[start + k] = uniform;
    }
  }
  return set_error(ov_error_none);
}

ov_status_t table_normalize(Table *table) {
  if (table == nullptr) return fail(ov_error_usage);
  return table_normalize_runs(table, table->size, true);
}

namespace {

// A plan with each table in the place of its kind.
KernelPlan *plan_for_pair(Table *finer, Table *coarser) {
  if (finer == nullptr || coarser == nullptr) {
    set_error(ov_error_usage);
    return nullptr;
  }
  const bool finer_utility = finer->value_kind == ov_table_kind_utility;
  const bool coarser_utility = coarser->value_kind == ov_table_kind_utility;
  return plan_new(finer_utility ? nullptr : finer, finer_utility ? finer : nullptr, coarser_utility ? nullptr : coarser,
                  coarser_utility ? coarser : nullptr);
}

// Runs `operation` on a plan made for the pair and deletes the plan.
template <class F> ov_status_t with_plan(Table *finer, Table *coarser, F &&operation) {
  KernelPlan *plan = plan_for_pair(finer, coarser);
  if (plan == nullptr) return ov_error_code();
  ov_status_t status;
  try {
    status = operation(plan);
  } catch (...) {
    plan_delete(plan);
    throw;
  }
  plan_delete(plan);
  return set_error(status);
}

} // namespace

ov_status_t marginalize_tables(Table *finer, Table *coarser, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode,
                               bool restrict) {
  return with_plan(finer, coarser,
                   [&](KernelPlan *plan) { return table_marginalize(plan, equilibrium, mode, restrict); });
}

ov_status_t multiply_tables(Table *finer, Table *coarser) {
  return with_plan(finer, coarser, [](KernelPlan *plan) { return table_multiply_into(plan, false); });
}

ov_status_t divide_tables(Table *finer, Table *coarser) {
  return with_plan(finer, coarser, [](KernelPlan *plan) { return table_divide_into(plan); });
}

Table *marginal_of(Table *table, const NodeList &nodes, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode,
                   bool restrict) {
  if (table == nullptr) {
    set_error(ov_error_usage);
    return nullptr;
  }
  if (nodes == table->nodes) {
    Table *copy = table_clone(table);
    if (copy == nullptr) return nullptr;
    copy->role = role_returned;
    return table_detach(copy);
  }
  Table *result = table_new(table->domain, nodes.data(), table->value_kind, role_returned, false, true);
  if (result == nullptr) return nullptr;
  ov_status_t status;
  try {
    status = marginalize_tables(table, result, equilibrium, mode, restrict);
  } catch (...) {
    table_delete(result);
    throw;
  }
  if (status != ov_error_none) {
    table_delete(result);
    set_error(status);
    return nullptr;
  }
  return table_detach(result);
}

} // namespace orvel
