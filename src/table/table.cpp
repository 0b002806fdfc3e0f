// Table records: creation, allocation, the domain's list, node tables.
#include "table/table.h"

#include <algorithm>
#include <cstring>

#include "api/error.h"
#include "model/domain.h"
#include "model/node.h"

namespace orvel {

void TableDeleter::operator()(Table *table) const noexcept { delete table; }

ov_status_t table_count_kinds(Table *table) noexcept {
  std::uint32_t discrete = 0, continuous = 0;
  for (Node *node : table->nodes) {
    if (node->is_discrete()) {
      if (continuous != 0) return fail(ov_error_usage);
      ++discrete;
    } else {
      ++continuous;
    }
  }
  table->discrete_count = discrete;
  table->continuous_count = continuous;
  return set_error(ov_error_none);
}

namespace {

// Puts a new record on the domain's list.
Table *table_attach_new(Domain *domain) {
  // Room for one more, growing geometrically so that filling a domain stays linear.
  if (domain->tables.size() == domain->tables.capacity()) domain->tables.reserve(2 * domain->tables.size() + 1);
  TablePtr table(new Table);
  table->domain = domain;
  table->serial = static_cast<std::uint32_t>(domain->tables.size() + 1);
  domain->tables.push_back(std::move(table));
  return domain->tables.back().get();
}

// Brings discrete nodes to the front by a two-ended exchange (not stable).
void sort_discrete_first(NodeList &nodes) noexcept {
  if (nodes.empty()) return;
  std::int64_t low = 0, high = static_cast<std::int64_t>(nodes.size()) - 1;
  for (;;) {
    while (low < high && nodes[static_cast<std::uint32_t>(low)]->is_discrete()) ++low;
    while (low < high && !nodes[static_cast<std::uint32_t>(high)]->is_discrete()) --high;
    if (low >= high) break;
    std::swap(nodes[static_cast<std::uint32_t>(low)], nodes[static_cast<std::uint32_t>(high)]);
  }
}

void fill_roles(Table *table) noexcept {
  if (table->cg_roles) std::memset(table->cg_roles.get(), cg_unset, table->continuous_count);
}

// Sets size, cg_stride and the role array from the node list.
ov_status_t table_shape(Table *table) noexcept {
  Size size = 1;
  for (std::uint32_t i = 0; i < table->discrete_count; ++i) size = size_multiply(size, table->nodes[i]->state_count);
  table->size = size;
  table->cg_stride = cg_stride_for(table->continuous_count);
  table->cg_roles.reset();
  if (table->continuous_count > 0) {
    table->cg_roles = alloc_array<std::int8_t>(table->continuous_count);
    if (!table->cg_roles) return ov_error_no_memory;
    fill_roles(table);
  }
  return ov_error_none;
}

} // namespace

Table *table_new(Domain *domain, Node *const *nodes, std::int32_t value_kind, std::int32_t role, bool sort,
                 bool allocate) {
  if (!node_list_is_set_of(nodes, domain)) {
    set_error(ov_error_usage);
    return nullptr;
  }
  Table *table = table_attach_new(domain);
  try {
    table->value_kind = value_kind;
    table->role = role;
    table->nodes = NodeList(nodes);
  } catch (...) {
    table_delete(table);
    throw;
  }
  if (sort) sort_discrete_first(table->nodes);
  if (table_count_kinds(table) != ov_error_none || table_shape(table) != ov_error_none ||
      (allocate && table_allocate(table) != ov_error_none)) {
    ov_status_t code = ov_error_code();
    table_delete(table);
    set_error(code);
    return nullptr;
  }
  set_error(ov_error_none);
  return table;
}

ov_status_t table_allocate(Table *table) noexcept {
  if (table->data) return set_error(ov_error_none);
  Buffer<ov_number_t> data = alloc_array<ov_number_t>(table->size);
  if (!data) return ov_error_no_memory;
  Buffer<double> cg;
  if (table->cg_stride > 0) {
    cg = alloc_array<double>(size_multiply(table->cg_stride, table->size));
    if (!cg) return ov_error_no_memory;
  }
  table->data = std::move(data);
  table->cg_data = std::move(cg);
  ov_number_t fresh =
      table->value_kind == ov_table_kind_probability || table->value_kind == ov_table_kind_fading ? 1.0f : 0.0f;
  std::fill_n(table->data.get(), table->size, fresh);
  if (table->cg_data) std::fill_n(table->cg_data.get(), static_cast<std::size_t>(table->size) * table->cg_stride, 0.0);
  return set_error(ov_error_none);
}

void table_fill(Table *table) noexcept {
  ov_number_t fresh =
      table->value_kind == ov_table_kind_probability || table->value_kind == ov_table_kind_fading ? 1.0f : 0.0f;
  if (table->data) std::fill_n(table->data.get(), table->size, fresh);
  if (table->cg_data) std::fill_n(table->cg_data.get(), static_cast<std::size_t>(table->size) * table->cg_stride, 0.0);
  fill_roles(table);
}

Table *table_clone(const Table *source) {
  Table *copy = table_new(source->domain, source->nodes.data(), source->value_kind, source->role, false,
                          static_cast<bool>(source->data));
  if (copy == nullptr) return nullptr;
  if (source->cg_roles) std::memcpy(copy->cg_roles.get(), source->cg_roles.get(), source->continuous_count);
  if (source->data) {
    std::memcpy(copy->data.get(), source->data.get(), sizeof(ov_number_t) * source->size);
    if (source->cg_data)
      std::memcpy(copy->cg_data.get(), source->cg_data.get(),
                  sizeof(double) * static_cast<std::size_t>(source->size) * source->cg_stride);
  }
  return copy;
}

Table *table_clone_discrete(const Table *source) {
  NodeList discrete;
  discrete.reserve(source->discrete_count);
  for (std::uint32_t i = 0; i < source->discrete_count; ++i) discrete.push_back(source->nodes[i]);
  Table *copy = table_new(source->domain, discrete.data(), source->value_kind, source->role, false,
                          static_cast<bool>(source->data));
  if (copy == nullptr) return nullptr;
  if (source->data) std::memcpy(copy->data.get(), source->data.get(), sizeof(ov_number_t) * source->size);
  return copy;
}

Table *table_clone_slice(const Table *source, Size configuration) {
  NodeList continuous;
  continuous.reserve(source->continuous_count);
  for (std::uint32_t i = source->discrete_count; i < source->nodes.size(); ++i) continuous.push_back(source->nodes[i]);
  Table *copy = table_new(source->domain, continuous.data(), source->value_kind, source->role, false,
                          static_cast<bool>(source->data));
  if (copy == nullptr) return nullptr;
  if (source->cg_roles) std::memcpy(copy->cg_roles.get(), source->cg_roles.get(), source->continuous_count);
  if (source->data) {
    copy->data[0] = source->data[configuration];
    if (source->cg_data)
      std::memcpy(copy->cg_data.get(),
                  source->cg_data.get() + static_cast<std::size_t>(configuration) * source->cg_stride,
                  sizeof(double) * source->cg_stride);
  }
  return copy;
}

Table *table_detach(Table *table) noexcept {
  if (table->serial == 0) return table;
  auto &tables = table->domain->tables;
  std::uint32_t index = table->serial - 1;
  Table *released = tables[index].release();
  tables.erase(tables.begin() + index);
  for (std::uint32_t i = index; i < tables.size(); ++i) tables[i]->serial = i + 1;
  released->serial = 0;
  return released;
}

void table_delete(Table *table) noexcept {
  if (table == nullptr) return;
  delete table_detach(table);
}

void table_swap_contents(Table *a, Table *b) noexcept {
  std::swap(a->nodes, b->nodes);
  std::swap(a->discrete_count, b->discrete_count);
  std::swap(a->continuous_count, b->continuous_count);
  std::swap(a->size, b->size);
  std::swap(a->cg_stride, b->cg_stride);
  std::swap(a->cg_roles, b->cg_roles);
  std::swap(a->data, b->data);
  std::swap(a->cg_data, b->cg_data);
}

std::int64_t table_continuous_index(const Table *table, const Node *node) noexcept {
  for (std::uint32_t i = table->discrete_count; i < table->nodes.size(); ++i)
    if (table->nodes[i] == node) return i - table->discrete_count;
  return -1;
}

Table *node_table(Node *node) {
  if (node->table != nullptr) return node->table;
  Domain *domain = node->home;
  NodeList list;
  std::int32_t kind;
  if (node->category == ov_category_utility) {
    list = node->parents;
    kind = ov_table_kind_utility;
  } else {
    // Discrete parents, the node, continuous parents: a discrete node is the
    // last discrete node, a continuous one the first continuous node.
    for (Node *parent : node->parents)
      if (parent->is_discrete()) list.push_back(parent);
    list.push_back(node);
    for (Node *parent : node->parents)
      if (!parent->is_discrete()) list.push_back(parent);
    kind = ov_table_kind_probability;
  }
  Table *table = table_new(domain, list.data(), kind, role_plain, false, false);
  if (table == nullptr) return nullptr;
  table->owner = node;
  if (node->category == ov_category_chance && !node->is_discrete()) {
    // The node is a head, its continuous parents are the regression's tails.
    table->cg_roles[0] = cg_head;
    for (std::uint32_t i = 1; i < table->continuous_count; ++i) table->cg_roles[i] = cg_tail;
  }
  node->table = table;
  return table;
}

Table *node_learning_table(Node *node, std::int32_t kind) {
  Table *&slot = kind == ov_table_kind_experience ? node->experience_table : node->fading_table;
  if (slot != nullptr) return slot;
  Table *own = node_table(node);
  if (own == nullptr) return nullptr;
  NodeList nodes;
  for (Node *member : own->nodes)
    if (member != node) nodes.push_back(member);
  Table *table = table_new(node->home, nodes.data(), kind, role_plain, false, true);
  if (table == nullptr) return nullptr;
  table->owner = node;
  slot = table;
  return table;
}

} // namespace orvel
