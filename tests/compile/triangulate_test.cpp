// Prime components, the greedy heuristics against a naive reference, and
// triangulation by a given order.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "compile/compile.h"
#include "compile/compiled_forest.h"
#include "compile/forest_check.h"
#include "compile/net_structure.h"
#include "compile/triangulate.h"
#include "table/table.h"

using namespace orvel;
using namespace orvel::test;

namespace {

using Matrix = std::vector<std::vector<bool>>;

std::vector<VertexSet> adjacency_of(const Matrix &m) {
  std::vector<VertexSet> adjacency(m.size());
  for (std::uint32_t a = 0; a < m.size(); ++a)
    for (std::uint32_t b = 0; b < m.size(); ++b)
      if (a != b && m[a][b]) adjacency[a].push_back(b);
  return adjacency;
}

Matrix random_graph(std::mt19937 &random, std::uint32_t n, double density) {
  std::bernoulli_distribution edge(density);
  Matrix m(n, std::vector<bool>(n, false));
  for (std::uint32_t a = 0; a < n; ++a)
    for (std::uint32_t b = a + 1; b < n; ++b) m[a][b] = m[b][a] = edge(random);
  return m;
}

// Whether the vertices of `set` minus `removed` are connected within `set`.
bool connected_without(const Matrix &m, const VertexSet &set, const std::vector<bool> &removed) {
  std::vector<std::uint32_t> rest;
  for (std::uint32_t v : set)
    if (!removed[v]) rest.push_back(v);
  if (rest.empty()) return true;
  std::set<std::uint32_t> reached{rest[0]};
  std::vector<std::uint32_t> stack{rest[0]};
  while (!stack.empty()) {
    std::uint32_t v = stack.back();
    stack.pop_back();
    for (std::uint32_t u : rest)
      if (m[v][u] && reached.insert(u).second) stack.push_back(u);
  }
  return reached.size() == rest.size();
}

bool complete(const Matrix &m, const std::vector<std::uint32_t> &set) {
  for (std::uint32_t a : set)
    for (std::uint32_t b : set)
      if (a != b && !m[a][b]) return false;
  return true;
}

// Checks that pieces are the atoms of the graph: they cover it, every edge
// lies in one, each piece's outside parts attach to it through complete
// sets, no piece holds another, and no piece has a complete separator.
void check_atoms(const Matrix &m, const std::vector<VertexSet> &pieces) {
  const std::uint32_t n = static_cast<std::uint32_t>(m.size());
  std::vector<bool> covered(n, false);
  for (const VertexSet &piece : pieces) {
    EXPECT_TRUE(std::is_sorted(piece.begin(), piece.end()));
    for (std::uint32_t v : piece) covered[v] = true;
  }
  EXPECT_TRUE(std::all_of(covered.begin(), covered.end(), [](bool b) { return b; }));
  for (std::uint32_t a = 0; a < n; ++a)
    for (std::uint32_t b = a + 1; b < n; ++b)
      if (m[a][b]) {
        EXPECT_TRUE(std::any_of(pieces.begin(), pieces.end(),
                                [&](const VertexSet &p) {
                                  return std::binary_search(p.begin(), p.end(), a) &&
                                         std::binary_search(p.begin(), p.end(), b);
                                }))
            << a << "-" << b;
      }
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const VertexSet &piece = pieces[i];
    for (std::size_t j = 0; j < pieces.size(); ++j)
      if (i != j) {
        EXPECT_FALSE(std::includes(pieces[j].begin(), pieces[j].end(), piece.begin(), piece.end()));
      }
    // The parts outside the piece attach through complete sets.
    std::vector<bool> inside(n, false);
    for (std::uint32_t v : piece) inside[v] = true;
    std::vector<bool> seen(inside);
    for (std::uint32_t start = 0; start < n; ++start) {
      if (seen[start]) continue;
      std::set<std::uint32_t> attach;
      std::vector<std::uint32_t> stack{start};
      seen[start] = true;
      while (!stack.empty()) {
        std::uint32_t v = stack.back();
        stack.pop_back();
        for (std::uint32_t u = 0; u < n; ++u) {
          if (!m[v][u]) continue;
          if (inside[u])
            attach.insert(u);
          else if (!seen[u])
            seen[u] = true, stack.push_back(u);
        }
      }
      EXPECT_TRUE(complete(m, std::vector<std::uint32_t>(attach.begin(), attach.end())));
    }
    // No complete set separates the piece.
    const std::size_t k = piece.size();
    for (std::uint64_t subset = 1; subset + 1 < (1ull << k); ++subset) {
      std::vector<std::uint32_t> cut;
      std::vector<bool> removed(n, false);
      for (std::size_t b = 0; b < k; ++b)
        if (subset >> b & 1) cut.push_back(piece[b]), removed[piece[b]] = true;
      if (!complete(m, cut)) continue;
      EXPECT_TRUE(connected_without(m, piece, removed)) << "piece " << i << " has a complete separator";
    }
  }
}

TEST(PrimeComponents, RandomGraphsAreCutIntoAtoms) {
  std::mt19937 random(7);
  for (int round = 0; round < 400; ++round) {
    std::uint32_t n = 1 + random() % 10;
    double density = std::vector<double>{0.15, 0.3, 0.5, 0.7}[round % 4];
    Matrix m = random_graph(random, n, density);
    SCOPED_TRACE(round);
    check_atoms(m, find_prime_components(adjacency_of(m)));
  }
}

// A domain whose moral graph is set directly: vertex i is the i-th node in
// node list order, named "v<i>".
struct GraphDomain {
  ov_domain_t domain = ov_new_domain();
  std::vector<Node *> nodes;

  GraphDomain(const Matrix &m, const std::vector<std::uint32_t> &states) {
    const std::size_t n = m.size();
    nodes.resize(n);
    for (std::size_t i = n; i-- > 0;) {
      std::string name = "v" + std::to_string(i);
      nodes[i] = states[i] == 0 ? add_node(domain, name.c_str(), 0, ov_category_chance, ov_kind_continuous)
                                : add_node(domain, name.c_str(), states[i]);
    }
    for (std::size_t a = 0; a < n; ++a) {
      nodes[a]->level = 1;
      for (std::size_t b = 0; b < n; ++b)
        if (a != b && m[a][b]) nodes[a]->neighbours.push_back(nodes[b]);
    }
  }
  ~GraphDomain() { ov_domain_delete(domain); }
};

std::vector<std::string> tab_lines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (!line.empty() && line[0] == '\t') lines.push_back(line);
  return lines;
}

// The greedy rules, recomputed from scratch at every step.
struct ReferenceGreedy {
  Matrix m;
  std::vector<std::uint32_t> states; // 0: continuous
  int method;
  std::vector<std::string> lines;
  std::vector<VertexSet> families;
  int decided_by_no_fill = 0; // steps where a cheaper vertex needed fill-ins

  double weight(std::uint32_t v) const { return states[v] == 0 ? 1.5 : states[v]; }
  double set_weight(const VertexSet &set) const {
    double p = 1;
    std::uint32_t c = 0;
    for (std::uint32_t v : set) states[v] == 0 ? ++c : p *= states[v];
    return c > 0 ? p * (1 + c * (c + 3) / 2) : p;
  }

  void run(const VertexSet &component) {
    std::vector<std::uint32_t> left(component);
    while (!left.empty()) {
      std::vector<double> cost(left.size());
      std::vector<std::uint64_t> fill(left.size());
      std::vector<VertexSet> around(left.size());
      for (std::size_t i = 0; i < left.size(); ++i) {
        VertexSet &n = around[i];
        for (std::uint32_t u : left)
          if (m[left[i]][u]) n.push_back(u);
        double fill_weight = 0;
        for (std::size_t a = 0; a < n.size(); ++a)
          for (std::size_t b = a + 1; b < n.size(); ++b)
            if (!m[n[a]][n[b]]) ++fill[i], fill_weight += weight(n[a]) * weight(n[b]);
        VertexSet family(n);
        family.insert(std::lower_bound(family.begin(), family.end(), left[i]), left[i]);
        switch (method) {
        case ov_tm_clique_size: cost[i] = n.size(); break;
        case ov_tm_clique_weight: cost[i] = set_weight(family); break;
        case ov_tm_fill_in_size: cost[i] = fill[i]; break;
        default: cost[i] = fill_weight;
        }
      }
      std::size_t chosen = 0, cheapest = 0;
      for (std::size_t i = 1; i < left.size(); ++i)
        if (cost[i] < cost[cheapest]) cheapest = i;
      auto zero = std::find(fill.begin(), fill.end(), 0u);
      chosen = zero != fill.end() ? static_cast<std::size_t>(zero - fill.begin()) : cheapest;
      if (cost[chosen] > cost[cheapest]) ++decided_by_no_fill;
      std::uint32_t v = left[chosen];
      lines.push_back("\tEliminating v" + std::to_string(v));
      const VertexSet &n = around[chosen];
      for (std::uint32_t u : n)
        for (std::uint32_t x : n)
          if (u < x && !m[u][x]) {
            m[u][x] = m[x][u] = true;
            lines.push_back("\tCreating fill-in between v" + std::to_string(u) + " and v" + std::to_string(x));
          }
      VertexSet family(n);
      family.insert(std::lower_bound(family.begin(), family.end(), v), v);
      families.push_back(family);
      left.erase(left.begin() + chosen);
    }
  }
};

// The reference run over the prime components of its graph, and the
// maximal families it left.
std::vector<VertexSet> reference_cliques(ReferenceGreedy &reference) {
  const Matrix m = reference.m;
  for (const VertexSet &component : find_prime_components(adjacency_of(m))) {
    if (complete(m, std::vector<std::uint32_t>(component.begin(), component.end())))
      reference.families.push_back(component);
    else
      reference.run(component);
  }
  std::vector<VertexSet> maximal;
  for (const VertexSet &f : reference.families)
    if (std::none_of(reference.families.begin(), reference.families.end(), [&](const VertexSet &g) {
          return g != f && std::includes(g.begin(), g.end(), f.begin(), f.end());
        }))
      maximal.push_back(f);
  return maximal;
}

// The cliques as sets of vertices.
std::set<VertexSet> domain_cliques(const GraphDomain &graph) {
  std::set<VertexSet> result;
  for (ov_clique_t clique = ov_domain_get_first_clique(graph.domain); clique != nullptr;
       clique = ov_clique_get_next(clique)) {
    VertexSet members;
    for (ov_node_t *node = ov_clique_get_members(clique); *node != nullptr; ++node)
      members.push_back(
          static_cast<std::uint32_t>(std::find(graph.nodes.begin(), graph.nodes.end(), *node) - graph.nodes.begin()));
    std::sort(members.begin(), members.end());
    result.insert(members);
  }
  return result;
}

TEST(Greedy, MatchesReferenceOnRandomGraphs) {
  std::mt19937 random(11);
  int decided_by_no_fill = 0;
  for (int round = 0; round < 300; ++round) {
    std::uint32_t n = 2 + random() % 11;
    Matrix m = random_graph(random, n, std::vector<double>{0.25, 0.4, 0.6}[round % 3]);
    std::vector<std::uint32_t> states(n);
    for (auto &s : states) s = random() % 5 == 0 ? 0 : 2 + random() % 3;
    int method = ov_tm_clique_size + round % 4;
    SCOPED_TRACE("round " + std::to_string(round) + " method " + std::to_string(method));

    GraphDomain graph(m, states);
    LogCapture log(graph.domain);
    ASSERT_EQ(triangulate_graph(graph.domain, method), ov_error_none);

    ReferenceGreedy reference{m, states, method, {}, {}, 0};
    std::vector<VertexSet> maximal = reference_cliques(reference);
    decided_by_no_fill += reference.decided_by_no_fill;
    EXPECT_EQ(tab_lines(log.text()), reference.lines);

    // The cliques are the maximal families, and the numbers give a perfect
    // elimination order of the filled graph.
    EXPECT_EQ(domain_cliques(graph), std::set<VertexSet>(maximal.begin(), maximal.end()));
    for (std::uint32_t v = 0; v < n; ++v) {
      std::vector<std::uint32_t> later;
      for (std::uint32_t u = 0; u < n; ++u)
        if (reference.m[v][u] && graph.nodes[u]->elimination_number < graph.nodes[v]->elimination_number)
          later.push_back(u);
      EXPECT_TRUE(complete(reference.m, later)) << "v" << v;
    }
  }
  // Some steps took a vertex without fill-ins over a cheaper one.
  EXPECT_GT(decided_by_no_fill, 0);
}

// The total clique size of each heuristic on the shared networks, as read
// by the NET parser: from an independent check of the forest, in the log and
// from the public cost; on nine of them against the reference greedy run on
// the moral graph in node list order. The benchmark reports these figures.
TEST(Greedy, SharedNetworksAllHeuristics) {
  const std::set<std::string> referenced{"asia.net",       "child.net",    "insurance.net", "alarm.net", "mildew.net",
                                         "hailfinder.net", "win95pts.net", "water.net",     "munin1.net"};
  for (const std::string &file : shared_networks()) {
    std::map<int, double> totals;
    for (int method = ov_tm_clique_size; method <= ov_tm_fill_in_weight; ++method) {
      SCOPED_TRACE(file + " method " + std::to_string(method));
      ov_domain_t domain = parse_shared(file);
      if (referenced.count(file)) {
        ASSERT_EQ(moralize(domain), ov_error_none);
        std::map<Node *, std::uint32_t> index;
        for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node))
          index.emplace(node, static_cast<std::uint32_t>(index.size()));
        Matrix m(index.size(), std::vector<bool>(index.size(), false));
        std::vector<std::uint32_t> states(index.size());
        for (auto [node, i] : index) {
          states[i] = node->state_count;
          for (Node *neighbour : node->neighbours) m[i][index[neighbour]] = true;
        }
        ReferenceGreedy reference{m, states, method, {}, {}, 0};
        for (const VertexSet &f : reference_cliques(reference)) totals[-method] += reference.set_weight(f);
        ASSERT_EQ(ov_domain_uncompile(domain), ov_error_none);
      }
      LogCapture log(domain);
      ASSERT_EQ(ov_domain_triangulate(domain, static_cast<ov_triangulation_method_t>(method)), ov_error_none);
      ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
      const double total = totals[method] = check_forest(domain);
      if (referenced.count(file)) {
        EXPECT_EQ(total, totals[-method]);
      }
      const std::string text = log.text(), key = "\nTotal clique table size: ";
      const std::size_t at = text.rfind(key) + key.size();
      const std::string logged = text.substr(at, text.find('\n', at) - at);
      if (total >= static_cast<double>(size_overflow)) {
        EXPECT_EQ(logged, "HUGE");
      } else {
        EXPECT_EQ(logged, std::to_string(static_cast<std::uint64_t>(total)));
        EXPECT_EQ(ov_domain_get_jt_cost(domain), static_cast<ov_count_t>(total));
      }
      ov_domain_set_log_file(domain, nullptr);
      ov_domain_delete(domain);
    }
    // The default heuristic stays within 20% of the best of the four, except
    // on three networks where the greedy fill-in weight rules, followed
    // exactly, lose by about two: insurance 57720 against 29352 and mildew
    // 9566232 against 4434860 (fill-in size), munin1 385218551 against
    // 195218381 (clique weight), as the reference greedy gives too. There
    // the bound holds the measured ratio, so that any worsening shows.
    static const std::map<std::string, double> exceptions{
        {"insurance.net", 1.97}, {"mildew.net", 2.16}, {"munin1.net", 1.98}};
    const double best = std::min({totals[15], totals[16], totals[17], totals[18]});
    const auto exception = exceptions.find(file);
    EXPECT_LE(totals[ov_tm_fill_in_weight], (exception == exceptions.end() ? 1.2 : exception->second) * best) << file;
  }
}

// Elimination of the moral graph along an order, recording the fill-ins:
// each node's later neighbours are linked pairwise, taken in the order of its
// moral neighbours and then of its fill-ins as they were made.
std::vector<std::string> reference_fill_ins(Domain *domain, const std::vector<Node *> &order) {
  std::map<Node *, std::set<Node *>> graph;
  std::map<Node *, std::vector<Node *>> fills;
  for (auto &node : domain->nodes)
    for (Node *neighbour : node->neighbours) graph[node.get()].insert(neighbour);
  std::set<Node *> done;
  std::vector<std::string> lines;
  for (Node *v : order) {
    done.insert(v);
    std::vector<Node *> later;
    for (Node *u : v->neighbours)
      if (!done.count(u)) later.push_back(u);
    for (Node *u : fills[v])
      if (!done.count(u)) later.push_back(u);
    for (std::size_t i = 0; i < later.size(); ++i)
      for (std::size_t j = i + 1; j < later.size(); ++j)
        if (!graph[later[i]].count(later[j])) {
          graph[later[i]].insert(later[j]);
          graph[later[j]].insert(later[i]);
          fills[later[i]].push_back(later[j]);
          fills[later[j]].push_back(later[i]);
          lines.push_back(*later[i]->name + " and " + *later[j]->name);
        }
  }
  return lines;
}

TEST(TriangulateWithOrder, FillInsOfTheOrder) {
  ov_domain_t domain = parse_shared("asia.net");
  std::vector<Node *> order;
  for (const char *name : {"either", "smoke", "asia", "xray", "tub", "lung", "bronc", "dysp"})
    order.push_back(domain_find_node(domain, name));
  std::vector<Node *> list(order);
  list.push_back(nullptr);
  LogCapture log(domain);
  ASSERT_EQ(ov_domain_triangulate_with_order(domain, list.data()), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 1);
  std::string text = log.text();
  EXPECT_NE(text.find("\n\nUser specified triangulation -- Fill-in links and node numbering:\n\n    8 either\n"),
            std::string::npos);
  std::vector<std::string> logged;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (line.rfind("Adding fill-in between ", 0) == 0) logged.push_back(line.substr(23));
  EXPECT_EQ(logged, reference_fill_ins(domain, order));
  EXPECT_FALSE(logged.empty());
  ov_node_t *elimination = ov_domain_get_elimination_order(domain);
  ASSERT_NE(elimination, nullptr);
  for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(elimination[i], order[i]);
  EXPECT_EQ(elimination[order.size()], nullptr);
  // The forest is built from the order.
  ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
  check_forest(domain);
  ov_domain_delete(domain);
}

TEST(TriangulateWithOrder, LevelsMayNotRiseAndUtilitiesComeLast) {
  ov_domain_t domain = ov_new_domain();
  Node *a = add_node(domain, "A", 2);
  Node *x = add_node(domain, "X", 0, ov_category_chance, ov_kind_continuous);
  add_arc(a, x);
  Node *discrete_first[] = {a, x, nullptr};
  EXPECT_EQ(ov_domain_triangulate_with_order(domain, discrete_first), ov_error_enumeration);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  Node *continuous_first[] = {x, a, nullptr};
  EXPECT_EQ(ov_domain_triangulate_with_order(domain, continuous_first), ov_error_none);
  ov_domain_delete(domain);
  // Utility nodes are numbered after the order.
  domain = ov_new_domain();
  Node *b = add_node(domain, "B", 2), *c = add_node(domain, "C", 2), *u = add_node(domain, "U", 0, ov_category_utility);
  add_arc(b, c);
  add_arc(c, u);
  Node *order[] = {c, b, nullptr};
  EXPECT_EQ(ov_domain_triangulate_with_order(domain, order), ov_error_none);
  EXPECT_EQ(u->elimination_number, 3u);
  EXPECT_EQ(c->elimination_number, 2u);
  ov_domain_delete(domain);
}

TEST(EliminationOrder, FromHeuristicAndUncompile) {
  ov_domain_t empty = ov_new_domain();
  ov_node_t *none = ov_domain_get_elimination_order(empty);
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none[0], nullptr);
  ov_domain_delete(empty);

  ov_domain_t domain = parse_shared("child.net");
  EXPECT_EQ(ov_domain_get_elimination_order(domain), nullptr);
  ASSERT_EQ(ov_domain_triangulate(domain, ov_tm_fill_in_weight), ov_error_none);
  ov_node_t *order = ov_domain_get_elimination_order(domain);
  ASSERT_NE(order, nullptr);
  std::set<Node *> seen(order, order + domain->node_count());
  EXPECT_EQ(order[domain->node_count()], nullptr);
  EXPECT_EQ(seen.size(), domain->node_count());
  EXPECT_EQ(seen.count(nullptr), 0u);
  EXPECT_EQ(ov_domain_get_elimination_order(domain), order);
  // Uncompiling a triangulated domain forgets the triangulation.
  EXPECT_EQ(ov_domain_uncompile(domain), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_EQ(ov_domain_get_elimination_order(domain), nullptr);
  ov_domain_delete(domain);
}

} // namespace

// The least total weight of the maximal elimination cliques over all orders
// that respect the levels (higher levels first), by enumeration.
double least_total_weight(const ReferenceGreedy &weights, const std::vector<std::uint32_t> &level) {
  const std::uint32_t n = static_cast<std::uint32_t>(weights.m.size());
  std::vector<std::uint32_t> order(n);
  for (std::uint32_t v = 0; v < n; ++v) order[v] = v;
  double best = -1;
  do {
    bool respects = true;
    for (std::uint32_t i = 1; i < n; ++i) respects = respects && level[order[i - 1]] >= level[order[i]];
    if (!respects) continue;
    Matrix m = weights.m;
    std::vector<VertexSet> families;
    for (std::uint32_t i = 0; i < n; ++i) {
      VertexSet family{order[i]};
      for (std::uint32_t j = i + 1; j < n; ++j)
        if (m[order[i]][order[j]]) family.push_back(order[j]);
      for (std::uint32_t a : family)
        for (std::uint32_t b : family)
          if (a != b) m[a][b] = true;
      std::sort(family.begin(), family.end());
      families.push_back(family);
    }
    double total = 0;
    for (const VertexSet &f : families)
      if (std::none_of(families.begin(), families.end(), [&](const VertexSet &g) {
            return g.size() > f.size() && std::includes(g.begin(), g.end(), f.begin(), f.end());
          }))
        total += weights.set_weight(f);
    if (best < 0 || total < best) best = total;
  } while (std::next_permutation(order.begin(), order.end()));
  return best;
}

TEST(TotalWeight, MatchesEnumerationAndRespectsLevels) {
  std::mt19937 random(5);
  int below_heuristics = 0;
  for (int round = 0; round < 120; ++round) {
    std::uint32_t n = round == 0 ? 10 : 3 + random() % 6;
    Matrix m = random_graph(random, n, std::vector<double>{0.3, 0.45, 0.6}[round % 3]);
    std::vector<std::uint32_t> states(n), level(n, 1);
    // Discrete nodes of two states or more: with fewer, or with several
    // continuous nodes, a lighter triangulation may cross the cuts between
    // prime components.
    for (auto &s : states) s = 2 + random() % 4;
    if (round % 2 == 1) {
      // Two levels, with the boundary of each connected part of the upper
      // level completed as moralisation does.
      for (auto &l : level) l = 1 + random() % 2;
      std::vector<bool> seen(n, false);
      for (std::uint32_t start = 0; start < n; ++start) {
        if (seen[start] || level[start] != 2) continue;
        std::vector<std::uint32_t> stack{start}, boundary;
        seen[start] = true;
        while (!stack.empty()) {
          std::uint32_t v = stack.back();
          stack.pop_back();
          for (std::uint32_t u = 0; u < n; ++u)
            if (m[v][u] && level[u] == 2 && !seen[u])
              seen[u] = true, stack.push_back(u);
            else if (m[v][u] && level[u] == 1 && std::find(boundary.begin(), boundary.end(), u) == boundary.end())
              boundary.push_back(u);
        }
        for (std::uint32_t a : boundary)
          for (std::uint32_t b : boundary) m[a][b] = m[a][b] || a != b;
      }
    }
    SCOPED_TRACE("round " + std::to_string(round));

    GraphDomain graph(m, states);
    for (std::uint32_t v = 0; v < n; ++v) graph.nodes[v]->level = level[v];
    // Some rounds, with one level, force the fall-back to the heuristics.
    if (round % 5 == 4) {
      ASSERT_EQ(ov_domain_set_max_number_of_separators(graph.domain, 3), ov_error_none);
    }
    LogCapture log(graph.domain);
    ASSERT_EQ(triangulate_graph(graph.domain, ov_tm_total_weight), ov_error_none);
    ReferenceGreedy weights{m, states, 0, {}, {}, 0};
    std::set<VertexSet> cliques = domain_cliques(graph);
    double total = 0;
    for (const VertexSet &c : cliques) total += weights.set_weight(c);
    const std::string text = log.text();
    if (round % 5 != 4) {
      EXPECT_EQ(total, least_total_weight(weights, level));
    }
    below_heuristics += text.find("least total weight found") != std::string::npos;

    // The cliques' edges make a chordal graph over the network, eliminated
    // in the order given, higher levels first.
    Matrix h(n, std::vector<bool>(n, false));
    for (const VertexSet &c : cliques)
      for (std::uint32_t a : c)
        for (std::uint32_t b : c) h[a][b] = a != b;
    std::vector<std::uint32_t> position(n);
    std::uint32_t i = 0;
    for (ov_node_t *node = ov_domain_get_elimination_order(graph.domain); *node != nullptr; ++node, ++i)
      position[std::find(graph.nodes.begin(), graph.nodes.end(), *node) - graph.nodes.begin()] = i;
    for (std::uint32_t a = 0; a < n; ++a) {
      std::vector<std::uint32_t> later;
      for (std::uint32_t b = 0; b < n; ++b) {
        EXPECT_TRUE(!m[a][b] || h[a][b]);
        if (h[a][b] && position[b] > position[a]) later.push_back(b);
        if (position[b] > position[a]) {
          EXPECT_GE(level[a], level[b]);
        }
      }
      EXPECT_TRUE(complete(h, later)) << "v" << a;
    }
  }
  // The search beat the heuristics somewhere.
  EXPECT_GT(below_heuristics, 0);
}

// On networks the search finishes on, and on an influence diagram: the
// forest checks out, is no larger than any heuristic's, and gives the
// beliefs of the default compile. With a bound of 100 states the search
// gives up, and the randomised runs still beat every heuristic on insurance
// (finding its optimum) and water.
TEST(TotalWeight, SharedNetworksCompileToTheSameBeliefs) {
  for (const std::string &file : {shared_network("insurance.net"), shared_network("water.net"),
                                  shared_network("mildew.net"), std::string(ORVEL_EXAMPLES "/oil_wildcatter.net")}) {
    SCOPED_TRACE(file);
    double least_heuristic = -1;
    for (int method = ov_tm_clique_size; method <= ov_tm_fill_in_weight; ++method) {
      ov_domain_t domain = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
      ASSERT_EQ(ov_domain_triangulate(domain, static_cast<ov_triangulation_method_t>(method)), ov_error_none);
      ASSERT_EQ(ov_domain_compile_qualitatively(domain, nullptr), ov_error_none);
      const double total = check_forest(domain);
      if (least_heuristic < 0 || total < least_heuristic) least_heuristic = total;
      ov_domain_delete(domain);
    }
    ov_domain_t searched = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
    ov_domain_t plain = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
    ASSERT_EQ(ov_domain_triangulate(searched, ov_tm_total_weight), ov_error_none);
    ASSERT_EQ(ov_domain_compile_qualitatively(searched, nullptr), ov_error_none);
    EXPECT_LE(check_forest(searched), least_heuristic);
    ov_domain_t bounded = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
    ASSERT_EQ(ov_domain_set_max_number_of_separators(bounded, 100), ov_error_none);
    ASSERT_EQ(ov_domain_triangulate(bounded, ov_tm_total_weight), ov_error_none);
    ASSERT_EQ(ov_domain_compile_qualitatively(bounded, nullptr), ov_error_none);
    const double total = check_forest(bounded);
    if (file.find("insurance") != std::string::npos || file.find("water") != std::string::npos) {
      EXPECT_LT(total, least_heuristic);
    } else {
      EXPECT_LE(total, least_heuristic);
    }
    ov_domain_delete(bounded);
    if (file.find("oil_wildcatter") == std::string::npos) {
      ASSERT_EQ(ov_domain_compile_quantitatively(searched, nullptr), ov_error_none);
      ASSERT_EQ(ov_domain_compile(plain), ov_error_none);
      for (ov_node_t a = ov_domain_get_first_node(searched), b = ov_domain_get_first_node(plain); a != nullptr;
           a = ov_node_get_next(a), b = ov_node_get_next(b))
        if (ov_node_get_category(a) == ov_category_chance && ov_node_get_kind(a) == ov_kind_discrete) {
          for (ov_index_t s = 0; s < ov_node_get_number_of_states(a); ++s)
            EXPECT_NEAR(ov_node_get_belief(a, s), ov_node_get_belief(b, s), 1e-5);
        }
    }
    ov_domain_delete(searched);
    ov_domain_delete(plain);
  }
}
