#include "compile/forest_check.h"
#include "compile/compiled_forest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "table/plan.h"
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

double check_forest(Domain *domain) {
  using NodeSet = std::set<Node *>;
  std::vector<NodeSet> cliques;
  std::map<const Clique *, std::size_t> index;
  for (auto &clique : domain->forest->cliques) {
    index[clique.get()] = cliques.size();
    cliques.emplace_back(clique->table->nodes.begin(), clique->table->nodes.end());
  }
  auto in_some_clique = [&](const NodeSet &set) {
    return std::any_of(cliques.begin(), cliques.end(),
                       [&](const NodeSet &c) { return std::includes(c.begin(), c.end(), set.begin(), set.end()); });
  };

  // Families of chance nodes and the parents of utility nodes sit in cliques.
  for (auto &node : domain->nodes) {
    NodeSet family(node->parents.begin(), node->parents.end());
    if (node->category == ov_category_chance) family.insert(node.get());
    if (node->category != ov_category_decision) {
      EXPECT_TRUE(in_some_clique(family)) << *node->name;
    }
  }
  // Cliques are maximal.
  for (std::size_t i = 0; i < cliques.size(); ++i)
    for (std::size_t j = 0; j < cliques.size(); ++j)
      if (i != j) {
        EXPECT_FALSE(std::includes(cliques[j].begin(), cliques[j].end(), cliques[i].begin(), cliques[i].end()))
            << "clique " << i << " inside " << j;
      }

  // Links: symmetric, separators are the intersections, each tree is a
  // tree (connected, one link fewer than cliques).
  std::size_t link_ends = 0;
  for (auto &clique : domain->forest->cliques) {
    for (const CliqueLink &link : clique->links) {
      ++link_ends;
      const auto &back = link.neighbour->links;
      EXPECT_EQ(std::count_if(back.begin(), back.end(),
                              [&](const CliqueLink &other) {
                                return other.neighbour == clique.get() && other.separator == link.separator;
                              }),
                1);
      NodeSet shared;
      const NodeSet &a = cliques[index[clique.get()]], &b = cliques[index[link.neighbour]];
      std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::inserter(shared, shared.end()));
      EXPECT_EQ(NodeSet(link.separator->nodes.begin(), link.separator->nodes.end()), shared);
      // The link's plan maps this clique's tables onto the separator.
      if (link.plan == nullptr) {
        ADD_FAILURE() << "link without a plan";
      } else {
        EXPECT_EQ(link.plan->target, clique->table);
        EXPECT_EQ(link.plan->target_utility, clique->utility_table);
        EXPECT_EQ(link.plan->source, link.separator);
        EXPECT_EQ(link.plan->source_utility, link.separator_utilities);
      }
      EXPECT_EQ(link.neighbour->junction_tree, clique->junction_tree);
    }
  }
  EXPECT_EQ(link_ends, 2 * (cliques.size() - domain->forest->junction_trees.size()));
  for (auto &tree : domain->forest->junction_trees) {
    std::set<const Clique *> reached{tree->root};
    std::vector<const Clique *> stack{tree->root};
    while (!stack.empty()) {
      const Clique *c = stack.back();
      stack.pop_back();
      for (const CliqueLink &link : c->links)
        if (reached.insert(link.neighbour).second) stack.push_back(link.neighbour);
    }
    std::size_t members = std::count_if(domain->forest->cliques.begin(), domain->forest->cliques.end(),
                                        [&](const auto &c) { return c->junction_tree == tree.get(); });
    EXPECT_EQ(reached.size(), members);
  }
  // Running intersection: the cliques that hold a node are connected.
  for (auto &node : domain->nodes) {
    std::vector<const Clique *> holding;
    for (auto &clique : domain->forest->cliques)
      if (cliques[index[clique.get()]].count(node.get())) holding.push_back(clique.get());
    if (holding.empty()) continue;
    std::set<const Clique *> reached{holding[0]};
    std::vector<const Clique *> stack{holding[0]};
    while (!stack.empty()) {
      const Clique *c = stack.back();
      stack.pop_back();
      for (const CliqueLink &link : c->links)
        if (cliques[index[link.neighbour]].count(node.get()) && reached.insert(link.neighbour).second)
          stack.push_back(link.neighbour);
    }
    EXPECT_EQ(reached.size(), holding.size()) << *node->name;
  }

  // The graph of the cliques is chordal with the elimination order as a
  // perfect elimination order, contains the moral graph, and its maximal
  // cliques are the cliques.
  std::map<Node *, NodeSet> graph;
  for (const NodeSet &c : cliques)
    for (Node *a : c)
      for (Node *b : c)
        if (a != b) graph[a].insert(b);
  for (auto &node : domain->nodes)
    for (Node *neighbour : node->neighbours) EXPECT_TRUE(graph[node.get()].count(neighbour));
  NodeList *order = domain->forest->elimination_order ? &*domain->forest->elimination_order : nullptr;
  EXPECT_NE(order, nullptr);
  std::set<NodeSet> from_order;
  if (order != nullptr) {
    for (Node *v : *order) {
      NodeSet later{v};
      for (Node *u : graph[v])
        if (u->elimination_number < v->elimination_number) later.insert(u);
      for (Node *a : later)
        for (Node *b : later)
          if (a != b) {
            EXPECT_TRUE(graph[a].count(b)) << "not a perfect elimination order at " << *v->name;
          }
      from_order.insert(later);
    }
  }
  // Levels never rise along the elimination order.
  if (order != nullptr) {
    for (std::uint32_t i = 1; i < order->size(); ++i) {
      EXPECT_LE((*order)[i]->level, (*order)[i - 1]->level);
    }
  }

  // A clique with a separator hangs below the first clique in list order
  // that holds the separator.
  for (std::size_t position = 0; position < domain->forest->cliques.size(); ++position) {
    const Clique *clique = domain->forest->cliques[position].get();
    for (const CliqueLink &link : clique->links) {
      if (link.neighbour->position > position) continue;
      NodeSet separator(link.separator->nodes.begin(), link.separator->nodes.end());
      for (std::size_t i = 0; i < position; ++i) {
        if (!std::includes(cliques[i].begin(), cliques[i].end(), separator.begin(), separator.end())) continue;
        EXPECT_EQ(link.neighbour->position, i);
        break;
      }
    }
  }
  // Marginals come from the smallest separator that holds a chance node,
  // else from its first clique; evidence enters at its first clique.
  for (auto &node : domain->nodes) {
    if (node->category != ov_category_chance) continue;
    const Table *first_clique = nullptr;
    for (auto &clique : domain->forest->cliques)
      if (clique->table->nodes.contains(node.get())) {
        first_clique = clique->table;
        break;
      }
    Size smallest = size_overflow;
    bool in_separator = false;
    for (auto &clique : domain->forest->cliques)
      for (const CliqueLink &link : clique->links)
        if (link.separator->nodes.contains(node.get())) {
          in_separator = true;
          smallest = std::min(smallest, link.separator->size);
        }
    if (node->marginal_source == nullptr) {
      ADD_FAILURE() << "no marginal source for " << *node->name;
      continue;
    }
    if (in_separator) {
      EXPECT_EQ(node->marginal_source->role, role_separator);
      EXPECT_EQ(node->marginal_source->size, smallest);
    } else {
      EXPECT_EQ(node->marginal_source, first_clique);
    }
    if (node->is_discrete()) {
      EXPECT_EQ(node->finding_clique->table, first_clique);
      EXPECT_TRUE(node->finding_plan != nullptr && node->finding_plan->target == first_clique &&
                  node->finding_plan->source == node->propagated_finding);
    }
    EXPECT_TRUE(node->marginal_plan != nullptr && node->marginal_plan->target == node->marginal_source &&
                node->marginal_plan->source == node->belief_table);
    // The node's table goes to a clique that holds all its nodes.
    EXPECT_TRUE(node->home_clique != nullptr && node->table_plan != nullptr &&
                node->table_plan->target == node->home_clique->table && node->table_plan->source == node->table);
    EXPECT_TRUE(node->marginal_source->nodes.contains(node.get()));
  }

  std::set<NodeSet> maximal;
  for (const NodeSet &c : from_order)
    if (std::none_of(from_order.begin(), from_order.end(),
                     [&](const NodeSet &d) { return d != c && std::includes(d.begin(), d.end(), c.begin(), c.end()); }))
      maximal.insert(c);
  EXPECT_EQ(maximal, std::set<NodeSet>(cliques.begin(), cliques.end()));

  double total = 0;
  for (const NodeSet &c : cliques) {
    double size = 1;
    for (Node *node : c)
      if (node->is_discrete()) size *= node->state_count;
    total += size;
  }
  return total;
}

} // namespace orvel::test
