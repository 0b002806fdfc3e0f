// Nodes: creation, accessors, subtypes, state labels and values, what edits
// do to models and to the compiled state, and deletion.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "expr/model.h"
#include "model/domain.h"
#include "model/node.h"
#include "orvel.h"

namespace {

struct NodeFixture : ::testing::Test {
  ov_domain_t domain = ov_new_domain();
  ~NodeFixture() override { ov_domain_delete(domain); }

  ov_node_t make(ov_category_t category = ov_category_chance, ov_kind_t kind = ov_kind_discrete) {
    return ov_domain_new_node(domain, category, kind);
  }
  ov_node_t discrete(std::uint32_t states) {
    ov_node_t node = make();
    EXPECT_EQ(ov_node_set_number_of_states(node, states), ov_error_none);
    return node;
  }
  std::vector<ov_node_t> listed() {
    std::vector<ov_node_t> nodes;
    for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
    return nodes;
  }
};

using Nodes = NodeFixture;

TEST_F(Nodes, CreationDefaultsAndAccessors) {
  ov_node_t c = make();
  EXPECT_EQ(std::tuple(ov_node_get_category(c), ov_node_get_kind(c), ov_node_get_subtype(c)),
            std::tuple(ov_category_chance, ov_kind_discrete, ov_subtype_label));
  EXPECT_EQ(ov_node_get_number_of_states(c), 1);
  EXPECT_STREQ(ov_node_get_label(c), "");
  EXPECT_EQ(std::pair(ov_node_get_domain(c), ov_node_get_home_domain(c)), std::pair(domain, domain));
  ov_node_t y = make(ov_category_chance, ov_kind_continuous);
  EXPECT_EQ(ov_node_get_kind(y), ov_kind_continuous);
  EXPECT_EQ(ov_node_get_subtype(y), ov_subtype_error);
  EXPECT_EQ(listed(), (std::vector<ov_node_t>{y, c})) << "newest first";
  // An orphan's lists are empty and stable.
  ov_node_t *parents = ov_node_get_parents(c), *children = ov_node_get_children(c);
  ASSERT_TRUE(parents != nullptr && children != nullptr);
  EXPECT_TRUE(parents[0] == nullptr && children[0] == nullptr);
  EXPECT_EQ(std::pair(ov_node_get_parents(c), ov_node_get_children(c)), std::pair(parents, children));
  EXPECT_EQ(ov_error_code(), ov_error_none);

  EXPECT_EQ(ov_node_set_label(c, "The weather"), ov_error_none);
  EXPECT_STREQ(ov_node_get_label(c), "The weather");
  int x = 0, z = 0, token = 0;
  EXPECT_EQ(ov_node_set_position(c, -4, 17), ov_error_none);
  EXPECT_EQ(ov_node_get_position(c, &x, &z), ov_error_none);
  EXPECT_EQ(std::pair(x, z), std::pair(-4, 17));
  EXPECT_EQ(ov_node_get_user_data(c), nullptr);
  EXPECT_EQ(ov_node_set_user_data(c, &token), ov_error_none);
  EXPECT_EQ(ov_node_get_user_data(c), &token);
}

TEST_F(Nodes, CreationAndDeletionKeepInfluenceDiagramsApartFromContinuousNodes) {
  ov_node_t d = make(ov_category_decision), c = make();
  ASSERT_EQ(ov_node_add_parent(c, d), ov_error_none);
  c->elimination_number = 1; // the newest node: the domain reads as triangulated
  EXPECT_EQ(make(ov_category_chance, ov_kind_continuous), nullptr);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1) << "a refusal does not uncompile";
  ov_node_t u = make(ov_category_utility);
  ASSERT_NE(u, nullptr);
  EXPECT_EQ(c->elimination_number, 0u) << "a new node uncompiles";
  ASSERT_EQ(ov_node_delete(d), ov_error_none);
  EXPECT_EQ(make(ov_category_chance, ov_kind_continuous), nullptr) << "the utility node is left";
  ASSERT_EQ(ov_node_delete(u), ov_error_none);
  EXPECT_NE(make(ov_category_chance, ov_kind_continuous), nullptr);
  EXPECT_EQ(make(ov_category_decision), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_cg_influence_diagrams_not_supported);
}

TEST_F(Nodes, DeletionKeepsTheListInOrder) {
  std::vector<ov_node_t> n;
  for (ov_category_t category :
       {ov_category_chance, ov_category_decision, ov_category_utility, ov_category_chance, ov_category_chance})
    n.push_back(make(category));
  ASSERT_EQ(ov_node_delete(n[1]), ov_error_none);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(listed(), (std::vector<ov_node_t>{n[4], n[3], n[2], n[0]}));
  ASSERT_EQ(ov_node_delete(n[4]), ov_error_none);
  ASSERT_EQ(ov_node_delete(n[0]), ov_error_none);
  EXPECT_EQ(listed(), (std::vector<ov_node_t>{n[3], n[2]}));
}

TEST_F(Nodes, BooleanSubtype) {
  ov_node_t n = make();
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_boolean), ov_error_usage) << "one state";
  ASSERT_EQ(ov_node_set_number_of_states(n, 2), ov_error_none);
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_boolean), ov_error_none);
  EXPECT_EQ(ov_node_get_subtype(n), ov_subtype_boolean);
  for (auto [label, index] : {std::pair("false", 0), {"true", 1}}) {
    EXPECT_STREQ(ov_node_get_state_label(n, index), label);
    EXPECT_EQ(ov_node_get_state_index_from_label(n, label), index);
  }
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_boolean), ov_error_none);
  // A stored label wins over the boolean text.
  EXPECT_EQ(ov_node_set_state_label(n, 1, "yes"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(n, 1), "yes");
  EXPECT_STREQ(ov_node_get_state_label(n, 0), "false");
  EXPECT_EQ(ov_node_set_subtype(n, ov_subtype_label), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(n, 0), "");
  ov_node_t d = make(ov_category_decision);
  EXPECT_EQ(ov_node_set_subtype(d, ov_subtype_interval), ov_error_none);
  EXPECT_EQ(ov_node_get_subtype(d), ov_subtype_interval);
}

TEST_F(Nodes, StateLabelsSetGetAndLookUp) {
  ov_node_t n = discrete(3);
  EXPECT_STREQ(ov_node_get_state_label(n, 2), "");
  ASSERT_EQ(ov_node_set_state_label(n, 0, "low"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(n, 2, "high"), ov_error_none);
  for (auto [label, index] : {std::pair("low", 0), {"", 1}, {"high", 2}}) {
    EXPECT_STREQ(ov_node_get_state_label(n, index), label);
    EXPECT_EQ(ov_node_get_state_index_from_label(n, label), index);
  }
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "medium"), -1);
  EXPECT_EQ(ov_error_code(), ov_error_none) << "no match is no error";
  ASSERT_EQ(ov_node_set_state_label(n, 1, "high"), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "high"), -1) << "a shared label is ambiguous";
  EXPECT_EQ(ov_error_code(), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(n, 1, "medium"), ov_error_none);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "medium"), 1);
  EXPECT_EQ(ov_node_get_state_index_from_label(n, "high"), 2);
  ASSERT_EQ(ov_node_set_state_label(n, 1, "b"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(n, 1, "a"), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(n, 1), "a") << "a label just below the old one";
  // The list helpers behind these look-ups (no public call shows them).
  ov_node_t list[] = {n, nullptr};
  EXPECT_EQ(orvel::node_list_index(list, n), 0);
  orvel::model_on_parent_removed(nullptr, n); // a node without a model: nothing to do
}

// State values and the lookup from a value: each case sets values on a node
// of a subtype and looks values up.
struct ValueCase {
  const char *what;
  ov_subtype_t subtype;
  std::uint32_t states;
  std::vector<std::pair<ov_index_t, double>> values;  // set in this order
  std::vector<std::pair<double, ov_index_t>> lookups; // value, expected state (-1: none)
};

TEST_F(Nodes, StateValueLookup) {
  const double nan = std::nan(""), inf = INFINITY;
  // clang-format off
  const std::vector<ValueCase> cases = {
      {"interval 0 1 2", ov_subtype_interval, 2, {{0, 0.0}, {1, 1.0}, {2, 2.0}},
       {{1.0, 1}, {2.0, 1}, {2.5, -1}, {0.0, 0}, {0.999, 0}, {-0.001, -1}, {nan, -1}, {inf, -1}, {-inf, -1}}},
      {"interval, top bound unset", ov_subtype_interval, 2, {{0, 0.0}, {1, 1.0}}, {{1e300, 1}, {0.5, 0}}},
      {"interval, infinite ends", ov_subtype_interval, 3, {{1, 0.0}, {2, 10.0}, {3, inf}},
       {{-inf, 0}, {-1e308, 0}, {-0.0, 1}, {9.99, 1}, {10.0, 2}, {DBL_MAX, 2}, {inf, 2}, {nan, -1}}},
      {"interval, equal bounds", ov_subtype_interval, 2, {{1, 5.0}, {2, 5.0}}, {{5.0, -1}}},
      {"interval, NaN bound", ov_subtype_interval, 2, {{1, 5.0}, {2, nan}}, {{5.0, -1}}},
      {"interval, increasing again", ov_subtype_interval, 2, {{1, 5.0}, {2, nan}, {2, 7.0}}, {{6.0, 1}, {4.0, 0}}},
      {"numbers", ov_subtype_number, 4, {{0, 0.0}, {1, 1000.0}, {2, 1000.0}, {3, 3.0}},
       {{0.0, 0}, {-0.0, 0}, {1e-300, -1}, {1000.0, 1}, {1000.0 + 0.9e-7, 1}, {1000.0 + 1.1e-7, -1}, {3.0, 3},
        {2.0, -1}, {nan, -1}, {inf, -1}, {-inf, -1}}},
      {"numbers with infinity", ov_subtype_number, 3, {{0, 0.0}, {1, 1000.0}, {2, inf}},
       {{inf, 2}, {1e308, -1}, {1000.0, 1}}},
  };
  // clang-format on
  for (const ValueCase &c : cases) {
    ov_node_t n = discrete(c.states);
    ASSERT_EQ(ov_node_set_subtype(n, c.subtype), ov_error_none);
    for (auto [state, value] : c.values) ASSERT_EQ(ov_node_set_state_value(n, state, value), ov_error_none) << c.what;
    for (auto [value, state] : c.lookups) {
      EXPECT_EQ(ov_node_get_state_index_from_value(n, value), state) << c.what << ": " << value;
      EXPECT_TRUE(state < 0 || ov_error_code() == ov_error_none);
    }
  }
}

TEST_F(Nodes, StateValueDefaults) {
  ov_node_t n = discrete(3);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_interval), ov_error_none);
  EXPECT_EQ(ov_node_get_state_value(n, 0), -DBL_MAX);
  EXPECT_EQ(ov_node_get_state_value(n, 1), -1.0);
  EXPECT_EQ(ov_node_get_state_value(n, 3), DBL_MAX) << "one bound more than states";
  EXPECT_EQ(ov_error_code(), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n, 1, 0.5), ov_error_none);
  for (auto [i, value] : {std::pair(0, -DBL_MAX), {1, 0.5}, {2, -1.0}, {3, DBL_MAX}})
    EXPECT_EQ(ov_node_get_state_value(n, i), value) << i;
  ov_node_t m = discrete(2);
  ASSERT_EQ(ov_node_set_subtype(m, ov_subtype_number), ov_error_none);
  EXPECT_EQ(ov_node_get_state_value(m, 2), -1.0) << "a numbered node has no top bound";
  EXPECT_EQ(ov_error_code(), ov_error_usage);
}

TEST_F(Nodes, LabelValueAndSubtypeChangesReachTheModelsOfTheNodeAndItsChildren) {
  ov_node_t parent = discrete(2), child = discrete(2), other = discrete(2);
  ASSERT_EQ(ov_node_add_parent(child, parent), ov_error_none);
  for (ov_node_t n : {parent, child, other}) ASSERT_NE(ov_node_new_model(n, nullptr), nullptr);
  auto stale = [&](ov_node_t n) { return ov_node_get_model(n)->table_is_stale != 0; };
  // Clears the flags, makes the edit and reads the flags of the three models.
  auto change = [&](auto edit) {
    for (ov_node_t n : {parent, child, other}) ov_node_get_model(n)->table_is_stale = 0;
    EXPECT_EQ(edit(), ov_error_none);
    return std::vector<bool>{stale(parent), stale(child), stale(other)};
  };
  using Flags = std::vector<bool>;
  EXPECT_EQ(change([&] { return ov_node_set_state_label(parent, 0, "a"); }), (Flags{true, true, false}));
  EXPECT_EQ(change([&] { return ov_node_set_subtype(parent, ov_subtype_number); }), (Flags{true, true, false}));
  EXPECT_EQ(change([&] { return ov_node_set_state_label(parent, 1, "b"); }), (Flags{false, false, false}))
      << "labels of a numbered node feed no expression";
  EXPECT_EQ(change([&] { return ov_node_set_state_value(parent, 1, 4.0); }), (Flags{true, true, false}));
  EXPECT_EQ(change([&] { return ov_node_set_state_label(child, 0, "x"); }), (Flags{false, true, false}));
}

TEST_F(Nodes, DescriptiveEditsLeaveACompiledDomainCompiled) {
  ov_node_t n = discrete(2);
  ASSERT_EQ(ov_node_set_subtype(n, ov_subtype_number), ov_error_none);
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_EQ(ov_node_get_junction_tree(n), ov_domain_get_first_junction_tree(domain));
  EXPECT_EQ(ov_domain_tables_to_propagate(domain), 0);
  for (ov_status_t status : {ov_node_set_name(n, "named"), ov_node_set_label(n, "label"), ov_node_set_position(n, 1, 2),
                             ov_node_set_state_label(n, 0, "s"), ov_node_set_state_value(n, 0, 3.0),
                             ov_node_set_subtype(n, ov_subtype_label), ov_node_set_attribute(n, "k", "v"),
                             ov_domain_set_node_size(domain, 4, 5)})
    EXPECT_EQ(status, ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(domain) + ov_domain_is_triangulated(domain), 2);
  EXPECT_EQ(ov_domain_tables_to_propagate(domain), 0);
  // Touching the table asks for a new propagation.
  EXPECT_EQ(ov_node_touch_table(n), ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(domain), 1);
  EXPECT_EQ(ov_domain_tables_to_propagate(domain), 1);
}

} // namespace
