// Tables: fresh contents, CG parameters and moments, sizes that
// do not fit, deletion rules and reordering against a naive index.
#include <gtest/gtest.h>

#include <vector>

#include "model/domain.h"
#include "model/node.h"
#include "orvel.h"
#include "table/table.h"
#include "table_helpers.h"

namespace {

using namespace orvel;
using test::project;

struct TableFixture : ::testing::Test {
  ov_domain_t domain = ov_new_domain();
  ~TableFixture() override { ov_domain_delete(domain); }

  ov_node_t discrete(std::uint32_t states, ov_category_t category = ov_category_chance) {
    ov_node_t node = ov_domain_new_node(domain, category, ov_kind_discrete);
    if (category != ov_category_utility) {
      EXPECT_EQ(ov_node_set_number_of_states(node, states), ov_error_none);
    }
    return node;
  }
  // A node with more states than any table could hold, set on the record
  // before any table of it exists.
  ov_node_t oversized(std::uint32_t states) {
    ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    node->state_count = states;
    return node;
  }
  ov_node_t continuous() { return ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous); }
  static void link(ov_node_t parent, ov_node_t child) { EXPECT_EQ(ov_node_add_parent(child, parent), ov_error_none); }
  void triangulate() { ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none); }
  static std::vector<ov_node_t> nodes_of(ov_table_t table) {
    std::vector<ov_node_t> nodes;
    for (ov_node_t *n = ov_table_get_nodes(table); *n != nullptr; ++n) nodes.push_back(*n);
    return nodes;
  }
  // Experience and fading tables of `node` over `parents`.
  std::pair<Table *, Table *> learning_tables(ov_node_t node, ov_node_t *parents) {
    node->experience_table = table_new(domain, parents, ov_table_kind_experience, role_plain, false, true);
    node->fading_table = table_new(domain, parents, ov_table_kind_fading, role_plain, false, true);
    node->experience_table->owner = node->fading_table->owner = node;
    return {node->experience_table, node->fading_table};
  }
  static void fill(ov_table_t table, float scale) {
    ov_number_t *data = ov_table_get_data(table);
    for (ov_count_t i = 0; i < ov_table_get_size(table); ++i) data[i] = static_cast<float>(i) * scale;
  }
};

// The CG entry of nodes p and q (q null: the mean of p) in a configuration.
double cg_at(const Table *table, std::size_t configuration, const Node *p, const Node *q) {
  std::uint32_t i = static_cast<std::uint32_t>(table_continuous_index(table, p));
  std::uint32_t offset = q == nullptr
                             ? cg_mean_offset(i)
                             : cg_entry_offset(i, static_cast<std::uint32_t>(table_continuous_index(table, q)));
  return table->cg_data[configuration * table->cg_stride + offset];
}

using TableLayout = TableFixture;

TEST_F(TableLayout, NodeTablesOfEachKindAndTheirFreshContents) {
  ov_node_t a = discrete(2), b = discrete(3), x = continuous(), y = continuous(), c = discrete(4);
  link(a, c);
  link(b, c);
  ov_table_t ct = ov_node_get_table(c);
  EXPECT_EQ(nodes_of(ct), (std::vector<ov_node_t>{b, a, c})) << "latest discrete parent first, child last";
  EXPECT_EQ(ov_table_get_size(ct), 24);
  EXPECT_EQ(ov_node_get_table(c), ct) << "built once";
  ov_number_t *data = ov_table_get_data(ct);
  for (int i = 0; i < 24; ++i) EXPECT_EQ(data[i], 1.0f);
  EXPECT_EQ(ct->cg_data, nullptr) << "no CG part without continuous nodes";
  link(a, y);
  link(x, y);
  ov_table_t yt = ov_node_get_table(y);
  EXPECT_EQ(nodes_of(yt), (std::vector<ov_node_t>{a, y, x})) << "discrete parents, the node, continuous parents";
  EXPECT_EQ(ov_table_get_size(yt), 2);

  // Utility tables keep the parent order and start at 0 (decisions and
  // continuous nodes cannot share a domain).
  ov_domain_t id = ov_new_domain();
  ov_node_t d = ov_domain_new_node(id, ov_category_decision, ov_kind_discrete);
  ov_node_t e = ov_domain_new_node(id, ov_category_chance, ov_kind_discrete);
  ov_node_t u = ov_domain_new_node(id, ov_category_utility, ov_kind_discrete);
  ov_node_t lone = ov_domain_new_node(id, ov_category_utility, ov_kind_discrete);
  ASSERT_EQ(ov_node_set_number_of_states(d, 2), ov_error_none);
  ASSERT_EQ(ov_node_set_number_of_states(e, 3), ov_error_none);
  link(d, u);
  link(e, u);
  ov_table_t ut = ov_node_get_table(u);
  EXPECT_EQ(nodes_of(ut), (std::vector<ov_node_t>{e, d}));
  ASSERT_EQ(ov_table_get_size(ut), 6);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(ov_table_get_data(ut)[i], 0.0f);
  EXPECT_EQ(ov_table_get_size(ov_node_get_table(lone)), 1);
  EXPECT_EQ(ov_table_get_data(ov_node_get_table(lone))[0], 0.0f);
  ov_domain_delete(id);

  // Fresh contents by value kind, and table_fill resets them.
  ov_node_t list[] = {a, nullptr};
  const float expected[] = {1.0f, 0.0f, 0.0f, 1.0f};
  for (int kind = 0; kind < 4; ++kind) {
    Table *table = table_new(domain, list, kind, role_plain, false, true);
    ASSERT_NE(table, nullptr);
    table->data[1] = 7.0f;
    table_fill(table);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(table->data[i], expected[kind]) << kind;
    table_delete(table);
  }
  ov_node_t twice[] = {a, a, nullptr};
  EXPECT_EQ(table_new(domain, twice, 0, role_plain, false, true), nullptr);
  ov_domain_t other = ov_new_domain();
  EXPECT_EQ(table_new(other, list, 0, role_plain, false, true), nullptr) << "nodes of another domain";
  ov_domain_delete(other);
}

TEST_F(TableLayout, MomentsOfThreeContinuousNodes) {
  ov_node_t y0 = continuous(), y1 = continuous(), y2 = continuous(), a = discrete(2);
  ov_node_t list[] = {y0, a, y1, y2, nullptr};
  EXPECT_EQ(table_new(domain, list, ov_table_kind_probability, role_plain, false, true), nullptr)
      << "unsorted, a continuous node ahead of a discrete one";
  Table *table = table_new(domain, list, ov_table_kind_probability, role_returned, true, true);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->nodes[0], a) << "sorted: discrete first";
  ASSERT_EQ(table->cg_stride, 9u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(table->cg_roles[i], cg_unset);
  std::uint32_t place2 = static_cast<std::uint32_t>(table_continuous_index(table, y2));
  std::uint32_t place1 = static_cast<std::uint32_t>(table_continuous_index(table, y1));
  EXPECT_EQ(ov_table_get_mean(table, 1, y2), -1.0) << "uninitialised roles";
  for (int i = 0; i < 3; ++i) table->cg_roles[i] = cg_head;
  table->cg_data[1 * 9 + cg_entry_offset(place2, place1)] = 42.0;
  table->cg_data[1 * 9 + cg_mean_offset(place2)] = -3.5;
  table->cg_data[1 * 9 + cg_entry_offset(place2, place2)] = 2.0;
  EXPECT_EQ(ov_table_get_covariance(table, 1, y2, y1), 42.0);
  EXPECT_EQ(ov_table_get_covariance(table, 1, y1, y2), 42.0);
  EXPECT_EQ(ov_table_get_mean(table, 1, y2), -3.5);
  EXPECT_EQ(ov_table_get_variance(table, 1, y2), 2.0);
  EXPECT_EQ(ov_table_get_mean(table, 0, y2), 0.0);
  EXPECT_EQ(ov_table_get_mean(table, 2, y2), -1.0) << "configuration at the size";
  table->cg_roles[place1] = cg_unset;
  EXPECT_EQ(ov_table_get_mean(table, 0, y1), -1.0);
  EXPECT_EQ(ov_table_get_mean(table, 1, y2), -3.5) << "other heads stay readable";
  table->cg_roles[place1] = cg_tail;
  EXPECT_EQ(ov_table_get_variance(table, 1, y2), -1.0) << "any tail blocks the whole table";
  table_delete(table);
}

TEST_F(TableLayout, SaturatedSizesAreReportedAndNeverAllocated) {
  ov_node_t huge = oversized(0xFFFFFFFFu);
  ov_table_t table = ov_node_get_table(huge);
  ASSERT_NE(table, nullptr) << "a table without data can have any size";
  EXPECT_EQ(ov_table_get_size(table), -1);
  EXPECT_EQ(ov_error_code(), ov_error_size_too_large);
  EXPECT_EQ(ov_table_get_data(table), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  EXPECT_STREQ(ov_node_get_state_label(huge, 4294967294), "");
  // A product that overflows saturates; such a table can still be
  // reordered, as there is no data to move.
  ov_node_t a = oversized(70000), b = oversized(70000), c = discrete(2);
  link(a, c);
  link(b, c);
  ov_table_t product = ov_node_get_table(c);
  EXPECT_EQ(ov_table_get_size(product), -1);
  EXPECT_EQ(ov_table_get_data(product), nullptr);
  ov_node_t order[] = {a, b, c, nullptr};
  EXPECT_EQ(ov_table_reorder_nodes(product, order), ov_error_none);
  EXPECT_EQ(nodes_of(product)[0], a);
  // Below the limit but too large to allocate.
  ov_node_t big = oversized(1u << 30);
  EXPECT_EQ(ov_table_get_size(ov_node_get_table(big)), 1 << 30);
  EXPECT_EQ(ov_table_get_data(ov_node_get_table(big)), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  // CG parameters of a huge table fail without storing anything.
  ov_node_t w = oversized(0xFFFFFFF0u), v = continuous();
  link(w, v);
  EXPECT_EQ(ov_node_set_alpha(v, 1.0, 5), ov_error_no_memory);
  EXPECT_EQ(ov_node_get_alpha(v, 5), 0.0);
}

TEST_F(TableLayout, CgParametersAreStoredWhereTheMomentsWouldBe) {
  ov_node_t a = discrete(2), x = continuous(), y = continuous();
  link(a, y);
  link(x, y);
  // Fresh: 0 until set, and reading builds nothing.
  EXPECT_EQ(ov_node_get_alpha(y, 0), 0.0);
  EXPECT_EQ(ov_node_get_beta(y, x, 1), 0.0);
  EXPECT_EQ(y->table, nullptr);
  domain->learning.log_likelihood_valid = 1;
  ASSERT_EQ(ov_node_set_alpha(y, 1.5, 1), ov_error_none);
  EXPECT_EQ(domain->learning.log_likelihood_valid, 0u) << "a setter touches the table";
  ASSERT_EQ(ov_node_set_gamma(y, 0.25, 1), ov_error_none);
  ASSERT_EQ(ov_node_set_beta(y, -2.0, x, 0), ov_error_none);
  EXPECT_EQ(ov_node_get_alpha(y, 1), 1.5);
  EXPECT_EQ(ov_node_get_gamma(y, 1), 0.25);
  EXPECT_EQ(ov_node_get_beta(y, x, 0), -2.0);
  EXPECT_EQ(ov_node_get_gamma(y, 0), 0.0);
  // Intercept at the mean, variance, the coefficient where the covariance
  // of the node with the parent would be; nothing else.
  const Table *table = y->table;
  for (std::uint32_t i = 0; i < 10; ++i)
    EXPECT_EQ(table->cg_data[i], (i == 5 ? 1.5 : i == 6 ? 0.25 : i == cg_entry_offset(1, 0) ? -2.0 : 0.0)) << i;
}

TEST_F(TableLayout, DeletionRulesByListAndValueKind) {
  ov_node_t a = discrete(2), c = discrete(2);
  link(a, c);
  ov_table_t own = ov_node_get_table(c);
  std::size_t count = domain->tables.size();
  EXPECT_EQ(ov_table_delete(own), ov_error_none);
  EXPECT_EQ(ov_node_get_table(c), own) << "a node's table cannot be deleted this way";
  EXPECT_EQ(ov_table_get_size(own), 4);
  ov_node_t parents[] = {a, nullptr};
  auto [experience, fading] = learning_tables(c, parents);
  EXPECT_EQ(ov_table_delete(experience), ov_error_none);
  EXPECT_EQ(c->experience_table, nullptr);
  EXPECT_EQ(c->fading_table, fading);
  EXPECT_EQ(ov_table_delete(fading), ov_error_none);
  EXPECT_EQ(c->fading_table, nullptr);
  EXPECT_EQ(domain->tables.size(), count);
  // A query result still on the list stays; once detached it is the
  // caller's to delete, and the tables behind it move up.
  Table *t[3];
  for (auto &table : t) table = table_new(domain, parents, ov_table_kind_probability, role_returned, false, true);
  EXPECT_EQ(ov_table_delete(t[0]), ov_error_none);
  EXPECT_EQ(domain->tables.size(), count + 3);
  table_detach(t[0]);
  EXPECT_EQ(ov_table_delete(t[0]), ov_error_none);
  EXPECT_EQ(domain->tables.size(), count + 2);
  int token = 0;
  EXPECT_EQ(ov_table_set_user_data(own, &token), ov_error_none);
  EXPECT_EQ(ov_table_get_user_data(own), &token);
}

using Reorder = TableFixture;

TEST_F(Reorder, PermutingParentsMovesTheNumbersAndUncompiles) {
  ov_node_t a = discrete(2), b = discrete(3), d = discrete(4), c = discrete(2);
  link(a, c);
  link(b, c);
  link(d, c);
  ov_table_t table = ov_node_get_table(c);
  ASSERT_EQ(nodes_of(table), (std::vector<ov_node_t>{d, b, a, c}));
  fill(table, 1.25f);
  Table *before = table_clone(table);
  triangulate();
  ov_node_t same[] = {d, b, a, c, nullptr};
  EXPECT_EQ(ov_table_reorder_nodes(table, same), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1) << "nothing changed, nothing to uncompile";
  ov_node_t order[] = {a, d, b, c, nullptr};
  ASSERT_EQ(ov_table_reorder_nodes(table, order), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_EQ(nodes_of(table), (std::vector<ov_node_t>{a, d, b, c}));
  for (std::uint32_t i = 0; i < before->size; ++i) EXPECT_EQ(table->data[project(before, i, table)], before->data[i]);
  EXPECT_EQ(ov_node_get_parents(c)[0], d) << "the parent list is not changed";
  table_delete(before);
}

TEST_F(Reorder, TablesOfTheForestAreRefusedAndOthersFollowNoChildRule) {
  ov_node_t a = discrete(2), b = discrete(3);
  ov_node_t list[] = {a, b, nullptr}, swapped[] = {b, a, nullptr};
  Table *clique = table_new(domain, list, ov_table_kind_probability, role_clique, false, true);
  EXPECT_EQ(ov_table_reorder_nodes(clique, swapped), ov_error_usage);
  // Detached, the same table may be reordered; and as it is no node's
  // table the last node may move.
  table_detach(clique);
  for (int i = 0; i < 6; ++i) clique->data[i] = static_cast<ov_number_t>(i);
  triangulate();
  EXPECT_EQ(ov_table_reorder_nodes(clique, swapped), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1) << "a detached table does not uncompile its old domain";
  for (int as = 0; as < 2; ++as)
    for (int bs = 0; bs < 3; ++bs) EXPECT_EQ(clique->data[bs * 2 + as], static_cast<ov_number_t>(as * 3 + bs));
  EXPECT_EQ(ov_table_delete(clique), ov_error_none);
}

TEST_F(Reorder, ContinuousNodesMoveWithTheirCgEntries) {
  ov_node_t a = discrete(2), b = discrete(3), x1 = continuous(), x2 = continuous(), y = continuous();
  for (ov_node_t parent : {a, b, x1, x2}) link(parent, y);
  ov_table_t table = ov_node_get_table(y);
  ASSERT_EQ(nodes_of(table), (std::vector<ov_node_t>{b, a, y, x1, x2}));
  ASSERT_EQ(table_allocate(table), ov_error_none);
  for (std::size_t i = 0; i < 6u * table->cg_stride; ++i) table->cg_data[i] = static_cast<double>(i) + 0.5;
  fill(table, 1.0f);
  Table *before = table_clone(table);
  ov_node_t moves_child[] = {b, a, x1, y, x2, nullptr};
  EXPECT_EQ(ov_table_reorder_nodes(table, moves_child), ov_error_usage) << "the child stays first";
  ov_node_t order[] = {a, b, y, x2, x1, nullptr};
  ASSERT_EQ(ov_table_reorder_nodes(table, order), ov_error_none);
  EXPECT_EQ(nodes_of(table), (std::vector<ov_node_t>{a, b, y, x2, x1}));
  EXPECT_EQ(table->cg_roles[0], cg_head);
  EXPECT_EQ(table->cg_roles[2], cg_tail);
  for (std::uint32_t from = 0; from < before->size; ++from) {
    const std::uint32_t to = project(before, from, table);
    EXPECT_EQ(table->data[to], before->data[from]);
    for (ov_node_t p : {y, x1, x2}) {
      EXPECT_EQ(cg_at(table, to, p, nullptr), cg_at(before, from, p, nullptr));
      for (ov_node_t q : {y, x1, x2}) EXPECT_EQ(cg_at(table, to, p, q), cg_at(before, from, p, q));
    }
  }
  // New configuration 1 (a = 0, b = 1) was index b * 2 + a = 2.
  EXPECT_EQ(ov_node_get_beta(y, x1, 1), cg_at(before, 2, y, x1));
  EXPECT_NE(cg_at(before, 2, y, x1), cg_at(before, 1, y, x1));
  table_delete(before);
}

TEST_F(Reorder, ExperienceAndFadingTablesFollowTheNodesTable) {
  ov_node_t a = discrete(2), b = discrete(3), c = discrete(2);
  link(a, c);
  link(b, c);
  ov_table_t own = ov_node_get_table(c);
  fill(own, 1.0f);
  ov_node_t parents[] = {b, a, nullptr};
  auto [experience, fading] = learning_tables(c, parents);
  for (int i = 0; i < 6; ++i) {
    experience->data[i] = static_cast<ov_number_t>(10 + i);
    fading->data[i] = static_cast<ov_number_t>(20 + i);
  }
  Table *old = table_clone(experience);
  ov_node_t order[] = {a, b, c, nullptr};
  ASSERT_EQ(ov_table_reorder_nodes(own, order), ov_error_none);
  EXPECT_EQ(nodes_of(experience), (std::vector<ov_node_t>{a, b}));
  EXPECT_EQ(nodes_of(fading), (std::vector<ov_node_t>{a, b}));
  for (std::uint32_t from = 0; from < 6; ++from) {
    EXPECT_EQ(experience->data[project(old, from, experience)], static_cast<ov_number_t>(10 + from));
    EXPECT_EQ(fading->data[project(old, from, fading)], static_cast<ov_number_t>(20 + from));
  }
  table_delete(old);
  // Reordering the experience table reorders the node's table, with the
  // child kept last, and the fading table.
  ov_node_t back[] = {b, a, nullptr};
  ASSERT_EQ(ov_table_reorder_nodes(experience, back), ov_error_none);
  EXPECT_EQ(nodes_of(own), (std::vector<ov_node_t>{b, a, c}));
  EXPECT_EQ(nodes_of(fading), (std::vector<ov_node_t>{b, a}));
  for (int i = 0; i < 12; ++i) EXPECT_EQ(own->data[i], static_cast<ov_number_t>(i)) << "back where it started";
  for (int i = 0; i < 6; ++i) EXPECT_EQ(fading->data[i], static_cast<ov_number_t>(20 + i));
  EXPECT_EQ(c->experience_table, experience);
}

} // namespace
