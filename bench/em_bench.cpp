// EM benchmark: cases simulated from a network, a fraction of the entries
// blanked at random, tables made uniform, then the time of one EM
// iteration (the difference between runs of 3 and of 1 iterations, over
// two) and of one log-likelihood pass over the cases. Each figure is the
// median over the runs, with min and max, in milliseconds.
//
// Usage: em_bench [runs (default 7)] [cases (default 10000)] [missing
// fraction (default 0.2)] [network file (default alarm)]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

using Clock = std::chrono::steady_clock;

double millis(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::milli>(b - a).count();
}

struct Stats {
  double median = 0, min = 0, max = 0;
};

Stats stats(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return {v[v.size() / 2], v.front(), v.back()};
}

bool check(bool ok, const char *what) {
  if (!ok) std::fprintf(stderr, "em_bench: %s failed: %s\n", what, ov_error_name(ov_error_code()));
  return ok;
}

} // namespace

int main(int argc, char **argv) {
  const int runs = argc > 1 ? std::atoi(argv[1]) : 7;
  const int cases = argc > 2 ? std::atoi(argv[2]) : 10000;
  const double missing = argc > 3 ? std::atof(argv[3]) : 0.2;
  const std::string file = argc > 4 ? argv[4] : std::string(ORVEL_NETWORKS "/alarm.net");
  ov_domain_t d = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
  if (!check(d != nullptr, "reading the network") || !check(ov_domain_compile(d) == 0, "compiling")) return 1;
  std::vector<ov_node_t> nodes;
  for (ov_node_t n = ov_domain_get_first_node(d); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  if (!check(ov_domain_set_number_of_cases(d, cases) == 0, "making cases")) return 1;
  std::mt19937 rng(7);
  std::bernoulli_distribution blank(missing);
  for (int i = 0; i < cases; ++i) {
    if (!check(ov_domain_simulate(d) == 0, "simulating")) return 1;
    for (ov_node_t n : nodes)
      if (!blank(rng)) ov_node_set_case_state(n, i, ov_node_get_sampled_state(n));
  }
  std::vector<std::vector<ov_number_t>> uniform;
  for (ov_node_t n : nodes) {
    ov_table_t t = ov_node_get_table(n);
    uniform.emplace_back(ov_table_get_size(t), 1.0f / static_cast<float>(ov_node_get_number_of_states(n)));
    ov_node_get_experience_table(n);
  }
  auto restart = [&] {
    for (std::size_t v = 0; v < nodes.size(); ++v) {
      std::copy(uniform[v].begin(), uniform[v].end(), ov_table_get_data(ov_node_get_table(nodes[v])));
      ov_node_touch_table(nodes[v]);
      ov_table_t x = ov_node_get_experience_table(nodes[v]);
      std::fill(ov_table_get_data(x), ov_table_get_data(x) + ov_table_get_size(x), 0.0f);
    }
  };
  auto learn = [&](unsigned iterations) {
    restart();
    ov_domain_set_max_number_of_em_iterations(d, iterations);
    const auto start = Clock::now();
    const bool ok = ov_domain_learn_tables(d) == 0;
    const double ms = millis(start, Clock::now());
    return ok ? ms : -1.0;
  };
  std::vector<double> iteration, likelihood;
  for (int r = 0; r < runs; ++r) {
    const double one = learn(1), three = learn(3);
    if (!check(one >= 0 && three >= 0, "learning")) return 1;
    iteration.push_back((three - one) / 2);
    ov_node_touch_table(nodes[0]);
    const auto start = Clock::now();
    if (!check(ov_domain_get_log_likelihood(d) <= 0.0, "the log-likelihood")) return 1;
    likelihood.push_back(millis(start, Clock::now()));
  }
  const Stats it = stats(iteration), ll = stats(likelihood);
  std::printf("%s: %d cases, %.0f%% missing, %d runs\n", file.c_str(), cases, missing * 100, runs);
  std::printf("  EM iteration     median %8.2f ms  (min %.2f, max %.2f)\n", it.median, it.min, it.max);
  std::printf("  log-likelihood   median %8.2f ms  (min %.2f, max %.2f)\n", ll.median, ll.min, ll.max);
  std::printf("  final log-likelihood %.3f\n", ov_domain_get_log_likelihood(d));
  ov_domain_delete(d);
  return 0;
}
