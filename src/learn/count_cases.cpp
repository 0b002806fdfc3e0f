// Counting cases. The loops read one 16-bit column per node and stream
// through the cases once; the number of nodes is a template argument for
// the common sizes so that the per-case index arithmetic is straight-line.
#include "learn/count_cases.h"

#include <algorithm>
#include <array>

namespace orvel {

namespace {

// The stored state as an index below `size`, or a value at or above it when
// the case is absent (-1 turns into a large unsigned number).
inline std::uint32_t stored_state(std::int16_t value) noexcept {
  return static_cast<std::uint32_t>(static_cast<std::int32_t>(value));
}

template <std::size_t N, bool Complete, bool Weighted>
void count_fixed(const std::array<const std::int16_t *, N> &columns, const std::array<std::uint32_t, N> &sizes,
                 const float *weights, std::uint32_t cases, double *cells) noexcept {
  std::array<std::size_t, N> stride{};
  stride[N - 1] = 1;
  for (std::size_t i = N - 1; i > 0; --i) stride[i - 1] = stride[i] * sizes[i];
  for (std::uint32_t c = 0; c < cases; ++c) {
    std::size_t index = 0;
    if constexpr (Complete) {
      for (std::size_t i = 0; i < N; ++i) index += stored_state(columns[i][c]) * stride[i];
    } else {
      bool present = true;
      for (std::size_t i = 0; i < N; ++i) {
        const std::uint32_t s = stored_state(columns[i][c]);
        present &= s < sizes[i];
        index += static_cast<std::size_t>(s) * stride[i];
      }
      if (!present) continue;
    }
    if constexpr (Weighted)
      cells[index] += weights[c];
    else
      cells[index] += 1.0;
  }
}

template <std::size_t N>
void count_n(const Domain *domain, const std::vector<Node *> &nodes, bool all_complete, double *cells) noexcept {
  std::array<const std::int16_t *, N> columns{};
  std::array<std::uint32_t, N> sizes{};
  for (std::size_t i = 0; i < N; ++i) {
    columns[i] = nodes[i]->case_states.data();
    sizes[i] = nodes[i]->state_count;
  }
  const float *weights = domain->case_weights.empty() ? nullptr : domain->case_weights.data();
  const std::uint32_t cases = domain->case_count;
  if (all_complete) {
    if (weights != nullptr)
      count_fixed<N, true, true>(columns, sizes, weights, cases, cells);
    else
      count_fixed<N, true, false>(columns, sizes, weights, cases, cells);
  } else {
    if (weights != nullptr)
      count_fixed<N, false, true>(columns, sizes, weights, cases, cells);
    else
      count_fixed<N, false, false>(columns, sizes, weights, cases, cells);
  }
}

void count_general(const Domain *domain, const std::vector<Node *> &nodes, double *cells) noexcept {
  const std::size_t n = nodes.size();
  std::vector<std::size_t> stride(n, 1);
  for (std::size_t i = n - 1; i > 0; --i) stride[i - 1] = stride[i] * nodes[i]->state_count;
  for (std::uint32_t c = 0; c < domain->case_count; ++c) {
    std::size_t index = 0;
    bool present = true;
    for (std::size_t i = 0; i < n && present; ++i) {
      const std::uint32_t s = stored_state(nodes[i]->case_states[c]);
      present = s < nodes[i]->state_count;
      index += static_cast<std::size_t>(s) * stride[i];
    }
    if (present) cells[index] += domain->case_weights.empty() ? 1.0 : domain->case_weights[c];
  }
}

} // namespace

void count_cases_into_table(const Domain *domain, const std::vector<Node *> &nodes, bool all_complete,
                            std::vector<double> &cells) {
  std::size_t size = 1;
  for (const Node *node : nodes) size *= node->state_count;
  cells.assign(size, 0.0);
  double *out = cells.data();
  switch (nodes.size()) {
  case 1: return count_n<1>(domain, nodes, all_complete, out);
  case 2: return count_n<2>(domain, nodes, all_complete, out);
  case 3: return count_n<3>(domain, nodes, all_complete, out);
  case 4: return count_n<4>(domain, nodes, all_complete, out);
  case 5: return count_n<5>(domain, nodes, all_complete, out);
  case 6: return count_n<6>(domain, nodes, all_complete, out);
  case 7: return count_n<7>(domain, nodes, all_complete, out);
  default: return count_general(domain, nodes, out);
  }
}

} // namespace orvel
