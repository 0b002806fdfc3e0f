// End-to-end tests of the orvel command: run the binary, read what it
// prints, and compare with answers computed here by enumerating the joint
// distribution of small networks.
#ifdef ORVEL_TOOL

#include <gtest/gtest.h>

#include <fstream>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "inference/brute_force.h"
#include "orvel.h"

namespace {

struct ToolRun {
  int status = -1;
  std::string out, err;
};

// Runs the tool with the given arguments (already quoted for the shell),
// after the shell commands of `prefix`. Its standard error goes to a file of
// this process's own, since CTest runs the test cases as parallel processes.
ToolRun run_tool(const std::string &arguments, const std::string &prefix = "") {
  std::string err_file = testing::TempDir() + "orvel_tool_stderr_" + std::to_string(getpid()) + ".txt";
  std::string command = prefix + std::string(ORVEL_TOOL) + " " + arguments + " 2>" + err_file;
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

// Writes `text` to a file and returns its path; `name` is relative to the
// temporary directory.
std::string write_file(const std::string &name, const std::string &text) {
  std::string path = name[0] == '/' ? name : testing::TempDir() + name;
  if (FILE *f = fopen(path.c_str(), "wb")) {
    fwrite(text.data(), 1, text.size(), f);
    fclose(f);
  }
  return path;
}

std::string read_file(const std::string &path) {
  std::string text;
  if (FILE *f = fopen(path.c_str(), "rb")) {
    std::array<char, 4096> buffer;
    size_t n;
    while ((n = fread(buffer.data(), 1, buffer.size(), f)) > 0) text.append(buffer.data(), n);
    fclose(f);
  }
  return text;
}

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

using orvel::test::brute_marginal;
using orvel::test::Findings;
using orvel::test::RandomNetwork;

// A network's findings: none, then a hard finding or a weight per state.
struct Evidence {
  const RandomNetwork &net;
  Findings findings;
  explicit Evidence(const RandomNetwork &n) : net(n), findings(orvel::test::no_findings(n)) {}
  std::size_t index(ov_node_t node) const {
    return static_cast<std::size_t>(std::find(net.nodes.begin(), net.nodes.end(), node) - net.nodes.begin());
  }
  void hard(ov_node_t node, ov_index_t state) {
    std::vector<float> &f = findings[index(node)];
    std::fill(f.begin(), f.end(), 0.0f);
    f[static_cast<std::size_t>(state)] = 1.0f;
  }
  // The probability of the findings, and the belief of node `i`.
  double probability() const {
    double total = 0;
    brute_marginal(net, findings, {}, std::vector<bool>(net.nodes.size(), false), false, &total);
    return total;
  }
  std::vector<double> belief(int i) const {
    std::vector<double> b =
        brute_marginal(net, findings, {i}, std::vector<bool>(net.nodes.size(), false), false, nullptr);
    for (double &x : b) x /= probability();
    return b;
  }
};

// Beliefs and the probability of the evidence against enumeration: hard
// evidence by label and by state index, and a likelihood, on the example
// and on small shared networks.
TEST(OrvelTool, BeliefsMatchEnumeration) {
  std::vector<std::string> files{example("sprinkler.net"), example("sprinkler.net")};
  for (const char *name : {"asia", "cancer", "earthquake", "survey", "sachs"})
    files.push_back(std::string(ORVEL_NETWORKS "/") + name + ".net");
  for (std::size_t k = 0; k < files.size(); ++k) {
    const std::string &file = files[k];
    SCOPED_TRACE(file);
    ov_domain_t domain = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
    ASSERT_NE(domain, nullptr);
    RandomNetwork net = RandomNetwork::read(domain);
    Evidence expected(net);
    std::string options;
    if (k == 0) {
      ov_node_t wet = ov_domain_get_node_by_name(domain, "WetGrass");
      expected.hard(wet, ov_node_get_state_index_from_label(wet, "yes"));
      options = " -e WetGrass=yes";
    } else if (k == 1) {
      expected.findings[expected.index(ov_domain_get_node_by_name(domain, "Sprinkler"))] = {0.2f, 0.8f};
      expected.hard(ov_domain_get_node_by_name(domain, "Rain"), 1);
      options = " -l Sprinkler=0.2,0.8 -e 'Rain=#1'";
    } else {
      // The first node in its last state and the last node in its first.
      ov_node_t a = net.nodes.front(), b = net.nodes.back();
      ov_index_t sa = ov_node_get_number_of_states(a) - 1;
      expected.hard(a, sa);
      expected.hard(b, 0);
      options = std::string(" -e '") + ov_node_get_name(a) + "=#" + std::to_string(sa) + "' -e '" +
                ov_node_get_name(b) + "=#0'";
    }
    const double evidence = expected.probability();
    ASSERT_GT(evidence, 0);
    ToolRun run = run_tool("beliefs " + file + options + " --json");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NEAR(json_scalar(run.out, "probability_of_evidence"), evidence, 1e-6 + 1e-4 * evidence);
    EXPECT_NEAR(json_scalar(run.out, "log_probability_of_evidence"), std::log(evidence), 1e-4);
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      const std::vector<double> belief = expected.belief(static_cast<int>(i));
      std::vector<double> printed = json_numbers(run.out, ov_node_get_name(net.nodes[i]), "beliefs");
      ASSERT_EQ(printed.size(), belief.size()) << ov_node_get_name(net.nodes[i]);
      for (std::size_t s = 0; s < printed.size(); ++s)
        EXPECT_NEAR(printed[s], belief[s], 2e-6) << ov_node_get_name(net.nodes[i]);
    }
  }
}

TEST(OrvelTool, MarginalOfTwoNodes) {
  ov_domain_t domain = ov_net_parse_domain(example("sprinkler.net").c_str(), nullptr, nullptr);
  ASSERT_NE(domain, nullptr);
  RandomNetwork net = RandomNetwork::read(domain);
  Evidence expected(net);
  ov_node_t sprinkler = ov_domain_get_node_by_name(domain, "Sprinkler"),
            rain = ov_domain_get_node_by_name(domain, "Rain");
  ToolRun run = run_tool("marginal " + example("sprinkler.net") + " Sprinkler,Rain");
  ASSERT_EQ(run.status, 0) << run.err;
  for (ov_index_t s = 0; s < 2; ++s)
    for (ov_index_t r = 0; r < 2; ++r) {
      std::string line = std::string("Sprinkler=") + ov_node_get_state_label(sprinkler, s) +
                         " Rain=" + ov_node_get_state_label(rain, r);
      auto at = run.out.find(line);
      ASSERT_NE(at, std::string::npos) << run.out;
      expected.hard(sprinkler, s);
      expected.hard(rain, r);
      EXPECT_NEAR(std::stod(run.out.substr(at + line.size())), expected.probability(), 1e-6) << line;
    }
}

TEST(OrvelTool, CompileSummaryAndConvert) {
  ToolRun run = run_tool("compile " + example("sprinkler.net"));
  ASSERT_EQ(run.status, 0) << run.err;
  // Cliques {C,S,R} and {S,R,W}: 8 + 8 cells.
  for (const char *line : {"nodes: 4", "cliques: 2", "junction trees: 1", "total clique table size: 16"})
    EXPECT_NE(run.out.find(line), std::string::npos) << run.out;
  // On insurance: the search's total is below every heuristic's, and best
  // keeps it.
  const std::string insurance = std::string(ORVEL_NETWORKS "/") + "insurance.net";
  auto total_of = [](const ToolRun &r) {
    auto at = r.out.find("total clique table size: ");
    return at == std::string::npos ? -1.0 : std::stod(r.out.substr(at + 25));
  };
  const double searched = total_of(run_tool("compile " + insurance + " --method total-weight"));
  for (const char *method : {"clique-size", "clique-weight", "fill-in-size", "fill-in-weight"})
    EXPECT_LT(searched, total_of(run_tool("compile " + insurance + " --method " + method))) << method;
  run = run_tool("compile " + insurance + " --method best");
  EXPECT_NE(run.out.find("method: best (total-weight)\n"), std::string::npos) << run.out;
  EXPECT_EQ(total_of(run), searched);
  // --approximate removes the mass the library call removes, and cells with it.
  run = run_tool("compile " + insurance + " --approximate 0.01");
  ASSERT_EQ(run.status, 0) << run.err;
  double removed = 0, before = 0, after = 0;
  auto at = run.out.find("approximation: epsilon 0.01, mass removed ");
  ASSERT_NE(at, std::string::npos) << run.out;
  removed = std::stod(run.out.substr(at + 42));
  ASSERT_EQ(std::sscanf(run.out.c_str() + run.out.find("non-zero clique cells: "),
                        "non-zero clique cells: %lf before, %lf after", &before, &after),
            2);
  EXPECT_LT(after, before);
  ov_domain_t reference = ov_net_parse_domain(insurance.c_str(), nullptr, nullptr);
  ASSERT_EQ(ov_domain_triangulate(reference, ov_tm_fill_in_weight), ov_error_none);
  ASSERT_EQ(ov_domain_compile(reference), ov_error_none);
  EXPECT_NEAR(removed, ov_domain_approximate(reference, 0.01), 1e-5 * removed);
  ov_domain_delete(reference);
  // --compress keeps of the full clique tables the cells the approximation
  // left non-zero.
  run = run_tool("compile " + insurance + " --approximate 0.01 --compress");
  const std::string full = std::to_string(static_cast<long long>(total_of(run)));
  EXPECT_NE(run.out.find("compression: clique cells " + full + " before, " +
                         std::to_string(static_cast<long long>(after)) + " after\n"),
            std::string::npos)
      << run.out;
  std::string out = testing::TempDir() + "sprinkler_copy.net";
  run = run_tool("convert " + example("sprinkler.net") + " " + out);
  ASSERT_EQ(run.status, 0) << run.err;
  // The written file gives the same beliefs.
  ToolRun a = run_tool("beliefs " + example("sprinkler.net") + " -e WetGrass=no --json");
  ToolRun b = run_tool("beliefs " + out + " -e WetGrass=no --json");
  ASSERT_EQ(b.status, 0) << b.err;
  EXPECT_EQ(json_numbers(a.out, "Rain", "beliefs"), json_numbers(b.out, "Rain", "beliefs"));
  // By extension: to a KB file and back to NET, with the same beliefs.
  const std::string kb = testing::TempDir() + "sprinkler_copy.kb", back = testing::TempDir() + "sprinkler_back.net";
  ASSERT_EQ(run_tool("convert " + out + " " + kb).status, 0);
  ASSERT_EQ(run_tool("convert " + kb + " " + back).status, 0);
  for (const std::string &file : {kb, back}) {
    ToolRun c = run_tool("beliefs " + file + " -e WetGrass=no --json");
    ASSERT_EQ(c.status, 0) << c.err;
    EXPECT_EQ(json_numbers(a.out, "Rain", "beliefs"), json_numbers(c.out, "Rain", "beliefs")) << file;
  }
  for (const char *command : {"beliefs", "marginal", "compile", "convert"}) {
    ToolRun help = run_tool(std::string(command) + " --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find(std::string("usage: orvel ") + command), std::string::npos);
  }
}

// The oil wildcatter (Raiffa 1968): test, then drill unless the seismic
// structure is diffuse, for 22.5; drilling untested is worth 20.
TEST(OrvelTool, InfluenceDiagramExpectedUtilities) {
  ToolRun json = run_tool("beliefs " + example("oil_wildcatter.net") + " --json");
  ASSERT_EQ(json.status, 0) << json.err;
  EXPECT_NEAR(json_scalar(json.out, "maximum_expected_utility"), 22.5, 1e-5);
  const std::vector<double> test = json_numbers(json.out, "Test", "expected_utilities");
  ASSERT_EQ(test.size(), 2u);
  EXPECT_NEAR(test[0], 22.5, 1e-5);
  EXPECT_NEAR(test[1], 20.0, 1e-5);
  EXPECT_NE(json.out.find("\"expected_utilities\": [22.5, 20], \"best\": \"yes\""), std::string::npos) << json.out;
  ToolRun text = run_tool("beliefs " + example("oil_wildcatter.net") + " -e Test=yes -e Seismic=closed");
  ASSERT_EQ(text.status, 0) << text.err;
  // Closed (probability 0.24): drilling expects 21 / 0.24 - 10.
  const std::string meu = "maximum expected utility: ";
  ASSERT_NE(text.out.find(meu), std::string::npos) << text.out;
  EXPECT_NEAR(std::stod(text.out.substr(text.out.find(meu) + meu.size())), 77.5, 1e-5);
  EXPECT_NE(text.out.find("yes                  EU 77.5  (best)"), std::string::npos) << text.out;
  // The policy of Drill: drill unless the test shows a diffuse structure
  // (-12.5 / 0.41 - 10 against -10); the test itself is always worth it.
  ToolRun policy = run_tool("policy " + example("oil_wildcatter.net") + " Drill");
  ASSERT_EQ(policy.status, 0) << policy.err;
  EXPECT_NE(policy.out.find("Test=yes Seismic=diffuse  ->  no  yes: -40.4878044  no: -10\n"), std::string::npos)
      << policy.out;
  EXPECT_NE(policy.out.find("Test=no Seismic=none  ->  yes  yes: 20  no: 0\n"), std::string::npos) << policy.out;
  ToolRun first = run_tool("policy " + example("oil_wildcatter.net") + " Test --json");
  ASSERT_EQ(first.status, 0) << first.err;
  EXPECT_NE(first.out.find("\"past\": [], \"rows\": [{\"states\": [], \"choice\": \"yes\", "
                           "\"expected_utilities\": [22.5, 20]}]"),
            std::string::npos)
      << first.out;
  EXPECT_EQ(run_tool("policy " + example("oil_wildcatter.net") + " Oil").status, 1);
  // Drill sees Test and Seismic, so limited memory changes nothing here but
  // the order of the past, which is now the parents'.
  ToolRun limited = run_tool("policy " + example("oil_wildcatter.net") + " Drill --limited");
  ASSERT_EQ(limited.status, 0) << limited.err;
  EXPECT_NE(limited.out.find("Seismic=diffuse Test=yes  ->  no  yes: -40.4878044  no: -10\n"), std::string::npos)
      << limited.out;
  ToolRun limited_json = run_tool("beliefs " + example("oil_wildcatter.net") + " --limited --json");
  ASSERT_EQ(limited_json.status, 0) << limited_json.err;
  EXPECT_NEAR(json_scalar(limited_json.out, "maximum_expected_utility"), 22.5, 1e-5);
}

TEST(OrvelTool, MixedNetworkTakesValuesAndPrintsMoments) {
  ToolRun json = run_tool("beliefs " + example("pump.net") + " -v Sensor1=7.2 -v Sensor2=6.8 --json");
  ASSERT_EQ(json.status, 0) << json.err;
  ov_domain_t domain = ov_net_parse_domain(example("pump.net").c_str(), nullptr, nullptr);
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  ov_node_t flow = ov_domain_get_node_by_name(domain, "Flow");
  ov_node_enter_value(ov_domain_get_node_by_name(domain, "Sensor1"), 7.2);
  ov_node_enter_value(ov_domain_get_node_by_name(domain, "Sensor2"), 6.8);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  char expected[128];
  std::snprintf(expected, sizeof expected, "\"Flow\": {\"mean\": %.9g, \"variance\": %.9g}", ov_node_get_mean(flow),
                ov_node_get_variance(flow));
  EXPECT_NE(json.out.find(expected), std::string::npos) << json.out;
  EXPECT_NE(json.out.find("\"evidence\": {\"Sensor1\": 7.2, \"Sensor2\": 6.8}"), std::string::npos) << json.out;
  ov_domain_delete(domain);
}

TEST(OrvelTool, WrongInputGivesOneClearLineAndAnExitCode) {
  struct Case {
    std::string arguments;
    int status;
    std::string says;
  };
  std::string net = example("sprinkler.net");
  std::string bad = write_file("malformed.net", "node A\n{\n    states = (\"x\" \"y\";\n}\n");
  std::string empty = write_file("empty.net", "");
  std::string comment = write_file("comment.net", "% nothing but a comment\n");
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
      {"beliefs " + empty, 2, "empty.net: empty file\n"},
      {"marginal " + comment + " A", 2, "comment.net: no nodes in the network\n"},
      {"compile " + testing::TempDir(), 2, ": is a directory\n"},
      {"compile " + net + " --method optimal", 1, "unknown method"},
      {"compile " + net + " --approximate 1", 1, "--approximate needs a mass from 0 up to but not including 1"},
      {"beliefs " + example("oil_wildcatter.net") + " --max", 2, "usage"},
  };
  for (const Case &c : cases) {
    ToolRun run = run_tool(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
    EXPECT_NE(run.err.find(c.says), std::string::npos) << c.arguments << "\n" << run.err;
    EXPECT_EQ(run.err.find("terminate"), std::string::npos);
  }
}

// Output that cannot be written is a failure with a message, and no output
// file ever replaces the input or is left half written.
TEST(OrvelTool, LostOutputFailsAndFilesAreNeverClobbered) {
  const std::string net = example("sprinkler.net");
  for (const std::string &arguments :
       {"beliefs " + net + " --json", "compile " + net, "marginal " + net + " Rain", std::string("--help")}) {
    ToolRun run = run_tool(arguments + " >/dev/full");
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_EQ(run.err, "orvel: error writing standard output: No space left on device\n") << arguments;
  }
  const std::string original = read_file(net);
  const std::string copy = write_file("clobber.net", original);
  ToolRun run = run_tool("compile " + copy + " --log " + copy);
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("the log file " + copy + " is the network " + copy), std::string::npos) << run.err;
  run = run_tool("convert " + copy + " " + testing::TempDir() + "/./clobber.net");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(read_file(copy), original);

  // A convert that runs out of room (a file size limit of 512 bytes) keeps
  // the old target and leaves no temporary file; one that succeeds keeps the
  // target's permissions.
  const std::string directory = testing::TempDir() + "orvel_convert_" + std::to_string(getpid());
  ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
  const std::string target = directory + "/out.net";
  write_file(target, "old\n");
  ASSERT_EQ(chmod(target.c_str(), 0640), 0);
  run = run_tool("convert " + net + " " + target, "ulimit -f 1; trap '' XFSZ; exec ");
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("writing " + target + ": io"), std::string::npos) << run.err;
  EXPECT_EQ(read_file(target), "old\n");
  run = run_tool("convert " + net + " " + target);
  EXPECT_EQ(run.status, 0) << run.err;
  struct stat st;
  ASSERT_EQ(stat(target.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(run_tool("beliefs " + target).status, 0);
  std::vector<std::string> left;
  if (DIR *d = opendir(directory.c_str())) {
    while (dirent *entry = readdir(d))
      if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..") left.push_back(entry->d_name);
    closedir(d);
  }
  EXPECT_EQ(left, std::vector<std::string>{"out.net"});
  std::remove(target.c_str());
  rmdir(directory.c_str());
}

// --json output is valid UTF-8 JSON whatever bytes the file name and the
// labels hold: well-formed UTF-8 passes, control characters are escaped, and
// any other byte becomes the code point of its value.
TEST(OrvelTool, JsonStringsForAnyBytes) {
  const std::string name = "caf\xe9.net";
  const std::string path = write_file(name, "node A { states = (\"\xff\\x01\" \"\xc3\xa9\xe2\x82\xac\" "
                                            "\"\xc0\xaf\xed\xa0\x80\\x7f\"); }\n");
  ToolRun run = run_tool("beliefs '" + path + "' --json");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("caf\\u00e9.net\""), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\"states\": [\"\\u00ff\\u0001\", \"\xc3\xa9\xe2\x82\xac\", "
                         "\"\\u00c0\\u00af\\u00ed\\u00a0\\u0080\\u007f\"]"),
            std::string::npos)
      << run.out;
  // Nothing else: only printable ASCII and the two well-formed sequences.
  std::string rest = run.out;
  for (const char *allowed : {"\xc3\xa9", "\xe2\x82\xac"})
    for (auto at = rest.find(allowed); at != std::string::npos; at = rest.find(allowed))
      rest.erase(at, std::strlen(allowed));
  EXPECT_TRUE(std::all_of(rest.begin(), rest.end(), [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7f); }));
  std::remove(path.c_str());
}

} // namespace

#endif

namespace {

// A file of classes is unfolded from its main class; its nodes are named by
// path. The garage's numbers worked by hand: a mechanic fixes with
// probability 0.3 * 0.4 + 0.7 * 0.9 = 0.75, and the car goes unserved only
// if both fail: 0.3 * 0.6^2 + 0.7 * 0.1^2 = 0.115.
TEST(OrvelTool, ClassFilesAreUnfolded) {
  const std::string garage = example("garage.net");
  ToolRun run = run_tool("beliefs --json " + garage);
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<double> served = json_numbers(run.out, "Served", "beliefs");
  ASSERT_EQ(served.size(), 2u);
  EXPECT_NEAR(served[0], 0.115, 1e-6);
  std::vector<double> fixed = json_numbers(run.out, "Second_Fixed", "beliefs");
  ASSERT_EQ(fixed.size(), 2u);
  EXPECT_NEAR(fixed[1], 0.75, 1e-6);

  // Given that the first failed: P(low) = 0.18 / 0.25, P(unserved) = 0.115 / 0.25.
  run = run_tool("beliefs --json --class Garage -e First_Fixed=no " + garage);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NEAR(json_numbers(run.out, "Training", "beliefs")[0], 0.72, 1e-6);
  EXPECT_NEAR(json_numbers(run.out, "Served", "beliefs")[0], 0.46, 1e-6);

  // Converted to a domain file, it reads back with the same answers.
  const std::string flat = testing::TempDir() + "garage_flat_" + std::to_string(getpid()) + ".net";
  ASSERT_EQ(run_tool("convert " + garage + " " + flat).status, 0);
  EXPECT_EQ(read_file(flat).find("class"), std::string::npos);
  run = run_tool("beliefs --json " + flat);
  EXPECT_NEAR(json_numbers(run.out, "Served", "beliefs")[0], 0.115, 1e-6);
  std::remove(flat.c_str());

  run = run_tool("compile --class Mechanic " + garage);
  EXPECT_EQ(run.status, 0);
  EXPECT_NE(run.out.find("nodes: 2\n"), std::string::npos);
  run = run_tool("beliefs --class Nobody " + garage);
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "orvel: " + garage + ": no class named Nobody\n");
}

// Simulated cases read back, follow the network's marginals, and blanking a
// fraction of the entries keeps the cases drawn.
TEST(OrvelTool, SimulateWritesCasesOfTheNetwork) {
  const std::string net = example("sprinkler.net");
  const std::string full = testing::TempDir() + "simulated_full.dat";
  const std::string gaps = testing::TempDir() + "simulated_gaps.dat";
  const int n = 4000;
  ASSERT_EQ(run_tool("simulate " + net + " -n 4000 --seed 7 -o " + full).status, 0);
  ASSERT_EQ(run_tool("simulate " + net + " -o " + gaps + " --missing 0.3 -n 4000 --seed 7").status, 0);

  ov_domain_t a = ov_net_parse_domain(net.c_str(), nullptr, nullptr);
  ov_domain_t b = ov_net_parse_domain(net.c_str(), nullptr, nullptr);
  ASSERT_EQ(ov_domain_parse_cases(a, full.c_str(), nullptr, nullptr), ov_error_none);
  ASSERT_EQ(ov_domain_parse_cases(b, gaps.c_str(), nullptr, nullptr), ov_error_none);
  ASSERT_EQ(ov_domain_get_number_of_cases(a), n);
  ASSERT_EQ(ov_domain_get_number_of_cases(b), n);
  ASSERT_EQ(ov_domain_compile(a), ov_error_none);
  std::string header;
  for (ov_node_t node = ov_domain_get_first_node(a); node != nullptr; node = ov_node_get_next(node))
    header += (header.empty() ? "" : ",") + std::string(ov_node_get_name(node));
  EXPECT_EQ(read_file(full).substr(0, header.size() + 2), header + "\n\n");
  int entries = 0, blanked = 0;
  for (ov_node_t node = ov_domain_get_first_node(a); node != nullptr; node = ov_node_get_next(node)) {
    ov_node_t other = ov_domain_get_node_by_name(b, ov_node_get_name(node));
    std::vector<int> seen(static_cast<std::size_t>(ov_node_get_number_of_states(node)));
    for (ov_index_t i = 0; i < n; ++i) {
      ASSERT_EQ(ov_node_case_is_set(node, i), 1);
      const ov_index_t state = ov_node_get_case_state(node, i);
      ++seen[static_cast<std::size_t>(state)];
      ++entries;
      if (ov_node_case_is_set(other, i) == 0)
        ++blanked;
      else
        EXPECT_EQ(ov_node_get_case_state(other, i), state) << ov_node_get_name(node) << " case " << i;
    }
    // Each state's frequency within five standard deviations of its marginal.
    for (std::size_t s = 0; s < seen.size(); ++s) {
      const double p = ov_node_get_belief(node, static_cast<ov_index_t>(s));
      EXPECT_NEAR(seen[s] / double(n), p, 5.0 * std::sqrt(p * (1.0 - p) / n)) << ov_node_get_name(node);
    }
  }
  EXPECT_NEAR(blanked / double(entries), 0.3, 5.0 * std::sqrt(0.21 / entries));
  ov_domain_delete(a);
  ov_domain_delete(b);

  // Another seed draws other cases; bad arguments are usage errors.
  ASSERT_EQ(run_tool("simulate " + net + " -n 4000 --seed 8 -o " + gaps).status, 0);
  EXPECT_NE(read_file(gaps), read_file(full));
  for (const char *arguments : {" -o x.dat", " -n 10", " -n -1 -o x.dat", " -n 10 -o x.dat --missing 1.5",
                                " -n 10 -o x.dat --seed x", " -n 10 -o x.dat --bogus"}) {
    ToolRun run = run_tool("simulate " + net + arguments);
    EXPECT_EQ(run.status, 1) << arguments;
    EXPECT_EQ(run.err.rfind("orvel: ", 0), 0u) << arguments;
  }
  std::remove(full.c_str());
  std::remove(gaps.c_str());
}

// The format follows the extension: NET -> BIF -> XMLBIF -> UAI -> NET keeps
// the beliefs (UAI names the nodes by place), what a format cannot hold is
// refused with the reason, and parse errors carry file, line and column.
TEST(OrvelTool, ConvertsByExtension) {
  const std::string dir = testing::TempDir() + "orvel_formats_" + std::to_string(getpid());
  mkdir(dir.c_str(), 0700);
  std::string previous = example("sprinkler.net");
  for (const char *name : {"s.bif", "s.xml", "s.uai", "s.net"}) {
    const std::string next = dir + "/" + name;
    ToolRun run = run_tool("convert " + previous + " " + next);
    ASSERT_EQ(run.status, 0) << name << ": " << run.err;
    previous = next;
  }
  ToolRun a = run_tool("beliefs " + example("sprinkler.net") + " -e WetGrass=no --json");
  ToolRun b = run_tool("beliefs " + dir + "/s.xml -e WetGrass=no --json");
  ToolRun c = run_tool("beliefs " + dir + "/s.net -e v3=s1 --json");
  ASSERT_EQ(b.status, 0) << b.err;
  ASSERT_EQ(c.status, 0) << c.err;
  EXPECT_EQ(json_numbers(a.out, "Rain", "beliefs"), json_numbers(b.out, "Rain", "beliefs"));
  EXPECT_EQ(json_numbers(a.out, "Rain", "beliefs"), json_numbers(c.out, "v2", "beliefs"));

  ToolRun refused = run_tool("convert " + example("oil_wildcatter.net") + " " + dir + "/oil.bif");
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.err.substr(0, refused.err.find('\n')),
            "BIF cannot hold a decision, utility or instance node: `Test'");
  struct stat st;
  EXPECT_NE(stat((dir + "/oil.bif").c_str(), &st), 0);

  const std::string bad = write_file("orvel_bad.bif", "variable A { type discrete [ 2 ] { a b }; }");
  ToolRun parse = run_tool("beliefs " + bad);
  EXPECT_EQ(parse.status, 2);
  EXPECT_EQ(parse.err.substr(0, parse.err.find('\n')), bad + ":1:38: `,' or `}' expected, found `b'");
  std::system(("rm -rf " + dir).c_str());
}

// EM on simulated cases with gaps: one progress line per iteration, and the
// network written holds the tables whose log-likelihood is printed.
TEST(OrvelTool, LearnFitsTablesToADataFile) {
  const std::string net = example("sprinkler.net");
  const std::string data = testing::TempDir() + "learn_cases.dat";
  const std::string out = testing::TempDir() + "learned.net";
  ASSERT_EQ(run_tool("simulate " + net + " -n 3000 --missing 0.2 --seed 3 -o " + data).status, 0);
  ToolRun run = run_tool("learn " + net + " " + data + " -o " + out + " --max-iterations 5 --tolerance 0");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("    Log-likelihood for iteration 5: "), std::string::npos) << run.err;
  EXPECT_EQ(run.err.find("iteration 6"), std::string::npos);
  double ll = 1, aic = 1, bic = 1;
  ASSERT_EQ(std::sscanf(run.out.c_str(), "log-likelihood %lf\nAIC %lf\nBIC %lf\n", &ll, &aic, &bic), 3) << run.out;
  ov_domain_t learned = ov_net_parse_domain(out.c_str(), nullptr, nullptr);
  ASSERT_NE(learned, nullptr);
  ASSERT_EQ(ov_domain_parse_cases(learned, data.c_str(), nullptr, nullptr), ov_error_none);
  ASSERT_EQ(ov_domain_compile(learned), ov_error_none);
  EXPECT_NEAR(ov_domain_get_log_likelihood(learned), ll, 1e-6 * std::fabs(ll));
  EXPECT_NEAR(ov_domain_get_AIC(learned), aic, 1e-6 * std::fabs(aic));
  EXPECT_NEAR(ov_domain_get_BIC(learned), bic, 1e-6 * std::fabs(bic));
  ov_domain_delete(learned);
  for (const char *arguments : {"", " -o x.net --max-iterations -1", " -o x.net --tolerance -1", " -o x.net --bogus"}) {
    ToolRun bad = run_tool("learn " + net + " " + data + arguments);
    EXPECT_EQ(bad.status, 1) << arguments;
    EXPECT_EQ(bad.err.rfind("orvel: ", 0), 0u) << arguments;
  }
  std::remove(data.c_str());
  std::remove(out.c_str());
}

// A network learned from a data file alone: columns become nodes, the
// constraints hold, and the tables fitted are those whose log-likelihood is
// printed.
TEST(OrvelTool, LearnStructureFromADataFile) {
  const std::string dir = testing::TempDir();
  const std::string data = dir + "structure_cases.dat", out = dir + "structure.net", rules = dir + "rules.txt";
  ASSERT_EQ(run_tool("simulate " + example("sprinkler.net") + " -n 5000 --missing 0.05 --seed 5 -o " + data).status, 0);
  {
    std::ofstream file(rules);
    file << "# known\nRain -> WetGrass\nSprinkler !-- Rain\n";
  }
  ToolRun run = run_tool("learn-structure " + data + " -o " + out + " --constraints " + rules);
  ASSERT_EQ(run.status, 0) << run.err;
  double ll = 1, aic = 1, bic = 1;
  ASSERT_EQ(std::sscanf(run.out.c_str(), "log-likelihood %lf\nAIC %lf\nBIC %lf\n", &ll, &aic, &bic), 3) << run.out;
  ov_domain_t learned = ov_net_parse_domain(out.c_str(), nullptr, nullptr);
  ASSERT_NE(learned, nullptr);
  auto has_parent = [&](const char *child, const char *parent) {
    for (ov_node_t *p = ov_node_get_parents(ov_domain_get_node_by_name(learned, child)); *p != nullptr; ++p)
      if (std::string(ov_node_get_name(*p)) == parent) return true;
    return false;
  };
  EXPECT_TRUE(has_parent("WetGrass", "Rain"));
  EXPECT_FALSE(has_parent("Rain", "Sprinkler") || has_parent("Sprinkler", "Rain"));
  ASSERT_EQ(ov_domain_parse_cases(learned, data.c_str(), nullptr, nullptr), ov_error_none);
  ASSERT_EQ(ov_domain_compile(learned), ov_error_none);
  EXPECT_NEAR(ov_domain_get_log_likelihood(learned), ll, 1e-6 * std::fabs(ll));
  ov_domain_delete(learned);

  {
    std::ofstream file(rules);
    file << "Rain => WetGrass\n";
  }
  ToolRun bad = run_tool("learn-structure " + data + " -o " + out + " --constraints " + rules);
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.err, "orvel: " + rules + ":1: expected 'A -> B', 'A -- B', 'A !-> B' or 'A !-- B'\n");
  EXPECT_EQ(run_tool("learn-structure " + data + " -o " + out + " --significance 1").status, 1);
  std::remove(data.c_str());
  std::remove(out.c_str());
  std::remove(rules.c_str());
}

// orvel draw writes the library's picture of the propagated network; other
// formats go through Graphviz's dot, whose absence is said plainly.
TEST(OrvelTool, DrawWritesThePictureOfThePropagatedNetwork) {
  const std::string net = example("sprinkler.net");
  const std::string out = testing::TempDir() + "draw_test.dot";
  ToolRun run = run_tool("draw " + net + " -e Rain=yes -o " + out);
  ASSERT_EQ(run.status, 0) << run.err;
  ov_domain_t domain = ov_net_parse_domain(net.c_str(), nullptr, nullptr);
  ASSERT_NE(domain, nullptr);
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  ASSERT_EQ(ov_node_select_state(ov_domain_get_node_by_name(domain, "Rain"), 0), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  const std::string expected = testing::TempDir() + "draw_expected.dot";
  ASSERT_EQ(ov_domain_save_as_dot(domain, expected.c_str(), ov_dot_beliefs), ov_error_none);
  EXPECT_EQ(read_file(out), read_file(expected));
  ov_domain_delete(domain);
  ASSERT_EQ(run_tool("draw " + net + " --junction-tree -o " + out).status, 0);
  EXPECT_EQ(read_file(out).rfind("graph junction_forest {", 0), 0u);
  run = run_tool("draw " + example("oil_wildcatter.net") + " -o " + out);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(read_file(out).find("shape=diamond"), std::string::npos);
  EXPECT_EQ(run_tool("draw " + net + " -o " + testing::TempDir() + "draw.gif").status, 1);
  EXPECT_EQ(run_tool("draw " + net).status, 1);
  const std::string svg = testing::TempDir() + "draw_test.svg";
  run = run_tool("draw " + net + " -o " + svg, "PATH=/nonexistent ");
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("Graphviz's dot program is not on the PATH"), std::string::npos) << run.err;
  std::remove(out.c_str());
  std::remove(expected.c_str());
  if (std::system("command -v dot >/dev/null 2>&1") != 0) GTEST_SKIP() << "Graphviz's dot is not installed";
  run = run_tool("draw " + net + " -e Rain=yes -o " + svg);
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string picture = read_file(svg);
  EXPECT_NE(picture.find("<svg"), std::string::npos);
  EXPECT_NE(picture.find(">WetGrass<"), std::string::npos);
  std::remove(svg.c_str());
}

} // namespace
