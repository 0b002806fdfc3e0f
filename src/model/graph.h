// Structural edits of a network. Tables follow the graph: each edit
// reshapes the tables of the nodes it touches, and leaves the domain
// uncompiled.
//
// The edits below expect checked arguments (the exported wrappers check
// them); they record their result with set_error and return it. They may
// throw std::bad_alloc only before they change anything.
#pragma once

#include <cstdint>

#include "model/node.h"
#include "orvel.h"

namespace orvel {

// Whether `other` is reachable downwards from `node` (a node reaches
// itself). Undirected links of chain components count in both directions.
// Uses the node marks and leaves them at 0.
bool is_descendant(Node *node, Node *other);

// Whether `parent` can reach `child` by a path other than their direct link.
bool reaches_by_other_path(Node *parent, Node *child);

// The argument rules of the edits, without the cycle test.
bool parent_link_allowed(const Node *child, const Node *parent) noexcept;
bool switch_allowed(const Node *child, const Node *old_parent, const Node *new_parent) noexcept;
bool reversal_allowed(const Node *a, const Node *b) noexcept;
bool states_settable(const Node *node, std::uint64_t count) noexcept;
// Two distinct nodes of one home: the pairs that can carry a constraint.
bool constraint_pair_valid(const Node *a, const Node *b) noexcept;

// Makes `parent` a parent of `child`: usage for an illegal link,
// cyclic_network for a cycle. The child's tables are widened so that they
// ignore the new parent; on a memory failure they are narrowed back.
// Without `check_cycle` the caller tests the whole graph for cycles itself
// once it is done, as unfolding does.
ov_status_t add_parent(Node *child, Node *parent, bool check_cycle = true);
// Removes `parent` from the parents of `child` (which must hold it); the
// child's tables keep the slice of the parent's state 0.
ov_status_t remove_parent(Node *child, Node *parent);
// Puts `new_parent` in the place of `old_parent` among the parents of
// `child`, keeping every table number: usage unless the two are
// interchangeable, cyclic_network for a cycle (tested only with
// `check_cycle`, as for add_parent).
ov_status_t switch_parent(Node *child, Node *old_parent, Node *new_parent, bool check_cycle = true);
// Whether two nodes can stand in for each other as parents: same category
// and kind and, for discrete nodes, the same states.
bool interchangeable(const Node *a, const Node *b) noexcept;
// Turns the link between two chance nodes around, keeping the joint
// distribution of the network.
ov_status_t reverse_edge(Node *a, Node *b);
// Changes the number of states of a discrete chance or decision node and of
// its class-output clones, resizing every table that holds them.
ov_status_t set_number_of_states(Node *node, std::uint32_t count);

// The constraint of `a` towards `b`: ov_constraint_none if there is none.
int get_edge_constraint(const Node *a, const Node *b) noexcept;
// Sets the constraint of `a` towards `b` and its mirror on `b`;
// ov_constraint_none removes both.
ov_status_t set_edge_constraint(Node *a, Node *b, int value);
// The constraint seen from the other end of a link.
int mirror_edge_constraint(int value) noexcept;

// The argument rules of the d-separation queries.
bool d_separation_arguments_valid(const Domain *domain, Node *const *source, Node *const *hard,
                                  Node *const *soft) noexcept;
// The d-separation queries: the nodes d-connected to (or d-separated from)
// the source nodes given hard and soft evidence, in the domain's
// result_nodes buffer; null on failure.
Node **d_connected_nodes(Domain *domain, Node *const *source, Node *const *hard, Node *const *soft, bool connected);

// Widens a table by a node: a discrete node becomes the first (slowest)
// dimension and every new state a copy of the old contents; a continuous
// node is appended with zero CG entries and role cg_unset. A node already in
// the table succeeds at once. On failure the table is unchanged.
ov_status_t table_add_node(Table *table, Node *node) noexcept;
// Narrows a table by a node: for a discrete node the slice of state 0
// stays, for a continuous node its row and column of the CG data go. A node
// absent from the table succeeds at once. Cannot fail otherwise.
ov_status_t table_remove_node(Table *table, Node *node) noexcept;
// Gives a discrete node `count` states in a table. Growing copies the slice
// of state 0 into each new state; shrinking keeps the first `count` states.
// A node absent from the table succeeds at once. Only growing can fail
// (no_memory), and then the table is unchanged.
ov_status_t table_resize_node(Table *table, Node *node, std::uint32_t count) noexcept;
// Normalises each run of the last discrete node to sum 1. A table with
// continuous nodes has its weights set to 1.0. negative_probability for a
// negative cell; an all-zero run is zero_sum with `strict`, else uniform.
ov_status_t table_normalize_conditional(Table *table, bool strict) noexcept;

} // namespace orvel
