// Chain components: the undirected parts of a chain graph.
#pragma once

#include <cstdint>
#include <vector>

#include "model/forward.h"
#include "model/node_list.h"
#include "orvel.h"

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

// Adds a chain graph potential: `table` (of the domain, value kind 0, no
// continuous nodes) whose last `child_count` nodes are the children, tied
// together by undirected links; every other node of the table must be a
// parent of each child. The children and the components they already belong
// to merge into one new component, which takes the table. Errors: usage for
// arguments that break these rules, cyclic_network if a directed path joins
// two children of different components. Uncompiles the domain.
ov_status_t domain_add_chain_potential(Domain *domain, Table *table, std::uint32_t child_count);
// Whether some node of the domain belongs to a chain component.
bool domain_has_chain_components(const Domain *domain) noexcept;

} // namespace orvel
