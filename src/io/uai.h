// UAI: the network and evidence files of the inference competitions. A
// BAYES file reads into a domain of discrete chance nodes; UAI has no names,
// so variable i (from 0, in file order) becomes node `v<i>' and its state j
// the label `s<j>'. The writer writes the nodes in domain order, each
// node's function with its parents in order and the node last.
#pragma once

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// A new domain read from a UAI file (which becomes its file name) or, with a
// null file name, from `text`; null on failure. Never throws.
Domain *uai_parse(const char *file_name, const char *text, ov_parse_error_handler_t handler, void *data) noexcept;

// Writes a domain as a BAYES file; format, with the file untouched and the
// reason in the domain's log, for what UAI cannot hold.
ov_status_t uai_save_file(Domain *domain, const char *file_name);

// Reads a UAI evidence file (or, with a null file name, `text`) and selects
// the state it gives for each listed variable, counted in domain order.
ov_status_t uai_enter_evidence(Domain *domain, const char *file_name, const char *text,
                               ov_parse_error_handler_t handler, void *data);

} // namespace orvel
