// Levels, cycles, the decision order and the moral graph.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "compile/compile.h"
#include "compile/forest_check.h"
#include "compile/net_structure.h"
#include "table/table.h"

using namespace orvel;
using namespace orvel::test;

namespace {

bool neighbours(const Node *a, const Node *b) {
  return std::find(a->neighbours.begin(), a->neighbours.end(), b) != a->neighbours.end();
}

std::size_t occurrences(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(Levels, CycleIsRefusedAndLogged) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  Node *c = add_node(domain, "C", 2);
  add_arc(a, b);
  add_arc(b, c);
  EXPECT_EQ(ov_node_add_parent(a, c), ov_error_cyclic_network);
  add_arc_unchecked(c, a);
  LogCapture log(domain);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_fill_in_size), ov_error_cyclic_network);
  EXPECT_EQ(ov_error_code(), ov_error_cyclic_network);
  EXPECT_NE(log.text().find("\n\nCycle (or invalid decision order) detected in network.  Compilation aborted.\n"),
            std::string::npos);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  for (Node *node : {a, b, c}) EXPECT_EQ(node->level, 0u);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_cyclic_network);
  ov_domain_delete(domain);
}

TEST(Levels, CycleThroughChainComponent) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  Node *c = add_node(domain, "C", 2);
  add_chain_component(domain, {a, b}, false);
  add_arc(a, c);
  EXPECT_EQ(ov_node_add_parent(b, c), ov_error_cyclic_network);
  add_arc_unchecked(c, b);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_fill_in_size), ov_error_cyclic_network);
  ov_domain_delete(domain);
}

TEST(Levels, WithoutDecisionsByKind) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *x = add_node(domain, "X", 0, ov_category_chance, ov_kind_continuous);
  add_arc(a, x);
  ASSERT_EQ(assign_levels(domain), ov_error_none);
  EXPECT_EQ(a->level, 1u);
  EXPECT_EQ(x->level, 2u);
  ov_domain_delete(domain);

  domain = ov_new_domain();
  Node *c = add_node(domain, "C", 2);
  Node *u = add_node(domain, "U", 0, ov_category_utility);
  add_arc(c, u);
  ASSERT_EQ(assign_levels(domain), ov_error_none);
  EXPECT_EQ(c->level, 1u);
  EXPECT_EQ(u->level, 3u);
  ov_domain_delete(domain);
}

TEST(Levels, DecisionsOnOnePath) {
  // Y -> D1 -> X -> D2 -> U, Z unobserved parent of U.
  ov_domain_t domain = ov_new_domain();
  Node *y = add_node(domain, "Y", 2);
  Node *d1 = add_node(domain, "D1", 2, ov_category_decision);
  Node *x = add_node(domain, "X", 2);
  Node *d2 = add_node(domain, "D2", 2, ov_category_decision);
  Node *z = add_node(domain, "Z", 2);
  Node *u = add_node(domain, "U", 0, ov_category_utility);
  add_arc(y, d1);
  add_arc(d1, x);
  add_arc(x, d2);
  add_arc(d2, u);
  add_arc(z, u);
  ASSERT_EQ(assign_levels(domain), ov_error_none);
  EXPECT_EQ(d1->level, 2u);
  EXPECT_EQ(d2->level, 4u);
  EXPECT_EQ(y->level, 1u);
  EXPECT_EQ(x->level, 3u);
  EXPECT_EQ(z->level, 5u);
  EXPECT_EQ(u->level, 6u);
  ov_domain_delete(domain);
}

TEST(Levels, DecisionsWithoutPathAreRefused) {
  ov_domain_t domain = ov_new_domain();
  Node *d1 = add_node(domain, "D1", 2, ov_category_decision);
  Node *d2 = add_node(domain, "D2", 2, ov_category_decision);
  Node *u = add_node(domain, "U", 0, ov_category_utility);
  add_arc(d1, u);
  add_arc(d2, u);
  LogCapture log(domain);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_decision_order);
  EXPECT_NE(log.text().find("Cycle (or invalid decision order) detected in network."), std::string::npos);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  add_arc(d1, d2);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_none);
  ov_domain_delete(domain);
}

TEST(Levels, SingleDecisionWithParentsPasses) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  Node *d = add_node(domain, "D", 2, ov_category_decision);
  add_arc(a, d);
  add_arc(b, d);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_none);
  ov_domain_delete(domain);
}

TEST(Moralize, DecisionsAndUtilities) {
  ov_domain_t domain = ov_new_domain();
  Node *x = add_node(domain, "X", 2);
  Node *d = add_node(domain, "D", 2, ov_category_decision);
  Node *c = add_node(domain, "C", 2);
  Node *p = add_node(domain, "P", 2);
  Node *u = add_node(domain, "U", 0, ov_category_utility);
  add_arc(x, d); // information link
  add_arc(d, c);
  add_arc(c, u);
  add_arc(p, u);
  LogCapture log(domain);
  ASSERT_EQ(moralize(domain), ov_error_none);
  EXPECT_FALSE(neighbours(d, x));
  EXPECT_FALSE(neighbours(x, d));
  EXPECT_TRUE(neighbours(d, c));
  EXPECT_TRUE(neighbours(c, d));
  EXPECT_TRUE(neighbours(c, p));
  EXPECT_TRUE(neighbours(p, c));
  EXPECT_TRUE(u->neighbours.empty());
  std::string text = log.text();
  EXPECT_EQ(occurrences(text, "Marrying"), 1u);
  EXPECT_NE(text.find("    Marrying C and P\n"), std::string::npos);
  // One decision: the level boundaries up to 2D are completed.
  EXPECT_NE(text.find("\n\nNecessary fill-ins:\n\n"), std::string::npos);
  ov_domain_delete(domain);
}

TEST(Moralize, DiscreteNetworkMatchesMoralGraph) {
  NetStructure net = read_net_structure(shared_network("alarm.net"));
  ov_domain_t domain = build_domain(net);
  LogCapture log(domain);
  ASSERT_EQ(moralize(domain), ov_error_none);
  // The moral graph computed here: arcs, and parents of a common child.
  std::size_t n = net.names.size();
  std::vector<std::set<std::uint32_t>> expected(n);
  for (std::uint32_t child = 0; child < n; ++child)
    for (std::uint32_t p : net.parents[child]) {
      expected[child].insert(p);
      expected[p].insert(child);
    }
  std::size_t marriages = 0;
  for (std::uint32_t child = 0; child < n; ++child)
    for (std::uint32_t p : net.parents[child])
      for (std::uint32_t q : net.parents[child])
        if (p != q && expected[p].insert(q).second) ++marriages;
  for (std::uint32_t i = 0; i < n; ++i) {
    Node *node = domain_find_node(domain, net.names[i].c_str());
    std::set<std::uint32_t> actual;
    for (Node *neighbour : node->neighbours) actual.insert(neighbour->number - 1);
    EXPECT_EQ(actual, expected[i]) << net.names[i];
    EXPECT_EQ(std::set<Node *>(node->neighbours.begin(), node->neighbours.end()).size(), node->neighbours.size());
    EXPECT_EQ(node->mark, 0);
  }
  std::string text = log.text();
  EXPECT_EQ(occurrences(text, "    Marrying "), marriages / 2);
  EXPECT_NE(text.find("\n\nMoral links:\n\n"), std::string::npos);
  EXPECT_EQ(text.find("Necessary fill-ins"), std::string::npos);
  ov_domain_delete(domain);
}

TEST(Moralize, NecessaryFillInOnContinuousBoundary) {
  // X1 -> X2 continuous; A discrete parent of X1, B of X2. The continuous
  // component has boundary {A, B}, which must be complete.
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  Node *x1 = add_node(domain, "X1", 0, ov_category_chance, ov_kind_continuous);
  Node *x2 = add_node(domain, "X2", 0, ov_category_chance, ov_kind_continuous);
  add_arc(a, x1);
  add_arc(b, x2);
  add_arc(x1, x2);
  LogCapture log(domain);
  ASSERT_EQ(moralize(domain), ov_error_none);
  EXPECT_TRUE(neighbours(a, b));
  EXPECT_TRUE(neighbours(b, a));
  EXPECT_EQ(std::count(a->neighbours.begin(), a->neighbours.end(), b), 1);
  std::string text = log.text();
  EXPECT_NE(text.find("\n\nNecessary fill-ins:\n\n    Creating necessary fill-in between A and B\n"),
            std::string::npos);
  EXPECT_EQ(occurrences(text, "Creating necessary fill-in"), 1u);
  for (auto &node : domain->nodes) EXPECT_EQ(node->mark, 0);
  ov_domain_delete(domain);
}

TEST(Moralize, ChainComponentLinksAndParents) {
  // A and B form a chain component with one chain potential over both; P is
  // a parent of A and Q of B.
  ov_domain_t domain = ov_new_domain();
  Node *p = add_node(domain, "P", 2);
  Node *q = add_node(domain, "Q", 2);
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  add_arc(p, a);
  add_arc(q, b);
  add_chain_component(domain, {a, b}, true);
  ASSERT_EQ(moralize(domain), ov_error_none);
  EXPECT_TRUE(neighbours(a, b));
  EXPECT_TRUE(neighbours(b, a));
  // The parents of the component are married.
  EXPECT_TRUE(neighbours(p, q));
  EXPECT_TRUE(neighbours(q, p));
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  ov_domain_delete(domain);
}

TEST(Compile, RefusedArguments) {
  EXPECT_EQ(ov_domain_compile(nullptr), ov_error_usage);
  ov_domain_t domain = ov_new_domain();
  EXPECT_EQ(ov_domain_compile(domain), ov_error_usage);
  add_node(domain, "U", 0, ov_category_utility);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_usage);
  EXPECT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_usage);
  EXPECT_EQ(ov_domain_compile_quantitatively(domain, nullptr), ov_error_usage);
  EXPECT_EQ(ov_domain_triangulate(domain, static_cast<ov_triangulation_method_t>(14)), ov_error_usage);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_total_weight), ov_error_usage);
  EXPECT_EQ(ov_domain_triangulate_with_order(domain, nullptr), ov_error_usage);
  ov_domain_delete(domain);
}

} // namespace
