// Exported calls on domains.
#include "api/boundary.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_domain_t ov_new_domain(void) {
  set_error(ov_error_none);
  return guarded<ov_domain_t>(nullptr, [] { return new ov_domain_s; });
}

ov_status_t ov_domain_delete(ov_domain_t domain) {
  // A class goes through its collection (ov_class_delete), which keeps the
  // member list and the instances in order.
  if (check_usage(domain == nullptr || domain->is_class())) return ov_error_usage;
  domain_delete(domain);
  return ov_error_none;
}

ov_status_t ov_domain_uncompile(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  domain_uncompile(domain);
  return ov_error_none;
}

int ov_domain_is_compiled(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return domain_is_compiled(domain);
}

int ov_domain_is_compressed(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return forest_is_compressed(domain);
}

int ov_domain_is_triangulated(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return domain_is_triangulated(domain);
}

ov_node_t ov_domain_get_first_node(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return nullptr;
  return domain->first_node();
}

ov_node_t ov_domain_get_node_by_name(ov_domain_t domain, ov_string_t name) {
  if (check_usage(domain == nullptr || name == nullptr)) return nullptr;
  return guarded<ov_node_t>(nullptr, [&] {
    ov_node_t node = domain_find_node(domain, name);
    set_error(ov_error_none);
    return node;
  });
}

ov_status_t ov_domain_set_user_data(ov_domain_t domain, void *data) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  domain->user_data = data;
  return ov_error_none;
}

void *ov_domain_get_user_data(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return nullptr;
  return domain->user_data;
}

ov_string_t ov_domain_get_file_name(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return nullptr;
  return domain->file_name ? domain->file_name->c_str() : nullptr;
}

ov_string_t ov_domain_get_filename(ov_domain_t domain) { return ov_domain_get_file_name(domain); }

ov_status_t ov_domain_set_node_size(ov_domain_t domain, int width, int height) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  domain->node_width = width;
  domain->node_height = height;
  return ov_error_none;
}

ov_status_t ov_domain_get_node_size(ov_domain_t domain, int *width, int *height) {
  if (check_usage(domain == nullptr || width == nullptr || height == nullptr || width == height)) return ov_error_usage;
  *width = domain->node_width;
  *height = domain->node_height;
  return ov_error_none;
}

ov_status_t ov_domain_set_grain_size(ov_domain_t domain, uint32_t size) {
  if (check_usage(domain == nullptr || size == 0)) return ov_error_usage;
  domain->grain_size = size;
  return ov_error_none;
}

ov_count_t ov_domain_get_grain_size(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return domain->grain_size;
}

ov_status_t ov_domain_set_concurrency_level(ov_domain_t domain, uint32_t level) {
  if (check_usage(domain == nullptr || level == 0)) return ov_error_usage;
  domain->concurrency_level = level;
  return ov_error_none;
}

ov_count_t ov_domain_get_concurrency_level(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return domain->concurrency_level;
}

ov_status_t ov_domain_set_significance_level(ov_domain_t domain, ov_double_t level) {
  if (check_usage(domain == nullptr || !(level > 0.0 && level < 1.0))) return ov_error_usage;
  domain->learning.significance_level = level;
  return ov_error_none;
}

ov_double_t ov_domain_get_significance_level(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  return domain->learning.significance_level;
}

ov_status_t ov_domain_set_log_likelihood_tolerance(ov_domain_t domain, ov_double_t tolerance) {
  if (check_usage(domain == nullptr || !(tolerance >= 0.0))) return ov_error_usage;
  domain->learning.log_likelihood_tolerance = tolerance;
  return ov_error_none;
}

ov_double_t ov_domain_get_log_likelihood_tolerance(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  return domain->learning.log_likelihood_tolerance;
}

ov_status_t ov_domain_set_max_number_of_em_iterations(ov_domain_t domain, uint32_t count) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  domain->learning.max_em_iterations = count;
  return ov_error_none;
}

ov_count_t ov_domain_get_max_number_of_em_iterations(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return domain->learning.max_em_iterations;
}

ov_status_t ov_domain_set_log_file(ov_domain_t domain, FILE *log) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  domain->log_file = log;
  return ov_error_none;
}

ov_status_t ov_domain_reclaim_memory_tables(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  domain_reclaim_memory_tables(domain);
  return ov_error_none;
}

// A class is a domain record with its class fields set: these calls are the
// domain calls under the class's name.

ov_node_t ov_class_get_first_node(ov_class_t c) { return ov_domain_get_first_node(as_domain(c)); }

ov_node_t ov_class_get_node_by_name(ov_class_t c, ov_string_t name) {
  return ov_domain_get_node_by_name(as_domain(c), name);
}

ov_string_t ov_class_get_file_name(ov_class_t c) { return ov_domain_get_file_name(as_domain(c)); }

ov_status_t ov_class_set_node_size(ov_class_t c, int width, int height) {
  return ov_domain_set_node_size(as_domain(c), width, height);
}

ov_status_t ov_class_get_node_size(ov_class_t c, int *width, int *height) {
  return ov_domain_get_node_size(as_domain(c), width, height);
}

ov_status_t ov_class_set_log_file(ov_class_t c, FILE *log) { return ov_domain_set_log_file(as_domain(c), log); }

} // extern "C"
