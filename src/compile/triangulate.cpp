// Triangulation by greedy elimination within prime components, and the
// numbering of the nodes that respects their levels.
#include "compile/triangulate.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <limits>

#include "api/error.h"
#include "compile/compile.h"
#include "compile/compiled_forest.h"
#include "compile/forest.h"
#include "table/table.h"

namespace orvel {

namespace {

// The moral graph as sorted index sets: vertex i is the i-th chance or
// decision node in node list order.
struct TriGraph {
  Domain *domain = nullptr;
  std::vector<Node *> nodes;
  std::vector<VertexSet> adjacency;
};

TriGraph build_top_graph(Domain *domain) {
  TriGraph graph;
  graph.domain = domain;
  std::vector<std::uint32_t> vertex_of(domain->node_count(), 0);
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
    Node *node = it->get();
    if (!in_moral_graph(node)) continue;
    vertex_of[node->number - 1] = static_cast<std::uint32_t>(graph.nodes.size());
    graph.nodes.push_back(node);
  }
  graph.adjacency.resize(graph.nodes.size());
  for (std::size_t v = 0; v < graph.nodes.size(); ++v) {
    VertexSet &set = graph.adjacency[v];
    for (Node *neighbour : graph.nodes[v]->neighbours) set.push_back(vertex_of[neighbour->number - 1]);
    std::sort(set.begin(), set.end());
    set.erase(std::unique(set.begin(), set.end()), set.end());
  }
  return graph;
}

// The number of numbers a table over the set stores.
double set_weight(const TriGraph &graph, const VertexSet &set) {
  double product = 1.0;
  std::uint32_t continuous = 0;
  for (std::uint32_t v : set) {
    const Node *node = graph.nodes[v];
    if (node->is_discrete())
      product *= node->state_count;
    else
      ++continuous;
  }
  return continuous > 0 ? product * (1.0 + cg_stride_for(continuous)) : product;
}

// A weight as a count: "HUGE" once it passes the range of sizes.
const char *format_weight(Domain *domain, double weight) {
  return format_count(domain, weight >= static_cast<double>(size_overflow) ? size_overflow
                                                                           : static_cast<std::uint64_t>(weight));
}

ov_status_t log_vertex_names(const TriGraph &graph, const VertexSet &set) {
  if (graph.domain->log_file == nullptr) return ov_error_none;
  std::vector<Node *> nodes;
  nodes.reserve(set.size());
  for (std::uint32_t v : set) nodes.push_back(graph.nodes[v]);
  return log_node_names(graph.domain, nodes.data(), nodes.size());
}

const char *method_name(int method) {
  switch (method) {
  case ov_tm_clique_size: return "clique size";
  case ov_tm_clique_weight: return "clique weight";
  case ov_tm_fill_in_size: return "fill-in size";
  default: return "fill-in weight";
  }
}

// The cliques found so far, with an index from each vertex to the cliques
// that hold it, so that the subset test looks only at cliques of one vertex.
struct CliqueSet {
  std::vector<VertexSet> cliques;
  std::vector<std::vector<std::uint32_t>> of_vertex;

  explicit CliqueSet(std::size_t vertex_count) : of_vertex(vertex_count) {}

  bool covered(const VertexSet &set, std::uint32_t some_member) const {
    for (std::uint32_t c : of_vertex[some_member])
      if (std::includes(cliques[c].begin(), cliques[c].end(), set.begin(), set.end())) return true;
    return false;
  }
  void add(VertexSet set) {
    for (std::uint32_t v : set) of_vertex[v].push_back(static_cast<std::uint32_t>(cliques.size()));
    cliques.push_back(std::move(set));
  }
};

// Greedy elimination within one prime component.
class GreedyEliminator {
public:
  // With `order`, eliminates in that order instead of choosing; `quiet`
  // writes nothing to the log.
  GreedyEliminator(const TriGraph &graph, const VertexSet &component, int method, CliqueSet &out,
                   const std::vector<std::uint32_t> *order = nullptr, bool quiet = false)
      : graph_(graph), component_(component), method_(method), out_(out), order_(order), quiet_(quiet),
        adjacent_(graph.nodes.size()), fill_count_(graph.nodes.size(), 0), cost_(graph.nodes.size(), -1.0) {}

  // Chooses at random among the vertices whose cost is within `slack` times
  // the least (a run of a randomised restart), recording the order taken.
  void randomize(std::uint64_t seed, double slack) {
    random_ = seed | 1;
    slack_ = slack;
  }
  const std::vector<std::uint32_t> &order_taken() const { return taken_; }

  // The total weight of the cliques added.
  double cost() const { return cost_total_; }

  ov_status_t run() {
    Domain *domain = graph_.domain;
    if (!quiet_ && order_ != nullptr) {
      if (log_printf(domain, "\n    Using the elimination order of least total weight found:\n\n") != ov_error_none)
        return ov_error_io;
    } else if (!quiet_ && log_printf(domain, "\n    Using minimum %s heuristic for triangulation:\n\n",
                                     method_name(method_)) != ov_error_none)
      return ov_error_io;
    for (std::uint32_t v : component_) {
      std::set_intersection(graph_.adjacency[v].begin(), graph_.adjacency[v].end(), component_.begin(),
                            component_.end(), std::back_inserter(adjacent_[v]));
      graph_.nodes[v]->elimination_number = 0;
    }
    for (std::uint32_t v : component_) score(v);
    const std::size_t first_clique = out_.cliques.size();
    std::uint32_t k = static_cast<std::uint32_t>(component_.size());
    for (; k > 0; --k) {
      std::uint32_t v = order_ != nullptr ? (*order_)[component_.size() - k] : select();
      if (random_ != 0) taken_.push_back(v);
      if (eliminate(v, k) != ov_error_none) return ov_error_code();
    }
    double cost = 0.0;
    for (std::size_t c = first_clique; c < out_.cliques.size(); ++c) cost += set_weight(graph_, out_.cliques[c]);
    cost_total_ = cost;
    if (!quiet_ && log_printf(domain, "\nFound triangulation of prime component of cost %s\n",
                              format_weight(domain, cost)) != ov_error_none)
      return ov_error_io;
    return ov_error_none;
  }

private:
  double weight(std::uint32_t v) const {
    const Node *node = graph_.nodes[v];
    return node->is_discrete() ? node->state_count : 1.5;
  }

  // Recomputes the fill count and the cost of eliminating v.
  void score(std::uint32_t v) {
    const VertexSet &n = adjacent_[v];
    std::uint64_t fill = 0;
    if (n.size() >= 2) {
      for (std::uint32_t u : n) {
        std::size_t shared = 0;
        auto a = adjacent_[u].cbegin();
        auto b = n.cbegin();
        while (a != adjacent_[u].cend() && b != n.cend()) {
          if (*a < *b)
            ++a;
          else if (*b < *a)
            ++b;
          else
            ++shared, ++a, ++b;
        }
        fill += n.size() - 1 - shared;
      }
      fill /= 2;
    }
    fill_count_[v] = fill;
    switch (method_) {
    case ov_tm_clique_size: cost_[v] = static_cast<double>(n.size()); break;
    case ov_tm_clique_weight: {
      VertexSet set(n);
      set.insert(std::lower_bound(set.begin(), set.end(), v), v);
      cost_[v] = set_weight(graph_, set);
      break;
    }
    case ov_tm_fill_in_size: cost_[v] = static_cast<double>(fill); break;
    default: {
      // Merge the rest of N with the neighbours of each u: what the merge
      // misses is a pair that needs a fill-in.
      double total = 0.0;
      for (std::size_t i = 0; i < n.size(); ++i) {
        const std::uint32_t u = n[i];
        const VertexSet &au = adjacent_[u];
        auto a = std::lower_bound(au.begin(), au.end(), n[i]);
        for (std::size_t j = i + 1; j < n.size(); ++j) {
          while (a != au.end() && *a < n[j]) ++a;
          if (a == au.end() || *a != n[j]) total += weight(u) * weight(n[j]);
        }
      }
      cost_[v] = total;
    }
    }
  }

  // The first vertex without fill-ins, else the cheapest, the earliest on a tie.
  std::uint32_t select() {
    std::uint32_t best = 0;
    bool found = false;
    for (std::uint32_t v : component_) {
      if (graph_.nodes[v]->elimination_number != 0) continue;
      if (fill_count_[v] == 0) return v;
      if (!found || cost_[v] < cost_[best]) best = v, found = true;
    }
    if (random_ == 0) return best;
    // Reservoir choice among the near-best, by a xorshift generator.
    const double limit = cost_[best] * (1.0 + slack_);
    std::uint32_t seen = 0;
    for (std::uint32_t v : component_) {
      if (graph_.nodes[v]->elimination_number != 0 || cost_[v] > limit) continue;
      random_ ^= random_ << 13;
      random_ ^= random_ >> 7;
      random_ ^= random_ << 17;
      if (random_ % ++seen == 0) best = v;
    }
    return best;
  }

  ov_status_t eliminate(std::uint32_t v, std::uint32_t k) {
    Domain *domain = graph_.domain;
    graph_.nodes[v]->elimination_number = k;
    if (!quiet_ && log_node_line(domain, "\tEliminating %s\n", graph_.nodes[v]) != ov_error_none)
      return ov_error_code();
    VertexSet n = std::move(adjacent_[v]);
    adjacent_[v] = {};
    VertexSet family(n);
    family.insert(std::lower_bound(family.begin(), family.end(), v), v);
    if (!out_.covered(family, v)) out_.add(std::move(family));

    VertexSet missing, merged;
    for (std::uint32_t u : n) {
      VertexSet &au = adjacent_[u];
      au.erase(std::lower_bound(au.begin(), au.end(), v));
      missing.clear();
      std::set_difference(n.begin(), n.end(), au.begin(), au.end(), std::back_inserter(missing));
      missing.erase(std::lower_bound(missing.begin(), missing.end(), u));
      if (!missing.empty()) {
        merged.clear();
        std::merge(au.begin(), au.end(), missing.begin(), missing.end(), std::back_inserter(merged));
        au.swap(merged);
        for (std::uint32_t x : missing)
          if (!quiet_ && u < x &&
              log_node_pair(domain, "\tCreating fill-in between %s and %s\n", graph_.nodes[u], graph_.nodes[x]) !=
                  ov_error_none)
            return ov_error_code();
      }
      cost_[u] = -1.0;
    }
    // Scores change only within distance two of v.
    for (std::uint32_t u : n)
      for (std::uint32_t w : adjacent_[u]) cost_[w] = -1.0;
    for (std::uint32_t u : n) {
      if (cost_[u] < 0) score(u);
      for (std::uint32_t w : adjacent_[u])
        if (cost_[w] < 0) score(w);
    }
    return ov_error_none;
  }

  const TriGraph &graph_;
  const VertexSet &component_;
  int method_;
  CliqueSet &out_;
  const std::vector<std::uint32_t> *order_;
  bool quiet_;
  double cost_total_ = 0.0;
  std::vector<VertexSet> adjacent_;
  std::vector<std::uint64_t> fill_count_;
  std::vector<double> cost_;
  std::uint64_t random_ = 0;
  double slack_ = 0.0;
  std::vector<std::uint32_t> taken_;
};

bool is_complete(const TriGraph &graph, const VertexSet &set) {
  for (std::uint32_t v : set) {
    std::size_t inside = 0;
    for (std::uint32_t u : graph.adjacency[v]) inside += std::binary_search(set.begin(), set.end(), u);
    if (inside + 1 != set.size()) return false;
  }
  return true;
}

// The bound on search states when the domain sets none. A state costs some
// 150 bytes and its expansion a pass over the component's edges, so the
// search stays within about 30 MB and half a second per component. On the
// shared networks ten times as many states (300 MB, up to 8 s) finish only
// one more component, whose heuristic was already optimal.
constexpr std::size_t default_search_states = 200000;

// Where the search gives up, randomised restarts of the greedy weight
// heuristics: each step chooses at random among the vertices whose cost is
// within restart_slack of the least. Greedy choices that look slightly worse
// locally often give much smaller forests: on the shared networks 40 runs of
// each of the two weight heuristics cut the total of munin1 from 195M cells
// to 91M, link from 37.9M to 26.1M and andes by a quarter, for about a
// second per thousand vertices. The seeds are fixed, so a compile is
// reproducible. A slack of 0.1 found much less, 0.5 a little less.
constexpr int restart_runs = 40;
constexpr double restart_slack = 0.3;

// Sets `order` to the lightest randomised run's elimination order if it is
// lighter than `best`, else leaves it empty.
ov_status_t randomised_restarts(const TriGraph &graph, const VertexSet &component, double best,
                                std::vector<std::uint32_t> &order) {
  for (int run = 0; run < restart_runs; ++run)
    for (int method : {ov_tm_clique_weight, ov_tm_fill_in_weight}) {
      CliqueSet scratch(graph.nodes.size());
      GreedyEliminator eliminator(graph, component, method, scratch, nullptr, true);
      eliminator.randomize(0x9E3779B97F4A7C15ull * static_cast<std::uint64_t>(run + 1) + static_cast<unsigned>(method),
                           restart_slack);
      if (eliminator.run() != ov_error_none) return ov_error_code();
      if (eliminator.cost() < best) best = eliminator.cost(), order = eliminator.order_taken();
    }
  return ov_error_none;
}

// The search for least total weight, bounded by the best heuristic, which
// also serves when the search fails or passes its bound on states.
ov_status_t search_component(const TriGraph &graph, const VertexSet &component, CliqueSet &out) {
  Domain *domain = graph.domain;
  int best_method = ov_tm_fill_in_weight;
  double best = 0.0;
  for (int method = ov_tm_clique_size; method <= ov_tm_fill_in_weight; ++method) {
    CliqueSet scratch(graph.nodes.size());
    GreedyEliminator eliminator(graph, component, method, scratch, nullptr, true);
    if (eliminator.run() != ov_error_none) return ov_error_code();
    if (method == ov_tm_clique_size || eliminator.cost() < best) best = eliminator.cost(), best_method = method;
  }
  const std::size_t n = component.size();
  std::vector<VertexSet> adjacency(n);
  std::vector<std::uint32_t> level(n);
  for (std::size_t i = 0; i < n; ++i) {
    level[i] = graph.nodes[component[i]]->level;
    for (std::uint32_t u : graph.adjacency[component[i]]) {
      auto at = std::lower_bound(component.begin(), component.end(), u);
      if (at != component.end() && *at == u) adjacency[i].push_back(static_cast<std::uint32_t>(at - component.begin()));
    }
  }
  VertexSet members;
  auto weight = [&](const VertexSet &local) {
    members.clear();
    for (std::uint32_t v : local) members.push_back(component[v]);
    return set_weight(graph, members);
  };
  const std::size_t limit = domain->max_separators != 0 ? domain->max_separators : default_search_states;
  // The heuristics choose regardless of level, so their total bounds the
  // search only where the component has one level.
  const bool one_level = std::all_of(level.begin(), level.end(), [&](std::uint32_t l) { return l == level[0]; });
  const double bound = one_level ? best : std::numeric_limits<double>::infinity();
  TotalWeightSearch search = search_total_weight(adjacency, level, weight, bound, limit);
  if (log_printf(domain, "\n    Searched %s sets of eliminated nodes for least total weight\n",
                 format_count(domain, search.states)) != ov_error_none)
    return ov_error_io;
  if (search.found) {
    for (std::uint32_t &v : search.order) v = component[v];
    GreedyEliminator eliminator(graph, component, ov_tm_total_weight, out, &search.order);
    return eliminator.run();
  }
  if (search.exceeded) {
    if (log_printf(domain, "    The search passed its bound of %s states: using the best heuristic or randomised run\n",
                   format_count(domain, limit)) != ov_error_none)
      return ov_error_io;
    std::vector<std::uint32_t> order;
    if (randomised_restarts(graph, component, best, order) != ov_error_none) return ov_error_code();
    if (!order.empty()) {
      if (log_printf(domain, "    A randomised run found a lighter triangulation than the heuristics\n") !=
          ov_error_none)
        return ov_error_io;
      GreedyEliminator eliminator(graph, component, ov_tm_total_weight, out, &order);
      return eliminator.run();
    }
  } else if (log_printf(domain, "    No triangulation is lighter than the best heuristic's\n") != ov_error_none) {
    return ov_error_io;
  }
  GreedyEliminator eliminator(graph, component, best_method, out);
  return eliminator.run();
}

ov_status_t triangulate_component(const TriGraph &graph, const VertexSet &component, int method, CliqueSet &out) {
  Domain *domain = graph.domain;
  if (log_printf(domain, "\nTriangulating prime component with %s member%s:\n", format_count(domain, component.size()),
                 component.size() == 1 ? "" : "s") != ov_error_none)
    return ov_error_io;
  if (log_vertex_names(graph, component) != ov_error_none) return ov_error_code();
  if (is_complete(graph, component)) {
    if (log_printf(domain, "This component is a clique of cost %s\n",
                   format_weight(domain, set_weight(graph, component))) != ov_error_none)
      return ov_error_io;
    out.add(component);
    return ov_error_none;
  }
  if (method == ov_tm_total_weight) return search_component(graph, component, out);
  GreedyEliminator eliminator(graph, component, method, out);
  return eliminator.run();
}

// Numbers the vertices from 1 so that elimination, from the highest number
// down, takes higher levels first and every clique is eliminated as a whole.
ov_status_t number_vertices(const TriGraph &graph, const CliqueSet &cliques) {
  Domain *domain = graph.domain;
  for (auto &node : domain->nodes) node->elimination_number = 0;
  std::uint32_t utility_number = domain->node_count();
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it)
    if ((*it)->category == ov_category_utility) (*it)->elimination_number = utility_number--;

  const std::size_t vertex_count = graph.nodes.size();
  const std::size_t clique_count = cliques.cliques.size();
  for (std::size_t v = 0; v < vertex_count; ++v)
    for (std::uint32_t u : graph.adjacency[v]) {
      if (u < v) continue;
      bool shared = false;
      for (std::uint32_t c : cliques.of_vertex[v])
        if (std::binary_search(cliques.cliques[c].begin(), cliques.cliques[c].end(), u)) {
          shared = true;
          break;
        }
      if (!shared) return fail(ov_error_error);
    }

  auto lowest_unnumbered_level = [&](std::uint32_t c) {
    std::uint32_t lowest = 0;
    for (std::uint32_t v : cliques.cliques[c]) {
      const Node *node = graph.nodes[v];
      if (node->elimination_number == 0 && (lowest == 0 || node->level < lowest)) lowest = node->level;
    }
    return lowest; // 0: all numbered
  };
  std::uint32_t top_level = 0;
  for (const Node *node : graph.nodes) top_level = std::max(top_level, node->level);
  std::vector<std::vector<std::uint32_t>> by_level(top_level + 1);
  for (std::uint32_t c = 0; c < clique_count; ++c) by_level[lowest_unnumbered_level(c)].push_back(c);

  std::vector<std::uint32_t> numbered_members(clique_count, 0);
  std::vector<bool> in_play(clique_count, false);
  std::uint32_t next = 1;
  for (std::uint32_t level = 1; level <= top_level; ++level) {
    // Cliques of this level by their count of numbered members; entries
    // whose count has since risen are stale and skipped.
    std::vector<std::vector<std::uint32_t>> by_count;
    auto place = [&](std::uint32_t c) {
      std::uint32_t count = numbered_members[c];
      if (by_count.size() <= count) by_count.resize(count + 1);
      by_count[count].push_back(c);
    };
    for (std::uint32_t c : by_level[level]) {
      in_play[c] = true;
      place(c);
    }
    for (;;) {
      std::uint32_t chosen = 0;
      bool found = false;
      while (!found && !by_count.empty()) {
        auto &bucket = by_count.back();
        if (bucket.empty()) {
          by_count.pop_back();
          continue;
        }
        std::uint32_t c = bucket.back();
        bucket.pop_back();
        if (in_play[c] && numbered_members[c] + 1 == by_count.size()) chosen = c, found = true;
      }
      if (!found) break;
      in_play[chosen] = false;
      const VertexSet &members = cliques.cliques[chosen];
      for (;;) {
        std::uint32_t best = 0;
        bool any = false;
        for (std::uint32_t v : members) {
          const Node *node = graph.nodes[v];
          if (node->elimination_number != 0 || node->level != level) continue;
          if (!any || cliques.of_vertex[v].size() > cliques.of_vertex[best].size()) best = v, any = true;
        }
        if (!any) break;
        graph.nodes[best]->elimination_number = next++;
        // The chosen clique counts too: it comes back at a higher level
        // with the members numbered now, and must rank by them there.
        for (std::uint32_t c : cliques.of_vertex[best]) {
          ++numbered_members[c];
          if (c != chosen && in_play[c]) place(c);
        }
      }
      std::uint32_t lowest = lowest_unnumbered_level(chosen);
      if (lowest != 0) by_level[lowest].push_back(chosen);
    }
  }
  if (next != vertex_count + 1) return fail(ov_error_error);
  return ov_error_none;
}

// Makes the domain's cliques from the cliques of the triangulation.
ov_status_t store_cliques(const TriGraph &graph, const CliqueSet &cliques) {
  Domain *domain = graph.domain;
  NodeList list;
  std::vector<std::unique_ptr<Clique>> made;
  for (const VertexSet &clique : cliques.cliques) {
    list.clear();
    for (std::uint32_t v : clique) list.push_back(graph.nodes[v]);
    std::sort(list.begin(), list.end(),
              [](const Node *a, const Node *b) { return a->elimination_number < b->elimination_number; });
    Table *table = table_new(domain, list.data(), ov_table_kind_probability, role_clique, true, false);
    std::unique_ptr<Clique> record = table == nullptr ? nullptr : clique_new(domain, table);
    if (record == nullptr) return ov_error_code();
    made.push_back(std::move(record));
  }
  install_cliques(domain, std::move(made));
  return ov_error_none;
}

ov_status_t log_elimination_sequence(Domain *domain) {
  if (domain->log_file == nullptr) return ov_error_none;
  if (log_printf(domain, "\n\nElimination sequence:\n\n") != ov_error_none) return ov_error_io;
  NodeList *order = domain_elimination_order(domain);
  if (order == nullptr) return ov_error_code();
  for (Node *node : *order)
    if (log_node_line(domain, "    %s\n", node) != ov_error_none) return ov_error_code();
  return ov_error_none;
}

} // namespace

ov_status_t triangulate_graph(Domain *domain, int method) {
  TriGraph graph = build_top_graph(domain);
  if (log_printf(domain, "\n") != ov_error_none) return ov_error_io;
  std::vector<VertexSet> components = find_prime_components(graph.adjacency);
  CliqueSet cliques(graph.nodes.size());
  for (const VertexSet &component : components)
    if (triangulate_component(graph, component, method, cliques) != ov_error_none) return ov_error_code();
  if (domain->log_file != nullptr) {
    double total = 0.0;
    for (const VertexSet &clique : cliques.cliques) total += set_weight(graph, clique);
    if (log_printf(domain, "\n\nTotal cost of triangulation for all prime components is %s\n",
                   format_weight(domain, total)) != ov_error_none)
      return ov_error_io;
  }
  if (number_vertices(graph, cliques) != ov_error_none || store_cliques(graph, cliques) != ov_error_none)
    return ov_error_code();
  return log_elimination_sequence(domain);
}

namespace {

ov_status_t log_time(Domain *domain) {
  if (domain->log_file == nullptr) return ov_error_none;
  std::time_t now = std::time(nullptr);
  const char *text = std::ctime(&now);
  return log_printf(domain, "%s", text != nullptr ? text : "\n");
}

// Runs a triangulation; on any failure, including a failing flush of the
// log, forgets everything and reports the first error again.
template <class F> ov_status_t triangulation_stage(Domain *domain, F &&body) {
  ov_status_t code;
  try {
    code = body();
  } catch (const std::bad_alloc &) {
    code = fail(ov_error_no_memory);
  }
  if (code == ov_error_none) code = log_flush(domain);
  if (code == ov_error_none) return set_error(ov_error_none);
  release_forest(domain, true);
  log_flush(domain);
  return fail(static_cast<ov_error_t>(code));
}

} // namespace

ov_status_t log_fill_in(Domain *domain, Node *a, Node *b) {
  return log_node_pair(domain, "Adding fill-in between %s and %s\n", a, b);
}

bool nodes_linked(const Node *a, const Node *b) noexcept {
  return std::find(a->neighbours.begin(), a->neighbours.end(), b) != a->neighbours.end() ||
         std::find(a->fill_ins.begin(), a->fill_ins.end(), b) != a->fill_ins.end();
}

void add_fill_in(Node *a, Node *b) {
  a->fill_ins.reserve(a->fill_ins.size() + 1);
  b->fill_ins.push_back(a);
  a->fill_ins.push_back(b);
}

ov_status_t domain_triangulate(Domain *domain, int method) {
  return triangulation_stage(domain, [&]() -> ov_status_t {
    if (log_time(domain) != ov_error_none || moralize(domain) != ov_error_none ||
        triangulate_graph(domain, method) != ov_error_none)
      return ov_error_code();
    return ov_error_none;
  });
}

ov_status_t domain_triangulate_with_order(Domain *domain, Node *const *order) {
  return triangulation_stage(domain, [&]() -> ov_status_t {
    if (log_time(domain) != ov_error_none || moralize(domain) != ov_error_none) return ov_error_code();
    if (log_printf(domain, "\n\nUser specified triangulation -- Fill-in links and node numbering:\n\n") !=
        ov_error_none)
      return ov_error_io;
    std::uint32_t k = domain->node_count();
    for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it)
      if ((*it)->category == ov_category_utility) (*it)->elimination_number = k--;
    std::vector<Node *> pending;
    const Node *previous = nullptr;
    for (Node *const *entry = order; *entry != nullptr; ++entry) {
      Node *node = *entry;
      if (node->home != domain) return fail(ov_error_usage);
      if (node->elimination_number != 0 || k == 0) return fail(ov_error_enumeration);
      if (previous != nullptr && node->level > previous->level) return fail(ov_error_enumeration);
      previous = node;
      node->elimination_number = k;
      if (domain->log_file != nullptr) {
        const char *name = node_get_name(node);
        if (name == nullptr) return ov_error_code();
        if (log_printf(domain, "%5s %s\n", format_count(domain, k), name) != ov_error_none) return ov_error_io;
      }
      // Complete the node's neighbourhood among the nodes not yet eliminated.
      pending.clear();
      for (Node *other : node->neighbours)
        if (other->elimination_number == 0) pending.push_back(other);
      for (Node *other : node->fill_ins)
        if (other->elimination_number == 0) pending.push_back(other);
      for (std::size_t i = 0; i < pending.size(); ++i)
        for (std::size_t j = i + 1; j < pending.size(); ++j) {
          if (nodes_linked(pending[i], pending[j])) continue;
          add_fill_in(pending[i], pending[j]);
          if (log_fill_in(domain, pending[i], pending[j]) != ov_error_none) return ov_error_code();
        }
      --k;
    }
    if (k != 0) return fail(ov_error_enumeration);
    return ov_error_none;
  });
}

NodeList *domain_elimination_order(Domain *domain) {
  if (domain->forest->elimination_order) return &*domain->forest->elimination_order;
  const std::uint32_t n = domain->chance_count + domain->decision_count;
  std::vector<Node *> slots(n, nullptr);
  for (auto &node : domain->nodes) {
    if (!in_moral_graph(node.get())) continue;
    std::uint32_t k = node->elimination_number;
    if (k == 0 || k > n || slots[n - k] != nullptr) {
      set_error(ov_error_enumeration);
      return nullptr;
    }
    slots[n - k] = node.get();
  }
  NodeList order;
  order.reserve(n);
  for (Node *node : slots) order.push_back(node);
  domain->forest->elimination_order = std::move(order);
  set_error(ov_error_none);
  return &*domain->forest->elimination_order;
}

} // namespace orvel
