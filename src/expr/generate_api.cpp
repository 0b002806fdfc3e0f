// Exported calls of table generation.
#include "api/boundary.h"
#include "expr/generate.h"
#include "expr/model.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_status_t ov_node_generate_table(ov_node_t node) {
  if (check_usage(node == nullptr || !node->model)) return ov_error_usage;
  return generate_node_table(node);
}

ov_status_t ov_domain_generate_tables(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  return generate_domain_tables(domain);
}

ov_status_t ov_class_generate_tables(ov_class_t c) {
  if (check_usage(c == nullptr)) return ov_error_usage;
  return generate_domain_tables(as_domain(c));
}

} // extern "C"
