// Findings, the evidence predicates, the normalisation constants, conflict
// and entropy on a small chain worked out by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "orvel.h"

namespace {

struct Chain {
  ov_domain_t domain = ov_net_parse_from_string("node A { states = (\"a0\" \"a1\"); }\n"
                                                "node B { states = (\"b0\" \"b1\" \"b2\"); }\n"
                                                "potential (A) { data = (0.25 0.75); }\n"
                                                "potential (B | A) { data = ((0.5 0.5 0) (0.1 0.2 0.7)); }\n",
                                                nullptr);
  ov_node_t a = ov_domain_get_node_by_name(domain, "A"), b = ov_domain_get_node_by_name(domain, "B");
  ~Chain() { ov_domain_delete(domain); }
};

TEST(Findings, CountAndPredicates) {
  Chain net;
  EXPECT_EQ(ov_node_get_entered_finding(net.a, 1), 1.0f);
  // A finding entered before compilation is counted after it.
  ASSERT_EQ(ov_node_select_state(net.a, 1), ov_error_none);
  ASSERT_EQ(ov_domain_compile(net.domain), ov_error_none);
  EXPECT_EQ(ov_domain_evidence_to_propagate(net.domain), 1);
  EXPECT_EQ(ov_node_is_instantiated(net.a), 1);
  EXPECT_EQ(ov_node_get_entered_state(net.a), 1);
  ASSERT_EQ(ov_domain_propagate(net.domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_EQ(ov_domain_evidence_to_propagate(net.domain), 0);
  // Selecting the propagated state again changes nothing.
  ASSERT_EQ(ov_node_select_state(net.a, 1), ov_error_none);
  EXPECT_EQ(ov_domain_evidence_to_propagate(net.domain), 0);
  // A cell of 0.5 for a state the propagated finding excluded is a retraction.
  ASSERT_EQ(ov_node_enter_finding(net.a, 0, 0.5f), ov_error_none);
  EXPECT_EQ(ov_node_evidence_to_retract(net.a), 1);
  EXPECT_EQ(ov_node_likelihood_is_entered(net.a), 1);
  EXPECT_EQ(ov_node_get_entered_state(net.a), -1);
  // Narrowing is no retraction.
  ASSERT_EQ(ov_node_retract_findings(net.a), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(net.domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  ASSERT_EQ(ov_node_enter_finding(net.b, 2, 0.0f), ov_error_none);
  EXPECT_EQ(ov_node_evidence_to_propagate(net.b), 1);
  EXPECT_EQ(ov_node_evidence_to_retract(net.b), 0);
  // All cells 1.0: no evidence.
  ASSERT_EQ(ov_node_enter_finding(net.b, 2, 1.0f), ov_error_none);
  EXPECT_EQ(ov_node_evidence_is_entered(net.b), 0);
  EXPECT_EQ(ov_domain_evidence_to_propagate(net.domain), 0);
}

TEST(Findings, ConstantsEntropyAndMutualInformation) {
  Chain net;
  EXPECT_EQ(ov_domain_get_log_normalization_constant(net.domain), 1.0) << "not compiled";
  ASSERT_EQ(ov_domain_compile(net.domain), ov_error_none);
  ov_node_t empty[] = {nullptr};
  ov_table_t nothing = ov_domain_get_marginal(net.domain, empty);
  ASSERT_NE(nothing, nullptr);
  EXPECT_EQ(ov_table_get_size(nothing), 1);
  EXPECT_EQ(ov_table_delete(nothing), ov_error_none);
  EXPECT_NEAR(ov_domain_get_normalization_constant(net.domain), 1.0, 1e-6);
  EXPECT_EQ(ov_domain_get_log_normalization_constant(net.domain), 0.0);
  // P(b = 2) = 0.75 * 0.7.
  ASSERT_EQ(ov_node_select_state(net.b, 2), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(net.domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_domain_get_normalization_constant(net.domain), 0.525, 1e-6);
  EXPECT_NEAR(ov_domain_get_log_normalization_constant(net.domain), std::log(0.525), 1e-6);
  // Only a = 1 is possible now: entropy 0, and a's belief is certain.
  EXPECT_NEAR(ov_node_get_belief(net.a, 1), 1.0f, 1e-6);
  EXPECT_EQ(ov_node_get_entropy(net.a), 0.0);
  EXPECT_EQ(ov_node_get_mutual_information(net.a, net.a), ov_node_get_entropy(net.a));
  // A second finding never re-initialises; the constants keep multiplying.
  ASSERT_EQ(ov_node_enter_finding(net.a, 1, 0.5f), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(net.domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_domain_get_normalization_constant(net.domain), 0.2625, 1e-6);
  // Conflict: P(b = 2) P(a likelihood) / P(all) = 0.525 * 0.625 / 0.2625.
  EXPECT_NEAR(ov_domain_get_conflict(net.domain), 1.25, 1e-5);
  // Impossible evidence: inconsistency, then the tree is at its initial
  // equilibrium with the findings still entered.
  ASSERT_EQ(ov_node_select_state(net.a, 0), ov_error_none);
  EXPECT_EQ(ov_domain_propagate(net.domain, ov_equilibrium_sum, ov_mode_normal), ov_error_inconsistency_or_underflow);
  EXPECT_EQ(ov_domain_equilibrium_is(net.domain, ov_equilibrium_sum), 1);
  EXPECT_NEAR(ov_node_get_belief(net.a, 0), 0.25f, 1e-6);
  EXPECT_EQ(ov_domain_evidence_to_propagate(net.domain), 1);
  EXPECT_EQ(ov_node_get_entered_state(net.a), 0);
}

TEST(Findings, ContinuousNodesTakeValuesBeforeCompilation) {
  ov_domain_t domain = ov_new_domain();
  ov_node_t x = ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous);
  ASSERT_EQ(ov_node_enter_value(x, 2.5), ov_error_none);
  EXPECT_EQ(ov_node_get_entered_value(x), 2.5);
  EXPECT_EQ(ov_node_is_instantiated(x), 1);
  // Its fresh table has variance 0.
  EXPECT_EQ(ov_domain_compile(domain), ov_error_zero_variance);
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  ov_domain_delete(domain);
}

} // namespace
