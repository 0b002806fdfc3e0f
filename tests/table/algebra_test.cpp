// Marginalisation, multiplication, division and normalisation, against a
// naive per-cell reference and at every concurrency level.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "table/algebra.h"
#include "table/plan.h"
#include "table_helpers.h"

namespace orvel {
namespace {

using test::data_of;
using test::Net;
using test::project;

std::vector<float> reference(const Table *fine, const Table *coarse, bool max) {
  std::vector<double> r = test::reference_marginal(fine, coarse, max);
  return std::vector<float>(r.begin(), r.end());
}

std::vector<float> reference_multiply(const Table *fine, const Table *coarse) {
  std::vector<float> out = data_of(fine);
  for (std::uint32_t i = 0; i < fine->size; ++i) out[i] *= coarse->data[project(fine, i, coarse)];
  return out;
}

// The three division rules: one-to-one cells divide by a divisor above 0;
// a block with no shared node is scaled by the reciprocal of a divisor above
// 0; a block under a shared cell is scaled unless the divisor is exactly 0.
std::vector<float> reference_divide(const Table *fine, const Table *coarse) {
  std::vector<float> out = data_of(fine);
  const bool one_to_one = fine->discrete_count == coarse->discrete_count;
  const bool no_shared = coarse->discrete_count == 0;
  for (std::uint32_t i = 0; i < fine->size; ++i) {
    float d = coarse->data[project(fine, i, coarse)];
    if (one_to_one) {
      if (d > 0) out[i] = out[i] / d;
    } else if (no_shared) {
      if (d > 0) out[i] *= 1.0f / d;
    } else if (!(d == 0)) {
      out[i] *= 1.0f / d;
    }
  }
  return out;
}

void expect_same(const std::vector<float> &expected, const Table *table, const char *what, std::uint32_t level) {
  ASSERT_EQ(expected.size(), table->size) << what;
  for (std::uint32_t i = 0; i < table->size; ++i) {
    if (std::isnan(expected[i])) {
      EXPECT_TRUE(std::isnan(table->data[i])) << what << " level " << level << " cell " << i;
      continue;
    }
    // Bit for bit: the split over threads changes only who does which cell.
    EXPECT_EQ(expected[i], table->data[i]) << what << " level " << level << " cell " << i;
  }
}

TEST(TableAlgebraProperty, MatchesTheNaiveReferenceAtEveryLevel) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 150; ++round) {
    Net net;
    test::Shape shape = test::random_shape(net, rng);
    Table *fine = net.table(shape.fine);
    Table *coarse = net.table(shape.coarse);
    test::fill_random(fine, rng, 0.1);
    test::fill_random(coarse, rng, 0.3);
    const std::vector<float> fine_data = data_of(fine), coarse_data = data_of(coarse);
    const std::vector<float> sum = reference(fine, coarse, false), max = reference(fine, coarse, true);
    const std::vector<float> product = reference_multiply(fine, coarse), quotient = reference_divide(fine, coarse);

    for (std::uint32_t level : test::levels()) {
      SCOPED_TRACE("round " + std::to_string(round));
      test::set_level(net, level);
      Table *out = net.table(shape.coarse);
      ASSERT_EQ(marginalize_tables(fine, out, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
      expect_same(sum, out, "sum", level);
      ASSERT_EQ(marginalize_tables(fine, out, ov_equilibrium_max, ov_mode_normal, false), ov_error_none);
      expect_same(max, out, "max", level);
      EXPECT_EQ(data_of(fine), fine_data);

      Table *target = table_clone(fine);
      ASSERT_EQ(multiply_tables(target, coarse), ov_error_none);
      expect_same(product, target, "multiply", level);
      std::memcpy(target->data.get(), fine_data.data(), sizeof(float) * fine->size);
      ASSERT_EQ(divide_tables(target, coarse), ov_error_none);
      expect_same(quotient, target, "divide", level);
      EXPECT_EQ(data_of(coarse), coarse_data);
      table_delete(target);
      table_delete(out);
    }
    EXPECT_EQ(orvel::domain_kernel_plans(net.domain).size(), 0u) << "the shorthand forms delete their plans";
  }
}

// Division rules that random tables do not reach: 0 / 0, x / 0, negative
// and NaN divisors, by the shape of the pair.
TEST(Division, ZeroNegativeAndNanDivisorsByShape) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(3), *c = net.discrete(2);
  struct Case {
    std::vector<Node *> fine;
    std::vector<float> values;
    std::vector<Node *> coarse;
    std::vector<float> divisor, expected;
  };
  const Case cases[] = {
      {{a}, {0, 5}, {a}, {0, 0}, {0, 5}},
      {{a}, {4, 6}, {a}, {-2, 2}, {4, 3}},
      {{a}, {4, 6}, {a}, {NAN, 2}, {4, 3}},
      {{a, c}, {0, 5, 0, 5}, {}, {0}, {0, 5, 0, 5}},
      {{a, b}, {1, 2, 3, 4, 5, 6}, {}, {-2}, {1, 2, 3, 4, 5, 6}},
      {{a, c}, {0, 5, 0, 5}, {c}, {0, 0}, {0, 5, 0, 5}},
      {{a, c}, {0, 5, 5, 0}, {a}, {0, 2}, {0, 5, 2.5f, 0}},
      {{a, b}, {1, 2, 3, 4, 5, 6}, {a}, {-2, 0}, {-0.5f, -1, -1.5f, 4, 5, 6}},
      {{a, b}, {1, 2, 3, 4, 5, 6}, {a}, {NAN, 1}, {NAN, NAN, NAN, 4, 5, 6}},
  };
  for (const Case &k : cases) {
    Table *t = net.filled(k.fine, k.values);
    ASSERT_EQ(divide_tables(t, net.filled(k.coarse, k.divisor)), ov_error_none);
    expect_same(k.expected, t, "divide", 1);
  }
}

TEST(Multiplication, UtilitiesAddWhereProbabilitiesMultiply) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(2);
  Table *tp = net.filled({a, b}, {1, 1, 1, 1});
  Table *tu = net.filled({a, b}, {1, 2, 3, 4}, ov_table_kind_utility);
  Table *sp = net.filled({b}, {0.5f, 2.0f});
  Table *su = net.filled({b}, {10, 20}, ov_table_kind_utility);
  KernelPlan *plan = plan_new(tp, tu, sp, su);
  ASSERT_NE(plan, nullptr);
  for (std::uint32_t level : test::levels()) {
    test::set_level(net, level);
    std::fill_n(tp->data.get(), 4, 1.0f);
    const float start[] = {1, 2, 3, 4};
    std::copy(start, start + 4, tu->data.get());
    ASSERT_EQ(table_multiply_into(plan, false), ov_error_none);
    EXPECT_EQ(data_of(tu), (std::vector<float>{11, 22, 13, 24}));
    EXPECT_EQ(data_of(tp), (std::vector<float>{0.5f, 2, 0.5f, 2}));
  }
  plan_delete(plan);
}

TEST(Marginalisation, SixteenMillionSmallCellsSumInDouble) {
  Net net;
  Node *a = net.discrete(256), *b = net.discrete(256), *c = net.discrete(256);
  Table *t = net.table({a, b, c});
  ASSERT_EQ(t->size, 16777216u);
  std::fill_n(t->data.get(), t->size, 1e-8f);
  for (std::uint32_t level : {1u, 2u}) {
    test::set_level(net, level, 10000);
    Table *m = marginal_of(t, NodeList(), ov_equilibrium_sum, ov_mode_normal, false);
    ASSERT_NE(m, nullptr);
    // A float accumulator would stall far below this.
    EXPECT_NEAR(m->data[0], 16777216 * static_cast<double>(1e-8f), 1e-6);
    table_delete(m);
    Table *rows = net.table({a});
    ASSERT_EQ(marginalize_tables(t, rows, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
    EXPECT_NEAR(rows->data[17], 65536 * static_cast<double>(1e-8f), 1e-9);
    table_delete(rows);
  }
}

TEST(Marginalisation, RestrictReadsTheSliceOfFixedNodes) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(3);
  Table *t = net.filled({a, b}, {1, 2, 3, 4, 5, 6});
  Table *m = net.table({a});
  b->instantiated_state = 2;
  ASSERT_EQ(marginalize_tables(t, m, ov_equilibrium_sum, ov_mode_normal, true), ov_error_none);
  EXPECT_EQ(data_of(m), (std::vector<float>{3, 6}));
  ASSERT_EQ(marginalize_tables(t, m, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  EXPECT_EQ(data_of(m), (std::vector<float>{6, 15}));
  // Multiplication with restrict leaves the cells of other states alone.
  Table *s = net.filled({a}, {10, 100});
  ASSERT_EQ(marginalize_tables(t, m, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  ASSERT_EQ(table_multiply_into(plan, true), ov_error_none);
  EXPECT_EQ(data_of(t), (std::vector<float>{1, 2, 30, 4, 5, 600}));
  plan_delete(plan);
  b->instantiated_state = -1;
}

// A plan kept between calls follows the evidence: a fixed node that moves
// to another state, a node fixed or freed, another concurrency level.
TEST(Marginalisation, KeptPlanFollowsChangingEvidence) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(3), *c = net.discrete(2);
  std::vector<float> cells(12);
  for (int i = 0; i < 12; ++i) cells[i] = static_cast<float>(1 << i); // each sum tells its cells
  Table *t = net.filled({a, b, c}, cells);
  Table *m = net.table({a});
  KernelPlan *plan = plan_new(t, nullptr, m, nullptr);
  const int steps[][2] = {{2, -1}, {0, -1}, {0, 1}, {-1, 1}, {-1, -1}, {1, 0}};
  for (std::uint32_t level : {1u, 4u, 1u}) {
    test::set_level(net, level);
    for (auto [sb, sc] : steps) {
      b->instantiated_state = sb;
      c->instantiated_state = sc;
      ASSERT_EQ(table_marginalize(plan, ov_equilibrium_sum, ov_mode_normal, true), ov_error_none);
      for (int x = 0; x < 2; ++x) {
        float expected = 0;
        for (int y = 0; y < 3; ++y)
          for (int z = 0; z < 2; ++z)
            if ((sb < 0 || y == sb) && (sc < 0 || z == sc)) expected += cells[x * 6 + y * 2 + z];
        EXPECT_EQ(m->data[x], expected) << "level " << level << ", b " << sb << ", c " << sc;
      }
    }
  }
  plan_delete(plan);
  b->instantiated_state = c->instantiated_state = -1;
}

TEST(Marginalisation, DecisionsAverageOverTheirOpenOptions) {
  Net net;
  Node *c = net.discrete(2), *d = net.discrete(3, ov_category_decision);
  Table *t = net.filled({c, d}, {1, 2, 3, 4, 5, 6});
  Table *finding = net.filled({d}, {1, 1, 0});
  d->propagated_finding = finding;
  Table *m = net.table({c});
  // Not compiled: a plain sum.
  ASSERT_EQ(marginalize_tables(t, m, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  EXPECT_EQ(data_of(m), (std::vector<float>{6, 15}));
  net.domain->compiled = 1;
  ASSERT_EQ(marginalize_tables(t, m, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  EXPECT_EQ(data_of(m), (std::vector<float>{3, 7.5f}));
  net.domain->compiled = 0;
  d->propagated_finding = nullptr;
}

TEST(Marginalisation, FastRetractionWeighsByThePropagatedFindings) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(3), *c = net.discrete(2);
  std::mt19937 rng(3);
  Table *t = net.table({a, b, c});
  test::fill_random(t, rng);
  Table *fb = net.filled({b}, {0.5f, 2.0f, 0.0f});
  Table *fc = net.filled({c}, {1.0f, 1.0f});
  Table *fa = net.filled({a}, {0.0f, 3.0f}); // kept dimension: its weight never applies
  b->propagated_finding = fb;
  c->propagated_finding = fc;
  a->propagated_finding = fa;
  std::vector<double> expected(2, 0.0), expected_max(2, -INFINITY);
  for (std::uint32_t i = 0; i < t->size; ++i) {
    std::vector<std::uint32_t> s = test::decode(t, i);
    double w = static_cast<double>(fb->data[s[1]]) * t->data[i];
    expected[s[0]] += w;
    expected_max[s[0]] = std::max(expected_max[s[0]], w);
  }
  for (std::uint32_t level : test::levels()) {
    test::set_level(net, level);
    Table *m = net.table({a});
    ASSERT_EQ(marginalize_tables(t, m, ov_equilibrium_sum, ov_mode_fast_retraction, false), ov_error_none);
    EXPECT_FLOAT_EQ(m->data[0], static_cast<float>(expected[0]));
    EXPECT_FLOAT_EQ(m->data[1], static_cast<float>(expected[1]));
    ASSERT_EQ(marginalize_tables(t, m, ov_equilibrium_max, ov_mode_fast_retraction, false), ov_error_none);
    EXPECT_FLOAT_EQ(m->data[0], static_cast<float>(expected_max[0]));
    EXPECT_FLOAT_EQ(m->data[1], static_cast<float>(expected_max[1]));
    table_delete(m);
  }
  // An instantiated node whose finding confirms it is read as a slice.
  Table *fb2 = net.filled({b}, {0.0f, 1.0f, 0.0f});
  b->propagated_finding = fb2;
  b->instantiated_state = 1;
  Table *m = net.table({a});
  KernelPlan *plan = plan_new(t, nullptr, m, nullptr);
  plan_prepare_weighted(plan);
  EXPECT_EQ(plan->base_offset, 2u);
  ASSERT_EQ(table_marginalize(plan, ov_equilibrium_sum, ov_mode_fast_retraction, false), ov_error_none);
  EXPECT_FLOAT_EQ(m->data[0], t->data[2] + t->data[3]);
  plan_delete(plan);
  for (Node *n : {a, b, c}) {
    n->propagated_finding = nullptr;
    n->instantiated_state = -1;
  }
}

TEST(Marginalisation, InfluenceDiagramFormGivesExpectedUtilities) {
  Net net;
  Node *c = net.discrete(2), *d = net.discrete(2, ov_category_decision), *e = net.discrete(2);
  // The decision d is taken before c is observed: it stands ahead of c, so
  // c is summed within each option. The probability does not depend on d.
  Table *tp = net.filled({e, d, c}, {0.1f, 0.3f, 0.1f, 0.3f, 0.2f, 0.4f, 0.2f, 0.4f});
  Table *tu = net.filled({e, d, c}, {10, 0, 0, 10, 5, 2, 1, 8}, ov_table_kind_utility);
  Table *sp = net.table({e});
  Table *su = net.table({e}, ov_table_kind_utility);
  KernelPlan *plan = plan_new(tp, tu, sp, su);
  ASSERT_NE(plan, nullptr);
  for (std::uint32_t level : test::levels()) {
    test::set_level(net, level);
    ASSERT_EQ(table_marginalize(plan, ov_equilibrium_sum, ov_mode_normal, true), ov_error_none);
    // e=0: P = 0.1 + 0.3, EU(d=0) = (0.1*10 + 0.3*0)/0.4 = 2.5, EU(d=1) = (0 + 3)/0.4 = 7.5.
    EXPECT_FLOAT_EQ(sp->data[0], 0.4f);
    EXPECT_FLOAT_EQ(su->data[0], 7.5f);
    // e=1: EU(d=0) = (1 + 0.8)/0.6 = 3, EU(d=1) = (0.2 + 3.2)/0.6.
    EXPECT_FLOAT_EQ(sp->data[1], 0.6f);
    EXPECT_FLOAT_EQ(su->data[1], 3.4f / 0.6f);
  }
  // With evidence on the decision, it is summed like a chance node.
  Table *finding = net.filled({d}, {1.0f, 0.0f});
  d->propagated_finding = finding;
  ASSERT_EQ(table_marginalize(plan, ov_equilibrium_sum, ov_mode_normal, true), ov_error_none);
  EXPECT_FLOAT_EQ(sp->data[0], 0.8f);
  EXPECT_FLOAT_EQ(su->data[0], (1.0f + 3.0f) / 0.8f);
  // Without restrict the weighted sums stay undivided.
  ASSERT_EQ(table_marginalize(plan, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  EXPECT_FLOAT_EQ(su->data[0], 4.0f);
  d->propagated_finding = nullptr;
  plan_delete(plan);
}

TEST(Normalisation, ScalesToOneAndRefusesBadTables) {
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(2);
  Table *t = net.filled({a, b}, {1, 1, 2, 4});
  ASSERT_EQ(table_normalize(t), ov_error_none);
  EXPECT_EQ(data_of(t), (std::vector<float>{0.125f, 0.125f, 0.25f, 0.5f}));

  Table *zero = net.filled({a, b}, {0, 0, 0, 0});
  EXPECT_EQ(table_normalize(zero), ov_error_zero_sum);
  EXPECT_EQ(data_of(zero), (std::vector<float>{0, 0, 0, 0}));
  Table *negative = net.filled({a, b}, {1, -1, 0, 0});
  EXPECT_EQ(table_normalize(negative), ov_error_negative_probability);
  EXPECT_EQ(data_of(negative), (std::vector<float>{1, -1, 0, 0}));

  Table *runs = net.filled({a, b}, {1, 3, 0, 0});
  EXPECT_EQ(table_normalize_runs(runs, 2, true), ov_error_zero_sum);
  EXPECT_EQ(data_of(runs), (std::vector<float>{1, 3, 0, 0})) << "strict failure changes nothing";
  ASSERT_EQ(table_normalize_runs(runs, 2, false), ov_error_none);
  EXPECT_EQ(data_of(runs), (std::vector<float>{0.25f, 0.75f, 0.5f, 0.5f}));
  EXPECT_EQ(table_normalize_runs(runs, 3, false), ov_error_usage);
}

TEST(Marginalisation, CompressedMapsAreFollowedWhenPresent) {
  // Compression is not built; its maps, where given, replace the
  // dimensions.
  Net net;
  Node *a = net.discrete(2), *b = net.discrete(2);
  Table *t = net.filled({a, b}, {1, 2, 3, 4});
  Table *s = net.filled({b}, {10, 100});
  Table *m = net.table({b});
  KernelPlan *plan = plan_new(t, nullptr, m, nullptr);
  KernelPlan *times = plan_new(t, nullptr, s, nullptr);
  plan->compressed_map = {1, 0, 1, 0};
  times->compressed_map = {1, 0, 1, 0};
  net.domain->compiled = 1;
  net.domain->forest->compressed = 1;
  ASSERT_EQ(table_marginalize(plan, ov_equilibrium_sum, ov_mode_normal, false), ov_error_none);
  EXPECT_EQ(data_of(m), (std::vector<float>{6, 4}));
  ASSERT_EQ(table_multiply_into(times, false), ov_error_none);
  EXPECT_EQ(data_of(t), (std::vector<float>{100, 20, 300, 40}));
  net.domain->forest->compressed = 0;
  net.domain->compiled = 0;
}

} // namespace
} // namespace orvel
