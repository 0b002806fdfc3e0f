// Exported calls that read and write BIF files.
#include "api/boundary.h"
#include "io/bif.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_domain_t ov_bif_parse_domain(ov_string_t file_name, ov_parse_error_handler_t handler, void *data) {
  if (check_usage(file_name == nullptr)) return nullptr;
  return bif_parse(file_name, nullptr, handler, data);
}

ov_domain_t ov_bif_parse_from_string(ov_string_t text, ov_parse_error_handler_t handler, void *data) {
  if (check_usage(text == nullptr)) return nullptr;
  return bif_parse(nullptr, text, handler, data);
}

ov_status_t ov_domain_save_as_bif(ov_domain_t domain, ov_string_t file_name) {
  if (check_usage(domain == nullptr || file_name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return bif_save_file(domain, file_name); });
}

} // extern "C"
