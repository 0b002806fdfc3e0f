// The discrete kernels: multiplication, utility addition, division and the
// marginalisations.
#include "table/kernels.h"

#include <limits>

#include "table/table.h"

namespace orvel {

namespace {

using Dim = PlanDimension;

// Calls f(cell) for the first cell of every combination of dims[0..n): the
// blocks of a contiguous run, or single cells when the run is the last
// dimension.
template <class T, class F> inline void for_each_cell(T *t, const Dim *d, std::uint32_t n, F &f) {
  if (n == 0) {
    f(t);
    return;
  }
  const std::uint32_t count = d->count;
  const Size stride = d->stride;
  if (n == 1) {
    // One or two dimensions, the shapes of small tables, as plain loops.
    for (std::uint32_t k = 0; k < count; ++k) f(t + static_cast<std::size_t>(k) * stride);
    return;
  }
  if (n == 2) {
    const std::uint32_t inner_count = d[1].count;
    const Size inner_stride = d[1].stride;
    for (std::uint32_t k = 0; k < count; ++k) {
      T *row = t + static_cast<std::size_t>(k) * stride;
      for (std::uint32_t j = 0; j < inner_count; ++j) f(row + static_cast<std::size_t>(j) * inner_stride);
    }
    return;
  }
  for (std::uint32_t k = 0; k < count; ++k) for_each_cell(t + static_cast<std::size_t>(k) * stride, d + 1, n - 1, f);
}

// Applies op(cell) to every cell of the block spanned by dims[0..n), with
// the innermost loop over its fixed stride.
template <class Op> inline void block_apply(ov_number_t *t, const Dim *d, std::uint32_t n, Op op) {
  if (n == 0) {
    op(*t);
    return;
  }
  const std::uint32_t count = d->count;
  const Size stride = d->stride;
  if (n == 1) {
    if (stride == 1)
      for (std::uint32_t k = 0; k < count; ++k) op(t[k]);
    else
      for (std::uint32_t k = 0; k < count; ++k) op(t[static_cast<std::size_t>(k) * stride]);
    return;
  }
  if (n == 2) {
    // The last two dimensions as two plain loops, so that short innermost
    // runs do not pay a call each.
    const std::uint32_t inner_count = d[1].count;
    const Size inner_stride = d[1].stride;
    for (std::uint32_t k = 0; k < count; ++k) {
      ov_number_t *row = t + static_cast<std::size_t>(k) * stride;
      for (std::uint32_t j = 0; j < inner_count; ++j) op(row[static_cast<std::size_t>(j) * inner_stride]);
    }
    return;
  }
  for (std::uint32_t k = 0; k < count; ++k) block_apply(t + static_cast<std::size_t>(k) * stride, d + 1, n - 1, op);
}

// ---------------------------------------------------------------------------
// Multiplication, addition and division share one walk. An arithmetic
// policy supplies:
//   cell(t, s)          a one-to-one cell;
//   alone(t, d, n, v)   a block with one divisor/factor and no shared dimension;
//   under(t, d, n, v)   a block under one cell of the last shared dimension;
//   run(t, s, count)    a contiguous run (only if contiguous is true).

struct Multiply {
  static constexpr bool contiguous = true;
  static ov_number_t *target(const KernelCall &call) { return call.target_data; }
  static void cell(ov_number_t &t, ov_number_t s) { t *= s; }
  static void alone(ov_number_t *t, const Dim *d, std::uint32_t n, ov_number_t v) {
    block_apply(t, d, n, [v](ov_number_t &x) { x *= v; });
  }
  static void under(ov_number_t *t, const Dim *d, std::uint32_t n, ov_number_t v) { alone(t, d, n, v); }
  // Unrolled four at a time, with a loop for the remainder.
  static void run(ov_number_t *t, const ov_number_t *s, std::uint32_t count) {
    std::uint32_t k = 0;
    for (; k + 4 <= count; k += 4) {
      t[k] *= s[k];
      t[k + 1] *= s[k + 1];
      t[k + 2] *= s[k + 2];
      t[k + 3] *= s[k + 3];
    }
    for (; k < count; ++k) t[k] *= s[k];
  }
};

struct Add {
  static constexpr bool contiguous = false;
  static ov_number_t *target(const KernelCall &call) { return call.target_utility_data; }
  static void cell(ov_number_t &t, ov_number_t s) { t += s; }
  static void alone(ov_number_t *t, const Dim *d, std::uint32_t n, ov_number_t v) {
    block_apply(t, d, n, [v](ov_number_t &x) { x += v; });
  }
  static void under(ov_number_t *t, const Dim *d, std::uint32_t n, ov_number_t v) { alone(t, d, n, v); }
  static void run(ov_number_t *, const ov_number_t *, std::uint32_t) {}
};

struct Divide {
  static constexpr bool contiguous = true;
  static ov_number_t *target(const KernelCall &call) { return call.target_data; }
  // Not above 0 (including NaN): the cell stays.
  static void cell(ov_number_t &t, ov_number_t s) {
    if (s > 0) t = t / s;
  }
  static void scale(ov_number_t *t, const Dim *d, std::uint32_t n, ov_number_t v) {
    const ov_number_t r = 1.0f / v;
    block_apply(t, d, n, [r](ov_number_t &x) { x *= r; });
  }
  static void alone(ov_number_t *t, const Dim *d, std::uint32_t n, ov_number_t v) {
    if (v > 0) scale(t, d, n, v);
  }
  // Only an exact 0 skips the block: a negative divisor, or NaN, scales it.
  static void under(ov_number_t *t, const Dim *d, std::uint32_t n, ov_number_t v) {
    if (!(v == 0)) scale(t, d, n, v);
  }
  // The run form of `under`: each cell has its own divisor.
  static void run(ov_number_t *t, const ov_number_t *s, std::uint32_t count) {
    for (std::uint32_t k = 0; k < count; ++k)
      if (!(s[k] == 0)) t[k] *= 1.0f / s[k];
  }
};

template <class P>
void walk_shared(ov_number_t *t, const ov_number_t *&s, const Dim *d, std::uint32_t shared, std::uint32_t inner) {
  const std::uint32_t count = d->count;
  const Size stride = d->stride;
  if (shared > 1) {
    for (std::uint32_t k = 0; k < count; ++k)
      walk_shared<P>(t + static_cast<std::size_t>(k) * stride, s, d + 1, shared - 1, inner);
    return;
  }
  // The last shared dimension.
  if (inner == 0) {
    if (stride == 1)
      for (std::uint32_t k = 0; k < count; ++k) P::cell(t[k], s[k]);
    else
      for (std::uint32_t k = 0; k < count; ++k) P::cell(t[static_cast<std::size_t>(k) * stride], s[k]);
  } else if (P::contiguous && stride == 1) {
    // The cells of this dimension lie next to each other in the target and
    // in the same order in the source: a vector loop per inner combination.
    const ov_number_t *run = s;
    auto apply = [run, count](ov_number_t *block) { P::run(block, run, count); };
    for_each_cell(t, d + 1, inner, apply);
  } else {
    for (std::uint32_t k = 0; k < count; ++k) P::under(t + static_cast<std::size_t>(k) * stride, d + 1, inner, s[k]);
  }
  s += count;
}

template <class P> void arithmetic_kernel(const KernelCall &call) {
  ov_number_t *t = P::target(call);
  const ov_number_t *s = call.source_data;
  if (call.shared_left == 0) {
    if (call.inner_left == 0)
      P::cell(*t, *s);
    else
      P::alone(t, call.dimensions, call.inner_left, *s);
    return;
  }
  walk_shared<P>(t, s, call.dimensions, call.shared_left, call.inner_left);
}

// ---------------------------------------------------------------------------
// Marginalisation: the target is read, one value per source cell is stored
// into the double vector. A policy supplies:
//   start               the value of an empty accumulation;
//   add(acc, x)         one more cell;
//   block(t, d, n)      the value of a whole block.

struct Sum {
  static constexpr double start = 0.0;
  static void add(double &acc, ov_number_t x) { acc += x; }
  static double block(const ov_number_t *t, const Dim *d, std::uint32_t n) {
    double acc = 0.0;
    accumulate(t, d, n, acc);
    return acc;
  }
  // One accumulator for all cells of the block, in the block's order.
  static void accumulate(const ov_number_t *t, const Dim *d, std::uint32_t n, double &acc) {
    if (n == 0) {
      acc += *t;
      return;
    }
    const std::uint32_t count = d->count;
    const Size stride = d->stride;
    if (n == 1) {
      if (stride == 1)
        for (std::uint32_t k = 0; k < count; ++k) acc += t[k];
      else
        for (std::uint32_t k = 0; k < count; ++k) acc += t[static_cast<std::size_t>(k) * stride];
      return;
    }
    if (n == 2) {
      const std::uint32_t inner_count = d[1].count;
      const Size inner_stride = d[1].stride;
      for (std::uint32_t k = 0; k < count; ++k) {
        const ov_number_t *row = t + static_cast<std::size_t>(k) * stride;
        for (std::uint32_t j = 0; j < inner_count; ++j) acc += row[static_cast<std::size_t>(j) * inner_stride];
      }
      return;
    }
    for (std::uint32_t k = 0; k < count; ++k) accumulate(t + static_cast<std::size_t>(k) * stride, d + 1, n - 1, acc);
  }
};

struct Max {
  static constexpr double start = -std::numeric_limits<double>::infinity();
  static void add(double &acc, ov_number_t x) {
    if (x > acc) acc = x;
  }
  static double block(const ov_number_t *t, const Dim *d, std::uint32_t n) {
    ov_number_t m = -std::numeric_limits<ov_number_t>::infinity();
    block_apply(const_cast<ov_number_t *>(t), d, n, [&m](ov_number_t &x) {
      if (x > m) m = x;
    });
    return m;
  }
};

template <class P>
void marginal_shared(const ov_number_t *t, double *&v, const Dim *d, std::uint32_t shared, std::uint32_t inner) {
  const std::uint32_t count = d->count;
  const Size stride = d->stride;
  if (shared > 1) {
    for (std::uint32_t k = 0; k < count; ++k)
      marginal_shared<P>(t + static_cast<std::size_t>(k) * stride, v, d + 1, shared - 1, inner);
    return;
  }
  if (inner == 0) {
    for (std::uint32_t k = 0; k < count; ++k) v[k] = t[static_cast<std::size_t>(k) * stride];
  } else if (stride == 1) {
    // Accumulate the runs in place: each value still sees its cells in the
    // block's order, from the same start, so the result is that of the
    // per-cell form while the target is read in memory order.
    for (std::uint32_t k = 0; k < count; ++k) v[k] = P::start;
    double *values = v;
    auto add_run = [values, count](const ov_number_t *run) {
      for (std::uint32_t k = 0; k < count; ++k) P::add(values[k], run[k]);
    };
    for_each_cell(t, d + 1, inner, add_run);
  } else {
    for (std::uint32_t k = 0; k < count; ++k) v[k] = P::block(t + static_cast<std::size_t>(k) * stride, d + 1, inner);
  }
  v += count;
}

template <class P> void marginal_kernel(const KernelCall &call) {
  const ov_number_t *t = call.target_data;
  double *v = call.source_values;
  if (call.shared_left == 0) {
    *v = P::block(t, call.dimensions, call.inner_left);
    return;
  }
  marginal_shared<P>(t, v, call.dimensions, call.shared_left, call.inner_left);
}

// ---------------------------------------------------------------------------
// Weighted forms: recursively one dimension at a time, each partial result
// multiplied by the dimension's weight where it has one.

struct WeightedSum {
  static double value(const ov_number_t *t, const Dim *d, std::uint32_t n) {
    if (n == 0) return *t;
    const std::uint32_t count = d->count;
    const Size stride = d->stride;
    const ov_number_t *w = d->weights;
    double acc = 0.0;
    for (std::uint32_t k = 0; k < count; ++k) {
      const ov_number_t *sub = t + static_cast<std::size_t>(k) * stride;
      double x = n == 1 ? static_cast<double>(*sub) : value(sub, d + 1, n - 1);
      acc += w != nullptr ? w[k] * x : x;
    }
    return acc;
  }
};

struct WeightedMax {
  static double value(const ov_number_t *t, const Dim *d, std::uint32_t n) {
    if (n == 0) return *t;
    const std::uint32_t count = d->count;
    const Size stride = d->stride;
    const ov_number_t *w = d->weights;
    double best = -std::numeric_limits<double>::infinity();
    for (std::uint32_t k = 0; k < count; ++k) {
      const ov_number_t *sub = t + static_cast<std::size_t>(k) * stride;
      double x = n == 1 ? static_cast<double>(*sub) : value(sub, d + 1, n - 1);
      if (w != nullptr) x *= w[k];
      if (x > best) best = x;
    }
    return best;
  }
};

template <class P>
void weighted_shared(const ov_number_t *t, double *&v, const Dim *d, std::uint32_t shared, std::uint32_t inner) {
  const std::uint32_t count = d->count;
  const Size stride = d->stride;
  if (shared > 1) {
    for (std::uint32_t k = 0; k < count; ++k)
      weighted_shared<P>(t + static_cast<std::size_t>(k) * stride, v, d + 1, shared - 1, inner);
    return;
  }
  for (std::uint32_t k = 0; k < count; ++k) v[k] = P::value(t + static_cast<std::size_t>(k) * stride, d + 1, inner);
  v += count;
}

template <class P> void weighted_kernel(const KernelCall &call) {
  double *v = call.source_values;
  if (call.shared_left == 0) {
    *v = P::value(call.target_data, call.dimensions, call.inner_left);
    return;
  }
  weighted_shared<P>(call.target_data, v, call.dimensions, call.shared_left, call.inner_left);
}

// ---------------------------------------------------------------------------
// Influence diagrams: probability and probability-weighted utility together.

struct Expectation {
  double p, u;
};

Expectation influence_block(const ov_number_t *t, const ov_number_t *tu, const Dim *d, std::uint32_t n) {
  if (n == 0) return {*t, static_cast<double>(*t) * *tu};
  const std::uint32_t count = d->count;
  const Size stride = d->stride;
  Expectation result{0.0, 0.0};
  for (std::uint32_t k = 0; k < count; ++k) {
    const std::size_t offset = static_cast<std::size_t>(k) * stride;
    Expectation e = influence_block(t + offset, tu + offset, d + 1, n - 1);
    if (d->sum_flag != 0) {
      result.p += e.p;
      result.u += e.u;
    } else if (k == 0) {
      result = e;
    } else {
      // An open decision: the greatest probability, and the utility of the
      // best option.
      if (e.p > result.p) result.p = e.p;
      if (e.u > result.u) result.u = e.u;
    }
  }
  return result;
}

void influence_shared(const ov_number_t *t, const ov_number_t *tu, double *&v, Size half, const Dim *d,
                      std::uint32_t shared, std::uint32_t inner) {
  const std::uint32_t count = d->count;
  const Size stride = d->stride;
  if (shared > 1) {
    for (std::uint32_t k = 0; k < count; ++k) {
      const std::size_t offset = static_cast<std::size_t>(k) * stride;
      influence_shared(t + offset, tu + offset, v, half, d + 1, shared - 1, inner);
    }
    return;
  }
  for (std::uint32_t k = 0; k < count; ++k) {
    const std::size_t offset = static_cast<std::size_t>(k) * stride;
    Expectation e = influence_block(t + offset, tu + offset, d + 1, inner);
    v[k] = e.p;
    v[half + k] = e.u;
  }
  v += count;
}

} // namespace

void map_multiply(ov_number_t *target, const ov_number_t *source, const std::uint16_t *map, Size n) noexcept {
  for (Size i = 0; i < n; ++i) target[i] *= source[map[i]];
}

void map_sum(const ov_number_t *target, const std::uint16_t *map, Size n, double *values) noexcept {
  for (Size i = 0; i < n; ++i) values[map[i]] += target[i];
}

void map_max(const ov_number_t *target, const std::uint16_t *map, Size n, double *values) noexcept {
  for (Size i = 0; i < n; ++i)
    if (target[i] > values[map[i]]) values[map[i]] = target[i];
}

void kernel_multiply(const KernelCall &call) { arithmetic_kernel<Multiply>(call); }
void kernel_add(const KernelCall &call) { arithmetic_kernel<Add>(call); }
void kernel_divide(const KernelCall &call) { arithmetic_kernel<Divide>(call); }
void kernel_sum(const KernelCall &call) { marginal_kernel<Sum>(call); }
void kernel_max(const KernelCall &call) { marginal_kernel<Max>(call); }
void kernel_weighted_sum(const KernelCall &call) { weighted_kernel<WeightedSum>(call); }
void kernel_weighted_max(const KernelCall &call) { weighted_kernel<WeightedMax>(call); }

void kernel_influence(const KernelCall &call) {
  const Size half = call.plan->coarser()->size;
  double *v = call.source_values;
  if (call.shared_left == 0) {
    Expectation e = influence_block(call.target_data, call.target_utility_data, call.dimensions, call.inner_left);
    v[0] = e.p;
    v[half] = e.u;
    return;
  }
  influence_shared(call.target_data, call.target_utility_data, v, half, call.dimensions, call.shared_left,
                   call.inner_left);
}

} // namespace orvel
