// The junction forest: cliques, their order, trees and separators, and where
// each potential, marginal and finding lives.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// A clique over a table made for it (role clique), numbered by the domain's
// clique count; with decisions or utilities in the domain it also gets a
// utility table over the same nodes. Null on failure.
std::unique_ptr<Clique> clique_new(Domain *domain, Table *table);
// Puts cliques, in the order made, on the head of the domain's list, so
// that the one made last comes first.
void install_cliques(Domain *domain, std::vector<std::unique_ptr<Clique>> made) noexcept;

// For each node (by number), the positions of the cliques that hold it, in
// list order.
using CliqueIndex = std::vector<std::vector<std::uint32_t>>;
CliqueIndex index_cliques(const Domain *domain);
// The first clique in list order before position `stop` whose members
// include all of `nodes`, or null.
Clique *clique_find_superset(Domain *domain, const CliqueIndex &index, const NodeList &nodes, std::uint32_t stop);
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

// Walking the forest (forest_walk.cpp), in list order; null past the end.
JunctionTree *domain_first_junction_tree(const Domain *domain) noexcept;
JunctionTree *jt_next(const JunctionTree *tree) noexcept;
Clique *domain_first_clique(const Domain *domain) noexcept;
Clique *clique_next(const Clique *clique) noexcept;
// The cliques of a tree and the neighbours of a clique as null-terminated
// arrays, made on first request and kept on the record.
Clique **jt_clique_array(JunctionTree *tree);
Clique **clique_neighbour_array(Clique *clique);

} // namespace orvel
