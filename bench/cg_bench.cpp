// Mixed networks: a chain of 33 sections, each a fault state (ok, drifting,
// failed) that depends on the previous one, a continuous level with a mean
// and a noise set by the fault, and a sensor reading the level with
// Gaussian noise: 99 nodes. (Levels that also followed each other would
// join all faults on the boundary of one continuous component, which a
// strong triangulation must make one clique.) Compile time, and
// the time of a propagation with every third sensor read (the values
// changed each iteration, so that each propagation has work to do).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "orvel.h"

namespace {

constexpr int kSections = 33;

struct SensorChain {
  ov_domain_t domain = ov_new_domain();
  std::vector<ov_node_t> sensors;
  SensorChain() {
    ov_node_t fault = nullptr;
    for (int i = 0; i < kSections; ++i) {
      ov_node_t f = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
      ov_node_set_number_of_states(f, 3);
      if (fault != nullptr) ov_node_add_parent(f, fault);
      ov_number_t *data = ov_table_get_data(ov_node_get_table(f));
      const ov_number_t first[3] = {0.9f, 0.08f, 0.02f};
      const ov_number_t after[9] = {0.95f, 0.04f, 0.01f, 0.2f, 0.7f, 0.1f, 0.0f, 0.1f, 0.9f};
      for (int k = 0; k < (fault != nullptr ? 9 : 3); ++k) data[k] = fault != nullptr ? after[k] : first[k];
      ov_node_t l = ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous);
      ov_node_add_parent(l, f);
      for (int s = 0; s < 3; ++s) {
        ov_node_set_alpha(l, s == 0 ? 1.0 : s == 1 ? 1.5 : -2.0, s);
        ov_node_set_gamma(l, s == 2 ? 4.0 : 0.25, s);
      }
      ov_node_t sensor = ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous);
      ov_node_add_parent(sensor, l);
      ov_node_set_alpha(sensor, 0.0, 0);
      ov_node_set_beta(sensor, 1.0, l, 0);
      ov_node_set_gamma(sensor, 0.5, 0);
      sensors.push_back(sensor);
      fault = f;
    }
  }
  ~SensorChain() { ov_domain_delete(domain); }
};

void BM_SensorChainCompile(benchmark::State &state) {
  for (auto _ : state) {
    SensorChain chain;
    if (ov_domain_compile(chain.domain) != ov_error_none) state.SkipWithError(ov_error_name(ov_error_code()));
  }
}

void BM_SensorChainPropagate(benchmark::State &state) {
  SensorChain chain;
  if (ov_domain_compile(chain.domain) != ov_error_none) state.SkipWithError("compile failed");
  double shift = 0.0;
  for (auto _ : state) {
    shift = shift > 1.0 ? 0.0 : shift + 0.01;
    for (std::size_t i = 0; i < chain.sensors.size(); i += 3) ov_node_enter_value(chain.sensors[i], 1.0 + shift);
    if (ov_domain_propagate(chain.domain, ov_equilibrium_sum, ov_mode_normal) != ov_error_none)
      state.SkipWithError("propagation failed");
    benchmark::DoNotOptimize(ov_node_get_mean(chain.sensors.back()));
  }
}

BENCHMARK(BM_SensorChainCompile)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SensorChainPropagate)->Unit(benchmark::kMillisecond);

} // namespace
