// KB files: the binary snapshot of a domain with its triangulation, its
// junction forest and its findings, as a gzip stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "model/domain.h"
#include "orvel.h"

namespace orvel {

// Byte orders of a KB file.
constexpr int kb_big_endian = 1;
constexpr int kb_little_endian = 2;

// The decompressed bytes of a domain in KB form: version 10 with a
// password, else 9. Errors: usage for a class, no_memory.
ov_status_t kb_write_bytes(Domain *domain, const char *password, int byte_order, std::vector<std::uint8_t> &out);
// Writes the file through gzip at level 9; the domain's file name becomes
// `file_name` on success.
ov_status_t kb_save_file(Domain *domain, const char *file_name, const char *password, int byte_order);

// A domain read from the decompressed bytes of a KB file, or null with
// bad_file, bad_version, format, invalid_password, io (short data) or
// no_memory.
Domain *kb_read_bytes(const std::uint8_t *bytes, std::size_t size, const char *password);
// Reads a KB file; the domain's file name is a copy of `file_name`.
Domain *kb_load_file(const char *file_name, const char *password);

} // namespace orvel
