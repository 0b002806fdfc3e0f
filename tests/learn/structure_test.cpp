// Structure learning: G² and p-values against a plain computation, recovery
// of a small known structure, constraints obeyed, refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

// Regularised upper incomplete gamma Q(a, x), plain series and continued
// fraction in long double.
double upper_gamma(double a, double x) {
  using R = long double;
  if (x <= 0) return 1.0;
  const R log_front = a * std::log(R(x)) - R(x) - std::lgamma(R(a));
  if (x < a + 1) {
    R term = 1 / R(a), sum = term;
    for (int n = 1; n < 10000 && std::fabs(term) > std::fabs(sum) * 1e-19L; ++n) sum += term *= R(x) / (a + n);
    return double(1 - sum * std::exp(log_front));
  }
  R b = x + 1 - a, c = 1 / 1e-300L, d = 1 / b, h = d;
  for (int i = 1; i < 10000; ++i) {
    const R an = -i * (i - a);
    b += 2;
    d = an * d + b;
    c = b + an / c;
    d = 1 / d;
    const R delta = d * c;
    h *= delta;
    if (std::fabs(delta - 1) < 1e-19L) break;
  }
  return double(std::exp(log_front) * h);
}

ov_node_t add_node(ov_domain_t domain, const char *name, int states) {
  ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  EXPECT_EQ(ov_node_set_name(node, name), 0);
  EXPECT_EQ(ov_node_set_number_of_states(node, states), 0);
  return node;
}

std::vector<ov_node_t> parents(ov_node_t node) {
  std::vector<ov_node_t> list;
  for (ov_node_t *p = ov_node_get_parents(node); *p != nullptr; ++p) list.push_back(*p);
  return list;
}

TEST(StructureLearning, MarginalTestMatchesPlainG2) {
  std::mt19937 rng(7);
  for (int round = 0; round < 20; ++round) {
    ov_domain_t domain = ov_new_domain();
    const int nx = 2 + round % 4, ny = 2 + round % 3;
    ov_node_t x = add_node(domain, "X", nx), y = add_node(domain, "Y", ny);
    // One case per cell, weighted by its count; some rows and columns empty.
    std::vector<std::vector<double>> cells(nx, std::vector<double>(ny));
    const int empty_row = round % 2 ? int(rng() % nx) : -1, empty_column = round % 3 ? int(rng() % ny) : -1;
    for (int i = 0; i < nx; ++i)
      for (int j = 0; j < ny; ++j) {
        const double count = (i == empty_row || j == empty_column) ? 0 : double(rng() % (round < 10 ? 30 : 3));
        cells[i][j] = count;
        const ov_index_t c = ov_domain_new_case(domain);
        ASSERT_EQ(ov_node_set_case_state(x, c, i), 0);
        ASSERT_EQ(ov_node_set_case_state(y, c, j), 0);
        ASSERT_EQ(ov_domain_set_case_count(domain, c, float(count)), 0);
      }
    std::vector<double> rows(nx), columns(ny);
    double total = 0;
    for (int i = 0; i < nx; ++i)
      for (int j = 0; j < ny; ++j) rows[i] += cells[i][j], columns[j] += cells[i][j], total += cells[i][j];
    double g2 = 0;
    int r = 0, k = 0;
    for (double v : rows) r += v > 0;
    for (double v : columns) k += v > 0;
    for (int i = 0; i < nx; ++i)
      for (int j = 0; j < ny; ++j)
        if (cells[i][j] > 0) g2 += 2 * cells[i][j] * std::log(cells[i][j] * total / (rows[i] * columns[j]));
    const int df = (r < 2 || k < 2) ? 0 : (r - 1) * (k - 1);
    const double expected = df == 0 ? 1.0 : upper_gamma(df / 2.0, g2 / 2.0);

    ASSERT_EQ(ov_domain_learn_structure(domain), 0);
    const double p = ov_node_get_data_independency(x, y);
    EXPECT_NEAR(p, expected, 1e-9 * expected + 1e-300) << "round " << round << " G2 " << g2 << " df " << df;
    EXPECT_EQ(parents(x).size() + parents(y).size(), expected < 0.05 ? 1u : 0u);
    ov_domain_delete(domain);
  }
}

// Draws cases from a network given by NET text into an edgeless domain
// with the same nodes; a fraction of the entries is left absent.
ov_domain_t cases_from(const char *net, int count, double missing, std::uint32_t seed) {
  ov_domain_t source = ov_net_parse_from_string(net, nullptr);
  EXPECT_NE(source, nullptr);
  EXPECT_EQ(ov_domain_compile(source), 0);
  EXPECT_EQ(ov_domain_seed_random(source, seed), 0);
  ov_domain_t learner = ov_new_domain();
  std::vector<std::pair<ov_node_t, ov_node_t>> nodes;
  for (ov_node_t n = ov_domain_get_first_node(source); n != nullptr; n = ov_node_get_next(n))
    nodes.push_back({n, nullptr});
  for (auto it = nodes.rbegin(); it != nodes.rend(); ++it)
    it->second = add_node(learner, ov_node_get_name(it->first), int(ov_node_get_number_of_states(it->first)));
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> uniform;
  for (int c = 0; c < count; ++c) {
    EXPECT_EQ(ov_domain_simulate(source), 0);
    const ov_index_t index = ov_domain_new_case(learner);
    for (auto [from, to] : nodes)
      if (uniform(rng) >= missing) {
        EXPECT_EQ(ov_node_set_case_state(to, index, ov_node_get_sampled_state(from)), 0);
      }
  }
  ov_domain_delete(source);
  return learner;
}

// A collider A -> C <- B with C -> D: strong dependencies.
const char *collider_net = R"(net {}
node A { states = ("a0" "a1"); } node B { states = ("b0" "b1"); }
node C { states = ("c0" "c1"); } node D { states = ("d0" "d1"); }
potential (A) { data = (0.5 0.5); } potential (B) { data = (0.4 0.6); }
potential (C | A B) { data = (((0.95 0.05) (0.3 0.7)) ((0.2 0.8) (0.05 0.95))); }
potential (D | C) { data = ((0.9 0.1) (0.15 0.85)); })";

TEST(StructureLearning, RecoversACollider) {
  ov_domain_t domain = cases_from(collider_net, 5000, 0.1, 3);
  std::FILE *log = std::tmpfile();
  ASSERT_EQ(ov_domain_set_log_file(domain, log), 0);
  ASSERT_EQ(ov_domain_learn_structure(domain), 0);
  auto node = [&](const char *name) { return ov_domain_get_node_by_name(domain, name); };
  EXPECT_TRUE(parents(node("A")).empty());
  EXPECT_TRUE(parents(node("B")).empty());
  EXPECT_EQ(parents(node("C")).size(), 2u);
  ASSERT_EQ(parents(node("D")).size(), 1u);
  EXPECT_EQ(parents(node("D"))[0], node("C"));
  EXPECT_GE(ov_node_get_data_independency(node("A"), node("B")), 0.05);
  EXPECT_LT(ov_node_get_data_independency(node("A"), node("D")), 1e-6);

  std::rewind(log);
  std::string text(1 << 16, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), log));
  std::fclose(log);
  for (const char *line : {"\nIdentifying skeleton:\n", "3 edges out of 6\n", "\nIdentifying colliders:\n",
                           "\nPDAG has an admissible DAG extension.\n", "\nIdentifying derived directions:\n",
                           "R0: A -> C <- B\n", "R1: A -> C - D => C -> D\n", "\nCompleting orientation:\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line << " not in\n" << text;
  ov_domain_delete(domain);
}

TEST(StructureLearning, ConstraintsAreObeyed) {
  std::FILE *asia = std::fopen(ORVEL_NETWORKS "/asia.net", "rb");
  ASSERT_NE(asia, nullptr);
  std::string net(1 << 16, '\0');
  net.resize(std::fread(net.data(), 1, net.size(), asia));
  std::fclose(asia);
  std::mt19937 rng(11);
  for (int round = 0; round < 6; ++round) {
    ov_domain_t domain = cases_from(net.c_str(), 3000, 0.05, 100 + round);
    std::vector<ov_node_t> nodes;
    for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
    // Directions required or forbidden follow one random order, so that they
    // cannot form a cycle among themselves.
    std::shuffle(nodes.begin(), nodes.end(), rng);
    struct Rule {
      ov_node_t a, b;
      ov_edge_constraint_t c;
    };
    std::vector<Rule> rules;
    for (std::size_t i = 0; i < nodes.size(); ++i)
      for (std::size_t j = i + 1; j < nodes.size(); ++j) {
        if (rng() % 4 != 0) continue;
        const auto c = ov_edge_constraint_t(ov_constraint_edge_required + rng() % 6);
        const bool later_first = c == ov_constraint_backward_edge_required || c == ov_constraint_forward_edge_forbidden;
        rules.push_back(later_first ? Rule{nodes[j], nodes[i], c} : Rule{nodes[i], nodes[j], c});
        ASSERT_EQ(ov_node_set_edge_constraint(rules.back().a, rules.back().b, c), 0);
      }
    ASSERT_EQ(ov_domain_learn_structure(domain), 0) << round;
    for (const Rule &rule : rules) {
      const auto pa = parents(rule.a), pb = parents(rule.b);
      const bool a_to_b = std::count(pb.begin(), pb.end(), rule.a), b_to_a = std::count(pa.begin(), pa.end(), rule.b);
      switch (rule.c) {
      case ov_constraint_edge_required: EXPECT_TRUE(a_to_b || b_to_a); break;
      case ov_constraint_forward_edge_required: EXPECT_TRUE(a_to_b); break;
      case ov_constraint_backward_edge_required: EXPECT_TRUE(b_to_a); break;
      case ov_constraint_edge_forbidden: EXPECT_FALSE(a_to_b || b_to_a); break;
      case ov_constraint_forward_edge_forbidden: EXPECT_FALSE(a_to_b); break;
      default: EXPECT_FALSE(b_to_a); break;
      }
    }
    EXPECT_EQ(ov_domain_compile(domain), 0); // acyclic
    ov_domain_delete(domain);
  }
}

TEST(StructureLearning, Refusals) {
  ov_domain_t domain = ov_new_domain();
  ov_node_t a = add_node(domain, "A", 2), b = add_node(domain, "B", 2);
  EXPECT_EQ(ov_domain_learn_structure(domain), 0); // no cases: nothing learnt
  EXPECT_EQ(ov_node_get_data_independency(a, b), -1.0);
  ASSERT_EQ(ov_domain_set_number_of_cases(domain, 10), 0);
  for (int c = 0; c < 10; ++c) ASSERT_EQ(ov_node_set_case_state(a, c, c % 2), 0);
  ASSERT_EQ(ov_node_set_case_state(b, 0, 0), 0); // one row of data only
  EXPECT_EQ(ov_domain_learn_structure(domain), 0);
  EXPECT_EQ(ov_node_get_data_independency(a, b), 1.0); // no degrees of freedom
  EXPECT_EQ(ov_node_get_data_independency(a, a), -1.0);
  ASSERT_EQ(ov_node_add_parent(b, a), 0);
  EXPECT_EQ(ov_domain_learn_structure(domain), ov_error_usage);
  EXPECT_EQ(parents(b).size(), 1u);
  ASSERT_EQ(ov_node_remove_parent(b, a), 0);
  ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  EXPECT_EQ(ov_domain_learn_structure(domain), ov_error_usage);
  ov_domain_delete(domain);
}

} // namespace
