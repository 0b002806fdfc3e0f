// Exported calls that save and load KB files.
#include "api/boundary.h"
#include "io/kb_files.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_status_t ov_domain_save_as_kb(ov_domain_t domain, ov_string_t file_name, ov_string_t password) {
  if (check_usage(domain == nullptr || file_name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return kb_save_file(domain, file_name, password, kb_little_endian); });
}

ov_status_t ov_domain_save(ov_domain_t domain, ov_string_t file_name, int byte_order) {
  if (check_usage(domain == nullptr || byte_order < 0 || byte_order > 2 ||
                  (file_name == nullptr && !domain->file_name)))
    return ov_error_usage;
  return guarded_status([&] {
    const std::string name = file_name != nullptr ? std::string(file_name) : *domain->file_name;
    return kb_save_file(domain, name.c_str(), nullptr, byte_order == 0 ? kb_little_endian : byte_order);
  });
}

ov_domain_t ov_kb_load_domain(ov_string_t file_name, ov_string_t password) {
  if (check_usage(file_name == nullptr)) return nullptr;
  return guarded<ov_domain_t>(nullptr, [&] { return kb_load_file(file_name, password); });
}

ov_domain_t ov_load_domain(ov_string_t file_name) { return ov_kb_load_domain(file_name, nullptr); }

} // extern "C"
