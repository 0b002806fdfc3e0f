// Models: expressions that generate a node's table.
#pragma once

#include "model/forward.h"
#include "orvel.h"

struct ov_model_s {
  ov_node_s *node = nullptr; // the node whose table the model generates
  // Set when the generated table no longer matches the node's states or
  // expressions and must be generated again.
  bool table_stale = true;
};

namespace orvel {

// Notifications from graph editing. Each is called after the graph and the
// tables have changed, and the caller does not touch the model afterwards,
// so a hook may drop the model (through model->node->model) if nothing of
// it remains valid.

// `parent` is no longer a parent of the model's node.
void model_on_parent_removed(ov_model_s *model, Node *parent);
// `new_parent` has taken the place of `old_parent`, with the same states.
void model_on_parent_switched(ov_model_s *model, Node *old_parent, Node *new_parent);
// `node` (the model's node or one of its parents) has a new number of
// states.
void model_on_state_count_changed(ov_model_s *model, Node *node);
// A link of the model's node has been reversed; the caller deletes the
// model right after this call.
void model_on_edge_reversed(ov_model_s *model);

} // namespace orvel
