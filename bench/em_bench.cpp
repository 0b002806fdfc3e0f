// EM benchmark: cases simulated from a network, a fraction of the entries
// blanked at random, tables made uniform, then the time of one EM
// iteration (the difference between runs of 3 and of 1 iterations, over
// two) and of one log-likelihood pass over the cases. Each figure is the
// median over the runs, with min and max, in milliseconds of processor
// time (the figures that do not depend on other load of the machine), with
// the wall-clock median beside them. Last, EM from uniform tables to
// convergence: the mean absolute error of the tables against the true ones
// and the log-likelihood of the cases under both.
//
// Usage: em_bench [runs (default 7)] [cases (default 10000)] [missing
// fraction (default 0.2)] [network file (default alarm)]
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
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

double cpu_millis() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

struct Time {
  double cpu = 0, wall = 0;
};

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
  const double true_ll = ov_domain_get_log_likelihood(d);
  std::vector<std::vector<ov_number_t>> uniform, truth;
  for (ov_node_t n : nodes) {
    ov_table_t t = ov_node_get_table(n);
    truth.emplace_back(ov_table_get_data(t), ov_table_get_data(t) + ov_table_get_size(t));
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
  auto timed = [](auto &&body) {
    const auto start = Clock::now();
    const double cpu = cpu_millis();
    const bool ok = body();
    Time t{cpu_millis() - cpu, millis(start, Clock::now())};
    if (!ok) t.cpu = -1;
    return t;
  };
  auto learn = [&](unsigned iterations) {
    restart();
    ov_domain_set_max_number_of_em_iterations(d, iterations);
    return timed([&] { return ov_domain_learn_tables(d) == 0; });
  };
  std::vector<double> iteration, iteration_wall, likelihood, likelihood_wall;
  for (int r = 0; r < runs; ++r) {
    const Time one = learn(1), three = learn(3);
    if (!check(one.cpu >= 0 && three.cpu >= 0, "learning")) return 1;
    iteration.push_back((three.cpu - one.cpu) / 2);
    iteration_wall.push_back((three.wall - one.wall) / 2);
    ov_node_touch_table(nodes[0]);
    const Time ll = timed([&] { return ov_domain_get_log_likelihood(d) <= 0.0; });
    if (!check(ll.cpu >= 0, "the log-likelihood")) return 1;
    likelihood.push_back(ll.cpu);
    likelihood_wall.push_back(ll.wall);
  }
  const Stats it = stats(iteration), ll = stats(likelihood);
  std::printf("%s: %d cases, %.0f%% missing, %d runs\n", file.c_str(), cases, missing * 100, runs);
  std::printf("  EM iteration     median %8.2f ms  (min %.2f, max %.2f; wall %.2f)\n", it.median, it.min, it.max,
              stats(iteration_wall).median);
  std::printf("  log-likelihood   median %8.2f ms  (min %.2f, max %.2f; wall %.2f)\n", ll.median, ll.min, ll.max,
              stats(likelihood_wall).median);
  restart();
  ov_domain_set_max_number_of_em_iterations(d, 0);
  if (!check(ov_domain_learn_tables(d) == 0, "learning to convergence")) return 1;
  double error = 0;
  std::size_t cells = 0;
  for (std::size_t v = 0; v < nodes.size(); ++v) {
    const ov_number_t *data = ov_table_get_data(ov_node_get_table(nodes[v]));
    for (std::size_t k = 0; k < truth[v].size(); ++k, ++cells) error += std::abs(data[k] - truth[v][k]);
  }
  std::printf("  converged: mean absolute error %.5f over %zu cells; log-likelihood %.3f (true tables %.3f)\n",
              error / static_cast<double>(cells), cells, ov_domain_get_log_likelihood(d), true_ll);
  ov_domain_delete(d);
  return 0;
}
