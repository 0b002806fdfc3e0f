// Evaluation of expressions during table generation: the states and values
// bound to the table's nodes for one configuration, the type resolution of
// node references, the three evaluators, and the binding of parents, where
// bounded interval parents are sampled.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "model/forward.h"
#include "model/node.h"
#include "orvel.h"

namespace orvel {

// The working state of one node of the table being generated: the state of
// the configuration in hand and the number bound to the node for it.
struct Binding {
  Node *node = nullptr;
  std::uint32_t state = 0;
  double value = 0.0;
};

// The bindings of a table's discrete nodes, in table order (for a chance
// node the child is last). Node references are looked up here.
struct Bindings {
  std::vector<Binding> nodes;
  std::uint32_t samples_per_interval = 25;

  // The binding of a node, or null when the node is not in the table.
  const Binding *find(const Node *node) const noexcept {
    for (const Binding &b : nodes)
      if (b.node == node) return &b;
    return nullptr;
  }
};

// The value type of an expression with a node-derived type folded onto its
// base: 5, 6 and 7 read as number, boolean and label.
inline int base_type(int value_type) noexcept { return value_type >= 5 ? value_type - 5 : value_type; }

// Gives each node reference of the tree its type (7 for a label node, 6 for
// a boolean node, 5 for a number or interval node; error for any other
// node) and checks every operator against its resolved operands
// (invalid_expression). An `if` whose type was not known takes that of its
// second operand.
ov_status_t resolve_expression_types(Expression *expression) noexcept;

// The evaluators. Each recurses over the tree with the nodes bound as in
// `bindings`, records the error of a failure, and signals it: a non-zero
// status, -1, or null.
ov_status_t evaluate_number(const Expression *expression, const Bindings &bindings, double *result) noexcept;
int evaluate_boolean(const Expression *expression, const Bindings &bindings) noexcept;
const char *evaluate_label(const Expression *expression, const Bindings &bindings) noexcept;

// Whether a state-value bound is at or beyond the largest finite double in
// size, standing for an unbounded side of an interval.
bool is_unbounded(double bound) noexcept;
// The value that stands for an interval with an unbounded side.
double representative_value(double lo, double hi) noexcept;

// Fills `out` (three blocks of `n` doubles: averages, minima, maxima) by
// binding the nodes from `first` up to (not including) `end` and then
// calling `leaf(out)`. A number node is bound to its state's value and an
// interval node with an unbounded side to a representative value; a
// bounded interval node is sampled `samples_per_interval` times across its
// interval, each sample filling the next 3 × `n` doubles after `out`, and
// `out` receives the average of the averages, the least minimum and the
// greatest maximum, state by state. The first failure is returned.
template <typename Leaf>
ov_status_t bind_parents(Bindings &bindings, std::uint32_t first, std::uint32_t end, double *out, std::uint32_t n,
                         Leaf &leaf) {
  for (std::uint32_t i = first; i < end; ++i) {
    Binding &b = bindings.nodes[i];
    const Node *node = b.node;
    if (node->subtype == ov_subtype_number) {
      b.value = (*node->state_values)[b.state];
    } else if (node->subtype == ov_subtype_interval) {
      const double lo = (*node->state_values)[b.state], hi = (*node->state_values)[b.state + 1];
      if (is_unbounded(lo) || is_unbounded(hi)) {
        b.value = representative_value(lo, hi);
        continue;
      }
      const std::uint32_t s = bindings.samples_per_interval;
      const double width = (hi - lo) / s;
      double *scratch = out + 3 * static_cast<std::size_t>(n);
      for (std::uint32_t k = 0; k < s; ++k) {
        b.value = lo + (k + 0.5) * width;
        if (ov_status_t status = bind_parents(bindings, i + 1, end, k == 0 ? out : scratch, n, leaf)) return status;
        if (k == 0) continue;
        for (std::uint32_t j = 0; j < n; ++j) {
          out[j] += scratch[j];
          if (scratch[n + j] < out[n + j]) out[n + j] = scratch[n + j];
          if (scratch[2 * n + j] > out[2 * n + j]) out[2 * n + j] = scratch[2 * n + j];
        }
      }
      for (std::uint32_t j = 0; j < n; ++j) out[j] /= s;
      return ov_error_none;
    }
  }
  return leaf(out);
}

} // namespace orvel
