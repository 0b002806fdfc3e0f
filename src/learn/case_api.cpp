// Exported calls of case storage.
#include "api/boundary.h"
#include "inference/propagation.h"
#include "learn/cases.h"

using namespace orvel;

namespace {

bool is_case_node(const ov_node_s *node) noexcept { return node != nullptr && takes_evidence(node); }
bool valid_case(const ov_domain_s *domain, ov_index_t index) noexcept {
  return index >= 0 && static_cast<std::uint64_t>(index) < domain->case_count;
}
bool valid_case(const ov_node_s *node, ov_index_t index) noexcept {
  return is_case_node(node) && valid_case(node->home, index);
}
std::uint32_t as_case(ov_index_t index) noexcept { return static_cast<std::uint32_t>(index); }

} // namespace

extern "C" {

ov_status_t ov_domain_set_number_of_cases(ov_domain_t domain, ov_count_t count) {
  if (check_usage(domain == nullptr || count < 0 || count > UINT32_MAX)) return ov_error_usage;
  return guarded_status([&] { return domain_set_number_of_cases(domain, static_cast<std::uint32_t>(count)); });
}

ov_index_t ov_domain_new_case(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  const std::uint32_t index = domain->case_count;
  if (index == UINT32_MAX) return index; // saturated: the count stays
  if (guarded_status([&] { return domain_set_number_of_cases(domain, index + 1); }) != ov_error_none) return -1;
  return index;
}

ov_count_t ov_domain_get_number_of_cases(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return domain->case_count;
}

ov_status_t ov_domain_set_case_count(ov_domain_t domain, ov_index_t index, ov_number_t count) {
  if (check_usage(domain == nullptr || !valid_case(domain, index) || !(count >= 0.0f))) return ov_error_usage;
  return guarded_status([&] { return domain_set_case_count(domain, as_case(index), count); });
}

ov_number_t ov_domain_get_case_count(ov_domain_t domain, ov_index_t index) {
  if (check_usage(domain == nullptr || !valid_case(domain, index))) return -1.0f;
  return domain_case_count(domain, as_case(index));
}

ov_status_t ov_node_set_case_state(ov_node_t node, ov_index_t index, ov_index_t state) {
  if (check_usage(!valid_case(node, index) || !node->is_discrete() || state < 0 ||
                  static_cast<std::uint64_t>(state) >= node->state_count))
    return ov_error_usage;
  return guarded_status([&] { return node_set_case_state(node, as_case(index), static_cast<std::uint32_t>(state)); });
}

ov_status_t ov_node_set_case_value(ov_node_t node, ov_index_t index, ov_double_t value) {
  if (check_usage(!valid_case(node, index) || node->is_discrete())) return ov_error_usage;
  return guarded_status([&] { return node_set_case_value(node, as_case(index), value); });
}

ov_status_t ov_node_unset_case(ov_node_t node, ov_index_t index) {
  if (check_usage(!valid_case(node, index))) return ov_error_usage;
  node_unset_case(node, as_case(index));
  return ov_error_none;
}

ov_index_t ov_node_get_case_state(ov_node_t node, ov_index_t index) {
  if (check_usage(!valid_case(node, index) || !node->is_discrete())) return -1;
  const std::int32_t state = node_case_state(node, as_case(index));
  if (state < 0) return fail(ov_error_no_value), -1;
  return state;
}

ov_double_t ov_node_get_case_value(ov_node_t node, ov_index_t index) {
  if (check_usage(!valid_case(node, index) || node->is_discrete())) return -1.0;
  if (!node_case_value_set(node, as_case(index))) return fail(ov_error_no_value), -1.0;
  return node->case_values[as_case(index)];
}

int ov_node_case_is_set(ov_node_t node, ov_index_t index) {
  if (check_usage(!valid_case(node, index))) return -1;
  return node_case_is_set(node, as_case(index)) ? 1 : 0;
}

ov_status_t ov_domain_enter_case(ov_domain_t domain, ov_index_t index) {
  if (check_usage(domain == nullptr || domain->is_class() || !valid_case(domain, index))) return ov_error_usage;
  return guarded_status([&] { return domain_enter_case(domain, as_case(index)); });
}

} // extern "C"
