// Writing domains, classes and class collections as NET text.
#pragma once

#include <cstdio>

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// format unless the parser would read the domain or class back as it is:
// no attribute key that is an item name of its block, positions and node
// sizes that survive the parser's 32-bit floats (and no negative node
// size), no NaN state value, only finite numbers in written tables and
// model expressions, and no negative number in a probability table over one
// node (its flat form takes none). Checked before anything is written.
ov_status_t check_writable(const Domain *domain);

// Writes a domain (a `net` block) or a class (a `class` block) to an open
// stream, without flushing it; nothing is written when check_writable
// fails. A plain domain has its node names repaired
// first. The caller holds the "C" locale. io on any failing output call.
ov_status_t net_write(Domain *domain, std::FILE *stream);

// Writes every class of a collection, each after the classes it
// instantiates, with a line feed between two classes; nothing is written
// when check_writable fails for a class. The caller holds the
// "C" locale.
ov_status_t net_write_collection(ClassCollection *collection, std::FILE *stream);

} // namespace orvel
