// Simulation: frequencies of drawn states against the beliefs (chi-square
// with a fixed seed) and the probability of the drawn configuration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "../inference/brute_force.h"
#include "orvel.h"

namespace orvel::test {
namespace {

// Chi-square statistic of counts against probabilities; cells of zero
// probability must have no count.
double chi_square(const std::vector<int> &counts, const std::vector<double> &p, int draws) {
  double statistic = 0.0;
  for (std::size_t s = 0; s < counts.size(); ++s) {
    if (p[s] <= 0.0) {
      EXPECT_EQ(counts[s], 0);
      continue;
    }
    const double expected = p[s] * draws;
    statistic += (counts[s] - expected) * (counts[s] - expected) / expected;
  }
  return statistic;
}

void check_frequencies(RandomNetwork &net, const Findings &findings, int draws, bool compiled) {
  const std::size_t n = net.nodes.size();
  std::vector<std::vector<int>> counts;
  for (std::uint32_t s : net.states) counts.emplace_back(s, 0);
  double total = 0.0;
  brute_marginal(net, findings, {}, std::vector<bool>(n, false), false, &total);
  for (int draw = 0; draw < draws; ++draw) {
    ASSERT_EQ(ov_domain_simulate(net.domain), ov_error_none);
    std::vector<int> all;
    for (std::size_t i = 0; i < n; ++i) {
      const ov_index_t s = ov_node_get_sampled_state(net.nodes[i]);
      ASSERT_GE(s, 0);
      ++counts[i][static_cast<std::size_t>(s)];
      all.push_back(static_cast<int>(i));
    }
    if (compiled && draw < 20) {
      // The probability of the drawn configuration given the evidence.
      std::vector<double> joint = brute_marginal(net, findings, all, std::vector<bool>(n, false), false, nullptr);
      std::size_t cell = 0;
      for (std::size_t i = 0; i < n; ++i) cell = cell * net.states[i] + ov_node_get_sampled_state(net.nodes[i]);
      EXPECT_NEAR(ov_domain_get_probability_of_random_selection(net.domain), joint[cell] / total, 1e-4);
    }
  }
  for (std::size_t i = 0; i < n; ++i) {
    std::vector<bool> skip(n, false);
    double scale = 0.0;
    std::vector<double> p = brute_marginal(net, findings, {static_cast<int>(i)}, skip, false, &scale);
    for (double &x : p) x /= scale;
    // The 99.99% point of chi-square with 3 degrees of freedom is 21.1.
    EXPECT_LT(chi_square(counts[i], p, draws), 21.2) << "node " << i;
  }
}

TEST(Simulation, CompiledFrequenciesFollowTheBeliefs) {
  std::mt19937 rng(7);
  for (int round = 0; round < 12; ++round) {
    RandomNetwork net = RandomNetwork::make(rng, 8);
    ASSERT_EQ(ov_domain_compile(net.domain), ov_error_none);
    ov_domain_seed_random(net.domain, 12345 + round);
    Findings findings = no_findings(net);
    // One soft finding, or on odd rounds one hard finding on a state of
    // positive belief, so that the evidence stays possible.
    const std::size_t i = rng() % net.nodes.size();
    if (round % 2 == 0) {
      ASSERT_EQ(ov_node_enter_finding(net.nodes[i], 0, 0.25f), ov_error_none);
      findings[i][0] = 0.25f;
    } else {
      ov_index_t state = 0;
      while (!(ov_node_get_belief(net.nodes[i], state) > 0.0f)) ++state;
      ASSERT_EQ(ov_node_select_state(net.nodes[i], state), ov_error_none);
      for (std::uint32_t s = 0; s < net.states[i]; ++s) findings[i][s] = s == static_cast<std::uint32_t>(state);
    }
    ASSERT_EQ(ov_domain_propagate(net.domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
    check_frequencies(net, findings, 4000, true);
  }
}

TEST(Simulation, UncompiledDrawsFromTheTables) {
  std::mt19937 rng(8);
  for (int round = 0; round < 6; ++round) {
    RandomNetwork net = RandomNetwork::make(rng, 8);
    ov_domain_seed_random(net.domain, 999 + round);
    Findings findings = no_findings(net);
    check_frequencies(net, findings, 4000, false);
    // Hard findings are drawn from only when they fix every ancestor too:
    // then forward draws follow the distribution given the evidence, which
    // enumeration checks; otherwise the draw is refused.
    const std::size_t i = rng() % net.nodes.size();
    ASSERT_EQ(ov_node_select_state(net.nodes[i], net.states[i] - 1), ov_error_none);
    bool free_parent = false; // a parent of one state is always fixed
    for (ov_node_t *p = ov_node_get_parents(net.nodes[i]); *p != nullptr; ++p)
      free_parent = free_parent || ov_node_get_number_of_states(*p) > 1;
    EXPECT_EQ(ov_domain_simulate(net.domain), free_parent ? ov_error_usage : ov_error_none);
    std::vector<ov_node_t> fixed{net.nodes[i]};
    for (std::size_t k = 0; k < fixed.size(); ++k)
      for (ov_node_t *p = ov_node_get_parents(fixed[k]); *p != nullptr; ++p)
        if (std::find(fixed.begin(), fixed.end(), *p) == fixed.end()) fixed.push_back(*p);
    // A configuration of positive probability: one drawn without evidence.
    ASSERT_EQ(ov_node_retract_findings(net.nodes[i]), ov_error_none);
    ASSERT_EQ(ov_domain_simulate(net.domain), ov_error_none);
    for (std::size_t j = 0; j < net.nodes.size(); ++j) {
      if (std::find(fixed.begin(), fixed.end(), net.nodes[j]) == fixed.end()) continue;
      const auto state = static_cast<std::uint32_t>(ov_node_get_sampled_state(net.nodes[j]));
      ASSERT_EQ(ov_node_select_state(net.nodes[j], state), ov_error_none);
      for (std::uint32_t s = 0; s < net.states[j]; ++s) findings[j][s] = s == state;
    }
    check_frequencies(net, findings, 4000, false);
  }
}

} // namespace
} // namespace orvel::test
