// Compilation cost: for each shared network (read by the NET parser, so in
// file order) and each elimination heuristic, the time of triangulation and
// junction forest construction, with the total clique table size as a
// counter; generated networks of 1000 and 5000 nodes; and the whole compile
// of chains and of independent nodes at 10^4 to 10^6 nodes, whose growth
// is fitted against n. Run with --benchmark_repetitions=N to get medians.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "compile/net_structure.h"

using namespace orvel;
using namespace orvel::test;

namespace {

const char *method_name(int method) {
  switch (method) {
  case ov_tm_clique_size: return "clique_size";
  case ov_tm_clique_weight: return "clique_weight";
  case ov_tm_fill_in_size: return "fill_in_size";
  default: return "fill_in_weight";
  }
}

// Node names, state counts and parent lists (by index) of a network.
struct NetStructure {
  std::vector<std::string> names;
  std::vector<std::uint32_t> states;
  std::vector<std::vector<std::uint32_t>> parents;
};

// A domain with the nodes (in list order) and arcs of a structure.
ov_domain_t build_domain(const NetStructure &structure) {
  ov_domain_t domain = ov_new_domain();
  std::vector<Node *> nodes;
  for (std::size_t i = 0; i < structure.names.size(); ++i)
    nodes.push_back(add_node(domain, structure.names[i].c_str(), structure.states[i]));
  for (std::size_t i = 0; i < structure.names.size(); ++i)
    for (std::uint32_t parent : structure.parents[i]) add_arc(nodes[parent], nodes[i]);
  return domain;
}

// A layered random network: each node takes up to three parents among the
// twenty made before it, with two to four states.
NetStructure generated_network(std::uint32_t size) {
  std::mt19937 random(310952);
  NetStructure net;
  for (std::uint32_t i = 0; i < size; ++i) {
    std::string name = std::to_string(i);
    name.insert(name.begin(), 'N');
    net.names.push_back(std::move(name));
    net.states.push_back(2 + random() % 3);
    net.parents.emplace_back();
    if (i == 0) continue;
    std::uint32_t count = random() % 4;
    for (std::uint32_t k = 0; k < count; ++k) {
      std::uint32_t window = std::min<std::uint32_t>(i, 20);
      std::uint32_t parent = i - 1 - random() % window;
      auto &parents = net.parents.back();
      if (std::find(parents.begin(), parents.end(), parent) == parents.end()) parents.push_back(parent);
    }
  }
  return net;
}

// A network to compile: a shared file, or a generated structure.
struct Network {
  std::string file;
  NetStructure structure;

  ov_domain_t load() const {
    return file.empty() ? build_domain(structure) : ov_net_parse_domain(file.c_str(), nullptr, nullptr);
  }
};

// The network is loaded once; each iteration triangulates and builds the
// forest, and the domain is uncompiled outside the timing.
void compile_network(benchmark::State &state, const Network &net, int method) {
  ov_domain_t domain = net.load();
  if (domain == nullptr) {
    state.SkipWithError("cannot load the network");
    return;
  }
  double total = 0;
  for (auto _ : state) {
    if (ov_domain_triangulate(domain, static_cast<ov_triangulation_method_t>(method)) != ov_error_none ||
        ov_domain_compile_qualitatively(domain, nullptr) != ov_error_none) {
      state.SkipWithError("compile failed");
      break;
    }
    state.PauseTiming();
    total = static_cast<double>(ov_domain_get_jt_cost(domain));
    ov_domain_uncompile(domain);
    state.ResumeTiming();
  }
  state.counters["nodes"] = static_cast<double>(domain->node_count());
  state.counters["total_clique_size"] = total;
  ov_domain_delete(domain);
}

std::string label(const std::string &network, int method) {
  std::string text(network);
  text.append(1, '/').append(method_name(method));
  return text;
}

int register_all() {
  static std::vector<std::pair<std::string, Network>> networks;
  for (const std::string &file : shared_networks()) networks.emplace_back(file, Network{shared_network(file), {}});
  networks.emplace_back("generated_1000", Network{{}, generated_network(1000)});
  networks.emplace_back("generated_5000", Network{{}, generated_network(5000)});
  for (const auto &[name, net] : networks)
    for (int method = ov_tm_clique_size; method <= ov_tm_fill_in_weight; ++method)
      benchmark::RegisterBenchmark(label(name, method).c_str(), [&net = net, method](benchmark::State &state) {
        compile_network(state, net, method);
      })->Unit(benchmark::kMillisecond);
  return 0;
}

// Binary nodes: a chain X0 -> X1 -> ..., or no arcs at all.
NetStructure sparse_network(std::uint32_t size, bool chain) {
  NetStructure net;
  for (std::uint32_t i = 0; i < size; ++i) {
    std::string name = std::to_string(i);
    name.insert(name.begin(), 'X');
    net.names.push_back(std::move(name));
    net.states.push_back(2);
    net.parents.emplace_back();
    if (chain && i > 0) net.parents.back().push_back(i - 1);
  }
  return net;
}

// The whole compile (triangulation to the first propagation); the domain is
// built and uncompiled outside the timing.
void compile_sparse(benchmark::State &state, bool chain) {
  const auto size = static_cast<std::uint32_t>(state.range(0));
  ov_domain_t domain = build_domain(sparse_network(size, chain));
  for (auto _ : state) {
    if (ov_domain_compile(domain) != ov_error_none) {
      state.SkipWithError("compile failed");
      break;
    }
    state.PauseTiming();
    ov_domain_uncompile(domain);
    state.ResumeTiming();
  }
  state.SetComplexityN(size);
  ov_domain_delete(domain);
}

BENCHMARK_CAPTURE(compile_sparse, chain, true)
    ->RangeMultiplier(10)
    ->Range(10000, 1000000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
BENCHMARK_CAPTURE(compile_sparse, independent, false)
    ->RangeMultiplier(10)
    ->Range(10000, 1000000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

const int registered = register_all();

} // namespace
