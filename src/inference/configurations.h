// What the solvers that keep their own potentials (influence diagrams,
// mixed networks) share: configurations of lists of discrete nodes, the last
// node of a list varying fastest, and the search for a node list's clique.
#pragma once

#include <cstddef>
#include <vector>

#include "model/forward.h"

namespace orvel {

// The number of configurations of the nodes.
std::size_t configurations(const std::vector<Node *> &nodes) noexcept;

// For each configuration of `big`, the index of its restriction to `small`,
// whose nodes all lie in `big`.
std::vector<std::size_t> restriction(const std::vector<Node *> &big, const std::vector<Node *> &small);

// The first clique of the tree below `clique` (coming from `parent`, null
// at the root) that holds all the nodes, or null.
Clique *home_of(Clique *clique, const Clique *parent, const std::vector<Node *> &nodes);

} // namespace orvel
