// Kernel plans: the checks made at creation.
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

} // namespace
} // namespace orvel
