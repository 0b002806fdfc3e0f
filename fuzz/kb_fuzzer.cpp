// Fuzz target: the KB reader over the decompressed bytes of a file, and what
// a loaded domain goes through next: writing it again and reading that
// back, and propagating a compiled one.
//
// Besides the sanitizers, the target aborts on success with an error
// recorded, on a failure with a code that damaged data cannot give, and on
// a loaded domain whose bytes do not read back to the same bytes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "io/kb_files.h"
#include "orvel.h"

namespace {

void check(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "oracle failed: %s\n", what);
  std::abort();
}

bool expected_failure(ov_error_t code) {
  switch (code) {
  case ov_error_bad_file:
  case ov_error_bad_version:
  case ov_error_format:
  case ov_error_io:
  case ov_error_no_memory:
  case ov_error_compressed:
  case ov_error_invalid_password:
  // The code of a node of a category and kind that cannot be made.
  case ov_error_cg_influence_diagrams_not_supported: return true;
  default: return false;
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov_domain_t domain = orvel::kb_read_bytes(data, size, "fuzz");
  if (domain == nullptr) {
    check(expected_failure(ov_error_code()), "unexpected failure code");
    return 0;
  }
  check(ov_error_code() == ov_error_none, "success with an error recorded");
  std::vector<std::uint8_t> first, second;
  check(orvel::kb_write_bytes(domain, nullptr, 2, first) == ov_error_none, "a loaded domain does not write");
  ov_domain_t again = orvel::kb_read_bytes(first.data(), first.size(), nullptr);
  check(again != nullptr, "written bytes do not read back");
  check(orvel::kb_write_bytes(again, nullptr, 2, second) == ov_error_none && first == second,
        "written bytes read back differently");
  if (ov_domain_is_compiled(domain) == 1) ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal);
  ov_domain_delete(again);
  ov_domain_delete(domain);
  return 0;
}
