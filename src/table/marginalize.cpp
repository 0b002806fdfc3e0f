// Marginals onto a separator by a kernel plan, and the zeroing of cells
// that disagree with a state: the table walks of propagation.
#include "table/marginalize.h"

#include <algorithm>
#include <limits>

#include "model/domain.h"
#include "model/node.h"
#include "table/algebra.h"
#include "table/kernels.h"
#include "table/parallel.h"
#include "table/plan.h"
#include "table/table.h"

namespace orvel {

namespace {

// The sum of a run of cells in double precision. Four running sums break
// the chain of dependent additions on long runs.
inline double run_sum(const ov_number_t *t, std::uint32_t count) noexcept {
  if (count < 16) {
    double acc = 0.0;
    for (std::uint32_t k = 0; k < count; ++k) acc += t[k];
    return acc;
  }
  double a[4] = {0.0, 0.0, 0.0, 0.0};
  std::uint32_t k = 0;
  for (; k + 4 <= count; k += 4)
    for (std::uint32_t j = 0; j < 4; ++j) a[j] += t[k + j];
  for (; k < count; ++k) a[0] += t[k];
  return (a[0] + a[1]) + (a[2] + a[3]);
}

// The greatest cell of a run, at least 0.
inline double run_max(const ov_number_t *t, std::uint32_t count) noexcept {
  ov_number_t best = 0.0f;
  for (std::uint32_t k = 0; k < count; ++k) best = std::max(best, t[k]);
  return best;
}

} // namespace

void stream_marginal(const KernelPlan *plan, double *values, bool max, std::uint32_t *work) noexcept {
  const Table *T = plan->target;
  const Size n = plan->source->size;
  std::fill_n(values, n, 0.0);
  const PlanDimension *saved = plan->saved(); // target order: count, stride in the source
  const std::uint32_t d = plan->dimension_count;
  std::uint32_t *counts = work, *strides = work + d, *state = work + 2 * d;
  // Merge neighbours that step alike in the source.
  std::uint32_t m = 0;
  for (std::uint32_t i = 0; i < d; ++i) {
    const std::uint32_t count = saved[i].count, stride = saved[i].stride;
    if (m > 0 && ((stride == 0 && strides[m - 1] == 0) || (stride != 0 && strides[m - 1] == stride * count))) {
      counts[m - 1] *= count;
      strides[m - 1] = stride;
    } else {
      counts[m] = count;
      strides[m] = stride;
      ++m;
    }
  }
  // The innermost dimension is read as runs; the one before it, if any, is
  // walked inside the same step so that the odometer moves once per block.
  const ov_number_t *t = T->data.get();
  const std::uint32_t last_count = m == 0 ? 1 : counts[m - 1];
  const std::uint32_t last_stride = m == 0 ? 0 : strides[m - 1];
  const std::uint32_t rows = m < 2 ? 1 : counts[m - 2];
  const std::uint32_t row_stride = m < 2 ? 0 : strides[m - 2];
  const std::uint32_t outer = m < 2 ? 0 : m - 2;
  const Size block = static_cast<Size>(rows) * last_count;
  std::fill_n(state, outer, 0u);
  Size base = 0;
  for (Size done = 0; done < T->size; done += block) {
    for (std::uint32_t r = 0; r < rows; ++r, t += last_count) {
      double *v = values + base + static_cast<Size>(r) * row_stride;
      if (last_stride == 0) {
        *v = max ? std::max(*v, run_max(t, last_count)) : *v + run_sum(t, last_count);
      } else if (max) {
        for (std::uint32_t k = 0; k < last_count; ++k)
          v[k * last_stride] = std::max(v[k * last_stride], static_cast<double>(t[k]));
      } else if (last_stride == 1) {
        for (std::uint32_t k = 0; k < last_count; ++k) v[k] += t[k];
      } else {
        for (std::uint32_t k = 0; k < last_count; ++k) v[k * last_stride] += t[k];
      }
    }
    for (std::uint32_t i = outer; i-- > 0;) {
      base += strides[i];
      if (++state[i] < counts[i]) break;
      base -= static_cast<Size>(strides[i]) * counts[i];
      state[i] = 0;
    }
  }
}

double *marginal_to_scratch(KernelPlan *plan, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode,
                            std::uint32_t *work) {
  const Table *T = plan->target;
  const Size n = plan->source->size;
  double *values = ensure_scratch(plan->domain, n);
  if (values == nullptr) return nullptr;
  if (T->discrete_count == 0) {
    values[0] = T->data[0];
    return values;
  }
  if (!plan->compressed_map.empty()) {
    // A compressed clique: its kept cells through the map, without threads.
    const std::uint16_t *map = plan->compressed_map.data();
    const ov_number_t *t = T->data.get();
    std::fill_n(values, n, 0.0);
    if (equilibrium == ov_equilibrium_sum) {
      map_sum(t, map, T->size, values);
    } else {
      map_max(t, map, T->size, values);
    }
    return values;
  }
  // Tables that do not fit in cache are read as one stream; smaller ones go
  // through the kernels, whose fixed strides suit them better.
  if (mode != ov_mode_fast_retraction && plan->domain->concurrency_level < 2 && T->size >= stream_threshold) {
    stream_marginal(plan, values, equilibrium != ov_equilibrium_sum, work);
    return values;
  }
  if (const std::uint16_t *map = plan_cell_map(plan, false); map != nullptr && mode != ov_mode_fast_retraction) {
    if (equilibrium == ov_equilibrium_sum) {
      std::fill_n(values, n, 0.0);
      map_sum(T->data.get(), map, T->size, values);
    } else {
      std::fill_n(values, n, -std::numeric_limits<double>::infinity());
      map_max(T->data.get(), map, T->size, values);
    }
    return values;
  }
  ov_status_t status;
  if (mode == ov_mode_fast_retraction) {
    // The weights follow the propagated findings, so this form is shaped anew each time.
    plan_prepare_weighted(plan);
    status = run_table_kernel(plan, equilibrium == ov_equilibrium_sum ? kernel_weighted_sum : kernel_weighted_max,
                              nullptr, values, 0, 0);
    plan_reset(plan);
  } else {
    status = run_shaped_kernel(plan, plan_shape(plan, false),
                               equilibrium == ov_equilibrium_sum ? kernel_sum : kernel_max, nullptr, values, 0, 0);
  }
  return status == ov_error_none ? values : nullptr;
}

const std::uint32_t *discrete_strides(const Table *table, std::uint32_t *strides) noexcept {
  std::uint32_t stride = 1;
  for (std::uint32_t i = table->discrete_count; i-- > 0;) {
    strides[i] = stride;
    stride *= table->nodes[i]->state_count;
  }
  return strides;
}

void zero_other_states(Table *table, const std::uint32_t *strides, std::uint32_t index, std::uint32_t state) noexcept {
  const std::size_t stride = strides[index];
  const std::uint32_t count = table->nodes[index]->state_count;
  const std::size_t block = stride * count;
  ov_number_t *data = table->data.get();
  for (std::size_t base = 0; base < table->size; base += block)
    for (std::uint32_t j = 0; j < count; ++j)
      if (j != state) std::fill_n(data + base + j * stride, stride, 0.0f);
}

} // namespace orvel
