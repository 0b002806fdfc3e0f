// Findings and the evidence tests.
#include "inference/evidence.h"

#include <algorithm>
#include <cstring>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "compile/junction_tree.h"
#include "table/table.h"

namespace orvel {

namespace {

// The propagated cells of a discrete node, or null before compilation.
const ov_number_t *propagated_cells(const Node *node) noexcept {
  const Table *finding = node->propagated_finding;
  return finding != nullptr && finding->data ? finding->data.get() : nullptr;
}

// The entered cell of a state; a node without a finding reads 1.0.
ov_number_t entered_cell(const Node *node, std::uint32_t state) noexcept {
  return node->entered_finding.empty() ? 1.0f : node->entered_finding[state];
}

bool is_likelihood(const ov_number_t *cells, std::uint32_t count) noexcept {
  for (std::uint32_t i = 0; i < count; ++i)
    if (cells[i] != 0.0f && cells[i] != 1.0f) return true;
  return false;
}

// Bit-exact test against 1.0: a cell of -0.0 or NaN counts as evidence.
bool is_neutral(ov_number_t cell) noexcept {
  const ov_number_t one = 1.0f;
  return std::memcmp(&cell, &one, sizeof cell) == 0;
}

// The bracket around every store of a finding.
template <class Store> ov_status_t bracket(Node *node, Store &&store) {
  const bool counted = node_in_forest(node);
  if (counted && finding_differs(node)) --node->junction_tree->changed_evidence_count;
  store();
  if (counted && finding_differs(node)) ++node->junction_tree->changed_evidence_count;
  return set_error(ov_error_none);
}

// Gives a discrete node a finding array of all 1.0 if it has none.
void ensure_finding(Node *node) {
  if (node->entered_finding.empty()) node->entered_finding.assign(node->state_count, 1.0f);
  node->has_entered_finding = true;
}

} // namespace

bool finding_differs(const Node *node) noexcept {
  if (!node->is_discrete()) {
    if (node->value_entered != node->value_propagated) return true;
    if (!node->value_entered) return false;
    return node->entered_value != node->propagated_value;
  }
  if (node->state_count == 0) return false;
  const ov_number_t *propagated = propagated_cells(node);
  for (std::uint32_t i = 0; i < node->state_count; ++i)
    if (entered_cell(node, i) != (propagated != nullptr ? propagated[i] : 1.0f)) return true;
  return false;
}

bool finding_retracted(const Node *node) noexcept {
  if (!node->is_discrete()) {
    if (!node->value_propagated) return false;
    return !node->value_entered || node->entered_value != node->propagated_value;
  }
  const ov_number_t *propagated = propagated_cells(node);
  if (propagated == nullptr) return false;
  for (std::uint32_t i = 0; i < node->state_count; ++i)
    if (propagated[i] == 0.0f && entered_cell(node, i) > 0.0f) return true;
  return false;
}

bool evidence_entered(const Node *node) noexcept {
  if (!node->is_discrete()) return node->value_entered;
  if (node->entered_finding.empty()) return false;
  for (ov_number_t cell : node->entered_finding)
    if (!is_neutral(cell)) return true;
  return false;
}

bool evidence_propagated(const Node *node) noexcept {
  if (!node->is_discrete()) return node->value_propagated;
  const ov_number_t *propagated = propagated_cells(node);
  if (propagated == nullptr) return false;
  for (std::uint32_t i = 0; i < node->state_count; ++i)
    if (!is_neutral(propagated[i])) return true;
  return false;
}

bool likelihood_entered(const Node *node) noexcept {
  if (!node->is_discrete() || node->entered_finding.empty()) return false;
  return is_likelihood(node->entered_finding.data(), node->state_count);
}

bool likelihood_propagated(const Node *node) noexcept {
  if (!node->is_discrete()) return false;
  const ov_number_t *propagated = propagated_cells(node);
  return propagated != nullptr && is_likelihood(propagated, node->state_count);
}

std::int32_t single_state(const ov_number_t *cells, std::uint32_t count) noexcept {
  std::int32_t found = -1;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!(cells[i] > 0.0f)) continue;
    if (found >= 0) return -1;
    found = static_cast<std::int32_t>(i);
  }
  return found;
}

std::int32_t entered_state(const Node *node) noexcept {
  if (node->entered_finding.empty()) return node->state_count == 1 ? 0 : -1;
  return single_state(node->entered_finding.data(), node->state_count);
}

ov_status_t node_select_state(Node *node, std::uint32_t state) {
  ensure_finding(node);
  return bracket(node, [&] {
    std::fill(node->entered_finding.begin(), node->entered_finding.end(), 0.0f);
    node->entered_finding[state] = 1.0f;
  });
}

ov_status_t node_enter_finding(Node *node, std::uint32_t state, ov_number_t value) {
  ensure_finding(node);
  return bracket(node, [&] { node->entered_finding[state] = value; });
}

ov_status_t node_enter_value(Node *node, double value) {
  return bracket(node, [&] {
    node->entered_value = value;
    node->value_entered = true;
  });
}

namespace {

// Retraction without the error slot. A finding that is all 1.0 already is
// left alone: the store would change nothing, the count included.
void retract_finding(Node *node) {
  if (node->is_discrete()) {
    if (std::all_of(node->entered_finding.begin(), node->entered_finding.end(), is_neutral)) return;
    bracket(node, [&] { std::fill(node->entered_finding.begin(), node->entered_finding.end(), 1.0f); });
  } else if (node->value_entered) {
    bracket(node, [&] { node->value_entered = false; });
  }
}

} // namespace

ov_status_t node_retract_findings(Node *node) {
  retract_finding(node);
  return set_error(ov_error_none);
}

void domain_retract_findings(Domain *domain) {
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
    Node *node = it->get();
    if (node->category == ov_category_chance || node->category == ov_category_decision) retract_finding(node);
  }
  set_error(ov_error_none);
}

ov_number_t entered_finding_cell(const Node *node, std::uint32_t state) noexcept {
  return node->entered_finding.empty() ? 1.0f : node->entered_finding[state];
}

bool node_instantiated(const Node *node) noexcept {
  if (!node->is_discrete()) return node->value_entered;
  return entered_state(node) >= 0;
}

bool node_consistent(const Node *node) noexcept {
  return node->junction_tree->changed_evidence_count == 0 || node_instantiated(node);
}

namespace {

// Whether some tree of the domain satisfies `test`.
template <class F> bool any_tree(const Domain *domain, F &&test) noexcept {
  for (auto &tree : domain->forest->junction_trees)
    if (test(*tree)) return true;
  return false;
}

} // namespace

bool domain_evidence_to_propagate(const Domain *domain) noexcept {
  return any_tree(domain, [](const JunctionTree &tree) { return tree.changed_evidence_count > 0; });
}

bool domain_evidence_propagated(const Domain *domain) noexcept {
  return any_tree(domain, [](const JunctionTree &tree) { return tree.evidence_propagated; });
}

bool domain_likelihood_propagated(const Domain *domain) noexcept {
  return any_tree(domain, [](const JunctionTree &tree) { return tree.likelihood_propagated; });
}

bool domain_cg_evidence_propagated(const Domain *domain) noexcept {
  return any_tree(domain, [](const JunctionTree &tree) { return tree.cg_evidence_propagated; });
}

bool domain_equilibrium_is(const Domain *domain, ov_equilibrium_t equilibrium) noexcept {
  return !any_tree(domain, [&](const JunctionTree &tree) { return tree.equilibrium != equilibrium; });
}

int domain_evidence_mode_is(const Domain *domain, ov_evidence_mode_t mode) noexcept {
  if (any_tree(domain, [](const JunctionTree &tree) { return tree.equilibrium == ov_equilibrium_none; }))
    return set_error(ov_error_no_equilibrium), -1;
  return any_tree(domain,
                  [&](const JunctionTree &tree) { return tree.evidence_propagated && tree.evidence_mode != mode; })
             ? 0
             : 1;
}

int jt_evidence_mode_is(const JunctionTree *tree, ov_evidence_mode_t mode) noexcept {
  if (tree->equilibrium == ov_equilibrium_none) return set_error(ov_error_no_equilibrium), -1;
  return tree->evidence_mode == mode || !tree->evidence_propagated ? 1 : 0;
}

} // namespace orvel
