// Structure learning on cases drawn from known networks: the time of the
// whole search (alarm, 10^5 cases), the counting loop alone, and how close
// the result comes to the true network (structural Hamming distances of
// the skeleton and of the equivalence class, reported as counters).
#include <benchmark/benchmark.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "compile/net_structure.h"
#include "learn/count_cases.h"
#include "model/domain.h"
#include "orvel.h"

namespace {

// The true network and an edgeless twin holding `count` cases drawn from it.
struct Sample {
  ov_domain_t truth = nullptr, learner = nullptr;
  std::vector<ov_node_t> true_nodes, nodes; // the same order
};

Sample draw(const std::string &file, int count) {
  Sample s;
  s.truth = ov_net_parse_domain(orvel::test::shared_network(file).c_str(), nullptr, nullptr);
  ov_domain_compile(s.truth);
  ov_domain_seed_random(s.truth, 2026);
  s.learner = ov_new_domain();
  for (ov_node_t n = ov_domain_get_first_node(s.truth); n != nullptr; n = ov_node_get_next(n))
    s.true_nodes.push_back(n);
  for (ov_node_t n : s.true_nodes) {
    ov_node_t copy = ov_domain_new_node(s.learner, ov_category_chance, ov_kind_discrete);
    ov_node_set_name(copy, ov_node_get_name(n));
    ov_node_set_number_of_states(copy, ov_node_get_number_of_states(n));
    s.nodes.push_back(copy);
  }
  ov_domain_set_number_of_cases(s.learner, count);
  for (int c = 0; c < count; ++c) {
    ov_domain_simulate(s.truth);
    for (std::size_t i = 0; i < s.nodes.size(); ++i)
      ov_node_set_case_state(s.nodes[i], c, ov_node_get_sampled_state(s.true_nodes[i]));
  }
  return s;
}

void remove_edges(const Sample &s) {
  for (ov_node_t n : s.nodes)
    while (ov_node_get_parents(n)[0] != nullptr) ov_node_remove_parent(n, ov_node_get_parents(n)[0]);
}

// Edge marks between vertices i < j: 0 none, 1 undirected, 2 i -> j, 3 j -> i.
using Marks = std::map<std::pair<std::size_t, std::size_t>, int>;

Marks dag_marks(const std::vector<ov_node_t> &nodes) {
  Marks marks;
  std::map<ov_node_t, std::size_t> index;
  for (std::size_t i = 0; i < nodes.size(); ++i) index[nodes[i]] = i;
  for (std::size_t j = 0; j < nodes.size(); ++j)
    for (ov_node_t *p = ov_node_get_parents(nodes[j]); *p != nullptr; ++p) {
      const std::size_t i = index[*p];
      marks[{std::min(i, j), std::max(i, j)}] = i < j ? 2 : 3;
    }
  return marks;
}

// The equivalence class of a DAG: edges in v-structures stay directed, then
// Meek's rules 1-3 direct what they compel; the rest is undirected.
Marks cpdag(const Marks &dag, std::size_t n) {
  auto get = [](const Marks &m, std::size_t a, std::size_t b) {
    auto it = m.find({std::min(a, b), std::max(a, b)});
    return it == m.end() ? 0 : it->second;
  };
  auto points = [&](const Marks &m, std::size_t a, std::size_t b) { return get(m, a, b) == (a < b ? 2 : 3); };
  Marks out;
  for (auto [pair, mark] : dag) out[pair] = 1;
  for (std::size_t b = 0; b < n; ++b)
    for (std::size_t a = 0; a < n; ++a)
      for (std::size_t c = a + 1; c < n; ++c)
        if (a != b && c != b && points(dag, a, b) && points(dag, c, b) && get(dag, a, c) == 0) {
          out[{std::min(a, b), std::max(a, b)}] = a < b ? 2 : 3;
          out[{std::min(c, b), std::max(c, b)}] = c < b ? 2 : 3;
        }
  for (bool again = true; again;) {
    again = false;
    for (auto &[pair, mark] : out) {
      if (mark != 1) continue;
      for (int turn = 0; turn < 2 && mark == 1; ++turn) {
        const std::size_t x = turn ? pair.second : pair.first, y = turn ? pair.first : pair.second;
        bool compel = false;
        for (std::size_t z = 0; z < n && !compel; ++z) {
          if (z == x || z == y) continue;
          compel |= points(out, z, x) && get(out, z, y) == 0; // rule 1
          compel |= points(out, x, z) && points(out, z, y);   // rule 2
          for (std::size_t w = z + 1; w < n && !compel; ++w)  // rule 3
            compel |= w != x && w != y && get(out, x, z) == 1 && get(out, x, w) == 1 && points(out, z, y) &&
                      points(out, w, y) && get(out, z, w) == 0;
        }
        if (compel) {
          mark = x < y ? 2 : 3;
          again = true;
        }
      }
    }
  }
  return out;
}

int hamming(const Marks &a, const Marks &b, bool skeleton) {
  std::map<std::pair<std::size_t, std::size_t>, std::pair<int, int>> both;
  for (auto [pair, mark] : a) both[pair].first = mark;
  for (auto [pair, mark] : b) both[pair].second = mark;
  int distance = 0;
  for (auto [pair, marks] : both)
    distance += skeleton ? (marks.first != 0) != (marks.second != 0) : marks.first != marks.second;
  return distance;
}

// range(0): number of cases; the network by name.
void learn_structure(benchmark::State &state, const char *file) {
  Sample s = draw(file, static_cast<int>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    remove_edges(s);
    state.ResumeTiming();
    if (ov_domain_learn_structure(s.learner) != 0) state.SkipWithError("learning failed");
  }
  std::size_t tests = 0;
  for (const auto &record : s.learner->structure_data) tests += record.tests.size();
  const Marks truth = dag_marks(s.true_nodes), learnt = dag_marks(s.nodes);
  state.counters["tests"] = static_cast<double>(tests);
  state.counters["shd_skeleton"] = hamming(truth, learnt, true);
  state.counters["shd_cpdag"] = hamming(cpdag(truth, s.nodes.size()), cpdag(learnt, s.nodes.size()), false);
  state.counters["true_edges"] = static_cast<double>(truth.size());
  ov_domain_delete(s.truth);
  ov_domain_delete(s.learner);
}
BENCHMARK_CAPTURE(learn_structure, asia, "asia.net")->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(learn_structure, alarm, "alarm.net")->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(learn_structure, insurance, "insurance.net")->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The counting loop alone: alarm, 10^5 cases, tables over range(0) nodes.
void count_cases(benchmark::State &state) {
  static Sample s = draw("alarm.net", 100000);
  const auto width = static_cast<std::size_t>(state.range(0));
  std::vector<orvel::Node *> nodes(s.nodes.begin(), s.nodes.begin() + static_cast<std::ptrdiff_t>(width));
  std::vector<double> cells;
  for (auto _ : state) {
    orvel::count_cases_into_table(s.learner, nodes, true, cells);
    benchmark::DoNotOptimize(cells.data());
  }
  state.SetItemsProcessed(state.iterations() * 100000 * static_cast<std::int64_t>(width));
}
BENCHMARK(count_cases)->Arg(2)->Arg(5)->Arg(8);

} // namespace
