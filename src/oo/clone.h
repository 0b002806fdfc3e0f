// Copies of domains and nodes.
#pragma once

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// A copy of an attribute list, in its order, appended to `to`.
void copy_attributes(const AttributeList &from, AttributeList &to);

// A deep copy of a plain domain (see ov_domain_clone); null on failure,
// with nothing left behind.
Domain *domain_clone(const Domain *domain);
// A copy of a node in its own domain (see ov_node_clone); null on failure,
// with the domain as it was apart from being uncompiled.
Node *node_clone(Node *node);

} // namespace orvel
