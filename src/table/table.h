// The table record: the one numeric container of the library.
//
// Discrete data is a flat float array in which the last discrete node varies
// fastest. Conditional Gaussian data holds, per configuration, c(c+3)/2
// doubles for c continuous nodes: for each node i its mean, then its
// covariances with nodes 0..i.
#pragma once

#include <cstdint>

#include "api/memory.h"
#include "model/forward.h"
#include "model/node_list.h"
#include "orvel.h"

namespace orvel {

// What a table is for: 0 outlives compilation; the others belong to the
// forest or to a query and are deleted with it.
enum TableRole : std::int32_t {
  role_plain = 0,
  role_returned = 1,
  role_clique = 2,
  role_separator = 3,
  role_forest = 4,
};

// How a continuous node takes part in a table.
enum CgRole : std::int8_t {
  cg_head = 0,  // a head with a distribution in the table
  cg_tail = 1,  // a conditioning variable: its entries are coefficients
  cg_unset = 2, // not yet initialised
};

} // namespace orvel

struct ov_table_s {
  std::uint32_t serial = 0; // position on the domain's list from 1; 0 = detached
  ov_domain_s *domain = nullptr;
  ov_node_s *owner = nullptr;
  std::int32_t value_kind = ov_table_kind_probability;
  std::int32_t role = orvel::role_plain;
  orvel::NodeList nodes; // discrete nodes first, then continuous ones
  std::uint32_t discrete_count = 0;
  std::uint32_t continuous_count = 0;
  orvel::Size size = 1; // configurations of the discrete nodes; saturates
  std::uint32_t cg_stride = 0;
  orvel::Buffer<std::int8_t> cg_roles;
  orvel::Buffer<ov_number_t> data;
  orvel::Buffer<double> cg_data;
  std::int32_t compressed_cursor = -1;
  void *user_data = nullptr;
};

namespace orvel {

// c(c+3)/2: doubles of CG data per configuration for c continuous nodes.
constexpr std::uint32_t cg_stride_for(std::uint32_t c) noexcept { return c * (c + 3) / 2; }
// Offset of the covariance of continuous nodes i and j (j <= i) within a
// configuration; j == i is the variance. The mean of i is at cg_mean_offset(i).
constexpr std::uint32_t cg_mean_offset(std::uint32_t i) noexcept { return i * (i + 3) / 2; }
constexpr std::uint32_t cg_entry_offset(std::uint32_t i, std::uint32_t j) noexcept {
  return i >= j ? i * (i + 3) / 2 + j + 1 : j * (j + 3) / 2 + i + 1;
}

// A new table over `nodes` on the domain's list, or null. With `sort` the
// discrete nodes are brought to the front; without it a continuous node
// ahead of a discrete one is usage. With `allocate` the data is allocated
// and filled.
Table *table_new(Domain *domain, Node *const *nodes, std::int32_t value_kind, std::int32_t role, bool sort,
                 bool allocate);
// Allocates and fills data, cg_data and cg_roles if data is null.
ov_status_t table_allocate(Table *table) noexcept;
// Resets the contents as for a fresh table.
void table_fill(Table *table) noexcept;
// A copy with the same fields and data, without owner; on the domain's list.
Table *table_clone(const Table *table);
// A copy of the discrete part alone: the continuous nodes are left out and
// the discrete data is copied.
Table *table_clone_discrete(const Table *table);
// A table over the continuous nodes alone holding one configuration of
// `table`: its discrete entry, CG data and CG roles.
Table *table_clone_slice(const Table *table, Size configuration);
// Detaches from the domain (if attached) and frees. Null is accepted.
void table_delete(Table *table) noexcept;
// Removes the table from the domain's list; the caller owns it from then on.
// Returns the table.
Table *table_detach(Table *table) noexcept;
// Exchanges contents (nodes, counts, size, CG layout and data); serial,
// owner and list membership stay.
void table_swap_contents(Table *a, Table *b) noexcept;
// Recomputes the discrete and continuous counts; usage if a continuous node
// stands ahead of a discrete one.
ov_status_t table_count_kinds(Table *table) noexcept;
// The position of a node within the continuous part, or -1.
std::int64_t table_continuous_index(const Table *table, const Node *node) noexcept;
// A table over the same nodes in a new order, holding the same numbers.
Table *table_reorder(Table *table, const NodeList &order);
// Whether `order` is an order that the table's nodes may take: the same
// nodes, discrete ones first, and the child of a conditional table in its
// place. Reads only.
bool table_reorder_is_valid(const Table *table, Node *const *order) noexcept;
// Puts the table's nodes in a valid new order, moving the numbers, and
// applies the same order to the owner's experience and fading tables. On
// failure no table has changed.
ov_status_t table_reorder_nodes(Table *table, const NodeList &order);
// The node's table, built at first need.
Table *node_table(Node *node);
// The experience (ov_table_kind_experience) or fading (ov_table_kind_fading)
// table of a discrete chance node, made on first use over the nodes of its
// table without the node itself; null on failure.
Table *node_learning_table(Node *node, std::int32_t kind);

} // namespace orvel
