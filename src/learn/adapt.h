// Sequential adaptation: experience and fading tables, and the update of
// conditional probability tables from one propagated case.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// The experience (ov_table_kind_experience) or fading (ov_table_kind_fading)
// table of a discrete chance node, made on first use over the nodes of its
// table without the node itself; null on failure.
Table *node_learning_table(Node *node, std::int32_t kind);

// Updates the table of each node with an experience table from the
// propagated evidence, as a Dirichlet posterior matched to a Dirichlet of
// the same mean (fading the old experience first), and its experience.
ov_status_t domain_adapt(Domain *domain);

} // namespace orvel
