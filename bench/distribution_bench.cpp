// Table generation over 10^6 cells, first its numeric core: a Normal model over
// interval states (one interval probability per cell) and a Binomial model
// over a number child (one exact product per cell), each with a parameter
// that changes from one parent configuration to the next.
#include <benchmark/benchmark.h>

#include <cfloat>
#include <cstdint>
#include <string>
#include <vector>

#include "expr/distribution_math.h"
#include "orvel.h"

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

namespace {

// The same two models generated through the library: ov_node_generate_table
// over a parent with one state per configuration, so that the figure covers
// the walk, the evaluation of the parameters and the result buffer as well
// as the numeric core. Resetting the expression makes the table stale again
// before each generation.
struct GeneratedTable {
  ov_domain_t domain = ov_new_domain();
  ov_node_t child = nullptr;
  ov_model_t model = nullptr;
  std::string expression;

  GeneratedTable(std::uint32_t parent_states, ov_subtype_t child_subtype, const std::vector<double> &child_values,
                 std::string text)
      : expression(std::move(text)) {
    ov_node_t parent = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    ov_node_set_name(parent, "P");
    ov_node_set_number_of_states(parent, parent_states);
    ov_node_set_subtype(parent, ov_subtype_number);
    for (std::uint32_t i = 0; i < parent_states; ++i) ov_node_set_state_value(parent, i, i);
    child = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    ov_node_set_name(child, "C");
    const auto states = static_cast<std::uint32_t>(child_values.size() - (child_subtype == ov_subtype_interval));
    ov_node_set_number_of_states(child, states);
    ov_node_set_subtype(child, child_subtype);
    for (std::uint32_t i = 0; i < child_values.size(); ++i) ov_node_set_state_value(child, i, child_values[i]);
    ov_node_add_parent(child, parent);
    ov_node_t none[] = {nullptr};
    model = ov_node_new_model(child, none);
  }
  ~GeneratedTable() { ov_domain_delete(domain); }
  GeneratedTable(const GeneratedTable &) = delete;
  GeneratedTable &operator=(const GeneratedTable &) = delete;

  bool generate() {
    ov_expression_t parsed = ov_domain_string_to_expression(domain, expression.c_str(), nullptr, nullptr);
    return parsed != nullptr && ov_model_set_expression(model, 0, parsed) == ov_error_none &&
           ov_node_generate_table(child) == ov_error_none;
  }
};

void run_generation(benchmark::State &state, GeneratedTable &table, std::int64_t table_cells) {
  for (auto _ : state) {
    if (!table.generate()) state.SkipWithError("generation failed");
  }
  state.SetItemsProcessed(state.iterations() * table_cells);
}

// 10^4 parent states x 100 interval states of the child.
void generate_normal_table(benchmark::State &state) {
  std::vector<double> cut(101);
  cut[0] = -DBL_MAX;
  for (int i = 1; i < 100; ++i) cut[i] = -5 + 0.1 * i;
  cut[100] = DBL_MAX;
  GeneratedTable table(10000, ov_subtype_interval, cut, "Normal(P / 2500 - 2, 1.5)");
  run_generation(state, table, cells);
}
BENCHMARK(generate_normal_table)->Unit(benchmark::kMillisecond);

// 47,619 parent states x 21 number states 0 .. 20 of the child.
void generate_binomial_table(benchmark::State &state) {
  std::vector<double> values(21);
  for (int i = 0; i < 21; ++i) values[i] = i;
  GeneratedTable table(47619, ov_subtype_number, values, "Binomial(20, (P + 0.5) / 47619)");
  run_generation(state, table, 47619LL * 21);
}
BENCHMARK(generate_binomial_table)->Unit(benchmark::kMillisecond);

} // namespace
