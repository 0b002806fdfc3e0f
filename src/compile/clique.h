// Cliques of the junction forest and the links between them.
#pragma once

#include <cstdint>
#include <vector>

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// One end of a link between two cliques. The two ends of a link name the
// same separator tables: weights and, in a domain with decisions or
// utilities, utilities.
struct CliqueLink {
  Clique *neighbour = nullptr;
  Table *separator = nullptr;
  Table *separator_utilities = nullptr;
  // Maps this clique's tables onto the separator.
  KernelPlan *plan = nullptr;
};

} // namespace orvel

struct ov_clique_s {
  std::uint32_t number = 0; // the clique's name in the log; list order after ordering runs from clique_count down
  ov_domain_s *domain = nullptr;
  ov_junction_tree_s *junction_tree = nullptr;
  std::vector<orvel::CliqueLink> links;      // the most recently made link first
  ov_table_s *table = nullptr;               // weights over the members, discrete first
  ov_table_s *utility_table = nullptr;       // utilities over the members; only with decisions or utilities
  bool active = false;                       // takes part in the next collect
  std::vector<ov_clique_s *> neighbour_list; // cache of ov_clique_get_neighbors, null-terminated; empty until asked
  double factor = 1.0;                       // share of the evidence probability from this clique's findings
  void *user_data = nullptr;
  std::uint32_t position = 0; // index on the domain's clique list, 0 for its head
  // In a compressed domain, for a compressed clique: the cell of the full
  // table that each kept cell is, in order; empty otherwise.
  std::vector<std::uint32_t> compressed_cells;
};
