// Triangulation: elimination numbers for the nodes of the moral graph.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Moralises and triangulates by a greedy heuristic (methods 15 to 18),
// leaving the cliques in place. On failure the domain is rolled back.
ov_status_t domain_triangulate(Domain *domain, int method);
// Moralises and numbers the nodes in the order given, eliminated first
// first, adding the fill-ins that the order needs. On failure the domain is
// rolled back.
ov_status_t domain_triangulate_with_order(Domain *domain, Node *const *order);
// Triangulates the graph of the nodes' neighbours, whose levels are set:
// prime components, greedy elimination by the method, numbering and the
// cliques. No roll-back.
ov_status_t triangulate_graph(Domain *domain, int method);
// The cached elimination order, eliminated first first; null with
// enumeration if the numbers are not a permutation.
NodeList *domain_elimination_order(Domain *domain);

// Whether two nodes are linked in the moral graph or by a fill-in.
bool nodes_linked(const Node *a, const Node *b) noexcept;
// Adds a fill-in between two nodes.
void add_fill_in(Node *a, Node *b);
// Writes "Adding fill-in between" the two nodes to the log.
ov_status_t log_fill_in(Domain *domain, Node *a, Node *b);

} // namespace orvel

namespace orvel {

// Sorted vertex indices.
using VertexSet = std::vector<std::uint32_t>;

// The prime components of an undirected graph given by sorted adjacency
// lists: the pieces left when the graph is cut along its complete minimal
// separators. They cover all vertices, adjacent vertices share one, the
// intersections along the cuts are complete and no piece has a complete
// separator of its own. Each piece is sorted.
std::vector<VertexSet> find_prime_components(const std::vector<VertexSet> &adjacency);

// The result of the search for an elimination order of least total clique
// weight.
struct TotalWeightSearch {
  bool found = false;               // an order cheaper than the upper bound
  bool exceeded = false;            // stopped at the bound on search states
  double cost = 0.0;                // the total weight of the maximal cliques of `order`
  std::vector<std::uint32_t> order; // eliminated first first
  std::size_t states = 0;           // search states made
};

// Best-first search over the sets of eliminated vertices of a graph given by
// sorted adjacency lists for an order of least total weight of the maximal
// cliques, eliminating only among the vertices of the highest level left.
// Finds nothing when no order is cheaper than `upper_bound`; stops when it
// would make more than `max_states` states.
TotalWeightSearch search_total_weight(const std::vector<VertexSet> &adjacency, const std::vector<std::uint32_t> &level,
                                      const std::function<double(const VertexSet &)> &set_weight, double upper_bound,
                                      std::size_t max_states);

} // namespace orvel
