// Exported calls on tables and on the CG parameters of nodes.
#include <cmath>

#include "api/boundary.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

using namespace orvel;

namespace {

bool valid_configuration(const ov_table_s *table, ov_index_t configuration) noexcept {
  return configuration >= 0 && static_cast<std::uint64_t>(configuration) < table->size;
}

// The place of a node among the continuous nodes of a table with no
// conditioning variables, or -1 when its moments cannot be read.
std::int64_t moment_index(const ov_table_s *table, const ov_node_s *node) noexcept {
  if (node == nullptr) return -1;
  for (std::uint32_t i = 0; i < table->continuous_count; ++i)
    if (table->cg_roles[i] == cg_tail) return -1;
  std::int64_t i = table_continuous_index(table, node);
  if (i < 0 || table->cg_roles[i] > cg_head) return -1;
  return i;
}

// A CG entry of a configuration; a table without data reads as fresh.
ov_double_t cg_entry(const ov_table_s *table, ov_index_t configuration, std::uint32_t offset) noexcept {
  if (!table->cg_data) return 0.0;
  return table->cg_data[static_cast<std::size_t>(configuration) * table->cg_stride + offset];
}

bool is_cg_chance_node(const ov_node_s *node) noexcept {
  return node != nullptr && node->category == ov_category_chance && !node->is_discrete() && node->master == nullptr;
}

// The number of configurations of a continuous chance node's table, which
// are those of its discrete parents, whether or not the table exists yet.
Size cg_configuration_count(const ov_node_s *node) noexcept {
  Size count = 1;
  for (const ov_node_s *parent : node->parents)
    if (parent->is_discrete()) count = size_multiply(count, parent->state_count);
  return count;
}

// Whether the CG parameters of `node` in `configuration` can be addressed.
bool valid_cg_call(const ov_node_s *node, ov_index_t configuration) noexcept {
  return is_cg_chance_node(node) && configuration >= 0 &&
         static_cast<std::uint64_t>(configuration) < cg_configuration_count(node);
}

// Whether `parent` is a continuous parent of `node`: such a parent stands in
// the node's table behind the node, at a continuous place from 1 up.
bool is_cg_parent(const ov_node_s *node, const ov_node_s *parent) noexcept {
  return parent != nullptr && !parent->is_discrete() && node->parents.contains(parent);
}

// Offsets of the intercept and the conditional variance in a configuration
// of a continuous node's table; a coefficient sits where the covariance of
// the node with that parent would.
constexpr std::uint32_t alpha_offset = 0, gamma_offset = 1;

// The offset of the coefficient on a continuous parent, or -1 if the table
// does not hold the parent where it must (the table no longer matches the
// parent list: an internal fault).
std::int64_t beta_offset(const ov_table_s *table, const ov_node_s *parent) noexcept {
  std::int64_t place = table_continuous_index(table, parent);
  return place < 1 ? -1 : cg_entry_offset(static_cast<std::uint32_t>(place), 0);
}

// Stores a parameter of a checked call, building and allocating the table at
// first need.
ov_status_t set_cg_parameter(ov_node_s *node, ov_index_t configuration, ov_node_s *parent, std::uint32_t offset,
                             double value) {
  ov_table_s *table = node_table(node);
  if (table == nullptr || table_allocate(table) != ov_error_none) return ov_error_code();
  if (parent != nullptr) {
    std::int64_t at = beta_offset(table, parent);
    if (at < 0) return fail(ov_error_error);
    offset = static_cast<std::uint32_t>(at);
  }
  table->cg_data[static_cast<std::size_t>(configuration) * table->cg_stride + offset] = value;
  touch_table(node);
  return set_error(ov_error_none);
}

// Reads a parameter of a checked call; a table not yet built or allocated
// holds the fresh value 0.
ov_double_t get_cg_parameter(const ov_node_s *node, ov_index_t configuration, const ov_node_s *parent,
                             std::uint32_t offset) noexcept {
  const ov_table_s *table = node->table;
  if (table == nullptr) return 0.0;
  if (parent != nullptr) {
    std::int64_t at = beta_offset(table, parent);
    if (at < 0) return set_error(ov_error_error), -1.0;
    offset = static_cast<std::uint32_t>(at);
  }
  return cg_entry(table, configuration, offset);
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
  if (check_usage(table == nullptr || !valid_configuration(table, configuration) || moment_index(table, node) < 0))
    return -1.0;
  return cg_entry(table, configuration, cg_mean_offset(static_cast<std::uint32_t>(moment_index(table, node))));
}

ov_double_t ov_table_get_covariance(ov_table_t table, ov_index_t configuration, ov_node_t node1, ov_node_t node2) {
  if (check_usage(table == nullptr || !valid_configuration(table, configuration) || moment_index(table, node1) < 0 ||
                  moment_index(table, node2) < 0))
    return -1.0;
  auto i = static_cast<std::uint32_t>(moment_index(table, node1));
  auto j = static_cast<std::uint32_t>(moment_index(table, node2));
  return cg_entry(table, configuration, cg_entry_offset(i, j));
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
  if (check_usage(!valid_cg_call(node, configuration))) return ov_error_usage;
  return guarded_status([&] { return set_cg_parameter(node, configuration, nullptr, alpha_offset, alpha); });
}

ov_double_t ov_node_get_alpha(ov_node_t node, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration))) return -1.0;
  return get_cg_parameter(node, configuration, nullptr, alpha_offset);
}

ov_status_t ov_node_set_gamma(ov_node_t node, ov_double_t gamma, ov_index_t configuration) {
  // A variance is not negative (and not NaN).
  if (check_usage(!valid_cg_call(node, configuration) || !(gamma >= 0.0))) return ov_error_usage;
  return guarded_status([&] { return set_cg_parameter(node, configuration, nullptr, gamma_offset, gamma); });
}

ov_double_t ov_node_get_gamma(ov_node_t node, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration))) return -1.0;
  return get_cg_parameter(node, configuration, nullptr, gamma_offset);
}

ov_status_t ov_node_set_beta(ov_node_t node, ov_double_t beta, ov_node_t parent, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration) || !is_cg_parent(node, parent))) return ov_error_usage;
  return guarded_status([&] { return set_cg_parameter(node, configuration, parent, 0, beta); });
}

ov_double_t ov_node_get_beta(ov_node_t node, ov_node_t parent, ov_index_t configuration) {
  if (check_usage(!valid_cg_call(node, configuration) || !is_cg_parent(node, parent))) return -1.0;
  return get_cg_parameter(node, configuration, parent, 0);
}

} // extern "C"
