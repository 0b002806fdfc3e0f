// Case storage: numbered records of observed states and values of a
// domain's chance and decision nodes, each with a weight (its count).
#pragma once

#include <cstdint>

#include "model/domain.h"

namespace orvel {

// Sets the number of cases. Growing over-allocates by an eighth (plus 32)
// and shrinking a little keeps the memory, so that repeated small changes
// do not reallocate; new cases are absent everywhere with count 1.
ov_status_t domain_set_number_of_cases(Domain *domain, std::uint32_t count);
// Stores a count; a count of 1 on a domain without counts allocates nothing.
ov_status_t domain_set_case_count(Domain *domain, std::uint32_t index, ov_number_t count);
inline ov_number_t domain_case_count(const Domain *domain, std::uint32_t index) noexcept {
  return domain->case_weights.empty() ? 1.0f : domain->case_weights[index];
}

ov_status_t node_set_case_state(Node *node, std::uint32_t index, std::uint32_t state);
ov_status_t node_set_case_value(Node *node, std::uint32_t index, double value);
void node_unset_case(Node *node, std::uint32_t index) noexcept;
// The state of a case, or -1 when absent (also an index at or above the
// node's state count, which can shrink after the case was stored).
inline std::int32_t node_case_state(const Node *node, std::uint32_t index) noexcept {
  if (node->case_states.empty()) return -1;
  std::int32_t state = node->case_states[index];
  return static_cast<std::uint32_t>(state) < node->state_count ? state : -1;
}
inline bool node_case_value_set(const Node *node, std::uint32_t index) noexcept {
  return !node->case_value_is_set.empty() && node->case_value_is_set[index] != 0;
}
bool node_case_is_set(const Node *node, std::uint32_t index) noexcept;

// Enters a case as the evidence: a node with no value in the case has its
// findings retracted. Stops at the first failing node.
ov_status_t domain_enter_case(Domain *domain, std::uint32_t index);

} // namespace orvel
