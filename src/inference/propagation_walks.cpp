// Walks of the junction tree: choosing the root and applying hard findings.
#include "inference/propagation_engine.h"

#include <cstdint>

#include "compile/compiled_forest.h"
#include "table/marginalize.h"

namespace orvel::engine {

// All walks recurse over links with the parent passed down, so that they
// need no storage.

namespace {

template <class F> void for_each_clique(Clique *c, const Clique *parent, F &f) {
  f(c);
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent) for_each_clique(link.neighbour, c, f);
}

Clique *first_active(Clique *c, const Clique *parent) noexcept {
  if (c->active) return c;
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent)
      if (Clique *found = first_active(link.neighbour, c)) return found;
  return nullptr;
}

// Makes active every clique on a path between two active cliques, and
// returns the active clique with the smallest table (the first met on a
// tie), or null if no clique below is active.
Clique *spread_active(Clique *c, const Clique *parent) noexcept {
  Clique *best = nullptr;
  for (CliqueLink &link : c->links) {
    if (link.neighbour == parent) continue;
    Clique *result = spread_active(link.neighbour, c);
    if (result != nullptr && (best == nullptr || result->table->size < best->table->size)) best = result;
  }
  if (!c->active) {
    if (best == nullptr) return nullptr;
    c->active = true;
  }
  if (best == nullptr || c->table->size <= best->table->size) return c;
  return best;
}

} // namespace

Clique *select_root(JunctionTree *tree) noexcept {
  Clique *active = first_active(tree->root, nullptr);
  return active == nullptr ? nullptr : spread_active(active, nullptr);
}

namespace {

// The clique nearest to `c` (by links) that holds the node, with its
// distance; searched depth first.
void find_nearest(Clique *c, const Clique *parent, const Node *node, std::uint32_t depth, Clique *&best,
                  std::uint32_t &best_depth) noexcept {
  if (depth >= best_depth) return;
  if (is_member(c, node)) {
    best = c;
    best_depth = depth;
    return;
  }
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent) find_nearest(link.neighbour, c, node, depth + 1, best, best_depth);
}

// The first clique depth first from `c` that holds the nodes.
Clique *find_holding(Clique *c, const Clique *parent, Node *const *nodes, std::size_t count) noexcept {
  bool all = true;
  for (std::size_t i = 0; i < count && all; ++i) all = is_member(c, nodes[i]);
  if (all) return c;
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent)
      if (Clique *found = find_holding(link.neighbour, c, nodes, count)) return found;
  return nullptr;
}

} // namespace

Clique *select_for_hard_evidence(JunctionTree *tree, const std::vector<Node *> &nodes) noexcept {
  Clique *start = first_active(tree->root, nullptr);
  if (start == nullptr && !nodes.empty()) {
    // As many of the nodes as possible, taken from the end of the list.
    for (std::size_t count = nodes.size(); count > 0 && start == nullptr; --count)
      start = find_holding(tree->root, nullptr, nodes.data() + (nodes.size() - count), count);
  }
  if (start == nullptr) return nullptr;
  for (Node *node : nodes) {
    Clique *nearest = nullptr;
    std::uint32_t depth = UINT32_MAX;
    find_nearest(start, nullptr, node, 0, nearest, depth);
    if (nearest != nullptr) nearest->active = true;
  }
  return spread_active(start, nullptr);
}

// Applies each marked hard finding in the first active clique, leaves
// first, that holds its node: zeroes the cells that disagree, books the
// finding's weight in the clique and clears the marks of its members.
void apply_hard_evidence(Clique *c, const Clique *parent) noexcept {
  if (!c->active) return;
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent) apply_hard_evidence(link.neighbour, c);
  Table *table = c->table;
  const std::uint32_t *strides = nullptr;
  for (std::uint32_t i = 0; i < table->discrete_count; ++i) {
    Node *node = table->nodes[i];
    if (node->mark == 0) continue;
    if (strides == nullptr) strides = discrete_strides(table, c->domain->forest->walk_strides.data());
    node->conflict_clique = c;
    c->factor *= likelihood_weight(node);
    zero_other_states(table, strides, i, static_cast<std::uint32_t>(node->instantiated_state));
  }
  if (strides != nullptr)
    for (Node *node : table->nodes) node->mark = 0;
}

} // namespace orvel::engine
