// The domain record: defaults, settings, the compiled state and its release,
// deletion, and the class forms of the domain calls.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "model/domain.h"
#include "model/node.h"
#include "orvel.h"
#include "table/table.h"

namespace {

using namespace orvel;

TEST(DomainDefaults, FreshDomain) {
  ov_domain_t d = ov_new_domain();
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_domain_get_concurrency_level(d), 1);
  EXPECT_EQ(ov_domain_get_grain_size(d), 10000);
  EXPECT_EQ(ov_domain_get_significance_level(d), 0.05);
  EXPECT_EQ(ov_domain_get_log_likelihood_tolerance(d), 0.0001);
  EXPECT_EQ(ov_domain_get_max_number_of_em_iterations(d), 0);
  EXPECT_EQ(ov_domain_is_compiled(d), 0);
  EXPECT_EQ(ov_domain_is_compressed(d), 0);
  EXPECT_EQ(ov_domain_is_triangulated(d), 0) << "an empty domain is not triangulated";
  EXPECT_EQ(ov_domain_get_first_node(d), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_domain_get_file_name(d), nullptr);
  EXPECT_EQ(ov_domain_get_filename(d), nullptr);
  EXPECT_EQ(ov_domain_get_user_data(d), nullptr);
  EXPECT_EQ(ov_domain_get_first_attribute(d), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  int w = -1, h = -1;
  EXPECT_EQ(ov_domain_get_node_size(d, &w, &h), ov_error_none);
  EXPECT_EQ(w, 0);
  EXPECT_EQ(h, 0);
  EXPECT_EQ(ov_domain_delete(d), ov_error_none);
}

TEST(DomainSettings, SettersCheckTheirValuesAndChangeNothingOnRefusal) {
  ov_domain_t d = ov_new_domain();
  EXPECT_EQ(ov_domain_set_grain_size(d, 0), ov_error_usage);
  EXPECT_EQ(ov_domain_get_grain_size(d), 10000);
  EXPECT_EQ(ov_domain_set_grain_size(d, 4294967295u), ov_error_none);
  EXPECT_EQ(ov_domain_get_grain_size(d), 4294967295) << "a u32 setting reads back unsigned";
  EXPECT_EQ(ov_domain_set_concurrency_level(d, 0), ov_error_usage);
  EXPECT_EQ(ov_domain_get_concurrency_level(d), 1);
  EXPECT_EQ(ov_domain_set_concurrency_level(d, 4), ov_error_none);
  EXPECT_EQ(ov_domain_get_concurrency_level(d), 4);

  for (double bad : {0.0, 1.0, -0.5, 2.0, std::nan(""), HUGE_VAL}) {
    EXPECT_EQ(ov_domain_set_significance_level(d, bad), ov_error_usage) << bad;
    EXPECT_EQ(ov_domain_get_significance_level(d), 0.05);
  }
  EXPECT_EQ(ov_domain_set_significance_level(d, 0.01), ov_error_none);
  EXPECT_EQ(ov_domain_get_significance_level(d), 0.01);
  EXPECT_EQ(ov_domain_set_log_likelihood_tolerance(d, -1e-9), ov_error_usage);
  EXPECT_EQ(ov_domain_set_log_likelihood_tolerance(d, std::nan("")), ov_error_usage);
  EXPECT_EQ(ov_domain_get_log_likelihood_tolerance(d), 0.0001);
  EXPECT_EQ(ov_domain_set_log_likelihood_tolerance(d, 0.0), ov_error_none);
  EXPECT_EQ(ov_domain_set_max_number_of_em_iterations(d, 25), ov_error_none);
  EXPECT_EQ(ov_domain_get_max_number_of_em_iterations(d), 25);

  EXPECT_EQ(ov_domain_set_node_size(d, 80, -3), ov_error_none);
  int w = 0, h = 0;
  EXPECT_EQ(ov_domain_get_node_size(d, &w, &w), ov_error_usage) << "the same pointer twice";
  EXPECT_EQ(ov_domain_get_node_size(d, nullptr, &h), ov_error_usage);
  EXPECT_EQ(ov_domain_get_node_size(d, &w, nullptr), ov_error_usage);
  EXPECT_EQ(w, 0);
  EXPECT_EQ(ov_domain_get_node_size(d, &w, &h), ov_error_none);
  EXPECT_EQ(w, 80);
  EXPECT_EQ(h, -3);

  int token = 0;
  EXPECT_EQ(ov_domain_set_user_data(d, &token), ov_error_none);
  EXPECT_EQ(ov_domain_get_user_data(d), &token);
  d->file_name = "weather.net";
  EXPECT_STREQ(ov_domain_get_file_name(d), "weather.net");
  EXPECT_STREQ(ov_domain_get_filename(d), "weather.net");
  ov_domain_delete(d);
}

TEST(DomainSettings, LogFileStaysTheCallers) {
  ov_domain_t d = ov_new_domain();
  std::FILE *file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(ov_domain_set_log_file(d, file), ov_error_none);
  EXPECT_EQ(d->log_file, file);
  EXPECT_EQ(log_printf(d, "%s\n", "line"), ov_error_none);
  EXPECT_EQ(ov_domain_set_log_file(d, nullptr), ov_error_none);
  EXPECT_EQ(d->log_file, nullptr);
  EXPECT_EQ(ov_domain_set_log_file(nullptr, file), ov_error_usage);
  ov_domain_delete(d);
  // The stream is still open and usable after the domain is gone.
  EXPECT_GE(std::fputs("more\n", file), 0);
  std::rewind(file);
  char text[16] = {};
  ASSERT_NE(std::fgets(text, sizeof text, file), nullptr);
  EXPECT_STREQ(text, "line\n");
  std::fclose(file);
}

// A domain put by hand into the compiled state, with tables of the forest
// and of queries beside the node tables.
struct CompiledDomain : ::testing::Test {
  ov_domain_t d = ov_new_domain();
  ov_node_t a = nullptr, y = nullptr;
  Table *plain = nullptr, *clique = nullptr, *separator = nullptr, *forest = nullptr, *query = nullptr;

  void SetUp() override {
    a = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete);
    y = ov_domain_new_node(d, ov_category_chance, ov_kind_continuous);
    a->state_count = 2;
    clique = table_new(d, nullptr, ov_table_kind_probability, role_clique, false, true);
    plain = ov_node_get_table(a);
    separator = table_new(d, nullptr, ov_table_kind_probability, role_separator, false, true);
    forest = table_new(d, nullptr, ov_table_kind_probability, role_forest, false, false);
    query = table_new(d, nullptr, ov_table_kind_probability, role_returned, false, false);
    ASSERT_TRUE(clique && plain && separator && forest && query);
    for (ov_node_t n : {a, y}) {
      n->elimination_number = n->number;
      n->belief_table = clique;
      n->home_clique = reinterpret_cast<ov_clique_t>(clique);
      n->conflict_clique = reinterpret_cast<ov_clique_t>(clique);
    }
    a->instantiated_state = 1;
    a->propagated_finding = separator;
    a->entered_finding = {0.0f, 1.0f};
    a->has_entered_finding = true;
    y->value_entered = true;
    y->entered_value = 2.5;
    y->value_propagated = true;
    d->compiled = 1;
    d->forest->compressed = 1;
    d->learning.log_likelihood_valid = 1;
    d->forest->elimination_order.emplace();
    d->forest->memory_table_data = alloc_array<ov_number_t>(4);
    d->forest->memory_table_cg = alloc_array<double>(4);
  }
  void TearDown() override { ov_domain_delete(d); }
};

TEST_F(CompiledDomain, UncompileReleasesTheForestAndKeepsEvidence) {
  ASSERT_EQ(d->tables.size(), 5u);
  EXPECT_EQ(ov_domain_is_compiled(d), 1);
  EXPECT_EQ(ov_domain_is_compressed(d), 1);
  EXPECT_EQ(ov_domain_is_triangulated(d), 1);
  ASSERT_EQ(ov_domain_uncompile(d), ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(d), 0);
  EXPECT_EQ(ov_domain_is_compressed(d), 0);
  EXPECT_EQ(ov_domain_is_triangulated(d), 0);
  EXPECT_EQ(d->learning.log_likelihood_valid, 0u);
  EXPECT_FALSE(d->forest->elimination_order.has_value());
  EXPECT_FALSE(d->forest->memory_table_data);
  EXPECT_FALSE(d->forest->memory_table_cg);
  // Only the node's table stays, renumbered as the first of the list.
  ASSERT_EQ(d->tables.size(), 1u);
  EXPECT_EQ(d->tables[0].get(), plain);
  EXPECT_EQ(plain->serial, 1u);
  for (ov_node_t n : {a, y}) {
    EXPECT_EQ(n->elimination_number, 0u);
    EXPECT_EQ(n->belief_table, nullptr);
    EXPECT_EQ(n->home_clique, nullptr);
    EXPECT_EQ(n->conflict_clique, nullptr);
    EXPECT_EQ(n->junction_tree, nullptr);
  }
  EXPECT_EQ(a->instantiated_state, -1);
  EXPECT_EQ(a->propagated_finding, nullptr);
  EXPECT_FALSE(y->value_propagated);
  // Entered evidence is a property of the node.
  EXPECT_TRUE(a->has_entered_finding);
  EXPECT_EQ(a->entered_finding.size(), 2u);
  EXPECT_TRUE(y->value_entered);
  EXPECT_EQ(y->entered_value, 2.5);
  // Uncompiling again does nothing.
  EXPECT_EQ(ov_domain_uncompile(d), ov_error_none);
  EXPECT_EQ(d->tables.size(), 1u);
}

TEST_F(CompiledDomain, ReleaseKeepingTheTriangulation) {
  release_forest(d, false);
  EXPECT_EQ(ov_domain_is_compiled(d), 0);
  EXPECT_EQ(ov_domain_is_triangulated(d), 1);
  EXPECT_TRUE(d->forest->elimination_order.has_value());
  EXPECT_EQ(d->tables.size(), 1u);
  EXPECT_EQ(a->belief_table, nullptr);
}

TEST_F(CompiledDomain, UntriangulatedDomainIsLeftAlone) {
  // Triangulated is read from the newest node.
  ov_domain_get_first_node(d)->elimination_number = 0;
  EXPECT_EQ(ov_domain_is_triangulated(d), 0);
  EXPECT_EQ(ov_domain_uncompile(d), ov_error_none);
  EXPECT_EQ(d->tables.size(), 5u);
  EXPECT_EQ(d->compiled, 1u);
  // Reset by hand so that teardown deletes a consistent domain.
  release_forest(d, true);
}

TEST_F(CompiledDomain, ReclaimMemoryTables) {
  EXPECT_EQ(ov_domain_reclaim_memory_tables(d), ov_error_none);
  EXPECT_FALSE(d->forest->memory_table_data);
  EXPECT_FALSE(d->forest->memory_table_cg);
  EXPECT_EQ(ov_domain_is_compiled(d), 1) << "reclaiming memory keeps the domain compiled";
  EXPECT_EQ(ov_domain_reclaim_memory_tables(d), ov_error_none);
  EXPECT_EQ(ov_domain_reclaim_memory_tables(nullptr), ov_error_usage);
}

TEST(DomainDeletion, TablesStillOnTheListGoAndDetachedOnesStay) {
  ov_domain_t d = ov_new_domain();
  ov_node_t a = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete);
  ASSERT_NE(ov_node_get_table(a), nullptr);
  ASSERT_NE(ov_table_get_data(ov_node_get_table(a)), nullptr);
  Table *kept = table_new(d, nullptr, ov_table_kind_probability, role_returned, false, true);
  Table *lost = table_new(d, nullptr, ov_table_kind_utility, role_plain, false, true);
  ASSERT_TRUE(kept && lost);
  table_detach(kept);
  EXPECT_EQ(kept->serial, 0u);
  ASSERT_EQ(ov_node_set_attribute(a, "k", "v"), ov_error_none);
  ASSERT_EQ(ov_domain_set_attribute(d, "k", "v"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(a, 0, "only"), ov_error_none);
  EXPECT_EQ(ov_domain_delete(d), ov_error_none);
  // The detached table is the caller's and outlives the domain (the sanitizer
  // build checks that the rest was freed).
  EXPECT_EQ(ov_table_get_size(kept), 1);
  EXPECT_EQ(ov_table_get_data(kept)[0], 1.0f);
  EXPECT_EQ(ov_table_delete(kept), ov_error_none);
  EXPECT_EQ(ov_domain_delete(nullptr), ov_error_usage);
}

TEST(DomainDeletion, InstanceNodesLeaveTheirClass) {
  ov_domain_t cls = ov_new_domain(), user = ov_new_domain();
  Node *instance = node_create(user, ov_category_instance, ov_kind_discrete, ov_subtype_label, false);
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(user->instance_count, 1u);
  instance->instance_class = cls;
  cls->class_info.instances.push_back(instance);
  ov_domain_delete(user);
  EXPECT_TRUE(cls->class_info.instances.empty());
  ov_domain_delete(cls);
}

TEST(ClassForms, AreTheDomainCallsUnderTheClassName) {
  ov_domain_t d = ov_new_domain();
  ov_class_t c = as_class(d);
  ov_node_t n = ov_class_new_node(c, ov_category_chance, ov_kind_discrete);
  ASSERT_NE(n, nullptr);
  EXPECT_EQ(ov_class_new_node(c, ov_category_instance, ov_kind_discrete), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_class_get_first_node(c), n);
  ov_node_set_name(n, "x");
  EXPECT_EQ(ov_class_get_node_by_name(c, "x"), n);
  EXPECT_EQ(ov_class_get_node_by_name(c, "y"), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_class_get_file_name(c), nullptr);
  d->file_name = "model.net";
  EXPECT_STREQ(ov_class_get_file_name(c), "model.net");
  EXPECT_EQ(ov_class_set_node_size(c, 7, 9), ov_error_none);
  int w = 0, h = 0;
  EXPECT_EQ(ov_class_get_node_size(c, &w, &h), ov_error_none);
  EXPECT_EQ(w, 7);
  EXPECT_EQ(h, 9);
  EXPECT_EQ(ov_class_get_node_size(c, &w, &w), ov_error_usage);
  std::FILE *file = std::tmpfile();
  EXPECT_EQ(ov_class_set_log_file(c, file), ov_error_none);
  EXPECT_EQ(d->log_file, file);
  EXPECT_EQ(ov_class_set_log_file(c, nullptr), ov_error_none);
  std::fclose(file);
  EXPECT_EQ(ov_class_set_attribute(c, "author", "me"), ov_error_none);
  EXPECT_STREQ(ov_class_get_attribute(c, "author"), "me");
  EXPECT_STREQ(ov_domain_get_attribute(d, "author"), "me");
  EXPECT_EQ(ov_class_get_first_attribute(c), ov_domain_get_first_attribute(d));
  EXPECT_EQ(ov_class_set_attribute(c, "9", "x"), ov_error_invalid_name);
  ov_domain_delete(d);
}

} // namespace
