// Exported calls on class collections, classes, instances and bindings.
#include "api/boundary.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/node.h"
#include "oo/class.h"

using namespace orvel;

namespace {

bool is_instance(const ov_node_s *node) noexcept {
  return node != nullptr && node->category == ov_category_instance && node->instance_class != nullptr;
}

} // namespace

extern "C" {

// ---------------------------------------------------------------- collections

ov_class_collection_t ov_new_class_collection(void) {
  set_error(ov_error_none);
  return guarded<ov_class_collection_t>(nullptr, [] { return new ov_class_collection_s; });
}

ov_class_t ov_cc_new_class(ov_class_collection_t collection) {
  if (check_usage(collection == nullptr)) return nullptr;
  return guarded<ov_class_t>(nullptr, [&] { return as_class(cc_new_class(collection)); });
}

ov_status_t ov_cc_add_domain(ov_class_collection_t collection, ov_domain_t domain) {
  if (check_usage(collection == nullptr || domain == nullptr || domain->is_class() ||
                  domain_has_chain_components(domain)))
    return ov_error_usage;
  return guarded_status([&] { return cc_add_domain(collection, domain); });
}

ov_status_t ov_cc_delete(ov_class_collection_t collection) {
  if (check_usage(collection == nullptr)) return ov_error_usage;
  delete collection;
  return ov_error_none;
}

ov_class_t *ov_cc_get_members(ov_class_collection_t collection) {
  if (check_usage(collection == nullptr)) return nullptr;
  return collection->members.data();
}

ov_class_t ov_cc_get_class_by_name(ov_class_collection_t collection, ov_string_t name) {
  if (check_usage(collection == nullptr || name == nullptr)) return nullptr;
  return as_class(cc_find_class(collection, name));
}

ov_status_t ov_cc_set_user_data(ov_class_collection_t collection, void *data) {
  if (check_usage(collection == nullptr)) return ov_error_usage;
  collection->user_data = data;
  return ov_error_none;
}

void *ov_cc_get_user_data(ov_class_collection_t collection) {
  if (check_usage(collection == nullptr)) return nullptr;
  return collection->user_data;
}

// ---------------------------------------------------------------- classes

ov_status_t ov_class_delete(ov_class_t cls) {
  Domain *domain = class_of(cls);
  if (check_usage(domain == nullptr || !domain->class_info.instances.empty())) return ov_error_usage;
  class_delete(domain);
  return ov_error_none;
}

ov_domain_t ov_class_create_domain(ov_class_t cls) {
  Domain *domain = class_of(cls);
  if (check_usage(domain == nullptr)) return nullptr;
  return guarded<ov_domain_t>(nullptr, [&] { return class_create_domain(domain); });
}

ov_class_collection_t ov_class_get_class_collection(ov_class_t cls) {
  Domain *domain = class_of(cls);
  if (check_usage(domain == nullptr)) return nullptr;
  return domain->class_info.collection;
}

ov_string_t ov_class_get_name(ov_class_t cls) {
  Domain *domain = class_of(cls);
  if (check_usage(domain == nullptr)) return nullptr;
  return guarded<ov_string_t>(nullptr, [&] { return class_get_name(domain); });
}

ov_status_t ov_class_set_name(ov_class_t cls, ov_string_t name) {
  Domain *domain = class_of(cls);
  if (check_usage(domain == nullptr || name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return class_set_name(domain, name); });
}

ov_node_t *ov_class_get_inputs(ov_class_t cls) {
  Domain *domain = class_of(cls);
  if (check_usage(domain == nullptr)) return nullptr;
  return domain->class_info.inputs.data();
}

ov_node_t *ov_class_get_outputs(ov_class_t cls) {
  Domain *domain = class_of(cls);
  if (check_usage(domain == nullptr)) return nullptr;
  return domain->class_info.outputs.data();
}

ov_node_t *ov_class_get_instances(ov_class_t cls) {
  Domain *domain = class_of(cls);
  if (check_usage(domain == nullptr)) return nullptr;
  return domain->class_info.instances.data();
}

ov_node_t ov_class_new_instance(ov_class_t container, ov_class_t cls) {
  Domain *outer = class_of(container);
  Domain *inner = class_of(cls);
  if (check_usage(outer == nullptr || inner == nullptr || outer->class_info.collection != inner->class_info.collection))
    return nullptr;
  return guarded<ov_node_t>(nullptr, [&] { return class_new_instance(outer, inner); });
}

// ---------------------------------------------------------------- interface

ov_status_t ov_node_add_to_inputs(ov_node_t node) {
  if (check_usage(node == nullptr || !can_be_input(node))) return ov_error_usage;
  return guarded_status([&] { return node_add_to_inputs(node); });
}

ov_status_t ov_node_add_to_outputs(ov_node_t node) {
  if (check_usage(node == nullptr || !can_be_output(node))) return ov_error_usage;
  return guarded_status([&] { return node_add_to_outputs(node); });
}

ov_status_t ov_node_remove_from_inputs(ov_node_t node) {
  if (check_usage(node == nullptr || !node->home->class_info.inputs.contains(node))) return ov_error_usage;
  return guarded_status([&] { return node_remove_from_inputs(node); });
}

ov_status_t ov_node_remove_from_outputs(ov_node_t node) {
  if (check_usage(node == nullptr || !node->home->class_info.outputs.contains(node))) return ov_error_usage;
  return guarded_status([&] { return node_remove_from_outputs(node); });
}

// ---------------------------------------------------------------- instances

ov_class_t ov_node_get_instance_class(ov_node_t node) {
  if (check_usage(!is_instance(node))) return nullptr;
  return as_class(node->instance_class);
}

ov_node_t ov_node_get_input(ov_node_t instance, ov_node_t input) {
  if (check_usage(!is_instance(instance) || input_position(instance, input) < 0)) return nullptr;
  return instance_input(instance, static_cast<std::uint32_t>(input_position(instance, input)));
}

ov_status_t ov_node_set_input(ov_node_t instance, ov_node_t input, ov_node_t actual) {
  if (check_usage(!is_instance(instance) || actual == nullptr || actual->home != instance->home ||
                  input_position(instance, input) < 0 || input->category != actual->category ||
                  input->kind != actual->kind))
    return ov_error_usage;
  return guarded_status([&] {
    instance_bind_input(instance, static_cast<std::uint32_t>(input_position(instance, input)), actual);
    return ov_error_none;
  });
}

ov_status_t ov_node_unset_input(ov_node_t instance, ov_node_t input) {
  if (check_usage(!is_instance(instance) || input_position(instance, input) < 0)) return ov_error_usage;
  instance_unbind_input(instance, static_cast<std::uint32_t>(input_position(instance, input)));
  return ov_error_none;
}

ov_node_t ov_node_get_output(ov_node_t instance, ov_node_t output) {
  if (check_usage(!is_instance(instance) || output_position(instance, output) < 0)) return nullptr;
  return instance->output_clones[static_cast<std::uint32_t>(output_position(instance, output))];
}

ov_status_t ov_node_substitute_class(ov_node_t instance, ov_class_t cls) {
  Domain *domain = class_of(cls);
  if (check_usage(!is_instance(instance) || domain == nullptr ||
                  domain->class_info.collection != instance->instance_class->class_info.collection))
    return ov_error_usage;
  return guarded_status([&] { return node_substitute_class(instance, domain); });
}

} // extern "C"
