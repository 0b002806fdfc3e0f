// Marginalisation and multiplication on a clique-sized table of 2^20 cells,
// sequentially and with two workers.
#include <benchmark/benchmark.h>

#include <random>

#include "model/domain.h"
#include "model/node.h"
#include "table/algebra.h"
#include "table/plan.h"
#include "table/table.h"

namespace {

using namespace orvel;

// Twenty binary nodes; the coarse table keeps every other one, so that both
// shared and inner dimensions are interleaved.
struct Clique {
  ov_domain_t domain = ov_new_domain();
  Table *fine = nullptr, *coarse = nullptr;
  KernelPlan *plan = nullptr;

  explicit Clique(std::uint32_t level) {
    domain->concurrency_level = level;
    NodeList all, half;
    for (int i = 0; i < 20; ++i) {
      Node *node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
      node->state_count = 2;
      all.push_back(node);
      if (i % 2 == 0) half.push_back(node);
    }
    fine = table_new(domain, all.data(), ov_table_kind_probability, role_returned, false, true);
    coarse = table_new(domain, half.data(), ov_table_kind_probability, role_returned, false, true);
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> u(0.5f, 1.5f);
    for (Size i = 0; i < fine->size; ++i) fine->data[i] = u(rng);
    for (Size i = 0; i < coarse->size; ++i) coarse->data[i] = u(rng);
    plan = plan_new(fine, nullptr, coarse, nullptr);
  }
  ~Clique() { ov_domain_delete(domain); }
};

void marginalize(benchmark::State &state) {
  Clique c(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    table_marginalize(c.plan, ov_equilibrium_sum, ov_mode_normal, false);
    benchmark::DoNotOptimize(c.coarse->data[0]);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * c.fine->size);
}

void multiply(benchmark::State &state) {
  Clique c(static_cast<std::uint32_t>(state.range(0)));
  // Factors around 1 keep the cells finite over many rounds.
  for (Size i = 0; i < c.coarse->size; ++i) c.coarse->data[i] = i % 2 == 0 ? 1.0001f : 0.9999f;
  for (auto _ : state) {
    table_multiply_into(c.plan, false);
    benchmark::DoNotOptimize(c.fine->data[0]);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * c.fine->size);
}

void multiply_contiguous(benchmark::State &state) {
  // The coarse table holds the last ten nodes: the unrolled run form.
  Clique c(static_cast<std::uint32_t>(state.range(0)));
  NodeList tail;
  for (std::uint32_t i = 10; i < 20; ++i) tail.push_back(c.fine->nodes[i]);
  Table *last = table_new(c.domain, tail.data(), ov_table_kind_probability, role_returned, false, true);
  KernelPlan *plan = plan_new(c.fine, nullptr, last, nullptr);
  for (auto _ : state) {
    table_multiply_into(plan, false);
    benchmark::DoNotOptimize(c.fine->data[0]);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * c.fine->size);
}

void marginalize_prefix(benchmark::State &state) {
  // The coarse table holds the first ten nodes: each of its cells sums one
  // contiguous run of 1024 cells.
  Clique c(static_cast<std::uint32_t>(state.range(0)));
  NodeList head;
  for (std::uint32_t i = 0; i < 10; ++i) head.push_back(c.fine->nodes[i]);
  Table *first = table_new(c.domain, head.data(), ov_table_kind_probability, role_returned, false, true);
  KernelPlan *plan = plan_new(c.fine, nullptr, first, nullptr);
  for (auto _ : state) {
    table_marginalize(plan, ov_equilibrium_sum, ov_mode_normal, false);
    benchmark::DoNotOptimize(first->data[0]);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * c.fine->size);
}

BENCHMARK(marginalize)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(marginalize_prefix)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(multiply)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(multiply_contiguous)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
