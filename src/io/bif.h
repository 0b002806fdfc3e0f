// BIF: the interchange format of the benchmark repositories. Reading builds
// a domain of discrete chance nodes; writing refuses what BIF cannot hold.
#pragma once

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// A new domain read from a BIF file (which becomes its file name) or, with a
// null file name, from `text`; null on failure, with messages given to the
// handler. Never throws.
Domain *bif_parse(const char *file_name, const char *text, ov_parse_error_handler_t handler, void *data) noexcept;

// Writes a domain to a BIF file; format, with the file untouched and the
// reason in the domain's log, for what BIF cannot hold.
ov_status_t bif_save_file(Domain *domain, const char *file_name);

} // namespace orvel
