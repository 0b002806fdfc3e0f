// Pictures of networks as Graphviz DOT: the network, the network with its
// beliefs, or the junction forest.
#pragma once

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Writes the picture of `form` to a file; not_compiled for beliefs or the
// junction forest of a domain that is not compiled, io when the file
// cannot be written.
ov_status_t dot_save_file(Domain *domain, const char *file_name, ov_dot_form_t form);

} // namespace orvel
