// The conditional Gaussian part of the algebra: cancellation in cg_dot, the
// moment-matching marginal, and the merge of regressions in multiplication.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "api/error.h"
#include "table/algebra.h"
#include "table/cg.h"
#include "table/plan.h"
#include "table_helpers.h"

namespace orvel {
namespace {

using test::Net;

double &entry(Table *t, Size cell, std::uint32_t i, std::uint32_t j) {
  return t->cg_data[static_cast<std::size_t>(cell) * t->cg_stride + cg_entry_offset(i, j)];
}
double &mean(Table *t, Size cell, std::uint32_t i) {
  return t->cg_data[static_cast<std::size_t>(cell) * t->cg_stride + cg_mean_offset(i)];
}
Table *with_roles(Table *t, std::initializer_list<std::int8_t> roles) {
  std::copy(roles.begin(), roles.end(), t->cg_roles.get());
  return t;
}

TEST(CgDot, SmallResultsOfLargeTermsAreCancellation) {
  // Three continuous nodes; row 0 against heads 1 and 2.
  double config[9] = {};
  const std::uint32_t heads[2] = {1, 2};
  const double b[2] = {1.0, 1.0};
  config[cg_entry_offset(0, 1)] = 1.0;
  config[cg_entry_offset(0, 2)] = -1.0;
  EXPECT_EQ(cg_dot(config, 0, heads, b, 2, 1e-16), 0.0);
  // A raw result of one unit of rounding is also taken as 0.
  config[cg_entry_offset(0, 1)] = 1.0 + std::ldexp(1.0, -52);
  const double raw = (0.0 + config[cg_entry_offset(0, 1)]) - 1.0;
  ASSERT_NE(raw, 0.0);
  EXPECT_EQ(cg_dot(config, 0, heads, b, 2, 0.0), 0.0);
  // A result well above the threshold stays.
  config[cg_entry_offset(0, 2)] = -0.5;
  EXPECT_DOUBLE_EQ(cg_dot(config, 0, heads, b, 2, 0.25), 0.75 + std::ldexp(1.0, -52));
  // The start alone counts in the sum of absolute terms.
  EXPECT_EQ(cg_dot(config, 0, heads, b, 0, 1e-300), 1e-300);
  EXPECT_EQ(cg_cancellation, 4.9960036108132044e-14);
}

// A joint CG table over D (discrete) and two heads X, Y with per-state
// weights, means and covariances.
struct Mixture {
  Net net;
  Node *d, *e, *x, *y;
  Table *joint;
  Mixture(std::uint32_t d_states, std::uint32_t e_states, unsigned seed) {
    d = net.discrete(d_states);
    e = net.discrete(e_states);
    x = net.continuous();
    y = net.continuous();
    joint = net.table({d, e, x, y});
    joint->cg_roles[0] = joint->cg_roles[1] = cg_head;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-2.0, 2.0), pos(0.1, 3.0);
    for (Size i = 0; i < joint->size; ++i) {
      joint->data[i] = static_cast<float>(pos(rng));
      mean(joint, i, 0) = u(rng);
      mean(joint, i, 1) = u(rng);
      double vx = pos(rng), vy = pos(rng), r = u(rng) / 2.5;
      entry(joint, i, 0, 0) = vx;
      entry(joint, i, 1, 1) = vy;
      entry(joint, i, 1, 0) = r * std::sqrt(vx * vy);
    }
  }
};

TEST(CgMarginal, MomentMatchingOverSummedOutStates) {
  Mixture m(3, 2, 5);
  // Onto {Y, X}: the continuous order is swapped, nothing discrete is kept.
  Table *s = m.net.table({m.y, m.x});
  ASSERT_EQ(marginalize_tables(m.joint, s, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  double p = 0, mx = 0, my = 0;
  for (Size i = 0; i < m.joint->size; ++i) {
    p += m.joint->data[i];
    mx += m.joint->data[i] * mean(m.joint, i, 0);
    my += m.joint->data[i] * mean(m.joint, i, 1);
  }
  mx /= p;
  my /= p;
  double vxx = 0, vyy = 0, vxy = 0;
  for (Size i = 0; i < m.joint->size; ++i) {
    const double w = m.joint->data[i] / p, dx = mean(m.joint, i, 0) - mx, dy = mean(m.joint, i, 1) - my;
    vxx += w * (entry(m.joint, i, 0, 0) + dx * dx);
    vyy += w * (entry(m.joint, i, 1, 1) + dy * dy);
    vxy += w * (entry(m.joint, i, 1, 0) + dx * dy);
  }
  EXPECT_FLOAT_EQ(s->data[0], static_cast<float>(p));
  EXPECT_EQ(s->cg_roles[0], cg_head);
  EXPECT_EQ(s->cg_roles[1], cg_head);
  EXPECT_NEAR(mean(s, 0, 0), my, 1e-12);
  EXPECT_NEAR(mean(s, 0, 1), mx, 1e-12);
  EXPECT_NEAR(entry(s, 0, 0, 0), vyy, 1e-12);
  EXPECT_NEAR(entry(s, 0, 1, 1), vxx, 1e-12);
  EXPECT_NEAR(entry(s, 0, 0, 1), vxy, 1e-12);
}

TEST(CgMarginal, KeptStatesMoveTheirMomentsUnchanged) {
  Mixture m(3, 2, 6);
  Table *s = m.net.table({m.e, m.d, m.x});
  ASSERT_EQ(marginalize_tables(m.joint, s, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  for (std::uint32_t d = 0; d < 3; ++d)
    for (std::uint32_t e = 0; e < 2; ++e) {
      const Size from = d * 2 + e, to = e * 3 + d;
      EXPECT_EQ(s->data[to], m.joint->data[from]);
      EXPECT_EQ(mean(s, to, 0), mean(m.joint, from, 0));
      EXPECT_EQ(entry(s, to, 0, 0), entry(m.joint, from, 0, 0));
    }
}

TEST(CgMarginal, SameNumbersAtEveryLevel) {
  Mixture m(40, 30, 7);
  Table *reference = m.net.table({m.d, m.y});
  test::set_level(m.net, 1);
  ASSERT_EQ(marginalize_tables(m.joint, reference, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  for (std::uint32_t level : test::levels()) {
    test::set_level(m.net, level);
    Table *s = m.net.table({m.d, m.y});
    ASSERT_EQ(marginalize_tables(m.joint, s, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
    for (Size i = 0; i < s->size; ++i) {
      EXPECT_EQ(s->data[i], reference->data[i]);
      EXPECT_EQ(mean(s, i, 0), mean(reference, i, 0));
      EXPECT_EQ(entry(s, i, 0, 0), entry(reference, i, 0, 0));
    }
    table_delete(s);
  }
}

TEST(CgMarginal, ZeroWeightsMergeWithEqualWeights) {
  Mixture m(2, 1, 8);
  m.joint->data[0] = m.joint->data[1] = 0.0f;
  Table *s = m.net.table({m.x});
  ASSERT_EQ(marginalize_tables(m.joint, s, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  EXPECT_EQ(s->data[0], 0.0f);
  EXPECT_NEAR(mean(s, 0, 0), (mean(m.joint, 0, 0) + mean(m.joint, 1, 0)) / 2, 1e-12);
}

TEST(CgMarginal, WithoutHeadsOnlyTheDiscretePartIsSummed) {
  Net net;
  Node *d = net.discrete(2), *x = net.continuous();
  Table *t = net.filled({d, x}, {0.25f, 0.5f});
  Table *s = with_roles(net.table({x}), {cg_head}); // overwritten: T's node is unset
  ASSERT_EQ(marginalize_tables(t, s, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  EXPECT_EQ(s->data[0], 0.75f);
  EXPECT_EQ(s->cg_roles[0], cg_unset);
}

TEST(CgMarginal, TailsWithoutCoefficientsBecomeUnset) {
  Net net;
  Node *d = net.discrete(2), *y = net.continuous(), *x = net.continuous(), *z = net.continuous();
  Table *t = with_roles(net.table({d, y, x, z}), {cg_head, cg_tail, cg_tail});
  entry(t, 1, 0, 1) = 0.5; // y on x in state 1 only; no coefficient on z
  Table *s = net.table({d, y, x, z});
  ASSERT_EQ(marginalize_tables(t, s, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  EXPECT_EQ(std::vector<std::int8_t>(s->cg_roles.get(), s->cg_roles.get() + 3),
            (std::vector<std::int8_t>{cg_head, cg_tail, cg_unset}));
  EXPECT_EQ(entry(s, 1, 0, 1), 0.5);
}

// A regression y = a + b x with variance g, times x's own distribution.
struct Regression {
  double a, b, g;
};

TEST(CgMultiply, RegressionTimesItsTailGivesTheJoint) {
  Net net;
  Node *d = net.discrete(2), *y = net.continuous(), *x = net.continuous();
  const Regression r[2] = {{1.0, 2.0, 0.5}, {-1.0, 0.25, 2.0}};
  const double mx = 3.0, vx = 4.0;
  Table *t = with_roles(net.table({d, y, x}), {cg_head, cg_tail});
  for (Size i = 0; i < 2; ++i) {
    mean(t, i, 0) = r[i].a;
    entry(t, i, 0, 0) = r[i].g;
    entry(t, i, 0, 1) = r[i].b;
  }
  Table *s = with_roles(net.table({x}), {cg_head});
  mean(s, 0, 0) = mx;
  entry(s, 0, 0, 0) = vx;
  ASSERT_EQ(multiply_tables(t, s), ov_error_none);
  EXPECT_EQ(t->cg_roles[0], cg_head);
  EXPECT_EQ(t->cg_roles[1], cg_head);
  for (Size i = 0; i < 2; ++i) {
    EXPECT_DOUBLE_EQ(mean(t, i, 0), r[i].a + r[i].b * mx);
    EXPECT_DOUBLE_EQ(mean(t, i, 1), mx);
    EXPECT_DOUBLE_EQ(entry(t, i, 1, 1), vx);
    EXPECT_DOUBLE_EQ(entry(t, i, 0, 1), r[i].b * vx);
    EXPECT_DOUBLE_EQ(entry(t, i, 0, 0), r[i].g + r[i].b * r[i].b * vx);
  }
  // The discrete part was multiplied as well (the source's weight is 1).
  EXPECT_EQ(t->data[0], 1.0f);
}

TEST(CgMultiply, RegressionFromTheSourceOntoAHeadOfTheTarget) {
  Net net;
  Node *x = net.continuous(), *y = net.continuous(), *w = net.continuous();
  // T holds x's distribution and w's regression on x; y is unset.
  Table *t = with_roles(net.table({x, y, w}), {cg_head, cg_unset, cg_head});
  mean(t, 0, 0) = 2.0;
  entry(t, 0, 0, 0) = 9.0;
  mean(t, 0, 2) = -1.0;
  entry(t, 0, 2, 2) = 1.0;
  entry(t, 0, 2, 0) = 3.0; // cov(w, x) in the joint of the heads
  // S holds y = 1 + 0.5 x with variance 2.
  Table *s = with_roles(net.table({y, x}), {cg_head, cg_tail});
  mean(s, 0, 0) = 1.0;
  entry(s, 0, 0, 0) = 2.0;
  entry(s, 0, 0, 1) = 0.5;
  ASSERT_EQ(multiply_tables(t, s), ov_error_none);
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(t->cg_roles[i], cg_head);
  EXPECT_DOUBLE_EQ(mean(t, 0, 1), 1.0 + 0.5 * 2.0);
  EXPECT_DOUBLE_EQ(entry(t, 0, 1, 1), 2.0 + 0.25 * 9.0);
  EXPECT_DOUBLE_EQ(entry(t, 0, 1, 0), 0.5 * 9.0);
  EXPECT_DOUBLE_EQ(entry(t, 0, 1, 2), 0.5 * 3.0);
  EXPECT_DOUBLE_EQ(mean(t, 0, 0), 2.0);
  EXPECT_DOUBLE_EQ(entry(t, 0, 2, 2), 1.0);
}

TEST(CgMultiply, IntoAFreshTableCopiesTheSource) {
  Net net;
  Node *d = net.discrete(3), *e = net.discrete(2), *x = net.continuous();
  Table *t = net.table({d, e, x});
  Table *s = with_roles(net.table({e, x}), {cg_head});
  for (Size i = 0; i < 2; ++i) {
    mean(s, i, 0) = 10.0 + i;
    entry(s, i, 0, 0) = 1.0 + i;
  }
  ASSERT_EQ(multiply_tables(t, s), ov_error_none);
  EXPECT_EQ(t->cg_roles[0], cg_head);
  for (Size i = 0; i < t->size; ++i) {
    EXPECT_EQ(mean(t, i, 0), 10.0 + i % 2);
    EXPECT_EQ(entry(t, i, 0, 0), 1.0 + i % 2);
  }
}

TEST(CgMultiply, OpposingTablesAreNotResolvedYet) {
  Net net;
  Node *x = net.continuous(), *y = net.continuous();
  Table *t = with_roles(net.table({x, y}), {cg_head, cg_tail}); // x head, y tail
  Table *s = with_roles(net.table({y, x}), {cg_head, cg_tail}); // y head, x tail
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  EXPECT_EQ(cg_choose_resolution(plan), CgResolution::fault);
  EXPECT_EQ(table_multiply_into(plan, false), ov_error_error);
  EXPECT_EQ(t->cg_roles[0], cg_head) << "roles are left as they were";
  EXPECT_EQ(t->cg_roles[1], cg_tail);
  plan_delete(plan);
}

TEST(CgMultiply, ResolutionChoosesTheSideWithoutExtraHeads) {
  Net net;
  Node *x = net.continuous(), *y = net.continuous(), *z = net.continuous();
  // T: x head, y tail, z head. S: y head, x tail. A = {x}, B = {y}; S has
  // no head beyond B, so S is the side to resolve.
  Table *t = with_roles(net.table({x, y, z}), {cg_head, cg_tail, cg_head});
  Table *s = with_roles(net.table({y, x}), {cg_head, cg_tail});
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  EXPECT_EQ(cg_choose_resolution(plan), CgResolution::source);
  // T with no head beyond A resolves T.
  t->cg_roles[2] = cg_unset;
  Table *s2 = with_roles(net.table({y, x, z}), {cg_head, cg_tail, cg_head});
  KernelPlan *plan2 = plan_new(t, nullptr, s2, nullptr);
  EXPECT_EQ(cg_choose_resolution(plan2), CgResolution::target);
}

} // namespace
} // namespace orvel
