// Beliefs on the shared networks under random evidence against a plain
// variable-elimination reference in double precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "brute_force.h"

namespace {

using orvel::test::combine;
using orvel::test::Factor;
using orvel::test::RandomNetwork;

// P(query | evidence) by elimination with the smallest-product order;
// empty when an intermediate factor would pass `limit` cells.
std::vector<double> posterior(const RandomNetwork &net, const std::vector<int> &evidence, int query,
                              std::size_t limit) {
  std::vector<Factor> factors = net.tables;
  for (std::size_t v = 0; v < evidence.size(); ++v)
    if (evidence[v] >= 0) {
      factors.push_back({{static_cast<int>(v)}, std::vector<double>(net.states[v], 0.0)});
      factors.back().values[evidence[v]] = 1.0;
    }
  auto touching = [&](int v, std::vector<const Factor *> &found) {
    std::vector<int> vars;
    for (const Factor &f : factors)
      if (std::find(f.vars.begin(), f.vars.end(), v) != f.vars.end()) {
        found.push_back(&f);
        for (int w : f.vars)
          if (w != v && std::find(vars.begin(), vars.end(), w) == vars.end()) vars.push_back(w);
      }
    return vars;
  };
  for (;;) {
    int best = -1;
    double best_size = 0;
    for (int v = 0; v < static_cast<int>(net.nodes.size()); ++v) {
      std::vector<const Factor *> found;
      std::vector<int> vars = touching(v, found);
      double size = net.states[v];
      for (int w : vars) size *= net.states[w];
      if (v != query && !found.empty() && (best < 0 || size < best_size)) best = v, best_size = size;
    }
    if (best < 0) break;
    if (best_size > static_cast<double>(limit)) return {};
    std::vector<const Factor *> found;
    Factor made = combine(found, touching(best, found), net.states);
    std::vector<Factor> rest;
    for (const Factor &f : factors)
      if (std::find(f.vars.begin(), f.vars.end(), best) == f.vars.end()) rest.push_back(f);
    rest.push_back(std::move(made));
    factors = std::move(rest);
  }
  std::vector<const Factor *> all;
  for (const Factor &f : factors) all.push_back(&f);
  std::vector<double> result = combine(all, {query}, net.states).values;
  const double sum = std::accumulate(result.begin(), result.end(), 0.0);
  for (double &x : result) x /= sum;
  return result;
}

TEST(RealNetworks, BeliefsAgreeWithVariableElimination) {
  int checked = 0;
  for (const char *file : {"asia.net", "cancer.net", "earthquake.net", "sachs.net", "survey.net", "child.net",
                           "alarm.net", "insurance.net", "win95pts.net", "hepar2.net"}) {
    SCOPED_TRACE(file);
    const std::string path = std::string(ORVEL_NETWORKS "/") + file;
    ov_domain_t domain = ov_net_parse_domain(path.c_str(), nullptr, nullptr);
    ASSERT_NE(domain, nullptr) << ov_error_name(ov_error_code());
    ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
    RandomNetwork net = RandomNetwork::read(domain);
    std::mt19937 rng(4242);
    for (int round = 0; round < 3; ++round) {
      ov_domain_retract_findings(domain);
      std::vector<int> evidence(net.nodes.size(), -1);
      for (int k = 0; k < 4; ++k) {
        const std::size_t v = rng() % net.nodes.size();
        evidence[v] = static_cast<int>(rng() % net.states[v]);
        ov_node_select_state(net.nodes[v], evidence[v]);
      }
      const ov_status_t status = ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal);
      if (status == ov_error_inconsistency_or_underflow) continue; // an impossible draw
      ASSERT_EQ(status, ov_error_none);
      for (int q = 0; q < 6; ++q) {
        const int query = static_cast<int>(rng() % net.nodes.size());
        std::vector<double> reference = posterior(net, evidence, query, 1u << 20);
        if (reference.empty()) continue;
        for (std::uint32_t s = 0; s < net.states[query]; ++s)
          EXPECT_NEAR(ov_node_get_belief(net.nodes[query], s), reference[s], 1e-5) << "node " << query;
        ++checked;
      }
    }
  }
  EXPECT_GT(checked, 100);
}

} // namespace
