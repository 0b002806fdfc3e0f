// Models: the compact description from which the table of a discrete chance
// node or of a utility node is generated. A model picks some of the node's
// parents, the model nodes, and keeps one expression for each configuration
// of their states. A node holds at most one model (Node::model owns it), and
// the model points back at the node.
#pragma once

#include <cstdint>

#include "api/memory.h"
#include "model/forward.h"
#include "model/node.h"
#include "model/node_list.h"
#include "orvel.h"

struct ov_model_s {
  // The model nodes, a private copy in the caller's order. Slot order: the
  // first model node varies slowest, the last fastest.
  orvel::NodeList nodes;
  // One expression per configuration of the model nodes, each holding a
  // reference; null until first needed (then zero-filled). A null slot has
  // no expression yet.
  orvel::Buffer<ov_expression_s *> expressions;
  // The number of slots; valid only while `expressions` is non-null.
  orvel::Size size = 0;
  ov_node_s *node = nullptr; // the node whose table the model generates (not owned)
  void *user_data = nullptr; // the caller's word, never interpreted
  // Set when the node's table no longer reflects the model; only a
  // successful table generation clears it.
  int table_is_stale = 1;
  // Samples taken across each bounded interval parent.
  std::uint32_t samples_per_interval = 25;

  ov_model_s() = default;
  ov_model_s(const ov_model_s &) = delete;
  ov_model_s &operator=(const ov_model_s &) = delete;
  // Releases the expressions of every slot.
  ~ov_model_s();
};

namespace orvel {

// Whether a node may have a model: a discrete chance or utility node that is
// not an output clone of a class instance.
bool node_may_have_model(const Node *node) noexcept;

// Gives `node` a new model over `model_nodes` (a null list is empty), after
// deleting any model it had, and marks it stale. The caller has checked the
// node and the list. Null with no_memory on failure; the node keeps its old
// model then.
Model *model_create(Node *node, Node *const *model_nodes);

// Deletes the model of its node: releases its expressions, clears the
// node's link. Nothing is marked.
void model_delete(Model *model) noexcept;

// Makes the expression array if it does not exist: `size` is the product of
// the model nodes' state counts (saturating), and a saturated size fails as
// no_memory. Returns the status.
ov_status_t model_make_array(Model *model) noexcept;

// Stores an expression (or clears the slot with null) after checking it,
// then marks the model stale. Errors: no_memory (array), usage (index),
// invalid_expression (a node that is not a parent of the owner; a boolean,
// label or distribution for a utility node). A rejected expression keeps
// its references.
ov_status_t model_set_expression(Model *model, std::int64_t index, Expression *expression) noexcept;

// Marks the model stale and its node's table as changed (the table mark).
void model_mark_stale(Model *model) noexcept;

// Generates the tables of the tree's nodes whose models are stale, in the
// domain's node order, before an initialisation reads them; stops at the
// first failure. Defined with table generation.
ov_status_t generate_tables_of_junction_tree(const JunctionTree *tree) noexcept;

// Whether a list may be the model nodes of `node`: distinct nodes of the
// node's domain, each a parent of it. A null list is empty.
bool valid_model_nodes(const Node *node, Node *const *model_nodes) noexcept;
// The number of expressions, making the array if needed; -1 on failure, with
// size_too_large for a product of state counts that does not fit.
std::int64_t model_size(Model *model) noexcept;
// The expression at `index` (null in an empty slot), making the array if
// needed; null with usage for an index out of range.
Expression *model_get_expression(Model *model, std::int64_t index) noexcept;
// Sets how many samples each interval of an interval parent gets, and
// marks the model stale.
void model_set_samples_per_interval(Model *model, std::uint32_t count) noexcept;

// Replaces `from` by `to` among the model nodes (the first occurrence) and
// in every node reference of every stored expression, in place. Marks
// nothing.
void model_replace_node(Model *model, const Node *from, Node *to);

// A copy of a model for `new_owner`, a copy of the model's node: the same
// node list, size, staleness and samples (not the user data), each stored
// expression cloned with a reference count of 1, and the old owner replaced
// by the new one. Null on failure, with nothing left behind. Does not attach
// the copy to the new owner.
ModelPtr model_copy(const Model *source, Node *new_owner) noexcept;

// What graph edits do to a model (each is a no-op for a null model). Graph
// editing calls them after the graph and the tables have changed, and does
// not touch the model afterwards, so a hook may delete the model.
//
// A parent of the model's node was removed: a model node takes the whole
// model with it (nothing is marked); otherwise each slot whose expression
// mentions the parent is cleared, marking the model stale.
void model_on_parent_removed(ov_model_s *model, Node *parent);
// A parent of the model's node was switched for an interchangeable node.
void model_on_parent_switched(ov_model_s *model, Node *old_parent, Node *new_parent);
// The state count of `node` changed, and `node` is the model's node or one
// of its parents: if `node` is a model node, the expressions go and the
// array is dropped, to be remade with the new size; the model is marked
// stale in every case.
void model_on_state_count_changed(ov_model_s *model, Node *node);
// An edge at the model's node was reversed: the model is deleted.
void model_on_edge_reversed(ov_model_s *model);

} // namespace orvel
