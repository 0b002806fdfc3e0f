// Decomposition of a graph by its complete minimal separators.
//
// A labelled search (maximum cardinality search that also counts paths
// through lower labels) numbers the vertices and yields a minimal
// triangulation: each vertex keeps the numbered vertices that raised its
// label. Where a label does not rise from one numbered vertex to the next, the
// raised-by set of the later vertex is a minimal separator of the
// triangulation. Walking the vertices in elimination order, each such
// separator that is complete in the graph itself cuts off the component that
// holds its vertex; what remains at the end is the last piece.
#include <algorithm>

#include "compile/triangulate.h"

namespace orvel {

namespace {

struct LabelledSearch {
  std::vector<std::uint32_t> order; // vertices in elimination order: the last numbered first
  std::vector<VertexSet> raised_by; // numbered vertices that raised each vertex's label
  std::vector<bool> generator;      // whose raised-by set is a minimal separator
};

LabelledSearch labelled_search(const std::vector<VertexSet> &adjacency) {
  const std::uint32_t n = static_cast<std::uint32_t>(adjacency.size());
  LabelledSearch result;
  result.raised_by.resize(n);
  result.generator.assign(n, false);
  result.order.resize(n);
  // The adjacency in one array, for the searches that walk it n times.
  std::vector<std::uint32_t> first(n + 1, 0);
  for (std::uint32_t v = 0; v < n; ++v) first[v + 1] = first[v] + static_cast<std::uint32_t>(adjacency[v].size());
  std::vector<std::uint32_t> neighbours;
  neighbours.reserve(first[n]);
  for (const VertexSet &set : adjacency) neighbours.insert(neighbours.end(), set.begin(), set.end());
  std::vector<std::uint32_t> label(n, 0);
  // The step (from 1) in which a vertex was last reached; a numbered vertex
  // holds the largest value, so that one test skips both.
  constexpr std::uint32_t numbered = 0xFFFFFFFFu;
  std::vector<std::uint32_t> reached_in(n, 0);
  std::vector<std::vector<std::uint32_t>> reach(n + 1);
  std::vector<std::uint32_t> raised;
  // Unnumbered vertices by label; an entry whose label has since risen, or
  // whose vertex is numbered, is stale.
  std::vector<std::vector<std::uint32_t>> by_label(n);
  for (std::uint32_t u = n; u-- > 0;) by_label[0].push_back(u);
  std::uint32_t highest = 0;
  std::int64_t previous_label = -1;
  // Unnumbered vertices by label, and those of this step's raised vertices,
  // so that the search of a step ends as soon as no vertex is left that it
  // could raise: on sparse graphs the search then stays near v.
  std::vector<std::uint32_t> with_label(n + 1, 0), raised_with_label(n + 1, 0);
  with_label[0] = n;
  std::uint32_t unnumbered = n;
  for (std::uint32_t step = 0; step < n; ++step) {
    std::uint32_t v = n;
    while (v == n) {
      auto &bucket = by_label[highest];
      while (!bucket.empty() && (reached_in[bucket.back()] == numbered || label[bucket.back()] != highest))
        bucket.pop_back();
      if (bucket.empty()) {
        --highest;
        continue;
      }
      v = bucket.back();
    }
    if (static_cast<std::int64_t>(label[v]) <= previous_label) result.generator[v] = true;
    previous_label = label[v];
    reached_in[v] = numbered;
    --with_label[label[v]];
    --unnumbered;
    result.order[n - 1 - step] = v;

    // Every unnumbered u that a path of unnumbered vertices with labels
    // below label[u] joins to v gets its label raised.
    const std::uint32_t mark = step + 1;
    raised.clear();
    std::uint32_t top = 0;
    for (std::uint32_t k = first[v]; k < first[v + 1]; ++k) {
      const std::uint32_t u = neighbours[k];
      if (reached_in[u] >= mark) continue;
      reached_in[u] = mark;
      raised.push_back(u);
      ++raised_with_label[label[u]];
      reach[label[u]].push_back(u);
      top = std::max(top, label[u]);
    }
    // Unnumbered vertices not reached in this step whose label is above j.
    std::uint32_t above =
        unnumbered - with_label[0] - (static_cast<std::uint32_t>(raised.size()) - raised_with_label[0]);
    for (std::uint32_t j = 0; j <= top; ++j) {
      if (j > 0) above -= with_label[j] - raised_with_label[j];
      if (above == 0) {
        // Nothing left to raise: what is left to search raises nothing.
        for (std::uint32_t k = j; k <= top; ++k) reach[k].clear();
        break;
      }
      while (!reach[j].empty()) {
        std::uint32_t y = reach[j].back();
        reach[j].pop_back();
        for (std::uint32_t k = first[y]; k < first[y + 1]; ++k) {
          const std::uint32_t z = neighbours[k];
          if (reached_in[z] >= mark) continue;
          reached_in[z] = mark;
          if (label[z] > j) {
            raised.push_back(z);
            ++raised_with_label[label[z]];
            --above;
            reach[label[z]].push_back(z);
            top = std::max(top, label[z]);
          } else {
            reach[j].push_back(z);
          }
        }
      }
    }
    for (std::uint32_t u : raised) {
      raised_with_label[label[u]] = 0;
      --with_label[label[u]];
      ++with_label[label[u] + 1];
      ++label[u];
      result.raised_by[u].push_back(v);
      by_label[label[u]].push_back(u);
      highest = std::max(highest, label[u]);
    }
  }
  for (VertexSet &set : result.raised_by) std::sort(set.begin(), set.end());
  return result;
}

bool adjacent(const std::vector<VertexSet> &adjacency, std::uint32_t a, std::uint32_t b) {
  return std::binary_search(adjacency[a].begin(), adjacency[a].end(), b);
}

bool is_complete(const std::vector<VertexSet> &adjacency, const VertexSet &set) {
  for (std::size_t i = 0; i < set.size(); ++i)
    for (std::size_t j = i + 1; j < set.size(); ++j)
      if (!adjacent(adjacency, set[i], set[j])) return false;
  return true;
}

} // namespace

std::vector<VertexSet> find_prime_components(const std::vector<VertexSet> &adjacency) {
  const std::uint32_t n = static_cast<std::uint32_t>(adjacency.size());
  std::vector<VertexSet> pieces;
  if (n == 0) return pieces;
  LabelledSearch search = labelled_search(adjacency);
  std::vector<bool> remaining(n, true);
  std::vector<bool> in_separator(n, false);
  std::vector<std::uint32_t> stack;
  for (std::uint32_t x : search.order) {
    if (!search.generator[x] || !remaining[x]) continue;
    const VertexSet &separator = search.raised_by[x];
    if (!is_complete(adjacency, separator)) continue;
    for (std::uint32_t s : separator) in_separator[s] = true;
    // The component of the remaining graph without the separator that
    // holds x goes, with the separator, into a piece of its own.
    VertexSet piece(separator);
    remaining[x] = false;
    stack.assign(1, x);
    while (!stack.empty()) {
      std::uint32_t y = stack.back();
      stack.pop_back();
      piece.push_back(y);
      for (std::uint32_t z : adjacency[y]) {
        if (!remaining[z] || in_separator[z]) continue;
        remaining[z] = false;
        stack.push_back(z);
      }
    }
    for (std::uint32_t s : separator) in_separator[s] = false;
    std::sort(piece.begin(), piece.end());
    pieces.push_back(std::move(piece));
  }
  VertexSet rest;
  for (std::uint32_t v = 0; v < n; ++v)
    if (remaining[v]) rest.push_back(v);
  if (!rest.empty()) pieces.push_back(std::move(rest));
  return pieces;
}

} // namespace orvel
