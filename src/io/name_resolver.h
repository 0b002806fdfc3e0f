// Names of nodes in text: a plain name, or a dotted path through the output
// nodes of class instances ("a.b" is output b of the class of instance a).
#pragma once

#include "io/scanner.h"
#include "model/forward.h"

namespace orvel {

// The node that `path` names in `scope` (a domain or a class). The path is
// cut at its dots while it is resolved and restored before the return.
// Failures are reported through parse_report and record parse; the result
// is then null and the caller stops.
Node *resolve_node_path(ParseContext *ctx, Domain *scope, char *path);

} // namespace orvel
