// A clique of two million cells: the streaming marginalisation (one
// thread) and the kernels (several threads allowed) give the same beliefs.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "orvel.h"

namespace {

std::vector<float> beliefs_with(std::uint32_t level, std::uint32_t grain) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> unit(0.05f, 1.0f);
  ov_domain_t domain = ov_new_domain();
  ov_domain_set_concurrency_level(domain, level);
  ov_domain_set_grain_size(domain, grain);
  std::vector<ov_node_t> nodes;
  for (int i = 0; i < 24; ++i) {
    ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    ov_node_set_number_of_states(node, 2);
    nodes.push_back(node);
  }
  // Node 20 has the twenty nodes before it as parents; three more nodes
  // hang off pairs of them, so that the big clique sends messages.
  for (int p = 0; p < 20; ++p) ov_node_add_parent(nodes[20], nodes[p]);
  for (int c = 21; c < 24; ++c) {
    ov_node_add_parent(nodes[c], nodes[c - 21]);
    ov_node_add_parent(nodes[c], nodes[c - 11]);
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
  const std::vector<float> stream = beliefs_with(1, 10000);
  const std::vector<float> kernels = beliefs_with(2, 1u << 30);
  const std::vector<float> threads = beliefs_with(2, 1000);
  ASSERT_EQ(stream.size(), kernels.size());
  for (std::size_t i = 0; i < stream.size(); ++i) {
    EXPECT_NEAR(stream[i], kernels[i], 2e-6) << i;
    EXPECT_EQ(kernels[i], threads[i]) << i;
  }
}

} // namespace
