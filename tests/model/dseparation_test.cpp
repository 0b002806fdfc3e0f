// The d-separation queries against the criterion of the moralised ancestral
// graph, on random networks, and on the small cases worked out by hand.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "model/domain.h"
#include "model/graph.h"
#include "model/graph_support.h"
#include "table/table.h"

namespace orvel {
namespace {

using namespace graph_test;

// Null-terminated copies of node lists for the calls.
struct Lists {
  std::vector<ov_node_t> source, hard, soft;
  Lists(std::vector<ov_node_t> s, std::vector<ov_node_t> h, std::vector<ov_node_t> f)
      : source(std::move(s)), hard(std::move(h)), soft(std::move(f)) {
    source.push_back(nullptr);
    hard.push_back(nullptr);
    soft.push_back(nullptr);
  }
  ov_node_t *connected(ov_domain_t domain) {
    return ov_domain_get_d_connected_nodes(domain, source.data(), hard.data(), soft.data());
  }
  ov_node_t *separated(ov_domain_t domain) {
    return ov_domain_get_d_separated_nodes(domain, source.data(), hard.data(), soft.data());
  }
};

// The parents that carry dependence: information links into a decision
// node carry none.
std::vector<ov_node_t> dependence_parents(ov_node_t node) {
  if (ov_node_get_category(node) == ov_category_decision) return {};
  return parents(node);
}

// Whether `target` is d-connected to some source given the hard evidence,
// with soft evidence read as an observed child of its node: connected in the
// moral graph of the ancestral set of the sources, the target and all
// evidence, once the hard evidence nodes are taken out.
bool reference_connected(const std::vector<ov_node_t> &all, const NodeSet &source, const NodeSet &hard,
                         const NodeSet &soft, ov_node_t target) {
  if (hard.count(target)) return false;
  NodeSet live_sources;
  for (ov_node_t s : source)
    if (!hard.count(s)) live_sources.insert(s);
  if (live_sources.count(target)) return true;
  if (live_sources.empty()) return false;

  NodeSet ancestral;
  std::vector<ov_node_t> stack(live_sources.begin(), live_sources.end());
  stack.push_back(target);
  stack.insert(stack.end(), hard.begin(), hard.end());
  stack.insert(stack.end(), soft.begin(), soft.end());
  while (!stack.empty()) {
    ov_node_t node = stack.back();
    stack.pop_back();
    if (!ancestral.insert(node).second) continue;
    for (ov_node_t parent : dependence_parents(node)) stack.push_back(parent);
  }
  std::map<ov_node_t, NodeSet> moral;
  for (ov_node_t node : all) {
    if (!ancestral.count(node)) continue;
    std::vector<ov_node_t> family = dependence_parents(node);
    for (ov_node_t parent : family) {
      moral[node].insert(parent);
      moral[parent].insert(node);
      for (ov_node_t other : family)
        if (other != parent) moral[parent].insert(other);
    }
  }
  NodeSet seen;
  stack.assign(live_sources.begin(), live_sources.end());
  while (!stack.empty()) {
    ov_node_t node = stack.back();
    stack.pop_back();
    if (hard.count(node) || !seen.insert(node).second) continue;
    if (node == target) return true;
    for (ov_node_t neighbour : moral[node]) stack.push_back(neighbour);
  }
  return false;
}

std::vector<ov_node_t> pick(const std::vector<ov_node_t> &nodes, std::mt19937 &random, double probability) {
  std::bernoulli_distribution take(probability);
  std::vector<ov_node_t> picked;
  for (ov_node_t node : nodes)
    if (take(random)) picked.push_back(node);
  return picked;
}

TEST(DSeparation, RandomNetworksAgreeWithTheMoralGraphCriterion) {
  std::mt19937 random(1789);
  int connected_total = 0, separated_total = 0;
  for (int round = 0; round < 150; ++round) {
    DomainPtr domain = new_domain();
    std::vector<ov_node_t> nodes;
    std::bernoulli_distribution link(round % 2 == 0 ? 0.25 : 0.45), decision(0.15);
    const int size = 4 + round % 8;
    for (int i = 0; i < size; ++i) {
      ov_node_t node = ov_domain_new_node(domain.get(), decision(random) ? ov_category_decision : ov_category_chance,
                                          ov_kind_discrete);
      for (ov_node_t earlier : nodes)
        if (link(random)) {
          ASSERT_EQ(ov_node_add_parent(node, earlier), ov_error_none);
        }
      nodes.push_back(node);
    }
    for (int query = 0; query < 8; ++query) {
      std::vector<ov_node_t> source = pick(nodes, random, 0.15);
      if (source.empty()) source.push_back(nodes[random() % nodes.size()]);
      Lists lists(source, pick(nodes, random, 0.2), pick(nodes, random, 0.1));
      const NodeSet s(source.begin(), source.end());
      const NodeSet h(lists.hard.begin(), lists.hard.end() - 1), f(lists.soft.begin(), lists.soft.end() - 1);

      ov_node_t *connected_list = lists.connected(domain.get());
      ASSERT_NE(connected_list, nullptr);
      const NodeSet connected = as_set(connected_list);
      const NodeSet separated = as_set(lists.separated(domain.get()));
      for (ov_node_t node : nodes) {
        const bool expected = reference_connected(nodes, s, h, f, node);
        EXPECT_EQ(connected.count(node) == 1, expected) << "round " << round << " query " << query;
        EXPECT_EQ(separated.count(node) == 1, !expected);
        (expected ? connected_total : separated_total)++;
      }
      for (ov_node_t node : nodes) ASSERT_EQ(node->mark, 0);
    }
  }
  EXPECT_GT(connected_total, 1000);
  EXPECT_GT(separated_total, 1000);
}

TEST(DSeparation, ChainComponentsPassUndirectedLinks) {
  // a -> b, b - c undirected, c -> e.
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 2), c = discrete(domain.get(), 2);
  ov_node_t e = discrete(domain.get(), 2);
  add_links({{a, b}, {c, e}});
  Node *pair[] = {b, c, nullptr};
  chain_component(domain.get(), {b, c},
                  {table_new(domain.get(), pair, ov_table_kind_probability, role_plain, false, false)});
  Lists open({a}, {}, {}), blocked({a}, {c}, {}), upwards({e}, {}, {});
  EXPECT_EQ(as_set(open.connected(domain.get())), (NodeSet{a, b, c, e}));
  EXPECT_EQ(as_set(blocked.connected(domain.get())), (NodeSet{a, b}));
  EXPECT_EQ(as_set(upwards.connected(domain.get())), (NodeSet{a, b, c, e}));
}

TEST(DSeparation, OneResultBufferPerDomainInNodeOrder) {
  DomainPtr domain = new_domain();
  ov_node_t a = discrete(domain.get(), 2), b = discrete(domain.get(), 2), c = discrete(domain.get(), 2);
  add_links({{a, b}, {b, c}});
  Lists blocked({a}, {b}, {}), under({a}, {a}, {}), open({a}, {}, {});
  EXPECT_EQ(node_list(blocked.separated(domain.get())), (std::vector<ov_node_t>{c, b})) << "newest first";
  ov_node_t *first = under.connected(domain.get());
  ASSERT_NE(first, nullptr) << "a list may name a node that another list names too";
  EXPECT_EQ(first[0], nullptr) << "a source under hard evidence reaches nothing";
  ov_node_t *second = open.connected(domain.get());
  EXPECT_EQ(second, first);
  EXPECT_EQ(node_list(second), (std::vector<ov_node_t>{c, b, a}));
  // Utility nodes may be sources.
  ov_node_t u = ov_domain_new_node(domain.get(), ov_category_utility, ov_kind_discrete);
  ASSERT_EQ(ov_node_add_parent(u, b), ov_error_none);
  Lists from_u({u}, {}, {});
  EXPECT_EQ(as_set(from_u.connected(domain.get())), (NodeSet{a, b, c, u}));
}

} // namespace
} // namespace orvel
