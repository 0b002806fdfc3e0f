// Configurations of lists of discrete nodes, for the solvers that keep
// their own potentials (influence diagrams, mixed networks): the last node
// of a list varies fastest.
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

} // namespace orvel
