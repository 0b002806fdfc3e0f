// Models: the record, the lazy slot array, stored expressions, staleness,
// copying and what graph edits do to a model.
#include "expr/model.h"

#include <new>

#include "api/error.h"
#include "compile/junction_tree.h"
#include "expr/expression.h"
#include "model/domain.h"

ov_model_s::~ov_model_s() {
  if (!expressions) return;
  for (orvel::Size i = 0; i < size; ++i) orvel::expression_unref(expressions[i]);
}

namespace orvel {

void ModelDeleter::operator()(ov_model_s *model) const noexcept { delete model; }

namespace {

// Releases every stored expression and drops the array, so that the next
// need makes it anew with the current size.
void drop_array(Model *model) noexcept {
  if (!model->expressions) return;
  for (Size i = 0; i < model->size; ++i) {
    Expression *expression = model->expressions[i];
    model->expressions[i] = nullptr;
    expression_unref(expression);
  }
  model->expressions.reset();
  model->size = 0;
}

} // namespace

bool node_may_have_model(const Node *node) noexcept {
  return node->master == nullptr && node->kind == ov_kind_discrete &&
         (node->category == ov_category_chance || node->category == ov_category_utility);
}

Model *model_create(Node *node, Node *const *model_nodes) {
  ModelPtr model(new Model);
  model->nodes = NodeList(model_nodes);
  model->node = node;
  Model *made = model.get();
  // The old model, if any, goes only now that the new one exists.
  node->model = std::move(model);
  model_mark_stale(made);
  set_error(ov_error_none);
  return made;
}

void model_delete(Model *model) noexcept {
  Node *owner = model->node;
  if (owner != nullptr && owner->model.get() == model)
    owner->model.reset();
  else
    ModelDeleter{}(model);
}

ov_status_t model_make_array(Model *model) noexcept {
  if (model->expressions) return ov_error_none;
  Size size = 1;
  for (Node *node : model->nodes) size = size == 0 ? 0 : size_multiply(size, node->state_count);
  model->size = size;
  Buffer<Expression *> array = alloc_array<Expression *>(size);
  if (!array) return ov_error_code();
  for (Size i = 0; i < size; ++i) array[i] = nullptr;
  model->expressions = std::move(array);
  return ov_error_none;
}

ov_status_t model_set_expression(Model *model, std::int64_t index, Expression *expression) noexcept {
  ov_status_t status = model_make_array(model);
  if (status != ov_error_none) return status;
  if (index < 0 || static_cast<std::uint64_t>(index) >= model->size) return fail(ov_error_usage);
  if (expression != nullptr) {
    bool within;
    try {
      within = expression_nodes_within(expression, model->node->parents);
    } catch (const std::bad_alloc &) {
      return fail(ov_error_no_memory);
    }
    if (!within) return fail(ov_error_invalid_expression);
    int type = expression->value_type;
    if (model->node->category == ov_category_utility &&
        (type == ov_value_boolean || type == ov_value_label || type == ov_value_distribution))
      return fail(ov_error_invalid_expression);
    // Taken before the old one goes, in case they are the same.
    ++expression->references;
  }
  Expression *&slot = model->expressions[static_cast<Size>(index)];
  Expression *old = slot;
  slot = expression;
  expression_unref(old);
  model_mark_stale(model);
  return set_error(ov_error_none);
}

void model_mark_stale(Model *model) noexcept {
  model->table_is_stale = 1;
  if (model->node != nullptr) touch_table(model->node);
}

void model_replace_node(Model *model, const Node *from, Node *to) {
  std::int64_t position = model->nodes.index_of(from);
  if (position >= 0) model->nodes[static_cast<std::uint32_t>(position)] = to;
  if (!model->expressions) return;
  for (Size i = 0; i < model->size; ++i)
    if (model->expressions[i] != nullptr) expression_replace_node(model->expressions[i], from, to);
}

ModelPtr model_copy(const Model *source, Node *new_owner) noexcept {
  ModelPtr copy;
  try {
    copy.reset(new Model);
    copy->nodes = source->nodes;
  } catch (const std::bad_alloc &) {
    set_error(ov_error_no_memory);
    return nullptr;
  }
  copy->size = source->size;
  copy->table_is_stale = source->table_is_stale;
  copy->samples_per_interval = source->samples_per_interval;
  copy->node = new_owner;
  if (source->expressions) {
    Buffer<Expression *> array = alloc_array<Expression *>(source->size);
    if (!array) return nullptr;
    for (Size i = 0; i < source->size; ++i) array[i] = nullptr;
    copy->expressions = std::move(array);
    // A failed clone leaves the copy to its destructor, which releases the
    // clones made so far.
    for (Size i = 0; i < source->size; ++i) {
      if (source->expressions[i] == nullptr) continue;
      Expression *clone = expression_clone(source->expressions[i]);
      if (clone == nullptr) return nullptr;
      clone->references = 1;
      copy->expressions[i] = clone;
    }
  }
  try {
    model_replace_node(copy.get(), source->node, new_owner);
  } catch (const std::bad_alloc &) {
    set_error(ov_error_no_memory);
    return nullptr;
  }
  set_error(ov_error_none);
  return copy;
}

// ---------------------------------------------------------------- graph edits

void model_on_parent_removed(ov_model_s *model, Node *parent) {
  if (model == nullptr) return;
  if (model->nodes.contains(parent)) {
    model_delete(model);
    return;
  }
  if (!model->expressions) return;
  for (Size i = 0; i < model->size; ++i) {
    Expression *expression = model->expressions[i];
    if (expression == nullptr || !expression_mentions(expression, parent)) continue;
    model->expressions[i] = nullptr;
    expression_unref(expression);
    model_mark_stale(model);
  }
}

void model_on_parent_switched(ov_model_s *model, Node *old_parent, Node *new_parent) {
  if (model == nullptr) return;
  model_replace_node(model, old_parent, new_parent);
}

void model_on_state_count_changed(ov_model_s *model, Node *node) {
  if (model == nullptr) return;
  if (model->nodes.contains(node)) drop_array(model);
  model_mark_stale(model);
}

void model_on_edge_reversed(ov_model_s *model) {
  if (model == nullptr) return;
  model_delete(model);
}

bool valid_model_nodes(const Node *node, Node *const *model_nodes) noexcept {
  if (!node_list_is_set_of(model_nodes, node->home)) return false;
  for (Node *const *entry = model_nodes; entry != nullptr && *entry != nullptr; ++entry)
    if (!node->parents.contains(*entry)) return false;
  return true;
}

std::int64_t model_size(Model *model) noexcept {
  if (model_make_array(model) != ov_error_none) {
    // A product of state counts that does not fit is reported as such.
    if (model->size == size_overflow) set_error(ov_error_size_too_large);
    return -1;
  }
  return model->size;
}

Expression *model_get_expression(Model *model, std::int64_t index) noexcept {
  if (model_make_array(model) != ov_error_none) return nullptr;
  if (index < 0 || static_cast<std::uint64_t>(index) >= model->size) {
    set_error(ov_error_usage);
    return nullptr;
  }
  return model->expressions[static_cast<Size>(index)];
}

void model_set_samples_per_interval(Model *model, std::uint32_t count) noexcept {
  model->samples_per_interval = count;
  model_mark_stale(model);
}

} // namespace orvel
