// Table memory holds the tables of each tree with no evidence: saving it
// after a normal-mode propagation with evidence changes nothing the caller
// can see, and what it saved is what a domain saved before any evidence
// holds. Also the refusals of evidence the tables cannot take.
#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

ov_domain_t load(const char *name) {
  ov_domain_t d = ov_net_parse_domain((std::string(ORVEL_NETWORKS "/") + name).c_str(), nullptr, nullptr);
  EXPECT_NE(d, nullptr);
  EXPECT_EQ(ov_domain_compile(d), ov_error_none);
  return d;
}

// Every belief of the domain, and the two constants, as bits.
struct Snapshot {
  std::vector<ov_number_t> beliefs;
  double constant = 0, log_constant = 0;
  int evidence = 0, likelihood = 0, to_propagate = 0;
  bool operator==(const Snapshot &) const = default;
};

Snapshot snapshot(ov_domain_t d) {
  Snapshot s;
  for (ov_node_t n = ov_domain_get_first_node(d); n != nullptr; n = ov_node_get_next(n))
    for (ov_index_t i = 0; i < ov_node_get_number_of_states(n); ++i) s.beliefs.push_back(ov_node_get_belief(n, i));
  s.constant = ov_domain_get_normalization_constant(d);
  s.log_constant = ov_domain_get_log_normalization_constant(d);
  s.evidence = ov_domain_evidence_is_propagated(d);
  s.likelihood = ov_domain_likelihood_is_propagated(d);
  s.to_propagate = ov_domain_evidence_to_propagate(d);
  return s;
}

void PrintTo(const Snapshot &s, std::ostream *out) {
  *out << "constant " << s.constant << " log " << s.log_constant << " flags " << s.evidence << s.likelihood
       << s.to_propagate << " beliefs";
  for (ov_number_t b : s.beliefs) *out << " " << std::hexfloat << b;
}

ov_node_t node(ov_domain_t d, const char *name) { return ov_domain_get_node_by_name(d, name); }

// A hard finding, a likelihood, and propagation in normal mode.
void first_evidence(ov_domain_t d) {
  ASSERT_EQ(ov_node_select_state(node(d, "dysp"), 0), ov_error_none);
  ASSERT_EQ(ov_node_enter_finding(node(d, "xray"), 1, 0.25f), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
}

void more_evidence(ov_domain_t d) {
  ASSERT_EQ(ov_node_select_state(node(d, "smoke"), 1), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
}

void retract(ov_domain_t d) {
  ASSERT_EQ(ov_domain_retract_findings(d), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
}

TEST(TableMemory, SavedAfterNormalEvidenceChangesNothingAndHoldsTheInitialTables) {
  ov_domain_t saved_late = load("asia.net"), saved_early = load("asia.net"), without = load("asia.net");
  const Snapshot initial = snapshot(without);
  ASSERT_EQ(ov_domain_save_to_memory(saved_early), ov_error_none);
  for (ov_domain_t d : {saved_late, saved_early, without}) first_evidence(d);

  const Snapshot before = snapshot(saved_late);
  ASSERT_EQ(ov_domain_save_to_memory(saved_late), ov_error_none);
  EXPECT_EQ(snapshot(saved_late), before) << "beliefs, constants and evidence state are the same bits";
  ASSERT_EQ(ov_domain_propagate(saved_late, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_EQ(snapshot(saved_late), before) << "nothing is left to propagate";
  // Incremental evidence goes on from the state the tree had.
  for (ov_domain_t d : {saved_late, without}) more_evidence(d);
  EXPECT_EQ(snapshot(saved_late), snapshot(without));
  more_evidence(saved_early);
  // Retraction restores the saved tables: the initial ones, bit for bit.
  for (ov_domain_t d : {saved_late, saved_early, without}) retract(d);
  EXPECT_EQ(snapshot(saved_late), snapshot(saved_early));
  EXPECT_EQ(snapshot(saved_late), initial);
  // And evidence entered again gives what a domain without memory gives.
  for (ov_domain_t d : {saved_late, without}) first_evidence(d);
  EXPECT_EQ(snapshot(saved_late), snapshot(without));
  for (ov_domain_t d : {saved_late, saved_early, without}) ov_domain_delete(d);
}

TEST(TableMemory, RefusedAtMaxEquilibriumAndWithFastRetractionEvidence) {
  ov_domain_t d = load("asia.net");
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_max, ov_mode_normal), ov_error_none);
  EXPECT_EQ(ov_domain_save_to_memory(d), ov_error_usage);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_fast_retraction), ov_error_none);
  EXPECT_EQ(ov_domain_save_to_memory(d), ov_error_none) << "fast retraction without evidence";
  first_evidence(d);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_fast_retraction), ov_error_none);
  EXPECT_EQ(ov_domain_save_to_memory(d), ov_error_usage);
  ov_domain_delete(d);
}

// An infinite likelihood is more than a table holds: overflow, whether the
// state is possible or not, and the domain is back at its initial state.
TEST(Likelihoods, AnInfiniteLikelihoodIsAnOverflow) {
  const char *net = "node A { states = (\"a0\" \"a1\"); } node B { states = (\"b0\" \"b1\" \"b2\"); }"
                    "potential (A) { data = (0.3 0.7); }"
                    "potential (B | A) { data = ((0.5 0.5 0) (0.2 0.8 0)); }";
  for (ov_index_t state : {0, 2}) {
    ov_domain_t d = ov_net_parse_from_string(net, nullptr);
    ASSERT_EQ(ov_domain_compile(d), ov_error_none);
    const Snapshot initial = snapshot(d);
    ASSERT_EQ(ov_node_enter_finding(node(d, "B"), state, INFINITY), ov_error_none);
    EXPECT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_overflow) << state;
    EXPECT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_fast_retraction), ov_error_overflow) << state;
    Snapshot after = snapshot(d);
    EXPECT_EQ(after.to_propagate, 1) << "the finding stays entered";
    after.to_propagate = 0;
    EXPECT_EQ(after, initial) << state;
    ov_domain_delete(d);
  }
}

} // namespace
