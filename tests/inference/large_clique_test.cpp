// A clique of two million cells: the streaming marginalisation (one
// thread) and the kernels (several threads allowed) give the same beliefs.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "orvel.h"

namespace {

std::vector<float> beliefs_with(std::uint32_t level, std::uint32_t grain, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(0.05f, 1.0f);
  ov_domain_t domain = ov_new_domain();
  ov_domain_set_concurrency_level(domain, level);
  ov_domain_set_grain_size(domain, grain);
  std::vector<ov_node_t> nodes;
  const int count = seed == 5 ? 24 : 28;
  for (int i = 0; i < count; ++i) {
    ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    ov_node_set_number_of_states(node, 2);
    nodes.push_back(node);
  }
  // Node 20 has the twenty nodes before it as parents; more nodes hang off
  // some of these 21, so that the big clique sends messages over
  // separators whose members lie at various strides in it, innermost ones
  // included. With seed 5 three nodes hang off the pairs (0, 10), (1, 11)
  // and (2, 12).
  for (int p = 0; p < 20; ++p) ov_node_add_parent(nodes[20], nodes[p]);
  for (int c = 21; c < count; ++c) {
    if (seed == 5) {
      ov_node_add_parent(nodes[c], nodes[c - 21]);
      ov_node_add_parent(nodes[c], nodes[c - 11]);
      continue;
    }
    if (c < 23) {
      // Two wide separators that cover the big clique between them, so
      // that some message keeps the innermost members.
      const int split = 8 + static_cast<int>(rng() % 5);
      for (int k = c == 21 ? 0 : split - 1; k <= (c == 21 ? split : 20); ++k) ov_node_add_parent(nodes[c], nodes[k]);
      continue;
    }
    const std::uint32_t parents = 2 + rng() % 4;
    for (std::uint32_t k = 0; k < parents; ++k) ov_node_add_parent(nodes[c], nodes[rng() % 21]);
  }
  for (ov_node_t node : nodes) {
    ov_table_t table = ov_node_get_table(node);
    ov_number_t *data = ov_table_get_data(table);
    for (ov_count_t i = 0; i < ov_table_get_size(table); i += 2) {
      data[i] = unit(rng);
      data[i + 1] = 1.0f - data[i];
    }
  }
  EXPECT_EQ(ov_domain_compile(domain), ov_error_none);
  ov_node_select_state(nodes[21], 1);
  ov_node_enter_finding(nodes[22], 0, 0.3f);
  ov_node_select_state(nodes[20], 0);
  std::vector<float> result;
  for (auto equilibrium : {ov_equilibrium_sum, ov_equilibrium_max}) {
    EXPECT_EQ(ov_domain_propagate(domain, equilibrium, ov_mode_normal), ov_error_none);
    for (ov_node_t node : nodes) result.push_back(ov_node_get_belief(node, 0));
    result.push_back(static_cast<float>(ov_domain_get_log_normalization_constant(domain)));
  }
  ov_domain_delete(domain);
  return result;
}

TEST(LargeCliques, StreamAndKernelsAgree) {
  for (std::uint32_t seed : {5u, 6u, 7u}) {
    SCOPED_TRACE(seed);
    const std::vector<float> stream = beliefs_with(1, 10000, seed);
    const std::vector<float> kernels = beliefs_with(2, 1u << 30, seed);
    const std::vector<float> threads = beliefs_with(2, 1000, seed);
    ASSERT_EQ(stream.size(), kernels.size());
    for (std::size_t i = 0; i < stream.size(); ++i) {
      EXPECT_NEAR(stream[i], kernels[i], 2e-6) << i;
      EXPECT_EQ(kernels[i], threads[i]) << i;
    }
  }
}

} // namespace
