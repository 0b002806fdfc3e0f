// UAI: every shared network goes NET -> UAI -> NET with its nodes mapped by
// place, evidence files enter their findings, and bad input fails with the
// place and the reason.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "exchange_compare.h"
#include "orvel.h"

namespace {

namespace fs = std::filesystem;
using orvel::test::all_nodes;
using orvel::test::expect_same_beliefs;
using orvel::test::expect_same_network;

void collect(uint32_t, ov_string_t message, void *data) {
  static_cast<std::vector<std::string> *>(data)->push_back(message);
}

std::string temp_file(const std::string &name) { return (fs::temp_directory_path() / name).string(); }

TEST(Uai, EverySharedNetworkGoesToUaiAndBack) {
  orvel::test::expect_shared_networks_round_trip("uai", ov_domain_save_as_uai, ov_uai_parse_domain, true);
}

// A hand-written file: the child is the last variable of its scope whatever
// the order of the functions; names and labels are made up by place.
TEST(Uai, ReadsFunctionsInAnyOrderAndEntersEvidence) {
  const char *text = "BAYES\n3\n2 3 2\n3\n2 0 1\n1 0\n3 1 0 2\n"
                     "6\n0.1 0.2 0.7\n0.5 0.25 0.25\n"
                     "2\n0.4 0.6\n"
                     "12\n1 0 0.9 0.1 0.8 0.2 0.7 0.3 0.6 0.4 0.5 0.5\n";
  std::vector<std::string> messages;
  ov_domain_t d = ov_uai_parse_from_string(text, collect, &messages);
  ASSERT_NE(d, nullptr) << (messages.empty() ? "" : messages[0]);
  ov_node_t v0 = ov_domain_get_node_by_name(d, "v0"), v1 = ov_domain_get_node_by_name(d, "v1"),
            v2 = ov_domain_get_node_by_name(d, "v2");
  ASSERT_TRUE(v0 && v1 && v2);
  EXPECT_STREQ(ov_node_get_state_label(v1, 2), "s2");
  EXPECT_EQ(orvel::test::parent_names(v2), (std::vector<std::string>{"v1", "v0"}));
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  EXPECT_NEAR(ov_node_get_belief(v1, 2), 0.4 * 0.7 + 0.6 * 0.25, 1e-6);

  // Evidence v1 = 2, v0 = 1 in both forms: P(v2 = 0 | v1 = 2, v0 = 1) = 0.5.
  const std::string file = temp_file("orvel_uai.evid");
  for (const char *evidence : {"2 1 2 0 1\n", "1\n2 1 2 0 1\n"}) {
    std::ofstream(file) << evidence;
    ov_domain_retract_findings(d);
    ASSERT_EQ(ov_domain_parse_uai_evidence(d, file.c_str(), nullptr, nullptr), ov_error_none) << evidence;
    ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
    EXPECT_NEAR(ov_node_get_belief(v2, 0), 0.5, 1e-6) << evidence;
    EXPECT_NEAR(ov_node_get_belief(v0, 1), 1.0, 1e-6) << evidence;
  }
  // A bad pair enters nothing.
  std::ofstream(file) << "2 0 1 1 3\n";
  ov_domain_retract_findings(d);
  messages.clear();
  EXPECT_EQ(ov_domain_parse_uai_evidence(d, file.c_str(), collect, &messages), ov_error_parse);
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages[0], file + ":1:9: state index expected, found `3'");
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_node_get_belief(v0, 1), 0.6, 1e-6);
  std::remove(file.c_str());
  ov_domain_delete(d);
}

// A Markov network is the normalised product of its functions: beliefs
// and the probability of evidence against enumeration.
TEST(Uai, MarkovNetworkIsTheNormalisedProductOfItsFunctions) {
  // Variables a (2 states), b (3), c (2); functions f(a, b), g(c, b), h(c).
  const double f[2][3] = {{1, 2, 3}, {4, 0.5, 1}}, g[2][3] = {{2, 1, 1}, {0.25, 3, 1}}, h[2] = {1, 5};
  ov_domain_t d = ov_uai_parse_from_string("MARKOV\n3\n2 3 2\n3\n2 0 1\n2 2 1\n1 2\n"
                                           "6 1 2 3 4 0.5 1\n6 2 1 1 0.25 3 1\n2 1 5\n",
                                           nullptr, nullptr);
  ASSERT_NE(d, nullptr) << ov_error_name(ov_error_code());
  ov_node_t v[3] = {ov_domain_get_node_by_name(d, "v0"), ov_domain_get_node_by_name(d, "v1"),
                    ov_domain_get_node_by_name(d, "v2")};
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  for (int evidence = 0; evidence < 2; ++evidence) {
    if (evidence) {
      ASSERT_EQ(ov_node_select_state(v[2], 0), ov_error_none);
    }
    ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
    double pa[2] = {}, pb[3] = {}, pc[2] = {}, total = 0, all = 0;
    for (int a = 0; a < 2; ++a)
      for (int b = 0; b < 3; ++b)
        for (int c = 0; c < 2; ++c) {
          const double p = f[a][b] * g[c][b] * h[c];
          all += p;
          if (evidence && c != 0) continue;
          pa[a] += p, pb[b] += p, pc[c] += p, total += p;
        }
    for (int s = 0; s < 3; ++s) EXPECT_NEAR(ov_node_get_belief(v[1], s), pb[s] / total, 1e-6);
    for (int s = 0; s < 2; ++s) {
      EXPECT_NEAR(ov_node_get_belief(v[0], s), pa[s] / total, 1e-6);
      EXPECT_NEAR(ov_node_get_belief(v[2], s), pc[s] / total, 1e-6);
    }
    EXPECT_NEAR(ov_domain_get_normalization_constant(d), total / all, 1e-6);
  }
  // A network file of conditional tables cannot hold the undirected links.
  EXPECT_EQ(ov_domain_save_as_uai(d, temp_file("orvel_uai_markov.uai").c_str()), ov_error_format);
  ov_domain_delete(d);
}

TEST(Uai, BadInputIsReportedWithItsPlace) {
  const struct {
    const char *text, *message;
    ov_error_t code;
  } cases[] = {
      {"MRF 1 2 1 1 0 2 1 1", "<string>:1:1: `BAYES' or `MARKOV' expected, found `MRF'", ov_error_parse},
      {"MARKOV 2 2 2 1 2 1 1 4 1 2 3 4", "<string>:1:20: variable 1 twice in the scope of function 0", ov_error_parse},
      {"MARKOV 1 2 1 1 0 2 1 -1", "<string>:1:22: function values must be nonnegative", ov_error_parse},
      {"BAYES 1 2 1 1 0 3 0.5 0.5 0", "<string>:1:17: function 0 has 3 entries, 2 expected", ov_error_parse},
      {"BAYES 1 2 1 1 0 2 0.5 x", "<string>:1:23: number expected, found `x'", ov_error_parse},
      {"BAYES 1 2 1 1 1 2 0.5 0.5", "<string>:1:15: variable index expected, found `1'", ov_error_parse},
      {"BAYES 2 2 2 2 2 1 0 2 0 1 4 1 0 0 1 4 1 0 0 1", "<string>:1:25: a cycle in the scope of variable 1",
       ov_error_cyclic_network},
      {"BAYES 1 288888883 1 1 0 1 1", "<string>:1:9: variable 0 has more states than the file has numbers",
       ov_error_parse},
      {"BAYES 3 2 9 9 3 1 0 1 1 3 1 0 2 2 0.5 0.5",
       "<string>:1:31: the table of variable 2 has more entries than "
       "the file has numbers",
       ov_error_parse},
      {"BAYES 0 0", "<string>:1:7: no variables", ov_error_parse},
      {"BAYES 1 2 1 1 0 2 0.5 1e39", "<string>:1:23: number expected, found `1e39'", ov_error_parse},
      {"BAYES 1 2 1 1 0 2 0.5 0.5 7", "<string>:1:27: the end of the input expected, found `7'", ov_error_parse},
  };
  for (const auto &c : cases) {
    std::vector<std::string> messages;
    EXPECT_EQ(ov_uai_parse_from_string(c.text, collect, &messages), nullptr) << c.text;
    EXPECT_EQ(ov_error_code(), c.code) << c.text;
    ASSERT_FALSE(messages.empty()) << c.text;
    EXPECT_EQ(messages[0], c.message) << c.text;
  }
  ov_domain_t d = ov_new_domain();
  ov_domain_new_node(d, ov_category_decision, ov_kind_discrete);
  EXPECT_EQ(ov_domain_save_as_uai(d, temp_file("orvel_uai_refused.uai").c_str()), ov_error_format);
  EXPECT_FALSE(fs::exists(temp_file("orvel_uai_refused.uai")));
  ov_domain_delete(d);
}

} // namespace
