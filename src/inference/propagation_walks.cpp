// Walks of the junction tree: choosing the root and applying hard findings.
#include "inference/propagation_engine.h"

#include <cstdint>

#include "compile/compiled_forest.h"
#include "table/marginalize.h"

namespace orvel::engine {

// All walks run on the domain's walk stack, reserved at compile time, so
// that they neither allocate nor recurse.

namespace {

WalkStack &walk_stack(const JunctionTree *tree) noexcept { return tree->domain->forest->walk_stack; }

Clique *first_active(JunctionTree *tree) noexcept {
  Clique *found = nullptr;
  walk_tree(walk_stack(tree), tree->root, [&](WalkStep &step) {
    if (!step.clique->active) return WalkVisit::into;
    found = step.clique;
    return WalkVisit::stop;
  });
  return found;
}

// Makes active every clique on a path between two active cliques, and
// returns the active clique with the smallest table (the first met on a
// tie), or null if no clique is active. A step carries the best result of
// the subtrees below it.
Clique *spread_active(JunctionTree *tree, Clique *start) noexcept {
  Clique *result = nullptr;
  walk_tree(
      walk_stack(tree), start, [](WalkStep &) { return WalkVisit::into; },
      [&](WalkStep &step, WalkStep *parent) {
        Clique *c = step.clique;
        Clique *best = step.carried;
        Clique *mine = c;
        if (!c->active) {
          if (best == nullptr)
            mine = nullptr;
          else
            c->active = true;
        }
        if (mine != nullptr && best != nullptr && c->table->size > best->table->size) mine = best;
        if (parent == nullptr)
          result = mine;
        else if (mine != nullptr && (parent->carried == nullptr || mine->table->size < parent->carried->table->size))
          parent->carried = mine;
        return true;
      });
  return result;
}

} // namespace

Clique *select_root(JunctionTree *tree) noexcept {
  Clique *active = first_active(tree);
  return active == nullptr ? nullptr : spread_active(tree, active);
}

namespace {

// The clique nearest to `start` (by links) that holds the node; the first
// found depth first among those at the least distance.
Clique *find_nearest(JunctionTree *tree, Clique *start, const Node *node) noexcept {
  Clique *best = nullptr;
  std::size_t best_depth = SIZE_MAX;
  WalkStack &stack = walk_stack(tree);
  walk_tree(stack, start, [&](WalkStep &step) {
    const std::size_t depth = stack.size() - 1;
    if (depth >= best_depth) return WalkVisit::skip;
    if (!is_member(step.clique, node)) return WalkVisit::into;
    best = step.clique;
    best_depth = depth;
    return WalkVisit::skip;
  });
  return best;
}

// The first clique depth first from the root that holds the nodes.
Clique *find_holding(JunctionTree *tree, Node *const *nodes, std::size_t count) noexcept {
  Clique *found = nullptr;
  walk_tree(walk_stack(tree), tree->root, [&](WalkStep &step) {
    for (std::size_t i = 0; i < count; ++i)
      if (!is_member(step.clique, nodes[i])) return WalkVisit::into;
    found = step.clique;
    return WalkVisit::stop;
  });
  return found;
}

} // namespace

Clique *select_for_hard_evidence(JunctionTree *tree, const std::vector<Node *> &nodes) noexcept {
  Clique *start = first_active(tree);
  if (start == nullptr && !nodes.empty()) {
    // As many of the nodes as possible, taken from the end of the list.
    for (std::size_t count = nodes.size(); count > 0 && start == nullptr; --count)
      start = find_holding(tree, nodes.data() + (nodes.size() - count), count);
  }
  if (start == nullptr) return nullptr;
  for (Node *node : nodes)
    if (Clique *nearest = find_nearest(tree, start, node)) nearest->active = true;
  return spread_active(tree, start);
}

// Applies each marked hard finding in the first active clique, leaves
// first, that holds its node: zeroes the cells that disagree, books the
// finding's weight in the clique and clears the marks of its members.
void apply_hard_evidence(Clique *start) noexcept {
  walk_tree(
      start->domain->forest->walk_stack, start,
      [](WalkStep &step) { return step.clique->active ? WalkVisit::into : WalkVisit::skip; },
      [](WalkStep &step, WalkStep *) {
        Clique *c = step.clique;
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
        return true;
      });
}

} // namespace orvel::engine
