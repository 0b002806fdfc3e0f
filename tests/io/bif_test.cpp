// BIF: files written by other tools read as their NET twins, every shared
// network goes NET -> BIF -> NET unchanged, the forms of a table read by
// label, and bad input fails with the place and the reason.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "exchange_compare.h"
#include "orvel.h"

namespace {

namespace fs = std::filesystem;
using orvel::test::expect_same_beliefs;
using orvel::test::expect_same_network;

void collect(uint32_t, ov_string_t message, void *data) {
  static_cast<std::vector<std::string> *>(data)->push_back(message);
}

std::string temp_file(const std::string &name) { return (fs::temp_directory_path() / name).string(); }

std::string slurp(const std::string &file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

TEST(Bif, FilesOfOtherToolsReadAsTheirNetTwins) {
  int files = 0;
  for (const auto &entry : fs::directory_iterator(ORVEL_TEST_DATA "/bif")) {
    if (entry.path().extension() != ".bif") continue;
    const std::string name = entry.path().stem().string();
    std::vector<std::string> messages;
    ov_domain_t bif = ov_bif_parse_domain(entry.path().c_str(), collect, &messages);
    ASSERT_NE(bif, nullptr) << name << ": " << (messages.empty() ? "" : messages[0]);
    EXPECT_STREQ(ov_domain_get_file_name(bif), entry.path().c_str());
    ov_domain_t net = ov_net_parse_domain((ORVEL_NETWORKS "/" + name + ".net").c_str(), nullptr, nullptr);
    ASSERT_NE(net, nullptr) << name;
    expect_same_network(net, bif, 1e-7, name);
    expect_same_beliefs(net, bif, name);
    ov_domain_delete(bif);
    ov_domain_delete(net);
    ++files;
  }
  EXPECT_EQ(files, 6);
}

TEST(Bif, EverySharedNetworkGoesToBifAndBack) {
  orvel::test::expect_shared_networks_round_trip("bif", ov_domain_save_as_bif, ov_bif_parse_domain);
}

// Rows in any order and by label, a default for the rows not listed, a whole
// table over parents (child fastest, last parent next), labels that are not
// words, comments and properties.
TEST(Bif, TablesReadByLabelInEveryForm) {
  const char *text = R"(/* a comment */ network "test net" { property author = someone ; }
variable A { type discrete [ 2 ] { lo, "hi there" }; property position = (10, 20); property label = "The A"; }
variable B { type discrete[3]{ <5, 5-10, >=10 }; }   // comment
variable C { type discrete [ 2 ] { y, n }; property note = "a; b"; }
probability ( A ) { table 0.25, 0.75; }
probability ( B | A ) { ("hi there") 0.1 0.2 0.7; default 0.3, 0.3, 0.4; }
probability ( C | B, A ) {
  table 0.1, 0.9, 0.2, 0.8, 0.3, 0.7, 0.4, 0.6, 0.5, 0.5, 0.6, 0.4;
}
)";
  std::vector<std::string> messages;
  ov_domain_t d = ov_bif_parse_from_string(text, collect, &messages);
  ASSERT_NE(d, nullptr) << (messages.empty() ? "" : messages[0]);
  ov_node_t a = ov_domain_get_node_by_name(d, "A"), b = ov_domain_get_node_by_name(d, "B"),
            c = ov_domain_get_node_by_name(d, "C");
  EXPECT_STREQ(ov_node_get_state_label(a, 1), "hi there");
  EXPECT_STREQ(ov_node_get_state_label(b, 2), ">=10");
  EXPECT_STREQ(ov_node_get_label(a), "The A");
  int x = 0, y = 0;
  ov_node_get_position(a, &x, &y);
  EXPECT_EQ(x * 100 + y, 1020);
  EXPECT_STREQ(ov_node_get_attribute(c, "note"), "a; b");
  EXPECT_STREQ(ov_domain_get_attribute(d, "author"), "someone");
  // P(C = y | B = b, A = a) = 0.1 * (2b + a + 1) from the table form; the
  // beliefs of C with B and A chosen give it without assuming the layout.
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  EXPECT_NEAR(ov_node_get_belief(b, 0), 0.25 * 0.3 + 0.75 * 0.1, 1e-6);
  for (int bs = 0; bs < 3; ++bs)
    for (int as = 0; as < 2; ++as) {
      ov_node_select_state(a, as);
      ov_node_select_state(b, bs);
      ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      EXPECT_NEAR(ov_node_get_belief(c, 0), 0.1 * (2 * bs + as + 1), 1e-6) << bs << as;
    }
  // What was read is written and read back the same, properties included.
  const std::string file = temp_file("orvel_bif_forms.bif");
  ASSERT_EQ(ov_domain_save_as_bif(d, file.c_str()), ov_error_none);
  ov_domain_t back = ov_bif_parse_domain(file.c_str(), nullptr, nullptr);
  ASSERT_NE(back, nullptr) << slurp(file);
  expect_same_network(d, back, 0.0, "forms");
  EXPECT_STREQ(ov_node_get_attribute(ov_domain_get_node_by_name(back, "C"), "note"), "a; b");
  EXPECT_STREQ(ov_node_get_label(ov_domain_get_node_by_name(back, "A")), "The A");
  EXPECT_STREQ(ov_domain_get_attribute(back, "author"), "someone");
  ov_domain_delete(back);
  ov_domain_delete(d);
  std::remove(file.c_str());
}

TEST(Bif, BadInputIsReportedWithItsPlace) {
  const std::string head = "variable A { type discrete [ 2 ] { y, n }; }\n";
  const struct {
    std::string text, message;
    ov_error_t code;
  } cases[] = {
      {"node A {}", "<string>:1:1: `network', `variable' or `probability' expected, found `node'", ov_error_parse},
      {"variable A { type discrete [ 3 ] { y, n }; }", "<string>:1:41: `A' declares 3 states but lists 2",
       ov_error_parse},
      {"variable A { type continuous; }",
       "<string>:1:19: `discrete' (only discrete variables are supported) expected, found `continuous'",
       ov_error_parse},
      {head + "probability ( A ) { table 0.5; }", "<string>:2:30: the table of `A' has 1 numbers, 2 expected",
       ov_error_parse},
      {head + "probability ( A | B ) { }", "<string>:2:19: variable `B' is not declared", ov_error_parse},
      {head + "variable B { type discrete [ 2 ] { y, n }; }\nprobability ( B | A ) { (y) 1, 0; }",
       "<string>:3:35: `B' has no probabilities for some configurations of its parents", ov_error_parse},
      {head + "variable B { type discrete [ 2 ] { y, n }; }\nprobability ( B | A ) { (maybe) 1, 0; }",
       "<string>:3:26: `maybe' is not a state of `A'", ov_error_parse},
      {head + "variable B { type discrete [ 2 ] { y, n }; }\nprobability ( B | A ) { (y) 1, 0; (y) 1, 0; }",
       "<string>:3:35: row of `B' given twice", ov_error_parse},
      {head + "probability ( A ) { table 0.5, x; }", "<string>:2:32: probability expected, found `x'", ov_error_parse},
      {head + "variable B { type discrete [ 2 ] { y, n }; }\nprobability ( A | B ) { default 1, 0; }\n"
              "probability ( B | A ) { default 1, 0; }",
       "<string>:4:19: `A' as a parent of `B' makes a cycle", ov_error_cyclic_network},
      {head, "<string>:2:1: no probability block for `A'", ov_error_parse},
      {"/* open", "<string>:1:1: comment did not end", ov_error_parse},
      {"variable x-ray { type discrete [ 1 ] { a }; }", "<string>:1:10: `x-ray' is not a legal node name",
       ov_error_parse},
  };
  for (const auto &c : cases) {
    std::vector<std::string> messages;
    EXPECT_EQ(ov_bif_parse_from_string(c.text.c_str(), collect, &messages), nullptr) << c.text;
    EXPECT_EQ(ov_error_code(), c.code) << c.text;
    ASSERT_FALSE(messages.empty()) << c.text;
    EXPECT_EQ(messages[0], c.message) << c.text;
  }
  // A default row may not fill a table far larger than the file.
  std::string wide, list;
  for (int i = 0; i <= 25; ++i) {
    wide += "variable P" + std::to_string(i) + " { type discrete [ 2 ] { a, b }; }\n";
    if (i > 0) list += (i > 1 ? ", P" : "P") + std::to_string(i);
  }
  wide += "probability ( P0 | " + list + " ) { default 0.5, 0.5; }";
  std::vector<std::string> messages;
  EXPECT_EQ(ov_bif_parse_from_string(wide.c_str(), collect, &messages), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_size_too_large);
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages[0], "<string>:27:13: the table of `P0' is too large (67108864 cells)");
  messages.clear();
  EXPECT_EQ(ov_bif_parse_domain("/nonexistent/x.bif", collect, &messages), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_io);
}

// A domain BIF cannot hold is refused with format and the file untouched.
TEST(Bif, WriterRefusesWhatBifCannotHold) {
  const std::string file = temp_file("orvel_bif_refused.bif");
  for (int which = 0; which < 3; ++which) {
    { std::ofstream(file) << "before"; }
    ov_domain_t d = ov_new_domain();
    ov_node_t n = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete);
    ov_node_set_number_of_states(n, 2);
    if (which == 0) ov_domain_new_node(d, ov_category_utility, ov_kind_discrete);
    if (which == 1) ov_domain_new_node(d, ov_category_chance, ov_kind_continuous);
    if (which == 2) ov_node_set_state_label(n, 0, "same"), ov_node_set_state_label(n, 1, "same");
    EXPECT_EQ(ov_domain_save_as_bif(d, file.c_str()), ov_error_format) << which;
    EXPECT_EQ(slurp(file), "before") << which;
    ov_domain_delete(d);
  }
  std::remove(file.c_str());
}

} // namespace
