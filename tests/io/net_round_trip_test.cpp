// Every shared network parses, writes, and parses again to an equal
// network, and writing that one again gives the same bytes.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "golden_rows.h"
#include "orvel.h"

namespace {

namespace fs = std::filesystem;
using orvel::test::written;

std::vector<ov_node_t> nodes_of(ov_domain_t domain) {
  std::vector<ov_node_t> nodes;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  return nodes;
}

std::vector<std::string> names_of(ov_node_t *list) {
  std::vector<std::string> names;
  for (; *list != nullptr; ++list) names.push_back(ov_node_get_name(*list));
  return names;
}

// Compares two networks node by node: names, categories, kinds, states and
// their labels, parents in order, and table contents to the six digits
// that the writer prints.
void expect_equal_networks(ov_domain_t a, ov_domain_t b, const std::string &what) {
  std::vector<ov_node_t> na = nodes_of(a), nb = nodes_of(b);
  ASSERT_EQ(na.size(), nb.size()) << what;
  for (std::size_t i = 0; i < na.size(); ++i) {
    ov_node_t x = na[i], y = nb[i];
    std::string name = ov_node_get_name(x);
    ASSERT_EQ(name, ov_node_get_name(y)) << what;
    EXPECT_EQ(ov_node_get_category(x), ov_node_get_category(y)) << what << " " << name;
    EXPECT_EQ(ov_node_get_kind(x), ov_node_get_kind(y)) << what << " " << name;
    EXPECT_EQ(names_of(ov_node_get_parents(x)), names_of(ov_node_get_parents(y))) << what << " " << name;
    ov_count_t states = ov_node_get_number_of_states(x);
    ASSERT_EQ(states, ov_node_get_number_of_states(y)) << what << " " << name;
    for (ov_count_t s = 0; s < states; ++s)
      EXPECT_STREQ(ov_node_get_state_label(x, s), ov_node_get_state_label(y, s)) << what << " " << name;
    if (ov_node_get_category(x) != ov_category_chance) continue;
    ov_table_t tx = ov_node_get_table(x), ty = ov_node_get_table(y);
    ASSERT_EQ(names_of(ov_table_get_nodes(tx)), names_of(ov_table_get_nodes(ty))) << what << " " << name;
    ov_count_t size = ov_table_get_size(tx);
    ASSERT_EQ(size, ov_table_get_size(ty));
    const ov_number_t *dx = ov_table_get_data(tx), *dy = ov_table_get_data(ty);
    for (ov_count_t k = 0; k < size; ++k)
      ASSERT_NEAR(dx[k], dy[k], 6e-6 * std::fabs(dx[k]) + 1e-12) << what << " " << name << " cell " << k;
  }
}

TEST(NetRoundTrip, EverySharedNetworkWritesAndReadsBackUnchanged) {
  int networks = 0;
  for (const auto &entry : fs::directory_iterator(ORVEL_NETWORKS)) {
    if (entry.path().extension() != ".net") continue;
    std::string file = entry.path().string();
    ov_domain_t first = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
    ASSERT_NE(first, nullptr) << file << ": " << ov_error_name(ov_error_code());
    std::string text = written(first);
    ASSERT_FALSE(text.empty()) << file;
    ov_domain_t second = ov_net_parse_from_string(text.c_str(), nullptr);
    ASSERT_NE(second, nullptr) << file << ": the written text does not parse";
    expect_equal_networks(first, second, file);
    EXPECT_EQ(written(second), text) << file << ": the second write differs";
    ov_domain_delete(first);
    ov_domain_delete(second);
    ++networks;
  }
  EXPECT_GE(networks, 18);
}

// A caller whose locale writes a decimal comma reads and writes the same
// files as one in the C locale, and keeps its locale.
TEST(NetRoundTrip, IndependentOfTheCallersLocale) {
  const std::string file = ORVEL_NETWORKS "/water.net";
  ov_domain_t plain = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
  ASSERT_NE(plain, nullptr);
  const std::string expected = written(plain);
  ASSERT_NE(expected.find("0."), std::string::npos);

  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
    ov_domain_delete(plain);
    GTEST_SKIP() << "no de_DE locale on this machine";
  }
  const std::string german = std::setlocale(LC_ALL, nullptr);
  ov_domain_t domain = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
  EXPECT_EQ(german, std::setlocale(LC_ALL, nullptr));
  std::string text;
  if (domain != nullptr) {
    text = written(domain);
    EXPECT_EQ(german, std::setlocale(LC_ALL, nullptr));
  }
  std::setlocale(LC_ALL, "C");
  ASSERT_NE(domain, nullptr);
  expect_equal_networks(plain, domain, "under de_DE");
  EXPECT_EQ(text, expected);
  ov_domain_delete(domain);
  ov_domain_delete(plain);
}

} // namespace
