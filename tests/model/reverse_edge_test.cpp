// Edge reversal: the joint distribution before and after, by enumeration for
// discrete networks and by the moments of the Gaussian for continuous ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <set>

#include "expr/model.h"
#include "model/domain.h"
#include "model/graph.h"
#include "model/graph_support.h"
#include "table/table.h"

namespace orvel {
namespace {

using namespace graph_test;

long occurrences(const std::vector<ov_node_t> &nodes, ov_node_t node) {
  return std::count(nodes.begin(), nodes.end(), node);
}

void expect_same_joint(const std::vector<double> &expected, const std::vector<double> &actual) {
  ASSERT_EQ(expected.size(), actual.size());
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 2e-6) << "configuration " << i;
}

// Whether `to` can be reached from a child of `from` other than `to`.
bool other_path(ov_node_t from, ov_node_t to) {
  std::vector<ov_node_t> stack;
  NodeSet seen;
  for (ov_node_t child : children(from))
    if (child != to) stack.push_back(child);
  while (!stack.empty()) {
    ov_node_t node = stack.back();
    stack.pop_back();
    if (node == to) return true;
    if (!seen.insert(node).second) continue;
    for (ov_node_t child : children(node)) stack.push_back(child);
  }
  return false;
}

// Every link is on both lists, parents hold discrete nodes first, and each
// table is over its node and parents with the node last among the discrete
// nodes (first among the continuous ones).
void expect_consistent(const std::vector<ov_node_t> &nodes) {
  for (ov_node_t node : nodes) {
    bool continuous_seen = false;
    for (ov_node_t parent : parents(node)) {
      EXPECT_EQ(occurrences(children(parent), node), 1);
      if (ov_node_get_kind(parent) == ov_kind_continuous) continuous_seen = true;
      EXPECT_FALSE(continuous_seen && ov_node_get_kind(parent) == ov_kind_discrete);
    }
    for (ov_node_t child : children(node)) EXPECT_EQ(occurrences(parents(child), node), 1);
    if (node->table == nullptr) continue;
    std::vector<ov_node_t> table_nodes = node_list(ov_table_get_nodes(node->table));
    NodeSet family = as_set(parents(node));
    family.insert(node);
    EXPECT_EQ(as_set(table_nodes), family);
    EXPECT_EQ(table_nodes.size(), family.size());
    const Table *table = node->table;
    const std::uint32_t place = node->is_discrete() ? table->discrete_count - 1 : table->discrete_count;
    EXPECT_EQ(table->nodes[place], node);
    EXPECT_EQ(table->owner, node);
  }
}

// A random network of discrete chance nodes with random tables.
std::vector<ov_node_t> random_discrete_network(ov_domain_t domain, std::mt19937 &random, int size) {
  std::vector<ov_node_t> nodes;
  std::uniform_int_distribution<std::uint32_t> states(2, 3);
  std::bernoulli_distribution link(0.45);
  for (int i = 0; i < size; ++i) {
    ov_node_t node = discrete(domain, states(random));
    for (ov_node_t earlier : nodes)
      if (parents(node).size() < 3 && link(random)) {
        EXPECT_EQ(ov_node_add_parent(node, earlier), ov_error_none);
      }
    nodes.push_back(node);
  }
  for (ov_node_t node : nodes) fill_random(node, random);
  return nodes;
}

TEST(ReverseEdge, RandomDiscreteNetworksKeepTheirJoint) {
  std::mt19937 random(20240611);
  int reversed = 0, cyclic = 0;
  for (int round = 0; round < 60; ++round) {
    DomainPtr domain = new_domain();
    std::vector<ov_node_t> nodes = random_discrete_network(domain.get(), random, 4 + round % 3);
    const std::vector<double> before = joint(nodes);
    for (int step = 0; step < 6; ++step) {
      std::vector<std::pair<ov_node_t, ov_node_t>> links;
      for (ov_node_t node : nodes)
        for (ov_node_t parent : parents(node)) links.emplace_back(parent, node);
      if (links.empty()) break;
      auto [p, c] = links[std::uniform_int_distribution<std::size_t>(0, links.size() - 1)(random)];
      const NodeSet p_parents = as_set(parents(p)), c_parents = as_set(parents(c));
      const bool expect_cycle = other_path(p, c);
      // Either argument order names the same link.
      const ov_status_t status = step % 2 == 0 ? ov_node_reverse_edge(p, c) : ov_node_reverse_edge(c, p);
      if (expect_cycle) {
        ++cyclic;
        EXPECT_EQ(status, ov_error_cyclic_network);
        EXPECT_EQ(as_set(parents(p)), p_parents);
        EXPECT_EQ(as_set(parents(c)), c_parents);
      } else {
        ++reversed;
        ASSERT_EQ(status, ov_error_none);
        NodeSet new_p = p_parents;
        new_p.insert(c_parents.begin(), c_parents.end());
        new_p.erase(p);
        new_p.insert(c);
        NodeSet new_c = c_parents;
        new_c.erase(p);
        new_c.insert(p_parents.begin(), p_parents.end());
        EXPECT_EQ(as_set(parents(p)), new_p);
        EXPECT_EQ(as_set(parents(c)), new_c);
      }
      expect_consistent(nodes);
      expect_same_joint(before, joint(nodes));
    }
    EXPECT_EQ(domain->tables.size(), nodes.size()); // no working table is left behind
  }
  EXPECT_GT(reversed, 100);
  EXPECT_GT(cyclic, 5);
}

TEST(ReverseEdge, AnImpossibleStateGivesAUniformConditional) {
  DomainPtr domain = new_domain();
  ov_node_t p = discrete(domain.get(), 2), c = discrete(domain.get(), 3);
  ASSERT_EQ(ov_node_add_parent(c, p), ov_error_none);
  const float prior[2] = {0.4f, 0.6f};
  const float conditional[6] = {0.5f, 0.5f, 0.0f, 0.25f, 0.75f, 0.0f};
  std::memcpy(ov_table_get_data(ov_node_get_table(p)), prior, sizeof prior);
  std::memcpy(ov_table_get_data(ov_node_get_table(c)), conditional, sizeof conditional);
  ASSERT_EQ(ov_node_reverse_edge(c, p), ov_error_none);
  EXPECT_EQ(ov_node_get_table(c)->data[2], 0.0f);
  const ov_number_t *posterior = ov_table_get_data(ov_node_get_table(p));
  EXPECT_FLOAT_EQ(posterior[4], 0.5f); // P(p | c = 2): c has probability 0
  EXPECT_FLOAT_EQ(posterior[5], 0.5f);
}

TEST(ReverseEdge, TablesAreMadeOnlyWhenNeeded) {
  DomainPtr domain = new_domain();
  ov_node_t x = discrete(domain.get(), 3), p = discrete(domain.get(), 2), c = discrete(domain.get(), 2);
  add_links({{x, p}, {p, c}});
  // Neither has a table: only the links change.
  ASSERT_EQ(ov_node_reverse_edge(p, c), ov_error_none);
  EXPECT_EQ(p->table, nullptr);
  EXPECT_EQ(c->table, nullptr);
  EXPECT_EQ(as_set(parents(c)), NodeSet{x});
  EXPECT_EQ(as_set(parents(p)), (NodeSet{x, c}));
  EXPECT_TRUE(domain->tables.empty());

  // Only one has a table: the other counts as uniform, and both end up
  // with tables over their new families.
  std::mt19937 random(3);
  for (bool table_on_child : {true, false}) {
    ov_node_t child = table_on_child ? p : c, parent = table_on_child ? c : p;
    ASSERT_TRUE(occurrences(parents(child), parent));
    ASSERT_EQ(parent->table, nullptr);
    fill_random(child, random);
    fill_random(x, random);
    std::vector<ov_node_t> all = {x, p, c};
    // The joint with the missing table read as uniform.
    ov_table_t made = ov_node_get_table(parent);
    ov_number_t *data = ov_table_get_data(made);
    for (std::int64_t i = 0; i < ov_table_get_size(made); ++i) data[i] = 0.5f;
    std::vector<double> before = joint(all);
    table_delete(made);
    parent->table = nullptr;
    ASSERT_EQ(ov_node_reverse_edge(parent, child), ov_error_none);
    ASSERT_NE(parent->table, nullptr);
    ASSERT_NE(child->table, nullptr);
    expect_consistent(all);
    expect_same_joint(before, joint(all));
    table_delete(p->table);
    table_delete(c->table);
    p->table = c->table = nullptr;
  }
}

TEST(ReverseEdge, ModelsAndLearningTablesGo) {
  DomainPtr domain = new_domain();
  ov_node_t p = discrete(domain.get(), 2), c = discrete(domain.get(), 2);
  ASSERT_EQ(ov_node_add_parent(c, p), ov_error_none);
  ASSERT_NE(ov_node_new_model(p, nullptr), nullptr);
  ov_node_t model_nodes[] = {p, nullptr};
  ASSERT_NE(ov_node_new_model(c, model_nodes), nullptr);
  ASSERT_EQ(ov_model_set_expression(ov_node_get_model(c), 0, ov_node_make_expression(p)), ov_error_none);
  Node *none[] = {nullptr};
  p->experience_table = table_new(domain.get(), none, ov_table_kind_experience, role_plain, false, true);
  Node *family[] = {p, nullptr};
  c->fading_table = table_new(domain.get(), family, ov_table_kind_fading, role_plain, false, true);
  ov_domain_get_first_node(domain.get())->elimination_number = 1;
  ASSERT_EQ(ov_node_reverse_edge(p, c), ov_error_none);
  EXPECT_FALSE(p->model);
  EXPECT_FALSE(c->model);
  EXPECT_EQ(p->experience_table, nullptr);
  EXPECT_EQ(c->fading_table, nullptr);
  EXPECT_TRUE(domain->tables.empty());
  EXPECT_EQ(ov_domain_is_triangulated(domain.get()), 0);
}

// ---------------------------------------------------------------- continuous

// The mean vector and covariance matrix of the continuous nodes, for one
// assignment of the discrete nodes, from the regressions of their tables.
struct Moments {
  std::map<ov_node_t, double> mean;
  std::map<std::pair<ov_node_t, ov_node_t>, double> covariance;
};

std::int64_t configuration(ov_node_t node, const Assignment &discrete_states) {
  ov_table_t table = ov_node_get_table(node);
  std::int64_t index = 0;
  for (std::uint32_t i = 0; i < table->discrete_count; ++i)
    index = index * table->nodes[i]->state_count + discrete_states.at(table->nodes[i]);
  return index;
}

Moments moments(const std::vector<ov_node_t> &continuous_nodes, const Assignment &discrete_states) {
  Moments m;
  std::vector<ov_node_t> done;
  while (done.size() < continuous_nodes.size()) {
    for (ov_node_t node : continuous_nodes) {
      if (std::count(done.begin(), done.end(), node)) continue;
      std::vector<ov_node_t> tails;
      bool ready = true;
      for (ov_node_t parent : parents(node)) {
        if (ov_node_get_kind(parent) != ov_kind_continuous) continue;
        tails.push_back(parent);
        ready = ready && std::count(done.begin(), done.end(), parent);
      }
      if (!ready) continue;
      const std::int64_t i = configuration(node, discrete_states);
      std::vector<double> beta;
      for (ov_node_t tail : tails) beta.push_back(ov_node_get_beta(node, tail, i));
      double mean = ov_node_get_alpha(node, i), variance = ov_node_get_gamma(node, i);
      for (std::size_t j = 0; j < tails.size(); ++j) {
        mean += beta[j] * m.mean[tails[j]];
        for (std::size_t l = 0; l < tails.size(); ++l)
          variance += beta[j] * beta[l] * m.covariance[{tails[j], tails[l]}];
      }
      m.mean[node] = mean;
      m.covariance[{node, node}] = variance;
      for (ov_node_t other : done) {
        double covariance = 0.0;
        for (std::size_t j = 0; j < tails.size(); ++j) covariance += beta[j] * m.covariance[{tails[j], other}];
        m.covariance[{node, other}] = m.covariance[{other, node}] = covariance;
      }
      done.push_back(node);
    }
  }
  return m;
}

void expect_same_moments(const Moments &expected, const Moments &actual) {
  for (auto &[node, mean] : expected.mean) EXPECT_NEAR(actual.mean.at(node), mean, 1e-9 * (1 + std::fabs(mean)));
  for (auto &[pair, covariance] : expected.covariance)
    EXPECT_NEAR(actual.covariance.at(pair), covariance, 1e-9 * (1 + std::fabs(covariance)));
}

TEST(ReverseEdge, RandomGaussianNetworksKeepTheirMoments) {
  std::mt19937 random(4711);
  std::normal_distribution<double> coefficient(0.0, 1.5);
  std::uniform_real_distribution<double> variance(0.1, 3.0);
  std::bernoulli_distribution link(0.5), degenerate(0.1);
  int reversed = 0;
  for (int round = 0; round < 40; ++round) {
    DomainPtr domain = new_domain();
    std::vector<ov_node_t> switches = {discrete(domain.get(), 2), discrete(domain.get(), 3)};
    std::vector<ov_node_t> nodes;
    for (int i = 0; i < 3 + round % 3; ++i) {
      ov_node_t node = continuous(domain.get());
      for (ov_node_t earlier : nodes)
        if (link(random)) {
          ASSERT_EQ(ov_node_add_parent(node, earlier), ov_error_none);
        }
      for (ov_node_t d : switches)
        if (link(random)) {
          ASSERT_EQ(ov_node_add_parent(node, d), ov_error_none);
        }
      nodes.push_back(node);
    }
    for (ov_node_t node : nodes) {
      for (std::int64_t i = 0; i < ov_table_get_size(ov_node_get_table(node)); ++i) {
        ASSERT_EQ(ov_node_set_alpha(node, coefficient(random), i), ov_error_none);
        ASSERT_EQ(ov_node_set_gamma(node, degenerate(random) ? 0.0 : variance(random), i), ov_error_none);
        for (ov_node_t parent : parents(node))
          if (ov_node_get_kind(parent) == ov_kind_continuous) {
            ASSERT_EQ(ov_node_set_beta(node, coefficient(random), parent, i), ov_error_none);
          }
      }
    }
    std::vector<Moments> before;
    for_each_assignment(switches, [&](const Assignment &s) { before.push_back(moments(nodes, s)); });
    for (int step = 0; step < 5; ++step) {
      std::vector<std::pair<ov_node_t, ov_node_t>> links;
      for (ov_node_t node : nodes)
        for (ov_node_t parent : parents(node))
          if (ov_node_get_kind(parent) == ov_kind_continuous) links.emplace_back(parent, node);
      if (links.empty()) break;
      auto [p, c] = links[std::uniform_int_distribution<std::size_t>(0, links.size() - 1)(random)];
      const ov_status_t status = ov_node_reverse_edge(p, c);
      if (other_path(p, c)) {
        EXPECT_EQ(status, ov_error_cyclic_network);
        continue;
      }
      ASSERT_EQ(status, ov_error_none);
      ++reversed;
      std::vector<ov_node_t> all = nodes;
      all.insert(all.end(), switches.begin(), switches.end());
      expect_consistent(all);
      for (ov_node_t node : {p, c}) {
        const Table *table = node->table;
        EXPECT_EQ(table->cg_roles[0], cg_head);
        for (std::uint32_t i = 1; i < table->continuous_count; ++i) EXPECT_EQ(table->cg_roles[i], cg_tail);
        for (Size i = 0; i < table->size; ++i) EXPECT_EQ(table->data[i], 1.0f) << "the weights of a Gaussian table";
      }
      std::size_t k = 0;
      for_each_assignment(switches, [&](const Assignment &s) { expect_same_moments(before[k++], moments(nodes, s)); });
    }
  }
  EXPECT_GT(reversed, 60);
}

} // namespace
} // namespace orvel
