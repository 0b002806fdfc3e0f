// Conditional Gaussian data in the algebra: the sum marginal by moment
// matching, the merge of a source's CG part into a target's, and the
// composition of regressions.
#include "table/cg.h"

#include <cmath>
#include <vector>

#include "api/error.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/kernels.h"
#include "table/table.h"

namespace orvel {

namespace {

using Dim = PlanDimension;

bool is_head(std::int8_t role) noexcept { return role < cg_tail; }

// Moves one configuration of T's CG data to S's layout through the map.
void move_configuration(const double *from, double *to, const std::uint32_t *map, std::uint32_t c) noexcept {
  for (std::uint32_t i = 0; i < c; ++i) {
    to[cg_mean_offset(i)] = from[cg_mean_offset(map[i])];
    for (std::uint32_t j = 0; j <= i; ++j) to[cg_entry_offset(i, j)] = from[cg_entry_offset(map[i], map[j])];
  }
}

// Calls f(cell, configuration) for every target cell of the block spanned by
// dims[0..n), with its CG data (`width` doubles per cell).
template <class F>
void for_each_configuration(const ov_number_t *t, const double *cg, Size width, const Dim *d, std::uint32_t n, F &f) {
  if (n == 0) {
    f(*t, cg);
    return;
  }
  for (std::uint32_t k = 0; k < d->count; ++k) {
    const std::size_t offset = static_cast<std::size_t>(k) * d->stride;
    for_each_configuration(t + offset, cg + offset * width, width, d + 1, n - 1, f);
  }
}

// The moment-matching merge of all configurations under one source cell:
// the weight is their total probability; means and all other entries are
// probability-weighted averages, and the covariance of two heads also gets
// the spread of the means. Configurations that all have probability 0 are
// merged with equal weights, so that the result stays defined.
struct MergeContext {
  const std::uint32_t *map;
  const std::int8_t *roles; // the source's
  std::uint32_t c;          // the source's continuous nodes
  Size target_width, source_width;
  double *deviation; // c doubles, private to the call
};

void merge_block(const MergeContext &m, const ov_number_t *t, const double *tcg, const Dim *d, std::uint32_t n,
                 double *weight, double *scg) {
  // The weight, summed in the block's order as the plain sum does.
  double total = 0.0;
  std::uint32_t count = 0;
  auto sum = [&](ov_number_t cell, const double *) {
    total += cell;
    ++count;
  };
  for_each_configuration(t, tcg, m.target_width, d, n, sum);
  *weight = total;
  const bool uniform = !(total > 0.0);
  const double norm = uniform ? static_cast<double>(count) : total;

  for (Size e = 0; e < m.source_width; ++e) scg[e] = 0.0;
  auto average = [&](ov_number_t cell, const double *from) {
    const double w = (uniform ? 1.0 : static_cast<double>(cell)) / norm;
    if (w == 0.0) return;
    for (std::uint32_t i = 0; i < m.c; ++i) {
      scg[cg_mean_offset(i)] += w * from[cg_mean_offset(m.map[i])];
      for (std::uint32_t j = 0; j <= i; ++j)
        scg[cg_entry_offset(i, j)] += w * from[cg_entry_offset(m.map[i], m.map[j])];
    }
  };
  for_each_configuration(t, tcg, m.target_width, d, n, average);

  auto spread = [&](ov_number_t cell, const double *from) {
    const double w = (uniform ? 1.0 : static_cast<double>(cell)) / norm;
    if (w == 0.0) return;
    for (std::uint32_t i = 0; i < m.c; ++i)
      m.deviation[i] = is_head(m.roles[i]) ? from[cg_mean_offset(m.map[i])] - scg[cg_mean_offset(i)] : 0.0;
    for (std::uint32_t i = 0; i < m.c; ++i) {
      if (!is_head(m.roles[i])) continue;
      for (std::uint32_t j = 0; j <= i; ++j)
        if (is_head(m.roles[j])) scg[cg_entry_offset(i, j)] += w * m.deviation[i] * m.deviation[j];
    }
  };
  for_each_configuration(t, tcg, m.target_width, d, n, spread);
}

void cg_shared(const MergeContext &m, const ov_number_t *t, const double *tcg, double *&v, double *&scg, const Dim *d,
               std::uint32_t shared, std::uint32_t inner) {
  const std::uint32_t count = d->count;
  const Size stride = d->stride;
  if (shared > 1) {
    for (std::uint32_t k = 0; k < count; ++k) {
      const std::size_t offset = static_cast<std::size_t>(k) * stride;
      cg_shared(m, t + offset, tcg + offset * m.target_width, v, scg, d + 1, shared - 1, inner);
    }
    return;
  }
  for (std::uint32_t k = 0; k < count; ++k) {
    const std::size_t offset = static_cast<std::size_t>(k) * stride;
    if (inner == 0) {
      v[k] = t[offset];
      move_configuration(tcg + offset * m.target_width, scg + static_cast<std::size_t>(k) * m.source_width, m.map, m.c);
    } else {
      merge_block(m, t + offset, tcg + offset * m.target_width, d + 1, inner, v + k,
                  scg + static_cast<std::size_t>(k) * m.source_width);
    }
  }
  v += count;
  scg += static_cast<std::size_t>(count) * m.source_width;
}

} // namespace

void kernel_cg_sum(const KernelCall &call) {
  const Table *T = call.plan->finer();
  const Table *S = call.plan->coarser();
  MergeContext m{call.plan->cg_index_map.data(),
                 S->cg_roles.get(),
                 S->continuous_count,
                 T->cg_stride,
                 S->cg_stride,
                 call.work_vector};
  double *v = call.source_values;
  double *scg = call.source_cg;
  if (call.shared_left == 0) {
    if (call.inner_left == 0) {
      *v = *call.target_data;
      move_configuration(call.target_cg, scg, m.map, m.c);
    } else {
      merge_block(m, call.target_data, call.target_cg, call.dimensions, call.inner_left, v, scg);
    }
    return;
  }
  cg_shared(m, call.target_data, call.target_cg, v, scg, call.dimensions, call.shared_left, call.inner_left);
}

void cg_reduce_one_to_one(const KernelPlan *plan, double *values) noexcept {
  const Table *T = plan->finer();
  Table *S = plan->coarser();
  for (Size i = 0; i < T->size; ++i) {
    values[i] = T->data[i];
    move_configuration(T->cg_data.get() + static_cast<std::size_t>(i) * T->cg_stride,
                       S->cg_data.get() + static_cast<std::size_t>(i) * S->cg_stride, plan->cg_index_map.data(),
                       S->continuous_count);
  }
}

void cg_release_idle_tails(Table *table) noexcept {
  const std::uint32_t c = table->continuous_count;
  for (std::uint32_t i = 0; i < c; ++i) {
    if (table->cg_roles[i] != cg_tail) continue;
    bool used = false;
    for (Size cell = 0; cell < table->size && !used; ++cell) {
      const double *config = table->cg_data.get() + static_cast<std::size_t>(cell) * table->cg_stride;
      for (std::uint32_t j = 0; j < c && !used; ++j)
        if (is_head(table->cg_roles[j]) && config[cg_entry_offset(i, j)] != 0.0) used = true;
    }
    if (!used) table->cg_roles[i] = cg_unset;
  }
}

double cg_dot(const double *configuration, std::uint32_t row, const std::uint32_t *heads, const double *b,
              std::uint32_t count, double start) noexcept {
  double result = start;
  double magnitude = std::fabs(start);
  for (std::uint32_t k = 0; k < count; ++k) {
    const double term = b[k] * configuration[cg_entry_offset(row, heads[k])];
    result += term;
    magnitude += std::fabs(term);
  }
  return std::fabs(result) <= cg_cancellation * magnitude ? 0.0 : result;
}

void cg_substitute(double *configuration, const std::int8_t *roles, std::uint32_t c, double *values,
                   std::uint32_t *heads) noexcept {
  double *b = values;         // coefficients of the current new head on the old heads
  double *added = values + c; // for each node, the variance that its substitution added
  std::uint32_t old_count = 0;
  for (std::uint32_t i = 0; i < c; ++i) {
    added[i] = 0.0;
    if (roles[i] == cg_old_head) heads[old_count++] = i;
  }
  double *config = configuration;
  for (std::uint32_t v = 0; v < c; ++v) {
    if (roles[v] != cg_new_head) continue;
    bool any = false;
    for (std::uint32_t k = 0; k < old_count; ++k) {
      b[k] = config[cg_entry_offset(v, heads[k])];
      if (b[k] != 0.0) any = true;
    }
    if (!any) continue;
    double shift = 0.0;
    for (std::uint32_t k = 0; k < old_count; ++k) shift += config[cg_mean_offset(heads[k])] * b[k];
    config[cg_mean_offset(v)] += shift;
    // Covariances with the old heads, then the coefficients on the tails.
    for (std::uint32_t k = 0; k < old_count; ++k) {
      const std::uint32_t w = heads[k];
      config[cg_entry_offset(w, v)] = cg_dot(config, w, heads, b, old_count, 0.0);
    }
    for (std::uint32_t w = 0; w < c; ++w)
      if (roles[w] == cg_tail)
        config[cg_entry_offset(w, v)] = cg_dot(config, w, heads, b, old_count, config[cg_entry_offset(w, v)]);
    const double d = cg_dot(config, v, heads, b, old_count, 0.0);
    added[v] = d;
    if (d >= 0.0) {
      for (std::uint32_t u = 0; u < v; ++u)
        if (roles[u] == cg_new_head && added[u] > 0.0)
          config[cg_entry_offset(u, v)] = cg_dot(config, u, heads, b, old_count, config[cg_entry_offset(u, v)]);
      config[cg_entry_offset(v, v)] += d;
    }
  }
}

namespace {

// Counts A (tails of S that are heads of T) and B (heads of S that are tails
// of T).
void count_opposing(const KernelPlan *plan, std::uint32_t &a, std::uint32_t &b) noexcept {
  const Table *T = plan->target;
  const Table *S = plan->source;
  a = b = 0;
  for (std::uint32_t i = 0; i < S->continuous_count; ++i) {
    std::int8_t s = S->cg_roles[i], t = T->cg_roles[plan->cg_index_map[i]];
    if (s == cg_tail && is_head(t)) ++a;
    if (is_head(s) && t == cg_tail) ++b;
  }
}

// Whether `table` has, in any configuration, a non-zero entry between a head
// `row` and the node `column`.
bool has_coefficient(const Table *table, std::uint32_t row, std::uint32_t column) noexcept {
  for (Size cell = 0; cell < table->size; ++cell)
    if (table->cg_data[static_cast<std::size_t>(cell) * table->cg_stride + cg_entry_offset(row, column)] != 0.0)
      return true;
  return false;
}

// The CG data of each source configuration over the target configurations
// under it: for each head of S its mean, and its entries with every node of
// S that is set.
struct CopyContext {
  const std::uint32_t *map;
  const std::int8_t *source_roles; // on entry
  std::uint32_t source_count;
  Size target_width, source_width;
};

void copy_configuration(const CopyContext &x, const double *from, double *to) noexcept {
  for (std::uint32_t i = 0; i < x.source_count; ++i) {
    if (!is_head(x.source_roles[i])) continue;
    const std::uint32_t p = x.map[i];
    to[cg_mean_offset(p)] = from[cg_mean_offset(i)];
    for (std::uint32_t k = 0; k < x.source_count; ++k)
      if (x.source_roles[k] != cg_unset) to[cg_entry_offset(p, x.map[k])] = from[cg_entry_offset(i, k)];
  }
}

// Calls f(configuration) for every target configuration of the block
// spanned by dims[0..n).
template <class F> void for_each_cg(double *t, Size width, const Dim *d, std::uint32_t n, F &f) {
  if (n == 0) {
    f(t);
    return;
  }
  for (std::uint32_t k = 0; k < d->count; ++k)
    for_each_cg(t + static_cast<std::size_t>(k) * d->stride * width, width, d + 1, n - 1, f);
}

void copy_walk(const CopyContext &x, double *tcg, const double *&scg, const Dim *d, std::uint32_t shared,
               std::uint32_t inner) {
  if (shared == 0) {
    const double *from = scg;
    auto copy = [&x, from](double *to) { copy_configuration(x, from, to); };
    for_each_cg(tcg, x.target_width, d, inner, copy);
    scg += x.source_width;
    return;
  }
  for (std::uint32_t k = 0; k < d->count; ++k)
    copy_walk(x, tcg + static_cast<std::size_t>(k) * d->stride * x.target_width, scg, d + 1, shared - 1, inner);
}

} // namespace

CgResolution cg_choose_resolution(const KernelPlan *plan) noexcept {
  const Table *T = plan->target;
  const Table *S = plan->source;
  std::uint32_t a = 0, b = 0;
  count_opposing(plan, a, b);
  if (a == 0 || b == 0) return CgResolution::none;
  std::uint32_t target_heads = 0, source_heads = 0;
  for (std::uint32_t i = 0; i < T->continuous_count; ++i)
    if (is_head(T->cg_roles[i])) ++target_heads;
  for (std::uint32_t i = 0; i < S->continuous_count; ++i)
    if (is_head(S->cg_roles[i])) ++source_heads;
  const bool target_only_a = target_heads == a, source_only_b = source_heads == b;
  if (target_only_a && source_only_b) return CgResolution::fault;
  if (target_only_a) return CgResolution::target;
  if (source_only_b) return CgResolution::source;

  // A': nodes of A on which some node of B has a coefficient in S.
  // B': nodes of B on which some node of A has a coefficient in T.
  std::uint32_t a_used = 0, b_used = 0;
  const std::uint32_t *map = plan->cg_index_map.data();
  for (std::uint32_t i = 0; i < S->continuous_count; ++i) {
    std::int8_t s = S->cg_roles[i], t = T->cg_roles[map[i]];
    if (s == cg_tail && is_head(t)) { // i is in A
      bool used = false;
      for (std::uint32_t j = 0; j < S->continuous_count && !used; ++j)
        if (is_head(S->cg_roles[j]) && T->cg_roles[map[j]] == cg_tail && has_coefficient(S, j, i)) used = true;
      if (used) ++a_used;
    } else if (is_head(s) && t == cg_tail) { // i is in B
      bool used = false;
      for (std::uint32_t j = 0; j < S->continuous_count && !used; ++j)
        if (S->cg_roles[j] == cg_tail && is_head(T->cg_roles[map[j]]) && has_coefficient(T, map[j], map[i]))
          used = true;
      if (used) ++b_used;
    }
  }
  if (b_used != 0 && (a_used == 0 || b - b_used < a - a_used)) return CgResolution::target;
  return CgResolution::source;
}

ov_status_t cg_multiply(KernelPlan *plan) {
  Table *T = plan->target;
  Table *S = plan->source;
  const std::uint32_t sc = S->continuous_count, tc = T->continuous_count;
  if (sc == 0) return set_error(ov_error_none);
  bool source_heads = false;
  for (std::uint32_t i = 0; i < sc; ++i)
    if (is_head(S->cg_roles[i])) source_heads = true;
  if (!source_heads) return set_error(ov_error_none);

  std::uint32_t a = 0, b = 0;
  count_opposing(plan, a, b);
  if (a != 0 && b != 0) {
    // The two tables point against each other. Resolving one side needs the
    // conditioning of conditional Gaussian propagation, which this library
    // does not have yet; until then such a product is refused as an
    // internal fault.
    (void)cg_choose_resolution(plan);
    return fail(ov_error_error);
  }

  Buffer<double> values = alloc_array<double>(2 * tc);
  Buffer<std::uint32_t> heads = alloc_array<std::uint32_t>(tc);
  if (!values || !heads) return ov_error_no_memory;
  std::vector<std::int8_t> source_roles(S->cg_roles.get(), S->cg_roles.get() + sc);

  bool target_heads = false;
  std::int8_t *roles = T->cg_roles.get();
  const std::uint32_t *map = plan->cg_index_map.data();
  for (std::uint32_t i = 0; i < tc; ++i)
    if (is_head(roles[i])) {
      target_heads = true;
      roles[i] = a != 0 ? cg_old_head : cg_new_head;
    }
  for (std::uint32_t i = 0; i < sc; ++i) {
    if (is_head(source_roles[i]))
      roles[map[i]] = a != 0 ? cg_new_head : cg_old_head;
    else if (source_roles[i] == cg_tail && roles[map[i]] == cg_unset)
      roles[map[i]] = cg_tail;
  }

  CopyContext x{map, source_roles.data(), sc, T->cg_stride, S->cg_stride};
  if (!plan->has_dimensions()) {
    for (Size i = 0; i < T->size; ++i)
      copy_configuration(x, S->cg_data.get() + static_cast<std::size_t>(i) * S->cg_stride,
                         T->cg_data.get() + static_cast<std::size_t>(i) * T->cg_stride);
  } else {
    plan_reset(plan);
    const double *scg = S->cg_data.get();
    copy_walk(x, T->cg_data.get(), scg, plan->current(), plan->shared_count, plan->inner_count);
  }

  if (target_heads && (a != 0 || b != 0))
    for (Size i = 0; i < T->size; ++i)
      cg_substitute(T->cg_data.get() + static_cast<std::size_t>(i) * T->cg_stride, roles, tc, values.get(),
                    heads.get());

  for (std::uint32_t i = 0; i < tc; ++i)
    if (roles[i] == cg_old_head || roles[i] == cg_new_head) roles[i] = cg_head;
  return set_error(ov_error_none);
}

} // namespace orvel
