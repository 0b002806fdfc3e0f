// Case files and data files: what is written reads back the same (also under
// a decimal-comma locale), every message of the readers with its line, and
// hostile input.
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "orvel.h"

namespace {

// Every kind of node a case can name: labels (one needing escapes, with a
// node label), boolean, numbered (increasing and not), interval, labels that
// a search cannot tell apart, continuous. A utility node, which takes no
// case, stands in a network of its own, since it cannot share one with a
// continuous node.
const char *const network = "node A { states = (\"yes\" \"no\" \"it's \\\"odd\\\"\"); label = \"the A\"; }\n"
                            "node B { states = (\"false\" \"true\"); subtype = boolean; }\n"
                            "node N { states = (\"s0\" \"s1\" \"s2\"); subtype = number; "
                            "state_values = (0.5 1 2.25); }\n"
                            "node M { states = (\"a\" \"b\"); subtype = number; state_values = (2 1); }\n"
                            "node I { states = (\"lo\" \"mid\" \"hi\"); subtype = interval; "
                            "state_values = (-infinity 0 10 infinity); }\n"
                            "node D { states = (\"same\" \"same\"); }\n"
                            "continuous node C {}\n";
const char *const utility_network = "node A { states = (\"yes\" \"no\" \"it's\"); }\nutility U {}\n";

struct Message {
  std::uint32_t line;
  std::string text;
  bool operator==(const Message &) const = default;
};
void collect(std::uint32_t line, ov_string_t message, void *data) {
  static_cast<std::vector<Message> *>(data)->push_back({line, message});
}

std::string temp_path(const std::string &name) { return testing::TempDir() + "orvel_case_" + name; }

void write_text(const std::string &path, const std::string &text) {
  std::FILE *f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  std::fwrite(text.data(), 1, text.size(), f);
  std::fclose(f);
}

std::string read_text(const std::string &path) {
  std::string text;
  if (std::FILE *f = std::fopen(path.c_str(), "rb")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
    std::fclose(f);
  }
  return text;
}

struct Net {
  ov_domain_t domain;
  explicit Net(const char *text = network) : domain(ov_net_parse_from_string(text, nullptr)) {}
  ~Net() { ov_domain_delete(domain); }
  ov_node_t operator[](const char *name) const { return ov_domain_get_node_by_name(domain, name); }
  // The chance nodes, in the order of the header below.
  std::vector<ov_node_t> nodes() const {
    std::vector<ov_node_t> list;
    for (const char *name : {"A", "B", "N", "M", "I", "D", "C"}) list.push_back((*this)[name]);
    list.push_back(nullptr);
    return list;
  }
};

// Fills `count` cases: every entry present with probability 3/4, counts 0,
// 1.25 and 2.5, continuous values that "%G" would round.
void fill_cases(const Net &net, int count) {
  std::mt19937 draw(5);
  ASSERT_EQ(ov_domain_set_number_of_cases(net.domain, count), ov_error_none);
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(ov_domain_set_case_count(net.domain, i, 1.25f * static_cast<float>(i % 3)), ov_error_none);
    for (ov_node_t node : net.nodes()) {
      if (node == nullptr || draw() % 4 == 0) continue;
      if (ov_node_get_kind(node) == ov_kind_continuous)
        ASSERT_EQ(ov_node_set_case_value(node, i, (static_cast<double>(draw() % 2000) - 1000.0) / 3.0), 0);
      else
        ASSERT_EQ(ov_node_set_case_state(node, i, draw() % ov_node_get_number_of_states(node)), 0);
    }
  }
}

// The cases of `read` equal the listed cases of `written` (all when empty).
void expect_same_cases(const Net &written, const Net &read, std::vector<ov_index_t> listed, bool counts) {
  if (listed.empty())
    for (ov_index_t i = 0; i < ov_domain_get_number_of_cases(written.domain); ++i) listed.push_back(i);
  ASSERT_EQ(ov_domain_get_number_of_cases(read.domain), static_cast<ov_count_t>(listed.size()));
  for (std::size_t r = 0; r < listed.size(); ++r) {
    const ov_index_t w = listed[r];
    const ov_index_t i = static_cast<ov_index_t>(r);
    EXPECT_EQ(ov_domain_get_case_count(read.domain, i), counts ? ov_domain_get_case_count(written.domain, w) : 1.0f);
    for (const char *name : {"A", "B", "N", "M", "I", "D", "C"}) {
      ov_node_t a = written[name], b = read[name];
      ASSERT_EQ(ov_node_case_is_set(b, i), ov_node_case_is_set(a, w)) << name << " case " << w;
      if (ov_node_case_is_set(a, w) != 1) continue;
      if (ov_node_get_kind(a) == ov_kind_continuous)
        EXPECT_EQ(ov_node_get_case_value(b, i), ov_node_get_case_value(a, w)) << name << " case " << w;
      else
        EXPECT_EQ(ov_node_get_case_state(b, i), ov_node_get_case_state(a, w)) << name << " case " << w;
    }
  }
}

TEST(DataFile, WrittenCasesReadBackEqual) {
  Net written;
  ASSERT_NE(written.domain, nullptr);
  fill_cases(written, 300);
  struct Variant {
    int counts;
    const char *separator, *missing;
    std::vector<ov_index_t> listed;
  };
  const Variant variants[] = {{1, ", ", "*", {}}, {0, " ", "?", {}}, {1, ",", "?", {}}, {0, "\t", "*", {7, 3, 3, 299}}};
  const std::string path = temp_path("round.dat");
  for (const Variant &v : variants) {
    SCOPED_TRACE(std::string("separator '") + v.separator + "', missing '" + v.missing + "'");
    std::vector<ov_node_t> nodes = written.nodes();
    std::vector<ov_index_t> listed = v.listed;
    listed.push_back(-1);
    ASSERT_EQ(ov_domain_save_cases(written.domain, path.c_str(), nodes.data(),
                                   v.listed.empty() ? nullptr : listed.data(), v.counts, v.separator, v.missing),
              ov_error_none);
    Net read;
    std::vector<Message> messages;
    ASSERT_EQ(ov_domain_parse_cases(read.domain, path.c_str(), collect, &messages), ov_error_none);
    EXPECT_TRUE(messages.empty()) << messages.front().line << ": " << messages.front().text;
    expect_same_cases(written, read, v.listed, v.counts != 0);
  }
  // The layout: the header, a blank line, then a case a line.
  const char *a_only[] = {"A", "B"};
  ASSERT_EQ(ov_domain_set_number_of_cases(written.domain, 2), 0);
  for (int i = 0; i < 2; ++i)
    for (const char *name : a_only) ASSERT_EQ(ov_node_unset_case(written[name], i), 0);
  ASSERT_EQ(ov_node_set_case_state(written["A"], 0, 2), 0);
  ASSERT_EQ(ov_node_set_case_state(written["B"], 1, 1), 0);
  ASSERT_EQ(ov_domain_set_case_count(written.domain, 1, 2.5f), 0);
  ov_node_t pair[] = {written["A"], written["B"], nullptr};
  ASSERT_EQ(ov_domain_save_cases(written.domain, path.c_str(), pair, nullptr, 1, ", ", "*"), ov_error_none);
  EXPECT_EQ(read_text(path), "#, A, B\n\n0, \"it's \\\"odd\\\"\", *\n2.5, *, true\n");
  std::remove(path.c_str());
}

TEST(DataFile, SameBytesUnderADecimalCommaLocale) {
  Net written;
  fill_cases(written, 50);
  std::vector<ov_node_t> nodes = written.nodes();
  const std::string plain = temp_path("plain.dat"), german = temp_path("german.dat");
  ASSERT_EQ(ov_domain_save_cases(written.domain, plain.c_str(), nodes.data(), nullptr, 1, ",", "*"), 0);
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no de_DE locale on this machine";
  const ov_status_t saved = ov_domain_save_cases(written.domain, german.c_str(), nodes.data(), nullptr, 1, ",", "*");
  Net read;
  const ov_status_t parsed = ov_domain_parse_cases(read.domain, plain.c_str(), nullptr, nullptr);
  std::setlocale(LC_ALL, "C");
  ASSERT_EQ(saved, ov_error_none);
  ASSERT_EQ(parsed, ov_error_none);
  EXPECT_EQ(read_text(german), read_text(plain));
  expect_same_cases(written, read, {}, true);
  std::remove(plain.c_str());
  std::remove(german.c_str());
}

TEST(CaseFile, FindingsWrittenReadBackEqual) {
  Net net;
  ASSERT_EQ(ov_node_select_state(net["A"], 2), 0);
  ASSERT_EQ(ov_node_select_state(net["B"], 1), 0);
  ASSERT_EQ(ov_node_select_state(net["D"], 1), 0);
  ASSERT_EQ(ov_node_enter_finding(net["N"], 0, 0.25f), 0);
  ASSERT_EQ(ov_node_enter_finding(net["N"], 2, 0.0f), 0);
  ASSERT_EQ(ov_node_enter_value(net["C"], 1.0 / 3.0), 0);
  const std::string path = temp_path("one.case");
  ASSERT_EQ(ov_domain_save_case(net.domain, path.c_str()), ov_error_none);
  const std::string text = read_text(path);
  for (const char *line : {"A: \"it's \\\"odd\\\"\"\t% \"the A\"\n", "B: true\n", "D: #1\n", "N: (0.25 1 0)\n",
                           "C: 0.33333333333333331\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line << " in\n" << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 5);

  Net read;
  ASSERT_EQ(ov_node_select_state(read["M"], 0), 0); // replaced by the file's findings
  ASSERT_EQ(ov_domain_parse_case(read.domain, path.c_str(), nullptr, nullptr), ov_error_none);
  for (const char *name : {"A", "B", "N", "M", "I", "D"})
    for (ov_index_t s = 0; s < ov_node_get_number_of_states(net[name]); ++s)
      EXPECT_EQ(ov_node_get_entered_finding(read[name], s), ov_node_get_entered_finding(net[name], s)) << name;
  EXPECT_EQ(ov_node_get_entered_value(read["C"]), 1.0 / 3.0);
  std::remove(path.c_str());
}

// Each message of the readers, with the line it is given for. A failed read
// leaves no cases and no findings behind.
TEST(CaseFiles, EveryMessageWithItsLine) {
  struct Row {
    bool data; // a data file, else a case file
    const char *text;
    std::uint32_t line;
    const char *message;
    ov_status_t status = ov_error_parse;
    bool utility = false; // read with the network that has a utility node
  };
  const Row rows[] = {
      // Data file headers.
      {true, "#\nA B\n", 1, "line is incomplete"},
      {true, "# ,\nA\n", 1, "line is incomplete"},
      {true, "A,\nB\n", 1, "line is incomplete"},
      {true, "A 12\n", 1, "node name expected"},
      {true, "A Q\n", 1, "the domain has no node named `Q'"},
      {true, "A U\n", 1, "node `U' is not a chance or a decision node", ov_error_parse, true},
      {true, "A, A\n", 1, "node `A' listed twice"},
      {true, "% only a header\n\nA, B\n\n% and comments\n", 6, "warning: file contains no cases", ov_error_none},
      // Case lines.
      {true, "# A\nyes\n", 2, "case count expected"},
      {true, "# A\n\n-1 yes\n", 3, "case counts must be nonnegative"},
      {true, "# A\n2\nyes\n", 2, "line is incomplete"},
      {true, "A B C\nyes, true\nno false 1\n", 2, "the case has too few data items"},
      {true, "A B\nyes,\nno true\n", 2, "the case has too few data items"},
      {true, "A B\nyes true yes\n", 2, "the case has extra stuff at the end"},
      {true, "A B\nyes", 2, "unexpected end-of-file"},
      {true, "A B\nyes -\n", 2, "syntax error"},
      // Values in a data file.
      {true, "A\n#3\n", 2, "`#' must be followed by a valid state index"},
      {true, "A\n#1.5\n", 2, "`#' must be followed by a valid state index"},
      {true, "A\n#\n1\n", 3, "`#' must be followed by a valid state index"},
      {true, "C\n#0\n", 2, "state index can only be specified for discrete nodes"},
      {true, "A\n(1 0 0)\n", 2, "illegal token"},
      {true, "A\n:\n", 2, "illegal token"},
      {true, "A B\nyes 1\n", 2, "numeric findings are only allowed for CG, numbered, and interval nodes"},
      {true, "B\nno\n", 2, "state of boolean node should be `false' or `true'"},
      {true, "A\n\"maybe\"\n", 2, "\"maybe\" is not a (unique) state label of `A'"},
      {true, "A N\nyes s1\n", 2, "state labels are only allowed for labeled nodes"},
      {true, "D\nsame\n", 2, "\"same\" is not a (unique) state label of `D'"},
      {true, "A C\nyes x\n", 2, "state labels are only allowed for labeled nodes"},
      {true, "N\n0.5\n7\n", 3, "no state of `N' corresponds to the value 7"},
      {true, "M\n2\n", 2, "the state values of `M' do not form an increasing sequence"},
      // Case files.
      {false, "A: yes\n12: no\n", 2, "node name expected"},
      {false, "Q: yes\n", 1, "the domain has no node named `Q'"},
      {false, "U: 1\n", 1, "only chance and decision nodes can have findings", ov_error_parse, true},
      {false, "A yes\n", 1, "`:' expected"},
      {false, "A: yes\nB: true\n\nA: no\n", 4, "findings specified twice for `A'"},
      {false, "C: (1 2)\n", 1, "likelihood can only be specified for discrete nodes"},
      {false, "A: (1 x 3)\n", 1, "number expected"},
      {false, "A: (1 -2 3)\n", 1, "likelihood values must be nonnegative"},
      {false, "A: (1 2)\n", 1, "likelihood vector too short"},
      {false, "A: (1 2 3 4)\n", 1, "likelihood vector too long"},
      {false, "A: yes\nB:", 2, "unexpected end-of-file"},
      {false, "A: ;\n", 1, "illegal token"},
      {false, "I: 5\nB: no\n", 2, "state of boolean node should be `false' or `true'"},
  };
  const std::string path = temp_path("error.txt");
  for (const Row &row : rows) {
    SCOPED_TRACE(row.text);
    write_text(path, row.text);
    Net net(row.utility ? utility_network : network);
    std::vector<Message> messages;
    const ov_status_t status = row.data ? ov_domain_parse_cases(net.domain, path.c_str(), collect, &messages)
                                        : ov_domain_parse_case(net.domain, path.c_str(), collect, &messages);
    EXPECT_EQ(status, row.status);
    EXPECT_EQ(ov_error_code(), static_cast<ov_error_t>(row.status));
    EXPECT_EQ(messages, (std::vector<Message>{{row.line, row.message}}));
    if (row.status == ov_error_none) continue;
    EXPECT_EQ(ov_domain_get_number_of_cases(net.domain), 0);
    for (ov_node_t node = ov_domain_get_first_node(net.domain); node != nullptr; node = ov_node_get_next(node))
      if (ov_node_get_category(node) == ov_category_chance) {
        EXPECT_EQ(ov_node_evidence_is_entered(node), 0);
      }
  }
  // The rules that make a case: separators, missing values, counts.
  write_text(path, "# A, B C N I\n\n2.5 yes,, 1, #1 -3 % a comment\n0, *, true, ? 2.25 20\n1 no false 0.5 ? *\n");
  Net net;
  ASSERT_EQ(ov_domain_parse_cases(net.domain, path.c_str(), nullptr, nullptr), ov_error_none);
  ASSERT_EQ(ov_domain_get_number_of_cases(net.domain), 3);
  EXPECT_EQ(ov_domain_get_case_count(net.domain, 0), 2.5f);
  const std::vector<std::pair<const char *, std::vector<int>>> states = {
      {"A", {0, -1, 1}}, {"B", {-1, 1, 0}}, {"N", {1, 2, -1}}, {"I", {0, 2, -1}}};
  for (const auto &[name, expected] : states)
    for (ov_index_t i = 0; i < 3; ++i)
      EXPECT_EQ(ov_node_case_is_set(net[name], i) == 1 ? ov_node_get_case_state(net[name], i) : -1, expected[i])
          << name << " case " << i;
  EXPECT_EQ(ov_node_get_case_value(net["C"], 0), 1.0);
  EXPECT_EQ(ov_node_case_is_set(net["C"], 1), 0);
  // A case count of 0 stays 0; appending keeps the cases before.
  EXPECT_EQ(ov_domain_get_case_count(net.domain, 1), 0.0f);
  ASSERT_EQ(ov_domain_parse_cases(net.domain, path.c_str(), nullptr, nullptr), ov_error_none);
  EXPECT_EQ(ov_domain_get_number_of_cases(net.domain), 6);
  EXPECT_EQ(ov_domain_parse_cases(net.domain, (path + ".none").c_str(), nullptr, nullptr), ov_error_io);
  EXPECT_EQ(ov_domain_get_number_of_cases(net.domain), 6);
  std::remove(path.c_str());
}

// A name of 16 MB, a line of a million fields, and binary junk: a clear
// message (bounded in length), a failed read, nothing left behind.
TEST(CaseFiles, HostileInput) {
  const std::string path = temp_path("hostile.dat");
  auto parse = [&](const std::string &text, std::vector<Message> &messages) {
    write_text(path, text);
    Net net;
    const ov_status_t status = ov_domain_parse_cases(net.domain, path.c_str(), collect, &messages);
    EXPECT_EQ(ov_domain_get_number_of_cases(net.domain), 0);
    for (const Message &m : messages) EXPECT_LT(m.text.size(), 512u);
    return status;
  };
  std::vector<Message> messages;
  EXPECT_EQ(parse("A " + std::string(16 << 20, 'x') + "\n", messages), ov_error_parse);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].text.rfind("the domain has no node named `xxx", 0), 0u);

  std::string wide = "A\n";
  for (int i = 0; i < 1000000; ++i) wide += "yes ";
  messages.clear();
  EXPECT_EQ(parse(wide, messages), ov_error_parse);
  EXPECT_EQ(messages, (std::vector<Message>{{2, "the case has extra stuff at the end"}}));

  std::mt19937 draw(11);
  for (int round = 0; round < 20; ++round) {
    std::string junk = round % 2 == 0 ? "A B\n" : "";
    for (int i = 0; i < 1 << 16; ++i) junk += static_cast<char>(draw() & 0xFF);
    messages.clear();
    EXPECT_NE(parse(junk, messages), ov_error_none) << round;
    EXPECT_FALSE(messages.empty());
  }
  std::remove(path.c_str());
}

TEST(CaseFiles, Refusals) {
  Net net(utility_network);
  ov_node_t u = net["U"];
  ov_node_t a = net["A"];
  Net other;
  ov_node_t foreign = other["A"];
  ov_node_t none[] = {nullptr};
  ov_node_t with_utility[] = {a, u, nullptr};
  ov_node_t with_foreign[] = {a, foreign, nullptr};
  ov_node_t good[] = {a, nullptr};
  const ov_index_t beyond[] = {0, -1};
  const std::string path = temp_path("refused.dat");
  EXPECT_EQ(ov_domain_save_cases(net.domain, path.c_str(), none, nullptr, 0, ",", ""), ov_error_usage);
  EXPECT_EQ(ov_domain_save_cases(net.domain, path.c_str(), nullptr, nullptr, 0, ",", ""), ov_error_usage);
  EXPECT_EQ(ov_domain_save_cases(net.domain, path.c_str(), with_utility, nullptr, 0, ",", ""), ov_error_usage);
  EXPECT_EQ(ov_domain_save_cases(net.domain, path.c_str(), with_foreign, nullptr, 0, ",", ""), ov_error_usage);
  EXPECT_EQ(ov_domain_save_cases(net.domain, path.c_str(), good, beyond, 0, ",", ""), ov_error_usage);
  EXPECT_EQ(ov_domain_save_cases(net.domain, path.c_str(), good, nullptr, 0, nullptr, ""), ov_error_usage);
  EXPECT_EQ(ov_domain_save_cases(net.domain, path.c_str(), good, nullptr, 0, ",", nullptr), ov_error_usage);
  EXPECT_EQ(ov_domain_save_cases(net.domain, nullptr, good, nullptr, 0, ",", ""), ov_error_usage);
  EXPECT_EQ(ov_domain_parse_cases(nullptr, path.c_str(), nullptr, nullptr), ov_error_usage);
  EXPECT_EQ(ov_domain_parse_case(net.domain, nullptr, nullptr, nullptr), ov_error_usage);
  EXPECT_EQ(ov_domain_save_case(net.domain, "/nonexistent/dir/x.case"), ov_error_io);
}

} // namespace
