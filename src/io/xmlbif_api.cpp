// Exported calls that read and write XMLBIF files.
#include "api/boundary.h"
#include "io/xmlbif.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_domain_t ov_xmlbif_parse_domain(ov_string_t file_name, ov_parse_error_handler_t handler, void *data) {
  if (check_usage(file_name == nullptr)) return nullptr;
  return xmlbif_parse(file_name, nullptr, handler, data);
}

ov_domain_t ov_xmlbif_parse_from_string(ov_string_t text, ov_parse_error_handler_t handler, void *data) {
  if (check_usage(text == nullptr)) return nullptr;
  return xmlbif_parse(nullptr, text, handler, data);
}

ov_status_t ov_domain_save_as_xmlbif(ov_domain_t domain, ov_string_t file_name) {
  if (check_usage(domain == nullptr || file_name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return xmlbif_save_file(domain, file_name); });
}

} // extern "C"
