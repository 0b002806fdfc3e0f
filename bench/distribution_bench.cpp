// Table generation's numeric core over 10^6 cells: a Normal model over
// interval states (one interval probability per cell) and a Binomial model
// over a number child (one exact product per cell), each with a parameter
// that changes from one parent configuration to the next.
#include <benchmark/benchmark.h>

#include <cfloat>
#include <cstdint>
#include <vector>

#include "expr/distribution_math.h"

namespace {

using namespace orvel;

constexpr std::int64_t cells = 1000000;

// 100 interval states: (-inf, -4.9), [-4.9, -4.8), ..., [4.9, inf); 10^4
// configurations whose means sweep [-2, 2).
void normal_interval_cells(benchmark::State &state) {
  constexpr int n = 100;
  std::vector<double> cut(n + 1);
  cut[0] = -DBL_MAX;
  for (int i = 1; i < n; ++i) cut[i] = -5 + 0.1 * i;
  cut[n] = DBL_MAX;
  std::vector<double> out(n);
  for (auto _ : state) {
    for (std::int64_t c = 0; c < cells / n; ++c) {
      const double mean = -2 + 4.0 * c / (cells / n);
      for (int i = 0; i < n; ++i) out[i] = normal_interval_probability(mean, 1.5, cut[i], cut[i + 1]);
      benchmark::DoNotOptimize(out.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * cells);
}
BENCHMARK(normal_interval_cells)->Unit(benchmark::kMillisecond);

// trials = range(0), states 0 .. trials; p sweeps (0, 1).
void binomial_cells(benchmark::State &state) {
  const auto trials = static_cast<std::uint32_t>(state.range(0));
  const std::uint32_t n = trials + 1;
  const std::int64_t configurations = cells / n;
  std::vector<double> out(n);
  for (auto _ : state) {
    for (std::int64_t c = 0; c < configurations; ++c) {
      const double p = (c + 0.5) / configurations;
      if (binomial_values(trials, p, n, out.data()) != 0) state.SkipWithError("binomial_values failed");
      benchmark::DoNotOptimize(out.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * configurations * n);
}
BENCHMARK(binomial_cells)->Arg(4)->Arg(20)->Arg(100)->Unit(benchmark::kMillisecond);

// For comparison: the same Binomial over interval states [k, k + 1), each
// cell a difference of incomplete beta ratios.
void binomial_interval_cells(benchmark::State &state) {
  constexpr std::uint32_t trials = 20, n = trials + 1;
  const std::int64_t configurations = cells / n;
  std::vector<double> out(n);
  for (auto _ : state) {
    for (std::int64_t c = 0; c < configurations; ++c) {
      const double p = (c + 0.5) / configurations;
      for (std::uint32_t k = 0; k < n; ++k)
        out[k] = binomial_interval_probability(trials, p, k, k + 1 == n ? DBL_MAX : k + 1.0);
      benchmark::DoNotOptimize(out.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * configurations * n);
}
BENCHMARK(binomial_interval_cells)->Unit(benchmark::kMillisecond);

} // namespace
