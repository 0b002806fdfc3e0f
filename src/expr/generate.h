// Table generation: turning a node's model into the numbers of its table.
#pragma once

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Generates the table of a node that has a model, when the model is stale
// (otherwise succeeds at once, touching nothing). Reports go to the
// domain's log. On failure the table holds the values written up to the
// failure and the model stays stale.
ov_status_t generate_node_table(Node *node) noexcept;

// Generates the tables of the domain's nodes with models, in node list
// order; stops at the first failure.
ov_status_t generate_domain_tables(Domain *domain) noexcept;

} // namespace orvel
