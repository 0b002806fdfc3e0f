#include "compile/forest_check.h"
#include "compile/compiled_forest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "table/table.h"

namespace orvel::test {

LogCapture::LogCapture(Domain *domain) : file_(std::tmpfile()) {
  EXPECT_NE(file_, nullptr);
  EXPECT_EQ(ov_domain_set_log_file(domain, file_), ov_error_none);
}

LogCapture::~LogCapture() { std::fclose(file_); }

std::string LogCapture::text() {
  std::fflush(file_);
  long end = std::ftell(file_);
  std::string content(static_cast<std::size_t>(end), '\0');
  std::rewind(file_);
  std::size_t read = std::fread(content.data(), 1, content.size(), file_);
  content.resize(read);
  std::fseek(file_, 0, SEEK_END);
  return content;
}

namespace {

using NodeSet = std::set<Node *>;

NodeSet set_of(ov_node_t *list) {
  NodeSet set;
  for (; list != nullptr && *list != nullptr; ++list) set.insert(*list);
  return set;
}

bool includes(const NodeSet &big, const NodeSet &small) {
  return std::includes(big.begin(), big.end(), small.begin(), small.end());
}

double discrete_size(const NodeSet &set) {
  double size = 1;
  for (Node *node : set)
    if (ov_node_get_kind(node) == ov_kind_discrete) size *= static_cast<double>(ov_node_get_number_of_states(node));
  return size;
}

// The cliques reachable from `start` through neighbours whose members pass
// `keep`.
template <class Keep> std::set<ov_clique_t> reach(ov_clique_t start, Keep keep) {
  std::set<ov_clique_t> reached{start};
  std::vector<ov_clique_t> stack{start};
  while (!stack.empty()) {
    ov_clique_t c = stack.back();
    stack.pop_back();
    for (ov_clique_t *n = ov_clique_get_neighbors(c); *n != nullptr; ++n)
      if (keep(*n) && reached.insert(*n).second) stack.push_back(*n);
  }
  return reached;
}

} // namespace

double check_forest(Domain *domain) {
  // The forest as the public calls show it.
  std::vector<ov_clique_t> list;
  std::map<ov_clique_t, NodeSet> members;
  for (ov_clique_t c = ov_domain_get_first_clique(domain); c != nullptr; c = ov_clique_get_next(c)) {
    list.push_back(c);
    members[c] = set_of(ov_clique_get_members(c));
    EXPECT_EQ(static_cast<std::size_t>(ov_clique_get_number_of_members(c)), members[c].size());
  }
  EXPECT_EQ(ov_domain_get_number_of_cliques(domain), static_cast<ov_count_t>(list.size()));
  std::vector<Node *> nodes;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  auto in_some_clique = [&](const NodeSet &set) {
    return std::any_of(list.begin(), list.end(), [&](ov_clique_t c) { return includes(members[c], set); });
  };

  // Families of chance nodes and the parents of utility nodes sit in
  // cliques; cliques are maximal.
  for (Node *node : nodes) {
    NodeSet family = set_of(ov_node_get_parents(node));
    if (ov_node_get_category(node) == ov_category_chance) family.insert(node);
    if (ov_node_get_category(node) != ov_category_decision) {
      EXPECT_TRUE(in_some_clique(family)) << ov_node_get_name(node);
    }
  }
  for (ov_clique_t a : list)
    for (ov_clique_t b : list)
      if (a != b) {
        EXPECT_FALSE(includes(members[b], members[a]));
      }

  // Links are symmetric and stay within a tree; each tree is a tree
  // rooted at the head of its clique list; running intersection holds.
  std::size_t link_ends = 0;
  for (ov_clique_t c : list) {
    ov_count_t count = ov_clique_get_number_of_neighbors(c);
    ov_clique_t *neighbours = ov_clique_get_neighbors(c);
    for (ov_count_t i = 0; i < count; ++i) {
      ++link_ends;
      ov_clique_t *back = ov_clique_get_neighbors(neighbours[i]);
      EXPECT_EQ(std::count(back, back + ov_clique_get_number_of_neighbors(neighbours[i]), c), 1);
      EXPECT_EQ(ov_clique_get_junction_tree(neighbours[i]), ov_clique_get_junction_tree(c));
    }
    EXPECT_EQ(neighbours[count], nullptr);
  }
  // The trees, reached from the cliques (the domain lists them only once
  // compiled).
  std::set<ov_junction_tree_t> trees;
  for (ov_clique_t c : list) trees.insert(ov_clique_get_junction_tree(c));
  for (ov_junction_tree_t tree : trees) {
    std::set<ov_clique_t> in_tree;
    for (ov_clique_t *c = ov_jt_get_cliques(tree); *c != nullptr; ++c) {
      in_tree.insert(*c);
      EXPECT_EQ(ov_clique_get_junction_tree(*c), tree);
    }
    EXPECT_EQ(ov_jt_get_cliques(tree)[0], ov_jt_get_root(tree));
    EXPECT_EQ(reach(ov_jt_get_root(tree), [](ov_clique_t) { return true; }), in_tree);
  }
  EXPECT_EQ(link_ends, 2 * (list.size() - trees.size()));
  for (Node *node : nodes) {
    std::set<ov_clique_t> holding;
    for (ov_clique_t c : list)
      if (members[c].count(node)) holding.insert(c);
    if (holding.empty()) continue;
    EXPECT_EQ(reach(*holding.begin(), [&](ov_clique_t c) { return members[c].count(node) > 0; }), holding)
        << ov_node_get_name(node);
  }

  // The graph of the cliques contains the moral graph and is chordal with
  // the elimination order as a perfect elimination order; its maximal
  // families are the cliques, and levels never rise along the order.
  std::map<Node *, NodeSet> graph;
  for (ov_clique_t c : list)
    for (Node *a : members[c])
      for (Node *b : members[c])
        if (a != b) graph[a].insert(b);
  for (Node *node : nodes)
    for (Node *neighbour : node->neighbours) EXPECT_TRUE(graph[node].count(neighbour));
  ov_node_t *order = ov_domain_get_elimination_order(domain);
  EXPECT_NE(order, nullptr);
  std::map<Node *, std::size_t> step;
  for (std::size_t i = 0; order != nullptr && order[i] != nullptr; ++i) step[order[i]] = i;
  std::set<NodeSet> families;
  for (auto [v, at] : step) {
    NodeSet later{v};
    for (Node *u : graph[v])
      if (step.at(u) > at) later.insert(u);
    for (Node *a : later)
      for (Node *b : later)
        if (a != b) {
          EXPECT_TRUE(graph[a].count(b)) << "not a perfect elimination order at " << ov_node_get_name(v);
        }
    families.insert(later);
  }
  for (std::size_t i = 1; order != nullptr && order[i] != nullptr; ++i) EXPECT_LE(order[i]->level, order[i - 1]->level);
  std::set<NodeSet> maximal, cliques;
  for (const NodeSet &f : families)
    if (std::none_of(families.begin(), families.end(), [&](const NodeSet &g) { return g != f && includes(g, f); }))
      maximal.insert(f);
  for (ov_clique_t c : list) cliques.insert(members[c]);
  EXPECT_EQ(maximal, cliques);

  // A clique hangs below the first clique in list order that holds its
  // separator.
  std::map<ov_clique_t, std::size_t> position;
  for (std::size_t i = 0; i < list.size(); ++i) position[list[i]] = i;
  for (std::size_t i = 0; i < list.size(); ++i)
    for (ov_clique_t *n = ov_clique_get_neighbors(list[i]); *n != nullptr; ++n) {
      if (position[*n] > i) continue;
      NodeSet separator;
      std::set_intersection(members[list[i]].begin(), members[list[i]].end(), members[*n].begin(), members[*n].end(),
                            std::inserter(separator, separator.end()));
      for (std::size_t j = 0; j < i; ++j)
        if (includes(members[list[j]], separator)) {
          EXPECT_EQ(position[*n], j);
          break;
        }
    }

  // Marginals come from the smallest separator that holds a chance node,
  // else from its first clique; evidence enters at its first clique.
  for (Node *node : nodes) {
    if (ov_node_get_category(node) != ov_category_chance) continue;
    ov_clique_t first = nullptr;
    double smallest = -1;
    for (ov_clique_t c : list) {
      if (!members[c].count(node)) continue;
      if (first == nullptr) first = c;
      for (ov_clique_t *n = ov_clique_get_neighbors(c); *n != nullptr; ++n)
        if (members[*n].count(node)) {
          NodeSet separator;
          std::set_intersection(members[c].begin(), members[c].end(), members[*n].begin(), members[*n].end(),
                                std::inserter(separator, separator.end()));
          double size = discrete_size(separator);
          if (smallest < 0 || size < smallest) smallest = size;
        }
    }
    if (node->marginal_source == nullptr) {
      ADD_FAILURE() << "no marginal source for " << ov_node_get_name(node);
      continue;
    }
    if (smallest >= 0) {
      EXPECT_EQ(node->marginal_source->role, role_separator);
      EXPECT_EQ(static_cast<double>(node->marginal_source->size), std::min(smallest, double(size_overflow)));
    } else {
      EXPECT_EQ(node->marginal_source, ov_clique_get_probability_table(first));
    }
    if (ov_node_get_kind(node) == ov_kind_discrete) {
      EXPECT_EQ(node->finding_clique, first);
    }
  }

  double total = 0;
  for (const NodeSet &c : cliques) total += discrete_size(c);
  return total;
}

} // namespace orvel::test
