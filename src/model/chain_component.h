// Chain components: the undirected parts of a chain graph.
#pragma once

#include <vector>

#include "model/forward.h"
#include "model/node_list.h"

namespace orvel {

// A set of nodes joined by undirected links. The domain owns the record;
// each member's chain_component points at it. The chain potentials are
// tables on the domain's table list, which owns them.
struct ChainComponent {
  Domain *domain = nullptr;
  NodeList members;
  std::vector<Table *> potentials;

  // Compilation: reset when the forest is released.
  Table *normalizer = nullptr;               // over the nodes with a child in the component
  Clique *normalizer_clique = nullptr;       // clique that takes the normaliser
  std::vector<Clique *> potential_cliques;   // clique that takes each chain potential
  KernelPlan *normalizer_plan = nullptr;     // from that clique to the normaliser
  std::vector<KernelPlan *> potential_plans; // from each potential's clique to it
};

} // namespace orvel
