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
};

} // namespace orvel
