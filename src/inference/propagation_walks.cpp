// Walks of the junction tree: choosing the root and applying hard findings.
#include "inference/propagation_engine.h"

#include <algorithm>
#include <cstdint>

#include "compile/compiled_forest.h"
#include "table/marginalize.h"

namespace orvel::engine {

// All walks run on the domain's walk stack, reserved at compile time, so
// that they neither allocate nor recurse.

namespace {

WalkStack &walk_stack(const JunctionTree *tree) noexcept { return tree->domain->forest->walk_stack; }

Clique *first_active(JunctionTree *tree) noexcept {
  // Most often none is: a look down the list spares the walk.
  if (std::none_of(tree->cliques.begin(), tree->cliques.end(), [](const Clique *c) { return c->active; }))
    return nullptr;
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

// The first clique depth first from the root that holds the longest tail of
// `nodes`: all of them if one clique holds them, else all but the first, and
// so on; null if no clique holds the last.
Clique *find_holding(JunctionTree *tree, const std::vector<Node *> &nodes) noexcept {
  Clique *found = nullptr;
  std::size_t found_count = 0;
  walk_tree(walk_stack(tree), tree->root, [&](WalkStep &step) {
    std::size_t count = 0;
    while (count < nodes.size() && is_member(step.clique, nodes[nodes.size() - 1 - count])) ++count;
    if (count > found_count) {
      found = step.clique;
      found_count = count;
    }
    return found_count == nodes.size() ? WalkVisit::stop : WalkVisit::into;
  });
  return found;
}

// Activates, for each marked node, the clique nearest to `start` (by links)
// that holds it. The cliques holding a node are connected, so the first of
// them met depth first from `start` is the nearest: one walk serves every
// node. A node found is marked 2 until the walk ends.
void activate_nearest(JunctionTree *tree, Clique *start, const std::vector<Node *> &nodes) noexcept {
  std::size_t left = nodes.size();
  walk_tree(walk_stack(tree), start, [&](WalkStep &step) {
    Clique *c = step.clique;
    for (Node *node : c->table->nodes)
      if (node->mark == 1) {
        node->mark = 2;
        c->active = true;
        --left;
      }
    return left == 0 ? WalkVisit::stop : WalkVisit::into;
  });
  for (Node *node : nodes) node->mark = 1;
}

} // namespace

Clique *select_for_hard_evidence(JunctionTree *tree, const std::vector<Node *> &nodes) noexcept {
  Clique *start = first_active(tree);
  if (start == nullptr && !nodes.empty()) start = find_holding(tree, nodes);
  if (start == nullptr) return nullptr;
  if (!nodes.empty()) activate_nearest(tree, start, nodes);
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
