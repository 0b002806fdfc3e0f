// Chain graphs, read from NET text with undirected links, against an
// enumeration of their joint: the product of the node tables and of the
// chain potentials, each component divided by its normaliser, the sum of
// its own factors over its members for each state of its parents.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "brute_force.h"

namespace {

using orvel::test::combine;
using orvel::test::Factor;

struct ChainNet {
  std::vector<std::uint32_t> states;
  std::vector<Factor> node_tables;             // one per node, rows normalised
  std::vector<std::vector<int>> components;    // members of each chain component
  std::vector<std::vector<Factor>> potentials; // chain potentials of each component
  std::string text;                            // the NET file
};

std::string name_of(int v) { return "X" + std::to_string(v); }

// A potential over `children` given `parents` with random positive data,
// written to the text as a flat list; the values kept are those a float
// holds. With `rows` set, each row of the one child sums to one.
Factor potential(ChainNet &net, const std::vector<int> &children, const std::vector<int> &parents, bool rows,
                 std::mt19937 &rng) {
  std::uniform_real_distribution<double> unit(0.1, 1.1);
  Factor f{parents, {}};
  f.vars.insert(f.vars.end(), children.begin(), children.end());
  std::size_t size = 1;
  for (int v : f.vars) size *= net.states[v];
  const std::size_t row = rows ? net.states[children[0]] : size;
  f.values.resize(size);
  for (double &x : f.values) x = unit(rng);
  auto normalise = [&] {
    for (std::size_t start = 0; rows && start < size; start += row) {
      double sum = 0.0;
      for (std::size_t k = 0; k < row; ++k) sum += f.values[start + k];
      for (std::size_t k = 0; k < row; ++k) f.values[start + k] /= sum;
    }
  };
  normalise();
  net.text += "potential (";
  for (std::size_t i = 0; i < children.size(); ++i) net.text += (i ? " " : "") + name_of(children[i]);
  net.text += parents.empty() ? "" : " |";
  for (int p : parents) net.text += " " + name_of(p);
  net.text += ")\n{\n    data = (";
  for (double &x : f.values) {
    char number[32];
    std::snprintf(number, sizeof number, " %.9g", x);
    net.text += number;
    x = static_cast<float>(x);
  }
  net.text += " );\n}\n\n";
  normalise(); // the engine normalises the float rows again
  return f;
}

// Directed nodes, then one chain component of two or three members with
// parents among the earlier nodes (three members come from two potentials
// that share one, so that components are merged), then directed nodes that
// may have members as parents.
ChainNet make_chain_net(std::mt19937 &rng) {
  ChainNet net;
  const int before = 1 + static_cast<int>(rng() % 3);
  const int members = 2 + static_cast<int>(rng() % 2);
  const int after = static_cast<int>(rng() % 3);
  const int n = before + members + after;
  for (int v = 0; v < n; ++v) net.states.push_back(2 + rng() % 2);
  for (int v = 0; v < n; ++v) {
    net.text += "node " + name_of(v) + "\n{\n    states = (";
    for (std::uint32_t s = 0; s < net.states[v]; ++s) net.text += " \"s" + std::to_string(s) + "\"";
    net.text += " );\n}\n\n";
  }
  auto pick_parents = [&](int limit, int most) {
    std::vector<int> parents;
    for (int p = 0; p < limit; ++p)
      if (static_cast<int>(parents.size()) < most && rng() % 2 == 0) parents.push_back(p);
    return parents;
  };
  net.node_tables.resize(n);
  for (int v = 0; v < before; ++v) net.node_tables[v] = potential(net, {v}, pick_parents(v, 2), true, rng);
  // Every member has the component's parents, as the chain potentials give
  // them to all of their children.
  const std::vector<int> component_parents = pick_parents(before, 2);
  std::vector<int> component;
  for (int v = before; v < before + members; ++v) {
    component.push_back(v);
    net.node_tables[v] = potential(net, {v}, component_parents, true, rng);
  }
  net.components.push_back(component);
  net.potentials.emplace_back();
  std::vector<std::vector<int>> groups{component};
  if (members == 3) groups = {{component[0], component[1]}, {component[1], component[2]}};
  for (const std::vector<int> &children : groups)
    net.potentials.back().push_back(potential(net, children, component_parents, false, rng));
  for (int v = before + members; v < n; ++v) net.node_tables[v] = potential(net, {v}, pick_parents(v, 2), true, rng);
  return net;
}

// The factors of the joint: all node tables and potentials, and for each
// component the reciprocal of the sum of its own factors over its members.
std::vector<Factor> joint_factors(const ChainNet &net) {
  std::vector<Factor> factors(net.node_tables);
  for (std::size_t c = 0; c < net.components.size(); ++c) {
    const std::vector<int> &members = net.components[c];
    std::vector<const Factor *> own;
    std::vector<int> parents;
    for (int m : members) own.push_back(&net.node_tables[m]);
    for (const Factor &phi : net.potentials[c]) own.push_back(&phi);
    for (const Factor *f : own)
      for (int v : f->vars)
        if (std::count(members.begin(), members.end(), v) + std::count(parents.begin(), parents.end(), v) == 0)
          parents.push_back(v);
    Factor normaliser = combine(own, parents, net.states);
    for (double &x : normaliser.values) x = 1.0 / x;
    factors.insert(factors.end(), net.potentials[c].begin(), net.potentials[c].end());
    factors.push_back(std::move(normaliser));
  }
  return factors;
}

TEST(ChainGraph, BeliefsMatchEnumeration) {
  std::mt19937 rng(23);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    ChainNet net = make_chain_net(rng);
    ov_domain_t domain = ov_net_parse_from_string(net.text.c_str(), nullptr);
    ASSERT_NE(domain, nullptr) << net.text;
    std::vector<ov_node_t> nodes;
    for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node))
      nodes.push_back(node);
    ASSERT_EQ(nodes.size(), net.states.size());
    ASSERT_EQ(ov_domain_compile(domain), ov_error_none) << ov_error_description(ov_error_code());

    // No evidence, then one or two hard findings.
    for (int step = 0; step < 3; ++step) {
      std::vector<int> evidence(nodes.size(), -1);
      if (step > 0) {
        ov_domain_retract_findings(domain);
        for (int k = 0; k < step; ++k) {
          const std::size_t v = rng() % nodes.size();
          evidence[v] = static_cast<int>(rng() % net.states[v]);
          ASSERT_EQ(ov_node_select_state(nodes[v], evidence[v]), ov_error_none);
        }
        ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      }
      std::vector<Factor> factors = joint_factors(net);
      for (std::size_t v = 0; v < nodes.size(); ++v)
        if (evidence[v] >= 0) {
          factors.push_back({{static_cast<int>(v)}, std::vector<double>(net.states[v], 0.0)});
          factors.back().values[evidence[v]] = 1.0;
        }
      std::vector<const Factor *> all;
      for (const Factor &f : factors) all.push_back(&f);
      const double total = combine(all, {}, net.states).values[0];
      EXPECT_NEAR(ov_domain_get_normalization_constant(domain), total, 1e-5 * total);
      for (int v = 0; v < static_cast<int>(nodes.size()); ++v) {
        const std::vector<double> expected = combine(all, {v}, net.states).values;
        for (std::uint32_t s = 0; s < net.states[v]; ++s)
          EXPECT_NEAR(ov_node_get_belief(nodes[v], s), expected[s] / total, 1e-5) << "X" << v << " state " << s;
      }
    }
    ov_domain_delete(domain);
  }
}

// A normaliser entry of zero: a chain potential that is zero for every
// state of the members under one parent state cannot be normalised.
TEST(ChainGraph, ZeroNormaliserIsRefused) {
  const char *text = "node P { states = (\"a\" \"b\"); }\n"
                     "node A { states = (\"a\" \"b\"); }\n"
                     "node B { states = (\"a\" \"b\"); }\n"
                     "potential (P) { data = (0.5 0.5); }\n"
                     "potential (A | P) { data = (0.5 0.5 0.5 0.5); }\n"
                     "potential (B | P) { data = (0.5 0.5 0.5 0.5); }\n"
                     "potential (A B | P) { data = (1 2 3 4 0 0 0 0); }\n";
  ov_domain_t domain = ov_net_parse_from_string(text, nullptr);
  ASSERT_NE(domain, nullptr);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_chain_graph);
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  ov_domain_delete(domain);
  // A potential beyond float has no normaliser either (found by fuzzing).
  std::string infinite(text);
  infinite.replace(infinite.find("0 0 0 0"), 7, "1e39 0 0 0");
  domain = ov_net_parse_from_string(infinite.c_str(), nullptr);
  ASSERT_NE(domain, nullptr);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_overflow);
  ov_domain_delete(domain);
}

} // namespace
