// Fuzz target: the BIF reader on text, then writing what it read and
// reading that back (exchange_fuzz.h).
#include "exchange_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  return fuzz_exchange::run(data, size, ov_bif_parse_from_string, ov_bif_parse_domain, ov_domain_save_as_bif);
}
