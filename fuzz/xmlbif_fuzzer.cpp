// Fuzz target: the XMLBIF reader on text, then writing what it read and
// reading that back (exchange_fuzz.h).
#include "exchange_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  return fuzz_exchange::run(data, size, ov_xmlbif_parse_from_string, ov_xmlbif_parse_domain, ov_domain_save_as_xmlbif);
}
