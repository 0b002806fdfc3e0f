// Drawing configurations of a domain's nodes.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Draws one configuration of all chance and decision nodes: from the joint
// given the evidence when the domain is compiled, from the node tables
// (with instantiated evidence) when it is not. On failure no sample is set.
ov_status_t domain_simulate(Domain *domain);
// The probability of the configurations drawn by the last simulation of a
// compiled domain: the product over its trees.
double domain_probability_of_random_selection(const Domain *domain) noexcept;

} // namespace orvel
