// Propagation is not part of this revision of the library. Until it is, the
// first propagation of a compile reports an internal error, so that a full
// compile rolls back cleanly instead of leaving a domain marked compiled
// whose beliefs were never computed. This file goes when propagation lands.
#include "api/error.h"
#include "inference/propagation.h"

namespace orvel {

ov_status_t jt_initialize(JunctionTree *, bool) { return fail(ov_error_error); }

ov_status_t log_initial_beliefs(Domain *) { return fail(ov_error_error); }

} // namespace orvel
