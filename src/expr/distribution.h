// The probabilities of a chance node's states for one configuration of its
// parents, from the expression of the configuration's model slot.
#pragma once

#include <cstdint>

#include "expr/evaluate.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Fills `buffer` (averages, minima, maxima: three blocks of `n` doubles,
// followed by scratch room of 3 × `n` doubles for each bounded interval
// parent) with the child's probabilities: the child is the last of
// `bindings`, whose other nodes hold the configuration's states. Parents
// are bound (and sampled) first; then a distribution is computed state by
// state, and a deterministic expression puts 1 on the state of its value.
// Failures are logged where a reason is given and returned as the code.
ov_status_t distribution_values(const Expression *expression, Bindings &bindings, double *buffer,
                                std::uint32_t n) noexcept;

} // namespace orvel
