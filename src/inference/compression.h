// Smaller junction forests after compilation: approximation, which zeroes
// the least probable clique cells of the initial tables.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// What stands in the way of approximating a compiled domain: usage for
// decisions, utilities or continuous nodes, compressed for a compressed
// domain, else none.
ov_error_t approximation_state(const Domain *domain) noexcept;
// Zeroes in each clique of the initial tables the smallest cells whose sum
// is at most `epsilon` times the clique's total, brings each tree to
// equilibrium again on what is left and saves the result as the table
// memory. Returns the probability mass of the joint distribution that was
// removed, or -1.0 with the code recorded.
double domain_approximate(Domain *domain, double epsilon);

} // namespace orvel
