// Case storage: absent entries, counts, growth and shrinking, and entering a
// case as evidence.
#include <gtest/gtest.h>

#include <cmath>

#include "orvel.h"

namespace {

struct Cases : ::testing::Test {
  ov_domain_t domain = ov_new_domain();
  ov_node_t a = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  ov_node_t b = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  ov_node_t x = ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous);
  void SetUp() override {
    ASSERT_EQ(ov_node_set_number_of_states(a, 3), 0);
    ASSERT_EQ(ov_node_set_number_of_states(b, 2), 0);
    ASSERT_EQ(ov_node_add_parent(b, a), 0);
  }
  void TearDown() override { ov_domain_delete(domain); }
};

TEST_F(Cases, StoreReadsBackAndKeepsAbsence) {
  EXPECT_EQ(ov_domain_new_case(domain), 0);
  EXPECT_EQ(ov_domain_new_case(domain), 1);
  ASSERT_EQ(ov_domain_set_number_of_cases(domain, 1000), 0);
  EXPECT_EQ(ov_domain_get_number_of_cases(domain), 1000);
  ASSERT_EQ(ov_node_set_case_state(a, 999, 2), 0);
  ASSERT_EQ(ov_node_set_case_value(x, 5, -2.5), 0);
  ASSERT_EQ(ov_domain_set_case_count(domain, 7, 0.0f), 0); // 0 is legal
  EXPECT_EQ(ov_node_get_case_state(a, 999), 2);
  EXPECT_EQ(ov_node_get_case_value(x, 5), -2.5);
  EXPECT_EQ(ov_domain_get_case_count(domain, 7), 0.0f);
  EXPECT_EQ(ov_domain_get_case_count(domain, 8), 1.0f);
  EXPECT_EQ(ov_node_case_is_set(a, 998), 0);
  EXPECT_EQ(ov_node_get_case_state(a, 998), -1);
  EXPECT_EQ(ov_error_code(), ov_error_no_value);
  EXPECT_EQ(ov_node_get_case_value(x, 4), -1.0);
  EXPECT_EQ(ov_error_code(), ov_error_no_value);
  EXPECT_EQ(ov_node_case_is_set(b, 0), 0); // never written

  // Raising the number again: the new cases are absent with count 1, and
  // the cases kept are unchanged, through a shrink that keeps the memory
  // and one that gives it back.
  for (ov_count_t n : {990, 10, 6}) {
    ASSERT_EQ(ov_domain_set_number_of_cases(domain, n), 0);
    ASSERT_EQ(ov_domain_set_number_of_cases(domain, 2000), 0);
    EXPECT_EQ(ov_node_case_is_set(a, 999), 0) << n;
    EXPECT_EQ(ov_node_case_is_set(x, 5), n > 5 ? 1 : 0) << n;
    EXPECT_EQ(ov_domain_get_case_count(domain, 7), n > 7 ? 0.0f : 1.0f) << n;
    EXPECT_EQ(ov_domain_get_case_count(domain, 1999), 1.0f);
    ASSERT_EQ(ov_domain_set_number_of_cases(domain, n), 0);
  }
  ASSERT_EQ(ov_node_unset_case(x, 5), 0);
  EXPECT_EQ(ov_node_case_is_set(x, 5), 0);
  ASSERT_EQ(ov_domain_set_number_of_cases(domain, 0), 0);
  ASSERT_EQ(ov_domain_set_number_of_cases(domain, 3), 0);
  EXPECT_EQ(ov_domain_get_case_count(domain, 2), 1.0f);
  EXPECT_EQ(ov_node_case_is_set(a, 2), 0);
}

TEST_F(Cases, RefusalsAndStateLimits) {
  ASSERT_EQ(ov_domain_set_number_of_cases(domain, 2), 0);
  EXPECT_EQ(ov_node_set_case_state(a, 2, 0), ov_error_usage);   // case out of range
  EXPECT_EQ(ov_node_set_case_state(a, 0, 3), ov_error_usage);   // state out of range
  EXPECT_EQ(ov_node_set_case_state(x, 0, 0), ov_error_usage);   // continuous
  EXPECT_EQ(ov_node_set_case_value(a, 0, 1.0), ov_error_usage); // discrete
  EXPECT_EQ(ov_node_case_is_set(nullptr, 0), -1);
  EXPECT_EQ(ov_domain_set_case_count(domain, 0, -1.0f), ov_error_usage);
  EXPECT_EQ(ov_domain_set_case_count(domain, 0, std::nanf("")), ov_error_usage);
  EXPECT_EQ(ov_domain_get_case_count(domain, 2), -1.0f);

  ASSERT_EQ(ov_node_set_number_of_states(b, 40000), 0);
  EXPECT_EQ(ov_node_set_case_state(b, 0, 32767), 0);
  EXPECT_EQ(ov_node_set_case_state(b, 1, 32768), ov_error_case_state_too_large);
  EXPECT_EQ(ov_node_get_case_state(b, 0), 32767);
  EXPECT_EQ(ov_node_case_is_set(b, 1), 0);
  // A stored state beyond a reduced state count reads as absent.
  ASSERT_EQ(ov_node_set_number_of_states(b, 2), 0);
  EXPECT_EQ(ov_node_case_is_set(b, 0), 0);
}

TEST_F(Cases, EnteringACaseReplacesTheEvidence) {
  ASSERT_EQ(ov_node_delete(x), 0); // a continuous node would block compiling
  ASSERT_EQ(ov_domain_compile(domain), 0);
  ASSERT_EQ(ov_domain_set_number_of_cases(domain, 2), 0);
  ASSERT_EQ(ov_node_set_case_state(a, 0, 1), 0);
  ASSERT_EQ(ov_node_select_state(b, 1), 0);
  ASSERT_EQ(ov_domain_enter_case(domain, 0), 0);
  EXPECT_EQ(ov_node_get_entered_finding(a, 0), 0.0f);
  EXPECT_EQ(ov_node_get_entered_finding(a, 1), 1.0f);
  EXPECT_EQ(ov_node_evidence_is_entered(b), 0); // absent: retracted
  ASSERT_EQ(ov_domain_enter_case(domain, 1), 0);
  EXPECT_EQ(ov_node_evidence_is_entered(a), 0);
  EXPECT_EQ(ov_domain_enter_case(domain, 2), ov_error_usage);
}

} // namespace
