// XMLBIF (version 0.3): BIF in XML, read with the expat parser. Reading
// builds a domain of discrete chance nodes; writing refuses what XMLBIF
// cannot hold.
#pragma once

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// A new domain read from an XMLBIF file (which becomes its file name) or,
// with a null file name, from `text`; null on failure. Never throws.
Domain *xmlbif_parse(const char *file_name, const char *text, ov_parse_error_handler_t handler, void *data) noexcept;

// Writes a domain to an XMLBIF file; format, with the file untouched and
// the reason in the domain's log, for what XMLBIF cannot hold.
ov_status_t xmlbif_save_file(Domain *domain, const char *file_name);

} // namespace orvel
