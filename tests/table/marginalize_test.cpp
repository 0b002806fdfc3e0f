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
using test::project;

std::vector<double> reference_marginal(const Table *fine, const Table *coarse, bool max) {
  std::vector<double> out(coarse->size, 0.0);
  for (std::uint32_t i = 0; i < fine->size; ++i) {
    double &v = out[project(fine, i, coarse)];
    v = max ? std::max(v, static_cast<double>(fine->data[i])) : v + fine->data[i];
  }
  return out;
}

void expect_close(const std::vector<double> &expected, const double *values, const char *what) {
  for (std::size_t j = 0; j < expected.size(); ++j)
    EXPECT_NEAR(expected[j], values[j], 1e-12 * std::max(1.0, std::abs(expected[j]))) << what << " cell " << j;
}

// Up to 8 nodes of 1 to 5 states in random order, at most 20000 cells, and
// a random subset of them in another random order.
struct Shape {
  std::vector<Node *> fine, coarse;
};

Shape random_shape(Net &net, std::mt19937 &rng) {
  std::uniform_int_distribution<std::uint32_t> states(1, 5), count(1, 8);
  Shape shape;
  std::uint32_t size = 1;
  for (std::uint32_t i = 0, n = count(rng); i < n; ++i) {
    std::uint32_t s = states(rng);
    if (size * s > 20000) s = 1;
    size *= s;
    shape.fine.push_back(net.discrete(s));
  }
  std::shuffle(shape.fine.begin(), shape.fine.end(), rng);
  for (Node *node : shape.fine)
    if (rng() % 2 == 0) shape.coarse.push_back(node);
  std::shuffle(shape.coarse.begin(), shape.coarse.end(), rng);
  return shape;
}

TEST(Marginalize, StreamMarginalMatchesTheReference) {
  std::mt19937 rng(20251123);
  for (int round = 0; round < 150; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Net net;
    Shape shape = random_shape(net, rng);
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

TEST(Marginalize, MarginalToScratchMatchesTheReferenceOnBothPaths) {
  std::mt19937 rng(1123);
  // Small tables go through the kernels at every level; the large one is
  // streamed at level 1.
  for (std::uint32_t level : test::levels()) {
    Net net;
    test::set_level(net, level);
    Shape shape = random_shape(net, rng);
    Table *fine = net.table(shape.fine);
    Table *coarse = net.table(shape.coarse);
    test::fill_random(fine, rng, 0.2);
    KernelPlan *plan = plan_new(fine, nullptr, coarse, nullptr);
    ASSERT_NE(plan, nullptr);
    std::vector<std::uint32_t> work(3 * plan->dimension_count);
    for (ov_equilibrium_t equilibrium : {ov_equilibrium_sum, ov_equilibrium_max}) {
      const double *values = marginal_to_scratch(plan, equilibrium, ov_mode_normal, work.data());
      ASSERT_NE(values, nullptr);
      expect_close(reference_marginal(fine, coarse, equilibrium == ov_equilibrium_max), values, "kernels");
    }
  }
  Net net;
  std::vector<Node *> nodes;
  for (int i = 0; i < 10; ++i) nodes.push_back(net.discrete(4));
  Table *fine = net.table(nodes);
  ASSERT_GE(fine->size, stream_threshold);
  Table *coarse = net.table({nodes[7], nodes[2], nodes[9]});
  test::fill_random(fine, rng, 0.1);
  KernelPlan *plan = plan_new(fine, nullptr, coarse, nullptr);
  ASSERT_NE(plan, nullptr);
  std::vector<std::uint32_t> work(3 * plan->dimension_count);
  for (ov_equilibrium_t equilibrium : {ov_equilibrium_sum, ov_equilibrium_max}) {
    const double *values = marginal_to_scratch(plan, equilibrium, ov_mode_normal, work.data());
    ASSERT_NE(values, nullptr);
    expect_close(reference_marginal(fine, coarse, equilibrium == ov_equilibrium_max), values, "stream");
  }
}

TEST(Marginalize, ZeroOtherStatesMatchesTheReference) {
  std::mt19937 rng(231125);
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Net net;
    Shape shape = random_shape(net, rng);
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
