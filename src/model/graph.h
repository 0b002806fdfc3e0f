// Structural edits of a network. Tables follow the graph: each edit
// reshapes the tables of the nodes it touches, and leaves the domain
// uncompiled.
#pragma once

#include "model/node.h"
#include "orvel.h"

namespace orvel {

// Removes `parent` from the parents of `child`; the child's tables keep the
// slice of the parent's state 0.
ov_status_t remove_parent(Node *child, Node *parent);

// Narrows a table by a node: for a discrete node the slice of state 0 stays,
// for a continuous node its row and column of the CG data go.
ov_status_t table_remove_node(Table *table, Node *node) noexcept;

} // namespace orvel
