// Case storage.
#include "learn/cases.h"

#include <algorithm>

#include "api/error.h"

#include "inference/evidence.h"
#include "inference/propagation.h"

namespace orvel {

namespace {

// Resizes every per-case array that exists to `capacity`, filling new
// entries as absent (count 1). On failure every array goes back to `old`
// entries and the failure propagates.
void resize_all(Domain *domain, std::uint32_t capacity, std::uint32_t old) {
  std::size_t done = 0;
  bool weights_done = false;
  try {
    if (!domain->case_weights.empty()) {
      domain->case_weights.resize(capacity, 1.0f);
      weights_done = true;
    }
    for (auto &node : domain->nodes) {
      if (!node->case_states.empty()) node->case_states.resize(capacity, -1);
      if (!node->case_value_is_set.empty()) {
        node->case_values.resize(capacity);
        node->case_value_is_set.resize(capacity, 0);
      }
      ++done;
    }
  } catch (...) {
    if (weights_done) domain->case_weights.resize(old);
    for (std::size_t i = 0; i <= done && i < domain->nodes.size(); ++i) {
      auto &node = domain->nodes[i];
      if (!node->case_states.empty()) node->case_states.resize(old);
      if (!node->case_value_is_set.empty()) {
        node->case_values.resize(old);
        node->case_value_is_set.resize(old);
      }
    }
    throw;
  }
}

template <class T> void shrink(std::vector<T> &array, std::uint32_t size) noexcept {
  if (array.empty()) return;
  try {
    std::vector<T> smaller(array.begin(), array.begin() + size);
    array.swap(smaller);
  } catch (...) { // a failed shrink leaves the array as it was
  }
}

bool is_case_node(const Node *node) noexcept { return takes_evidence(node); }

} // namespace

ov_status_t domain_set_number_of_cases(Domain *domain, std::uint32_t count) {
  const std::uint32_t capacity = domain->case_capacity, used = domain->case_count;
  if (count > capacity) {
    const std::uint32_t step = capacity / 8 + 32;
    std::uint32_t grown = count;
    if (count - capacity < step) grown = capacity > UINT32_MAX - step ? UINT32_MAX : capacity + step;
    if (capacity != 0) resize_all(domain, grown, capacity);
    domain->case_count = count;
    domain->case_capacity = grown;
    return ov_error_none;
  }
  if (count >= used) {
    domain->case_count = count;
    return ov_error_none;
  }
  if (count == 0) {
    domain->case_weights = {};
    for (auto &node : domain->nodes) {
      node->case_states = {};
      node->case_values = {};
      node->case_value_is_set = {};
    }
    domain->case_capacity = 0;
  } else if (capacity - count < capacity / 4 + 64) {
    if (!domain->case_weights.empty())
      std::fill(domain->case_weights.begin() + count, domain->case_weights.begin() + used, 1.0f);
    for (auto &node : domain->nodes) {
      if (!node->case_states.empty())
        std::fill(node->case_states.begin() + count, node->case_states.begin() + used, std::int16_t{-1});
      if (!node->case_value_is_set.empty())
        std::fill(node->case_value_is_set.begin() + count, node->case_value_is_set.begin() + used, 0);
    }
  } else {
    shrink(domain->case_weights, count);
    for (auto &node : domain->nodes) {
      shrink(node->case_states, count);
      shrink(node->case_values, count);
      shrink(node->case_value_is_set, count);
    }
    domain->case_capacity = count;
  }
  domain->learning.log_likelihood_valid = 0;
  domain->case_count = count;
  return ov_error_none;
}

ov_status_t domain_set_case_count(Domain *domain, std::uint32_t index, ov_number_t count) {
  if (domain->case_weights.empty()) {
    if (count == 1.0f) return ov_error_none;
    domain->case_weights.assign(domain->case_capacity, 1.0f);
  }
  domain->case_weights[index] = count;
  domain->learning.log_likelihood_valid = 0;
  return ov_error_none;
}

ov_status_t node_set_case_state(Node *node, std::uint32_t index, std::uint32_t state) {
  if (state > 32767) return fail(ov_error_case_state_too_large);
  if (node->case_states.empty()) node->case_states.assign(node->home->case_capacity, -1);
  node->case_states[index] = static_cast<std::int16_t>(state);
  node->home->learning.log_likelihood_valid = 0;
  return ov_error_none;
}

ov_status_t node_set_case_value(Node *node, std::uint32_t index, double value) {
  if (node->case_value_is_set.empty()) {
    const std::uint32_t capacity = node->home->case_capacity;
    node->case_values.resize(capacity);
    try {
      node->case_value_is_set.assign(capacity, 0);
    } catch (...) {
      node->case_values = {};
      throw;
    }
  }
  node->case_values[index] = value;
  node->case_value_is_set[index] = 1;
  node->home->learning.log_likelihood_valid = 0;
  return ov_error_none;
}

void node_unset_case(Node *node, std::uint32_t index) noexcept {
  if (!node->case_states.empty()) node->case_states[index] = -1;
  if (!node->case_value_is_set.empty()) node->case_value_is_set[index] = 0;
  node->home->learning.log_likelihood_valid = 0;
}

bool node_case_is_set(const Node *node, std::uint32_t index) noexcept {
  return node->is_discrete() ? node_case_state(node, index) >= 0 : node_case_value_set(node, index);
}

ov_status_t domain_enter_case(Domain *domain, std::uint32_t index) {
  if (domain->chance_count == 0 && domain->decision_count == 0) return ov_error_none;
  bool value_refused = false;
  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node)) {
    if (!is_case_node(node)) continue;
    ov_status_t status = ov_error_none;
    if (!node_case_is_set(node, index)) {
      status = node_retract_findings(node);
    } else if (!node->is_discrete()) {
      // A value the engine cannot take does not stop the case.
      value_refused |= node_enter_value(node, node->case_values[index]) != ov_error_none;
    } else {
      status = node_select_state(node, static_cast<std::uint32_t>(node_case_state(node, index)));
    }
    if (status != ov_error_none) return status;
  }
  return value_refused ? fail(ov_error_none) : ov_error_none;
}

} // namespace orvel
