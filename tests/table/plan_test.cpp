// Kernel plans: checks at creation, the dimension layout, merging, fixed
// dimensions and the domain's list.
#include <gtest/gtest.h>

#include <array>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "model/domain.h"
#include "table/algebra.h"
#include "table/plan.h"
#include "table_helpers.h"

namespace orvel {
namespace {

using test::Net;
using Dims = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

Dims counts_and_strides(const PlanDimension *dimensions, std::uint32_t n) {
  Dims dims;
  for (std::uint32_t i = 0; i < n; ++i) dims.emplace_back(dimensions[i].count, dimensions[i].stride);
  return dims;
}

// Plans are made inside the library from tables that fit; these are the
// checks it makes all the same, with the refusals of a compressed domain.
TEST(PlanNew, RefusesTablesThatDoNotFit) {
  Net net, other;
  Node *a = net.discrete(2), *b = net.discrete(3);
  Table *ab = net.table({a, b}), *b_only = net.table({b}), *u = net.table({a, b}, ov_table_kind_utility);
  Table *u_b = net.table({b}, ov_table_kind_utility);
  Table *u_ab_clique = net.table({a, b}, ov_table_kind_utility, role_clique);
  const std::vector<std::array<Table *, 4>> refused = {
      {b_only, nullptr, ab, nullptr},                           // source nodes must be a subset
      {ab, nullptr, other.table({other.discrete(2)}), nullptr}, // another domain
      {u, nullptr, b_only, nullptr},                            // utility table in a probability place
      {ab, ab, b_only, nullptr},                                // probability table in a utility place
      {nullptr, nullptr, b_only, nullptr},
      {ab, nullptr, nullptr, nullptr},
      {ab, u_b, b_only, nullptr},         // a pair must have the same nodes
      {ab, u_ab_clique, b_only, nullptr}, // and the same role
  };
  for (const auto &t : refused) {
    EXPECT_EQ(plan_new(t[0], t[1], t[2], t[3]), nullptr);
    EXPECT_EQ(ov_error_code(), ov_error_usage);
  }
  EXPECT_EQ(orvel::domain_kernel_plans(net.domain).size(), 0u);
  KernelPlan *plan = plan_new(ab, u, b_only, nullptr);
  ASSERT_NE(plan, nullptr);
  EXPECT_EQ(plan->finer(), ab);
  EXPECT_EQ(plan->coarser(), b_only);
  Table *clique = net.table({a}, ov_table_kind_probability, role_clique), *plain = net.table({a});
  KernelPlan *divide = plan_new(plain, nullptr, net.table({a}), nullptr);
  net.domain->compiled = 1;
  net.domain->forest->compressed = 1;
  EXPECT_EQ(plan_new(clique, nullptr, plain, nullptr), nullptr);
  EXPECT_NE(plan_new(plain, nullptr, net.table({a}), nullptr), nullptr);
  EXPECT_EQ(table_divide_into(divide), ov_error_compressed);
  net.domain->forest->compressed = 0;
  net.domain->compiled = 0;
}

TEST(PlanLayout, HalvesHoldTheSavedAndTheCurrentOrder) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(3), *c = net.discrete(4), *d = net.discrete(5);
  Table *t = net.table({a, b, c, d});
  Table *s = net.table({d, b});
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  ASSERT_NE(plan, nullptr);
  ASSERT_EQ(plan->dimension_count, 4u);
  // T's order with the strides in S (d b: b has stride 1, d stride 3); then
  // S's nodes first in S's order, the others in T's order, with strides in T.
  EXPECT_EQ(counts_and_strides(plan->saved(), 4), (Dims{{2, 0}, {3, 1}, {4, 0}, {5, 3}}));
  EXPECT_EQ(plan->shared_count, 2u);
  EXPECT_EQ(plan->inner_count, 2u);
  EXPECT_EQ(counts_and_strides(plan->current(), 4), (Dims{{5, 1}, {3, 20}, {2, 60}, {4, 5}}));
}

TEST(PlanMerge, FirstDimensionRuleAtLevelFour) {
  // A first dimension below 16 and not divisible by 4 joins the next; the
  // test is made again after each join. Unequal flags, weights or strides
  // that do not line up block a join; level 1 joins everything.
  float w[2] = {1, 2};
  struct Case {
    std::vector<PlanDimension> dims;
    std::uint32_t level, merged, first_count;
  };
  const Case cases[] = {
      {{{9, 6}, {2, 3}, {3, 1}}, 4, 2, 18}, {{{8, 6}, {2, 3}, {3, 1}}, 4, 2, 8},  {{{17, 6}, {2, 3}, {3, 1}}, 4, 2, 17},
      {{{8, 6}, {2, 3}, {3, 1}}, 1, 1, 48}, {{{3, 6}, {2, 3}, {3, 1}}, 4, 1, 18}, {{{3, 20}, {4, 5}, {5, 1}}, 4, 2, 12},
      {{{2, 2, 1}, {2, 1}}, 1, 2, 2},       {{{2, 2}, {2, 1, 0, w}}, 1, 2, 2},    {{{2, 4}, {2, 1}}, 1, 2, 2},
  };
  for (const Case &c : cases) {
    std::vector<PlanDimension> dims = c.dims;
    EXPECT_EQ(merge_dimensions(dims.data(), static_cast<std::uint32_t>(dims.size()), c.level), c.merged);
    EXPECT_EQ(dims[0].count, c.first_count);
  }
  // The rest of the join after a first dimension kept apart.
  std::vector<PlanDimension> dims{{8, 6}, {2, 3}, {3, 1}};
  merge_dimensions(dims.data(), 3, 4);
  EXPECT_EQ(dims[1].count, 6u);
  EXPECT_EQ(dims[1].stride, 1u);
  std::vector<PlanDimension> joined{{9, 6}, {2, 3}, {3, 1}};
  merge_dimensions(joined.data(), 3, 4);
  EXPECT_EQ(joined[0].stride, 3u);
}

TEST(PlanMerge, SharedDimensionsUseTheDomainLevelAndInnerOnesLevelOne) {
  Net net;
  Node *a = net.discrete(8), *b = net.discrete(2), *c = net.discrete(3), *d = net.discrete(2);
  Table *t = net.table({a, b, c, d});
  Table *s = net.table({a, b});
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  net.domain->concurrency_level = 4;
  plan_prepare(plan, false);
  EXPECT_EQ(plan->shared_count, 2u) << "a first dimension of 8 stays apart at level 4";
  EXPECT_EQ(plan->inner_count, 1u);
  EXPECT_EQ(plan->current()[2].count, 6u);
  net.domain->concurrency_level = 1;
  plan_prepare(plan, false);
  EXPECT_EQ(plan->shared_count, 1u);
  EXPECT_EQ(plan->current()[0].count, 16u);
  plan_reset(plan);
  EXPECT_EQ(plan->shared_count, 2u);
  EXPECT_EQ(plan->inner_count, 2u);
}

TEST(PlanDropFixed, RemovesInstantiatedInnerDimensions) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(3), *c = net.discrete(4);
  Table *t = net.table({a, b, c});
  Table *s = net.table({a});
  Table *finding = net.filled({b}, {0.0f, 0.5f, 0.0f});
  b->propagated_finding = finding;
  b->instantiated_state = 1;
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  plan_drop_fixed(plan, true);
  EXPECT_EQ(plan->inner_count, 2u) << "the finding at the state is not 1.0";
  EXPECT_EQ(plan->base_offset, 0u);
  plan_drop_fixed(plan, false);
  EXPECT_EQ(plan->inner_count, 1u);
  EXPECT_EQ(plan->base_offset, 4u);
  EXPECT_EQ(plan->current()[1].count, 4u);
  // Shared nodes are never dropped.
  a->instantiated_state = 1;
  plan_prepare(plan, true);
  EXPECT_EQ(plan->shared_count, 1u);
  EXPECT_EQ(plan->base_offset, 4u);
  plan_reset(plan);
  EXPECT_EQ(plan->base_offset, 0u);
  a->instantiated_state = b->instantiated_state = -1;
  b->propagated_finding = nullptr;
}

TEST(PlanPrepare, SummingFlagsFollowTheNodeCategory) {
  Net net;
  Node *a = net.discrete(2), *d = net.discrete(2, ov_category_decision), *e = net.discrete(2, ov_category_decision);
  Node *c = net.discrete(2);
  Table *t = net.table({a, d, e, c});
  Table *s = net.table({a});
  Table *finding = net.filled({e}, {1.0f, 0.0f});
  e->propagated_finding = finding;
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  plan_prepare_summing(plan, false);
  // d (open decision) is maximised; e (decided) and c are summed and join.
  ASSERT_EQ(plan->inner_count, 2u);
  EXPECT_EQ(plan->current()[1].sum_flag, 0u);
  EXPECT_EQ(plan->current()[2].sum_flag, 1u);
  EXPECT_EQ(plan->current()[2].count, 4u);
  e->propagated_finding = nullptr;
}

TEST(PlanList, SerialsFollowTheListAndTheForestReleasesPlans) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(2);
  Table *t = net.table({a, b});
  Table *s = net.table({a});
  KernelPlan *p1 = plan_new(t, nullptr, s, nullptr);
  KernelPlan *p2 = plan_new(t, nullptr, s, nullptr);
  KernelPlan *p3 = plan_bind(p1, t, s);
  ASSERT_NE(p3, nullptr);
  EXPECT_EQ(p3->layout, p1->layout) << "a bound plan shares the dimensions";
  EXPECT_TRUE(p3->bound);
  EXPECT_EQ(orvel::domain_kernel_plans(net.domain).size(), 3u);
  EXPECT_EQ(p1->serial, 1u);
  EXPECT_EQ(p3->serial, 3u);
  plan_delete(p1);
  EXPECT_EQ(p2->serial, 1u);
  EXPECT_EQ(p3->serial, 2u);
  // The bound plan still works after its origin is gone.
  ASSERT_EQ(table_allocate(t), ov_error_none);
  plan_prepare(p3, false);
  EXPECT_EQ(p3->shared_count, 1u);
  plan_reset(p3);
  EXPECT_EQ(plan_bind(p2, s, s), nullptr) << "other discrete nodes than the plan's target";
  KernelPlan *same = plan_for_tables(t, table_clone(t));
  ASSERT_NE(same, nullptr);
  EXPECT_FALSE(same->has_dimensions());
  EXPECT_EQ(plan_for_tables(t, s), nullptr);
  release_forest(net.domain, false);
  EXPECT_EQ(orvel::domain_kernel_plans(net.domain).size(), 0u);
}

} // namespace
} // namespace orvel
