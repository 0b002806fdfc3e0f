// Compilation: from an edited network to a junction forest.
//
// The stages run in this order: levels and moralisation, triangulation,
// cliques, their ordering, junction trees, node tables, chain normalisers,
// the assignment of potentials, table data and the first propagation. A
// stage that fails leaves its error recorded; the driver rolls the domain
// back with release_forest and records the first error again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// The whole compile; usage for an empty or compiled domain.
ov_status_t domain_compile_with_progress(Domain *domain, ov_progress_function_t progress);
// Triangulates if needed and builds the forest without table data.
ov_status_t compile_qualitatively(Domain *domain, ov_progress_function_t progress);
// Allocates table data, checks potentials when a log is open and runs the
// first propagation of every tree.
ov_status_t compile_quantitatively(Domain *domain, ov_progress_function_t progress);

// Gives every node its elimination level; cyclic_network or decision_order.
ov_status_t assign_levels(Domain *domain);
// Levels, then the moral graph in the nodes' neighbours, then the necessary
// fill-ins. Leaves marks at 0.
ov_status_t moralize(Domain *domain);
// Completes the boundary of every connected component above each level, so
// that every elimination order that respects levels is strong.
ov_status_t add_necessary_fill_ins(Domain *domain);
// Reports bad rows of the discrete chance nodes' tables to the log;
// invalid_probability_potential after all have been reported.
ov_status_t check_probability_potentials(Domain *domain);

// Whether a node takes part in the moral graph.
inline bool in_moral_graph(const Node *node) noexcept {
  return node->category == ov_category_chance || node->category == ov_category_decision;
}

// Writes names to the log, four blanks in, separated by ", " and folded so
// that no line passes 75 columns; ends with a newline.
ov_status_t log_names(Domain *domain, const std::vector<const char *> &names);
// The same for nodes, by name.
ov_status_t log_node_names(Domain *domain, Node *const *nodes, std::size_t count);
// A log line with the name of one node, or of two nodes, in `format`; the
// names are generated for nodes that have none. Nothing without a log.
ov_status_t log_node_line(Domain *domain, const char *format, Node *node);
ov_status_t log_node_pair(Domain *domain, const char *format, Node *a, Node *b);
// A table size, with " + <CG size>" when the table has a CG block.
ov_status_t log_table_size(Domain *domain, Size size, std::uint32_t cg_stride);

} // namespace orvel
