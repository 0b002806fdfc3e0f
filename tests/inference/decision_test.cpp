// Influence diagrams: the maximum expected utility and the expected
// utilities of the options of decisions, against a textbook example and
// against a plain roll-back of the decision tree over the full joint.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "orvel.h"

namespace orvel::test {
namespace {

double relative_gap(double a, double b) { return std::fabs(a - b) / std::max(1.0, std::fabs(b)); }

// The oil wildcatter of H. Raiffa, Decision Analysis (Addison-Wesley, 1968),
// with his numbers: testing costs 10, drilling 70, and a wet or soaking well
// pays 120 or 270. Testing and then drilling unless the seismic structure is
// diffuse gives 22.5; drilling without the test gives 20.
constexpr const char *kOilWildcatter = R"(net {}
decision Test { states = ("yes" "no"); }
node Oil { states = ("dry" "wet" "soaking"); }
node Seismic { states = ("closed" "open" "diffuse" "none"); }
decision Drill { states = ("yes" "no"); }
utility TestCost {}
utility DrillPayoff {}
potential (Oil) { data = (0.5 0.3 0.2); }
potential (Seismic | Oil Test) {
  data = (((0.1 0.3 0.6 0.0) (0.0 0.0 0.0 1.0))
          ((0.3 0.4 0.3 0.0) (0.0 0.0 0.0 1.0))
          ((0.5 0.4 0.1 0.0) (0.0 0.0 0.0 1.0))); }
potential (Drill | Seismic Test) {}
potential (TestCost | Test) { data = (-10 0); }
potential (DrillPayoff | Drill Oil) { data = ((-70 50 200) (0 0 0)); }
)";

TEST(InfluenceDiagram, OilWildcatterPublishedValues) {
  ov_domain_t domain = ov_net_parse_from_string(kOilWildcatter, nullptr);
  ASSERT_NE(domain, nullptr);
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  ov_node_t test = ov_domain_get_node_by_name(domain, "Test");
  ov_node_t drill = ov_domain_get_node_by_name(domain, "Drill");
  ov_node_t seismic = ov_domain_get_node_by_name(domain, "Seismic");
  EXPECT_NEAR(ov_domain_get_expected_utility(domain), 22.5, 1e-5);
  EXPECT_NEAR(ov_node_get_expected_utility(test, 0), 22.5, 1e-5);
  EXPECT_NEAR(ov_node_get_expected_utility(test, 1), 20.0, 1e-5);
  // Drilling whatever the test shows makes the test a pure cost: without
  // it drilling expects 20.
  EXPECT_NEAR(ov_node_get_expected_utility(drill, 0), 20.0, 1e-5);
  // The policy of Drill: drill unless the test was made and shows a diffuse
  // structure; with expected utilities given what it depends on.
  ov_table_t policy = ov_node_get_policy(drill);
  ov_table_t values = ov_node_get_policy_utilities(drill);
  ASSERT_NE(policy, nullptr);
  ASSERT_NE(values, nullptr);
  // The past is Test and Seismic, in the order the solution keeps them.
  ov_node_t *past = ov_table_get_nodes(policy);
  ASSERT_EQ(past[2], drill);
  ASSERT_EQ(past[3], nullptr);
  const bool seismic_first = past[0] == seismic;
  ASSERT_EQ(past[seismic_first ? 1 : 0], test);
  auto at = [&](int s, int t) { return static_cast<std::size_t>(seismic_first ? (s * 2 + t) * 2 : (t * 4 + s) * 2); };
  // Impossible pairs (a test result without the test) take the first option.
  const float drills[4][2] = {{1, 1}, {1, 1}, {0, 1}, {1, 1}}; // [Seismic][Test]
  for (int s = 0; s < 4; ++s)
    for (int t = 0; t < 2; ++t) EXPECT_EQ(ov_table_get_data(policy)[at(s, t)], drills[s][t]) << s << t;
  EXPECT_NEAR(ov_table_get_data(values)[at(2, 0)], -12.5 / 0.41 - 10.0, 1e-4);
  EXPECT_NEAR(ov_table_get_data(values)[at(3, 1)], 20.0, 1e-4);
  ov_table_delete(policy);
  ov_table_delete(values);
  // The test taken and its result diffuse (probability 0.41): drilling
  // expects -12.5 / 0.41 - 10, not drilling -10.
  ASSERT_EQ(ov_node_select_state(test, 0), ov_error_none);
  ASSERT_EQ(ov_node_select_state(seismic, 2), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_node_get_expected_utility(drill, 0), -12.5 / 0.41 - 10.0, 1e-5);
  EXPECT_NEAR(ov_node_get_expected_utility(drill, 1), -10.0, 1e-5);
  EXPECT_NEAR(ov_domain_get_expected_utility(domain), -10.0, 1e-5);
  EXPECT_NEAR(ov_domain_get_normalization_constant(domain), 0.41, 1e-6);
  // A clone carries the solution; evidence impossible under the decision
  // taken fails and leaves the diagram solved without evidence.
  ov_domain_t clone = ov_domain_clone(domain);
  EXPECT_NEAR(ov_domain_get_expected_utility(clone), -10.0, 1e-5);
  ov_domain_delete(clone);
  ASSERT_EQ(ov_node_select_state(test, 1), ov_error_none);
  EXPECT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_inconsistency_or_underflow);
  EXPECT_NEAR(ov_domain_get_expected_utility(domain), 22.5, 1e-5);
  // Only sum propagation in normal mode solves an influence diagram.
  EXPECT_EQ(ov_domain_propagate(domain, ov_equilibrium_max, ov_mode_normal), ov_error_usage);
  EXPECT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_fast_retraction), ov_error_usage);
  ov_domain_delete(domain);
}

// A random influence diagram: decisions in a total order, chance nodes each
// observed just before some decision or never, utilities over random nodes.
struct RandomDiagram {
  ov_domain_t domain = nullptr;
  std::vector<ov_node_t> nodes; // decisions first, then chance, then utility nodes
  std::vector<std::uint32_t> states;
  std::vector<int> slot;        // chance: observed before decision `slot`, or never (= decision count)
  std::vector<bool> descendant; // chance: a descendant of some decision
  int decisions = 0, chance = 0, utilities = 0;

  int index(ov_node_t node) const {
    return static_cast<int>(std::find(nodes.begin(), nodes.end(), node) - nodes.begin());
  }

  static RandomDiagram make(std::mt19937 &rng) {
    RandomDiagram d;
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    d.domain = ov_new_domain();
    d.decisions = 1 + pick(3);
    d.chance = 1 + pick(6);
    d.utilities = 1 + pick(3);
    auto add = [&](ov_category_t category, std::uint32_t states) {
      ov_node_t node = ov_domain_new_node(d.domain, category, ov_kind_discrete);
      if (category != ov_category_utility) ov_node_set_number_of_states(node, states);
      d.nodes.push_back(node);
      d.states.push_back(states);
    };
    for (int i = 0; i < d.decisions; ++i) add(ov_category_decision, 2 + static_cast<std::uint32_t>(pick(2)));
    for (int i = 1; i < d.decisions; ++i) ov_node_add_parent(d.nodes[i], d.nodes[i - 1]);
    d.slot.assign(d.nodes.size() + d.chance, 0);
    d.descendant.assign(d.nodes.size() + d.chance, false);
    for (int c = 0; c < d.chance; ++c) {
      const int self = d.decisions + c;
      add(ov_category_chance, 2 + static_cast<std::uint32_t>(pick(2)));
      for (int p = d.decisions; p < self; ++p)
        if (pick(3) == 0) {
          ov_node_add_parent(d.nodes[self], d.nodes[p]);
          if (d.descendant[p]) d.descendant[self] = true;
        }
      for (int k = 0; k < d.decisions; ++k)
        if (pick(3) == 0) {
          ov_node_add_parent(d.nodes[self], d.nodes[k]);
          d.descendant[self] = true;
        }
      // Seen no earlier than after its latest ancestor decision.
      int latest = 0;
      for (int k = 0; k < d.decisions; ++k)
        if (ancestor(d, k, self)) latest = k + 1;
      d.slot[self] = latest + pick(d.decisions + 1 - latest);
      if (d.slot[self] < d.decisions) ov_node_add_parent(d.nodes[d.slot[self]], d.nodes[self]);
    }
    for (int u = 0; u < d.utilities; ++u) {
      add(ov_category_utility, 0);
      for (int p = 0; p < d.decisions + d.chance; ++p)
        if (pick(3) == 0) ov_node_add_parent(d.nodes.back(), d.nodes[p]);
    }
    std::uniform_real_distribution<float> unit(0.05f, 1.0f), money(-10.0f, 10.0f);
    for (std::size_t i = static_cast<std::size_t>(d.decisions); i < d.nodes.size(); ++i) {
      ov_table_t table = ov_node_get_table(d.nodes[i]);
      float *data = ov_table_get_data(table);
      const std::uint32_t size = ov_table_get_size(table);
      const bool utility = static_cast<int>(i) >= d.decisions + d.chance;
      for (std::uint32_t k = 0; k < size; ++k) data[k] = utility ? money(rng) : (pick(5) == 0 ? 0.0f : unit(rng));
      if (utility) continue;
      for (std::uint32_t row = 0; row < size; row += d.states[i]) {
        float total = 0.0f;
        for (std::uint32_t k = 0; k < d.states[i]; ++k) total += data[row + k];
        if (total == 0.0f) data[row] = total = 1.0f;
        for (std::uint32_t k = 0; k < d.states[i]; ++k) data[row + k] /= total;
      }
    }
    return d;
  }

  // Whether decision k is an ancestor of node `self` through chance arcs.
  static bool ancestor(const RandomDiagram &d, int k, int self) {
    ov_node_t *parents = ov_node_get_parents(d.nodes[self]);
    for (int i = 0; parents != nullptr && parents[i] != nullptr; ++i) {
      const int p = d.index(parents[i]);
      if (p == k || (p >= d.decisions && ancestor(d, k, p))) return true;
    }
    return false;
  }

  // A table's cell at the configuration x (a state per node).
  static float cell(ov_node_t node, const std::vector<int> &x, const RandomDiagram &d) {
    return cell(ov_node_get_table(node), x, d);
  }
  static float cell(ov_table_t table, const std::vector<int> &x, const RandomDiagram &d) {
    ov_node_t *members = ov_table_get_nodes(table);
    std::size_t offset = 0;
    for (int i = 0; members[i] != nullptr; ++i) {
      const int m = d.index(members[i]);
      offset = offset * d.states[m] + static_cast<std::size_t>(x[m]);
    }
    return ov_table_get_data(table)[offset];
  }

  ~RandomDiagram() {
    if (domain != nullptr) ov_domain_delete(domain);
  }
};

// The roll-back: sum over the chance nodes seen before the first decision,
// the best option of it, sum over those seen next, ..., sum over the rest;
// each option valued by its probability-weighted utility. `fixed` pins
// decisions (-1 open) and `finding` chance nodes (-1 none).
struct Rollback {
  const RandomDiagram &d;
  std::vector<int> fixed, finding;
  std::vector<int> x;

  // The weight and the weighted utility of the subtree from stage `stage`.
  std::pair<double, double> stage(int s) {
    std::vector<int> seen;
    for (int c = d.decisions; c < d.decisions + d.chance; ++c)
      if (d.slot[c] == s) seen.push_back(c);
    return sum(s, seen, 0);
  }
  // A choice of the roll-back: the decision, the history, the best option
  // and its lead over the next best in expected utility.
  struct Made {
    int decision;
    std::vector<int> x;
    int option;
    double lead;
  };
  std::vector<Made> *made = nullptr;
  // Open decisions follow these policy tables (one per decision) if given.
  const std::vector<ov_table_t> *policies = nullptr;

  std::pair<double, double> sum(int s, const std::vector<int> &seen, std::size_t at) {
    if (at < seen.size()) {
      std::pair<double, double> total{0.0, 0.0};
      for (int v = 0; v < static_cast<int>(d.states[seen[at]]); ++v) {
        if (finding[seen[at]] >= 0 && finding[seen[at]] != v) continue;
        x[seen[at]] = v;
        const auto part = sum(s, seen, at + 1);
        total.first += part.first;
        total.second += part.second;
      }
      return total;
    }
    if (s == d.decisions) return leaf();
    if (policies != nullptr && fixed[s] < 0) {
      for (int v = 0; v < static_cast<int>(d.states[s]); ++v) {
        x[s] = v;
        if (RandomDiagram::cell((*policies)[static_cast<std::size_t>(s)], x, d) == 1.0f) break;
      }
      return stage(s + 1);
    }
    std::pair<double, double> best{0.0, 0.0};
    double second = -HUGE_VAL;
    int chosen = -1;
    for (int v = 0; v < static_cast<int>(d.states[s]); ++v) {
      if (fixed[s] >= 0 && fixed[s] != v) continue;
      x[s] = v;
      const auto option = stage(s + 1);
      if (chosen < 0 || option.second > best.second) {
        if (chosen >= 0) second = best.second;
        best = option;
        chosen = v;
      } else {
        second = std::max(second, option.second);
      }
    }
    if (made != nullptr && fixed[s] < 0 && best.first > 0.0) {
      x[s] = chosen;
      made->push_back({s, x, chosen, (best.second - second) / best.first});
    }
    return best;
  }
  std::pair<double, double> leaf() {
    double p = 1.0, u = 0.0;
    for (int c = d.decisions; c < d.decisions + d.chance; ++c) p *= RandomDiagram::cell(d.nodes[c], x, d);
    for (int k = d.decisions + d.chance; k < static_cast<int>(d.nodes.size()); ++k)
      u += RandomDiagram::cell(d.nodes[k], x, d);
    return {p, p * u};
  }
  double meu() {
    x.assign(d.nodes.size(), 0);
    const auto root = stage(0);
    return root.second / root.first;
  }
};

// What cannot be an influence diagram is refused with its code, and the
// domain stays as it was.
TEST(InfluenceDiagram, BadDiagramsAreRefusedAndChangeNothing) {
  ov_domain_t domain = ov_new_domain();
  ov_node_t d1 = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  ov_node_t d2 = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  ov_node_t c = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  ov_node_t u = ov_domain_new_node(domain, ov_category_utility, ov_kind_discrete);
  ASSERT_EQ(ov_node_add_parent(c, d1), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(u, c), ov_error_none);
  ASSERT_EQ(ov_node_add_parent(u, d2), ov_error_none);
  // No path holds both decisions.
  EXPECT_EQ(ov_domain_compile(domain), ov_error_decision_order);
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  // A utility has no children; a cycle through a decision is a cycle.
  EXPECT_EQ(ov_node_add_parent(d2, u), ov_error_usage);
  EXPECT_EQ(ov_node_add_parent(d1, c), ov_error_cyclic_network);
  EXPECT_EQ(ov_node_get_parents(d2)[0], nullptr);
  EXPECT_EQ(ov_node_get_parents(d1)[0], nullptr);
  // Continuous nodes do not join decisions.
  EXPECT_EQ(ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_cg_influence_diagrams_not_supported);
  int nodes = 0;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) ++nodes;
  EXPECT_EQ(nodes, 4);
  // Ordered, it compiles.
  ASSERT_EQ(ov_node_add_parent(d2, c), ov_error_none);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_none);
  ov_domain_delete(domain);
}

TEST(InfluenceDiagram, RandomDiagramsAgreeWithRollback) {
  std::mt19937 rng(2024);
  int checked = 0;
  for (int trial = 0; trial < 150; ++trial) {
    RandomDiagram d = RandomDiagram::make(rng);
    ASSERT_EQ(ov_domain_compile(d.domain), ov_error_none) << "trial " << trial;
    const std::vector<int> open(d.nodes.size(), -1);
    // Without evidence, with a finding on a chance node that no decision
    // influences, and with the first decision taken.
    for (int round = 0; round < 3; ++round) {
      Rollback ref{d, open, open, {}};
      ov_domain_retract_findings(d.domain);
      if (round == 1) {
        int c = d.decisions + static_cast<int>(rng() % static_cast<unsigned>(d.chance));
        if (d.descendant[c]) continue;
        ref.finding[c] = static_cast<int>(rng() % d.states[c]);
        ASSERT_EQ(ov_node_select_state(d.nodes[c], static_cast<ov_index_t>(ref.finding[c])), ov_error_none);
      }
      if (round == 2) {
        ref.fixed[0] = static_cast<int>(rng() % d.states[0]);
        ASSERT_EQ(ov_node_select_state(d.nodes[0], static_cast<ov_index_t>(ref.fixed[0])), ov_error_none);
      }
      const ov_status_t status = ov_domain_propagate(d.domain, ov_equilibrium_sum, ov_mode_normal);
      if (round == 1 && status == ov_error_inconsistency_or_underflow) continue;
      ASSERT_EQ(status, ov_error_none) << "trial " << trial << " round " << round;
      const double meu = ref.meu();
      EXPECT_LT(relative_gap(ov_domain_get_expected_utility(d.domain), meu), 1e-6)
          << "trial " << trial << " round " << round;
      // Every option of the first two decisions: the best with it taken.
      for (int k = 0; k < std::min(d.decisions, 2); ++k)
        for (int v = 0; v < static_cast<int>(d.states[k]); ++v) {
          Rollback option = ref;
          option.fixed[k] = v;
          EXPECT_LT(relative_gap(ov_node_get_expected_utility(d.nodes[k], static_cast<ov_index_t>(v)), option.meu()),
                    1e-6)
              << "trial " << trial << " round " << round << " decision " << k << " option " << v;
        }
      // The policies: wherever the history is possible and the best option
      // leads by more than the accuracy asked of expected utilities, the
      // engine's table picks it.
      std::vector<Rollback::Made> made;
      Rollback chooser = ref;
      chooser.made = &made;
      chooser.meu();
      std::vector<ov_table_t> policies;
      for (int k = 0; k < d.decisions; ++k) {
        policies.push_back(ov_node_get_policy(d.nodes[k]));
        ASSERT_NE(policies.back(), nullptr);
        for (const Rollback::Made &m : made) {
          if (m.decision == k && m.lead > 1e-6) {
            EXPECT_EQ(RandomDiagram::cell(policies.back(), m.x, d), 1.0f)
                << "trial " << trial << " round " << round << " decision " << k;
          }
        }
      }
      // Beliefs of a chance node and the probability of the findings, the
      // open decisions following the engine's policies.
      const int c = d.decisions + static_cast<int>(rng() % static_cast<unsigned>(d.chance));
      Rollback prior = ref;
      prior.policies = &policies;
      prior.x.assign(d.nodes.size(), 0);
      const double evidence = prior.stage(0).first;
      EXPECT_NEAR(ov_domain_get_normalization_constant(d.domain), evidence, 1e-6);
      for (int v = 0; v < static_cast<int>(d.states[c]); ++v) {
        Rollback state = prior;
        if (state.finding[c] >= 0 && state.finding[c] != v) continue;
        state.finding[c] = v;
        EXPECT_NEAR(ov_node_get_belief(d.nodes[c], static_cast<ov_index_t>(v)), state.stage(0).first / evidence, 1e-5)
            << "trial " << trial << " round " << round << " node " << c;
      }
      for (ov_table_t policy : policies) ov_table_delete(policy);
      ++checked;
    }
  }
  EXPECT_GT(checked, 250);
}

} // namespace
} // namespace orvel::test
