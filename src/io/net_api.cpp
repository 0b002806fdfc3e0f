// Exported calls that read and write NET files, NET text and node-list
// files.
#include "api/boundary.h"
#include "io/net_files.h"
#include "model/domain.h"
#include "oo/class.h"

using namespace orvel;

extern "C" {

ov_domain_t ov_net_parse_domain(ov_string_t file_name, ov_parse_error_handler_t handler, void *data) {
  if (check_usage(file_name == nullptr)) return nullptr;
  return net_parse_domain_file(file_name, handler, data);
}

ov_domain_t ov_net_parse(FILE *file, ov_simple_error_handler_t handler) {
  if (check_usage(file == nullptr)) return nullptr;
  return net_parse_simple_source(file, nullptr, handler);
}

ov_domain_t ov_net_parse_from_string(ov_string_t text, ov_simple_error_handler_t handler) {
  if (check_usage(text == nullptr)) return nullptr;
  return net_parse_simple_source(nullptr, text, handler);
}

ov_status_t ov_net_parse_classes(ov_string_t file_name, ov_class_collection_t collection, ov_class_loader_t loader,
                                 ov_parse_error_handler_t handler, void *data) {
  if (check_usage(file_name == nullptr || collection == nullptr)) return ov_error_usage;
  return guarded_status([&] { return net_parse_class_file(file_name, collection, loader, handler, data); });
}

ov_node_t *ov_domain_parse_nodes(ov_domain_t domain, ov_string_t file_name, ov_parse_error_handler_t handler,
                                 void *data) {
  if (check_usage(domain == nullptr || file_name == nullptr)) return nullptr;
  return guarded<ov_node_t *>(nullptr, [&] { return net_parse_node_file(domain, file_name, handler, data); });
}

ov_node_t *ov_class_parse_nodes(ov_class_t cls, ov_string_t file_name, ov_parse_error_handler_t handler, void *data) {
  if (check_usage(class_of(cls) == nullptr || file_name == nullptr)) return nullptr;
  return guarded<ov_node_t *>(nullptr, [&] { return net_parse_node_file(class_of(cls), file_name, handler, data); });
}

ov_status_t ov_domain_write_net(ov_domain_t domain, FILE *stream) {
  if (check_usage(domain == nullptr || stream == nullptr)) return ov_error_usage;
  return guarded_status([&] { return net_write_stream(domain, stream); });
}

ov_status_t ov_domain_save_as_net(ov_domain_t domain, ov_string_t file_name) {
  if (check_usage(domain == nullptr || file_name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return net_save_file(domain, file_name); });
}

ov_status_t ov_class_save_as_net(ov_class_t cls, ov_string_t file_name) {
  return ov_domain_save_as_net(as_domain(cls), file_name);
}

ov_status_t ov_cc_save_as_net(ov_class_collection_t collection, ov_string_t file_name) {
  if (check_usage(collection == nullptr || file_name == nullptr || collection->count() == 0)) return ov_error_usage;
  return guarded_status([&] { return net_save_collection_file(collection, file_name); });
}

} // extern "C"
