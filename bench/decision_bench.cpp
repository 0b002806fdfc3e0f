// Influence diagrams: a line of 20 components inspected and repaired in
// turn, 100 nodes. Each stage has a hidden component state (good, worn,
// failed), an inspect decision, a test result (ok, bad, none) that only an
// inspection gives, a repair decision that sees the result, and a cost:
// inspecting, repairing, and a failure left unrepaired. The repair of one
// stage is known when the next inspection is decided, which orders the
// decisions. Compile time, and the time of a solution with a finding on one
// component (moved each iteration, so that each propagation has work to
// do), under no-forgetting and with limited memory.
#include <benchmark/benchmark.h>

#include <vector>

#include "orvel.h"

namespace {

constexpr int kStages = 20;

struct RepairLine {
  ov_domain_t domain = ov_new_domain();
  std::vector<ov_node_t> components;
  explicit RepairLine(bool limited) {
    ov_domain_set_limited_memory(domain, limited ? 1 : 0);
    ov_node_t previous = nullptr;
    for (int i = 0; i < kStages; ++i) {
      ov_node_t state = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
      ov_node_t inspect = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
      ov_node_t result = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
      ov_node_t repair = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
      ov_node_t cost = ov_domain_new_node(domain, ov_category_utility, ov_kind_discrete);
      ov_node_set_number_of_states(state, 3);
      ov_node_set_number_of_states(inspect, 2);
      ov_node_set_number_of_states(result, 3);
      ov_node_set_number_of_states(repair, 2);
      if (previous != nullptr) ov_node_add_parent(inspect, previous);
      ov_node_add_parent(result, state);
      ov_node_add_parent(result, inspect);
      ov_node_add_parent(repair, result);
      ov_node_add_parent(cost, state);
      ov_node_add_parent(cost, inspect);
      ov_node_add_parent(cost, repair);
      // Older components are more worn.
      const float worn = 0.1f + 0.02f * static_cast<float>(i);
      ov_number_t *prior = ov_table_get_data(ov_node_get_table(state));
      prior[0] = 0.85f - worn, prior[1] = worn, prior[2] = 0.15f;
      // (result | state, inspect): inspected, ok / bad by the state; not, none.
      const ov_number_t test[18] = {0.9f, 0.1f, 0, 0, 0, 1, 0.4f, 0.6f, 0, 0, 0, 1, 0.05f, 0.95f, 0, 0, 0, 1};
      ov_number_t *t = ov_table_get_data(ov_node_get_table(result));
      for (int k = 0; k < 18; ++k) t[k] = test[k];
      // (cost | state, inspect, repair): inspection 2, repair 10, failure 60.
      ov_number_t *c = ov_table_get_data(ov_node_get_table(cost));
      for (int s = 0; s < 3; ++s)
        for (int n = 0; n < 2; ++n)
          for (int r = 0; r < 2; ++r)
            c[(s * 2 + n) * 2 + r] = (n == 0 ? -2.0f : 0.0f) + (r == 0 ? -10.0f : 0.0f) +
                                     (r == 1 && s == 2   ? -60.0f
                                      : r == 1 && s == 1 ? -15.0f
                                                         : 0.0f);
      components.push_back(state);
      previous = repair;
    }
  }
  ~RepairLine() { ov_domain_delete(domain); }
};

void BM_RepairLineCompile(benchmark::State &state) {
  for (auto _ : state) {
    RepairLine line(state.range(0) != 0);
    if (ov_domain_compile(line.domain) != ov_error_none) state.SkipWithError(ov_error_name(ov_error_code()));
  }
}

void BM_RepairLineSolve(benchmark::State &state) {
  RepairLine line(state.range(0) != 0);
  if (ov_domain_compile(line.domain) != ov_error_none) state.SkipWithError("compile failed");
  std::size_t at = 0;
  for (auto _ : state) {
    ov_domain_retract_findings(line.domain);
    at = (at + 1) % line.components.size();
    ov_node_select_state(line.components[at], 1);
    if (ov_domain_propagate(line.domain, ov_equilibrium_sum, ov_mode_normal) != ov_error_none)
      state.SkipWithError("propagation failed");
    benchmark::DoNotOptimize(ov_domain_get_expected_utility(line.domain));
  }
  // The solution without findings: the two modes agree here, as every
  // decision sees all that matters to it.
  ov_domain_retract_findings(line.domain);
  ov_domain_propagate(line.domain, ov_equilibrium_sum, ov_mode_normal);
  state.counters["meu"] = ov_domain_get_expected_utility(line.domain);
}

// Argument 0: no-forgetting; 1: limited memory.
BENCHMARK(BM_RepairLineCompile)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RepairLineSolve)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
