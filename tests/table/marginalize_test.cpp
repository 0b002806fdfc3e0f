// The table walks of propagation (stream and kernel marginals into the
// scratch vector, and the zeroing of other states) against a naive per-cell
// reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "table/marginalize.h"
#include "table/plan.h"
#include "table_helpers.h"

namespace orvel {
namespace {

using test::Net;
using test::reference_marginal;

void expect_close(const std::vector<double> &expected, const double *values, const char *what) {
  for (std::size_t j = 0; j < expected.size(); ++j)
    EXPECT_NEAR(expected[j], values[j], 1e-12 * std::max(1.0, std::abs(expected[j]))) << what << " cell " << j;
}

TEST(Marginalize, StreamMarginalMatchesTheReference) {
  std::mt19937 rng(20251123);
  for (int round = 0; round < 150; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Net net;
    test::Shape shape = test::random_shape(net, rng, 1);
    Table *fine = net.table(shape.fine);
    Table *coarse = net.table(shape.coarse);
    test::fill_random(fine, rng, 0.1);
    KernelPlan *plan = plan_new(fine, nullptr, coarse, nullptr);
    ASSERT_NE(plan, nullptr);
    std::vector<std::uint32_t> work(3 * plan->dimension_count);
    std::vector<double> values(coarse->size);
    for (bool max : {false, true}) {
      stream_marginal(plan, values.data(), max, work.data());
      expect_close(reference_marginal(fine, coarse, max), values.data(), max ? "max" : "sum");
    }
    plan_delete(plan);
  }
}

void expect_scratch_marginals(Table *fine, Table *coarse, const char *what) {
  KernelPlan *plan = plan_new(fine, nullptr, coarse, nullptr);
  ASSERT_NE(plan, nullptr);
  std::vector<std::uint32_t> work(3 * plan->dimension_count);
  for (ov_equilibrium_t equilibrium : {ov_equilibrium_sum, ov_equilibrium_max}) {
    const double *values = marginal_to_scratch(plan, equilibrium, ov_mode_normal, work.data());
    ASSERT_NE(values, nullptr);
    expect_close(reference_marginal(fine, coarse, equilibrium == ov_equilibrium_max), values, what);
  }
}

TEST(Marginalize, MarginalToScratchMatchesTheReferenceOnBothPaths) {
  std::mt19937 rng(1123);
  // Small tables go through the kernels at every level; the large one is
  // streamed at level 1.
  for (std::uint32_t level : test::levels()) {
    Net net;
    test::set_level(net, level);
    test::Shape shape = test::random_shape(net, rng, 1);
    Table *fine = net.table(shape.fine);
    test::fill_random(fine, rng, 0.2);
    expect_scratch_marginals(fine, net.table(shape.coarse), "kernels");
  }
  Net net;
  std::vector<Node *> nodes;
  for (int i = 0; i < 10; ++i) nodes.push_back(net.discrete(4));
  Table *fine = net.table(nodes);
  ASSERT_GE(fine->size, stream_threshold);
  test::fill_random(fine, rng, 0.1);
  expect_scratch_marginals(fine, net.table({nodes[7], nodes[2], nodes[9]}), "stream");
}

TEST(Marginalize, ZeroOtherStatesMatchesTheReference) {
  std::mt19937 rng(231125);
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Net net;
    test::Shape shape = test::random_shape(net, rng, 1);
    Table *table = net.table(shape.fine);
    test::fill_random(table, rng);
    const std::uint32_t index = static_cast<std::uint32_t>(rng() % table->discrete_count);
    const std::uint32_t state = static_cast<std::uint32_t>(rng() % table->nodes[index]->state_count);
    std::vector<float> expected = test::data_of(table);
    for (std::uint32_t i = 0; i < table->size; ++i)
      if (test::decode(table, i)[index] != state) expected[i] = 0.0f;
    std::vector<std::uint32_t> strides(table->discrete_count);
    zero_other_states(table, discrete_strides(table, strides.data()), index, state);
    EXPECT_EQ(test::data_of(table), expected);
  }
}

} // namespace
} // namespace orvel
