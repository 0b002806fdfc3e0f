// Adding, removing and switching parents, changing the number of states,
// deleting nodes and edge constraints, with the tables behind them checked
// against the assignment rule: a new node is ignored, a removed node keeps
// its state 0, a new state is a copy of state 0.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "expr/model.h"
#include "model/domain.h"
#include "model/graph.h"
#include "model/graph_support.h"
#include "table/table.h"

namespace orvel {
namespace {

using namespace graph_test;

void fake_triangulation(ov_domain_t domain) { ov_domain_get_first_node(domain)->elimination_number = 1; }
bool triangulated(ov_domain_t domain) { return ov_domain_is_triangulated(domain) == 1; }

// Gives every cell a distinct value, so that moved numbers can be traced.
void fill_distinct(ov_table_t table) {
  ov_number_t *data = ov_table_get_data(table);
  for (std::int64_t i = 0; i < ov_table_get_size(table); ++i) data[i] = static_cast<float>(i + 1);
}

// Checks every cell of a table against the number expected for its assignment.
template <class F> void expect_table(ov_table_t table, F &&expected) {
  Snapshot now = snapshot(table);
  std::size_t cell = 0;
  for_each_assignment(now.nodes, [&](const Assignment &assignment) {
    EXPECT_EQ(now.data[cell], expected(assignment)) << "cell " << cell;
    ++cell;
  });
  EXPECT_EQ(cell, now.data.size());
}

// The rule for a table after `node` left it or lost states: the cell of the
// same assignment with `node` in state 0 where it has no state any more.
auto keeps_state_zero(const Snapshot &before, ov_node_t node, std::uint32_t states = 0) {
  return [&before, node, states](Assignment s) {
    if (s.count(node) == 0 || s[node] >= states) s[node] = 0;
    return before.at(s);
  };
}

TEST(Links, TablesFollowAtEveryPosition) {
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 4), child = discrete(domain.get(), 3);
  ov_node_t x = discrete(domain.get(), 3);
  add_links({{a, child}, {b, child}});
  EXPECT_EQ(parents(child), (std::vector<ov_node_t>{b, a})) << "a discrete parent added later stands first";
  EXPECT_EQ(children(a), std::vector<ov_node_t>{child});
  ov_table_t table = ov_node_get_table(child);
  fill_distinct(table);
  Snapshot before = snapshot(table);
  fake_triangulation(domain.get());
  ASSERT_EQ(ov_node_add_parent(child, x), ov_error_none);
  EXPECT_FALSE(triangulated(domain.get()));
  EXPECT_EQ(ov_table_get_size(table), 72);
  expect_table(table, [&](const Assignment &s) { return before.at(s); });
  for (ov_node_t removed : {a, x, b}) {
    fill_distinct(table);
    Snapshot wide = snapshot(table);
    ASSERT_EQ(ov_node_remove_parent(child, removed), ov_error_none);
    expect_table(table, keeps_state_zero(wide, removed));
    EXPECT_TRUE(children(removed).empty());
  }
  EXPECT_EQ(ov_table_get_size(table), 3);
  EXPECT_TRUE(parents(child).empty());
}

TEST(Links, UndirectedLinksCountForTheCycleTest) {
  // x -> a - b -> y, with a - b an undirected link made by hand.
  DomainPtr domain = new_domain();
  ov_node_t x = discrete(domain.get(), 2), a = discrete(domain.get(), 2), b = discrete(domain.get(), 2);
  ov_node_t y = discrete(domain.get(), 2);
  add_links({{x, a}, {b, y}});
  chain_component(domain.get(), {a, b});
  EXPECT_EQ(ov_node_add_parent(x, y), ov_error_cyclic_network);
  EXPECT_EQ(ov_node_add_parent(a, y), ov_error_cyclic_network) << "either direction of the link";
  EXPECT_EQ(ov_node_add_parent(y, x), ov_error_none);
  for (auto &node : domain->nodes) EXPECT_EQ(node->mark, 0);
}

TEST(Links, ContinuousParentsKeepTheRegressions) {
  DomainPtr domain = new_domain();
  ov_node_t d = discrete(domain.get(), 2);
  ov_node_t y = continuous(domain.get()), x1 = continuous(domain.get()), x2 = continuous(domain.get());
  ov_node_t x3 = continuous(domain.get());
  ASSERT_EQ(ov_node_add_parent(y, d), ov_error_none);
  for (ov_node_t x : {x1, x2}) ASSERT_EQ(ov_node_add_parent(y, x), ov_error_none);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(ov_node_set_alpha(y, 10.0 + i, i), ov_error_none);
    ASSERT_EQ(ov_node_set_gamma(y, 20.0 + i, i), ov_error_none);
    ASSERT_EQ(ov_node_set_beta(y, 30.0 + i, x1, i), ov_error_none);
    ASSERT_EQ(ov_node_set_beta(y, 40.0 + i, x2, i), ov_error_none);
  }
  ASSERT_EQ(ov_node_add_parent(y, x3), ov_error_none);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ov_node_get_beta(y, x3, i), 0.0);
    ASSERT_EQ(ov_node_set_beta(y, 50.0 + i, x3, i), ov_error_none);
  }
  ASSERT_EQ(ov_node_remove_parent(y, x2), ov_error_none); // the middle one
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ov_node_get_alpha(y, i), 10.0 + i);
    EXPECT_EQ(ov_node_get_gamma(y, i), 20.0 + i);
    EXPECT_EQ(ov_node_get_beta(y, x1, i), 30.0 + i);
    EXPECT_EQ(ov_node_get_beta(y, x3, i), 50.0 + i);
  }
  ASSERT_EQ(ov_node_remove_parent(y, d), ov_error_none); // configuration 0 stays
  EXPECT_EQ(ov_table_get_size(ov_node_get_table(y)), 1);
  EXPECT_EQ(ov_node_get_alpha(y, 0), 10.0);
  EXPECT_EQ(ov_node_get_beta(y, x3, 0), 50.0);
  ASSERT_EQ(ov_node_remove_parent(y, x1), ov_error_none);
  ASSERT_EQ(ov_node_remove_parent(y, x3), ov_error_none);
  EXPECT_EQ(ov_node_get_gamma(y, 0), 20.0);
}

TEST(Links, RemovalMarksTheModelAndExperienceTablesFollow) {
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 2), x = discrete(domain.get(), 3);
  ASSERT_EQ(ov_node_add_parent(b, a), ov_error_none);
  ov_model_t model = ov_node_new_model(b, nullptr);
  ASSERT_NE(model, nullptr);
  model->table_is_stale = 0;
  Node *family[] = {a, nullptr};
  b->experience_table = table_new(domain.get(), family, ov_table_kind_experience, role_plain, false, true);
  b->fading_table = table_new(domain.get(), family, ov_table_kind_fading, role_plain, false, true);
  fill_distinct(b->experience_table);
  ASSERT_EQ(ov_node_add_parent(b, x), ov_error_none);
  EXPECT_EQ(ov_table_get_size(b->fading_table), 6);
  expect_table(b->experience_table, [&](const Assignment &s) { return static_cast<float>(s.at(a) + 1); });
  ASSERT_EQ(ov_node_remove_parent(b, a), ov_error_none);
  EXPECT_EQ(ov_node_get_model(b), model);
  EXPECT_EQ(model->table_is_stale, 1);
  EXPECT_EQ(ov_table_get_size(b->experience_table), 3);
  EXPECT_EQ(ov_table_get_size(b->fading_table), 3);
}

TEST(SwitchParent, KeepsNumbersPlacesAndModels) {
  DomainPtr domain = new_domain();
  ov_node_t old_parent = discrete(domain.get(), 3), other = discrete(domain.get(), 2);
  ov_node_t child = discrete(domain.get(), 2), replacement = discrete(domain.get(), 3);
  add_links({{other, child}, {old_parent, child}});
  ov_table_t table = ov_node_get_table(child);
  fill_distinct(table);
  std::vector<float> numbers = snapshot(table).data;
  std::vector<ov_node_t> table_nodes = node_list(ov_table_get_nodes(table));
  ov_node_t model_nodes[] = {old_parent, nullptr};
  ov_model_t model = ov_node_new_model(child, model_nodes);
  ov_expression_t expression = ov_node_make_expression(old_parent);
  ASSERT_EQ(ov_model_set_expression(model, 0, expression), ov_error_none);
  model->table_is_stale = 0;
  fake_triangulation(domain.get());

  ASSERT_EQ(ov_node_switch_parent(child, old_parent, replacement), ov_error_none);
  EXPECT_EQ(parents(child), (std::vector<ov_node_t>{replacement, other}));
  EXPECT_TRUE(children(old_parent).empty());
  EXPECT_EQ(children(replacement), std::vector<ov_node_t>{child});
  std::replace(table_nodes.begin(), table_nodes.end(), old_parent, replacement);
  EXPECT_EQ(node_list(ov_table_get_nodes(table)), table_nodes);
  EXPECT_EQ(snapshot(table).data, numbers);
  EXPECT_EQ(ov_model_get_nodes(model)[0], replacement);
  EXPECT_EQ(ov_expression_get_node(expression), replacement);
  EXPECT_EQ(model->table_is_stale, 0) << "with the same states the model's table still holds";
  EXPECT_FALSE(triangulated(domain.get()));
}

TEST(SwitchParent, OnlyInterchangeableNodes) {
  // Each case gives the old parent and a candidate their state description;
  // the switch succeeds exactly when the two agree.
  struct Case {
    const char *what;
    ov_subtype_t old_subtype, new_subtype;
    std::vector<std::pair<ov_index_t, double>> old_values, new_values;
    const char *old_label, *new_label;
    bool interchangeable;
  };
  const ov_subtype_t label = ov_subtype_label, number = ov_subtype_number, interval = ov_subtype_interval;
  const std::vector<Case> cases = {
      {"plain", label, label, {}, {}, nullptr, nullptr, true},
      {"one label", label, label, {}, {}, nullptr, "high", false},
      {"same labels", label, label, {}, {}, "high", "high", true},
      {"boolean and label", ov_subtype_boolean, label, {}, {}, nullptr, nullptr, false},
      {"number and label", number, label, {}, {}, nullptr, nullptr, false},
      {"numbers", number, number, {{1, 3.0}}, {{1, 3.0}}, nullptr, "labels do not count", true},
      {"other numbers", number, number, {{1, 3.0}}, {}, nullptr, nullptr, false},
      {"other first number", number, number, {{0, 7.0}}, {}, nullptr, nullptr, false},
      {"intervals", interval, interval, {{1, 1.0}, {2, 5.0}}, {{1, 1.0}, {2, 5.0}}, nullptr, nullptr, true},
      {"other top bound", interval, interval, {{1, 1.0}, {2, 5.0}}, {{1, 1.0}, {2, 6.0}}, nullptr, nullptr, false},
  };
  for (const Case &c : cases) {
    DomainPtr domain = new_domain();
    ov_node_t parent = discrete(domain.get(), 2), child = discrete(domain.get(), 2);
    ov_node_t candidate = discrete(domain.get(), 2);
    ASSERT_EQ(ov_node_add_parent(child, parent), ov_error_none);
    ASSERT_EQ(ov_node_set_subtype(parent, c.old_subtype), ov_error_none);
    ASSERT_EQ(ov_node_set_subtype(candidate, c.new_subtype), ov_error_none);
    for (auto [i, v] : c.old_values) ASSERT_EQ(ov_node_set_state_value(parent, i, v), ov_error_none);
    for (auto [i, v] : c.new_values) ASSERT_EQ(ov_node_set_state_value(candidate, i, v), ov_error_none);
    for (auto [node, label] : {std::pair(parent, c.old_label), {candidate, c.new_label}})
      ASSERT_EQ(label ? ov_node_set_state_label(node, 0, label) : ov_error_none, ov_error_none);
    EXPECT_EQ(ov_node_switch_parent(child, parent, candidate), c.interchangeable ? ov_error_none : ov_error_usage)
        << c.what;
    EXPECT_EQ(parents(child), std::vector<ov_node_t>{c.interchangeable ? candidate : parent}) << c.what;
  }
}

TEST(SwitchParent, ChainPotentialsFollow) {
  DomainPtr domain = new_domain();
  ov_node_t parent = discrete(domain.get(), 2), a = discrete(domain.get(), 2), b = discrete(domain.get(), 2);
  ov_node_t twin = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(a, parent), ov_error_none);
  Node *abc[] = {parent, a, b, nullptr}, *pb[] = {parent, b, nullptr};
  Table *potential = table_new(domain.get(), abc, ov_table_kind_probability, role_plain, false, true);
  Table *unrelated = table_new(domain.get(), pb, ov_table_kind_probability, role_plain, false, true);
  chain_component(domain.get(), {a, b}, {potential, unrelated});

  ASSERT_EQ(ov_node_switch_parent(a, parent, twin), ov_error_none);
  EXPECT_EQ(potential->nodes[0], twin);
  EXPECT_EQ(unrelated->nodes[0], parent) << "it holds no a";
  fill_distinct(potential);
  Snapshot before = snapshot(potential);
  ASSERT_EQ(ov_node_remove_parent(a, twin), ov_error_none);
  expect_table(potential, keeps_state_zero(before, twin));
  EXPECT_EQ(ov_table_get_size(unrelated), 4);
}

TEST(NumberOfStates, TablesOfTheNodeAndItsChildrenFollow) {
  DomainPtr domain = new_domain();
  ov_node_t node = discrete(domain.get(), 2), parent = discrete(domain.get(), 2);
  ov_node_t child = discrete(domain.get(), 3), other = discrete(domain.get(), 2);
  // other comes last: the node stands in the middle of the child's table
  add_links({{parent, node}, {node, child}, {other, child}});
  ov_table_t own = ov_node_get_table(node), theirs = ov_node_get_table(child);
  ASSERT_EQ(node_list(ov_table_get_nodes(theirs)), (std::vector<ov_node_t>{other, node, child}));
  for (std::uint32_t count : {4u, 3u, 1u, 2u}) {
    fill_distinct(own);
    fill_distinct(theirs);
    Snapshot own_before = snapshot(own), theirs_before = snapshot(theirs);
    const std::uint32_t k = static_cast<std::uint32_t>(ov_node_get_number_of_states(node));
    fake_triangulation(domain.get());
    ASSERT_EQ(ov_node_set_number_of_states(node, count), ov_error_none);
    EXPECT_EQ(ov_node_get_number_of_states(node), count);
    EXPECT_FALSE(triangulated(domain.get()));
    expect_table(own, keeps_state_zero(own_before, node, k));
    expect_table(theirs, keeps_state_zero(theirs_before, node, k));
    EXPECT_EQ(ov_table_get_size(theirs), 6 * count);
  }
  EXPECT_EQ(ov_node_set_number_of_states(node, 2), ov_error_none) << "the same count";
}

TEST(NumberOfStates, LabelsValuesAndEvidence) {
  DomainPtr domain = new_domain();
  ov_node_t node = discrete(domain.get(), 3);
  ASSERT_EQ(ov_node_set_state_label(node, 0, "low"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(node, 2, "high"), ov_error_none);
  ASSERT_EQ(ov_node_set_subtype(node, ov_subtype_interval), ov_error_none);
  for (int i = 0; i <= 3; ++i) ASSERT_EQ(ov_node_set_state_value(node, i, 10.0 * i), ov_error_none);
  ASSERT_EQ(ov_node_select_state(node, 2), ov_error_none);
  // The labels and the state values, the top bound included.
  auto labels = [&] {
    std::vector<std::string> all;
    for (int i = 0; i < ov_node_get_number_of_states(node); ++i) all.push_back(ov_node_get_state_label(node, i));
    return all;
  };
  auto values = [&] {
    std::vector<double> all;
    for (int i = 0; i <= ov_node_get_number_of_states(node); ++i) all.push_back(ov_node_get_state_value(node, i));
    return all;
  };
  using Labels = std::vector<std::string>;
  ASSERT_EQ(ov_node_set_number_of_states(node, 5), ov_error_none);
  EXPECT_EQ(labels(), (Labels{"low", "", "high", "", ""}));
  EXPECT_EQ(values(), (std::vector<double>{0, 10, 20, -1, -1, 30})) << "the top bound stays on top";
  EXPECT_EQ(ov_node_evidence_is_entered(node), 0) << "the finding goes";
  ASSERT_EQ(ov_node_set_number_of_states(node, 2), ov_error_none);
  EXPECT_EQ(labels(), (Labels{"low", ""}));
  EXPECT_EQ(values(), (std::vector<double>{0, 10, 30}));
  ASSERT_EQ(ov_node_set_number_of_states(node, 4), ov_error_none);
  EXPECT_EQ(labels(), (Labels{"low", "", "", ""})) << "a dropped label does not come back";
  EXPECT_EQ(values(), (std::vector<double>{0, 10, -1, -1, 30}));
}

TEST(NumberOfStates, AFailedGrowthSetsEveryTableBack) {
  // The Gaussian table of the last child cannot grow: its CG data would pass
  // the size limit. The tables resized before it go back to the old count.
  DomainPtr domain = new_domain();
  ov_node_t node = discrete(domain.get(), 2), child = discrete(domain.get(), 2), y = continuous(domain.get());
  add_links({{node, child}, {node, y}});
  for (int i = 0; i < 39; ++i) ASSERT_EQ(ov_node_add_parent(y, continuous(domain.get())), ov_error_none);
  ASSERT_EQ(ov_node_set_alpha(y, 7.0, 1), ov_error_none);
  ASSERT_EQ(children(node).back(), y);
  ASSERT_EQ(ov_node_set_subtype(node, ov_subtype_interval), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(node, 2, 9.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(node, 1, "one"), ov_error_none);
  ASSERT_EQ(ov_node_select_state(node, 1), ov_error_none);
  fill_distinct(ov_node_get_table(node));
  fill_distinct(ov_node_get_table(child));
  Snapshot own = snapshot(ov_node_get_table(node)), theirs = snapshot(ov_node_get_table(child));
  fake_triangulation(domain.get());

  EXPECT_EQ(ov_node_set_number_of_states(node, 1u << 20), ov_error_no_memory);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  EXPECT_EQ(ov_node_get_number_of_states(node), 2);
  EXPECT_EQ(snapshot(ov_node_get_table(node)).data, own.data);
  EXPECT_EQ(snapshot(ov_node_get_table(child)).data, theirs.data);
  EXPECT_EQ(ov_table_get_size(ov_node_get_table(y)), 2);
  EXPECT_EQ(ov_node_get_alpha(y, 1), 7.0);
  EXPECT_EQ(ov_node_get_state_value(node, 2), 9.0);
  EXPECT_EQ(ov_node_get_state_value(node, 3), -1.0);
  EXPECT_STREQ(ov_node_get_state_label(node, 1), "one");
  EXPECT_EQ(ov_node_get_state_label(node, 2), nullptr);
  EXPECT_EQ(ov_node_get_entered_state(node), 1);
  EXPECT_TRUE(triangulated(domain.get()));
}

TEST(NodeDelete, ReshapesChildrenAndForgetsConstraints) {
  DomainPtr domain = new_domain();
  ov_node_t parent = discrete(domain.get(), 2), node = discrete(domain.get(), 3);
  ov_node_t child = discrete(domain.get(), 2), other = discrete(domain.get(), 2);
  add_links({{parent, node}, {node, child}, {other, child}});
  ov_table_t table = ov_node_get_table(child);
  fill_distinct(table);
  Snapshot before = snapshot(table);
  ASSERT_EQ(ov_node_set_edge_constraint(node, other, ov_constraint_edge_required), ov_error_none);
  ASSERT_EQ(ov_node_set_edge_constraint(other, parent, ov_constraint_edge_forbidden), ov_error_none);
  ASSERT_NE(ov_node_get_table(node), nullptr);
  fake_triangulation(domain.get());
  const std::size_t tables = domain->tables.size();
  ASSERT_EQ(ov_node_delete(node), ov_error_none);
  EXPECT_FALSE(triangulated(domain.get()));
  EXPECT_EQ(domain->tables.size(), tables - 1) << "the deleted node's table went with it";
  EXPECT_TRUE(children(parent).empty());
  EXPECT_EQ(parents(child), std::vector<ov_node_t>{other});
  EXPECT_EQ(ov_table_get_size(table), 4);
  expect_table(table, keeps_state_zero(before, node));
  EXPECT_EQ(other->edge_constraints.size(), 1u);
  EXPECT_EQ(ov_node_get_edge_constraint(other, parent), ov_constraint_edge_forbidden);
  ASSERT_EQ(ov_node_delete(child), ov_error_none);
  EXPECT_TRUE(children(other).empty());
}

TEST(EdgeConstraints, MirrorOnTheOtherEnd) {
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 2), c = discrete(domain.get(), 2);
  fake_triangulation(domain.get());
  EXPECT_EQ(ov_node_get_edge_constraint(a, b), ov_constraint_none);
  const std::pair<ov_edge_constraint_t, ov_edge_constraint_t> mirrors[] = {
      {ov_constraint_edge_required, ov_constraint_edge_required},
      {ov_constraint_forward_edge_required, ov_constraint_backward_edge_required},
      {ov_constraint_backward_edge_required, ov_constraint_forward_edge_required},
      {ov_constraint_edge_forbidden, ov_constraint_edge_forbidden},
      {ov_constraint_forward_edge_forbidden, ov_constraint_backward_edge_forbidden},
      {ov_constraint_backward_edge_forbidden, ov_constraint_forward_edge_forbidden},
  };
  for (auto [value, mirror] : mirrors) {
    ASSERT_EQ(ov_node_set_edge_constraint(a, b, value), ov_error_none);
    EXPECT_EQ(ov_node_get_edge_constraint(a, b), value);
    EXPECT_EQ(ov_node_get_edge_constraint(b, a), mirror);
    EXPECT_EQ(a->edge_constraints.size(), 1u) << "one pair per other node";
  }
  ASSERT_EQ(ov_node_set_edge_constraint(b, c, ov_constraint_forward_edge_required), ov_error_none);
  ASSERT_EQ(ov_node_set_edge_constraint(a, b, ov_constraint_none), ov_error_none);
  EXPECT_EQ(ov_node_get_edge_constraint(b, a), ov_constraint_none);
  EXPECT_EQ(ov_node_get_edge_constraint(c, b), ov_constraint_backward_edge_required);
  EXPECT_TRUE(a->edge_constraints.empty());
  EXPECT_TRUE(triangulated(domain.get())) << "constraints never uncompile";
  // Links do not touch constraints.
  ASSERT_EQ(ov_node_set_edge_constraint(a, c, ov_constraint_forward_edge_forbidden), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(c, a), ov_error_none);
  EXPECT_EQ(ov_node_get_edge_constraint(c, a), ov_constraint_backward_edge_forbidden);
}

} // namespace
} // namespace orvel
