// Propagation against enumeration of the joint: random networks, random
// hard and soft evidence, incremental sequences in every equilibrium and
// mode, joint marginals, normalisation constants and conflict.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "brute_force.h"
#include "orvel.h"

namespace orvel::test {
namespace {

struct Checker {
  RandomNetwork &net;
  Findings findings;

  explicit Checker(RandomNetwork &n) : net(n), findings(no_findings(n)) {}

  std::vector<bool> none() const { return std::vector<bool>(net.nodes.size(), false); }

  // Every belief, the constants and a few joint marginals against the
  // reference, in the equilibrium and mode of the last propagation.
  void check(bool max, bool fast, std::mt19937 &rng, const char *where) {
    SCOPED_TRACE(where);
    const std::size_t n = net.nodes.size();
    double total = 0.0;
    brute_marginal(net, findings, {}, none(), max, &total);
    EXPECT_NEAR(ov_domain_get_normalization_constant(net.domain) / total, 1.0, 1e-3);
    EXPECT_NEAR(ov_domain_get_log_normalization_constant(net.domain), std::log(total), 1e-3);
    for (std::size_t i = 0; i < n; ++i) {
      std::vector<bool> skip = none();
      if (fast) skip[i] = true;
      double scale = 0.0;
      std::vector<double> reference = brute_marginal(net, findings, {static_cast<int>(i)}, skip, max, &scale);
      for (std::uint32_t s = 0; s < net.states[i]; ++s)
        EXPECT_NEAR(ov_node_get_belief(net.nodes[i], s), reference[s] / scale, 2e-5) << "node " << i << " state " << s;
    }
    // Pairs and triples.
    for (int round = 0; round < 4 && n >= 2; ++round) {
      const std::size_t size = 2 + rng() % std::min<std::size_t>(2, n - 1);
      std::vector<int> keep;
      while (keep.size() < size) {
        int k = static_cast<int>(rng() % n);
        if (std::find(keep.begin(), keep.end(), k) == keep.end()) keep.push_back(k);
      }
      std::vector<ov_node_t> list;
      for (int k : keep) list.push_back(net.nodes[k]);
      list.push_back(nullptr);
      ov_table_t joint = ov_domain_get_marginal(net.domain, list.data());
      if (joint == nullptr) {
        // Nodes of different trees, or nodes without a common clique in
        // fast retraction mode.
        EXPECT_TRUE(ov_error_code() == ov_error_usage || (fast && ov_error_code() == ov_error_fast_retraction))
            << ov_error_code();
        continue;
      }
      std::vector<bool> skip = none();
      if (fast)
        for (int k : keep) skip[k] = true;
      double scale = 0.0;
      std::vector<double> reference = brute_marginal(net, findings, keep, skip, max, &scale);
      // The table lists the nodes in the order asked.
      std::vector<int> order;
      for (ov_node_t *nodes = ov_table_get_nodes(joint); *nodes != nullptr; ++nodes)
        order.push_back(static_cast<int>(std::find(net.nodes.begin(), net.nodes.end(), *nodes) - net.nodes.begin()));
      ASSERT_EQ(order, keep);
      const ov_number_t *data = ov_table_get_data(joint);
      for (std::size_t c = 0; c < reference.size(); ++c) EXPECT_NEAR(data[c], reference[c] / scale, 2e-5);
      ov_table_delete(joint);
    }
  }

  // The failing tree was re-initialised: it holds no equilibrium other
  // than sum, no propagated evidence, prior beliefs, and its findings are
  // still entered. Trees propagated before it keep their results.
  void check_prior(const char *where) {
    SCOPED_TRACE(where);
    bool failed_tree_found = false;
    const Findings neutral = no_findings(net);
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      ov_junction_tree_t tree = ov_node_get_junction_tree(net.nodes[i]);
      // Trees after the failing one are as they were, possibly at max.
      if (ov_jt_evidence_is_propagated(tree) != 0 || ov_jt_equilibrium_is(tree, ov_equilibrium_sum) != 1) continue;
      if (ov_jt_evidence_to_propagate(tree) == 1) failed_tree_found = true;
      double scale = 0.0;
      std::vector<double> reference = brute_marginal(net, neutral, {static_cast<int>(i)}, none(), false, &scale);
      for (std::uint32_t s = 0; s < net.states[i]; ++s)
        EXPECT_NEAR(ov_node_get_belief(net.nodes[i], s), reference[s] / scale, 2e-5);
    }
    EXPECT_TRUE(failed_tree_found);
    EXPECT_EQ(ov_domain_evidence_to_propagate(net.domain), 1);
  }
};

void random_step(Checker &checker, std::mt19937 &rng) {
  RandomNetwork &net = checker.net;
  const std::size_t i = rng() % net.nodes.size();
  std::vector<float> &f = checker.findings[i];
  switch (rng() % 4) {
  case 0:
  case 1: {
    const std::uint32_t s = rng() % net.states[i];
    ASSERT_EQ(ov_node_select_state(net.nodes[i], s), ov_error_none);
    std::fill(f.begin(), f.end(), 0.0f);
    f[s] = 1.0f;
    break;
  }
  case 2: {
    const std::uint32_t s = rng() % net.states[i];
    const float value = (rng() % 3 == 0) ? 0.0f : std::uniform_real_distribution<float>(0.05f, 2.0f)(rng);
    ASSERT_EQ(ov_node_enter_finding(net.nodes[i], s, value), ov_error_none);
    f[s] = value;
    break;
  }
  default: ASSERT_EQ(ov_node_retract_findings(net.nodes[i]), ov_error_none); std::fill(f.begin(), f.end(), 1.0f);
  }
}

void run_sequences(std::uint32_t seed, int networks, std::uint32_t concurrency) {
  std::mt19937 rng(seed);
  for (int round = 0; round < networks; ++round) {
    RandomNetwork net = RandomNetwork::make(rng, 12);
    if (concurrency > 1) {
      ov_domain_set_concurrency_level(net.domain, concurrency);
      ov_domain_set_grain_size(net.domain, 1);
    }
    ASSERT_EQ(ov_domain_compile(net.domain), ov_error_none);
    Checker checker(net);
    checker.check(false, false, rng, "initial");
    for (int step = 0; step < 12; ++step) {
      const int changes = 1 + static_cast<int>(rng() % 3);
      for (int c = 0; c < changes; ++c) random_step(checker, rng);
      const bool max = rng() % 3 == 0;
      const bool fast = rng() % 3 == 0;
      double total = 0.0;
      brute_marginal(net, checker.findings, {}, checker.none(), false, &total);
      const ov_status_t status = ov_domain_propagate(net.domain, max ? ov_equilibrium_max : ov_equilibrium_sum,
                                                     fast ? ov_mode_fast_retraction : ov_mode_normal);
      const std::string where = "network " + std::to_string(round) + " step " + std::to_string(step) +
                                (max ? " max" : " sum") + (fast ? " fast" : " normal");
      if (total == 0.0) {
        // Impossible evidence.
        EXPECT_TRUE(status == ov_error_inconsistency_or_underflow || (fast && status == ov_error_fast_retraction))
            << where << " status " << status;
        checker.check_prior(where.c_str());
        continue;
      }
      if (fast && status == ov_error_fast_retraction) {
        checker.check_prior(where.c_str());
        continue;
      }
      ASSERT_EQ(status, ov_error_none) << where;
      EXPECT_EQ(ov_domain_evidence_to_propagate(net.domain), 0);
      checker.check(max, fast, rng, where.c_str());
      // Nothing changed: nothing to do, constants unchanged.
      const double constant = ov_domain_get_normalization_constant(net.domain);
      ASSERT_EQ(ov_domain_propagate(net.domain, max ? ov_equilibrium_max : ov_equilibrium_sum,
                                    fast ? ov_mode_fast_retraction : ov_mode_normal),
                ov_error_none);
      EXPECT_EQ(ov_domain_get_normalization_constant(net.domain), constant);
    }
  }
}

TEST(PropagationAgainstEnumeration, RandomNetworksAndIncrementalEvidence) { run_sequences(1, 60, 1); }

TEST(PropagationAgainstEnumeration, SeveralThreadsGiveTheSameResults) { run_sequences(2, 15, 3); }

} // namespace
} // namespace orvel::test
