// The moments of CG tables, the CG parameters of continuous chance nodes and
// the caller's delete of a table.
#include "table/table_access.h"

#include "api/error.h"
#include "api/memory.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {
namespace {

// A CG entry of a configuration; a table without data reads as fresh.
double cg_entry(const Table *table, std::int64_t configuration, std::uint32_t offset) noexcept {
  if (!table->cg_data) return 0.0;
  return table->cg_data[static_cast<std::size_t>(configuration) * table->cg_stride + offset];
}

bool is_cg_chance_node(const Node *node) noexcept {
  return node != nullptr && node->category == ov_category_chance && !node->is_discrete() && node->master == nullptr;
}

// The number of configurations of a continuous chance node's table, which
// are those of its discrete parents, whether or not the table exists yet.
Size cg_configuration_count(const Node *node) noexcept {
  Size count = 1;
  for (const Node *parent : node->parents)
    if (parent->is_discrete()) count = size_multiply(count, parent->state_count);
  return count;
}

// The offset of the coefficient on a continuous parent, or -1 if the table
// does not hold the parent where it must (the table no longer matches the
// parent list: an internal fault). Such a parent stands in the node's table
// behind the node, at a continuous place from 1 up.
std::int64_t beta_offset(const Table *table, const Node *parent) noexcept {
  std::int64_t place = table_continuous_index(table, parent);
  return place < 1 ? -1 : cg_entry_offset(static_cast<std::uint32_t>(place), 0);
}

} // namespace

bool valid_configuration(const Table *table, std::int64_t configuration) noexcept {
  return configuration >= 0 && static_cast<std::uint64_t>(configuration) < table->size;
}

std::int64_t moment_index(const Table *table, const Node *node) noexcept {
  if (node == nullptr) return -1;
  for (std::uint32_t i = 0; i < table->continuous_count; ++i)
    if (table->cg_roles[i] == cg_tail) return -1;
  std::int64_t i = table_continuous_index(table, node);
  if (i < 0 || table->cg_roles[i] > cg_head) return -1;
  return i;
}

double table_covariance(const Table *table, std::int64_t configuration, const Node *a, const Node *b) noexcept {
  auto i = static_cast<std::uint32_t>(moment_index(table, a));
  auto j = static_cast<std::uint32_t>(moment_index(table, b));
  return cg_entry(table, configuration, cg_entry_offset(i, j));
}

double table_mean(const Table *table, std::int64_t configuration, const Node *node) noexcept {
  return cg_entry(table, configuration, cg_mean_offset(static_cast<std::uint32_t>(moment_index(table, node))));
}

ov_number_t *table_data(Table *table) noexcept {
  if (table_allocate(table) != ov_error_none) return nullptr;
  return table->data.get();
}

ov_error_t table_size_state(const Table *table) noexcept {
  return table->size == size_overflow ? ov_error_size_too_large : ov_error_none;
}

void table_delete_by_caller(Table *table) noexcept {
  if (table->serial == 0) {
    table_delete(table);
    return;
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
}

bool valid_cg_call(const Node *node, std::int64_t configuration) noexcept {
  return is_cg_chance_node(node) && configuration >= 0 &&
         static_cast<std::uint64_t>(configuration) < cg_configuration_count(node);
}

bool is_cg_parent(const Node *node, const Node *parent) noexcept {
  return parent != nullptr && !parent->is_discrete() && node->parents.contains(parent);
}

ov_status_t node_set_cg_parameter(Node *node, std::int64_t configuration, Node *parent, std::uint32_t offset,
                                  double value) {
  Table *table = node_table(node);
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

double node_get_cg_parameter(const Node *node, std::int64_t configuration, const Node *parent,
                             std::uint32_t offset) noexcept {
  const Table *table = node->table;
  if (table == nullptr) return 0.0;
  if (parent != nullptr) {
    std::int64_t at = beta_offset(table, parent);
    if (at < 0) return set_error(ov_error_error), -1.0;
    offset = static_cast<std::uint32_t>(at);
  }
  return cg_entry(table, configuration, offset);
}

} // namespace orvel
