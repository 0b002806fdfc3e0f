// Propagation benchmark: for each shared network, read by the NET parser
// with its own tables, the compile time with the default
// method, the time of a full propagation with k = 5 and k = 20 random hard
// findings including reading every belief, the time of propagating after
// one finding is changed and after one is added, and the peak memory of
// the process. Each figure is the median over the runs, with min and max.
//
// Usage: propagation_bench [runs (default 21)] [--threads N] [--method M] [--compress] [network file ...]
// With --threads N the domains get concurrency level N (default 1); with
// --method M (clique-size, clique-weight, fill-in-size, fill-in-weight,
// total-weight) they are triangulated by M before the compile. With
// --compress each domain is compressed after compilation (the clique cells
// before and after are printed) and the evidence is drawn from an
// uncompressed twin, since a compressed domain does not simulate; the peak
// memory then counts both.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "compile/net_structure.h"
#include "orvel.h"

using namespace orvel::test;

namespace {

using Clock = std::chrono::steady_clock;

double micros(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::micro>(b - a).count();
}

struct Stats {
  double median = 0, min = 0, max = 0;
};

Stats stats(std::vector<double> v) {
  if (v.empty()) return {};
  std::sort(v.begin(), v.end());
  return {v[v.size() / 2], v.front(), v.back()};
}

std::vector<ov_node_t> nodes_of(ov_domain_t domain) {
  std::vector<ov_node_t> nodes;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node))
    nodes.push_back(node);
  return nodes;
}

using Evidence = std::vector<std::pair<ov_node_t, ov_index_t>>;

// Reads every belief, as a caller showing results would.
double read_beliefs(const std::vector<ov_node_t> &nodes) {
  double sum = 0.0;
  for (ov_node_t node : nodes) {
    const ov_count_t states = ov_node_get_number_of_states(node);
    for (ov_index_t s = 0; s < states; ++s) sum += ov_node_get_belief(node, s);
  }
  return sum;
}

// Enters the evidence on a domain without findings and propagates.
ov_status_t enter_and_propagate(ov_domain_t domain, const Evidence &evidence) {
  ov_domain_retract_findings(domain);
  for (auto [node, state] : evidence) ov_node_select_state(node, state);
  return ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal);
}

// k hard findings on nodes drawn at random, with the states of one
// configuration sampled from the network without evidence: always possible,
// also on networks whose deterministic tables make most random states
// impossible together.
Evidence draw_evidence(ov_domain_t domain, const std::vector<ov_node_t> &nodes, std::size_t k, std::mt19937 &rng) {
  enter_and_propagate(domain, {});
  ov_domain_simulate(domain);
  std::vector<ov_node_t> pool = nodes;
  std::shuffle(pool.begin(), pool.end(), rng);
  Evidence evidence;
  for (std::size_t i = 0; i < std::min(k, pool.size()); ++i)
    evidence.emplace_back(pool[i], ov_node_get_sampled_state(pool[i]));
  return evidence;
}

long peak_kilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

} // namespace

int main(int argc, char **argv) {
  int runs = argc > 1 ? std::atoi(argv[1]) : 21;
  if (runs < 1) runs = 21;
  std::vector<std::string> files;
  unsigned threads = 1;
  int method = 0; // the default of the compile
  const char *method_names[] = {"clique-size", "clique-weight", "fill-in-size", "fill-in-weight", "total-weight"};
  bool compress = false;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--threads" && i + 1 < argc) {
      threads = static_cast<unsigned>(std::atoi(argv[++i]));
    } else if (arg == "--method" && i + 1 < argc) {
      const std::string name = argv[++i];
      for (int m = 0; m < 5; ++m)
        if (name == method_names[m]) method = ov_tm_clique_size + m;
      if (method == 0) {
        std::fprintf(stderr, "unknown method %s\n", name.c_str());
        return 1;
      }
    } else if (arg == "--compress") {
      compress = true;
    } else {
      files.push_back(arg);
    }
  }
  if (files.empty()) files = shared_networks();
  std::printf("%-11s %5s | %-26s | %-26s | %-26s | %-26s | %-26s | %8s\n", "network", "nodes",
              "compile ms (med min max)", "k=5 us (med min max)", "k=20 us (med min max)",
              "change one us (med min max)", "add one us (med min max)", "peak MB");
  for (const std::string &file : files) {
    std::mt19937 rng(310952);
    const std::string path = shared_network(file);
    std::vector<double> compile_times;
    ov_domain_t domain = nullptr;
    for (int run = 0; run < runs; ++run) {
      if (domain != nullptr) ov_domain_delete(domain);
      domain = ov_net_parse_domain(path.c_str(), nullptr, nullptr);
      if (domain == nullptr) {
        std::printf("%-11s cannot be read: %s\n", file.c_str(), ov_error_name(ov_error_code()));
        break;
      }
      ov_domain_set_concurrency_level(domain, threads);
      const auto start = Clock::now();
      const ov_status_t status =
          method != 0 && ov_domain_triangulate(domain, static_cast<ov_triangulation_method_t>(method)) != ov_error_none
              ? ov_error_code()
              : ov_domain_compile(domain);
      compile_times.push_back(micros(start, Clock::now()) / 1000.0);
      if (status != ov_error_none) {
        std::printf("%-11s compile failed: %s\n", file.c_str(), ov_error_name(ov_error_code()));
        break;
      }
    }
    if (domain == nullptr) continue;
    if (ov_domain_is_compiled(domain) != 1) {
      ov_domain_delete(domain);
      continue;
    }
    // Re-initialisations restore the forest from memory.
    ov_domain_save_to_memory(domain);
    ov_domain_seed_random(domain, 310952);
    const std::vector<ov_node_t> nodes = nodes_of(domain);
    ov_domain_t twin = nullptr;
    if (compress) {
      const double before = static_cast<double>(ov_domain_get_jt_cost(domain));
      const double after = ov_domain_compress(domain);
      if (after < 0) {
        std::printf("%-11s compression failed: %s\n", file.c_str(), ov_error_name(ov_error_code()));
        ov_domain_delete(domain);
        continue;
      }
      std::printf("%-11s clique cells %.0f before compression, %.0f after\n", file.c_str(), before,
                  static_cast<double>(ov_domain_get_jt_cost(domain)));
      twin = ov_net_parse_domain(path.c_str(), nullptr, nullptr);
      ov_domain_compile(twin);
      ov_domain_seed_random(twin, 310952);
    }
    const std::vector<ov_node_t> twin_nodes = compress ? nodes_of(twin) : nodes;
    // The evidence drawn on the twin, moved to the domain's nodes.
    auto draw = [&](std::size_t k) {
      Evidence evidence = draw_evidence(compress ? twin : domain, twin_nodes, k, rng);
      if (compress)
        for (auto &[node, state] : evidence)
          node = nodes[static_cast<std::size_t>(std::find(twin_nodes.begin(), twin_nodes.end(), node) -
                                                twin_nodes.begin())];
      return evidence;
    };
    double sink = 0.0;
    std::vector<double> full5, full20, change, add;
    for (int run = 0; run < runs; ++run) {
      for (std::size_t k : {std::size_t{5}, std::size_t{20}}) {
        Evidence evidence = draw(k);
        ov_domain_initialize(domain);
        const auto start = Clock::now();
        for (auto [node, state] : evidence) ov_node_select_state(node, state);
        ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal);
        sink += read_beliefs(nodes);
        (k == 5 ? full5 : full20).push_back(micros(start, Clock::now()));
      }
      // From k = 5: change the state of one finding (a zero is undone, so
      // the tree is re-initialised), or add one more finding.
      Evidence evidence = draw(6);
      Evidence base(evidence.begin(), evidence.begin() + std::min<std::size_t>(5, evidence.size()));
      if (enter_and_propagate(domain, base) != ov_error_none) continue;
      auto [node, state] = base.front();
      const ov_index_t other = (state + 1) % ov_node_get_number_of_states(node);
      auto start = Clock::now();
      ov_node_select_state(node, other);
      const ov_status_t changed = ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal);
      sink += read_beliefs(nodes);
      if (changed == ov_error_none) change.push_back(micros(start, Clock::now()));
      if (evidence.size() < 6 || enter_and_propagate(domain, base) != ov_error_none) continue;
      start = Clock::now();
      ov_node_select_state(evidence[5].first, evidence[5].second);
      const ov_status_t added = ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal);
      sink += read_beliefs(nodes);
      if (added == ov_error_none) add.push_back(micros(start, Clock::now()));
    }
    auto cell = [](const Stats &s) {
      static char text[8][64];
      static int next = 0;
      char *out = text[next++ % 8];
      std::snprintf(out, 64, "%8.1f %8.1f %8.1f", s.median, s.min, s.max);
      return out;
    };
    std::printf("%-11s %5zu | %-26s | %-26s | %-26s | %-26s | %-26s | %8.1f\n", file.c_str(), nodes.size(),
                cell(stats(compile_times)), cell(stats(full5)), cell(stats(full20)), cell(stats(change)),
                cell(stats(add)), peak_kilobytes() / 1024.0);
    if (sink < 0) std::printf("impossible\n");
    std::fflush(stdout);
    if (twin != nullptr) ov_domain_delete(twin);
    ov_domain_delete(domain);
  }
  return 0;
}
