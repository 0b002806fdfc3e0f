// Moving a table's numbers into a new order of its nodes.
#include <cstring>
#include <vector>

#include "api/error.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

namespace {

// The stride of each node of `table` in its discrete index.
std::vector<Size> discrete_strides(const Table *table) {
  std::vector<Size> strides(table->discrete_count);
  Size stride = 1;
  for (std::uint32_t i = table->discrete_count; i-- > 0;) {
    strides[i] = stride;
    stride *= table->nodes[i]->state_count;
  }
  return strides;
}

} // namespace

Table *table_reorder(Table *table, const NodeList &order) {
  Table *result =
      table_new(table->domain, order.data(), table->value_kind, role_returned, false, static_cast<bool>(table->data));
  if (result == nullptr) return nullptr;
  const std::uint32_t d = table->discrete_count, c = table->continuous_count;

  // Where each continuous node of the result stands in the old table.
  std::vector<std::uint32_t> old_cg(c);
  for (std::uint32_t i = 0; i < c; ++i)
    old_cg[i] = static_cast<std::uint32_t>(table_continuous_index(table, result->nodes[d + i]));
  for (std::uint32_t i = 0; i < c; ++i) result->cg_roles[i] = table->cg_roles[old_cg[i]];
  if (!table->data) return result;

  // Walk the result's configurations in order with an odometer over its
  // discrete nodes, keeping the matching old offset by adding and
  // subtracting the old strides.
  std::vector<Size> old_strides = discrete_strides(table);
  std::vector<Size> stride_of(d), count_of(d), digit(d, 0);
  for (std::uint32_t i = 0; i < d; ++i) {
    Node *node = result->nodes[i];
    std::uint32_t j = 0;
    while (table->nodes[j] != node) ++j;
    stride_of[i] = old_strides[j];
    count_of[i] = node->state_count;
  }
  const std::uint32_t w = table->cg_stride;
  Size old_index = 0;
  for (Size cell = 0; cell < result->size; ++cell) {
    result->data[cell] = table->data[old_index];
    if (w > 0) {
      const double *from = table->cg_data.get() + static_cast<std::size_t>(old_index) * w;
      double *to = result->cg_data.get() + static_cast<std::size_t>(cell) * w;
      for (std::uint32_t i = 0; i < c; ++i) {
        to[cg_mean_offset(i)] = from[cg_mean_offset(old_cg[i])];
        for (std::uint32_t j = 0; j <= i; ++j) to[cg_entry_offset(i, j)] = from[cg_entry_offset(old_cg[i], old_cg[j])];
      }
    }
    for (std::uint32_t i = d; i-- > 0;) {
      if (++digit[i] < count_of[i]) {
        old_index += stride_of[i];
        break;
      }
      digit[i] = 0;
      old_index -= stride_of[i] * (count_of[i] - 1);
    }
  }
  return result;
}

namespace {

// Applies the new order to a group of tables at once: all copies are made
// before any table changes, so a failure leaves every table as it was.
ov_status_t reorder_group(Table *const *tables, const NodeList *orders, std::uint32_t count) {
  Table *copies[3] = {nullptr, nullptr, nullptr};
  for (std::uint32_t i = 0; i < count; ++i) {
    try {
      copies[i] = table_reorder(tables[i], orders[i]);
    } catch (...) {
      for (std::uint32_t k = 0; k < i; ++k) table_delete(copies[k]);
      throw;
    }
    if (copies[i] == nullptr) {
      ov_status_t code = ov_error_code();
      for (std::uint32_t k = 0; k < i; ++k) table_delete(copies[k]);
      return fail(static_cast<ov_error_t>(code));
    }
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    table_swap_contents(tables[i], copies[i]);
    table_delete(copies[i]);
  }
  return set_error(ov_error_none);
}

} // namespace

bool table_reorder_is_valid(const Table *table, Node *const *order) noexcept {
  const std::uint32_t n = table->nodes.size();
  if (node_list_length(order) != n) return false;
  for (std::uint32_t i = 0; i < n; ++i) {
    if (!table->nodes.contains(order[i])) return false;
    // The members are the same, so the discrete ones fill the first places
    // exactly when no continuous node stands ahead of a discrete one.
    if (order[i]->is_discrete() != (i < table->discrete_count)) return false;
  }
  if (!node_list_is_set_of(order, table->domain)) return false; // no node twice

  // The child of a conditional table keeps its place: the first continuous
  // node if there is one, else the last discrete node.
  if (table->value_kind == ov_table_kind_probability && n > 0) {
    std::uint32_t place = table->continuous_count > 0 ? table->discrete_count : table->discrete_count - 1;
    const Node *child = table->nodes[place];
    if (child->table == table && order[place] != child) return false;
  }
  return true;
}

ov_status_t table_reorder_nodes(Table *table, const NodeList &order) {
  if (order == table->nodes) return set_error(ov_error_none);

  // A node's table, experience table and fading table keep one order of
  // their common nodes. The latter two have no entry for the node itself.
  Node *owner = table->owner;
  Table *group[3] = {table, nullptr, nullptr};
  NodeList orders[3];
  orders[0] = order;
  std::uint32_t count = 1;
  if (owner != nullptr && (owner->experience_table != nullptr || owner->fading_table != nullptr)) {
    bool own_table = owner->table == table;
    NodeList without_child, with_child = order;
    for (Node *node : order)
      if (node != owner) without_child.push_back(node);
    if (!own_table) with_child.push_back(owner);
    for (Table *member : {owner->table, owner->experience_table, owner->fading_table}) {
      if (member == nullptr || member == table) continue;
      group[count] = member;
      orders[count] = member == owner->table ? with_child : without_child;
      ++count;
    }
  }
  ov_status_t status = reorder_group(group, orders, count);
  if (status != ov_error_none) return status;
  if (table->serial != 0) domain_uncompile(table->domain);
  return set_error(ov_error_none);
}

} // namespace orvel
