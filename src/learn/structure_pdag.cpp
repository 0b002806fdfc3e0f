// The graph phase of structure learning: the skeleton from the test
// verdicts and the constraints, colliders, derived directions (rules R1 to
// R4), and the orientation of what stays undirected by the number of
// parameters each direction adds. Every step is written to the log.
#include <cstdio>

#include "learn/structure.h"
#include "learn/structure_search.h"
#include "model/graph.h"

namespace orvel {

namespace {

struct Edge {
  std::uint32_t first, second; // directed means first -> second
  bool directed = false;
};

struct Pdag {
  StructureSearch &search;
  std::vector<Edge> edges;
  std::vector<std::vector<std::uint32_t>> incident; // by vertex: edge numbers
  std::vector<std::int32_t> link;                   // n x n: edge number or -1
  std::vector<std::uint8_t> seen;                   // scratch of the path search
  std::vector<std::uint32_t> stack;

  std::size_t size() const noexcept { return incident.size(); }
  std::int32_t edge_between(std::uint32_t a, std::uint32_t b) const noexcept { return link[a * size() + b]; }
  bool adjacent(std::uint32_t a, std::uint32_t b) const noexcept { return edge_between(a, b) >= 0; }
  // a -> b
  bool points(std::uint32_t a, std::uint32_t b) const noexcept {
    const std::int32_t e = edge_between(a, b);
    return e >= 0 && edges[e].directed && edges[e].first == a;
  }
  bool undirected(std::uint32_t a, std::uint32_t b) const noexcept {
    const std::int32_t e = edge_between(a, b);
    return e >= 0 && !edges[e].directed;
  }
  std::uint32_t other(std::uint32_t e, std::uint32_t v) const noexcept {
    return edges[e].first == v ? edges[e].second : edges[e].first;
  }
  const char *name(std::uint32_t v) const { return node_get_name(search.nodes[v]); }
  ov_status_t log(const char *format, auto... arguments) { return log_printf(search.domain, format, arguments...); }

  void add(std::uint32_t a, std::uint32_t b, bool directed) {
    const auto e = static_cast<std::int32_t>(edges.size());
    edges.push_back({a, b, directed});
    incident[a].push_back(e);
    incident[b].push_back(e);
    link[a * size() + b] = link[b * size() + a] = e;
  }
  void orient(std::uint32_t e, std::uint32_t from) {
    if (edges[e].first != from) std::swap(edges[e].first, edges[e].second);
    edges[e].directed = true;
  }
  // Whether a directed path leads from `from` to `to`.
  bool path(std::uint32_t from, std::uint32_t to) {
    seen.assign(size(), 0);
    stack.assign(1, from);
    seen[from] = 1;
    while (!stack.empty()) {
      const std::uint32_t v = stack.back();
      stack.pop_back();
      if (v == to) return true;
      for (std::uint32_t e : incident[v])
        if (edges[e].directed && edges[e].first == v && !seen[edges[e].second]) {
          seen[edges[e].second] = 1;
          stack.push_back(edges[e].second);
        }
    }
    return false;
  }
  // Whether the directed edge e closes a directed cycle.
  bool closes_cycle(std::uint32_t e) { return path(edges[e].second, edges[e].first); }
};

bool edge_present(const EdgeTestRecord &r) noexcept {
  if (r.constraint >= ov_constraint_edge_required && r.constraint <= ov_constraint_backward_edge_required) return true;
  return r.constraint != ov_constraint_edge_forbidden && !r.tests.empty() && r.independent_count == 0;
}

ov_status_t skeleton(Pdag &g) {
  if (ov_status_t s = log_printf(g.search.domain, "\nIdentifying skeleton:\n"); s != 0) return s;
  const std::uint32_t n = static_cast<std::uint32_t>(g.size());
  for (std::uint32_t i = 0; i < n; ++i)
    for (std::uint32_t j = i + 1; j < n; ++j) {
      const EdgeTestRecord &record = g.search.record(g.search.nodes[i], g.search.nodes[j]);
      if (!edge_present(record)) continue;
      const int c = record.constraint;
      if (c == ov_constraint_forward_edge_required || c == ov_constraint_backward_edge_forbidden ||
          c == ov_constraint_backward_edge_required || c == ov_constraint_forward_edge_forbidden) {
        const bool forward = c == ov_constraint_forward_edge_required || c == ov_constraint_backward_edge_forbidden;
        const std::uint32_t from = forward ? i : j, to = forward ? j : i;
        g.add(from, to, true);
        const auto e = static_cast<std::uint32_t>(g.edges.size() - 1);
        ov_status_t s;
        if (g.closes_cycle(e)) {
          g.orient(e, to);
          s = log_printf(g.search.domain, "%s <- %s to maintain acyclicity (constraint violated)\n", g.name(from),
                         g.name(to));
        } else {
          s = log_printf(g.search.domain, "%s -> %s (constraint)\n", g.name(from), g.name(to));
        }
        if (s != ov_error_none) return s;
      } else {
        g.add(i, j, false);
      }
    }
  const std::uint64_t pairs = static_cast<std::uint64_t>(n) * (n - 1) / 2;
  Domain *domain = g.search.domain;
  return log_printf(g.search.domain, "%s edges out of %s\n", format_count(domain, g.edges.size()),
                    format_count(domain, pairs));
}

// Whether some independent test of a and c other than the first has b in
// its conditioning set.
bool separates(const Pdag &g, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
  const EdgeTestRecord &record = g.search.record(g.search.nodes[a], g.search.nodes[c]);
  for (std::size_t t = 1; t < record.tests.size(); ++t) {
    const IndependenceTest &test = record.tests[t];
    if (!test.is_independent) continue;
    for (const Node *node : test.conditioning_set)
      if (node == g.search.nodes[b]) return true;
  }
  return false;
}

ov_status_t try_collider(Pdag &g, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
  const std::int32_t ab = g.edge_between(a, b), bc = g.edge_between(b, c);
  if (ab < 0 || bc < 0) return ov_error_none;
  if (g.edges[ab].directed && !g.points(a, b)) return ov_error_none;
  if (g.edges[bc].directed) return ov_error_none;
  if (separates(g, a, b, c) || g.adjacent(a, c)) return ov_error_none;
  const bool ab_was_directed = g.edges[ab].directed;
  g.orient(static_cast<std::uint32_t>(ab), a);
  g.orient(static_cast<std::uint32_t>(bc), c);
  if (g.closes_cycle(static_cast<std::uint32_t>(ab)) || g.closes_cycle(static_cast<std::uint32_t>(bc))) {
    // Undo: an edge that came directed (from a constraint) keeps its way.
    g.edges[ab].directed = ab_was_directed;
    g.edges[bc].directed = false;
    return log_printf(g.search.domain, "R0: %s -> %s <- %s. Ignored to maintain acyclicity\n", g.name(a), g.name(b),
                      g.name(c));
  }
  return log_printf(g.search.domain, "R0: %s -> %s <- %s\n", g.name(a), g.name(b), g.name(c));
}

ov_status_t colliders(Pdag &g) {
  if (ov_status_t s = log_printf(g.search.domain, "\nIdentifying colliders:\n"); s != 0) return s;
  const std::uint32_t n = static_cast<std::uint32_t>(g.size());
  for (std::uint32_t i = 0; i < n; ++i)
    for (std::uint32_t j = i + 1; j < n; ++j)
      for (std::uint32_t k = j + 1; k < n; ++k) {
        if (ov_status_t s = try_collider(g, i, j, k); s != 0) return s;
        if (ov_status_t s = try_collider(g, j, i, k); s != 0) return s;
        if (ov_status_t s = try_collider(g, i, k, j); s != 0) return s;
      }
  return ov_error_none;
}

// Whether the PDAG extends to a DAG with the same skeleton and colliders:
// no directed cycle, and vertices can be removed one by one, each a sink
// whose undirected neighbours are adjacent to all its other neighbours
// (Dor and Tarsi).
bool has_extension(Pdag &g) {
  for (std::uint32_t e = 0; e < g.edges.size(); ++e)
    if (g.edges[e].directed && g.closes_cycle(e)) return false;
  const std::size_t n = g.size();
  std::vector<std::uint8_t> removed(n, 0);
  for (std::size_t left = n; left > 0;) {
    bool found = false;
    for (std::uint32_t v = 0; v < n && !found; ++v) {
      if (removed[v]) continue;
      bool sink = true;
      std::vector<std::uint32_t> neighbours;
      for (std::uint32_t e : g.incident[v]) {
        const std::uint32_t w = g.other(e, v);
        if (removed[w]) continue;
        if (g.points(v, w)) sink = false;
        neighbours.push_back(w);
      }
      if (!sink) continue;
      bool fits = true;
      for (std::uint32_t e : g.incident[v]) {
        const std::uint32_t w = g.other(e, v);
        if (removed[w] || g.edges[e].directed) continue;
        for (std::uint32_t u : neighbours)
          if (u != w && !g.adjacent(u, w)) fits = false;
      }
      if (!fits) continue;
      removed[v] = 1;
      --left;
      found = true;
    }
    if (!found) return false;
  }
  return true;
}

// Directs x - y as x -> y, or y -> x when that closes a cycle and the rule
// allows turning; logs the result.
ov_status_t conclude(Pdag &g, std::uint32_t e, std::uint32_t x, std::uint32_t y, bool may_turn) {
  g.orient(e, x);
  if (may_turn && g.closes_cycle(e)) {
    g.orient(e, y);
    return log_printf(g.search.domain, "%s <- %s to maintain acyclicity\n", g.name(x), g.name(y));
  }
  return log_printf(g.search.domain, "%s -> %s\n", g.name(x), g.name(y));
}

// Tries one rule on x - y; *fired tells whether it applied.
ov_status_t try_rule(Pdag &g, int rule, std::uint32_t e, std::uint32_t x, std::uint32_t y, bool *fired) {
  *fired = false;
  const auto &around = g.incident[x];
  switch (rule) {
  case 1:
    for (std::uint32_t f : around) {
      const std::uint32_t z = g.other(f, x);
      if (z == y || !g.points(z, x) || g.adjacent(z, y)) continue;
      *fired = true;
      if (ov_status_t s = log_printf(g.search.domain, "R1: %s -> %s - %s => ", g.name(z), g.name(x), g.name(y)); s != 0)
        return s;
      return conclude(g, e, x, y, true);
    }
    return ov_error_none;
  case 2:
    for (std::uint32_t f : around) {
      const std::uint32_t z = g.other(f, x);
      if (z == y || !g.points(x, z) || !g.points(z, y)) continue;
      *fired = true;
      if (ov_status_t s = log_printf(g.search.domain, "R2: %s - %s, %s -> %s -> %s => ", g.name(x), g.name(y),
                                     g.name(x), g.name(z), g.name(y));
          s != 0)
        return s;
      return conclude(g, e, x, y, false);
    }
    return ov_error_none;
  case 3:
    for (std::size_t i = 0; i < around.size(); ++i) {
      const std::uint32_t p = g.other(around[i], x);
      if (p == y || g.edges[around[i]].directed || !g.points(p, y)) continue;
      for (std::size_t j = i + 1; j < around.size(); ++j) {
        const std::uint32_t q = g.other(around[j], x);
        if (q == y || g.edges[around[j]].directed || !g.points(q, y) || g.adjacent(p, q)) continue;
        *fired = true;
        if (ov_status_t s = log_printf(g.search.domain, "R3: %s - %s, not %s - %s, %s - %s -> %s, %s - %s -> %s => ",
                                       g.name(x), g.name(y), g.name(p), g.name(q), g.name(x), g.name(p), g.name(y),
                                       g.name(x), g.name(q), g.name(y));
            s != 0)
          return s;
        return conclude(g, e, x, y, true);
      }
    }
    return ov_error_none;
  default:
    for (std::uint32_t f : around) {
      const std::uint32_t p = g.other(f, x);
      if (p == y || g.edges[f].directed || g.adjacent(p, y)) continue;
      for (std::uint32_t h : around) {
        const std::uint32_t w = g.other(h, x);
        if (w == y || w == p || !g.points(p, w) || !g.points(w, y)) continue;
        *fired = true;
        if (ov_status_t s = log_printf(
                g.search.domain, "R4: %s - %s, (%s - %s, %s -> %s, or %s <- %s), %s - %s -> %s, %s -> %s -> %s => ",
                g.name(x), g.name(y), g.name(x), g.name(w), g.name(x), g.name(w), g.name(x), g.name(w), g.name(x),
                g.name(p), g.name(w), g.name(p), g.name(w), g.name(y));
            s != 0)
          return s;
        return conclude(g, e, x, y, true);
      }
    }
    return ov_error_none;
  }
}

ov_status_t derive_directions(Pdag &g, bool heading) {
  if (heading)
    if (ov_status_t s = log_printf(g.search.domain, "\nIdentifying derived directions:\n"); s != 0) return s;
  for (bool again = true; again;) {
    again = false;
    for (std::uint32_t e = 0; e < g.edges.size() && !again; ++e) {
      if (g.edges[e].directed) continue;
      const std::uint32_t a = g.edges[e].first, b = g.edges[e].second;
      for (int rule = 1; rule <= 4 && !again; ++rule)
        for (int turn = 0; turn < 2 && !again; ++turn) {
          bool fired = false;
          if (ov_status_t s = try_rule(g, rule, e, turn ? b : a, turn ? a : b, &fired); s != 0) return s;
          again = fired;
        }
    }
  }
  return ov_error_none;
}

double parameter_cost(const Pdag &g, std::uint32_t child, std::uint32_t parent) {
  double cost = (g.search.nodes[child]->state_count - 1.0) * g.search.nodes[parent]->state_count;
  for (std::uint32_t e : g.incident[child])
    if (g.points(g.other(e, child), child)) cost *= g.search.nodes[g.other(e, child)]->state_count;
  return cost;
}

std::size_t undirected_count(const Pdag &g, std::uint32_t v) {
  std::size_t count = 0;
  for (std::uint32_t e : g.incident[v]) count += g.edges[e].directed ? 0 : 1;
  return count;
}

ov_status_t complete_orientation(Pdag &g) {
  if (ov_status_t s = log_printf(g.search.domain, "\nCompleting orientation:\n"); s != 0) return s;
  for (std::uint32_t e = 0; e < g.edges.size(); ++e) {
    if (g.edges[e].directed) continue;
    const std::uint32_t a = g.edges[e].first, b = g.edges[e].second;
    const double cost_a = parameter_cost(g, a, b), cost_b = parameter_cost(g, b, a);
    const std::size_t ua = undirected_count(g, a), ub = undirected_count(g, b);
    g.orient(e, cost_a < cost_b || (cost_a == cost_b && ua <= ub) ? b : a);
    ov_status_t s;
    if (g.closes_cycle(e)) {
      g.orient(e, b);
      s = log_printf(g.search.domain, "%s -> %s\n", g.name(b), g.name(a));
    } else {
      s = log_printf(g.search.domain, "%s -> %s\n", g.name(a), g.name(b));
    }
    if (s != ov_error_none) return s;
    if (ov_status_t t = derive_directions(g, false); t != 0) return t;
  }
  return ov_error_none;
}

} // namespace

ov_status_t orient_and_add_edges(StructureSearch &search) {
  const std::size_t n = search.nodes.size();
  Pdag g{search, {}, std::vector<std::vector<std::uint32_t>>(n), std::vector<std::int32_t>(n * n, -1), {}, {}};
  if (ov_status_t s = skeleton(g); s != 0) return s;
  if (ov_status_t s = colliders(g); s != 0) return s;
  if (ov_status_t s = log_printf(g.search.domain, "\nPDAG %s an admissible DAG extension.\n",
                                 has_extension(g) ? "has" : "does not have");
      s != 0)
    return s;
  if (ov_status_t s = derive_directions(g, true); s != 0) return s;
  if (ov_status_t s = complete_orientation(g); s != 0) return s;
  for (const Edge &edge : g.edges)
    if (edge.directed)
      if (ov_status_t s = add_parent(search.nodes[edge.second], search.nodes[edge.first]); s != 0) return s;
  return log_flush(search.domain);
}

} // namespace orvel
