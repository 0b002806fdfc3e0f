// Smaller junction forests after compilation: approximation, which zeroes
// the least probable clique cells of the initial tables, and compression,
// which drops the zero cells of the clique tables.
//
// Compression works on the current clique tables of a compiled domain,
// propagated or not: the cells that are zero there (deterministic tables,
// approximation, hard or soft evidence propagated at the time) go. A
// compressed clique table keeps only its non-zero cells, in their order, as
// its data; `size` becomes their number. Every kernel plan whose finer table
// is such a clique (links to separators, node tables, findings, beliefs)
// gets `compressed_map`: for each kept cell, the cell of the coarser table.
// The maps are 16 bits wide, so a clique that meets a table of more than
// 65536 cells (a large separator or node table, as in water and barley)
// stays full, as does a clique that a plan reaches without dimensions (a
// table of its own nodes); the kernels treat those as before. Separators
// and all other tables stay full.
//
// Propagation then runs plain loops through the maps (sum and max, normal
// mode; hard findings enter as 0/1 tables through their plans). What is
// removed stays removed: evidence entered later must be consistent with it,
// and evidence that is not gives the usual inconsistency error. The table
// memory holds the initial tables restricted to the kept cells. Each
// compressed clique also keeps the full-table cell of every kept cell
// (`compressed_cells`), by which simulation draws over the kept cells alone
// and, zeros never changing the choice, draws what the full table would.
// Refused with compressed: fast retraction, joint marginals, learning and
// adaptation, cloning, KB files (the writer does not yet write the index
// maps) and approximation. Uncompiling or compiling again clears it all.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// What stands in the way of approximating a compiled domain: usage for
// decisions, utilities or continuous nodes, compressed for a compressed
// domain, else none.
ov_error_t approximation_state(const Domain *domain) noexcept;
// Zeroes in each clique of the initial tables the smallest cells whose sum
// is at most `epsilon` times the clique's total, brings each tree to
// equilibrium again on what is left and saves the result as the table
// memory. Returns the probability mass of the joint distribution that was
// removed, or -1.0 with the code recorded.
double domain_approximate(Domain *domain, double epsilon);

// What stands in the way of compressing a compiled domain: usage for
// decisions, utilities, continuous nodes or chain components, usage for a
// tree that is not at equilibrium or was propagated in fast retraction mode,
// compressed if compressed already; else none.
ov_error_t compression_state(const Domain *domain) noexcept;
// Compresses the forest as told above and logs the clique and separator
// cells before and after. Returns the cells after, or -1.0 with the code
// recorded and the domain unchanged.
double domain_compress(Domain *domain);

} // namespace orvel
