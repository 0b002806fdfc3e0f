// Exported calls on tables and on the CG parameters of nodes.
#include <cmath>

#include "api/boundary.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

using namespace orvel;

namespace orvel {
ov_status_t table_reorder_nodes(Table *table, const NodeList &order);
}

namespace {

bool valid_configuration(const ov_table_s *table, ov_index_t configuration) noexcept {
  return configuration >= 0 && static_cast<std::uint64_t>(configuration) < table->size;
}

// The place of a node among the continuous nodes of a table with no
// conditioning variables, or -1 when the moments cannot be read.
std::int64_t moment_index(const ov_table_s *table, const ov_node_s *node) noexcept {
  if (node == nullptr) return -1;
  for (std::uint32_t i = 0; i < table->continuous_count; ++i)
    if (table->cg_roles[i] == cg_tail) return -1;
  std::int64_t i = table_continuous_index(table, node);
  if (i < 0 || table->cg_roles[i] > cg_head) return -1;
  return i;
}

ov_double_t cg_entry(ov_table_s *table, ov_index_t configuration, std::uint32_t offset) {
  if (table_allocate(table) != ov_error_none) return -1.0;
  return table->cg_data[static_cast<std::size_t>(configuration) * table->cg_stride + offset];
}

// The CG table of a continuous chance node, with the configuration checked.
ov_table_s *cg_node_table(ov_node_s *node, ov_index_t configuration) {
  if (node == nullptr || node->category != ov_category_chance || node->is_discrete() || node->master != nullptr)
    return nullptr;
  ov_table_s *table = node_table(node);
  if (table == nullptr || !valid_configuration(table, configuration)) return nullptr;
  if (table_allocate(table) != ov_error_none) return nullptr;
  return table;
}

// Offset of the intercept, variance or coefficient of a node's own row.
constexpr std::uint32_t alpha_offset = 0, gamma_offset = 1;

ov_status_t set_cg_parameter(ov_node_s *node, ov_index_t configuration, std::int64_t offset_or_parent,
                             ov_node_s *parent, double value) {
  ov_table_s *table = cg_node_table(node, configuration);
  ov_status_t code = ov_error_code();
  if (table == nullptr) return code != ov_error_none ? code : fail(ov_error_usage);
  std::uint32_t offset;
  if (parent != nullptr) {
    std::int64_t place = table_continuous_index(table, parent);
    if (place < 1) return fail(ov_error_usage);
    offset = cg_entry_offset(static_cast<std::uint32_t>(place), 0);
  } else {
    offset = static_cast<std::uint32_t>(offset_or_parent);
  }
  table->cg_data[static_cast<std::size_t>(configuration) * table->cg_stride + offset] = value;
  touch_table(node);
  return set_error(ov_error_none);
}

ov_double_t get_cg_parameter(ov_node_s *node, ov_index_t configuration, std::uint32_t offset, ov_node_s *parent) {
  ov_table_s *table = cg_node_table(node, configuration);
  if (table == nullptr) {
    if (ov_error_code() == ov_error_none) set_error(ov_error_usage);
    return -1.0;
  }
  if (parent != nullptr) {
    std::int64_t place = table_continuous_index(table, parent);
    if (place < 1) {
      set_error(ov_error_usage);
      return -1.0;
    }
    offset = cg_entry_offset(static_cast<std::uint32_t>(place), 0);
  }
  return table->cg_data[static_cast<std::size_t>(configuration) * table->cg_stride + offset];
}

} // namespace

extern "C" {

ov_table_t ov_node_get_table(ov_node_t node) {
  if (check_usage(node == nullptr || node->master != nullptr ||
                  !(node->category == ov_category_chance || node->category == ov_category_utility)))
    return nullptr;
  return guarded<ov_table_t>(nullptr, [&] { return node_table(node); });
}

ov_number_t *ov_table_get_data(ov_table_t table) {
  if (check_usage(table == nullptr)) return nullptr;
  if (table_allocate(table) != ov_error_none) return nullptr;
  return table->data.get();
}

ov_node_t *ov_table_get_nodes(ov_table_t table) {
  if (check_usage(table == nullptr)) return nullptr;
  return table->nodes.data();
}

ov_count_t ov_table_get_size(ov_table_t table) {
  if (check_usage(table == nullptr)) return -1;
  if (table->size == size_overflow) {
    set_error(ov_error_size_too_large);
    return -1;
  }
  return table->size;
}

ov_double_t ov_table_get_mean(ov_table_t table, ov_index_t configuration, ov_node_t node) {
  if (check_usage(table == nullptr || !valid_configuration(table, configuration))) return -1.0;
  std::int64_t i = moment_index(table, node);
  if (i < 0) return set_error(ov_error_usage), -1.0;
  return guarded<ov_double_t>(-1.0, [&] { return cg_entry(table, configuration, cg_mean_offset(i)); });
}

ov_double_t ov_table_get_covariance(ov_table_t table, ov_index_t configuration, ov_node_t node1,
                                    ov_node_t node2) {
  if (check_usage(table == nullptr || !valid_configuration(table, configuration))) return -1.0;
  std::int64_t i = moment_index(table, node1), j = moment_index(table, node2);
  if (i < 0 || j < 0) return set_error(ov_error_usage), -1.0;
  return guarded<ov_double_t>(-1.0, [&] {
    return cg_entry(table, configuration,
                    cg_entry_offset(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j)));
  });
}

ov_double_t ov_table_get_variance(ov_table_t table, ov_index_t configuration, ov_node_t node) {
  return ov_table_get_covariance(table, configuration, node, node);
}

ov_status_t ov_table_reorder_nodes(ov_table_t table, ov_node_t *order) {
  if (check_usage(table == nullptr || order == nullptr || (table->serial != 0 && table->role != role_plain)))
    return ov_error_usage;
  return guarded_status([&] { return table_reorder_nodes(table, NodeList(order)); });
}

ov_status_t ov_table_delete(ov_table_t table) {
  if (check_usage(table == nullptr)) return ov_error_usage;
  if (table->serial == 0) {
    table_delete(table);
    return ov_error_none;
  }
  if (table->value_kind == ov_table_kind_experience || table->value_kind == ov_table_kind_fading) {
    if (table->owner != nullptr) {
      if (table->value_kind == ov_table_kind_experience)
        table->owner->experience_table = nullptr;
      else
        table->owner->fading_table = nullptr;
    }
    table_delete(table);
  }
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
  if (check_usage(node == nullptr)) return ov_error_usage;
  return guarded_status([&] { return set_cg_parameter(node, configuration, alpha_offset, nullptr, alpha); });
}

ov_double_t ov_node_get_alpha(ov_node_t node, ov_index_t configuration) {
  if (check_usage(node == nullptr)) return -1.0;
  return guarded<ov_double_t>(-1.0, [&] { return get_cg_parameter(node, configuration, alpha_offset, nullptr); });
}

ov_status_t ov_node_set_gamma(ov_node_t node, ov_double_t gamma, ov_index_t configuration) {
  if (check_usage(node == nullptr || !(gamma >= 0.0))) return ov_error_usage;
  return guarded_status([&] { return set_cg_parameter(node, configuration, gamma_offset, nullptr, gamma); });
}

ov_double_t ov_node_get_gamma(ov_node_t node, ov_index_t configuration) {
  if (check_usage(node == nullptr)) return -1.0;
  return guarded<ov_double_t>(-1.0, [&] { return get_cg_parameter(node, configuration, gamma_offset, nullptr); });
}

ov_status_t ov_node_set_beta(ov_node_t node, ov_double_t beta, ov_node_t parent, ov_index_t configuration) {
  if (check_usage(node == nullptr || parent == nullptr)) return ov_error_usage;
  return guarded_status([&] { return set_cg_parameter(node, configuration, 0, parent, beta); });
}

ov_double_t ov_node_get_beta(ov_node_t node, ov_node_t parent, ov_index_t configuration) {
  if (check_usage(node == nullptr || parent == nullptr)) return -1.0;
  return guarded<ov_double_t>(-1.0, [&] { return get_cg_parameter(node, configuration, 0, parent); });
}

} // extern "C"
