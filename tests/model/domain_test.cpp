// The domain: defaults and settings, the compiled state and its release,
// deletion, and the class forms of the domain calls.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "model/domain.h"
#include "orvel.h"

namespace {

// A -> B, both with two states.
const char *const kPair = R"(net {}
node A { states = ("a0" "a1"); }
node B { states = ("b0" "b1"); }
potential (A) { data = (0.25 0.75); }
potential (B | A) { data = ((0.5 0.5) (0.9 0.1)); }
)";

TEST(Domain, DefaultsAndSettingsReadBack) {
  ov_domain_t d = ov_new_domain();
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(ov_domain_get_max_number_of_em_iterations(d), 0);
  EXPECT_EQ(ov_domain_is_compiled(d) + ov_domain_is_compressed(d) + ov_domain_is_triangulated(d), 0);
  EXPECT_TRUE(ov_domain_get_first_node(d) == nullptr && ov_domain_get_file_name(d) == nullptr &&
              ov_domain_get_user_data(d) == nullptr && ov_domain_get_first_attribute(d) == nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  // Refused values leave the defaults alone (the NET text holds none of these).
  EXPECT_EQ(ov_domain_set_grain_size(d, 0), ov_error_usage);
  EXPECT_EQ(ov_domain_set_concurrency_level(d, 0), ov_error_usage);
  for (double bad : {0.0, 1.0, -0.5, 2.0, std::nan(""), HUGE_VAL})
    EXPECT_EQ(ov_domain_set_significance_level(d, bad), ov_error_usage) << bad;
  EXPECT_EQ(ov_domain_set_log_likelihood_tolerance(d, -1e-9), ov_error_usage);
  EXPECT_EQ(ov_domain_get_grain_size(d), 10000);
  EXPECT_EQ(ov_domain_get_concurrency_level(d), 1);
  EXPECT_EQ(ov_domain_get_significance_level(d), 0.05);
  EXPECT_EQ(ov_domain_get_log_likelihood_tolerance(d), 0.0001);

  EXPECT_EQ(ov_domain_set_grain_size(d, 4294967295u), ov_error_none);
  EXPECT_EQ(ov_domain_get_grain_size(d), 4294967295) << "a u32 setting reads back unsigned";
  EXPECT_EQ(ov_domain_set_concurrency_level(d, 4) + ov_domain_set_significance_level(d, 0.01) +
                ov_domain_set_log_likelihood_tolerance(d, 0.0) + ov_domain_set_max_number_of_em_iterations(d, 25),
            ov_error_none);
  EXPECT_EQ(ov_domain_get_concurrency_level(d), 4);
  EXPECT_EQ(ov_domain_get_significance_level(d), 0.01);
  EXPECT_EQ(ov_domain_get_log_likelihood_tolerance(d), 0.0);
  EXPECT_EQ(ov_domain_get_max_number_of_em_iterations(d), 25);
  int w = -1, h = -1, token = 0;
  EXPECT_EQ(ov_domain_get_node_size(d, &w, &h), ov_error_none);
  EXPECT_EQ(w + h, 0);
  EXPECT_EQ(ov_domain_set_node_size(d, 80, -3), ov_error_none);
  EXPECT_EQ(ov_domain_get_node_size(d, &w, &h), ov_error_none);
  EXPECT_EQ(w, 80);
  EXPECT_EQ(h, -3);
  EXPECT_EQ(ov_domain_set_user_data(d, &token), ov_error_none);
  EXPECT_EQ(ov_domain_get_user_data(d), &token);
  EXPECT_EQ(ov_domain_delete(d), ov_error_none);
}

TEST(Domain, LogFileStaysTheCallers) {
  ov_domain_t d = ov_new_domain();
  std::FILE *file = std::tmpfile();
  EXPECT_EQ(ov_domain_set_log_file(d, file), ov_error_none);
  EXPECT_EQ(orvel::log_printf(d, "%s", "line"), ov_error_none);
  EXPECT_EQ(ov_domain_set_log_file(d, nullptr), ov_error_none);
  EXPECT_EQ(orvel::log_printf(d, "%s", "lost"), ov_error_none);
  ov_domain_delete(d);
  EXPECT_GE(std::fputs("more", file), 0) << "the stream is still open";
  std::rewind(file);
  char text[16] = {};
  ASSERT_NE(std::fgets(text, sizeof text, file), nullptr);
  EXPECT_STREQ(text, "linemore");
  std::fclose(file);
}

TEST(Domain, UncompileReleasesTheForestAndKeepsEvidence) {
  ov_domain_t d = ov_net_parse_from_string(kPair, nullptr);
  ASSERT_NE(d, nullptr);
  ov_node_t a = ov_domain_get_node_by_name(d, "A"), b = ov_domain_get_node_by_name(d, "B");
  EXPECT_EQ(ov_domain_uncompile(d), ov_error_none) << "uncompiling an uncompiled domain does nothing";
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  ASSERT_EQ(ov_domain_save_to_memory(d), ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(d) + ov_domain_is_triangulated(d), 2);
  ASSERT_EQ(ov_node_select_state(b, 1), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  // Memory tables go; the domain stays compiled and still propagates.
  EXPECT_EQ(ov_domain_reclaim_memory_tables(d), ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(d), 1);
  // No query shows the saved tables: they are freed, all three parts.
  EXPECT_FALSE(d->forest->memory_table_data || d->forest->memory_table_cg || d->forest->memory_table_kinds);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_node_get_belief(a, 0), 0.125 / 0.2, 1e-6);

  ASSERT_EQ(ov_domain_uncompile(d), ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(d) + ov_domain_is_compressed(d) + ov_domain_is_triangulated(d), 0);
  EXPECT_EQ(ov_node_get_junction_tree(a), nullptr);
  EXPECT_EQ(a->home_clique, nullptr) << "no query shows the home clique";
  EXPECT_EQ(ov_error_code(), ov_error_not_compiled);
  EXPECT_EQ(ov_domain_get_first_clique(d), nullptr);
  EXPECT_EQ(ov_node_evidence_is_entered(b), 1) << "entered evidence is a property of the node";
  EXPECT_EQ(ov_node_get_entered_finding(b, 0), 0.0f);
  // Compiled again, the evidence is still there: P(A = 0 | B = 1) = 0.125 / 0.2.
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_node_get_belief(a, 0), 0.125 / 0.2, 1e-6);
  ov_domain_delete(d);
}

TEST(Domain, DetachedTablesOutliveTheDomain) {
  ov_domain_t d = ov_net_parse_from_string(kPair, nullptr);
  ov_node_t a = ov_domain_get_node_by_name(d, "A");
  ASSERT_EQ(ov_node_set_attribute(a, "k", "v"), ov_error_none);
  ASSERT_EQ(ov_domain_set_attribute(d, "k", "v"), ov_error_none);
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  ov_node_t nodes[] = {a, nullptr};
  ov_table_t marginal = ov_domain_get_marginal(d, nodes);
  ASSERT_NE(marginal, nullptr);
  EXPECT_EQ(ov_domain_delete(d), ov_error_none);
  // The marginal is the caller's (the sanitizer build checks that the rest
  // was freed).
  ASSERT_EQ(ov_table_get_size(marginal), 2);
  EXPECT_NEAR(ov_table_get_data(marginal)[1], 0.75, 1e-6);
  EXPECT_EQ(ov_table_delete(marginal), ov_error_none);
}

TEST(Domain, ClassFormsAreTheDomainCallsUnderTheClassName) {
  ov_class_collection_t cc = ov_new_class_collection();
  ov_class_t c = ov_cc_new_class(cc);
  ov_node_t n = ov_class_new_node(c, ov_category_chance, ov_kind_discrete);
  EXPECT_EQ(ov_node_get_home_class(n), c);
  EXPECT_EQ(ov_class_get_file_name(c), nullptr);
  EXPECT_EQ(ov_class_set_node_size(c, 7, 9), ov_error_none);
  int w = 0, h = 0;
  EXPECT_EQ(ov_class_get_node_size(c, &w, &h), ov_error_none);
  EXPECT_EQ(w * 10 + h, 79);
  std::FILE *file = std::tmpfile();
  EXPECT_EQ(ov_class_set_log_file(c, file), ov_error_none);
  EXPECT_EQ(orvel::log_printf(orvel::as_domain(c), "%s", "x"), ov_error_none);
  EXPECT_EQ(std::ftell(file), 1);
  std::fclose(file);
  EXPECT_EQ(ov_class_set_log_file(c, nullptr), ov_error_none);
  EXPECT_EQ(ov_class_set_attribute(c, "author", "me"), ov_error_none);
  EXPECT_STREQ(ov_class_get_attribute(c, "author"), "me");
  EXPECT_EQ(ov_attribute_get_value(ov_class_get_first_attribute(c)), ov_class_get_attribute(c, "author"));
  ov_cc_delete(cc);
}

} // namespace
