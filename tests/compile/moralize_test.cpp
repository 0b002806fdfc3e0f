// Levels, cycles, the decision order and the moral graph (the compile logs
// of small networks cover the marriages and fill-ins they print, the forest
// tests a chain component).
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "compile/compile.h"
#include "compile/forest_check.h"
#include "compile/net_structure.h"
#include "table/table.h"

using namespace orvel;
using namespace orvel::test;

namespace {

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
  add_arc_unchecked(c, a);
  LogCapture log(domain);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_fill_in_size), ov_error_cyclic_network);
  EXPECT_EQ(ov_error_code(), ov_error_cyclic_network);
  EXPECT_NE(log.text().find("\n\nCycle (or invalid decision order) detected in network.  Compilation aborted.\n"),
            std::string::npos);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  ov_domain_delete(domain);
  // A cycle through a chain component.
  domain = ov_new_domain();
  Node *p = add_node(domain, "P", 2), *q = add_node(domain, "Q", 2), *r = add_node(domain, "R", 2);
  add_chain_component(domain, {p, q}, false);
  add_arc(p, r);
  add_arc_unchecked(r, q);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_fill_in_size), ov_error_cyclic_network);
  ov_domain_delete(domain);
}

// Levels along decisions on one path: Y -> D1 -> M -> D2 -> U, with Z an
// unobserved parent of U, and C -> V apart from the decisions.
TEST(Levels, AlongTheDecisions) {
  ov_domain_t domain = ov_new_domain();
  Node *y = add_node(domain, "Y", 2), *d1 = add_node(domain, "D1", 2, ov_category_decision);
  Node *m = add_node(domain, "M", 2), *d2 = add_node(domain, "D2", 2, ov_category_decision);
  Node *z = add_node(domain, "Z", 2), *u = add_node(domain, "U", 0, ov_category_utility);
  Node *c = add_node(domain, "C", 2), *v = add_node(domain, "V", 0, ov_category_utility);
  for (auto [parent, child] :
       std::vector<std::pair<Node *, Node *>>{{y, d1}, {d1, m}, {m, d2}, {d2, u}, {z, u}, {c, v}})
    add_arc(parent, child);
  ASSERT_EQ(assign_levels(domain), ov_error_none);
  const std::pair<Node *, std::uint32_t> levels[] = {{y, 1}, {d1, 2}, {m, 3}, {d2, 4}, {z, 5}, {u, 6}, {c, 5}, {v, 6}};
  for (auto [node, level] : levels) EXPECT_EQ(node->level, level) << *node->name;
  ov_domain_delete(domain);
}

TEST(Levels, DecisionsNeedAPathBetweenThem) {
  ov_domain_t domain = ov_new_domain();
  Node *d1 = add_node(domain, "D1", 2, ov_category_decision);
  Node *d2 = add_node(domain, "D2", 2, ov_category_decision);
  Node *u = add_node(domain, "U", 0, ov_category_utility);
  add_arc(d1, u);
  add_arc(d2, u);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_decision_order);
  add_arc(d1, d2);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_none);
  ov_domain_delete(domain);
  // A single decision with parents passes.
  domain = ov_new_domain();
  Node *d = add_node(domain, "D", 2, ov_category_decision);
  add_arc(add_node(domain, "A", 2), d);
  add_arc(add_node(domain, "B", 2), d);
  EXPECT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_none);
  ov_domain_delete(domain);
}

TEST(Moralize, DiscreteNetworkMatchesMoralGraph) {
  ov_domain_t domain = parse_shared("alarm.net");
  // The moral graph computed here: arcs, and parents of a common child.
  std::map<Node *, std::set<Node *>> expected;
  std::size_t marriages = 0;
  for (int pass = 0; pass < 2; ++pass)
    for (ov_node_t child = ov_domain_get_first_node(domain); child != nullptr; child = ov_node_get_next(child))
      for (ov_node_t *p = ov_node_get_parents(child); *p != nullptr; ++p) {
        expected[child].insert(*p);
        expected[*p].insert(child);
        for (ov_node_t *q = ov_node_get_parents(child); pass == 1 && *q != nullptr; ++q)
          if (*p != *q && expected[*p].insert(*q).second) ++marriages;
      }
  LogCapture log(domain);
  ASSERT_EQ(moralize(domain), ov_error_none);
  for (auto &node : domain->nodes) {
    EXPECT_EQ(std::set<Node *>(node->neighbours.begin(), node->neighbours.end()), expected[node.get()]) << *node->name;
    EXPECT_EQ(std::set<Node *>(node->neighbours.begin(), node->neighbours.end()).size(), node->neighbours.size());
    EXPECT_EQ(node->mark, 0);
  }
  std::string text = log.text();
  EXPECT_EQ(occurrences(text, "    Marrying "), marriages / 2);
  EXPECT_NE(text.find("\n\nMoral links:\n\n"), std::string::npos);
  EXPECT_EQ(text.find("Necessary fill-ins"), std::string::npos);
  ov_domain_delete(domain);
}

} // namespace
