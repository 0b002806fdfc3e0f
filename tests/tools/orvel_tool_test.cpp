// End-to-end tests of the orvel command: run the binary, read what it
// prints, and compare with answers computed here by enumerating the joint
// distribution of the example networks.
#ifdef ORVEL_TOOL

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <regex>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "orvel.h"

namespace {

struct ToolRun {
  int status = -1;
  std::string out, err;
};

// Runs the tool with the given arguments (already quoted for the shell).
// Its standard error goes to a file of this process's own, since CTest runs
// the test cases as parallel processes.
ToolRun run_tool(const std::string &arguments) {
  std::string err_file = testing::TempDir() + "orvel_tool_stderr_" + std::to_string(getpid()) + ".txt";
  std::string command = std::string(ORVEL_TOOL) + " " + arguments + " 2>" + err_file;
  ToolRun run;
  FILE *pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return run;
  std::array<char, 4096> buffer;
  size_t n;
  while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) run.out.append(buffer.data(), n);
  int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (FILE *f = fopen(err_file.c_str(), "r")) {
    while ((n = fread(buffer.data(), 1, buffer.size(), f)) > 0) run.err.append(buffer.data(), n);
    fclose(f);
  }
  std::remove(err_file.c_str());
  return run;
}

std::string example(const char *name) { return std::string(ORVEL_EXAMPLES) + "/" + name; }

// The beliefs printed for a node in --json output.
std::vector<double> json_numbers(const std::string &json, const std::string &node, const std::string &field) {
  std::regex pattern("\"" + node + "\": \\{[^}]*\"" + field + "\": \\[([^\\]]*)\\]");
  std::smatch match;
  std::vector<double> values;
  if (!std::regex_search(json, match, pattern)) return values;
  std::string list = match[1];
  std::regex number("[-+0-9.eE]+");
  for (auto it = std::sregex_iterator(list.begin(), list.end(), number); it != std::sregex_iterator(); ++it)
    values.push_back(std::stod(it->str()));
  return values;
}

double json_scalar(const std::string &json, const std::string &field) {
  std::regex pattern("\"" + field + "\": ([-+0-9.eE]+)");
  std::smatch match;
  return std::regex_search(json, match, pattern) ? std::stod(match[1]) : -999.0;
}

// The sprinkler network's joint, by enumeration. Index 0 is "yes"/"on".
struct Sprinkler {
  double joint[2][2][2][2]; // cloudy, sprinkler, rain, wet
  Sprinkler() {
    const double cloudy[2] = {0.5, 0.5};
    const double sprinkler[2][2] = {{0.1, 0.9}, {0.5, 0.5}};
    const double rain[2][2] = {{0.8, 0.2}, {0.2, 0.8}};
    const double wet[2][2][2] = {{{0.99, 0.01}, {0.9, 0.1}}, {{0.9, 0.1}, {0.0, 1.0}}};
    for (int c = 0; c < 2; ++c)
      for (int s = 0; s < 2; ++s)
        for (int r = 0; r < 2; ++r)
          for (int w = 0; w < 2; ++w) joint[c][s][r][w] = cloudy[c] * sprinkler[c][s] * rain[c][r] * wet[s][r][w];
  }
};

TEST(OrvelTool, BeliefsMatchEnumerationWithHardEvidence) {
  Sprinkler net;
  double evidence = 0, rain_yes = 0, cloudy_yes = 0;
  for (int c = 0; c < 2; ++c)
    for (int s = 0; s < 2; ++s)
      for (int r = 0; r < 2; ++r) {
        double p = net.joint[c][s][r][0];
        evidence += p;
        if (r == 0) rain_yes += p;
        if (c == 0) cloudy_yes += p;
      }
  ToolRun run = run_tool("beliefs " + example("sprinkler.net") + " -e WetGrass=yes --json");
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<double> rain = json_numbers(run.out, "Rain", "beliefs");
  ASSERT_EQ(rain.size(), 2u) << run.out;
  EXPECT_NEAR(rain[0], rain_yes / evidence, 1e-6);
  EXPECT_NEAR(rain[1], 1 - rain_yes / evidence, 1e-6);
  std::vector<double> cloudy = json_numbers(run.out, "Cloudy", "beliefs");
  ASSERT_EQ(cloudy.size(), 2u);
  EXPECT_NEAR(cloudy[0], cloudy_yes / evidence, 1e-6);
  EXPECT_NEAR(json_scalar(run.out, "probability_of_evidence"), evidence, 1e-6);
  EXPECT_NEAR(json_scalar(run.out, "log_probability_of_evidence"), std::log(evidence), 1e-5);
  std::vector<double> wet = json_numbers(run.out, "WetGrass", "beliefs");
  ASSERT_EQ(wet.size(), 2u);
  EXPECT_NEAR(wet[0], 1.0, 1e-7);
}

TEST(OrvelTool, LikelihoodAndStateIndexEvidence) {
  Sprinkler net;
  // Likelihood (0.2, 0.8) on Sprinkler and hard evidence Rain = #1 ("no").
  const double likelihood[2] = {0.2, 0.8};
  double total = 0, cloudy_yes = 0;
  for (int c = 0; c < 2; ++c)
    for (int s = 0; s < 2; ++s)
      for (int w = 0; w < 2; ++w) {
        double p = net.joint[c][s][1][w] * likelihood[s];
        total += p;
        if (c == 0) cloudy_yes += p;
      }
  ToolRun run = run_tool("beliefs " + example("sprinkler.net") + " -l Sprinkler=0.2,0.8 -e 'Rain=#1' --json");
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<double> cloudy = json_numbers(run.out, "Cloudy", "beliefs");
  ASSERT_EQ(cloudy.size(), 2u) << run.out;
  EXPECT_NEAR(cloudy[0], cloudy_yes / total, 1e-6);
  EXPECT_NEAR(json_scalar(run.out, "probability_of_evidence"), total, 1e-6);
}

TEST(OrvelTool, MarginalOfTwoNodes) {
  Sprinkler net;
  ToolRun run = run_tool("marginal " + example("sprinkler.net") + " Sprinkler,Rain");
  ASSERT_EQ(run.status, 0) << run.err;
  for (int s = 0; s < 2; ++s)
    for (int r = 0; r < 2; ++r) {
      double p = 0;
      for (int c = 0; c < 2; ++c)
        for (int w = 0; w < 2; ++w) p += net.joint[c][s][r][w];
      std::string line = std::string("Sprinkler=") + (s == 0 ? "on" : "off") + " Rain=" + (r == 0 ? "yes" : "no");
      auto at = run.out.find(line);
      ASSERT_NE(at, std::string::npos) << run.out;
      EXPECT_NEAR(std::stod(run.out.substr(at + line.size())), p, 1e-6) << line;
    }
}

TEST(OrvelTool, CompileSummaryAndConvert) {
  ToolRun run = run_tool("compile " + example("sprinkler.net"));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("nodes: 4"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("cliques: 2"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("junction trees: 1"), std::string::npos) << run.out;
  // Cliques {C,S,R} and {S,R,W}: 8 + 8 cells.
  EXPECT_NE(run.out.find("total clique table size: 16"), std::string::npos) << run.out;

  std::string out = testing::TempDir() + "sprinkler_copy.net";
  run = run_tool("convert " + example("sprinkler.net") + " " + out);
  ASSERT_EQ(run.status, 0) << run.err;
  // The written file gives the same beliefs.
  ToolRun a = run_tool("beliefs " + example("sprinkler.net") + " -e WetGrass=no --json");
  ToolRun b = run_tool("beliefs " + out + " -e WetGrass=no --json");
  ASSERT_EQ(b.status, 0) << b.err;
  EXPECT_EQ(json_numbers(a.out, "Rain", "beliefs"), json_numbers(b.out, "Rain", "beliefs"));
}

TEST(OrvelTool, WrongInputGivesOneClearLineAndAnExitCode) {
  struct Case {
    std::string arguments;
    int status;
    std::string says;
  };
  std::string net = example("sprinkler.net");
  std::string bad = testing::TempDir() + "malformed.net";
  if (FILE *f = fopen(bad.c_str(), "w")) {
    fputs("node A\n{\n    states = (\"x\" \"y\";\n}\n", f);
    fclose(f);
  }
  const std::vector<Case> cases = {
      {"", 1, "usage"},
      {"frobnicate", 1, "unknown command"},
      {"beliefs", 1, "needs a network"},
      {"beliefs /nonexistent/x.net", 2, "io"},
      {"beliefs " + net + " -e Nowhere=yes", 1, "no node named 'Nowhere'"},
      {"beliefs " + net + " -e Rain=maybe", 1, "no (single) state 'maybe'"},
      {"beliefs " + net + " -l Rain=1", 1, "2 states, but 1 weights"},
      {"beliefs " + net + " -e Rain", 1, "expects NODE=VALUE"},
      {"beliefs " + net + " --bogus", 1, "unknown option"},
      {"beliefs " + net + " -e Sprinkler=off -e Rain=no -e WetGrass=yes", 2, "inconsistency_or_underflow"},
      {"beliefs " + bad, 2, "malformed.net:"},
      {"compile " + net + " --method best", 1, "unknown method"},
  };
  for (const Case &c : cases) {
    ToolRun run = run_tool(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
    EXPECT_NE(run.err.find(c.says), std::string::npos) << c.arguments << "\n" << run.err;
    EXPECT_EQ(run.err.find("terminate"), std::string::npos);
  }
}

TEST(OrvelTool, HelpForEachCommand) {
  for (const char *command : {"beliefs", "marginal", "compile", "convert"}) {
    ToolRun run = run_tool(std::string(command) + " --help");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find(std::string("usage: orvel ") + command), std::string::npos);
  }
  EXPECT_EQ(run_tool("--help").status, 0);
}

// The joint of a small network by enumeration, read through the library's
// NET reader and table accessors, against what the tool prints.
struct Enumerated {
  std::vector<ov_node_t> nodes;
  std::vector<std::vector<double>> beliefs;
  double evidence = 0;
};

Enumerated enumerate(ov_domain_t domain, const std::vector<std::pair<ov_node_t, ov_index_t>> &findings) {
  Enumerated result;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) result.nodes.push_back(n);
  std::size_t count = result.nodes.size();
  std::vector<ov_index_t> state(count, 0);
  for (ov_node_t n : result.nodes) result.beliefs.emplace_back(ov_node_get_number_of_states(n), 0.0);
  auto position = [&](ov_node_t node) {
    for (std::size_t i = 0; i < count; ++i)
      if (result.nodes[i] == node) return i;
    return count;
  };
  for (;;) {
    double p = 1;
    for (std::size_t i = 0; i < count && p > 0; ++i) {
      ov_table_t table = ov_node_get_table(result.nodes[i]);
      ov_count_t index = 0;
      for (ov_node_t *m = ov_table_get_nodes(table); *m != nullptr; ++m)
        index = index * ov_node_get_number_of_states(*m) + state[position(*m)];
      p *= ov_table_get_data(table)[index];
    }
    for (const auto &[node, s] : findings)
      if (state[position(node)] != s) p = 0;
    if (p > 0) {
      result.evidence += p;
      for (std::size_t i = 0; i < count; ++i) result.beliefs[i][static_cast<std::size_t>(state[i])] += p;
    }
    std::size_t i = count;
    while (i-- > 0) {
      if (++state[i] < ov_node_get_number_of_states(result.nodes[i])) break;
      state[i] = 0;
    }
    if (i == static_cast<std::size_t>(-1)) break;
  }
  for (auto &b : result.beliefs)
    for (double &x : b) x /= result.evidence;
  return result;
}

TEST(OrvelTool, SmallSharedNetworksMatchEnumeration) {
  for (const char *name : {"asia", "cancer", "earthquake", "survey", "sachs"}) {
    std::string file = std::string(ORVEL_NETWORKS "/") + name + ".net";
    ov_domain_t domain = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
    ASSERT_NE(domain, nullptr) << file;
    // Evidence: the first node in its last state and the last node in its first.
    std::vector<ov_node_t> all;
    for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) all.push_back(n);
    ov_node_t a = all.front(), b = all.back();
    ov_index_t sa = ov_node_get_number_of_states(a) - 1;
    Enumerated expected = enumerate(domain, {{a, sa}, {b, 0}});
    ASSERT_GT(expected.evidence, 0) << file;
    ToolRun run = run_tool("beliefs " + file + " -e '" + ov_node_get_name(a) + "=#" + std::to_string(sa) + "' -e '" +
                           ov_node_get_name(b) + "=#0' --json");
    ASSERT_EQ(run.status, 0) << file << "\n" << run.err;
    EXPECT_NEAR(json_scalar(run.out, "probability_of_evidence"), expected.evidence, 1e-6 + 1e-4 * expected.evidence)
        << file;
    for (std::size_t i = 0; i < expected.nodes.size(); ++i) {
      std::vector<double> printed = json_numbers(run.out, ov_node_get_name(expected.nodes[i]), "beliefs");
      ASSERT_EQ(printed.size(), expected.beliefs[i].size()) << file << " " << ov_node_get_name(expected.nodes[i]);
      for (std::size_t s = 0; s < printed.size(); ++s)
        EXPECT_NEAR(printed[s], expected.beliefs[i][s], 2e-6) << file << " " << ov_node_get_name(expected.nodes[i]);
    }
    ov_domain_delete(domain);
  }
}

} // namespace

#endif
