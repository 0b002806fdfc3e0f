// The search for an elimination order of least total clique weight.
//
// A best-first search over the sets of eliminated vertices. The graph left
// after eliminating a set S does not depend on the order within S: a vertex
// v outside S is adjacent to its neighbours outside S and to the outside
// neighbourhood N(K) of every connected component K of S that touches it.
// Nor does whether the clique {v} + N_S(v) of eliminating v next is maximal
// in the final triangulation: it lies inside an earlier elimination clique
// exactly when some component K touching v has N(K) = {v} + N_S(v), since
// the last vertex eliminated in K has the clique K's last vertex plus N(K),
// and every other earlier clique meets the rest of the graph in a subset of
// some N(K). So the total weight of the maximal cliques is a sum of step
// costs that depend on the set alone, all orders that eliminate the same set
// coalesce into one search state, and a uniform-cost search that pops the
// full set has found the least total. States whose cost reaches the upper
// bound are dropped, and a vertex without fill-in is eliminated alone.
#include <queue>
#include <string>
#include <unordered_map>

#include "compile/triangulate.h"

namespace orvel {

namespace {

struct SearchState {
  double cost;
  std::uint32_t parent;
  std::uint32_t vertex;
  bool closed;
};

using Key = std::string; // one bit per vertex, set when eliminated

bool has(const Key &key, std::uint32_t v) { return (static_cast<unsigned char>(key[v >> 3]) >> (v & 7)) & 1u; }
void put(Key &key, std::uint32_t v) { key[v >> 3] = static_cast<char>(key[v >> 3] | (1u << (v & 7))); }

} // namespace

TotalWeightSearch search_total_weight(const std::vector<VertexSet> &adjacency, const std::vector<std::uint32_t> &level,
                                      const std::function<double(const VertexSet &)> &set_weight, double upper_bound,
                                      std::size_t max_states) {
  const std::uint32_t n = static_cast<std::uint32_t>(adjacency.size());
  TotalWeightSearch result;
  std::vector<SearchState> states;
  std::vector<Key> keys;
  std::unordered_map<Key, std::uint32_t> index;
  using Entry = std::pair<double, std::uint32_t>;
  std::priority_queue<Entry, std::vector<Entry>, std::greater<>> open;

  keys.emplace_back((n + 7) / 8, '\0');
  states.push_back({0.0, 0, 0, false});
  index.emplace(keys[0], 0);
  open.push({0.0, 0});

  // Work space of one expansion.
  std::vector<std::uint32_t> component_of(n);
  std::vector<VertexSet> boundary; // N(K) of each component K
  std::vector<std::uint32_t> stack, mark(n, 0);
  std::uint32_t stamp = 0;
  VertexSet clique;
  std::vector<std::uint32_t> touching;
  std::vector<std::vector<std::uint32_t>> bounding(n); // the components whose boundary holds a vertex

  while (!open.empty()) {
    auto [cost, id] = open.top();
    open.pop();
    if (states[id].closed || cost > states[id].cost) continue;
    states[id].closed = true;
    const Key key = keys[id];

    // The components of the eliminated set and their outside neighbourhoods.
    constexpr std::uint32_t none = 0xFFFFFFFFu;
    std::fill(component_of.begin(), component_of.end(), none);
    boundary.clear();
    std::uint32_t remaining = 0, top_level = 0;
    for (std::uint32_t v = 0; v < n; ++v) {
      if (!has(key, v)) {
        ++remaining;
        top_level = std::max(top_level, level[v]);
        continue;
      }
      if (component_of[v] != none) continue;
      const std::uint32_t k = static_cast<std::uint32_t>(boundary.size());
      boundary.emplace_back();
      ++stamp;
      component_of[v] = k;
      stack.assign(1, v);
      while (!stack.empty()) {
        std::uint32_t y = stack.back();
        stack.pop_back();
        for (std::uint32_t z : adjacency[y]) {
          if (has(key, z)) {
            if (component_of[z] == none) component_of[z] = k, stack.push_back(z);
          } else if (mark[z] != stamp) {
            mark[z] = stamp;
            boundary[k].push_back(z);
          }
        }
      }
      std::sort(boundary[k].begin(), boundary[k].end());
    }
    if (remaining == 0) {
      result.found = true;
      result.cost = cost;
      for (std::uint32_t s = id; s != 0; s = states[s].parent) result.order.push_back(states[s].vertex);
      std::reverse(result.order.begin(), result.order.end());
      break;
    }

    // N_S(v) + v into `clique`: the outside neighbours of v and the
    // boundaries of the components that touch it.
    auto neighbourhood = [&](std::uint32_t v) {
      ++stamp;
      mark[v] = stamp;
      clique.assign(1, v);
      touching.clear();
      for (std::uint32_t u : adjacency[v]) {
        if (!has(key, u)) {
          if (mark[u] != stamp) mark[u] = stamp, clique.push_back(u);
          continue;
        }
        const std::uint32_t k = component_of[u];
        if (std::find(touching.begin(), touching.end(), k) != touching.end()) continue;
        touching.push_back(k);
        for (std::uint32_t x : boundary[k])
          if (mark[x] != stamp) mark[x] = stamp, clique.push_back(x);
      }
    };
    // A vertex whose neighbourhood is complete is taken alone: eliminating
    // it first leaves the same triangulation as eliminating it later, since
    // every path through it has a shortcut.
    auto linked = [&](std::uint32_t x, std::uint32_t y) {
      if (std::binary_search(adjacency[x].begin(), adjacency[x].end(), y)) return true;
      for (std::uint32_t k : bounding[x])
        if (std::find(bounding[y].begin(), bounding[y].end(), k) != bounding[y].end()) return true;
      return false;
    };
    for (std::uint32_t v = 0; v < n; ++v) bounding[v].clear();
    for (std::uint32_t k = 0; k < boundary.size(); ++k)
      for (std::uint32_t x : boundary[k]) bounding[x].push_back(k);
    std::uint32_t first = 0, last = n;
    for (std::uint32_t v = 0; v < n && last == n; ++v) {
      if (has(key, v) || level[v] != top_level) continue;
      neighbourhood(v);
      bool simplicial = true;
      for (std::size_t i = 1; i < clique.size() && simplicial; ++i)
        for (std::size_t j = i + 1; j < clique.size() && simplicial; ++j) simplicial = linked(clique[i], clique[j]);
      if (simplicial) first = v, last = v + 1;
    }

    for (std::uint32_t v = first; v < last; ++v) {
      if (has(key, v) || level[v] != top_level) continue;
      neighbourhood(v);
      bool maximal = true;
      for (std::uint32_t k : touching)
        if (boundary[k].size() == clique.size()) maximal = false;
      double next = cost;
      if (maximal) {
        std::sort(clique.begin(), clique.end());
        next += set_weight(clique);
      }
      if (next >= upper_bound) continue;
      Key successor = key;
      put(successor, v);
      auto [it, inserted] = index.try_emplace(successor, static_cast<std::uint32_t>(states.size()));
      if (inserted) {
        if (states.size() >= max_states) {
          result.exceeded = true;
          result.states = states.size();
          return result;
        }
        keys.push_back(std::move(successor));
        states.push_back({next, id, v, false});
        open.push({next, it->second});
      } else if (!states[it->second].closed && next < states[it->second].cost) {
        states[it->second] = {next, id, v, false};
        open.push({next, it->second});
      }
    }
  }
  result.states = states.size();
  return result;
}

} // namespace orvel
