// What the interface reads and writes in tables: the moments of a CG table,
// the CG parameters of a continuous chance node, and the delete a caller
// asks for.
#pragma once

#include <cstdint>

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Whether `configuration` indexes a configuration of the table.
bool valid_configuration(const Table *table, std::int64_t configuration) noexcept;
// The place of a node among the continuous nodes of a table with no
// conditioning variables, or -1 when its moments cannot be read.
std::int64_t moment_index(const Table *table, const Node *node) noexcept;
// The covariance of two nodes (the variance for one node twice) and the
// mean of a node in a configuration; both nodes have a moment index. A table
// without data reads as fresh.
double table_covariance(const Table *table, std::int64_t configuration, const Node *a, const Node *b) noexcept;
double table_mean(const Table *table, std::int64_t configuration, const Node *node) noexcept;
// The table's numbers, allocated at first need; null on failure.
ov_number_t *table_data(Table *table) noexcept;
// size_too_large for a table whose size has saturated, else none.
ov_error_t table_size_state(const Table *table) noexcept;
// A caller's delete: a detached table goes; an experience or fading table is
// taken off its node and goes; any other table of the domain stays.
void table_delete_by_caller(Table *table) noexcept;

// Offsets of the intercept and the conditional variance in a configuration
// of a continuous node's table; a coefficient sits where the covariance of
// the node with that parent would.
constexpr std::uint32_t alpha_offset = 0, gamma_offset = 1;

// Whether the CG parameters of `node` in `configuration` can be addressed:
// a continuous chance node of its own, and a configuration of its discrete
// parents (whether or not its table exists yet).
bool valid_cg_call(const Node *node, std::int64_t configuration) noexcept;
// Whether `parent` is a continuous parent of `node`.
bool is_cg_parent(const Node *node, const Node *parent) noexcept;
// Stores a parameter of a checked call, building and allocating the table
// at first need: the coefficient on `parent` if one is given, else the
// entry at `offset`.
ov_status_t node_set_cg_parameter(Node *node, std::int64_t configuration, Node *parent, std::uint32_t offset,
                                  double value);
// Reads a parameter of a checked call; a table not yet built or allocated
// holds the fresh value 0.
double node_get_cg_parameter(const Node *node, std::int64_t configuration, const Node *parent,
                             std::uint32_t offset) noexcept;

} // namespace orvel
