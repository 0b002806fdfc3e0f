// Depth-first walks of a junction tree with an explicit stack, so that the
// depth of a tree (a chain of cliques can be as long as the network) never
// touches the thread's stack. Neighbours are visited in the order of their
// links, as a recursion over links with the parent passed down would visit
// them.
#pragma once

#include <cstdint>
#include <vector>

#include "compile/clique.h"

namespace orvel {

// One clique on the path from the start of a walk.
struct WalkStep {
  Clique *clique = nullptr;
  Clique *parent = nullptr;   // the clique it was reached from; null at the start
  CliqueLink *down = nullptr; // the parent's link to it; null at the start
  std::uint32_t next = 0;     // the next of its links to follow
  Clique *carried = nullptr;  // a result that the walk carries up from below
};
using WalkStack = std::vector<WalkStep>;

// What a walk does after entering a clique.
enum class WalkVisit { into, skip, stop };

// Walks from `start` over the links, away from `from` (null to walk the
// whole tree). `enter(WalkStep &)` is called before the clique's subtree:
// `into` walks it, `skip` leaves it out (and leave is not called), `stop`
// ends the walk. `leave(WalkStep &, WalkStep *parent)` is called after the
// subtree, with the parent's step (null at the start); false ends the walk.
// Returns false when the walk was ended early. The stack is the caller's
// scratch: it allocates only beyond its capacity, and its depth is at most
// the number of cliques of the tree.
template <class Enter, class Leave>
bool walk_subtree(WalkStack &stack, Clique *start, Clique *from, Enter &&enter, Leave &&leave) {
  stack.clear();
  auto push = [&](Clique *clique, Clique *parent, CliqueLink *down) {
    stack.push_back(WalkStep{clique, parent, down, 0, nullptr});
    const WalkVisit visit = enter(stack.back());
    if (visit == WalkVisit::skip) stack.pop_back();
    return visit != WalkVisit::stop;
  };
  if (!push(start, from, nullptr)) return false;
  while (!stack.empty()) {
    WalkStep &step = stack.back();
    std::vector<CliqueLink> &links = step.clique->links;
    while (step.next < links.size() && links[step.next].neighbour == step.parent) ++step.next;
    if (step.next < links.size()) {
      CliqueLink &link = links[step.next++];
      Clique *clique = step.clique;
      if (!push(link.neighbour, clique, &link)) return false;
      continue;
    }
    if (!leave(step, stack.size() > 1 ? &stack[stack.size() - 2] : nullptr)) return false;
    stack.pop_back();
  }
  return true;
}

template <class Enter, class Leave> bool walk_tree(WalkStack &stack, Clique *start, Enter &&enter, Leave &&leave) {
  return walk_subtree(stack, start, nullptr, enter, leave);
}

// A walk that only enters.
template <class Enter> bool walk_tree(WalkStack &stack, Clique *start, Enter &&enter) {
  return walk_tree(stack, start, enter, [](WalkStep &, WalkStep *) { return true; });
}

} // namespace orvel
