// Exported calls of structure learning.
#include "api/boundary.h"
#include "learn/structure.h"

using namespace orvel;

namespace {

// Only discrete chance nodes without parents, and no chain components.
bool learnable(const ov_domain_s *domain) noexcept {
  if (domain->is_class() || !domain->chain_components.empty()) return false;
  for (const auto &node : domain->nodes)
    if (node->category != ov_category_chance || !node->is_discrete() || !node->parents.empty()) return false;
  return true;
}

} // namespace

extern "C" {

ov_status_t ov_domain_learn_structure(ov_domain_t domain) {
  if (check_usage(domain == nullptr || !learnable(domain))) return ov_error_usage;
  return guarded_status([&] { return domain_learn_structure(domain); });
}

ov_double_t ov_node_get_data_independency(ov_node_t a, ov_node_t b) {
  if (check_usage(a == nullptr || b == nullptr || a == b || a->home != b->home || a->home->structure_data.empty() ||
                  pair_index(a, b) >= a->home->structure_data.size()))
    return -1.0;
  return data_independency(a->home, a, b);
}

} // extern "C"
