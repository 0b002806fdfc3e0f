// Exported calls that copy domains and nodes.
#include "api/boundary.h"
#include "model/domain.h"
#include "model/node.h"
#include "oo/clone.h"

using namespace orvel;

extern "C" {

ov_domain_t ov_domain_clone(ov_domain_t domain) {
  if (check_usage(domain == nullptr || domain->is_class())) return nullptr;
  return guarded<ov_domain_t>(nullptr, [&] { return domain_clone(domain); });
}

ov_node_t ov_node_clone(ov_node_t node) {
  if (check_usage(node == nullptr || node->category == ov_category_instance || node->master != nullptr)) return nullptr;
  return guarded<ov_node_t>(nullptr, [&] { return node_clone(node); });
}

} // extern "C"
