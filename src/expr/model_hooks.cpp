// How a model follows the edits of its node's graph. The model does not yet
// hold expressions, so each edit only means that the generated table must
// be made again.
#include "expr/model.h"

namespace orvel {

void model_on_parent_removed(ov_model_s *model, Node *parent) {
  (void)parent;
  model->table_stale = true;
}

void model_on_parent_switched(ov_model_s *model, Node *old_parent, Node *new_parent) {
  (void)old_parent;
  (void)new_parent;
  model->table_stale = true;
}

void model_on_state_count_changed(ov_model_s *model, Node *node) {
  (void)node;
  model->table_stale = true;
}

void model_on_edge_reversed(ov_model_s *model) { model->table_stale = true; }

} // namespace orvel
