// The junction forest: invariants on the shared networks, the compile
// stages and their roll-back, the potential check, and compile logs of small
// networks against golden files.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "compile/compile.h"
#include "compile/compiled_forest.h"
#include "compile/forest.h"
#include "compile/forest_check.h"
#include "compile/net_structure.h"
#include "table/table.h"

using namespace orvel;
using namespace orvel::test;

namespace {

std::set<Node *> set_of(ov_node_t *list) {
  std::set<Node *> set;
  for (; *list != nullptr; ++list) set.insert(*list);
  return set;
}

std::vector<std::string> stages;
void record_stage(ov_string_t stage) { stages.push_back(stage); }

bool only_plain_tables(const Domain *domain) {
  return std::all_of(domain->tables.begin(), domain->tables.end(),
                     [](const TablePtr &table) { return table->role == role_plain; });
}

TEST(CompileStages, ProgressStatesAndRollBack) {
  ov_domain_t domain = parse_shared("asia.net");
  stages.clear();
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, record_stage), ov_error_none);
  EXPECT_EQ(stages, (std::vector<std::string>{"Triangulating", "Creating cliques", "Building junction tree(s)"}));
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
  stages.clear();
  EXPECT_EQ(ov_domain_compile_quantitatively(domain, record_stage), ov_error_none);
  EXPECT_EQ(stages, (std::vector<std::string>{"Allocating space for table data", "Global propagation"}));
  EXPECT_EQ(ov_domain_is_compiled(domain), 1);
  check_forest(domain);
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_TRUE(only_plain_tables(domain));

  // A continuous node with a fresh table (variance 0) makes the first
  // propagation fail: from scratch the full compile rolls everything back.
  ASSERT_NE(ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous), nullptr);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_zero_variance);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_EQ(ov_domain_get_first_clique(domain), nullptr);
  EXPECT_TRUE(only_plain_tables(domain));
  // After a separate qualitative stage the failing full compile keeps the
  // forest, and the quantitative stage alone removes nothing either.
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_zero_variance);
  EXPECT_NE(ov_domain_get_first_clique(domain), nullptr);
  EXPECT_EQ(ov_domain_compile_quantitatively(domain, nullptr), ov_error_zero_variance);
  check_forest(domain);
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  // A triangulated domain skips that stage, and a failed full compile keeps
  // the triangulation.
  ASSERT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_none);
  stages.clear();
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, record_stage), ov_error_none);
  EXPECT_EQ(stages, (std::vector<std::string>{"Creating cliques", "Building junction tree(s)"}));
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  ASSERT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_none);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_zero_variance);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
  EXPECT_EQ(ov_domain_get_first_clique(domain), nullptr);
  ov_domain_delete(domain);
}

TEST(CompileStages, FailingLogRollsBack) {
  std::FILE *read_only = std::fopen("/dev/null", "r");
  ASSERT_NE(read_only, nullptr);
  ov_domain_t domain = parse_shared("cancer.net");
  ov_domain_set_log_file(domain, read_only);
  EXPECT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_io);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_TRUE(only_plain_tables(domain));
  ov_domain_set_log_file(domain, nullptr);
  ASSERT_EQ(ov_domain_triangulate(domain, ov_tm_fill_in_size), ov_error_none);
  std::vector<ov_node_t> order;
  for (ov_node_t *n = ov_domain_get_elimination_order(domain); *n != nullptr; ++n) order.push_back(*n);
  ov_domain_set_log_file(domain, read_only);
  EXPECT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_io);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
  EXPECT_EQ(ov_domain_get_first_clique(domain), nullptr);
  ov_domain_set_log_file(domain, nullptr);
  // The cliques come back from the elimination order.
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(ov_domain_get_elimination_order(domain)[i], order[i]);
  check_forest(domain);
  ov_domain_delete(domain);
  std::fclose(read_only);
}

void set_row(Node *node, std::vector<float> values) {
  ov_number_t *data = ov_table_get_data(ov_node_get_table(node));
  ASSERT_EQ(ov_table_get_size(ov_node_get_table(node)), static_cast<ov_count_t>(values.size()));
  std::copy(values.begin(), values.end(), data);
}

// Zero-sum rows and rows of unequal sums are in the golden compile logs; a
// negative value cannot be read from a file.
TEST(PotentialCheck, BadRowsAreReportedWithALog) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  add_arc(a, b);
  ov_node_set_state_label(a, 1, "s1");
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  set_row(a, {1.0f, -0.5f});
  {
    LogCapture log(domain);
    EXPECT_EQ(ov_domain_compile_quantitatively(domain, nullptr), ov_error_invalid_probability_potential);
    EXPECT_EQ(log.text(), "\n\nChecking conditional probability potentials:\n"
                          "\nPotential for A has a negative value (-0.5) for:\n    A = s1\n");
  }
  ov_domain_set_log_file(domain, nullptr);
  // Without a log nothing checks the rows ahead of the first propagation: a
  // row with an infinite entry cannot be scaled to a distribution, a row
  // with not-a-number has no positive sum.
  ov_domain_uncompile(domain);
  set_row(a, {0.5f, 0.5f});
  set_row(b, {0.5f, 0.5f, std::numeric_limits<float>::infinity(), 1.0f});
  EXPECT_EQ(ov_domain_compile(domain), ov_error_overflow);
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  set_row(b, {0.5f, 0.5f, std::numeric_limits<float>::quiet_NaN(), 1.0f});
  EXPECT_EQ(ov_domain_compile(domain), ov_error_zero_sum);
  set_row(b, {0.5f, 0.5f, 0.25f, 0.75f});
  EXPECT_EQ(ov_domain_compile(domain), ov_error_none);
  EXPECT_FLOAT_EQ(ov_node_get_belief(b, 0), 0.375f);
  ov_domain_delete(domain);
}

TEST(ForestShape, UtilitiesAndSingleStateNodes) {
  ov_domain_t domain = ov_new_domain();
  Node *d = add_node(domain, "D", 2, ov_category_decision);
  Node *u = add_node(domain, "U", 0, ov_category_utility);
  Node *c = add_node(domain, "C", 3);
  Node *v = add_node(domain, "V", 0, ov_category_utility);
  Node *single = add_node(domain, "S", 1);
  add_arc(d, u);
  add_arc(c, v);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  check_forest(domain);
  // Utilities join the parts into one tree; every clique has utilities.
  auto trees_of = [](ov_domain_t forest, bool utilities) {
    std::set<ov_junction_tree_t> trees;
    for (ov_clique_t clique = ov_domain_get_first_clique(forest); clique != nullptr;
         clique = ov_clique_get_next(clique)) {
      trees.insert(ov_clique_get_junction_tree(clique));
      EXPECT_EQ(ov_clique_get_utility_table(clique) != nullptr, utilities);
    }
    return trees;
  };
  std::set<ov_junction_tree_t> trees = trees_of(domain, true);
  EXPECT_EQ(trees.size(), 1u);
  EXPECT_EQ(u->junction_tree, d->junction_tree);
  EXPECT_EQ(d->marginal_source->role, role_clique) << "a decision takes its marginal from a clique";
  int token = 0;
  ov_clique_t head = ov_domain_get_first_clique(domain);
  EXPECT_EQ(ov_clique_set_user_data(head, &token), ov_error_none);
  EXPECT_EQ(ov_clique_get_user_data(head), &token);
  EXPECT_EQ(ov_jt_set_user_data(*trees.begin(), &token), ov_error_none);
  EXPECT_EQ(ov_jt_get_user_data(*trees.begin()), &token);
  EXPECT_EQ(set_of(ov_clique_get_members(v->home_clique)).count(c), 1u);
  // A single-state node is instantiated from the start.
  EXPECT_EQ(single->instantiated_state, 0);
  EXPECT_EQ(c->instantiated_state, -1);
  ov_domain_delete(domain);

  // Without utilities, parts make separate trees without utility tables.
  domain = parse_shared("cancer.net");
  add_arc(add_node(domain, "A", 2), add_node(domain, "B", 3));
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  check_forest(domain);
  trees = trees_of(domain, false);
  EXPECT_EQ(trees.size(), 2u);
  // Once compiled the domain lists the trees, each at the sum equilibrium.
  ASSERT_EQ(ov_domain_compile_quantitatively(domain, nullptr), ov_error_none);
  for (ov_junction_tree_t tree = ov_domain_get_first_junction_tree(domain); tree != nullptr;
       tree = ov_jt_get_next(tree)) {
    EXPECT_EQ(trees.erase(tree), 1u);
    EXPECT_EQ(ov_jt_equilibrium_is(tree, ov_equilibrium_sum), 1);
    EXPECT_EQ(ov_jt_evidence_mode_is(tree, ov_mode_normal), 1);
  }
  EXPECT_TRUE(trees.empty());
  ov_domain_delete(domain);
}

TEST(ForestShape, ChainComponentPotentials) {
  ov_domain_t domain = ov_new_domain();
  Node *p = add_node(domain, "P", 2);
  Node *q = add_node(domain, "Q", 2);
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  add_arc(p, a);
  add_arc(q, b);
  ChainComponent *k = add_chain_component(domain, {a, b}, true);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  check_forest(domain);
  // The members are linked and the parents of the component married.
  for (auto [x, y] : {std::pair{a, b}, {b, a}, {p, q}, {q, p}})
    EXPECT_EQ(std::count(x->neighbours.begin(), x->neighbours.end(), y), 1) << *x->name << " " << *y->name;
  ASSERT_NE(k->normalizer, nullptr);
  EXPECT_EQ(k->normalizer->nodes, NodeList(std::vector<Node *>{q, p, nullptr}.data()));
  ASSERT_NE(k->normalizer_clique, nullptr);
  const std::set<Node *> members = set_of(ov_clique_get_members(k->normalizer_clique));
  EXPECT_TRUE(members.count(p) && members.count(q));
  ASSERT_EQ(k->potential_cliques.size(), 1u);
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  EXPECT_EQ(k->normalizer, nullptr);
  EXPECT_TRUE(k->potential_cliques.empty());
  ov_domain_delete(domain);
}

// Each NET file of tests/data/compile_log/ is compiled with a log; the
// .log file beside it holds the status of each stage and the log, with the
// time stamp as <time>.
TEST(CompileLog, SmallNetworksMatchTheirGoldenLogs) {
  namespace fs = std::filesystem;
  std::size_t count = 0;
  for (const auto &entry : fs::directory_iterator(ORVEL_TEST_DATA "/compile_log")) {
    if (entry.path().extension() != ".net") continue;
    SCOPED_TRACE(entry.path().filename().string());
    ++count;
    ov_domain_t domain = ov_net_parse_domain(entry.path().string().c_str(), nullptr, nullptr);
    ASSERT_NE(domain, nullptr);
    std::string text;
    {
      LogCapture log(domain);
      ov_status_t status = ov_domain_compile_qualitatively(domain, nullptr);
      text = std::string("qualitative: ") + ov_error_name(static_cast<ov_error_t>(status)) + "\n";
      if (status == ov_error_none) {
        status = ov_domain_compile_quantitatively(domain, nullptr);
        text += std::string("quantitative: ") + ov_error_name(static_cast<ov_error_t>(status)) + "\n";
      }
      // The log opens with the time of the triangulation.
      text += std::regex_replace(log.text(), std::regex(R"(^\w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}\n)"), "<time>\n");
      ov_domain_set_log_file(domain, nullptr);
    }
    fs::path golden = entry.path();
    golden.replace_extension(".log");
    std::ifstream in(golden, std::ios::binary);
    std::string expected((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, expected);
    ov_domain_delete(domain);
  }
  EXPECT_GE(count, 8u);
}

TEST(CompileLog, SaturatedSizesPrintHuge) {
  ov_domain_t domain = ov_new_domain();
  Node *child = add_node(domain, "C", 2);
  for (int i = 0; i < 32; ++i) add_arc(add_node(domain, ("P" + std::to_string(i)).c_str(), 2), child);
  LogCapture log(domain);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  std::string text = log.text();
  for (const char *line : {"This component is a clique of cost HUGE\n", "\nClique 1, 33 members, table size = HUGE:\n",
                           "\nTotal clique table size: HUGE\n", "    Warning: Node `C' has no table\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
  EXPECT_EQ(ov_domain_get_jt_cost(domain), -1);
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) EXPECT_LE(line.size(), 75u) << line;
  ov_domain_delete(domain);
}

TEST(CompileLog, NamesFoldAtSeventyFiveColumns) {
  ov_domain_t domain = ov_new_domain();
  const std::string ten = "abcdefghij", fifteen = "abcdefghijklmno", six = "uvwxyz";
  const std::string five_tens = "    " + ten + ", " + ten + ", " + ten + ", " + ten + ", " + ten;
  const std::string line = "    " + fifteen + ", " + ten + ", " + ten + ", " + ten + ", " + ten;
  // Six names of ten end at column 74; a seventh would pass 75. A last name
  // may end at column 75, a name with another behind it at 74.
  const std::pair<std::vector<const char *>, std::string> cases[] = {
      {std::vector<const char *>(7, ten.c_str()), five_tens + ", " + ten + ",\n    " + ten + "\n"},
      {{fifteen.c_str(), ten.c_str(), ten.c_str(), ten.c_str(), ten.c_str(), six.c_str()}, line + ", " + six + "\n"},
      {{fifteen.c_str(), ten.c_str(), ten.c_str(), ten.c_str(), ten.c_str(), six.c_str(), "z"},
       line + ",\n    " + six + ", z\n"},
  };
  for (const auto &[names, expected] : cases) {
    LogCapture log(domain);
    ASSERT_EQ(log_names(domain, names), ov_error_none);
    EXPECT_EQ(log.text(), expected);
  }
  ov_domain_delete(domain);
}

} // namespace
