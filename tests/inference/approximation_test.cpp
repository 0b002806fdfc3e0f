// Approximation of the initial tables: under random evidence every belief
// stays within the bound the header documents of the exact belief, and the
// refusals of the call.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "brute_force.h"
#include "orvel.h"

namespace {

using orvel::test::brute_marginal;
using orvel::test::Findings;
using orvel::test::RandomNetwork;

ov_domain_t load(const char *name) {
  ov_domain_t d = ov_net_parse_domain((std::string(ORVEL_NETWORKS "/") + name).c_str(), nullptr, nullptr);
  EXPECT_NE(d, nullptr);
  EXPECT_EQ(ov_domain_compile(d), ov_error_none);
  return d;
}

std::vector<ov_node_t> nodes_of(ov_domain_t d) {
  std::vector<ov_node_t> nodes;
  for (ov_node_t n = ov_domain_get_first_node(d); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  return nodes;
}

// The largest change of a belief between the two domains.
double largest_change(ov_domain_t exact, ov_domain_t approximate) {
  const std::vector<ov_node_t> a = nodes_of(exact), b = nodes_of(approximate);
  double largest = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i)
    for (ov_index_t s = 0; s < ov_node_get_number_of_states(a[i]); ++s)
      largest = std::max<double>(largest, std::fabs(ov_node_get_belief(a[i], s) - ov_node_get_belief(b[i], s)));
  return largest;
}

TEST(Approximation, BeliefsStayWithinTheBoundUnderRandomEvidence) {
  for (const char *name : {"alarm.net", "insurance.net"}) {
    SCOPED_TRACE(name);
    ov_domain_t exact = load(name), approximate = load(name);
    const double removed = ov_domain_approximate(approximate, 0.01);
    const int cliques = static_cast<int>(ov_domain_get_number_of_cliques(approximate));
    ASSERT_GT(removed, 0.0);
    EXPECT_LE(removed, 0.01 * cliques);
    const std::vector<ov_node_t> a = nodes_of(exact), b = nodes_of(approximate);
    std::mt19937 rng(7);
    double worst_ratio = 0.0;
    int compared = 0;
    for (int trial = 0; trial < 30; ++trial) {
      ASSERT_EQ(ov_domain_initialize(exact), ov_error_none);
      ASSERT_EQ(ov_domain_initialize(approximate), ov_error_none);
      // Up to three hard findings and one likelihood, kept where the exact
      // domain finds them possible.
      const int count = trial % 5;
      for (int k = 0; k < count; ++k) {
        const std::size_t v = rng() % a.size();
        const ov_index_t states = ov_node_get_number_of_states(a[v]);
        std::vector<ov_number_t> finding(static_cast<std::size_t>(states), 1.0f);
        if (k == 3)
          for (ov_number_t &x : finding) x = static_cast<ov_number_t>((rng() % 100) / 100.0);
        else
          std::fill(finding.begin(), finding.end(), 0.0f), finding[rng() % states] = 1.0f;
        for (ov_index_t s = 0; s < states; ++s) ov_node_enter_finding(a[v], s, finding[s]);
        if (ov_domain_propagate(exact, ov_equilibrium_sum, ov_mode_normal) != ov_error_none) {
          ov_node_retract_findings(a[v]);
          continue;
        }
        for (ov_index_t s = 0; s < states; ++s) ov_node_enter_finding(b[v], s, finding[s]);
      }
      ASSERT_EQ(ov_domain_propagate(exact, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      // The approximated domain may find the evidence impossible: its bound
      // is then infinite.
      if (ov_domain_propagate(approximate, ov_equilibrium_sum, ov_mode_normal) != ov_error_none) continue;
      const double c = ov_domain_get_normalization_constant(approximate);
      const double bound = removed / ((1.0 - removed) * c);
      const double change = largest_change(exact, approximate);
      EXPECT_LE(change, bound + 2e-6) << "trial " << trial;
      worst_ratio = std::max(worst_ratio, change / bound);
      ++compared;
    }
    EXPECT_GE(compared, 20);
    EXPECT_GT(worst_ratio, 0.0) << "the approximation changed some belief";
    ov_domain_delete(exact);
    ov_domain_delete(approximate);
  }
}

// Small random networks, some with several junction trees, against exact
// beliefs by enumeration, with larger epsilons.
TEST(Approximation, RandomNetworksStayWithinTheBoundOfTheExactBeliefs) {
  std::mt19937 rng(11);
  int forests = 0, compared = 0;
  for (int round = 0; round < 40; ++round) {
    RandomNetwork net = RandomNetwork::make(rng, 10);
    ASSERT_EQ(ov_domain_compile(net.domain), ov_error_none);
    int trees = 0;
    for (ov_junction_tree_t t = ov_domain_get_first_junction_tree(net.domain); t != nullptr; t = ov_jt_get_next(t))
      ++trees;
    forests += trees > 1 ? 1 : 0;
    const double epsilon = 0.02 * (1 + round % 10);
    const double removed = ov_domain_approximate(net.domain, epsilon);
    ASSERT_GE(removed, 0.0);
    Findings findings = orvel::test::no_findings(net);
    for (int k = 0; k < round % 4; ++k) {
      const std::size_t v = rng() % net.nodes.size();
      const ov_index_t s = static_cast<ov_index_t>(rng() % net.states[v]);
      ASSERT_EQ(ov_node_select_state(net.nodes[v], s), ov_error_none);
      std::fill(findings[v].begin(), findings[v].end(), 0.0f);
      findings[v][s] = 1.0f;
    }
    if (ov_domain_propagate(net.domain, ov_equilibrium_sum, ov_mode_normal) != ov_error_none) continue;
    const double bound = removed / ((1.0 - removed) * ov_domain_get_normalization_constant(net.domain));
    const std::vector<bool> skip(net.nodes.size(), false);
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      double scale = 0.0;
      const std::vector<double> exact = brute_marginal(net, findings, {static_cast<int>(i)}, skip, false, &scale);
      for (std::uint32_t s = 0; s < net.states[i]; ++s)
        EXPECT_LE(std::fabs(ov_node_get_belief(net.nodes[i], s) - exact[s] / scale), bound + 2e-6)
            << "round " << round << " node " << i << " state " << s;
    }
    ++compared;
  }
  EXPECT_GE(compared, 30);
  EXPECT_GT(forests, 0) << "some network has several junction trees";
}

TEST(Approximation, ZeroEpsilonChangesNothingTheMemoryKeepsItAndRefusals) {
  ov_domain_t d = load("asia.net"), exact = load("asia.net");
  EXPECT_EQ(ov_domain_approximate(d, 0.0), 0.0);
  EXPECT_EQ(largest_change(exact, d), 0.0);
  // Saving the table memory with evidence propagated keeps the approximated
  // initial tables.
  ov_domain_t copy = load("asia.net");
  ASSERT_GT(ov_domain_approximate(d, 0.05), 0.0);
  ASSERT_GT(ov_domain_approximate(copy, 0.05), 0.0);
  ASSERT_EQ(ov_node_select_state(ov_domain_get_node_by_name(d, "xray"), 0), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  ASSERT_EQ(ov_domain_save_to_memory(d), ov_error_none);
  ASSERT_EQ(ov_domain_initialize(d), ov_error_none);
  EXPECT_EQ(largest_change(copy, d), 0.0);
  ov_domain_delete(copy);
  for (double bad : {-0.1, 1.0, std::nan("")}) {
    EXPECT_EQ(ov_domain_approximate(d, bad), -1.0);
    EXPECT_EQ(ov_error_code(), ov_error_usage);
  }
  EXPECT_EQ(ov_domain_approximate(nullptr, 0.1), -1.0);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  ASSERT_EQ(ov_domain_uncompile(d), ov_error_none);
  EXPECT_EQ(ov_domain_approximate(d, 0.1), -1.0);
  EXPECT_EQ(ov_error_code(), ov_error_not_compiled);
  ov_domain_delete(d);
  ov_domain_delete(exact);
}

} // namespace
