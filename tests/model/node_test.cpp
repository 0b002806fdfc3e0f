// Nodes: creation, accessors, states, labels, values, cascades and deletion.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "compile/junction_tree.h"
#include "expr/model.h"
#include "model/domain.h"
#include "model/node.h"
#include "model/node_list.h"
#include "orvel.h"
#include "table/table.h"

namespace {

struct NodeFixture : ::testing::Test {
  ov_domain_t domain = ov_new_domain();
  ~NodeFixture() override { ov_domain_delete(domain); }

  ov_node_t make(ov_category_t category = ov_category_chance, ov_kind_t kind = ov_kind_discrete) {
    return ov_domain_new_node(domain, category, kind);
  }
  // A discrete chance node with `states` states.
  ov_node_t discrete(std::uint32_t states) {
    ov_node_t node = make();
    EXPECT_EQ(ov_node_set_number_of_states(node, states), ov_error_none);
    return node;
  }
  static void link(ov_node_t parent, ov_node_t child) { EXPECT_EQ(ov_node_add_parent(child, parent), ov_error_none); }
};

using NodeCreation = NodeFixture;

TEST_F(NodeCreation, DefaultsOfEachCategoryAndKind) {
  ov_node_t c = make();
  EXPECT_EQ(ov_node_get_category(c), ov_category_chance);
  EXPECT_EQ(ov_node_get_kind(c), ov_kind_discrete);
  EXPECT_EQ(ov_node_get_number_of_states(c), 1);
  EXPECT_EQ(ov_node_get_subtype(c), ov_subtype_label);
  EXPECT_EQ(c->instantiated_state, -1);
  EXPECT_EQ(c->simulated_state, -1);
  EXPECT_STREQ(ov_node_get_label(c), "");
  EXPECT_EQ(ov_node_get_domain(c), domain);
  EXPECT_EQ(ov_node_get_home_domain(c), domain);

  ov_node_t y = make(ov_category_chance, ov_kind_continuous);
  EXPECT_EQ(ov_node_get_kind(y), ov_kind_continuous);
  EXPECT_EQ(ov_node_get_number_of_states(y), -1) << "a continuous node has no states";
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_subtype(y), ov_subtype_error);

  EXPECT_EQ(domain->chance_count, 2u);
  EXPECT_EQ(domain->discrete_count, 1u);
  EXPECT_EQ(domain->continuous_count, 1u);
  EXPECT_EQ(ov_domain_get_first_node(domain), y) << "newest first";
  EXPECT_EQ(ov_node_get_next(y), c);
  EXPECT_EQ(ov_node_get_next(c), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
}

TEST_F(NodeCreation, ArgumentChecks) {
  EXPECT_EQ(ov_domain_new_node(domain, ov_category_instance, ov_kind_discrete), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_domain_new_node(domain, static_cast<ov_category_t>(5), ov_kind_discrete), nullptr);
  EXPECT_EQ(ov_domain_new_node(domain, ov_category_chance, ov_kind_error), nullptr);
  EXPECT_EQ(ov_domain_new_node(domain, ov_category_chance, static_cast<ov_kind_t>(-1)), nullptr);
  EXPECT_EQ(ov_domain_new_node(nullptr, ov_category_chance, ov_kind_discrete), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(domain->node_count(), 0u);
}

TEST_F(NodeCreation, InfluenceDiagramsAndContinuousNodesDoNotMix) {
  // A continuous utility node fails at once.
  EXPECT_EQ(make(ov_category_utility, ov_kind_continuous), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_cg_influence_diagrams_not_supported);
  // After a decision: a discrete chance node passes, a continuous one fails
  // and leaves the domain as it was.
  ov_node_t d = make(ov_category_decision);
  ASSERT_NE(d, nullptr);
  ASSERT_NE(make(), nullptr);
  ov_domain_get_first_node(domain)->elimination_number = 1; // triangulated: a refusal must not uncompile
  domain->compiled = 1;
  EXPECT_EQ(make(ov_category_chance, ov_kind_continuous), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_EQ(domain->node_count(), 2u);
  EXPECT_EQ(domain->continuous_count, 0u);
  EXPECT_EQ(domain->chance_count, 1u);
  EXPECT_EQ(ov_domain_is_compiled(domain), 1);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
  // A successful creation uncompiles.
  ASSERT_NE(make(ov_category_utility), nullptr);
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
}

TEST_F(NodeCreation, DecisionsAreRefusedInACgNetwork) {
  ASSERT_NE(make(ov_category_chance, ov_kind_continuous), nullptr);
  EXPECT_EQ(make(ov_category_decision), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_EQ(make(ov_category_utility), nullptr);
  EXPECT_NE(make(), nullptr);
  EXPECT_EQ(domain->decision_count + domain->utility_count, 0u);
}

using NodeAccessors = NodeFixture;

TEST_F(NodeAccessors, ParentsAndChildrenOfAnOrphanAreStableEmptyLists) {
  ov_node_t n = make();
  ov_node_t *parents = ov_node_get_parents(n);
  ASSERT_NE(parents, nullptr);
  EXPECT_EQ(parents[0], nullptr);
  EXPECT_EQ(ov_node_get_parents(n), parents);
  ov_node_t *children = ov_node_get_children(n);
  ASSERT_NE(children, nullptr);
  EXPECT_EQ(children[0], nullptr);
  EXPECT_EQ(ov_node_get_children(n), children);
  EXPECT_EQ(ov_error_code(), ov_error_none);
}

TEST_F(NodeAccessors, LabelPositionUserData) {
  ov_node_t n = make();
  EXPECT_EQ(ov_node_set_label(n, "The weather"), ov_error_none);
  EXPECT_STREQ(ov_node_get_label(n), "The weather");
  EXPECT_EQ(ov_node_set_label(n, nullptr), ov_error_usage);
  EXPECT_STREQ(ov_node_get_label(n), "The weather");
  EXPECT_EQ(ov_node_set_label(n, ""), ov_error_none);
  EXPECT_STREQ(ov_node_get_label(n), "");

  int x = 0, y = 0;
  EXPECT_EQ(ov_node_set_position(n, -4, 17), ov_error_none);
  EXPECT_EQ(ov_node_get_position(n, &x, &y), ov_error_none);
  EXPECT_EQ(x, -4);
  EXPECT_EQ(y, 17);
  EXPECT_EQ(ov_node_get_position(n, &x, &x), ov_error_usage);
  EXPECT_EQ(ov_node_get_position(n, nullptr, &y), ov_error_usage);
  EXPECT_EQ(ov_node_get_position(n, &x, nullptr), ov_error_usage);

  int token = 0;
  EXPECT_EQ(ov_node_get_user_data(n), nullptr);
  EXPECT_EQ(ov_node_set_user_data(n, &token), ov_error_none);
  EXPECT_EQ(ov_node_get_user_data(n), &token);
}

TEST_F(NodeAccessors, ClassAndCloneFieldsNeedTheirRecords) {
  ov_node_t n = make();
  EXPECT_EQ(ov_node_get_home_class(n), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_master(n), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_instance(n), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_source(n), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);

  // A clone and a source made by hand.
  ov_node_t master = make(), instance = make();
  n->master = master;
  n->instance = instance;
  n->source = std::make_unique<orvel::NodeList>();
  n->source->push_back(instance);
  n->source->push_back(master);
  EXPECT_EQ(ov_node_get_master(n), master);
  EXPECT_EQ(ov_node_get_instance(n), instance);
  ov_node_t *source = ov_node_get_source(n);
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source[0], instance);
  EXPECT_EQ(source[1], master);
  EXPECT_EQ(source[2], nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  // A clone cannot be deleted, nor have its table, subtype or labels set.
  EXPECT_EQ(ov_node_delete(n), ov_error_usage);
  EXPECT_EQ(ov_node_get_table(n), nullptr);
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_number), ov_error_usage);
  EXPECT_EQ(ov_node_set_state_label(n, 0, "x"), ov_error_usage);
  EXPECT_EQ(domain->node_count(), 3u);
  n->master = n->instance = nullptr;

  // The home of a class record.
  int collection = 0;
  domain->class_info.collection = reinterpret_cast<ov_class_collection_t>(&collection);
  EXPECT_EQ(ov_node_get_home_class(n), orvel::as_class(domain));
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_node_get_domain(n), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_home_domain(n), nullptr);
  domain->class_info.collection = nullptr;
}

TEST_F(NodeAccessors, JunctionTreeNeedsACompiledDomain) {
  ov_node_t n = make();
  EXPECT_EQ(ov_node_get_junction_tree(n), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_not_compiled);
  ov_junction_tree_s tree;
  n->junction_tree = &tree;
  domain->compiled = 1;
  n->elimination_number = 1;
  EXPECT_EQ(ov_node_get_junction_tree(n), &tree);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  ov_domain_uncompile(domain);
  EXPECT_EQ(n->junction_tree, nullptr);
  EXPECT_EQ(ov_node_get_junction_tree(n), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_not_compiled);
}

using Subtypes = NodeFixture;

TEST_F(Subtypes, BooleanNeedsTwoStates) {
  ov_node_t n = make();
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_boolean), ov_error_usage);
  EXPECT_EQ(ov_node_get_subtype(n), ov_subtype_label);
  ASSERT_EQ(ov_node_set_number_of_states(n, 3), ov_error_none);
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_boolean), ov_error_usage);
  ASSERT_EQ(ov_node_set_number_of_states(n, 2), ov_error_none);
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_boolean), ov_error_none);
  EXPECT_EQ(ov_node_get_subtype(n), ov_subtype_boolean);
  EXPECT_STREQ(ov_node_get_state_label(n, 0), "false");
  EXPECT_STREQ(ov_node_get_state_label(n, 1), "true");
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "true"), 1);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "false"), 0);
  // Setting the current subtype again does nothing.
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_boolean), ov_error_none);
  // A stored label wins over the boolean text.
  EXPECT_EQ(ov_node_set_state_label(n, 1, "yes"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(n, 1), "yes");
  EXPECT_STREQ(ov_node_get_state_label(n, 0), "false");
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_label), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(n, 0), "");
}

TEST_F(Subtypes, RangeAndNodeChecks) {
  ov_node_t n = make();
  for (int bad : {29, 34, -1, 0, 1000})
    EXPECT_EQ(ov_node_set_subtype(n, static_cast<ov_subtype_t>(bad)), ov_error_usage) << bad;
  ov_node_t u = make(ov_category_utility);
  EXPECT_EQ(ov_node_set_subtype(u, ov_subtype_number), ov_error_usage);
  EXPECT_EQ(ov_node_get_subtype(u), ov_subtype_error);
  EXPECT_EQ(ov_node_get_number_of_states(u), -1);
  ov_node_t d = make(ov_category_decision);
  EXPECT_EQ(ov_node_set_subtype(d, ov_subtype_interval), ov_error_none);
  EXPECT_EQ(ov_node_get_subtype(d), ov_subtype_interval);
}

using StateLabels = NodeFixture;

TEST_F(StateLabels, SetGetAndLookUp) {
  ov_node_t n = discrete(3);
  EXPECT_STREQ(ov_node_get_state_label(n, 2), "");
  EXPECT_EQ(n->state_labels, nullptr);
  // Setting the text it already reads allocates nothing.
  EXPECT_EQ(ov_node_set_state_label(n, 1, ""), ov_error_none);
  EXPECT_EQ(n->state_labels, nullptr);
  ASSERT_EQ(ov_node_set_state_label(n, 0, "low"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(n, 2, "high"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(n, 0), "low");
  EXPECT_STREQ(ov_node_get_state_label(n, 1), "");
  EXPECT_STREQ(ov_node_get_state_label(n, 2), "high");
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "high"), 2);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "low"), 0);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, ""), 1);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "medium"), -1);
  EXPECT_EQ(ov_error_code(), ov_error_none) << "no match is no error";
  // A shared label makes the lookup ambiguous.
  ASSERT_EQ(ov_node_set_state_label(n, 1, "high"), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "high"), -1);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  // Replacing a label.
  ASSERT_EQ(ov_node_set_state_label(n, 1, "medium"), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "medium"), 1);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "high"), 2);
}

TEST_F(StateLabels, BadArguments) {
  ov_node_t n = discrete(2);
  EXPECT_EQ(ov_node_get_state_label(n, 2), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_state_label(n, -1), nullptr);
  EXPECT_EQ(ov_node_get_state_label(n, std::numeric_limits<ov_index_t>::max()), nullptr);
  EXPECT_EQ(ov_node_set_state_label(n, 2, "x"), ov_error_usage);
  EXPECT_EQ(ov_node_set_state_label(n, -5, "x"), ov_error_usage);
  EXPECT_EQ(ov_node_set_state_label(n, 0, nullptr), ov_error_usage);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, nullptr), -1);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(n->state_labels, nullptr);
  ov_node_t y = make(ov_category_chance, ov_kind_continuous);
  EXPECT_EQ(ov_node_get_state_label(y, 0), nullptr);
  EXPECT_EQ(ov_node_set_state_label(y, 0, "x"), ov_error_usage);
  EXPECT_EQ(ov_node_get_state_index_from_label(y, "x"), -1);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
}

using StateValues = NodeFixture;

TEST_F(StateValues, IntervalBoundsWithoutValues) {
  ov_node_t n = discrete(3);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_interval), ov_error_none);
  EXPECT_EQ(ov_node_get_state_value(n, 0), -DBL_MAX);
  EXPECT_EQ(ov_node_get_state_value(n, 1), -1.0);
  EXPECT_EQ(ov_node_get_state_value(n, 2), -1.0);
  EXPECT_EQ(ov_node_get_state_value(n, 3), DBL_MAX) << "one bound more than states";
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_node_get_state_value(n, 4), -1.0);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  // Without values there is no lookup.
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 0.0), -1);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
}

TEST_F(StateValues, IntervalLookup) {
  ov_node_t n = discrete(2);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_interval), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 0, 0.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 1, 1.0), ov_error_none);
  // Before the top bound is set the sequence 0, 1, DBL_MAX increases, and
  // everything from 1 up is in the last interval.
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 1e300), 1);
  ASSERT_EQ(ov_node_set_state_value(n, 2, 2.0), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 1.0), 1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 2.0), 1) << "the last interval holds its upper bound";
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 2.5), -1);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 0.0), 0);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 0.999), 0);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, -0.001), -1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, std::nan("")), -1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, INFINITY), -1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, -INFINITY), -1);
}

TEST_F(StateValues, IntervalWithInfiniteEnds) {
  ov_node_t n = discrete(3);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_interval), ov_error_none);
  // Bounds -inf (the default), 0, 10, +inf (a true infinity).
  ASSERT_EQ(ov_node_set_state_value(n, 1, 0.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 2, 10.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 3, INFINITY), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, -INFINITY), 0);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, -1e308), 0);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, -0.0), 1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 9.99), 1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 10.0), 2);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, DBL_MAX), 2);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, INFINITY), 2);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, std::nan("")), -1);
}

TEST_F(StateValues, IntervalLookupNeedsIncreasingBounds) {
  ov_node_t n = discrete(2);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_interval), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 1, 5.0), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 6.0), 1);
  // Equal bounds: no order check at the setter, but the lookup refuses.
  ASSERT_EQ(ov_node_set_state_value(n, 2, 5.0), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 5.0), -1);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  // A NaN bound makes the sequence non-increasing too.
  ASSERT_EQ(ov_node_set_state_value(n, 2, std::nan("")), ov_error_none);
  EXPECT_TRUE(std::isnan(ov_node_get_state_value(n, 2)));
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 5.0), -1);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_FALSE(orvel::values_increase(n));
  ASSERT_EQ(ov_node_set_state_value(n, 2, 7.0), ov_error_none);
  EXPECT_TRUE(orvel::values_increase(n));
}

TEST_F(StateValues, NumberLookup) {
  ov_node_t n = discrete(4);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_number), ov_error_none);
  EXPECT_EQ(ov_node_get_state_value(n, 3), -1.0);
  EXPECT_EQ(ov_node_get_state_value(n, 4), -1.0) << "a numbered node has no top bound";
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  // Values 0, 1000, 1000 (twice: the first wins), 3.
  ASSERT_EQ(ov_node_set_state_value(n, 0, 0.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 1, 1000.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 2, 1000.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 3, 3.0), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 0.0), 0);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, -0.0), 0);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 1e-300), -1) << "only an exact 0 matches 0";
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 1000.0), 1);
  // Within a relative 1e-10 of the value.
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 1000.0 + 0.9e-7), 1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 1000.0 + 1.1e-7), -1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 3.0), 3);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 2.0), -1);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, std::nan("")), -1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, INFINITY), -1) << "not within any tolerance of a finite value";
  EXPECT_EQ(ov_node_get_state_index_from_value(n, -INFINITY), -1);
  // A numbered node needs no increasing order for the lookup.
  EXPECT_FALSE(orvel::values_increase(n));
  ASSERT_EQ(ov_node_set_state_value(n, 2, INFINITY), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, INFINITY), 2);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 1e308), -1);
  EXPECT_EQ(ov_node_get_state_index_from_value(n, 1000.0), 1);
}

TEST_F(StateValues, SetterChecksAndNoAllocationForTheCurrentValue) {
  ov_node_t n = discrete(2);
  EXPECT_EQ(ov_node_set_state_value(n, 0, 1.0), ov_error_usage) << "a label node has no values";
  EXPECT_EQ(ov_node_get_state_value(n, 0), -1.0);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_interval), ov_error_none);
  EXPECT_EQ(ov_node_set_state_value(n, 0, -DBL_MAX), ov_error_none);
  EXPECT_EQ(ov_node_set_state_value(n, 1, -1.0), ov_error_none);
  EXPECT_EQ(n->state_values, nullptr) << "current values allocate nothing";
  EXPECT_EQ(ov_node_set_state_value(n, 3, 1.0), ov_error_usage);
  EXPECT_EQ(ov_node_set_state_value(n, -1, 1.0), ov_error_usage);
  EXPECT_EQ(n->state_values, nullptr);
  ASSERT_EQ(ov_node_set_state_value(n, 1, 0.5), ov_error_none);
  ASSERT_NE(n->state_values, nullptr);
  EXPECT_EQ(n->state_values->size(), 3u);
  EXPECT_EQ(ov_node_get_state_value(n, 0), -DBL_MAX);
  EXPECT_EQ(ov_node_get_state_value(n, 1), 0.5);
  EXPECT_EQ(ov_node_get_state_value(n, 2), DBL_MAX);
}

using Cascades = NodeFixture;

TEST_F(Cascades, TouchTableMarksTheTreeAndTheLikelihood) {
  ov_node_t c = make(), d = make(ov_category_decision);
  ov_junction_tree_s tree;
  c->junction_tree = &tree;
  domain->learning.log_likelihood_valid = 1;
  EXPECT_EQ(ov_node_touch_table(c), ov_error_none);
  EXPECT_TRUE(tree.tables_changed);
  EXPECT_EQ(domain->learning.log_likelihood_valid, 0u);
  // A decision node's table is no part of the likelihood.
  domain->learning.log_likelihood_valid = 1;
  tree.tables_changed = false;
  d->junction_tree = &tree;
  EXPECT_EQ(ov_node_touch_table(d), ov_error_none);
  EXPECT_TRUE(tree.tables_changed);
  EXPECT_EQ(domain->learning.log_likelihood_valid, 1u);
  c->junction_tree = d->junction_tree = nullptr;
}

TEST_F(Cascades, LabelValueAndSubtypeChangesReachTheModelsOfTheNodeAndItsChildren) {
  ov_node_t parent = discrete(2), child = discrete(2), other = discrete(2);
  link(parent, child);
  for (ov_node_t n : {parent, child, other}) {
    n->model.reset(new ov_model_s);
    n->model->node = n;
  }
  auto reset = [&] {
    for (ov_node_t n : {parent, child, other}) n->model->table_is_stale = false;
  };
  reset();
  ASSERT_EQ(ov_node_set_state_label(parent, 0, "a"), ov_error_none);
  EXPECT_TRUE(parent->model->table_is_stale);
  EXPECT_TRUE(child->model->table_is_stale);
  EXPECT_FALSE(other->model->table_is_stale);

  reset();
  ASSERT_EQ(ov_node_set_subtype(parent, ov_subtype_number), ov_error_none);
  EXPECT_TRUE(parent->model->table_is_stale);
  EXPECT_TRUE(child->model->table_is_stale);

  // Labels of a numbered node do not feed expressions: no cascade.
  reset();
  ASSERT_EQ(ov_node_set_state_label(parent, 1, "b"), ov_error_none);
  EXPECT_FALSE(parent->model->table_is_stale);
  EXPECT_FALSE(child->model->table_is_stale);

  reset();
  ASSERT_EQ(ov_node_set_state_value(parent, 1, 4.0), ov_error_none);
  EXPECT_TRUE(parent->model->table_is_stale);
  EXPECT_TRUE(child->model->table_is_stale);
  EXPECT_FALSE(other->model->table_is_stale);

  // A change to a child does not reach its parent.
  reset();
  ASSERT_EQ(ov_node_set_state_label(child, 0, "x"), ov_error_none);
  EXPECT_TRUE(child->model->table_is_stale);
  EXPECT_FALSE(parent->model->table_is_stale);
}

TEST_F(Cascades, DescriptiveEditsLeaveACompiledDomainCompiled) {
  ov_node_t n = discrete(2);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_number), ov_error_none);
  n->elimination_number = 1;
  domain->compiled = 1;
  EXPECT_EQ(ov_node_set_name(n, "named"), ov_error_none);
  EXPECT_EQ(ov_node_set_label(n, "label"), ov_error_none);
  EXPECT_EQ(ov_node_set_position(n, 1, 2), ov_error_none);
  EXPECT_EQ(ov_node_set_state_label(n, 0, "s"), ov_error_none);
  EXPECT_EQ(ov_node_set_state_value(n, 0, 3.0), ov_error_none);
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_label), ov_error_none);
  EXPECT_EQ(ov_node_set_attribute(n, "k", "v"), ov_error_none);
  EXPECT_EQ(ov_domain_set_node_size(domain, 4, 5), ov_error_none);
  EXPECT_EQ(ov_node_touch_table(n), ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(domain), 1);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
}

// A class made by hand: a record with its class fields set, an output node,
// and an instance of it in a domain with one output clone.
struct ClassFixture : NodeFixture {
  int collection = 0;
  ov_domain_t cls = ov_new_domain();
  ov_node_t output = nullptr, instance = nullptr, clone = nullptr;

  void SetUp() override {
    cls->class_info.collection = reinterpret_cast<ov_class_collection_t>(&collection);
    output = ov_class_new_node(orvel::as_class(cls), ov_category_chance, ov_kind_discrete);
    output->state_count = 2;
    cls->class_info.outputs.push_back(output);
    instance = orvel::node_create(domain, ov_category_instance, ov_kind_discrete, ov_subtype_label, false);
    instance->instance_class = cls;
    cls->class_info.instances.push_back(instance);
    clone = orvel::node_create(domain, ov_category_chance, ov_kind_discrete, ov_subtype_label, true);
    clone->state_count = 2;
    clone->master = output;
    clone->instance = instance;
    instance->output_clones.push_back(clone);
  }
  void TearDown() override {
    // The class goes first: its instance in `domain` must not refer to it.
    instance->instance_class = nullptr;
    cls->class_info.collection = nullptr;
    ov_domain_delete(cls);
  }
};

TEST_F(ClassFixture, ClonesShareTheOutputsLabelsValuesAndSubtype) {
  ASSERT_EQ(ov_node_set_state_label(output, 1, "high"), ov_error_none);
  EXPECT_EQ(clone->state_labels, output->state_labels) << "one array for both";
  EXPECT_STREQ(ov_node_get_state_label(clone, 1), "high");
  ASSERT_EQ(ov_node_set_state_label(output, 0, "low"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(clone, 0), "low");
  EXPECT_EQ(ov_node_get_state_index_from_label(clone, "low"), 0);

  ASSERT_EQ(ov_node_set_subtype(output, ov_subtype_number), ov_error_none);
  EXPECT_EQ(ov_node_get_subtype(clone), ov_subtype_number);
  ASSERT_EQ(ov_node_set_state_value(output, 1, 42.0), ov_error_none);
  EXPECT_EQ(clone->state_values, output->state_values);
  EXPECT_EQ(ov_node_get_state_value(clone, 1), 42.0);
  EXPECT_EQ(ov_node_get_state_index_from_value(clone, 42.0), 1);
  // The clone's own setters are refused.
  EXPECT_EQ(ov_node_set_state_value(clone, 1, 1.0), ov_error_usage);
  EXPECT_EQ(ov_node_get_state_value(output, 1), 42.0);
}

TEST_F(ClassFixture, ChangesToAnOutputReachTheModelsBehindItsClones) {
  ov_node_t reader = make();
  link(clone, reader);
  for (ov_node_t n : {output, clone, reader}) {
    n->model.reset(new ov_model_s);
    n->model->node = n;
    n->model->table_is_stale = false;
  }
  ASSERT_EQ(ov_node_set_state_label(output, 0, "a"), ov_error_none);
  EXPECT_TRUE(output->model->table_is_stale);
  EXPECT_TRUE(clone->model->table_is_stale);
  EXPECT_TRUE(reader->model->table_is_stale) << "a child of the clone";
}

TEST_F(ClassFixture, DeletingClassNodesCleansTheClassRecords) {
  ov_node_t input = ov_class_new_node(orvel::as_class(cls), ov_category_chance, ov_kind_discrete);
  cls->class_info.inputs.push_back(input);
  // The class also holds an instance of another class, bound to `input`.
  ov_domain_t inner = ov_new_domain();
  ov_node_t inner_instance = orvel::node_create(cls, ov_category_instance, ov_kind_discrete, ov_subtype_label, false);
  inner_instance->instance_class = inner;
  inner->class_info.instances.push_back(inner_instance);
  inner_instance->input_bindings = {input, nullptr};
  ov_node_t inner_clone = orvel::node_create(cls, ov_category_chance, ov_kind_discrete, ov_subtype_label, true);
  inner_clone->master = output; // any class node
  inner_clone->instance = inner_instance;
  inner_instance->output_clones.push_back(inner_clone);
  ASSERT_EQ(cls->node_count(), 4u);

  ASSERT_EQ(ov_node_delete(input), ov_error_none);
  EXPECT_TRUE(cls->class_info.inputs.empty());
  EXPECT_EQ(inner_instance->input_bindings[0], nullptr) << "the binding slot is cleared";
  ASSERT_EQ(ov_node_delete(inner_instance), ov_error_none);
  EXPECT_EQ(cls->node_count(), 1u) << "the instance's output clone went with it";
  EXPECT_EQ(cls->instance_count, 0u);
  EXPECT_TRUE(inner->class_info.instances.empty());
  // Deleting the output takes it off the class's outputs.
  clone->master = nullptr; // the instance in `domain` is no concern of this test
  ASSERT_EQ(ov_node_delete(output), ov_error_none);
  EXPECT_TRUE(cls->class_info.outputs.empty());
  EXPECT_EQ(cls->node_count(), 0u);
  ov_domain_delete(inner);
}

using NodeDeletion = NodeFixture;

TEST_F(NodeDeletion, CountersListAndNumbers) {
  std::vector<ov_node_t> nodes;
  nodes.push_back(make());
  nodes.push_back(make(ov_category_decision));
  nodes.push_back(make(ov_category_utility));
  nodes.push_back(make());
  nodes.push_back(make());
  ASSERT_EQ(ov_node_delete(nodes[1]), ov_error_none);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(domain->node_count(), 4u);
  EXPECT_EQ(domain->decision_count, 0u);
  EXPECT_EQ(domain->chance_count, 3u);
  EXPECT_EQ(domain->utility_count, 1u);
  EXPECT_EQ(domain->discrete_count, 4u);
  // The public list, newest first, and dense numbers from the oldest.
  std::vector<ov_node_t> listed;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) listed.push_back(n);
  std::vector<ov_node_t> expected = {nodes[4], nodes[3], nodes[2], nodes[0]};
  EXPECT_EQ(listed, expected);
  for (std::size_t i = 0; i < listed.size(); ++i) EXPECT_EQ(listed[i]->number, listed.size() - i);
  // Delete the newest and the oldest.
  ASSERT_EQ(ov_node_delete(nodes[4]), ov_error_none);
  ASSERT_EQ(ov_node_delete(nodes[0]), ov_error_none);
  EXPECT_EQ(ov_domain_get_first_node(domain), nodes[3]);
  EXPECT_EQ(nodes[3]->number, 2u);
  EXPECT_EQ(nodes[2]->number, 1u);
  EXPECT_EQ(ov_node_get_next(nodes[2]), nullptr);
  // Deletion frees a decision slot: a continuous node is accepted again
  // once no decision and no utility node is left.
  EXPECT_EQ(make(ov_category_chance, ov_kind_continuous), nullptr);
  ASSERT_EQ(ov_node_delete(nodes[2]), ov_error_none);
  EXPECT_NE(make(ov_category_chance, ov_kind_continuous), nullptr);
}

TEST_F(NodeDeletion, NeighboursLoseTheNodeAndChildTablesKeepStateZero) {
  ov_node_t a = discrete(2), b = discrete(3), c = discrete(2);
  link(a, c);
  link(b, c);
  ov_table_t table = ov_node_get_table(c);
  ASSERT_NE(table, nullptr);
  ASSERT_EQ(ov_table_get_size(table), 12);
  ov_number_t *data = ov_table_get_data(table);
  for (int i = 0; i < 12; ++i) data[i] = static_cast<ov_number_t>(i);
  // Order (b, a, c): a discrete parent added later stands first.
  ASSERT_EQ(table->nodes[0], b);
  ASSERT_EQ(table->nodes[1], a);
  ov_table_t a_table = ov_node_get_table(a);
  ASSERT_NE(a_table, nullptr);
  std::uint32_t tables_before = static_cast<std::uint32_t>(domain->tables.size());

  c->elimination_number = 1; // the newest node: the domain reads as triangulated
  ASSERT_EQ(ov_node_delete(a), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_EQ(domain->tables.size(), tables_before - 1) << "the deleted node's table went with it";
  EXPECT_EQ(ov_node_get_children(b)[0], c);
  EXPECT_EQ(ov_node_get_parents(c)[0], b);
  EXPECT_EQ(ov_node_get_parents(c)[1], nullptr);
  // The child's table is over (b, c) and holds the slice a = 0:
  // cells (b, 0, c) of the old layout, index b * 4 + c.
  EXPECT_EQ(ov_table_get_size(table), 6);
  data = ov_table_get_data(table);
  for (int bs = 0; bs < 3; ++bs)
    for (int cs = 0; cs < 2; ++cs) EXPECT_EQ(data[bs * 2 + cs], static_cast<ov_number_t>(bs * 4 + cs));

  // Deleting a child takes it off its parents' child lists.
  ASSERT_EQ(ov_node_delete(c), ov_error_none);
  EXPECT_EQ(ov_node_get_children(b)[0], nullptr);
}

TEST_F(NodeDeletion, PartnersForgetTheirEdgeConstraints) {
  ov_node_t a = make(), b = make(), c = make();
  ASSERT_EQ(ov_node_set_edge_constraint(a, b, ov_constraint_forward_edge_required), ov_error_none);
  ASSERT_EQ(ov_node_set_edge_constraint(c, b, ov_constraint_edge_forbidden), ov_error_none);
  ASSERT_EQ(ov_node_set_edge_constraint(a, c, ov_constraint_edge_required), ov_error_none);
  ASSERT_EQ(b->edge_constraints.size(), 2u);
  ASSERT_EQ(ov_node_delete(a), ov_error_none);
  ASSERT_EQ(b->edge_constraints.size(), 1u);
  EXPECT_EQ(b->edge_constraints[0].first, c);
  EXPECT_EQ(ov_node_get_edge_constraint(b, c), ov_constraint_edge_forbidden);
  ASSERT_EQ(c->edge_constraints.size(), 1u);
  EXPECT_EQ(c->edge_constraints[0].first, b);
}

TEST_F(NodeDeletion, NodesInAChainComponentCannotBeDeleted) {
  ov_node_t n = make();
  n->chain_component = reinterpret_cast<orvel::ChainComponent *>(n); // any non-null marker
  EXPECT_EQ(ov_node_delete(n), ov_error_usage);
  EXPECT_EQ(domain->node_count(), 1u);
  n->chain_component = nullptr;
  EXPECT_EQ(ov_node_delete(nullptr), ov_error_usage);
}

TEST(NodeList, NullTerminatedHelpers) {
  ov_domain_t domain = ov_new_domain();
  ov_node_t a = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  ov_node_t b = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  ov_node_t c = ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous);
  ov_node_t ab[] = {a, b, nullptr}, ba[] = {b, a, nullptr}, abc[] = {a, b, c, nullptr}, empty[] = {nullptr};
  ov_node_t aa[] = {a, a, nullptr};
  using namespace orvel;
  EXPECT_EQ(node_list_length(nullptr), 0u);
  EXPECT_EQ(node_list_length(abc), 3u);
  EXPECT_EQ(node_list_index(abc, c), 2);
  EXPECT_EQ(node_list_index(ab, c), -1);
  EXPECT_EQ(node_list_index(nullptr, a), -1);
  EXPECT_EQ(node_list_index(ab, nullptr), -1);
  EXPECT_TRUE(node_list_subset(nullptr, empty));
  EXPECT_TRUE(node_list_subset(empty, nullptr));
  EXPECT_TRUE(node_list_subset(ba, abc));
  EXPECT_FALSE(node_list_subset(abc, ab));
  EXPECT_TRUE(node_list_equal(ab, ab));
  EXPECT_FALSE(node_list_equal(ab, ba));
  EXPECT_FALSE(node_list_equal(ab, abc));
  EXPECT_TRUE(node_list_equal(nullptr, empty));
  EXPECT_TRUE(node_list_is_set_of(abc, domain));
  EXPECT_FALSE(node_list_is_set_of(aa, domain));
  EXPECT_TRUE(node_list_all_unmarked(abc)) << "the set test leaves the marks at zero";
  ov_domain_t other = ov_new_domain();
  EXPECT_FALSE(node_list_is_set_of(abc, other));
  EXPECT_TRUE(node_list_is_set_of(nullptr, other));
  b->mark = 2;
  EXPECT_FALSE(node_list_all_unmarked(abc));
  node_list_clear_marks(abc);
  EXPECT_TRUE(node_list_all_unmarked(abc));

  NodeList parents;
  node_list_insert_by_kind(parents, c);
  node_list_insert_by_kind(parents, a);
  node_list_insert_by_kind(parents, b);
  ov_node_t expected[] = {b, a, c, nullptr};
  EXPECT_TRUE(node_list_equal(parents.data(), expected)) << "discrete first, the latest discrete first";
  ov_domain_delete(other);
  ov_domain_delete(domain);
}

} // namespace
