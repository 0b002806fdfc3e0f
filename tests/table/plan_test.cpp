// Kernel plans: checks at creation, the dimension layout, merging, fixed
// dimensions and the domain's list.
#include <gtest/gtest.h>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "model/domain.h"
#include "table/plan.h"
#include "table_helpers.h"

namespace orvel {
namespace {

using test::Net;

TEST(PlanNew, RefusesTablesThatDoNotFit) {
  Net net, other;
  Node *a = net.discrete(2), *b = net.discrete(3), *x = other.discrete(2);
  Table *ab = net.table({a, b});
  Table *b_only = net.table({b});
  Table *u = net.table({a, b}, ov_table_kind_utility);
  Table *foreign = other.table({x});

  EXPECT_EQ(plan_new(b_only, nullptr, ab, nullptr), nullptr) << "source nodes must be a subset";
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(plan_new(ab, nullptr, foreign, nullptr), nullptr);
  EXPECT_EQ(plan_new(u, nullptr, b_only, nullptr), nullptr) << "utility table in a probability place";
  EXPECT_EQ(plan_new(ab, ab, b_only, nullptr), nullptr) << "probability table in a utility place";
  EXPECT_EQ(plan_new(nullptr, nullptr, b_only, nullptr), nullptr);
  EXPECT_EQ(plan_new(ab, nullptr, nullptr, nullptr), nullptr);
  Table *u_b = net.table({b}, ov_table_kind_utility);
  EXPECT_EQ(plan_new(ab, u_b, b_only, nullptr), nullptr) << "a pair must have the same nodes";
  Table *u_ab_role = net.table({a, b}, ov_table_kind_utility, role_clique);
  EXPECT_EQ(plan_new(ab, u_ab_role, b_only, nullptr), nullptr) << "a pair must have the same role";
  EXPECT_EQ(orvel::domain_kernel_plans(net.domain).size(), 0u);

  KernelPlan *plan = plan_new(ab, u, b_only, nullptr);
  ASSERT_NE(plan, nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(plan->finer(), ab);
  EXPECT_EQ(plan->coarser(), b_only);
}

TEST(PlanNew, CompressedDomainRefusesCliqueAndSeparatorTables) {
  Net net;
  Node *a = net.discrete(2);
  Table *clique = net.table({a}, ov_table_kind_probability, role_clique);
  Table *plain = net.table({a});
  Table *marginal = net.table({a});
  net.domain->compiled = 1;
  net.domain->forest->compressed = 1;
  EXPECT_EQ(plan_new(clique, nullptr, marginal, nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  KernelPlan *plan = plan_new(plain, nullptr, marginal, nullptr);
  EXPECT_NE(plan, nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
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
  const PlanDimension *saved = plan->saved();
  // T's order with the strides in S (d b: b has stride 1, d stride 3).
  EXPECT_EQ(saved[0].count, 2u);
  EXPECT_EQ(saved[0].stride, 0u);
  EXPECT_EQ(saved[1].stride, 1u);
  EXPECT_EQ(saved[2].stride, 0u);
  EXPECT_EQ(saved[3].stride, 3u);
  // S's nodes first in S's order, then the others in T's order, with
  // strides in T.
  const PlanDimension *cur = plan->current();
  EXPECT_EQ(plan->shared_count, 2u);
  EXPECT_EQ(plan->inner_count, 2u);
  EXPECT_EQ(cur[0].count, 5u); // d
  EXPECT_EQ(cur[0].stride, 1u);
  EXPECT_EQ(cur[1].count, 3u); // b
  EXPECT_EQ(cur[1].stride, 20u);
  EXPECT_EQ(cur[2].count, 2u); // a
  EXPECT_EQ(cur[2].stride, 60u);
  EXPECT_EQ(cur[3].count, 4u); // c
  EXPECT_EQ(cur[3].stride, 5u);
}

TEST(PlanMerge, FirstDimensionRuleAtLevelFour) {
  auto dims_with_first = [](std::uint32_t first) {
    // Three joinable dimensions: strides 6, 3, 1 over counts first, 2, 3.
    return std::vector<PlanDimension>{{first, 6, 0, nullptr}, {2, 3, 0, nullptr}, {3, 1, 0, nullptr}};
  };
  {
    // Below 16 and not divisible by 4: joined. The result, 18, is no longer
    // below 16, so the next join is not made; later dimensions would be.
    auto dims = dims_with_first(9);
    EXPECT_EQ(merge_dimensions(dims.data(), 3, 4), 2u);
    EXPECT_EQ(dims[0].count, 18u);
    EXPECT_EQ(dims[0].stride, 3u);
    EXPECT_EQ(dims[1].count, 3u);
  }
  {
    auto dims = dims_with_first(8); // divisible by 4: apart, the rest joined
    EXPECT_EQ(merge_dimensions(dims.data(), 3, 4), 2u);
    EXPECT_EQ(dims[0].count, 8u);
    EXPECT_EQ(dims[1].count, 6u);
    EXPECT_EQ(dims[1].stride, 1u);
  }
  {
    auto dims = dims_with_first(17); // not below 16: apart
    EXPECT_EQ(merge_dimensions(dims.data(), 3, 4), 2u);
    EXPECT_EQ(dims[0].count, 17u);
  }
  {
    auto dims = dims_with_first(8); // level 1 joins everything
    EXPECT_EQ(merge_dimensions(dims.data(), 3, 1), 1u);
    EXPECT_EQ(dims[0].count, 48u);
  }
  {
    // A join grows the first dimension, which is tested again before the
    // next join: 3 joins 2 (6), 6 is below 16 and not divisible by 4, so it
    // joins 3 too.
    std::vector<PlanDimension> dims{{3, 6, 0, nullptr}, {2, 3, 0, nullptr}, {3, 1, 0, nullptr}};
    EXPECT_EQ(merge_dimensions(dims.data(), 3, 4), 1u);
    std::vector<PlanDimension> stop{{3, 20, 0, nullptr}, {4, 5, 0, nullptr}, {5, 1, 0, nullptr}};
    // 3 joins 4 to give 12, which is divisible by 4: the third stays apart.
    EXPECT_EQ(merge_dimensions(stop.data(), 3, 4), 2u);
    EXPECT_EQ(stop[0].count, 12u);
  }
  {
    // Unequal flags, weights or strides that do not line up block a join.
    float w[2] = {1, 2};
    std::vector<PlanDimension> flags{{2, 2, 1, nullptr}, {2, 1, 0, nullptr}};
    EXPECT_EQ(merge_dimensions(flags.data(), 2, 1), 2u);
    std::vector<PlanDimension> weights{{2, 2, 0, nullptr}, {2, 1, 0, w}};
    EXPECT_EQ(merge_dimensions(weights.data(), 2, 1), 2u);
    std::vector<PlanDimension> gap{{2, 4, 0, nullptr}, {2, 1, 0, nullptr}};
    EXPECT_EQ(merge_dimensions(gap.data(), 2, 1), 2u);
  }
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
