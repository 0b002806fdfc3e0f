// Pictures as DOT: the shapes and edges of a network, belief bars of known
// lengths before and after evidence, and the junction forest with its
// clique and separator sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

// A -> B -> C, with P(A = yes) = 0.25 and P(B = on) = 0.25 * 0.5 + 0.75 = 0.875;
// A has 2 states, B 3 and C 4.
const char *const chain = "net {}\n"
                          "node A { states = (\"yes\" \"no\"); }\n"
                          "node B { states = (\"on\" \"off\" \"a<b\"); }\n"
                          "node C { states = (\"1\" \"2\" \"3\" \"4\"); }\n"
                          "potential (A) { data = (0.25 0.75); }\n"
                          "potential (B | A) { data = ((0.5 0.5 0) (1 0 0)); }\n"
                          "potential (C | B) { data = ((1 0 0 0) (0 1 0 0) (0 0 1 0)); }\n";

std::string dot_of(ov_domain_t domain, ov_dot_form_t form) {
  const std::string file = (std::filesystem::temp_directory_path() / "orvel_dot_test.dot").string();
  EXPECT_EQ(ov_domain_save_as_dot(domain, file.c_str(), form), ov_error_none);
  std::ifstream in(file, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  std::remove(file.c_str());
  return s.str();
}

// The rows of a node's belief table: "label filled-width percent", the
// width 0 where the bar has no filled part.
std::vector<std::string> bars(const std::string &dot, const std::string &node) {
  const std::size_t start = dot.find("  \"" + node + "\" [shape=box");
  const std::string block = dot.substr(start, dot.find("</table>>];", start) - start);
  static const std::regex row("<tr><td align=\"left\">([^<]*)</td><td><table[^>]*><tr>"
                              "(?:<td fixedsize=\"true\" width=\"(\\d+)\" height=\"9\" bgcolor=[^>]*></td>)?"
                              "(?:<td fixedsize=\"true\" width=\"(\\d+)\" height=\"9\"></td>)?"
                              "</tr></table></td><td align=\"right\">([^<]*)</td></tr>");
  std::vector<std::string> rows;
  for (std::sregex_iterator m(block.begin(), block.end(), row), end; m != end; ++m) {
    const int filled = (*m)[2].matched ? std::stoi((*m)[2]) : 0;
    const int empty = (*m)[3].matched ? std::stoi((*m)[3]) : 0;
    EXPECT_EQ(filled + empty, ov_dot_bar_length) << (*m)[0];
    rows.push_back((*m)[1].str() + " " + std::to_string(filled) + " " + (*m)[4].str());
  }
  return rows;
}

TEST(Dot, NetworkShapesLabelsAndEdges) {
  ov_domain_t domain = ov_net_parse_from_string("net {}\n"
                                                "node A { states = (\"yes\" \"no\"); }\n"
                                                "node B { states = (\"on\" \"off\"); }\n"
                                                "decision D { states = (\"go\" \"stay\"); }\n"
                                                "utility U { }\n"
                                                "potential (A) { data = (0.5 0.5); }\n"
                                                "potential (B | A) { data = ((1 0) (0 1)); }\n"
                                                "potential (D) { }\n"
                                                "potential (U | D A) { data = ((1 2) (3 4)); }\n",
                                                nullptr);
  ASSERT_NE(domain, nullptr);
  ov_node_t a = ov_domain_get_node_by_name(domain, "A");
  ASSERT_EQ(ov_node_set_label(a, "say \"hi\" caf\xe9"), ov_error_none);
  const std::string dot = dot_of(domain, ov_dot_network);
  EXPECT_EQ(dot.rfind("digraph network {\n", 0), 0u);
  EXPECT_NE(dot.find("  \"A\" [shape=ellipse, label=\"A\\nsay \\\"hi\\\" caf\xc3\xa9\"];\n"), std::string::npos) << dot;
  EXPECT_NE(dot.find("  \"D\" [shape=box, label=\"D\"];\n"), std::string::npos);
  EXPECT_NE(dot.find("  \"U\" [shape=diamond, label=\"U\"];\n"), std::string::npos);
  std::set<std::string> edges;
  static const std::regex edge("  \"(\\w+)\" -> \"(\\w+)\";\n");
  for (std::sregex_iterator m(dot.begin(), dot.end(), edge), end; m != end; ++m)
    edges.insert((*m)[1].str() + ">" + (*m)[2].str());
  EXPECT_EQ(edges, (std::set<std::string>{"A>B", "A>U", "D>U"}));
  // Beliefs and the junction forest need a compiled domain; forms are checked.
  const std::string file = (std::filesystem::temp_directory_path() / "orvel_dot_refused.dot").string();
  EXPECT_EQ(ov_domain_save_as_dot(domain, file.c_str(), ov_dot_beliefs), ov_error_not_compiled);
  EXPECT_EQ(ov_domain_save_as_dot(domain, file.c_str(), ov_dot_junction_tree), ov_error_not_compiled);
  EXPECT_EQ(ov_domain_save_as_dot(domain, file.c_str(), static_cast<ov_dot_form_t>(3)), ov_error_usage);
  EXPECT_EQ(ov_domain_save_as_dot(domain, "/nonexistent/dir/x.dot", ov_dot_network), ov_error_io);
  EXPECT_FALSE(std::filesystem::exists(file));
  ov_domain_delete(domain);
}

TEST(Dot, BeliefBarsBeforeAndAfterEvidence) {
  ov_domain_t domain = ov_net_parse_from_string(chain, nullptr);
  ASSERT_NE(domain, nullptr);
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  std::string dot = dot_of(domain, ov_dot_beliefs);
  EXPECT_EQ(bars(dot, "A"), (std::vector<std::string>{"yes 20 25.0%", "no 60 75.0%"})) << dot;
  EXPECT_EQ(bars(dot, "B"), (std::vector<std::string>{"on 70 87.5%", "off 10 12.5%", "a&lt;b 0 0.0%"}));
  EXPECT_EQ(dot.find("bold"), std::string::npos);
  ASSERT_EQ(ov_node_select_state(ov_domain_get_node_by_name(domain, "A"), 1), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  dot = dot_of(domain, ov_dot_beliefs);
  EXPECT_EQ(bars(dot, "A"), (std::vector<std::string>{"yes 0 0.0%", "no 80 100.0%"}));
  EXPECT_EQ(bars(dot, "C"), (std::vector<std::string>{"1 80 100.0%", "2 0 0.0%", "3 0 0.0%", "4 0 0.0%"}));
  EXPECT_NE(dot.find("  \"A\" [shape=box, style=\"rounded,bold\""), std::string::npos);
  EXPECT_NE(dot.find("bgcolor=\"#c0392b\""), std::string::npos);
  EXPECT_NE(dot.find("  \"B\" [shape=box, style=\"rounded\""), std::string::npos);
  ov_domain_delete(domain);
}

TEST(Dot, JunctionForestWithCliqueAndSeparatorSizes) {
  ov_domain_t domain = ov_net_parse_from_string(chain, nullptr);
  ASSERT_NE(domain, nullptr);
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  const std::string dot = dot_of(domain, ov_dot_junction_tree);
  EXPECT_EQ(dot.rfind("graph junction_forest {\n", 0), 0u);
  auto members = [](std::string text) {
    std::istringstream in(text);
    std::set<std::string> names;
    for (std::string name; in >> name;) names.insert(name);
    return names;
  };
  std::map<std::string, std::pair<std::set<std::string>, int>> cliques;
  static const std::regex clique("  (C\\d+) \\[label=\"([^\"]*)\\\\nsize (\\d+)\"\\];\n");
  for (std::sregex_iterator m(dot.begin(), dot.end(), clique), end; m != end; ++m)
    cliques[(*m)[1]] = {members((*m)[2]), std::stoi((*m)[3])};
  ASSERT_EQ(cliques.size(), 2u) << dot;
  std::set<std::pair<std::set<std::string>, int>> found;
  for (const auto &[id, c] : cliques) found.insert(c);
  EXPECT_EQ(found, (std::set<std::pair<std::set<std::string>, int>>{{{"A", "B"}, 6}, {{"B", "C"}, 12}}));
  static const std::regex separator("  (C\\d+) -- (C\\d+) \\[label=\"([^\"]*)\\\\nsize (\\d+)\"\\];\n");
  std::smatch m;
  ASSERT_TRUE(std::regex_search(dot, m, separator)) << dot;
  EXPECT_NE(m[1], m[2]);
  EXPECT_TRUE(cliques.count(m[1]) == 1 && cliques.count(m[2]) == 1);
  EXPECT_EQ(m[3], "B");
  EXPECT_EQ(m[4], "3");
  EXPECT_FALSE(std::regex_search(m.suffix().first, dot.cend(), separator));
  ov_domain_delete(domain);
}

} // namespace
