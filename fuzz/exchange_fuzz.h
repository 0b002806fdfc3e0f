// What the fuzz targets of the exchange readers (BIF, XMLBIF, UAI) share:
// the input as text, read; a network that reads is written in the same
// format and read back with as many nodes, and a failure leaves an error
// code and no domain. Aborts when an oracle fails.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "orvel.h"

namespace fuzz_exchange {

inline void check(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "oracle failed: %s\n", what);
  std::abort();
}

inline void handler(std::uint32_t, ov_string_t message, void *) {
  check(message != nullptr && std::strlen(message) < 1024, "bad message");
}

inline std::uint32_t count_nodes(ov_domain_t domain) {
  std::uint32_t count = 0;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) ++count;
  return count;
}

using Parse = ov_domain_t (*)(ov_string_t, ov_parse_error_handler_t, void *);
using ParseFile = ov_domain_t (*)(ov_string_t, ov_parse_error_handler_t, void *);
using Save = ov_status_t (*)(ov_domain_t, ov_string_t);

inline int run(const std::uint8_t *data, std::size_t size, Parse parse, ParseFile parse_file, Save save) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  ov_domain_t domain = parse(text.c_str(), handler, nullptr);
  if (domain == nullptr) {
    check(ov_error_code() != ov_error_none, "a failed read records no error");
    return 0;
  }
  check(ov_error_code() == ov_error_none, "a read that succeeds records an error");
  const std::uint32_t count = count_nodes(domain);
  check(count > 0, "a network without nodes reads");
  static const std::string file = "/tmp/orvel_fuzz_exchange_" + std::to_string(getpid());
  const ov_status_t written = save(domain, file.c_str());
  check(written == ov_error_none || ov_error_code() == ov_error_format, "the writer fails with another code");
  if (written == ov_error_none) {
    ov_domain_t again = parse_file(file.c_str(), nullptr, nullptr);
    check(again != nullptr, "a written network does not read back");
    check(count_nodes(again) == count, "a written network reads back with another node count");
    ov_domain_delete(again);
  }
  ov_domain_delete(domain);
  return 0;
}

} // namespace fuzz_exchange
