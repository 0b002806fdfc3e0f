// Adding, removing and switching parents, changing the number of states,
// edge constraints, and the table reshaping behind them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cstring>
#include <random>

#include "expr/model.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/graph.h"
#include "model/graph_support.h"
#include "table/table.h"

namespace orvel {
namespace {

using namespace graph_test;
using Assignment = std::map<ov_node_t, std::uint32_t>;

// Makes the domain look triangulated, so that an uncompile can be seen.
void fake_triangulation(ov_domain_t domain) { ov_domain_get_first_node(domain)->elimination_number = 1; }
bool triangulated(ov_domain_t domain) { return ov_domain_is_triangulated(domain) == 1; }

// Gives every cell a distinct value, so that moved numbers can be traced.
void fill_distinct(ov_table_t table) {
  ov_number_t *data = ov_table_get_data(table);
  for (std::int64_t i = 0; i < ov_table_get_size(table); ++i) data[i] = static_cast<float>(i + 1);
}

// Checks every cell of a table against the numbers expected for its
// assignment.
template <class F> void expect_table(ov_table_t table, F &&expected) {
  Snapshot now = snapshot(table);
  std::size_t cell = 0;
  for_each_assignment(now.nodes, [&](const Assignment &assignment) {
    EXPECT_EQ(now.data[cell], expected(assignment)) << "cell " << cell;
    ++cell;
  });
  EXPECT_EQ(cell, now.data.size());
}

// ---------------------------------------------------------------- adding and removing parents

TEST(AddParent, WidensWithCopiesAndNarrowingKeepsStateZero) {
  DomainPtr domain = new_domain();
  ov_node_t child = discrete(domain.get(), 2);
  ov_node_t parent = discrete(domain.get(), 3);
  ov_table_t table = ov_node_get_table(child);
  ov_number_t *data = ov_table_get_data(table);
  data[0] = 0.25f;
  data[1] = 0.75f;
  ASSERT_EQ(ov_node_add_parent(child, parent), ov_error_none);
  ASSERT_EQ(ov_table_get_size(table), 6);
  EXPECT_EQ(node_list(ov_table_get_nodes(table)), (std::vector<ov_node_t>{parent, child}));
  data = ov_table_get_data(table);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(data[i], i % 2 == 0 ? 0.25f : 0.75f);
  EXPECT_EQ(parents(child), std::vector<ov_node_t>{parent});
  EXPECT_EQ(children(parent), std::vector<ov_node_t>{child});

  const float changed[6] = {0.1f, 0.9f, 0.2f, 0.8f, 0.5f, 0.5f};
  std::memcpy(data, changed, sizeof changed);
  ASSERT_EQ(ov_node_remove_parent(child, parent), ov_error_none);
  ASSERT_EQ(ov_table_get_size(table), 2);
  data = ov_table_get_data(table);
  EXPECT_EQ(data[0], 0.1f);
  EXPECT_EQ(data[1], 0.9f);
  EXPECT_TRUE(parents(child).empty());
  EXPECT_TRUE(children(parent).empty());
}

TEST(AddParent, TablesFollowTheGraphInLargerTables) {
  // Widening and narrowing at every position of a table of three discrete
  // nodes, against the assignment rule: a new node is ignored, a removed
  // node keeps its state 0.
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 4), child = discrete(domain.get(), 3);
  ov_node_t x = discrete(domain.get(), 3);
  ASSERT_EQ(ov_node_add_parent(child, a), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(child, b), ov_error_none);
  ov_table_t table = ov_node_get_table(child);
  fill_distinct(table);
  Snapshot before = snapshot(table);
  ASSERT_EQ(ov_node_add_parent(child, x), ov_error_none);
  EXPECT_EQ(ov_table_get_size(table), 72);
  expect_table(table, [&](const Assignment &s) { return before.at(s); });

  for (ov_node_t removed : {a, x, b}) {
    fill_distinct(table);
    Snapshot wide = snapshot(table);
    ASSERT_EQ(ov_node_remove_parent(child, removed), ov_error_none);
    expect_table(table, [&](Assignment s) {
      s[removed] = 0;
      return wide.at(s);
    });
  }
  EXPECT_EQ(ov_table_get_size(table), 3);
}

TEST(AddParent, RefusedLinksChangeNothing) {
  DomainPtr domain = new_domain(), other = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 2), c = discrete(domain.get(), 2);
  ov_node_t y = continuous(domain.get());
  ov_node_t stranger = discrete(other.get(), 2);
  ASSERT_EQ(ov_node_add_parent(b, a), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(c, b), ov_error_none);
  fill_distinct(ov_node_get_table(a));
  fake_triangulation(domain.get());
  Snapshot table_a = snapshot(ov_node_get_table(a));

  EXPECT_EQ(ov_node_add_parent(a, c), ov_error_cyclic_network); // c descends from a
  EXPECT_EQ(ov_node_add_parent(a, a), ov_error_cyclic_network);
  EXPECT_EQ(ov_node_add_parent(b, a), ov_error_usage); // already a parent
  EXPECT_EQ(ov_node_add_parent(a, y), ov_error_usage); // continuous parent of a discrete node
  EXPECT_EQ(ov_node_add_parent(a, stranger), ov_error_usage);
  EXPECT_EQ(ov_node_add_parent(nullptr, a), ov_error_usage);
  EXPECT_EQ(ov_node_add_parent(a, nullptr), ov_error_usage);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_TRUE(parents(a).empty());
  EXPECT_EQ(children(c), std::vector<ov_node_t>{});
  Snapshot after = snapshot(ov_node_get_table(a));
  EXPECT_EQ(after.data, table_a.data);
  EXPECT_EQ(after.nodes, table_a.nodes);
  EXPECT_TRUE(triangulated(domain.get()));

  EXPECT_EQ(ov_node_add_parent(y, a), ov_error_none); // a discrete parent of a continuous node is fine
  EXPECT_FALSE(triangulated(domain.get()));
}

TEST(AddParent, OnlyChanceAndDecisionNodesAreParents) {
  DomainPtr domain = new_domain();
  ov_node_t decision = discrete(domain.get(), 2, ov_category_decision);
  ov_node_t utility = ov_domain_new_node(domain.get(), ov_category_utility, ov_kind_discrete);
  ov_node_t chance = discrete(domain.get(), 2);
  EXPECT_EQ(ov_node_add_parent(chance, utility), ov_error_usage);
  EXPECT_EQ(ov_node_add_parent(chance, decision), ov_error_none);
  EXPECT_EQ(ov_node_add_parent(utility, chance), ov_error_none);
  EXPECT_EQ(ov_node_add_parent(utility, decision), ov_error_none);
  // The utility table holds the parent list as it stands.
  EXPECT_EQ(ov_table_get_size(ov_node_get_table(utility)), 4);
  // Clones and interface inputs take no parents.
  ov_node_t fresh = discrete(domain.get(), 2);
  chance->master = decision;
  EXPECT_EQ(ov_node_add_parent(chance, fresh), ov_error_usage);
  chance->master = nullptr;
  domain->class_info.inputs.push_back(chance);
  EXPECT_EQ(ov_node_add_parent(chance, fresh), ov_error_usage);
  domain->class_info.inputs.clear();
  EXPECT_EQ(ov_node_add_parent(chance, fresh), ov_error_none);
}

TEST(AddParent, UndirectedLinksCountForTheCycleTest) {
  DomainPtr domain = new_domain();
  ov_node_t x = discrete(domain.get(), 2), a = discrete(domain.get(), 2), b = discrete(domain.get(), 2);
  ov_node_t y = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(a, x), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(y, b), ov_error_none);
  EXPECT_FALSE(is_descendant(x, y));
  auto component = std::make_unique<ChainComponent>();
  component->domain = domain.get();
  component->members.push_back(a);
  component->members.push_back(b);
  a->chain_component = b->chain_component = component.get();
  domain->chain_components.push_back(std::move(component));

  EXPECT_TRUE(is_descendant(x, y));
  EXPECT_TRUE(is_descendant(b, a)); // both directions
  EXPECT_FALSE(is_descendant(y, x));
  EXPECT_EQ(ov_node_add_parent(x, y), ov_error_cyclic_network);
  for (auto &node : domain->nodes) EXPECT_EQ(node->mark, 0);
}

TEST(AddParent, ContinuousParentsExtendTheGaussianLayout) {
  DomainPtr domain = new_domain();
  ov_node_t d = discrete(domain.get(), 2);
  ov_node_t y = continuous(domain.get()), x1 = continuous(domain.get()), x2 = continuous(domain.get());
  ASSERT_EQ(ov_node_add_parent(y, d), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(y, x1), ov_error_none);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(ov_node_set_alpha(y, 10.0 + i, i), ov_error_none);
    ASSERT_EQ(ov_node_set_gamma(y, 20.0 + i, i), ov_error_none);
    ASSERT_EQ(ov_node_set_beta(y, 30.0 + i, x1, i), ov_error_none);
  }
  ASSERT_EQ(ov_node_add_parent(y, x2), ov_error_none);
  ov_table_t table = ov_node_get_table(y);
  EXPECT_EQ(table->cg_stride, 9u);
  EXPECT_EQ(table->cg_roles[2], cg_tail);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ov_node_get_alpha(y, i), 10.0 + i);
    EXPECT_EQ(ov_node_get_gamma(y, i), 20.0 + i);
    EXPECT_EQ(ov_node_get_beta(y, x1, i), 30.0 + i);
    EXPECT_EQ(ov_node_get_beta(y, x2, i), 0.0);
    ASSERT_EQ(ov_node_set_beta(y, 40.0 + i, x2, i), ov_error_none);
  }
  ASSERT_EQ(ov_node_remove_parent(y, x1), ov_error_none);
  EXPECT_EQ(table->cg_stride, 5u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ov_node_get_alpha(y, i), 10.0 + i);
    EXPECT_EQ(ov_node_get_gamma(y, i), 20.0 + i);
    EXPECT_EQ(ov_node_get_beta(y, x2, i), 40.0 + i);
  }
  ASSERT_EQ(ov_node_remove_parent(y, d), ov_error_none); // configuration 0 stays
  EXPECT_EQ(ov_table_get_size(table), 1);
  EXPECT_EQ(ov_node_get_alpha(y, 0), 10.0);
  EXPECT_EQ(ov_node_get_beta(y, x2, 0), 40.0);
}

TEST(RemoveParent, RefusalsAndTheModelHook) {
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 2);
  EXPECT_EQ(ov_node_remove_parent(b, a), ov_error_usage);
  EXPECT_EQ(ov_node_remove_parent(nullptr, a), ov_error_usage);
  EXPECT_EQ(ov_node_remove_parent(b, nullptr), ov_error_usage);
  ASSERT_EQ(ov_node_add_parent(b, a), ov_error_none);
  ov_model_t model = ov_node_new_model(b, nullptr);
  ASSERT_NE(model, nullptr);
  model->table_is_stale = 0;
  fake_triangulation(domain.get());
  ASSERT_EQ(ov_node_remove_parent(b, a), ov_error_none);
  EXPECT_EQ(ov_node_get_model(b), model);
  EXPECT_EQ(model->table_is_stale, 1);
  EXPECT_FALSE(triangulated(domain.get()));
}

// ---------------------------------------------------------------- white-box reshaping

// A table over the given nodes with data, detached from node ownership.
Table *data_table(Domain *domain, std::vector<Node *> nodes, std::int32_t kind = ov_table_kind_probability) {
  nodes.push_back(nullptr);
  Table *table = table_new(domain, nodes.data(), kind, role_plain, false, true);
  EXPECT_NE(table, nullptr);
  return table;
}

TEST(TableReshape, ExperienceAndFadingTablesFollowTheParents) {
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), child = discrete(domain.get(), 2), x = discrete(domain.get(), 3);
  ASSERT_EQ(ov_node_add_parent(child, a), ov_error_none);
  child->experience_table = data_table(domain.get(), {a}, ov_table_kind_experience);
  child->fading_table = data_table(domain.get(), {a}, ov_table_kind_fading);
  fill_distinct(child->experience_table);
  ASSERT_EQ(ov_node_add_parent(child, x), ov_error_none);
  EXPECT_EQ(ov_table_get_size(child->experience_table), 6);
  EXPECT_EQ(ov_table_get_size(child->fading_table), 6);
  expect_table(child->experience_table, [&](const Assignment &s) { return static_cast<float>(s.at(a) + 1); });
  ASSERT_EQ(ov_node_switch_parent(child, a, discrete(domain.get(), 2)), ov_error_none);
  EXPECT_FALSE(child->experience_table->nodes.contains(a));
  ASSERT_EQ(ov_node_remove_parent(child, x), ov_error_none);
  EXPECT_EQ(ov_table_get_size(child->experience_table), 2);
  EXPECT_EQ(ov_table_get_size(child->fading_table), 2);
}

TEST(TableReshape, ResizeAtEveryPositionAgainstTheRule) {
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 3), c = discrete(domain.get(), 2);
  Table *table = data_table(domain.get(), {a, b, c});
  for (ov_node_t node : {a, b, c}) {
    for (std::uint32_t count : {5u, 1u, 3u}) {
      fill_distinct(table);
      Snapshot before = snapshot(table);
      const std::uint32_t k = node->state_count;
      ASSERT_EQ(table_resize_node(table, node, count), ov_error_none);
      node->state_count = count; // what set_number_of_states does after the tables
      expect_table(table, [&](Assignment s) {
        if (s[node] >= k) s[node] = 0; // a new state is a copy of state 0
        return before.at(s);
      });
    }
  }
  EXPECT_EQ(ov_table_get_size(table), 27);
  // A node the table does not hold changes nothing.
  ov_node_t absent = discrete(domain.get(), 2);
  EXPECT_EQ(table_resize_node(table, absent, 7), ov_error_none);
  EXPECT_EQ(ov_table_get_size(table), 27);
}

TEST(TableReshape, ContinuousNodesOpenAndCloseTheirRowAndColumn) {
  DomainPtr domain = new_domain();
  ov_node_t d = discrete(domain.get(), 3);
  ov_node_t y0 = continuous(domain.get()), y1 = continuous(domain.get()), y2 = continuous(domain.get());
  Table *table = data_table(domain.get(), {d, y0, y1});
  auto value = [](Size cell, std::uint32_t offset) { return 100.0 * cell + offset + 1; };
  for (Size cell = 0; cell < 3; ++cell)
    for (std::uint32_t o = 0; o < 5; ++o) table->cg_data[cell * 5 + o] = value(cell, o);
  ASSERT_EQ(table_add_node(table, y2), ov_error_none);
  ASSERT_EQ(table->cg_stride, 9u);
  EXPECT_EQ(table->cg_roles[2], cg_unset);
  for (Size cell = 0; cell < 3; ++cell) {
    for (std::uint32_t o = 0; o < 5; ++o) EXPECT_EQ(table->cg_data[cell * 9 + o], value(cell, o));
    for (std::uint32_t o = 5; o < 9; ++o) EXPECT_EQ(table->cg_data[cell * 9 + o], 0.0);
  }
  // Give the new row distinct numbers, then take out the middle node: the
  // entries of nodes 0 and 2 close up.
  for (Size cell = 0; cell < 3; ++cell)
    for (std::uint32_t o = 5; o < 9; ++o) table->cg_data[cell * 9 + o] = value(cell, o);
  table->cg_roles[0] = cg_head;
  table->cg_roles[2] = cg_tail;
  ASSERT_EQ(table_remove_node(table, y1), ov_error_none);
  ASSERT_EQ(table->cg_stride, 5u);
  EXPECT_EQ(table->cg_roles[0], cg_head);
  EXPECT_EQ(table->cg_roles[1], cg_tail);
  for (Size cell = 0; cell < 3; ++cell) {
    const double *row = table->cg_data.get() + cell * 5;
    EXPECT_EQ(row[cg_mean_offset(0)], value(cell, cg_mean_offset(0)));
    EXPECT_EQ(row[cg_entry_offset(0, 0)], value(cell, cg_entry_offset(0, 0)));
    EXPECT_EQ(row[cg_mean_offset(1)], value(cell, cg_mean_offset(2)));
    EXPECT_EQ(row[cg_entry_offset(1, 0)], value(cell, cg_entry_offset(2, 0)));
    EXPECT_EQ(row[cg_entry_offset(1, 1)], value(cell, cg_entry_offset(2, 2)));
  }
  ASSERT_EQ(table_remove_node(table, y0), ov_error_none);
  ASSERT_EQ(table_remove_node(table, y2), ov_error_none);
  EXPECT_EQ(table->cg_stride, 0u);
  EXPECT_FALSE(table->cg_data);
  EXPECT_FALSE(table->cg_roles);
  EXPECT_EQ(table_add_node(table, y0), ov_error_none); // from no CG data at all
  EXPECT_EQ(table->cg_stride, 2u);
  for (Size i = 0; i < 6; ++i) EXPECT_EQ(table->cg_data[i], 0.0);
  EXPECT_EQ(table_add_node(nullptr, y0), ov_error_usage);
  DomainPtr other = new_domain();
  EXPECT_EQ(table_add_node(table, continuous(other.get())), ov_error_usage);
}

TEST(TableReshape, SizesWithoutDataSaturate) {
  DomainPtr domain = new_domain();
  std::vector<Node *> nodes;
  for (int i = 0; i < 4; ++i) nodes.push_back(discrete(domain.get(), 256));
  nodes.push_back(nullptr);
  Table *table = table_new(domain.get(), nodes.data(), ov_table_kind_probability, role_plain, false, false);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->size, size_overflow);
  ASSERT_EQ(table_resize_node(table, nodes[0], 255), ov_error_none);
  nodes[0]->state_count = 255;
  EXPECT_EQ(table->size, 255u * 256u * 256u * 256u);
  ASSERT_EQ(table_remove_node(table, nodes[1]), ov_error_none);
  EXPECT_EQ(table->size, 255u * 256u * 256u);
  ASSERT_EQ(table_add_node(table, discrete(domain.get(), 512)), ov_error_none);
  EXPECT_EQ(table->size, size_overflow);
}

TEST(TableReshape, ConditionalNormalisation) {
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 3);
  Table *table = data_table(domain.get(), {a, b});
  const float numbers[6] = {1, 1, 2, 0, 0, 0};
  std::memcpy(table->data.get(), numbers, sizeof numbers);
  EXPECT_EQ(table_normalize_conditional(table, true), ov_error_zero_sum);
  EXPECT_EQ(std::memcmp(table->data.get(), numbers, sizeof numbers), 0); // refused: unchanged
  ASSERT_EQ(table_normalize_conditional(table, false), ov_error_none);
  EXPECT_FLOAT_EQ(table->data[0], 0.25f);
  EXPECT_FLOAT_EQ(table->data[2], 0.5f);
  for (int i = 3; i < 6; ++i) EXPECT_FLOAT_EQ(table->data[i], 1.0f / 3);
  table->data[4] = -0.5f;
  EXPECT_EQ(table_normalize_conditional(table, false), ov_error_negative_probability);

  ov_node_t y = continuous(domain.get());
  Table *cg = data_table(domain.get(), {a, y});
  cg->data[0] = 0.0f;
  cg->data[1] = -3.0f;
  ASSERT_EQ(table_normalize_conditional(cg, true), ov_error_none);
  EXPECT_EQ(cg->data[0], 1.0f);
  EXPECT_EQ(cg->data[1], 1.0f);
}

// ---------------------------------------------------------------- switching parents

TEST(SwitchParent, KeepsNumbersAndPlaces) {
  DomainPtr domain = new_domain();
  ov_node_t old_parent = discrete(domain.get(), 3), other = discrete(domain.get(), 2);
  ov_node_t child = discrete(domain.get(), 2), replacement = discrete(domain.get(), 3);
  ASSERT_EQ(ov_node_add_parent(child, other), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(child, old_parent), ov_error_none);
  ov_table_t table = ov_node_get_table(child);
  fill_distinct(table);
  std::vector<float> numbers = snapshot(table).data;
  std::vector<ov_node_t> table_nodes = node_list(ov_table_get_nodes(table));
  ov_node_t model_nodes[] = {old_parent, nullptr};
  ov_model_t model = ov_node_new_model(child, model_nodes);
  ASSERT_NE(model, nullptr);
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
  // The model follows the switch; with the same states its table still holds.
  EXPECT_EQ(ov_model_get_nodes(model)[0], replacement);
  EXPECT_EQ(ov_expression_get_node(expression), replacement);
  EXPECT_EQ(model->table_is_stale, 0);
  EXPECT_FALSE(triangulated(domain.get()));
}

TEST(SwitchParent, RefusesNodesThatAreNotInterchangeable) {
  DomainPtr domain = new_domain();
  ov_node_t parent = discrete(domain.get(), 2), child = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(child, parent), ov_error_none);
  ov_table_t table = ov_node_get_table(child);
  fill_distinct(table);
  fake_triangulation(domain.get());

  ov_node_t three = discrete(domain.get(), 3);
  ov_node_t decision = discrete(domain.get(), 2, ov_category_decision);
  ov_node_t labelled = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_set_state_label(labelled, 1, "high"), ov_error_none);
  ov_node_t boolean = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_set_subtype(boolean, ov_subtype_boolean), ov_error_none);
  fake_triangulation(domain.get());
  for (ov_node_t candidate : {three, decision, labelled, boolean})
    EXPECT_EQ(ov_node_switch_parent(child, parent, candidate), ov_error_usage);
  EXPECT_EQ(ov_node_switch_parent(child, parent, parent), ov_error_usage); // already a parent
  EXPECT_EQ(ov_node_switch_parent(child, three, parent), ov_error_usage);  // not a parent
  EXPECT_EQ(ov_node_switch_parent(child, nullptr, three), ov_error_usage);
  EXPECT_EQ(ov_node_switch_parent(nullptr, parent, three), ov_error_usage);
  ov_node_t grandchild = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(grandchild, child), ov_error_none);
  fake_triangulation(domain.get());
  EXPECT_EQ(ov_node_switch_parent(child, parent, grandchild), ov_error_cyclic_network);
  EXPECT_EQ(parents(child), std::vector<ov_node_t>{parent});
  EXPECT_TRUE(children(three).empty());
  EXPECT_EQ(node_list(ov_table_get_nodes(table)), (std::vector<ov_node_t>{parent, child}));
  EXPECT_TRUE(triangulated(domain.get()));

  // Same labels, same subtype: interchangeable.
  ov_node_t twin = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_set_state_label(twin, 1, "high"), ov_error_none);
  ASSERT_EQ(ov_node_switch_parent(child, parent, labelled), ov_error_usage);
  ASSERT_EQ(ov_node_set_state_label(parent, 1, "high"), ov_error_none);
  EXPECT_EQ(ov_node_switch_parent(child, parent, twin), ov_error_none);
}

TEST(SwitchParent, NumberedAndIntervalNodesCompareTheirValues) {
  DomainPtr domain = new_domain();
  ov_node_t parent = discrete(domain.get(), 2), child = discrete(domain.get(), 2);
  ov_node_t same = discrete(domain.get(), 2), differs = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(child, parent), ov_error_none);
  for (ov_node_t node : {parent, same, differs}) {
    ASSERT_EQ(ov_node_set_subtype(node, ov_subtype_interval), ov_error_none);
    ASSERT_EQ(ov_node_set_state_value(node, 0, 0.0), ov_error_none);
    ASSERT_EQ(ov_node_set_state_value(node, 1, 1.0), ov_error_none);
  }
  ASSERT_EQ(ov_node_set_state_value(parent, 2, 5.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(same, 2, 5.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(differs, 2, 6.0), ov_error_none); // only the top bound differs
  EXPECT_EQ(ov_node_switch_parent(child, parent, differs), ov_error_usage);
  EXPECT_EQ(ov_node_switch_parent(child, parent, same), ov_error_none);

  ov_node_t n1 = discrete(domain.get(), 2), n2 = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(child, n1), ov_error_none);
  for (ov_node_t node : {n1, n2}) ASSERT_EQ(ov_node_set_subtype(node, ov_subtype_number), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(n1, 1, 3.0), ov_error_none);
  EXPECT_EQ(ov_node_switch_parent(child, n1, n2), ov_error_usage);
  ASSERT_EQ(ov_node_set_state_value(n2, 1, 3.0), ov_error_none);
  EXPECT_EQ(ov_node_switch_parent(child, n1, n2), ov_error_none);
}

TEST(SwitchParent, ChainPotentialsFollow) {
  DomainPtr domain = new_domain();
  ov_node_t parent = discrete(domain.get(), 2), a = discrete(domain.get(), 2), b = discrete(domain.get(), 2);
  ov_node_t twin = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(a, parent), ov_error_none);
  auto component = std::make_unique<ChainComponent>();
  component->domain = domain.get();
  component->members.push_back(a);
  component->members.push_back(b);
  Table *potential = data_table(domain.get(), {parent, a, b});
  Table *unrelated = data_table(domain.get(), {parent, b});
  component->potentials = {potential, unrelated};
  a->chain_component = b->chain_component = component.get();
  domain->chain_components.push_back(std::move(component));

  ASSERT_EQ(ov_node_switch_parent(a, parent, twin), ov_error_none);
  EXPECT_EQ(potential->nodes[0], twin);
  EXPECT_EQ(unrelated->nodes[0], parent); // holds no a
  fill_distinct(potential);
  Snapshot before = snapshot(potential);
  ASSERT_EQ(ov_node_remove_parent(a, twin), ov_error_none);
  EXPECT_EQ(potential->size, 4u);
  expect_table(potential, [&](Assignment s) {
    s[twin] = 0;
    return before.at(s);
  });
  EXPECT_EQ(unrelated->size, 4u);
}

// ---------------------------------------------------------------- number of states

TEST(NumberOfStates, GrowingCopiesStateZeroAndShrinkingKeepsTheFirst) {
  DomainPtr domain = new_domain();
  ov_node_t node = discrete(domain.get(), 2), parent = discrete(domain.get(), 2);
  ov_node_t child = discrete(domain.get(), 3);
  ASSERT_EQ(ov_node_add_parent(node, parent), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(child, node), ov_error_none);
  ov_table_t own = ov_node_get_table(node), theirs = ov_node_get_table(child);
  fill_distinct(own);
  fill_distinct(theirs);
  Snapshot own_before = snapshot(own), theirs_before = snapshot(theirs);
  fake_triangulation(domain.get());

  ASSERT_EQ(ov_node_set_number_of_states(node, 4), ov_error_none);
  EXPECT_EQ(ov_node_get_number_of_states(node), 4);
  EXPECT_FALSE(triangulated(domain.get()));
  auto copies = [&](const Snapshot &before) {
    return [&](Assignment s) {
      if (s[node] >= 2) s[node] = 0;
      return before.at(s);
    };
  };
  expect_table(own, copies(own_before));
  expect_table(theirs, copies(theirs_before));
  EXPECT_EQ(ov_table_get_size(own), 8);
  EXPECT_EQ(ov_table_get_size(theirs), 12);

  fill_distinct(theirs);
  Snapshot wide = snapshot(theirs);
  ASSERT_EQ(ov_node_set_number_of_states(node, 3), ov_error_none);
  expect_table(theirs, [&](const Assignment &s) { return wide.at(s); });
  EXPECT_EQ(ov_table_get_size(theirs), 9);
  EXPECT_EQ(ov_node_set_number_of_states(node, 3), ov_error_none); // same count
}

TEST(NumberOfStates, LabelsValuesAndFinding) {
  DomainPtr domain = new_domain();
  ov_node_t node = discrete(domain.get(), 3);
  ASSERT_EQ(ov_node_set_state_label(node, 0, "low"), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(node, 2, "high"), ov_error_none);
  ASSERT_EQ(ov_node_set_subtype(node, ov_subtype_interval), ov_error_none);
  for (int i = 0; i <= 3; ++i) ASSERT_EQ(ov_node_set_state_value(node, i, 10.0 * i), ov_error_none);
  node->entered_finding.assign(3, 1.0f);
  node->has_entered_finding = true;

  ASSERT_EQ(ov_node_set_number_of_states(node, 5), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(node, 2), "high");
  EXPECT_STREQ(ov_node_get_state_label(node, 3), "");
  EXPECT_STREQ(ov_node_get_state_label(node, 4), "");
  EXPECT_EQ(ov_node_get_state_value(node, 2), 20.0);
  EXPECT_EQ(ov_node_get_state_value(node, 3), -1.0);
  EXPECT_EQ(ov_node_get_state_value(node, 4), -1.0);
  EXPECT_EQ(ov_node_get_state_value(node, 5), 30.0); // the top bound stays on top
  EXPECT_TRUE(node->entered_finding.empty());
  EXPECT_FALSE(node->has_entered_finding);

  ASSERT_EQ(ov_node_set_number_of_states(node, 2), ov_error_none);
  EXPECT_EQ(node->state_labels->size(), 2u);
  EXPECT_STREQ(ov_node_get_state_label(node, 0), "low");
  EXPECT_EQ(ov_node_get_state_value(node, 1), 10.0);
  EXPECT_EQ(ov_node_get_state_value(node, 2), 30.0);
  EXPECT_EQ(node->state_values->size(), 3u);
  ASSERT_EQ(ov_node_set_number_of_states(node, 4), ov_error_none);
  EXPECT_STREQ(ov_node_get_state_label(node, 2), ""); // the dropped label does not come back
  EXPECT_EQ(ov_node_get_state_value(node, 4), 30.0);
}

TEST(NumberOfStates, Refusals) {
  DomainPtr domain = new_domain();
  ov_node_t node = discrete(domain.get(), 2), boolean = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_set_subtype(boolean, ov_subtype_boolean), ov_error_none);
  ov_node_t utility = ov_domain_new_node(domain.get(), ov_category_utility, ov_kind_discrete);
  fake_triangulation(domain.get());
  EXPECT_EQ(ov_node_set_number_of_states(node, 0), ov_error_usage);
  EXPECT_EQ(ov_node_set_number_of_states(node, -3), ov_error_usage);
  EXPECT_EQ(ov_node_set_number_of_states(boolean, 3), ov_error_usage);
  EXPECT_EQ(ov_node_set_number_of_states(boolean, 2), ov_error_usage);
  EXPECT_EQ(ov_node_set_number_of_states(utility, 3), ov_error_usage);
  EXPECT_EQ(ov_node_set_number_of_states(nullptr, 3), ov_error_usage);
  node->master = boolean;
  EXPECT_EQ(ov_node_set_number_of_states(node, 3), ov_error_usage);
  node->master = nullptr;
  EXPECT_EQ(ov_node_get_number_of_states(node), 2);
  EXPECT_TRUE(triangulated(domain.get()));
  DomainPtr cg = new_domain();
  EXPECT_EQ(ov_node_set_number_of_states(continuous(cg.get()), 2), ov_error_usage);
}

TEST(NumberOfStates, AFailedGrowthSetsEveryTableBack) {
  // The Gaussian table of the last child cannot grow: its CG data would pass
  // the size limit. The tables resized before it go back to the old count.
  DomainPtr domain = new_domain();
  ov_node_t node = discrete(domain.get(), 2), child = discrete(domain.get(), 2);
  ov_node_t y = continuous(domain.get());
  ASSERT_EQ(ov_node_add_parent(child, node), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(y, node), ov_error_none);
  for (int i = 0; i < 39; ++i) ASSERT_EQ(ov_node_add_parent(y, continuous(domain.get())), ov_error_none);
  ASSERT_EQ(ov_node_get_table(y)->cg_stride, 860u);
  ASSERT_EQ(ov_node_set_alpha(y, 7.0, 1), ov_error_none);
  ASSERT_EQ(children(node).back(), y);
  ASSERT_EQ(ov_node_set_subtype(node, ov_subtype_interval), ov_error_none);
  ASSERT_EQ(ov_node_set_state_value(node, 2, 9.0), ov_error_none);
  ASSERT_EQ(ov_node_set_state_label(node, 1, "one"), ov_error_none);
  fill_distinct(ov_node_get_table(node));
  fill_distinct(ov_node_get_table(child));
  Snapshot own = snapshot(ov_node_get_table(node)), theirs = snapshot(ov_node_get_table(child));
  node->entered_finding.assign(2, 1.0f);
  node->has_entered_finding = true;
  fake_triangulation(domain.get());

  EXPECT_EQ(ov_node_set_number_of_states(node, 1u << 20), ov_error_no_memory);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  EXPECT_EQ(ov_node_get_number_of_states(node), 2);
  EXPECT_EQ(snapshot(ov_node_get_table(node)).data, own.data);
  EXPECT_EQ(snapshot(ov_node_get_table(child)).data, theirs.data);
  EXPECT_EQ(ov_table_get_size(ov_node_get_table(y)), 2);
  EXPECT_EQ(ov_node_get_alpha(y, 1), 7.0);
  EXPECT_EQ(ov_node_get_state_value(node, 2), 9.0);
  EXPECT_EQ(node->state_values->size(), 3u);
  EXPECT_STREQ(ov_node_get_state_label(node, 1), "one");
  EXPECT_EQ(node->state_labels->size(), 2u);
  EXPECT_TRUE(node->has_entered_finding);
  EXPECT_TRUE(triangulated(domain.get()));
}

TEST(NumberOfStates, ModelsThatHoldTheNodeAreInvalidated) {
  DomainPtr domain = new_domain();
  ov_node_t node = discrete(domain.get(), 2), child = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(child, node), ov_error_none);
  ov_model_t own = ov_node_new_model(node, nullptr);
  ov_node_t model_nodes[] = {node, nullptr};
  ov_model_t childs = ov_node_new_model(child, model_nodes);
  ASSERT_TRUE(own != nullptr && childs != nullptr);
  ASSERT_EQ(ov_model_set_expression(childs, 1, ov_number_make_expression(1)), ov_error_none);
  own->table_is_stale = childs->table_is_stale = 0;
  ASSERT_EQ(ov_node_set_number_of_states(node, 3), ov_error_none);
  EXPECT_EQ(own->table_is_stale, 1);
  EXPECT_EQ(childs->table_is_stale, 1);
  // The child's model held the node: its slots go and come back with the new count.
  EXPECT_EQ(childs->expressions, nullptr);
  EXPECT_EQ(ov_model_get_size(childs), 3);
}

TEST(NumberOfStates, ClassOutputClonesFollow) {
  // A class with one output, and a domain with an instance of it whose
  // output clone has a child.
  DomainPtr cls = new_domain(), domain = new_domain();
  int collection_stand_in = 0;
  cls->class_info.collection = reinterpret_cast<ov_class_collection_s *>(&collection_stand_in);
  ov_node_t output = discrete(cls.get(), 2);
  cls->class_info.outputs.push_back(output);
  Node *instance = node_create(domain.get(), ov_category_instance, ov_kind_discrete, ov_subtype_label, false);
  instance->instance_class = cls.get();
  cls->class_info.instances.push_back(instance);
  Node *clone = node_create(domain.get(), ov_category_chance, ov_kind_discrete, ov_subtype_label, true);
  clone->master = output;
  clone->instance = instance;
  clone->state_count = 2;
  instance->output_clones.push_back(clone);
  ov_node_t user = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(user, clone), ov_error_none);
  ov_table_t table = ov_node_get_table(user);
  fill_distinct(table);
  Snapshot before = snapshot(table);
  ASSERT_EQ(ov_node_set_state_label(output, 0, "zero"), ov_error_none);

  EXPECT_EQ(ov_node_set_number_of_states(clone, 3), ov_error_usage); // a clone follows its master
  ASSERT_EQ(ov_node_set_number_of_states(output, 3), ov_error_none);
  EXPECT_EQ(clone->state_count, 3u);
  EXPECT_EQ(clone->state_labels, output->state_labels);
  EXPECT_EQ(output->state_labels->size(), 3u);
  EXPECT_STREQ(ov_node_get_state_label(clone, 0), "zero");
  EXPECT_EQ(ov_table_get_size(table), 6);
  expect_table(table, [&](Assignment s) {
    if (s[clone] == 2) s[clone] = 0;
    return before.at(s);
  });
  cls->class_info.collection = nullptr;
}

// ---------------------------------------------------------------- deletion

TEST(NodeDelete, ReshapesParentsAndChildren) {
  DomainPtr domain = new_domain();
  ov_node_t parent = discrete(domain.get(), 2), node = discrete(domain.get(), 3);
  ov_node_t child = discrete(domain.get(), 2), other = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(node, parent), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(child, node), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(child, other), ov_error_none);
  ov_table_t table = ov_node_get_table(child);
  fill_distinct(table);
  Snapshot before = snapshot(table);
  ASSERT_EQ(ov_node_set_edge_constraint(node, other, ov_constraint_edge_required), ov_error_none);
  ASSERT_EQ(ov_node_delete(node), ov_error_none);
  EXPECT_TRUE(children(parent).empty());
  EXPECT_EQ(parents(child), std::vector<ov_node_t>{other});
  EXPECT_EQ(ov_table_get_size(table), 4);
  expect_table(table, [&](Assignment s) {
    s[node] = 0;
    return before.at(s);
  });
  EXPECT_TRUE(other->edge_constraints.empty());
}

// ---------------------------------------------------------------- edge constraints

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
    EXPECT_EQ(a->edge_constraints.size(), 1u); // one pair per other node
  }
  ASSERT_EQ(ov_node_set_edge_constraint(b, c, ov_constraint_forward_edge_required), ov_error_none);
  ASSERT_EQ(ov_node_set_edge_constraint(a, b, ov_constraint_none), ov_error_none);
  EXPECT_EQ(ov_node_get_edge_constraint(a, b), ov_constraint_none);
  EXPECT_EQ(ov_node_get_edge_constraint(b, a), ov_constraint_none);
  EXPECT_EQ(ov_node_get_edge_constraint(c, b), ov_constraint_backward_edge_required);
  EXPECT_TRUE(a->edge_constraints.empty());
  EXPECT_TRUE(triangulated(domain.get())); // constraints never uncompile

  // Links do not touch constraints.
  ASSERT_EQ(ov_node_set_edge_constraint(a, c, ov_constraint_forward_edge_forbidden), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(c, a), ov_error_none);
  EXPECT_EQ(ov_node_get_edge_constraint(c, a), ov_constraint_backward_edge_forbidden);
  ASSERT_EQ(ov_node_delete(c), ov_error_none);
  EXPECT_TRUE(a->edge_constraints.empty());
  EXPECT_TRUE(b->edge_constraints.empty());
}

TEST(EdgeConstraints, Refusals) {
  DomainPtr domain = new_domain(), other = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 2);
  ov_node_t stranger = discrete(other.get(), 2);
  EXPECT_EQ(ov_node_get_edge_constraint(a, a), ov_constraint_error);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_edge_constraint(a, nullptr), ov_constraint_error);
  EXPECT_EQ(ov_node_get_edge_constraint(a, stranger), ov_constraint_error);
  EXPECT_EQ(ov_node_set_edge_constraint(a, b, static_cast<ov_edge_constraint_t>(99)), ov_error_usage);
  EXPECT_EQ(ov_node_set_edge_constraint(a, b, ov_constraint_error), ov_error_usage);
  EXPECT_EQ(ov_node_set_edge_constraint(a, a, ov_constraint_edge_required), ov_error_usage);
  EXPECT_EQ(ov_node_set_edge_constraint(nullptr, b, ov_constraint_edge_required), ov_error_usage);
  EXPECT_EQ(ov_node_set_edge_constraint(a, stranger, ov_constraint_edge_required), ov_error_usage);
  EXPECT_TRUE(a->edge_constraints.empty());
  EXPECT_EQ(ov_node_get_edge_constraint(a, b), ov_constraint_none);
  EXPECT_EQ(ov_error_code(), ov_error_none);
}

} // namespace
} // namespace orvel
