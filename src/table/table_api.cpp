// Exported calls on tables and on the CG parameters of nodes.
#include "api/boundary.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"
#include "table/table_access.h"

using namespace orvel;

extern "C" {

ov_table_t ov_node_get_table(ov_node_t node) {
  if (check_usage(node == nullptr || node->master != nullptr ||
                  !(node->category == ov_category_chance || node->category == ov_category_utility)))
    return nullptr;
  return guarded<ov_table_t>(nullptr, [&] { return node_table(node); });
}

ov_number_t *ov_table_get_data(ov_table_t table) {
  if (check_usage(table == nullptr)) return nullptr;
  return table_data(table);
}

ov_node_t *ov_table_get_nodes(ov_table_t table) {
  if (check_usage(table == nullptr)) return nullptr;
  return table->nodes.data();
}

ov_count_t ov_table_get_size(ov_table_t table) {
  if (check_usage(table == nullptr)) return -1;
  if (refuse(table_size_state(table))) return -1;
  return table->size;
}

ov_double_t ov_table_get_mean(ov_table_t table, ov_index_t configuration, ov_node_t node) {
  if (check_usage(table == nullptr || !valid_configuration(table, configuration) || moment_index(table, node) < 0))
    return -1.0;
  return table_mean(table, configuration, node);
}

ov_double_t ov_table_get_covariance(ov_table_t table, ov_index_t configuration, ov_node_t node1, ov_node_t node2) {
  if (check_usage(table == nullptr || !valid_configuration(table, configuration) || moment_index(table, node1) < 0 ||
                  moment_index(table, node2) < 0))
    return -1.0;
  return table_covariance(table, configuration, node1, node2);
}

ov_double_t ov_table_get_variance(ov_table_t table, ov_index_t configuration, ov_node_t node) {
  return ov_table_get_covariance(table, configuration, node, node);
}

ov_status_t ov_table_reorder_nodes(ov_table_t table, ov_node_t *order) {
  // A table of the forest or of a query that is still the domain's cannot be
  // reordered: the kernel plans depend on its layout.
  if (check_usage(table == nullptr || order == nullptr || (table->serial != 0 && table->role != role_plain) ||
                  !table_reorder_is_valid(table, order)))
    return ov_error_usage;
  return guarded_status([&] { return table_reorder_nodes(table, NodeList(order)); });
}

ov_status_t ov_table_delete(ov_table_t table) {
  if (check_usage(table == nullptr)) return ov_error_usage;
  table_delete_by_caller(table);
  return ov_error_none;
}

ov_status_t ov_table_set_user_data(ov_table_t table, void *data) {
  if (check_usage(table == nullptr)) return ov_error_usage;
  table->user_data = data;
  return ov_error_none;
}

void *ov_table_get_user_data(ov_table_t table) {
  if (check_usage(table == nullptr)) return nullptr;
  return table->user_data;
}

ov_status_t ov_node_set_alpha(ov_node_t node, ov_double_t alpha, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration))) return ov_error_usage;
  return guarded_status([&] { return node_set_cg_parameter(node, configuration, nullptr, alpha_offset, alpha); });
}

ov_double_t ov_node_get_alpha(ov_node_t node, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration))) return -1.0;
  return node_get_cg_parameter(node, configuration, nullptr, alpha_offset);
}

ov_status_t ov_node_set_gamma(ov_node_t node, ov_double_t gamma, ov_index_t configuration) {
  // A variance is not negative (and not NaN).
  if (check_usage(!valid_cg_call(node, configuration) || !(gamma >= 0.0))) return ov_error_usage;
  return guarded_status([&] { return node_set_cg_parameter(node, configuration, nullptr, gamma_offset, gamma); });
}

ov_double_t ov_node_get_gamma(ov_node_t node, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration))) return -1.0;
  return node_get_cg_parameter(node, configuration, nullptr, gamma_offset);
}

ov_status_t ov_node_set_beta(ov_node_t node, ov_double_t beta, ov_node_t parent, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration) || !is_cg_parent(node, parent))) return ov_error_usage;
  return guarded_status([&] { return node_set_cg_parameter(node, configuration, parent, 0, beta); });
}

ov_double_t ov_node_get_beta(ov_node_t node, ov_node_t parent, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration) || !is_cg_parent(node, parent))) return -1.0;
  return node_get_cg_parameter(node, configuration, parent, 0);
}

} // extern "C"
