// The junction forest: invariants on the shared networks, the compile
// stages and their roll-back, the potential check and the log formats.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
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

std::string total_clique_size(const std::string &log) {
  const std::string key = "\nTotal clique table size: ";
  std::size_t at = log.rfind(key);
  if (at == std::string::npos) return "";
  at += key.size();
  return log.substr(at, log.find('\n', at) - at);
}

TEST(Forest, SharedNetworksAllHeuristics) {
  for (const std::string &file : shared_networks()) {
    SCOPED_TRACE(file);
    const std::string path = shared_network(file);
    std::map<int, double> totals;
    for (int method = ov_tm_clique_size; method <= ov_tm_fill_in_weight; ++method) {
      SCOPED_TRACE(method);
      ov_domain_t domain = ov_net_parse_domain(path.c_str(), nullptr, nullptr);
      ASSERT_NE(domain, nullptr);
      LogCapture log(domain);
      ASSERT_EQ(ov_domain_triangulate(domain, static_cast<ov_triangulation_method_t>(method)), ov_error_none);
      ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
      double total = check_forest(domain);
      totals[method] = total;
      std::string logged = total_clique_size(log.text());
      if (total >= static_cast<double>(size_overflow)) {
        EXPECT_EQ(logged, "HUGE");
      } else {
        EXPECT_EQ(logged, std::to_string(static_cast<std::uint64_t>(total)));
        EXPECT_EQ(ov_domain_get_jt_cost(domain), static_cast<ov_count_t>(total));
      }
      EXPECT_EQ(ov_domain_get_number_of_cliques(domain), static_cast<ov_count_t>(domain->forest->cliques.size()));
      ov_domain_delete(domain);
    }
    // The default heuristic stays within 20% of the best of the four, except
    // on three networks where the greedy fill-in weight rules, followed
    // exactly, lose by about two: insurance 57720 against 29352 and mildew
    // 9566232 against 4434860 (fill-in size), munin1 385218551 against
    // 195218381 (clique weight). The triangulation tests get the same
    // figures from a reference greedy. There the bound holds the measured
    // ratio, so that any worsening shows.
    static const std::map<std::string, double> exceptions{
        {"insurance.net", 1.97}, {"mildew.net", 2.16}, {"munin1.net", 1.98}};
    double best = std::min({totals[15], totals[16], totals[17], totals[18]});
    auto exception = exceptions.find(file);
    double bound = exception == exceptions.end() ? 1.2 : exception->second;
    EXPECT_LE(totals[ov_tm_fill_in_weight], bound * best);
  }
}

TEST(Forest, ImplicitCompileUsesFillInWeight) {
  NetStructure net = read_net_structure(shared_network("water.net"));
  ov_domain_t implicit = build_domain(net);
  ov_domain_t explicit_ = build_domain(net);
  ASSERT_EQ(ov_domain_compile_qualitatively(implicit, nullptr), ov_error_none);
  ASSERT_EQ(ov_domain_triangulate(explicit_, ov_tm_fill_in_weight), ov_error_none);
  ASSERT_EQ(ov_domain_compile_qualitatively(explicit_, nullptr), ov_error_none);
  EXPECT_EQ(ov_domain_get_jt_cost(implicit), ov_domain_get_jt_cost(explicit_));
  ov_domain_delete(implicit);
  ov_domain_delete(explicit_);
}

std::vector<std::string> stages;
void record_stage(ov_string_t stage) { stages.push_back(stage); }

bool only_plain_tables(const Domain *domain) {
  return std::all_of(domain->tables.begin(), domain->tables.end(),
                     [](const TablePtr &table) { return table->role == role_plain; });
}

TEST(CompileStages, ProgressAndStates) {
  ov_domain_t domain = build_domain(read_net_structure(shared_network("asia.net")));
  stages.clear();
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, record_stage), ov_error_none);
  EXPECT_EQ(stages, (std::vector<std::string>{"Triangulating", "Creating cliques", "Building junction tree(s)"}));
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
  EXPECT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_usage);
  EXPECT_EQ(ov_domain_get_first_junction_tree(domain), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_not_compiled);

  stages.clear();
  EXPECT_EQ(ov_domain_compile_quantitatively(domain, record_stage), ov_error_none);
  EXPECT_EQ(stages, (std::vector<std::string>{"Allocating space for table data", "Global propagation"}));
  EXPECT_EQ(ov_domain_is_compiled(domain), 1);
  for (auto &clique : domain->forest->cliques) EXPECT_TRUE(clique->table->data);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_usage);
  check_forest(domain);

  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_TRUE(only_plain_tables(domain));
  EXPECT_EQ(ov_domain_compile(domain), ov_error_none);
  EXPECT_EQ(ov_domain_is_compiled(domain), 1);
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);

  // A node that the engine cannot propagate makes the first propagation
  // fail: from scratch the full compile rolls everything back.
  ov_node_t decision = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  ASSERT_NE(decision, nullptr);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_EQ(ov_error_code(), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_TRUE(domain->forest->cliques.empty());
  EXPECT_TRUE(only_plain_tables(domain));
  for (auto &node : domain->nodes) {
    EXPECT_EQ(node->junction_tree, nullptr);
    EXPECT_EQ(node->belief_table, nullptr);
    EXPECT_EQ(node->level, 0u);
  }
  // After a separate qualitative stage the failing full compile keeps the
  // forest, and the quantitative stage alone removes nothing either.
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_FALSE(domain->forest->junction_trees.empty());
  EXPECT_EQ(ov_domain_compile_quantitatively(domain, nullptr), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_FALSE(domain->forest->junction_trees.empty());
  check_forest(domain);
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);

  ASSERT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_none);
  stages.clear();
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, record_stage), ov_error_none);
  EXPECT_EQ(stages, (std::vector<std::string>{"Creating cliques", "Building junction tree(s)"}));
  // A failed full compile of a triangulated domain keeps the triangulation.
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  ASSERT_EQ(ov_domain_triangulate(domain, ov_tm_clique_size), ov_error_none);
  EXPECT_EQ(ov_domain_compile(domain), ov_error_cg_influence_diagrams_not_supported);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
  EXPECT_TRUE(domain->forest->cliques.empty());
  ov_domain_delete(domain);
}

TEST(CompileStages, FailingLogRollsBack) {
  std::FILE *read_only = std::fopen("/dev/null", "r");
  ASSERT_NE(read_only, nullptr);
  ov_domain_t domain = build_domain(read_net_structure(shared_network("cancer.net")));
  ov_domain_set_log_file(domain, read_only);
  EXPECT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_io);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_TRUE(only_plain_tables(domain));

  ov_domain_set_log_file(domain, nullptr);
  ASSERT_EQ(ov_domain_triangulate(domain, ov_tm_fill_in_size), ov_error_none);
  std::vector<std::uint32_t> numbers;
  for (auto &node : domain->nodes) numbers.push_back(node->elimination_number);
  ov_domain_set_log_file(domain, read_only);
  EXPECT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_io);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
  EXPECT_TRUE(domain->forest->cliques.empty());
  ov_domain_set_log_file(domain, nullptr);
  // The cliques come back from the elimination order.
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  for (std::size_t i = 0; i < numbers.size(); ++i) EXPECT_EQ(domain->nodes[i]->elimination_number, numbers[i]);
  check_forest(domain);
  ov_domain_delete(domain);
  std::fclose(read_only);
}

void set_row(Node *node, std::vector<float> values) {
  ov_number_t *data = ov_table_get_data(node->table);
  ASSERT_NE(data, nullptr);
  ASSERT_EQ(node->table->size, values.size());
  std::copy(values.begin(), values.end(), data);
}

TEST(PotentialCheck, BadRowsAreReportedWithALog) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  Node *c = add_node(domain, "C", 2);
  add_arc(a, b);
  for (Node *node : {a, b, c}) {
    ov_node_set_state_label(node, 0, "s0");
    ov_node_set_state_label(node, 1, "s1");
  }
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  set_row(a, {1.0f, -0.5f});
  set_row(b, {0.5f, 0.5f, 0.0f, 0.0f});
  set_row(c, {0.0f, 0.0f});
  {
    LogCapture log(domain);
    EXPECT_EQ(ov_domain_compile_quantitatively(domain, nullptr), ov_error_invalid_probability_potential);
    EXPECT_EQ(log.text(), "\n\nChecking conditional probability potentials:\n"
                          "\nPotential for C is a zero-sum distribution\n"
                          "\nPotential for B has a zero-sum distribution for:\n    A = s1\n"
                          "\nPotential for A has a negative value (-0.5) for:\n    A = s1\n");
  }
  set_row(a, {0.5f, 0.5f});
  set_row(c, {0.25f, 0.75f});
  set_row(b, {0.5f, 0.5f, 0.5002f, 0.5f});
  {
    LogCapture log(domain);
    EXPECT_EQ(ov_domain_compile_quantitatively(domain, nullptr), ov_error_none);
    EXPECT_EQ(log.text().rfind("\n\nChecking conditional probability potentials:\n"
                               "\nWarning: Conditional distributions for B sum to different values:\n"
                               "    min = 1\n    max = 1.0002\n\n\nBeliefs for chance nodes:\n",
                               0),
              0u);
  }
  ov_domain_set_log_file(domain, nullptr);
  ov_domain_uncompile(domain);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  set_row(b, {0.5f, 0.5f, 0.50005f, 0.5f});
  {
    LogCapture log(domain);
    EXPECT_EQ(ov_domain_compile_quantitatively(domain, nullptr), ov_error_none);
    EXPECT_EQ(log.text().rfind("\n\nChecking conditional probability potentials:\n\n\nBeliefs", 0), 0u);
  }
  ov_domain_delete(domain);
}

// Without a log nothing checks the rows ahead of the first propagation: a
// row with an infinite entry cannot be scaled to a distribution and is
// refused with overflow, a row with not-a-number has no positive sum.
TEST(PotentialCheck, NonFiniteRowsAreRefused) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 2);
  add_arc(a, b);
  ov_node_get_table(a);
  ov_node_get_table(b);
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

TEST(ForestShape, TwoPartsMakeTwoTrees) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 3);
  Node *c = add_node(domain, "C", 2);
  Node *d = add_node(domain, "D", 2);
  add_arc(a, b);
  add_arc(c, d);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  check_forest(domain);
  ASSERT_EQ(domain->forest->junction_trees.size(), 2u);
  JunctionTree *head = domain->forest->junction_trees[0].get();
  EXPECT_EQ(head->number, 2u);
  EXPECT_EQ(ov_jt_get_next(head), domain->forest->junction_trees[1].get());
  EXPECT_EQ(ov_jt_get_next(ov_jt_get_next(head)), nullptr);
  EXPECT_NE(a->junction_tree, c->junction_tree);
  EXPECT_EQ(a->junction_tree, b->junction_tree);
  for (auto &tree : domain->forest->junction_trees) {
    EXPECT_EQ(tree->equilibrium, ov_equilibrium_none);
    EXPECT_EQ(tree->evidence_mode, ov_mode_normal);
    ov_clique_t *list = ov_jt_get_cliques(tree.get());
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list[0], ov_jt_get_root(tree.get()));
    EXPECT_EQ(list[1], nullptr);
  }
  EXPECT_EQ(ov_clique_get_utility_table(ov_domain_get_first_clique(domain)), nullptr);
  ov_domain_delete(domain);
}

TEST(ForestShape, UtilitiesJoinOneTree) {
  ov_domain_t domain = ov_new_domain();
  Node *d = add_node(domain, "D", 2, ov_category_decision);
  Node *u = add_node(domain, "U", 0, ov_category_utility);
  Node *c = add_node(domain, "C", 3);
  Node *v = add_node(domain, "V", 0, ov_category_utility);
  Node *single = add_node(domain, "S", 1);
  add_arc(d, u);
  add_arc(c, v);
  LogCapture log(domain);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  check_forest(domain);
  EXPECT_EQ(domain->forest->junction_trees.size(), 1u);
  std::size_t empty_separators = 0;
  for (auto &clique : domain->forest->cliques) {
    EXPECT_NE(clique->utility_table, nullptr);
    for (const CliqueLink &link : clique->links) {
      EXPECT_NE(link.separator_utilities, nullptr);
      empty_separators += link.separator->nodes.empty();
    }
  }
  EXPECT_EQ(empty_separators, 2 * (domain->forest->cliques.size() - 1));
  // A decision takes its marginal from a clique; utility nodes join the tree.
  EXPECT_EQ(d->marginal_source->role, role_clique);
  EXPECT_NE(d->utility_table, nullptr);
  EXPECT_EQ(u->junction_tree, d->junction_tree);
  EXPECT_EQ(v->home_clique->table->nodes.contains(c), true);
  // A single-state node is instantiated from the start.
  EXPECT_EQ(single->instantiated_state, 0);
  EXPECT_EQ(single->entered_finding, std::vector<ov_number_t>{1.0f});
  EXPECT_EQ(c->entered_finding, (std::vector<ov_number_t>{1.0f, 1.0f, 1.0f}));
  EXPECT_EQ(c->instantiated_state, -1);
  std::string text = log.text();
  EXPECT_NE(text.find("separator has 0 members and table size = 1\n"), std::string::npos);
  EXPECT_NE(text.find("    Warning: Node `U' has no table\n"), std::string::npos);
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
  LogCapture log(domain);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  check_forest(domain);
  ASSERT_NE(k->normalizer, nullptr);
  EXPECT_EQ(k->normalizer->nodes, NodeList(std::vector<Node *>{q, p, nullptr}.data()));
  ASSERT_NE(k->normalizer_clique, nullptr);
  EXPECT_TRUE(k->normalizer_clique->table->nodes.contains(p));
  EXPECT_TRUE(k->normalizer_clique->table->nodes.contains(q));
  ASSERT_EQ(k->potential_cliques.size(), 1u);
  std::string text = log.text();
  EXPECT_NE(text.find("    Chain graph component (A, B):\n\tParents assigned to clique " +
                      std::to_string(k->normalizer_clique->number) + "\n"),
            std::string::npos);
  EXPECT_NE(
      text.find("   Potential (A, B) assigned to clique " + std::to_string(k->potential_cliques[0]->number) + "\n"),
      std::string::npos);
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  EXPECT_EQ(k->normalizer, nullptr);
  EXPECT_TRUE(k->potential_cliques.empty());
  ov_domain_delete(domain);
}

TEST(CompileLog, CliquesTreesAndAssignments) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *b = add_node(domain, "B", 3);
  Node *c = add_node(domain, "C", 2);
  add_arc(a, b);
  add_arc(b, c);
  LogCapture log(domain);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  ASSERT_EQ(domain->forest->cliques.size(), 2u);
  Clique *head = domain->forest->cliques[0].get();
  Clique *second = domain->forest->cliques[1].get();
  EXPECT_EQ(head->number, 2u);
  EXPECT_EQ(second->number, 1u);
  auto names = [](Clique *clique) {
    std::string text;
    for (Node *node : clique->table->nodes) text += (text.empty() ? "" : ", ") + *node->name;
    return text;
  };
  std::string expected_cliques =
      "\n\nCliques:\n\nClique 2, 2 members, table size = " + std::to_string(head->table->size) + ":\n    " +
      names(head) + "\n\nClique 1, 2 members, table size = " + std::to_string(second->table->size) + ":\n    " +
      names(second) + "\n\nTotal clique table size: 12\n";
  std::string text = log.text();
  EXPECT_NE(text.find(expected_cliques), std::string::npos) << text;
  EXPECT_NE(text.find("\n\nThe junction forest:\n\nCreating junction tree with clique 2 as root ...\n"
                      "\nCliques 2 and 1 linked, separator has 1 member and table size = 3:\n    B\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\n\nAssignment of potentials to cliques:\n\n"), std::string::npos);
  Clique *home_of_c = c->home_clique;
  EXPECT_NE(text.find("    Node C assigned to clique " + std::to_string(home_of_c->number) + "\n"), std::string::npos);
  EXPECT_NE(text.find("\n\nChecking tables for all nodes:\n\n    Warning: Node `C' has no table\n"), std::string::npos);
  EXPECT_EQ(ov_domain_get_jt_cost(domain), 12);
  ov_domain_delete(domain);
}

TEST(CompileLog, SingleNodeAndContinuousSizes) {
  ov_domain_t domain = ov_new_domain();
  add_node(domain, "A", 2);
  LogCapture log(domain);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  EXPECT_NE(log.text().find("\nClique 1, 1 member, table size = 2:\n    A\n\nTotal clique table size: 2\n"),
            std::string::npos);
  ov_domain_delete(domain);

  domain = ov_new_domain();
  Node *d = add_node(domain, "D", 2);
  Node *x = add_node(domain, "X", 0, ov_category_chance, ov_kind_continuous);
  add_arc(d, x);
  LogCapture cg_log(domain);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  std::string text = cg_log.text();
  EXPECT_NE(text.find("\nClique 1, 2 members, table size = 2 + 4:\n    D, X\n\nTotal clique table size: 2 + 4\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(ov_domain_get_jt_cost(domain), 6);
  EXPECT_EQ(x->home_clique, domain->forest->cliques[0].get());
  ov_domain_delete(domain);
}

TEST(CompileLog, SaturatedSizesPrintHuge) {
  ov_domain_t domain = ov_new_domain();
  std::vector<Node *> parents;
  for (int i = 0; i < 32; ++i) parents.push_back(add_node(domain, ("P" + std::to_string(i)).c_str(), 2));
  Node *child = add_node(domain, "C", 2);
  for (Node *parent : parents) add_arc(parent, child);
  LogCapture log(domain);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  std::string text = log.text();
  EXPECT_NE(text.find("This component is a clique of cost HUGE\n"), std::string::npos);
  EXPECT_NE(text.find("\nClique 1, 33 members, table size = HUGE:\n"), std::string::npos);
  EXPECT_NE(text.find("\nTotal clique table size: HUGE\n"), std::string::npos);
  EXPECT_EQ(ov_domain_get_jt_cost(domain), -1);
  // 33 names of 2 or 3 letters are folded at 75 columns.
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) EXPECT_LE(line.size(), 75u) << line;
  ov_domain_delete(domain);
}

TEST(CompileLog, NamesFoldAtSeventyFiveColumns) {
  ov_domain_t domain = ov_new_domain();
  LogCapture log(domain);
  std::string ten = "abcdefghij";
  // Six names of ten end at column 74; a seventh would pass 75.
  std::vector<const char *> seven(7, ten.c_str());
  ASSERT_EQ(log_names(domain, seven), ov_error_none);
  EXPECT_EQ(log.text(),
            "    " + ten + ", " + ten + ", " + ten + ", " + ten + ", " + ten + ", " + ten + ",\n    " + ten + "\n");
  // A last name may end at column 75, a name with another behind it at 74.
  std::string fifteen = "abcdefghijklmno", six = "uvwxyz";
  std::vector<const char *> last{fifteen.c_str(), ten.c_str(), ten.c_str(), ten.c_str(), ten.c_str(), six.c_str()};
  LogCapture second(domain);
  ASSERT_EQ(log_names(domain, last), ov_error_none);
  std::string line = "    " + fifteen + ", " + ten + ", " + ten + ", " + ten + ", " + ten;
  EXPECT_EQ(second.text(), line + ", " + six + "\n");
  std::vector<const char *> more(last);
  more.push_back("z");
  LogCapture third(domain);
  ASSERT_EQ(log_names(domain, more), ov_error_none);
  EXPECT_EQ(third.text(), line + ",\n    " + six + ", z\n");
  ov_domain_delete(domain);
}

TEST(ForestAccessors, WalkAndRefuseNull) {
  ov_domain_t domain = build_domain(read_net_structure(shared_network("alarm.net")));
  EXPECT_EQ(ov_domain_get_jt_cost(domain), -1);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_domain_get_first_clique(domain), nullptr);
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  std::size_t count = 0;
  for (ov_clique_t clique = ov_domain_get_first_clique(domain); clique != nullptr;
       clique = ov_clique_get_next(clique)) {
    EXPECT_EQ(clique, domain->forest->cliques[count].get());
    ++count;
    ov_node_t *members = ov_clique_get_members(clique);
    EXPECT_EQ(node_list_length(members), static_cast<std::uint32_t>(ov_clique_get_number_of_members(clique)));
    ov_clique_t *neighbours = ov_clique_get_neighbors(clique);
    ov_count_t n = ov_clique_get_number_of_neighbors(clique);
    for (ov_count_t i = 0; i < n; ++i) EXPECT_EQ(neighbours[i], clique->links[i].neighbour);
    EXPECT_EQ(neighbours[n], nullptr);
    EXPECT_EQ(ov_clique_get_neighbors(clique), neighbours);
    EXPECT_EQ(ov_clique_get_junction_tree(clique), clique->junction_tree);
    EXPECT_EQ(ov_clique_get_probability_table(clique), clique->table);
    EXPECT_EQ(ov_clique_set_user_data(clique, &count), ov_error_none);
    EXPECT_EQ(ov_clique_get_user_data(clique), &count);
  }
  EXPECT_EQ(count, static_cast<std::size_t>(ov_domain_get_number_of_cliques(domain)));
  JunctionTree *tree = domain->forest->junction_trees[0].get();
  ov_clique_t *cliques = ov_jt_get_cliques(tree);
  EXPECT_EQ(cliques[0], ov_jt_get_root(tree));
  EXPECT_EQ(ov_domain_get_first_node(domain)->junction_tree, tree);
  // The public form needs a compiled domain.
  EXPECT_EQ(ov_node_get_junction_tree(ov_domain_get_first_node(domain)), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_not_compiled);
  EXPECT_EQ(ov_jt_set_user_data(tree, &count), ov_error_none);
  EXPECT_EQ(ov_jt_get_user_data(tree), &count);

  EXPECT_EQ(ov_jt_get_next(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_jt_get_root(nullptr), nullptr);
  EXPECT_EQ(ov_jt_get_cliques(nullptr), nullptr);
  EXPECT_EQ(ov_clique_get_next(nullptr), nullptr);
  EXPECT_EQ(ov_clique_get_members(nullptr), nullptr);
  EXPECT_EQ(ov_clique_get_number_of_members(nullptr), -1);
  EXPECT_EQ(ov_clique_get_number_of_neighbors(nullptr), -1);
  EXPECT_EQ(ov_clique_set_user_data(nullptr, nullptr), ov_error_usage);
  EXPECT_EQ(ov_domain_get_number_of_cliques(nullptr), -1);
  EXPECT_EQ(ov_node_get_junction_tree(nullptr), nullptr);
  EXPECT_EQ(ov_domain_get_first_junction_tree(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  ov_domain_delete(domain);
}

} // namespace
