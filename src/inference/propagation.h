// Propagation on junction trees: what compilation calls once the forest is
// built.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Brings a junction tree to its initial sum equilibrium from the node
// tables. With first_time the tree is fresh from compilation.
ov_status_t jt_initialize(JunctionTree *tree, bool first_time);
// Writes the beliefs after the first propagation of a compile to the log.
ov_status_t log_initial_beliefs(Domain *domain);

} // namespace orvel
