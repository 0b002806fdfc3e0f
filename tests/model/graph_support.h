// Helpers of the graph editing tests: building small networks, reading
// tables by node assignment, and enumerating joint distributions.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "model/chain_component.h"
#include "model/domain.h"
#include "orvel.h"

namespace graph_test {

struct DomainDeleter {
  void operator()(ov_domain_s *domain) const noexcept { ov_domain_delete(domain); }
};
using DomainPtr = std::unique_ptr<ov_domain_s, DomainDeleter>;

using Assignment = std::map<ov_node_t, std::uint32_t>;

inline DomainPtr new_domain() { return DomainPtr(ov_new_domain()); }

// A discrete chance node with `states` states.
inline ov_node_t discrete(ov_domain_t domain, std::uint32_t states, ov_category_t category = ov_category_chance) {
  ov_node_t node = ov_domain_new_node(domain, category, ov_kind_discrete);
  EXPECT_NE(node, nullptr);
  if (states != 1) {
    EXPECT_EQ(ov_node_set_number_of_states(node, states), ov_error_none);
  }
  return node;
}

// Adds each link, a pair of a parent and its child, in order.
inline void add_links(std::initializer_list<std::pair<ov_node_t, ov_node_t>> links) {
  for (auto [parent, child] : links) EXPECT_EQ(ov_node_add_parent(child, parent), ov_error_none);
}

inline ov_node_t continuous(ov_domain_t domain) {
  ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous);
  EXPECT_NE(node, nullptr);
  return node;
}

// Joins `members` by undirected links into a chain component holding
// `potentials`, as a chain graph read from a file would have it.
inline orvel::ChainComponent *chain_component(ov_domain_t domain, std::vector<ov_node_t> members,
                                              std::vector<orvel::Table *> potentials = {}) {
  auto component = std::make_unique<orvel::ChainComponent>();
  component->domain = domain;
  for (ov_node_t member : members) component->members.push_back(member), member->chain_component = component.get();
  component->potentials = std::move(potentials);
  domain->chain_components.push_back(std::move(component));
  return domain->chain_components.back().get();
}

inline std::vector<ov_node_t> node_list(ov_node_t *list) {
  std::vector<ov_node_t> nodes;
  for (; *list != nullptr; ++list) nodes.push_back(*list);
  return nodes;
}

using NodeSet = std::set<ov_node_t>;
inline NodeSet as_set(const std::vector<ov_node_t> &nodes) { return NodeSet(nodes.begin(), nodes.end()); }
inline NodeSet as_set(ov_node_t *list) { return as_set(node_list(list)); }

inline std::vector<ov_node_t> parents(ov_node_t node) { return node_list(ov_node_get_parents(node)); }
inline std::vector<ov_node_t> children(ov_node_t node) { return node_list(ov_node_get_children(node)); }

// A copy of a discrete table: its nodes, their state counts and its data.
struct Snapshot {
  std::vector<ov_node_t> nodes;
  std::vector<std::uint32_t> counts;
  std::vector<float> data;

  // The number at an assignment of (at least) the snapshot's nodes.
  float at(const std::map<ov_node_t, std::uint32_t> &assignment) const {
    std::size_t index = 0;
    for (std::size_t i = 0; i < nodes.size(); ++i) index = index * counts[i] + assignment.at(nodes[i]);
    return data[index];
  }
};

inline Snapshot snapshot(ov_table_t table) {
  Snapshot s;
  for (ov_node_t node : node_list(ov_table_get_nodes(table))) {
    if (ov_node_get_kind(node) != ov_kind_discrete) continue;
    s.nodes.push_back(node);
    s.counts.push_back(static_cast<std::uint32_t>(ov_node_get_number_of_states(node)));
  }
  const ov_number_t *data = ov_table_get_data(table);
  s.data.assign(data, data + ov_table_get_size(table));
  return s;
}

// Calls `visit` with each assignment of the nodes, the last varying fastest.
template <class F> void for_each_assignment(const std::vector<ov_node_t> &nodes, F &&visit) {
  std::vector<std::uint32_t> counts;
  for (ov_node_t node : nodes) counts.push_back(static_cast<std::uint32_t>(ov_node_get_number_of_states(node)));
  std::vector<std::uint32_t> digit(nodes.size(), 0);
  for (;;) {
    std::map<ov_node_t, std::uint32_t> assignment;
    for (std::size_t i = 0; i < nodes.size(); ++i) assignment[nodes[i]] = digit[i];
    visit(assignment);
    std::size_t i = nodes.size();
    while (i > 0 && ++digit[i - 1] == counts[i - 1]) digit[--i] = 0;
    if (i == 0) return;
  }
}

// Fills a node's table with random positive numbers, normalised per
// conditional distribution.
inline void fill_random(ov_node_t node, std::mt19937 &random) {
  ov_table_t table = ov_node_get_table(node);
  ov_number_t *data = ov_table_get_data(table);
  const std::int64_t size = ov_table_get_size(table);
  std::uniform_real_distribution<float> uniform(0.05f, 1.0f);
  for (std::int64_t i = 0; i < size; ++i) data[i] = uniform(random);
  const std::int64_t n = ov_node_get_number_of_states(node);
  for (std::int64_t run = 0; run < size; run += n) {
    double sum = 0;
    for (std::int64_t i = 0; i < n; ++i) sum += data[run + i];
    for (std::int64_t i = 0; i < n; ++i) data[run + i] = static_cast<float>(data[run + i] / sum);
  }
}

// The joint distribution of a network of discrete chance nodes, by
// enumeration: the product of every node's conditional table.
inline std::vector<double> joint(const std::vector<ov_node_t> &nodes) {
  std::vector<Snapshot> tables;
  for (ov_node_t node : nodes) tables.push_back(snapshot(ov_node_get_table(node)));
  std::vector<double> result;
  for_each_assignment(nodes, [&](const std::map<ov_node_t, std::uint32_t> &assignment) {
    double p = 1.0;
    for (const Snapshot &table : tables) p *= table.at(assignment);
    result.push_back(p);
  });
  return result;
}

} // namespace graph_test
