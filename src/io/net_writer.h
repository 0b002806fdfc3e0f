// Writing domains, classes and class collections as NET text.
#pragma once

#include <cstdio>

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Writes a domain (a `net` block) or a class (a `class` block) to an open
// stream, without flushing it. A plain domain has its node names repaired
// first. The caller holds the "C" locale. io on any failing output call.
ov_status_t net_write(Domain *domain, std::FILE *stream);

// Writes every class of a collection, each after the classes it
// instantiates, with a line feed between two classes. The caller holds the
// "C" locale.
ov_status_t net_write_collection(ClassCollection *collection, std::FILE *stream);

} // namespace orvel
