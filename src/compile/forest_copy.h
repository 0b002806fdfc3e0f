// Copying the compiled state of a domain into a copy of the domain.
#pragma once

#include <vector>

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// What a domain copy has made so far: for each node of the source (by
// number), table (by serial) and chain component (by position), its copy;
// null for a table left out.
struct DomainCopyMap {
  std::vector<Node *> nodes;
  std::vector<Table *> tables;
  std::vector<ChainComponent *> components;
};

// Gives `to` the triangulation, junction forest, kernel plans, saved table
// memory and propagation state of `from`, pointing at the copies named by
// `map`. The tables of the forest must have been copied already. Throws
// bad_alloc; what was copied before stays on `to` for its deletion.
void forest_copy(const Domain *from, Domain *to, const DomainCopyMap &map);

} // namespace orvel
