// Fuzz target: the NET parser over strings and streams, in both grammars.
//
// The first byte chooses the source: even for a string, odd for a stream.
// Besides the sanitizers, the target aborts on success with an error
// recorded, on failure with none, on a message longer than its buffer and on
// a domain whose node count disagrees with its list.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "io/scanner.h"
#include "model/domain.h"
#include "orvel.h"

namespace {

void check(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "oracle failed: %s\n", what);
  std::abort();
}

void handler(std::uint32_t, ov_string_t message) {
  check(message != nullptr && std::strlen(message) < orvel::message_capacity, "bad message");
}

void examine(ov_domain_t domain) {
  if (domain == nullptr) {
    check(ov_error_code() != ov_error_none, "failure without a code");
    return;
  }
  check(ov_error_code() == ov_error_none, "success with a code");
  std::uint32_t count = 0;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) {
    ++count;
    check(ov_node_get_name(n) != nullptr, "unnamed node");
  }
  check(count == domain->node_count(), "node list and count disagree");
  ov_domain_delete(domain);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  if ((data[0] & 1u) == 0) {
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    examine(ov_net_parse_from_string(text.c_str(), handler));
    return 0;
  }
  if (size == 1) return 0;
  std::FILE *file = fmemopen(const_cast<std::uint8_t *>(data + 1), size - 1, "rb");
  if (file == nullptr) return 0;
  examine(ov_net_parse(file, handler));
  std::fclose(file);
  return 0;
}
