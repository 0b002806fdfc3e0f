// Approximation of the initial tables: under random evidence every belief
// stays within the bound the header documents of the exact belief, and the
// refusals of the call.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

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
  for (const char *name : {"alarm.net", "insurance.net", "water.net"}) {
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

TEST(Approximation, ZeroEpsilonChangesNothingAndRefusals) {
  ov_domain_t d = load("asia.net"), exact = load("asia.net");
  EXPECT_EQ(ov_domain_approximate(d, 0.0), 0.0);
  EXPECT_EQ(largest_change(exact, d), 0.0);
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
