// Exported calls on attributes of domains, classes and nodes.
#include "api/boundary.h"
#include "model/attribute.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_status_t ov_domain_set_attribute(ov_domain_t domain, ov_string_t key, ov_string_t value) {
  if (check_usage(domain == nullptr || key == nullptr)) return ov_error_usage;
  return guarded_status([&] { return attribute_set(domain->attributes, key, value, true); });
}

ov_string_t ov_domain_get_attribute(ov_domain_t domain, ov_string_t key) {
  if (check_usage(domain == nullptr || key == nullptr)) return nullptr;
  return attribute_get(domain->attributes, key);
}

ov_attribute_t ov_domain_get_first_attribute(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return nullptr;
  return domain->attributes.first.get();
}

// A class shares the domain record, so its attributes are the domain's.

ov_status_t ov_class_set_attribute(ov_class_t c, ov_string_t key, ov_string_t value) {
  return ov_domain_set_attribute(as_domain(c), key, value);
}

ov_string_t ov_class_get_attribute(ov_class_t c, ov_string_t key) { return ov_domain_get_attribute(as_domain(c), key); }

ov_attribute_t ov_class_get_first_attribute(ov_class_t c) { return ov_domain_get_first_attribute(as_domain(c)); }

ov_status_t ov_node_set_attribute(ov_node_t node, ov_string_t key, ov_string_t value) {
  if (check_usage(node == nullptr || key == nullptr)) return ov_error_usage;
  return guarded_status([&] { return attribute_set(node->attributes, key, value, true); });
}

ov_string_t ov_node_get_attribute(ov_node_t node, ov_string_t key) {
  if (check_usage(node == nullptr || key == nullptr)) return nullptr;
  return attribute_get(node->attributes, key);
}

ov_attribute_t ov_node_get_first_attribute(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  return node->attributes.first.get();
}

ov_string_t ov_attribute_get_key(ov_attribute_t attribute) {
  if (check_usage(attribute == nullptr)) return nullptr;
  return attribute->key.c_str();
}

ov_string_t ov_attribute_get_value(ov_attribute_t attribute) {
  if (check_usage(attribute == nullptr)) return nullptr;
  return attribute->value.c_str();
}

ov_attribute_t ov_attribute_get_next(ov_attribute_t attribute) {
  if (check_usage(attribute == nullptr)) return nullptr;
  return attribute->next.get();
}

} // extern "C"
