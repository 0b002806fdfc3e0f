// Exported calls of sequential adaptation and its tables.
#include "api/boundary.h"
#include "learn/adapt.h"
#include "table/table.h"

using namespace orvel;

namespace {

bool learns(const ov_node_s *node) noexcept {
  return node != nullptr && node->category == ov_category_chance && node->is_discrete();
}
bool is_output_clone(const ov_node_s *node) noexcept { return node->master != nullptr && node->instance != nullptr; }

} // namespace

extern "C" {

ov_table_t ov_node_get_experience_table(ov_node_t node) {
  if (check_usage(!learns(node) || is_output_clone(node))) return nullptr;
  return guarded<ov_table_t>(nullptr, [&] { return node_learning_table(node, ov_table_kind_experience); });
}

int ov_node_has_experience_table(ov_node_t node) {
  if (check_usage(!learns(node))) return -1;
  return node->experience_table != nullptr ? 1 : 0;
}

ov_table_t ov_node_get_fading_table(ov_node_t node) {
  if (check_usage(!learns(node) || is_output_clone(node))) return nullptr;
  return guarded<ov_table_t>(nullptr, [&] { return node_learning_table(node, ov_table_kind_fading); });
}

int ov_node_has_fading_table(ov_node_t node) {
  if (check_usage(!learns(node))) return -1;
  return node->fading_table != nullptr ? 1 : 0;
}

ov_status_t ov_domain_adapt(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  return guarded_status([&] { return domain_adapt(domain); });
}

} // extern "C"
