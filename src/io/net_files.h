// Reading and writing whole NET sources and files: the work behind the NET
// calls of the interface, from opening a file to naming the domain after it.
#pragma once

#include <cstdio>

#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// A new domain parsed from a stream or (with a null stream) a string,
// probing which of the two NET grammars the source uses; null on failure,
// and then nothing is left behind. Holds the "C" locale while it parses.
// Never throws.
Domain *net_parse_source(std::FILE *file, const char *string, ov_parse_error_handler_t handler, void *data) noexcept;

// The same with a handler that takes no pointer of the caller's.
Domain *net_parse_simple_source(std::FILE *file, const char *string, ov_simple_error_handler_t handler) noexcept;

// The same for a named file, which becomes the domain's file name. Never
// throws.
Domain *net_parse_domain_file(const char *file_name, ov_parse_error_handler_t handler, void *data) noexcept;

// Parses the classes of a file into a collection, asking `loader` for the
// classes it instantiates. On failure every class the file added is removed
// again.
ov_status_t net_parse_class_file(const char *file_name, ClassCollection *collection, ov_class_loader_t loader,
                                 ov_parse_error_handler_t handler, void *data);

// The nodes of `scope` named in a file, in file order, as a null-terminated
// array the caller frees.
Node **net_parse_node_file(Domain *scope, const char *file_name, ov_parse_error_handler_t handler, void *data);

// Writes a domain or a class to an open stream and flushes it, holding the
// "C" locale.
ov_status_t net_write_stream(Domain *domain, std::FILE *stream);

// Writes a domain or a class to a new file, which becomes its file name.
ov_status_t net_save_file(Domain *domain, const char *file_name);

// Writes every class of a collection to a new file, which becomes the file
// name of each class.
ov_status_t net_save_collection_file(ClassCollection *collection, const char *file_name);

} // namespace orvel
