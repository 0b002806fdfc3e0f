// The junction forest: cliques, their order, trees and separators, and where
// each potential, marginal and finding lives.
#pragma once

#include <cstdint>

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// A clique over a table made for it (role clique), pushed on the head of the
// domain's clique list; with decisions or utilities in the domain it also
// gets a utility table over the same nodes. Null on failure.
Clique *clique_new(Domain *domain, Table *table);

// The first clique from position `first` up to, not including, `stop` (null:
// the end of the list) whose members include all of `nodes`.
Clique *clique_find_superset(Domain *domain, std::uint32_t first, const NodeList &nodes, const Clique *stop);
// The first clique, depth first over links from `clique`, whose members
// include all of `nodes`.
Clique *tree_find_superset(Clique *clique, const Clique *parent, const NodeList &nodes);

// The stages of the forest, in the order the compile runs them.
ov_status_t build_cliques(Domain *domain);
ov_status_t order_cliques(Domain *domain);
ov_status_t log_cliques(Domain *domain);
ov_status_t build_junction_trees(Domain *domain);
ov_status_t build_node_tables(Domain *domain);
ov_status_t build_chain_normalizers(Domain *domain);
ov_status_t assign_potentials(Domain *domain);

// Sum over the cliques of (CG entries + 1) * table size; -1 if a size has
// saturated.
std::int64_t jt_cost(const Domain *domain) noexcept;

} // namespace orvel
