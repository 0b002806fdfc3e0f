// The states of a node: their labels and values, the look-ups by label and
// by value, and the subtype that says how the values are read.
#include <cfloat>
#include <cmath>
#include <cstring>

#include "model/node.h"

namespace orvel {
namespace {

bool is_finite_bound(double bound) noexcept { return std::isfinite(bound) && std::fabs(bound) != DBL_MAX; }

} // namespace

bool valid_value_index(const Node *node, std::int64_t state) noexcept {
  if (!is_state_node(node) || state < 0) return false;
  if (node->subtype == ov_subtype_number) return static_cast<std::uint64_t>(state) < node->state_count;
  if (node->subtype == ov_subtype_interval) return static_cast<std::uint64_t>(state) <= node->state_count;
  return false;
}

bool values_searchable(const Node *node) noexcept {
  return is_state_node(node) && node->state_values && node->state_values->size() > node->state_count &&
         (node->subtype == ov_subtype_number || (node->subtype == ov_subtype_interval && values_increase(node)));
}

void node_set_subtype(Node *node, ov_subtype_t subtype) noexcept {
  if (node->subtype == subtype) return;
  node->subtype = subtype;
  invalidate_dependants(node);
  refresh_clones(node);
}

ov_status_t node_set_state_label(Node *node, std::uint32_t state, const char *label) {
  if (std::strcmp(state_label(node, state), label) == 0) return ov_error_none;
  std::string copy(label);
  if (!node->state_labels) {
    node->state_labels = std::make_shared<StateLabels>(node->state_count);
    refresh_clones(node);
  } else if (node->state_labels->size() <= state) {
    node->state_labels->resize(node->state_count); // shared with the clones, which see it too
  }
  (*node->state_labels)[state] = std::move(copy);
  if (node->subtype == ov_subtype_label) invalidate_dependants(node);
  return ov_error_none;
}

std::int64_t node_state_from_label(const Node *node, const char *label) noexcept {
  std::int64_t found = -1;
  for (std::uint32_t i = 0; i < node->state_count; ++i) {
    if (std::strcmp(state_label(node, i), label) != 0) continue;
    if (found >= 0) return -1;
    found = i;
  }
  return found;
}

ov_status_t node_set_state_value(Node *node, std::uint32_t state, double value) {
  if (state_value(node, state) == value) return ov_error_none;
  if (!node->state_values) {
    auto values = std::make_shared<StateValues>(static_cast<std::size_t>(node->state_count) + 1, -1.0);
    if (node->subtype == ov_subtype_interval) {
      values->front() = -DBL_MAX;
      values->back() = DBL_MAX;
    }
    node->state_values = std::move(values);
    refresh_clones(node);
  } else if (node->state_values->size() <= state) {
    node->state_values->resize(static_cast<std::size_t>(node->state_count) + 1, -1.0);
  }
  (*node->state_values)[state] = value;
  invalidate_dependants(node);
  return ov_error_none;
}

std::int64_t node_state_from_value(const Node *node, double value) noexcept {
  // NaN lies in no state (every comparison with it is false, which would
  // otherwise make it fall through to the last interval).
  if (std::isnan(value)) return -1;
  const StateValues &v = *node->state_values;
  const std::uint32_t n = node->state_count;
  if (node->subtype == ov_subtype_number) {
    // A relative tolerance; for an infinite value the tolerance is infinite
    // too, so only an equal state value may match it.
    const bool exact = std::isinf(value);
    for (std::uint32_t i = 0; i < n; ++i)
      if (exact ? v[i] == value : std::fabs(value - v[i]) <= std::fabs(value) * 1e-10) return i;
    return -1;
  }
  if (value < v[0] && is_finite_bound(v[0])) return -1;
  if (value > v[n] && is_finite_bound(v[n])) return -1;
  for (std::uint32_t i = 0; i + 1 < n; ++i)
    if (value < v[i + 1]) return i;
  return n - 1;
}

} // namespace orvel
