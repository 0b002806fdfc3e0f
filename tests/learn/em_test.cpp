// EM learning against a plain EM that enumerates each case's completions,
// recovery of asia's tables from simulated cases, and adaptation against
// counts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

// A discrete network as the reference sees it: for each node its table's
// nodes (as indices, the node itself last) and the table cells.
struct Reference {
  std::vector<ov_node_t> nodes;
  std::vector<std::vector<int>> family; // node indices of each table, in table order
  std::vector<std::vector<double>> table;
  std::vector<std::vector<double>> experience; // empty: not learned

  int states(int v) const { return static_cast<int>(ov_node_get_number_of_states(nodes[v])); }
  std::size_t cell(int v, const std::vector<int> &config) const {
    std::size_t c = 0;
    for (int u : family[v]) c = c * states(u) + config[u];
    return c;
  }
};

Reference read_reference(ov_domain_t domain) {
  Reference r;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) r.nodes.push_back(n);
  for (ov_node_t n : r.nodes) {
    ov_table_t t = ov_node_get_table(n);
    std::vector<int> f;
    for (ov_node_t *m = ov_table_get_nodes(t); *m != nullptr; ++m)
      for (std::size_t k = 0; k < r.nodes.size(); ++k)
        if (r.nodes[k] == *m) f.push_back(static_cast<int>(k));
    r.family.push_back(f);
    const ov_number_t *data = ov_table_get_data(t);
    r.table.emplace_back(data, data + ov_table_get_size(t));
    std::vector<double> e;
    if (ov_node_has_experience_table(n) == 1) {
      ov_table_t x = ov_node_get_experience_table(n);
      e.assign(ov_table_get_data(x), ov_table_get_data(x) + ov_table_get_size(x));
    }
    r.experience.push_back(e);
  }
  return r;
}

// One EM iteration by enumeration: returns the log-likelihood of the cases
// under the tables of `r` and leaves the M-step's tables and the expected
// counts' experience in `r`. The prior is that of `start`, EM's first
// tables and experience. With `group`, nodes share the counts and the
// table of the node their group names (class learning).
double reference_iteration(Reference &r, const Reference &start, ov_domain_t domain,
                           const std::vector<int> *group = nullptr) {
  const int n = static_cast<int>(r.nodes.size());
  std::vector<std::vector<double>> counts(n);
  auto owner = [&](int v) { return group != nullptr ? (*group)[v] : v; };
  for (int v = 0; v < n; ++v) {
    if (r.experience[v].empty() || owner(v) != v) continue;
    counts[v].assign(r.table[v].size(), 0.0);
    const int s = r.states(v);
    for (std::size_t j = 0; j < r.experience[v].size(); ++j)
      if (start.experience[v][j] > 0)
        for (int k = 0; k < s; ++k) counts[v][j * s + k] = start.table[v][j * s + k] * start.experience[v][j];
  }
  double ll = 0.0;
  const int cases = static_cast<int>(ov_domain_get_number_of_cases(domain));
  std::vector<double> weights;
  std::vector<std::vector<int>> configs;
  for (int i = 0; i < cases; ++i) {
    const double c = ov_domain_get_case_count(domain, i);
    if (c <= 0) continue;
    weights.clear();
    configs.clear();
    std::vector<int> config(n, 0);
    double evidence = 0.0;
    for (;;) {
      bool consistent = true;
      for (int v = 0; v < n && consistent; ++v)
        consistent = ov_node_case_is_set(r.nodes[v], i) == 0 || ov_node_get_case_state(r.nodes[v], i) == config[v];
      if (consistent) {
        double p = 1.0;
        for (int v = 0; v < n; ++v) p *= r.table[v][r.cell(v, config)];
        evidence += p;
        weights.push_back(p);
        configs.push_back(config);
      }
      int v = n - 1;
      while (v >= 0 && ++config[v] == r.states(v)) config[v--] = 0;
      if (v < 0) break;
    }
    ll += c * std::log(evidence);
    for (std::size_t k = 0; k < configs.size(); ++k)
      for (int v = 0; v < n; ++v)
        if (!counts[owner(v)].empty()) counts[owner(v)][r.cell(v, configs[k])] += c * weights[k] / evidence;
  }
  for (int v = 0; v < n; ++v) {
    if (r.experience[v].empty() || counts[owner(v)].empty()) continue;
    const int s = r.states(v);
    const std::vector<double> &sums = counts[owner(v)];
    for (std::size_t j = 0; j < r.experience[v].size(); ++j) {
      double sum = 0.0;
      for (int k = 0; k < s; ++k) sum += sums[j * s + k];
      for (int k = 0; k < s; ++k) r.table[v][j * s + k] = sum > 0 ? sums[j * s + k] / sum : 1.0 / s;
      r.experience[v][j] = sum;
    }
  }
  return ll;
}

ov_node_t chance(ov_domain_t d, int states, std::initializer_list<ov_node_t> parents) {
  ov_node_t n = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete);
  EXPECT_EQ(ov_node_set_number_of_states(n, states), 0);
  for (ov_node_t p : parents) EXPECT_EQ(ov_node_add_parent(n, p), 0);
  return n;
}

void fill_random(ov_table_t t, int states, std::mt19937 &rng) {
  ov_number_t *data = ov_table_get_data(t);
  std::uniform_real_distribution<double> u(0.05, 1.0);
  for (ov_count_t j = 0; j < ov_table_get_size(t); j += states) {
    double sum = 0;
    for (int k = 0; k < states; ++k) sum += data[j + k] = static_cast<ov_number_t>(u(rng));
    for (int k = 0; k < states; ++k) data[j + k] = static_cast<ov_number_t>(data[j + k] / sum);
  }
}

std::string read_all(std::FILE *f) {
  std::string text;
  std::rewind(f);
  for (int ch; (ch = std::fgetc(f)) != EOF;) text += static_cast<char>(ch);
  return text;
}

// Five nodes, one with two parents, one not learned; 60 cases with a third
// of the entries missing, some counts other than 1, one of 0.
struct SmallNetwork : ::testing::Test {
  ov_domain_t d = ov_new_domain();
  std::mt19937 rng{20261123};
  ov_node_t a = chance(d, 2, {});
  ov_node_t b = chance(d, 3, {a});
  ov_node_t c = chance(d, 2, {a});
  ov_node_t e = chance(d, 2, {b, c});
  ov_node_t f = chance(d, 3, {e});
  void SetUp() override {
    for (ov_node_t n : {a, b, c, e, f})
      fill_random(ov_node_get_table(n), static_cast<int>(ov_node_get_number_of_states(n)), rng);
    ASSERT_EQ(ov_domain_compile(d), 0);
    ASSERT_EQ(ov_domain_set_number_of_cases(d, 60), 0);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int i = 0; i < 60; ++i) {
      for (ov_node_t n : {a, b, c, e, f})
        if (u(rng) > 0.33) {
          const auto state = static_cast<ov_index_t>(u(rng) * ov_node_get_number_of_states(n));
          ASSERT_EQ(ov_node_set_case_state(n, i, state), 0);
        }
      if (i % 7 == 3) {
        ASSERT_EQ(ov_domain_set_case_count(d, i, 2.5f), 0);
      }
    }
    ASSERT_EQ(ov_domain_set_case_count(d, 10, 0.0f), 0);
    // Experience: none on f; a prior on some configurations of e and b.
    for (ov_node_t n : {a, b, c, e}) ASSERT_NE(ov_node_get_experience_table(n), nullptr);
    ov_table_get_data(ov_node_get_experience_table(e))[1] = 4.0f;
    ov_table_get_data(ov_node_get_experience_table(e))[2] = 0.5f;
    ov_table_get_data(ov_node_get_experience_table(b))[0] = 3.0f;
  }
  void TearDown() override { ov_domain_delete(d); }
};

TEST_F(SmallNetwork, EmMatchesEnumerationPerIteration) {
  const Reference start = read_reference(d);
  for (int iterations = 1; iterations <= 4; ++iterations) {
    // Back to the same start.
    for (std::size_t v = 0; v < start.nodes.size(); ++v) {
      ov_number_t *data = ov_table_get_data(ov_node_get_table(start.nodes[v]));
      for (std::size_t k = 0; k < start.table[v].size(); ++k) data[k] = static_cast<ov_number_t>(start.table[v][k]);
      ASSERT_EQ(ov_node_touch_table(start.nodes[v]), 0);
      if (start.experience[v].empty()) continue;
      ov_number_t *x = ov_table_get_data(ov_node_get_experience_table(start.nodes[v]));
      for (std::size_t k = 0; k < start.experience[v].size(); ++k)
        x[k] = static_cast<ov_number_t>(start.experience[v][k]);
    }
    ASSERT_EQ(ov_domain_set_max_number_of_em_iterations(d, iterations), 0);
    ASSERT_EQ(ov_domain_set_log_likelihood_tolerance(d, 0.0), 0);
    std::FILE *log = std::tmpfile();
    ASSERT_EQ(ov_domain_set_log_file(d, log), 0);
    ASSERT_EQ(ov_domain_learn_tables(d), 0);
    ASSERT_EQ(ov_domain_set_log_file(d, nullptr), 0);
    const std::string text = read_all(log);
    std::fclose(log);

    Reference ref = start;
    std::string expected = "EM learning with 60 cases:\n\n";
    std::vector<double> lls;
    for (int k = 1; k <= iterations; ++k) lls.push_back(reference_iteration(ref, start, d));
    const double final_ll = reference_iteration(ref, start, d); // the tables after the last M-step
    ref = start;
    for (int k = 1; k <= iterations; ++k) reference_iteration(ref, start, d);

    const Reference got = read_reference(d);
    for (std::size_t v = 0; v < ref.nodes.size(); ++v) {
      for (std::size_t k = 0; k < ref.table[v].size(); ++k)
        EXPECT_NEAR(got.table[v][k], ref.table[v][k], 1e-6) << iterations << " node " << v << " cell " << k;
      for (std::size_t k = 0; k < ref.experience[v].size(); ++k)
        EXPECT_NEAR(got.experience[v][k], ref.experience[v][k], 1e-4) << iterations << " node " << v;
    }
    EXPECT_NEAR(ov_domain_get_log_likelihood(d), final_ll, 1e-6 * std::fabs(final_ll));
    // The log prints each iteration's log-likelihood with %g.
    char line[128];
    for (int k = 0; k < iterations; ++k) {
      std::snprintf(line, sizeof line, "    Log-likelihood for iteration %d: %g\n", k + 1, lls[k]);
      expected += line;
    }
    std::snprintf(line, sizeof line,
                  "\nEM learning - final results:\n\n    Log-likelihood: %g\n    AIC: %g\n    BIC: %g\n", final_ll,
                  final_ll - 17, final_ll - 17 * std::log(60.0) / 2); // 17 free parameters
    expected += line;
    EXPECT_EQ(text, expected);
  }
}

TEST_F(SmallNetwork, StoppingRulesAndRefusals) {
  // No experience anywhere: nothing changes, and the second pass repeats the first.
  for (ov_node_t n : {a, b, c, e}) ASSERT_EQ(ov_table_delete(ov_node_get_experience_table(n)), 0);
  const double before = ov_domain_get_log_likelihood(d);
  std::FILE *log = std::tmpfile();
  ASSERT_EQ(ov_domain_set_log_file(d, log), 0);
  ASSERT_EQ(ov_domain_learn_tables(d), 0);
  const std::string text = read_all(log);
  std::fclose(log);
  EXPECT_NE(text.find("iteration 2:"), std::string::npos);
  EXPECT_EQ(text.find("iteration 3:"), std::string::npos);
  EXPECT_EQ(ov_domain_get_log_likelihood(d), before);
  ASSERT_EQ(ov_domain_set_log_file(d, nullptr), 0);

  ov_domain_t empty = ov_new_domain();
  chance(empty, 2, {});
  EXPECT_EQ(ov_domain_learn_tables(empty), ov_error_usage); // no cases
  ASSERT_EQ(ov_domain_set_number_of_cases(empty, 1), 0);
  EXPECT_EQ(ov_domain_learn_tables(empty), ov_error_not_compiled);
  EXPECT_EQ(ov_domain_get_log_likelihood(empty), 1.0);
  ov_node_t decision = ov_domain_new_node(empty, ov_category_decision, ov_kind_discrete);
  ASSERT_NE(decision, nullptr);
  EXPECT_EQ(ov_domain_learn_tables(empty), ov_error_usage); // a decision without a value
  EXPECT_EQ(ov_domain_learn_class_tables(empty), ov_error_usage);
  ov_domain_delete(empty);
}

// Two instances of one class share its table: class learning against the
// reference with shared counts, the prior taken once from the class node.
TEST(EmClassTables, InstancesShareCounts) {
  const std::string path = ::testing::TempDir() + "em_classes.net";
  std::FILE *file = std::fopen(path.c_str(), "w");
  ASSERT_NE(file, nullptr);
  std::fputs("class M { outputs = (Y); node X { states = (\"a\" \"b\"); } node Y { states = (\"a\" \"b\" \"c\"); }\n"
             "  potential (X) { data = (0.3 0.7); }\n"
             "  potential (Y | X) { data = ((0.2 0.3 0.5) (0.6 0.3 0.1)); } }\n"
             "class Top { instance I1 : M () {} instance I2 : M () {} node Z { states = (\"n\" \"y\"); }\n"
             "  potential (Z | I1.Y) { data = ((0.4 0.6) (0.5 0.5) (0.9 0.1)); } }\n",
             file);
  std::fclose(file);
  ov_class_collection_t cc = ov_new_class_collection();
  ASSERT_EQ(ov_net_parse_classes(path.c_str(), cc, nullptr, nullptr, nullptr), 0);
  ov_class_t m = ov_cc_get_class_by_name(cc, "M"), top = ov_cc_get_class_by_name(cc, "Top");
  ov_node_t my = ov_class_get_node_by_name(m, "Y");
  ASSERT_NE(ov_node_get_experience_table(ov_class_get_node_by_name(m, "X")), nullptr);
  ov_table_get_data(ov_node_get_experience_table(my))[0] = 2.0f;
  ov_domain_t d = ov_class_create_domain(top);
  ASSERT_NE(d, nullptr);
  ASSERT_EQ(ov_domain_compile(d), 0);
  Reference start = read_reference(d);
  auto source_of = [](ov_node_t n) {
    ov_node_t *sources = ov_node_get_source(n);
    while (sources[1] != nullptr) ++sources;
    return *sources;
  };
  auto node_of = [&](ov_node_t source) {
    for (ov_node_t n = ov_domain_get_first_node(d); n != nullptr; n = ov_node_get_next(n))
      if (source_of(n) == source) return n;
    return ov_node_t{};
  };
  std::vector<int> group(start.nodes.size());
  for (std::size_t v = 0; v < start.nodes.size(); ++v) {
    group[v] = static_cast<int>(v);
    for (std::size_t u = 0; u < v; ++u)
      if (source_of(start.nodes[u]) == source_of(start.nodes[v])) group[v] = group[u];
  }
  ASSERT_EQ(ov_domain_set_number_of_cases(d, 30), 0);
  std::mt19937 rng(8);
  for (int i = 0; i < 30; ++i)
    for (ov_node_t n : start.nodes)
      if (rng() % 3 != 0) {
        ASSERT_EQ(ov_node_set_case_state(n, i, static_cast<ov_index_t>(rng() % ov_node_get_number_of_states(n))), 0);
      }
  ASSERT_EQ(ov_domain_set_max_number_of_em_iterations(d, 3), 0);
  ASSERT_EQ(ov_domain_learn_class_tables(d), 0);
  Reference ref = start;
  for (int k = 0; k < 3; ++k) reference_iteration(ref, start, d, &group);
  const Reference got = read_reference(d);
  for (std::size_t v = 0; v < ref.nodes.size(); ++v) {
    for (std::size_t k = 0; k < ref.table[v].size(); ++k) EXPECT_NEAR(got.table[v][k], ref.table[v][k], 1e-6) << v;
    for (std::size_t k = 0; k < ref.experience[v].size(); ++k)
      EXPECT_NEAR(got.experience[v][k], ref.experience[v][k], 1e-4) << v;
  }
  // The class node holds the shared table.
  const ov_number_t *shared = ov_table_get_data(ov_node_get_table(node_of(my)));
  for (int k = 0; k < 6; ++k) EXPECT_NEAR(ov_table_get_data(ov_node_get_table(my))[k], shared[k], 1e-6);
  // Z's table holds the output clone I1.Y where the domain has the node
  // whose source is M's Y: no correspondence to learn Z's table by.
  ov_node_t z = ov_class_get_node_by_name(top, "Z");
  ASSERT_NE(ov_node_get_experience_table(z), nullptr);
  ASSERT_NE(ov_node_get_experience_table(node_of(z)), nullptr);
  EXPECT_EQ(ov_domain_learn_class_tables(d), ov_error_usage);
  ov_domain_delete(d);
  ov_cc_delete(cc);
  std::remove(path.c_str());
}

// Simulated cases from asia, a fifth of the entries missing: EM from uniform
// tables comes close to the true tables, and at least as likely.
TEST(EmRecovery, AsiaFromUniformTables) {
  ov_domain_t d = ov_net_parse_domain(ORVEL_NETWORKS "/asia.net", nullptr, nullptr);
  ASSERT_NE(d, nullptr);
  ASSERT_EQ(ov_domain_compile(d), 0);
  ASSERT_EQ(ov_domain_seed_random(d, 1234), 0);
  const int cases = 10000;
  ASSERT_EQ(ov_domain_set_number_of_cases(d, cases), 0);
  std::mt19937 rng(99);
  std::bernoulli_distribution missing(0.2);
  std::vector<ov_node_t> nodes;
  for (ov_node_t n = ov_domain_get_first_node(d); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  for (int i = 0; i < cases; ++i) {
    ASSERT_EQ(ov_domain_simulate(d), 0);
    for (ov_node_t n : nodes)
      if (!missing(rng)) {
        ASSERT_EQ(ov_node_set_case_state(n, i, ov_node_get_sampled_state(n)), 0);
      }
  }
  const double true_ll = ov_domain_get_log_likelihood(d);
  std::vector<std::vector<ov_number_t>> truth;
  for (ov_node_t n : nodes) {
    ov_table_t t = ov_node_get_table(n);
    ov_number_t *data = ov_table_get_data(t);
    truth.emplace_back(data, data + ov_table_get_size(t));
    std::fill(data, data + ov_table_get_size(t), 1.0f / static_cast<float>(ov_node_get_number_of_states(n)));
    ASSERT_EQ(ov_node_touch_table(n), 0);
    ASSERT_NE(ov_node_get_experience_table(n), nullptr);
  }
  ASSERT_EQ(ov_domain_learn_tables(d), 0);
  double error = 0.0;
  std::size_t cells = 0;
  for (std::size_t v = 0; v < nodes.size(); ++v) {
    const ov_number_t *data = ov_table_get_data(ov_node_get_table(nodes[v]));
    for (std::size_t k = 0; k < truth[v].size(); ++k, ++cells) error += std::fabs(data[k] - truth[v][k]);
  }
  const double learned_ll = ov_domain_get_log_likelihood(d);
  std::printf("asia: mean absolute error %.5f over %zu cells; log-likelihood %.3f learned, %.3f true\n", error / cells,
              cells, learned_ll, true_ll);
  EXPECT_LT(error / cells, 0.02);
  EXPECT_GE(learned_ll, true_ll - 1.0);
  ov_domain_delete(d);
}

// Adaptation to complete cases from experience 1 everywhere gives the
// counts-based estimate (experience 1 as a uniform prior); with fading 1/2
// the counts decay by half before each case.
TEST(Adaptation, CompleteCasesGiveCountsAndFadingHalvesThem) {
  for (double fade : {1.0, 0.5}) {
    ov_domain_t d = ov_new_domain();
    ov_node_t a = chance(d, 2, {});
    ov_node_t b = chance(d, 3, {a});
    ASSERT_EQ(ov_domain_compile(d), 0);
    for (ov_node_t n : {a, b}) {
      ov_table_t x = ov_node_get_experience_table(n);
      std::fill(ov_table_get_data(x), ov_table_get_data(x) + ov_table_get_size(x), 1.0f);
      if (fade != 1.0) {
        ov_table_t f = ov_node_get_fading_table(n);
        std::fill(ov_table_get_data(f), ov_table_get_data(f) + ov_table_get_size(f), static_cast<float>(fade));
      }
    }
    // counts[a][b] with the prior's 1/3 per cell, strength 1 per configuration.
    std::vector<double> na(2, 0.5), nab(6, 1.0 / 3);
    std::mt19937 rng(5);
    for (int i = 0; i < 40; ++i) {
      const int sa = static_cast<int>(rng() % 2), sb = static_cast<int>(rng() % 3);
      ASSERT_EQ(ov_node_select_state(a, sa), 0);
      ASSERT_EQ(ov_node_select_state(b, sb), 0);
      EXPECT_EQ(ov_domain_adapt(d), ov_error_usage); // not propagated yet
      ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), 0);
      ASSERT_EQ(ov_domain_adapt(d), 0);
      for (double &n : na) n *= fade;
      for (int k = 0; k < 3; ++k) nab[sa * 3 + k] *= fade;
      na[sa] += 1;
      nab[sa * 3 + sb] += 1;
    }
    const ov_number_t *pa = ov_table_get_data(ov_node_get_table(a));
    const ov_number_t *pb = ov_table_get_data(ov_node_get_table(b));
    for (int s = 0; s < 2; ++s) EXPECT_NEAR(pa[s], na[s] / (na[0] + na[1]), 1e-5) << fade;
    for (int j = 0; j < 2; ++j) {
      const double total = nab[j * 3] + nab[j * 3 + 1] + nab[j * 3 + 2];
      for (int k = 0; k < 3; ++k) EXPECT_NEAR(pb[j * 3 + k], nab[j * 3 + k] / total, 1e-5) << fade;
      EXPECT_NEAR(ov_table_get_data(ov_node_get_experience_table(b))[j], total, 1e-3) << fade;
    }
    EXPECT_NEAR(ov_table_get_data(ov_node_get_experience_table(a))[0], na[0] + na[1], 1e-3) << fade;
    ASSERT_EQ(ov_domain_uncompile(d), 0);
    EXPECT_EQ(ov_domain_adapt(d), ov_error_not_compiled);
    ov_domain_delete(d);
  }
}

// An unobserved parent: each configuration's row moves to the posterior
// mean of its Dirichlet, ((e + z) p + q) / (e + 1) with q the joint of the
// configuration and the child's states given the evidence and z the
// probability of the other configurations. The new strength s gives the
// exact posterior (a mixture of Dirichlets) its sum over the states of the
// second moments E[theta_i^2], which for a Dirichlet is (s m.m + 1) / (s + 1).
TEST(Adaptation, UnobservedParentMovesRowsToPosteriorMeans) {
  ov_domain_t d = ov_new_domain();
  ov_node_t a = chance(d, 2, {});
  ov_node_t b = chance(d, 3, {a});
  std::mt19937 rng(17);
  fill_random(ov_node_get_table(a), 2, rng);
  fill_random(ov_node_get_table(b), 3, rng);
  ASSERT_EQ(ov_domain_compile(d), 0);
  ov_number_t *x = ov_table_get_data(ov_node_get_experience_table(b));
  x[0] = 3.0f;
  x[1] = 0.0f; // frozen
  const std::vector<ov_number_t> before(ov_table_get_data(ov_node_get_table(b)),
                                        ov_table_get_data(ov_node_get_table(b)) + 6);
  ASSERT_EQ(ov_node_select_state(b, 2), 0);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), 0);
  ov_node_t family[] = {a, b, nullptr};
  ov_table_t joint = ov_domain_get_marginal(d, family);
  const ov_number_t *q = ov_table_get_data(joint);
  ASSERT_EQ(ov_domain_adapt(d), 0);
  const ov_number_t *p = ov_table_get_data(ov_node_get_table(b));
  const double z = q[3] + q[4] + q[5];
  double second = 0.0, squares = 0.0;
  for (int i = 0; i < 3; ++i) {
    const double mean = ((3.0 + z) * before[i] + q[i]) / 4.0;
    EXPECT_NEAR(p[i], mean, 1e-6) << i;
    EXPECT_EQ(p[3 + i], before[3 + i]) << i;
    squares += mean * mean;
    const double alpha = 3.0 * before[i];
    second += z * alpha * (alpha + 1) / 12.0; // strength 3: s (s + 1) = 12
    for (int k = 0; k < 3; ++k) {
      const double grown = alpha + (k == i ? 1 : 0);
      second += q[k] * grown * (grown + 1) / 20.0; // strength 4
    }
  }
  EXPECT_NEAR(x[0], (1 - second) / (second - squares), 1e-4);
  EXPECT_EQ(x[1], 0.0f);
  ov_table_delete(joint);
  ov_domain_delete(d);
}

} // namespace
