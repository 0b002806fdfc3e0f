// Reading a family's joint from its home clique.
#include "learn/family.h"

#include <algorithm>

#include "api/error.h"
#include "compile/clique.h"
#include "table/table.h"

namespace orvel {

ov_status_t family_view_make(FamilyView &view, Node *node) {
  Table *family = node->table;
  const Clique *clique = node->home_clique;
  if (family == nullptr || clique == nullptr || clique->table == nullptr || family->continuous_count > 0)
    return fail(ov_error_usage);
  const Table *joint = clique->table;
  view.node = node;
  view.clique_table = joint;
  const std::uint32_t n = family->discrete_count;
  view.family_strides.assign(n, 0);
  std::uint64_t stride = 1;
  for (std::uint32_t k = n; k-- > 0;) {
    view.family_strides[k] = stride;
    stride *= family->nodes[k]->state_count;
  }
  view.family_size = stride;
  view.dimensions.assign(joint->discrete_count, FamilyDimension{});
  stride = 1;
  std::uint32_t found = 0;
  for (std::uint32_t k = joint->discrete_count; k-- > 0;) {
    FamilyDimension &d = view.dimensions[k];
    d.node = joint->nodes[k];
    d.count = d.node->state_count;
    d.clique_stride = stride;
    stride *= d.count;
    for (std::uint32_t j = 0; j < n; ++j)
      if (family->nodes[j] == d.node) d.family_stride = view.family_strides[j], ++found;
  }
  if (found != n) return fail(ov_error_usage);
  view.sums.assign(view.family_size, 0.0);
  view.free_dims.reserve(view.dimensions.size());
  view.counters.assign(view.dimensions.size(), 0);
  return ov_error_none;
}

double family_view_gather(FamilyView &view, const std::int32_t *fixed) noexcept {
  std::fill(view.sums.begin(), view.sums.end(), 0.0);
  std::uint64_t clique_cell = 0, family_cell = 0;
  view.free_dims.clear();
  for (std::uint32_t k = 0; k < view.dimensions.size(); ++k) {
    const FamilyDimension &d = view.dimensions[k];
    const std::int32_t state = fixed != nullptr ? fixed[k] : -1;
    if (state >= 0) {
      clique_cell += state * d.clique_stride;
      family_cell += state * d.family_stride;
    } else {
      view.free_dims.push_back(&d);
    }
  }
  const ov_number_t *data = view.clique_table->data.get();
  double *sums = view.sums.data();
  const std::uint32_t n = static_cast<std::uint32_t>(view.free_dims.size());
  double total = 0.0;
  if (n == 0) {
    total = data[clique_cell];
    sums[family_cell] += total;
    return total;
  }
  // An odometer over the free dimensions; the innermost runs as a loop.
  const FamilyDimension &inner = *view.free_dims[n - 1];
  std::uint32_t *counters = view.counters.data();
  std::fill(counters, counters + n, 0u);
  for (;;) {
    std::uint64_t c = clique_cell, f = family_cell;
    for (std::uint32_t s = 0; s < inner.count; ++s, c += inner.clique_stride, f += inner.family_stride) {
      const double v = data[c];
      sums[f] += v;
      total += v;
    }
    std::int32_t k = static_cast<std::int32_t>(n) - 2;
    for (; k >= 0; --k) {
      const FamilyDimension &d = *view.free_dims[k];
      clique_cell += d.clique_stride;
      family_cell += d.family_stride;
      if (++counters[k] < d.count) break;
      clique_cell -= d.clique_stride * d.count;
      family_cell -= d.family_stride * d.count;
      counters[k] = 0;
    }
    if (k < 0) break;
  }
  return total;
}

} // namespace orvel
