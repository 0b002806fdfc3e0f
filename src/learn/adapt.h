// Sequential adaptation: experience and fading tables, and the update of
// conditional probability tables from one propagated case.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Updates the table of each node with an experience table from the
// propagated evidence, as a Dirichlet posterior matched to a Dirichlet of
// the same mean (fading the old experience first), and its experience.
ov_status_t domain_adapt(Domain *domain);

} // namespace orvel
