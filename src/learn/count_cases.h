// Counting cases into a table of configurations: the inner loop of
// structure learning.
#pragma once

#include <cstdint>
#include <vector>

#include "model/domain.h"

namespace orvel {

// Counts the domain's cases into `cells`, a table over `nodes` whose last
// node varies fastest: each case adds its count to the cell it selects. A
// case where a listed node is absent (or holds a state beyond its count) is
// skipped; `all_complete` says no listed node has such a case, which saves
// the test. Every node must have case data. Lists of 2 to 7 nodes run
// straight-line loops.
void count_cases_into_table(const Domain *domain, const std::vector<Node *> &nodes, bool all_complete,
                            std::vector<double> &cells);

} // namespace orvel
