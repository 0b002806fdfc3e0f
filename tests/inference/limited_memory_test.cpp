// Limited-memory influence diagrams: single policy updating against an
// enumeration of every policy that depends on the decisions' parents only.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "orvel.h"

namespace orvel::test {
namespace {

double relative_gap(double a, double b) { return std::fabs(a - b) / std::max(1.0, std::fabs(b)); }

// A random diagram with its nodes in a topological order: chance nodes and
// decisions mixed, utilities last. In a soluble one each decision observes
// the previous decision and everything that one observed.
struct Limid {
  ov_domain_t domain = ov_new_domain();
  std::vector<ov_node_t> nodes; // chance and decision nodes, then utilities
  std::vector<int> states;
  std::vector<int> decisions;            // indices into nodes, in order
  std::vector<std::vector<int>> parents; // per node
  int chance_and_decisions = 0;

  Limid(const Limid &) = delete;
  Limid &operator=(const Limid &) = delete;
  Limid() = default;
  ~Limid() { ov_domain_delete(domain); }

  void make(std::mt19937 &rng, bool soluble) {
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    const int decision_count = 2 + pick(2), chance_count = 1 + pick(6), utility_count = 1 + pick(3);
    std::vector<bool> is_decision(static_cast<std::size_t>(decision_count + chance_count), false);
    for (int k = 0; k < decision_count; ++k) {
      int at;
      do at = pick(decision_count + chance_count);
      while (is_decision[static_cast<std::size_t>(at)]);
      is_decision[static_cast<std::size_t>(at)] = true;
    }
    chance_and_decisions = decision_count + chance_count;
    for (int i = 0; i < chance_and_decisions; ++i) {
      const bool decision = is_decision[static_cast<std::size_t>(i)];
      ov_node_t node =
          ov_domain_new_node(domain, decision ? ov_category_decision : ov_category_chance, ov_kind_discrete);
      states.push_back(decision || pick(3) > 0 ? 2 : 3);
      ov_node_set_number_of_states(node, static_cast<std::size_t>(states.back()));
      nodes.push_back(node);
      std::vector<int> own;
      if (decision && soluble && !decisions.empty()) {
        own = parents[static_cast<std::size_t>(decisions.back())];
        own.push_back(decisions.back());
      }
      for (int p = 0; p < i; ++p)
        if (std::find(own.begin(), own.end(), p) == own.end() && pick(decision ? 4 : 3) == 0 && own.size() < 3)
          own.push_back(p);
      for (int p : own) ov_node_add_parent(node, nodes[static_cast<std::size_t>(p)]);
      parents.push_back(own);
      if (decision) decisions.push_back(i);
    }
    for (int u = 0; u < utility_count; ++u) {
      ov_node_t node = ov_domain_new_node(domain, ov_category_utility, ov_kind_discrete);
      nodes.push_back(node);
      states.push_back(1);
      std::vector<int> own;
      for (int p = 0; p < chance_and_decisions; ++p)
        if (pick(3) == 0) own.push_back(p);
      for (int p : own) ov_node_add_parent(node, nodes[static_cast<std::size_t>(p)]);
      parents.push_back(own);
    }
    std::uniform_real_distribution<float> unit(0.05f, 1.0f), money(-10.0f, 10.0f);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      if (ov_node_get_category(nodes[i]) == ov_category_decision) continue;
      const bool utility = ov_node_get_category(nodes[i]) == ov_category_utility;
      ov_table_t table = ov_node_get_table(nodes[i]);
      float *data = ov_table_get_data(table);
      const std::size_t size = ov_table_get_size(table);
      for (std::size_t k = 0; k < size; ++k) data[k] = utility ? money(rng) : (pick(5) == 0 ? 0.0f : unit(rng));
      if (utility) continue;
      const std::size_t n = static_cast<std::size_t>(states[i]);
      for (std::size_t row = 0; row < size; row += n) {
        float total = 0.0f;
        for (std::size_t k = 0; k < n; ++k) total += data[row + k];
        if (total == 0.0f) data[row] = total = 1.0f;
        for (std::size_t k = 0; k < n; ++k) data[row + k] /= total;
      }
    }
  }

  int index(ov_node_t node) const {
    return static_cast<int>(std::find(nodes.begin(), nodes.end(), node) - nodes.begin());
  }
  // A table's cell at the configuration x.
  float cell(ov_table_t table, const std::vector<int> &x) const {
    ov_node_t *members = ov_table_get_nodes(table);
    std::size_t offset = 0;
    for (int i = 0; members[i] != nullptr; ++i) {
      const int m = index(members[i]);
      offset = offset * static_cast<std::size_t>(states[static_cast<std::size_t>(m)]) +
               static_cast<std::size_t>(x[static_cast<std::size_t>(m)]);
    }
    return ov_table_get_data(table)[offset];
  }
};

// Every configuration of the chance and decision nodes, with its chance
// probability (findings applied) and utility, and per decision the index of
// its parents' configuration. A policy is an option per such index.
struct Enumeration {
  const Limid &d;
  std::vector<std::vector<int>> x;
  std::vector<double> p, u;
  std::vector<std::vector<std::size_t>> past; // [decision][configuration]
  std::vector<std::size_t> past_size;

  Enumeration(const Limid &limid, const std::vector<int> &finding) : d(limid) {
    const std::size_t n = static_cast<std::size_t>(d.chance_and_decisions);
    std::vector<int> at(n, 0);
    past.resize(d.decisions.size());
    for (int k : d.decisions) {
      std::size_t size = 1;
      for (int q : d.parents[static_cast<std::size_t>(k)])
        size *= static_cast<std::size_t>(d.states[static_cast<std::size_t>(q)]);
      past_size.push_back(size);
    }
    for (;;) {
      double prob = 1.0, util = 0.0;
      for (std::size_t i = 0; i < d.nodes.size(); ++i) {
        const ov_category_t category = ov_node_get_category(d.nodes[i]);
        if (category == ov_category_decision) continue;
        const double value = d.cell(ov_node_get_table(d.nodes[i]), at);
        if (category == ov_category_chance)
          prob *= value;
        else
          util += value;
      }
      for (std::size_t i = 0; i < n; ++i)
        if (finding[i] >= 0 && finding[i] != at[i]) prob = 0.0;
      x.push_back(at);
      p.push_back(prob);
      u.push_back(util);
      for (std::size_t k = 0; k < d.decisions.size(); ++k) {
        std::size_t j = 0;
        for (int q : d.parents[static_cast<std::size_t>(d.decisions[k])])
          j = j * static_cast<std::size_t>(d.states[static_cast<std::size_t>(q)]) +
              static_cast<std::size_t>(at[static_cast<std::size_t>(q)]);
        past[k].push_back(j);
      }
      std::size_t i = n;
      while (i > 0 && ++at[i - 1] == d.states[i - 1]) at[--i] = 0;
      if (i == 0) break;
    }
  }

  // The probability of the findings and the weighted utility of policies.
  std::pair<double, double> value(const std::vector<std::vector<int>> &policies) const {
    double total = 0.0, weighted = 0.0;
    for (std::size_t c = 0; c < x.size(); ++c) {
      bool follows = true;
      for (std::size_t k = 0; k < policies.size() && follows; ++k)
        follows = policies[k][past[k][c]] == x[c][static_cast<std::size_t>(d.decisions[k])];
      if (!follows) continue;
      total += p[c];
      weighted += p[c] * u[c];
    }
    return {total, weighted};
  }

  // The best weighted utility over all policies of decision k, the others
  // fixed: the choice in one configuration of its parents changes only the
  // terms of that configuration, so the best option of each is summed.
  double best_of(const std::vector<std::vector<int>> &policies, std::size_t k) const {
    const std::size_t options = static_cast<std::size_t>(d.states[static_cast<std::size_t>(d.decisions[k])]);
    std::vector<double> by_option(past_size[k] * options, 0.0);
    for (std::size_t c = 0; c < x.size(); ++c) {
      bool follows = true;
      for (std::size_t j = 0; j < policies.size() && follows; ++j)
        follows = j == k || policies[j][past[j][c]] == x[c][static_cast<std::size_t>(d.decisions[j])];
      if (follows)
        by_option[past[k][c] * options + static_cast<std::size_t>(x[c][static_cast<std::size_t>(d.decisions[k])])] +=
            p[c] * u[c];
    }
    double best = 0.0;
    for (std::size_t j = 0; j < past_size[k]; ++j)
      best += *std::max_element(by_option.begin() + static_cast<std::ptrdiff_t>(j * options),
                                by_option.begin() + static_cast<std::ptrdiff_t>((j + 1) * options));
    return best;
  }
};

// The engine's policy of decision k as an option per configuration of its
// parents.
std::vector<int> engine_policy(const Limid &d, const Enumeration &e, std::size_t k) {
  ov_table_t table = ov_node_get_policy(d.nodes[static_cast<std::size_t>(d.decisions[k])]);
  std::vector<int> options(e.past_size[k], -1);
  for (std::size_t c = 0; c < e.x.size(); ++c) {
    if (d.cell(table, e.x[c]) == 1.0f) options[e.past[k][c]] = e.x[c][static_cast<std::size_t>(d.decisions[k])];
  }
  ov_table_delete(table);
  return options;
}

TEST(LimitedMemory, SinglePolicyUpdatingAgainstEnumeration) {
  std::mt19937 rng(1871);
  int soluble_checked = 0, general_checked = 0;
  for (int trial = 0; trial < 120; ++trial) {
    const bool soluble = trial % 2 == 0;
    Limid d;
    d.make(rng, soluble);
    ASSERT_EQ(ov_domain_set_limited_memory(d.domain, 1), ov_error_none);
    ASSERT_EQ(ov_domain_compile(d.domain), ov_error_none) << "trial " << trial;
    // Without evidence, and with a finding on a chance node that no
    // decision influences.
    for (int round = 0; round < 2; ++round) {
      std::vector<int> finding(static_cast<std::size_t>(d.chance_and_decisions), -1);
      ov_domain_retract_findings(d.domain);
      if (round == 1) {
        const int c = static_cast<int>(rng() % static_cast<unsigned>(d.chance_and_decisions));
        if (ov_node_get_category(d.nodes[static_cast<std::size_t>(c)]) != ov_category_chance ||
            std::any_of(d.decisions.begin(), d.decisions.end(), [&](int k) { return k < c; }))
          continue;
        finding[static_cast<std::size_t>(c)] = static_cast<int>(rng() % 2);
        ASSERT_EQ(ov_node_select_state(d.nodes[static_cast<std::size_t>(c)],
                                       static_cast<ov_index_t>(finding[static_cast<std::size_t>(c)])),
                  ov_error_none);
      }
      const ov_status_t status = ov_domain_propagate(d.domain, ov_equilibrium_sum, ov_mode_normal);
      if (status == ov_error_inconsistency_or_underflow) continue;
      ASSERT_EQ(status, ov_error_none) << "trial " << trial;
      const Enumeration e(d, finding);
      std::vector<std::vector<int>> policies;
      for (std::size_t k = 0; k < d.decisions.size(); ++k) {
        policies.push_back(engine_policy(d, e, k));
        ASSERT_EQ(std::count(policies.back().begin(), policies.back().end(), -1), 0) << "trial " << trial;
      }
      // The expected utility is that of the engine's policies, and no
      // decision gains by changing its policy alone.
      const auto [evidence, weighted] = e.value(policies);
      const double meu = ov_domain_get_expected_utility(d.domain);
      ASSERT_GT(evidence, 0.0);
      EXPECT_LT(relative_gap(meu, weighted / evidence), 1e-6) << "trial " << trial << " round " << round;
      for (std::size_t k = 0; k < d.decisions.size(); ++k) {
        EXPECT_LT(e.best_of(policies, k) / evidence, meu + 1e-6 * std::max(1.0, std::fabs(meu)))
            << "trial " << trial << " decision " << k;
        // Each option: the decision taking it, the others following theirs.
        ov_node_t node = d.nodes[static_cast<std::size_t>(d.decisions[k])];
        for (int v = 0; v < d.states[static_cast<std::size_t>(d.decisions[k])]; ++v) {
          std::vector<std::vector<int>> taken = policies;
          std::fill(taken[k].begin(), taken[k].end(), v);
          const auto [p, w] = e.value(taken);
          EXPECT_LT(relative_gap(ov_node_get_expected_utility(node, static_cast<ov_index_t>(v)), p > 0 ? w / p : 0.0),
                    1e-5)
              << "trial " << trial << " decision " << k << " option " << v;
        }
      }
      // A belief under the policies.
      const std::size_t c = static_cast<std::size_t>(d.decisions.front() == 0 ? 1 : 0);
      if (c < static_cast<std::size_t>(d.chance_and_decisions) &&
          ov_node_get_category(d.nodes[c]) == ov_category_chance) {
        double mass = 0.0;
        for (std::size_t i = 0; i < e.x.size(); ++i) {
          bool follows = e.x[i][c] == 0;
          for (std::size_t k = 0; k < policies.size() && follows; ++k)
            follows = policies[k][e.past[k][i]] == e.x[i][static_cast<std::size_t>(d.decisions[k])];
          if (follows) mass += e.p[i];
        }
        EXPECT_NEAR(ov_node_get_belief(d.nodes[c], 0), mass / evidence, 1e-5) << "trial " << trial;
      }
      // Soluble: the global optimum over every combination of policies.
      if (!soluble) {
        ++general_checked;
        continue;
      }
      std::vector<std::vector<int>> all;
      for (std::size_t k = 0; k < d.decisions.size(); ++k) all.emplace_back(e.past_size[k], 0);
      double best = -HUGE_VAL;
      std::size_t combinations = 0;
      for (; combinations < 20000; ++combinations) {
        best = std::max(best, e.value(all).second);
        std::size_t k = 0, i = 0;
        for (; k < all.size(); ++k) {
          const int options = d.states[static_cast<std::size_t>(d.decisions[k])];
          for (i = 0; i < all[k].size() && ++all[k][i] == options; ++i) all[k][i] = 0;
          if (i < all[k].size()) break;
        }
        if (k == all.size()) break;
      }
      if (combinations == 20000) continue;
      EXPECT_LT(relative_gap(meu, best / evidence), 1e-6) << "trial " << trial << " round " << round;
      ++soluble_checked;
    }
  }
  EXPECT_GT(soluble_checked, 50);
  EXPECT_GT(general_checked, 50);
}

// Decisions without a total order compile with limited memory; the setting
// uncompiles the domain when it changes; a clone keeps it.
TEST(LimitedMemory, SettingAndUnorderedDecisions) {
  ov_domain_t domain = ov_new_domain();
  ov_node_t d1 = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  ov_node_t d2 = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  ov_node_t c = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  ov_node_t u = ov_domain_new_node(domain, ov_category_utility, ov_kind_discrete);
  for (ov_node_t node : {d1, d2, c}) ASSERT_EQ(ov_node_set_number_of_states(node, 2), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(c, d1), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(u, c), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(u, d2), ov_error_none);
  float *p = ov_table_get_data(ov_node_get_table(c));
  p[0] = 0.9f, p[1] = 0.1f, p[2] = 0.2f, p[3] = 0.8f;
  float *value = ov_table_get_data(ov_node_get_table(u));
  value[0] = 10, value[1] = 0, value[2] = 0, value[3] = 5; // [c][d2]
  EXPECT_EQ(ov_domain_compile(domain), ov_error_decision_order);
  EXPECT_EQ(ov_domain_get_limited_memory(domain), 0);
  ASSERT_EQ(ov_domain_set_limited_memory(domain, 1), ov_error_none);
  EXPECT_EQ(ov_domain_get_limited_memory(domain), 1);
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  // d1 first makes c likely 0, where d2 = 0 pays 10: 0.9 * 10.
  EXPECT_NEAR(ov_domain_get_expected_utility(domain), 9.0, 1e-5);
  EXPECT_NEAR(ov_node_get_expected_utility(d1, 1), 2.0, 1e-5);
  EXPECT_NEAR(ov_node_get_expected_utility(d2, 1), 0.5, 1e-5);
  ov_domain_t clone = ov_domain_clone(domain);
  EXPECT_EQ(ov_domain_get_limited_memory(clone), 1);
  ov_domain_delete(clone);
  ASSERT_EQ(ov_domain_set_limited_memory(domain, 0), ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  ov_domain_delete(domain);
}

} // namespace
} // namespace orvel::test
