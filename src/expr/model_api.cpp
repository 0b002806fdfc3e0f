// Exported calls on models.
#include "api/boundary.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_model_t ov_node_new_model(ov_node_t node, ov_node_t *model_nodes) {
  if (check_usage(node == nullptr || !node_may_have_model(node) || !valid_model_nodes(node, model_nodes)))
    return nullptr;
  return guarded<ov_model_t>(nullptr, [&] { return model_create(node, model_nodes); });
}

ov_model_t ov_node_get_model(ov_node_t node) {
  if (check_usage(node == nullptr || !node_may_have_model(node))) return nullptr;
  return node->model.get();
}

ov_status_t ov_model_delete(ov_model_t model) {
  if (check_usage(model == nullptr)) return ov_error_usage;
  model_delete(model);
  return ov_error_none;
}

ov_node_t *ov_model_get_nodes(ov_model_t model) {
  if (check_usage(model == nullptr)) return nullptr;
  return model->nodes.data();
}

ov_count_t ov_model_get_size(ov_model_t model) {
  if (check_usage(model == nullptr)) return -1;
  return model_size(model);
}

ov_status_t ov_model_set_expression(ov_model_t model, ov_index_t index, ov_expression_t expression) {
  if (check_usage(model == nullptr)) return ov_error_usage;
  return model_set_expression(model, index, expression);
}

ov_expression_t ov_model_get_expression(ov_model_t model, ov_index_t index) {
  if (check_usage(model == nullptr)) return nullptr;
  return model_get_expression(model, index);
}

ov_status_t ov_model_set_number_of_samples_per_interval(ov_model_t model, uint32_t count) {
  if (check_usage(model == nullptr || count == 0)) return ov_error_usage;
  model_set_samples_per_interval(model, count);
  return ov_error_none;
}

ov_count_t ov_model_get_number_of_samples_per_interval(ov_model_t model) {
  if (check_usage(model == nullptr)) return -1;
  return model->samples_per_interval;
}

ov_status_t ov_model_set_user_data(ov_model_t model, void *data) {
  if (check_usage(model == nullptr)) return ov_error_usage;
  model->user_data = data;
  return ov_error_none;
}

void *ov_model_get_user_data(ov_model_t model) {
  if (check_usage(model == nullptr)) return nullptr;
  return model->user_data;
}

} // extern "C"
