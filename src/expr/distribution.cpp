// The per-configuration probabilities of a chance node: deterministic
// expressions and the dispatch of the standard distributions, with their
// parameter and range checks. The numerics are in distribution_math.
#include "expr/distribution.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "api/error.h"
#include "expr/distribution_math.h"
#include "expr/expression.h"
#include "model/domain.h"
#include "model/node.h"

namespace orvel {

namespace {

// One configuration with all parents bound: the child, its state values
// and the three result blocks.
struct Cell {
  const Bindings &bindings;
  Node *child;
  std::uint32_t n;
  double *out;

  Domain *domain() const noexcept { return child->home; }
  double v(std::uint32_t i) const noexcept { return (*child->state_values)[i]; }
  // The end of state i of an interval child, with the last state's end
  // taken as the largest double when `open_top` is set.
  double upper(std::uint32_t i, bool open_top) const noexcept { return open_top && i + 1 == n ? DBL_MAX : v(i + 1); }
  void store(std::uint32_t i, double p) const noexcept { out[i] = out[n + i] = out[2 * n + i] = p; }
  // Logs a line and fails with `code`; a failing write gives io.
  template <typename... A> ov_status_t refuse(ov_error_t code, const char *format, A... args) const noexcept {
    if (log_printf(domain(), format, args...) != ov_error_none) return ov_error_io;
    return fail(code);
  }
  ov_status_t refuse(ov_error_t code, const char *text) const noexcept {
    if (log_printf(domain(), "%s", text) != ov_error_none) return ov_error_io;
    return fail(code);
  }
  bool is_interval() const noexcept { return child->subtype == ov_subtype_interval; }
  bool is_number() const noexcept { return child->subtype == ov_subtype_number; }
  // Whether the child's values are exactly 0, 1, ..., n - 1.
  bool values_are_counts() const noexcept {
    for (std::uint32_t i = 0; i < n; ++i)
      if (v(i) != static_cast<double>(i)) return false;
    return true;
  }
  // Whether the interval child's range covers [lo, hi].
  bool covers(double lo, double hi) const noexcept { return v(0) <= lo && v(n) >= hi; }
};

// Evaluates the operands of `e` from `first` into `values`, stopping at the
// first failure.
ov_status_t parameters(const Expression *e, const Bindings &bindings, double *values, std::uint32_t count,
                       std::uint32_t first = 0) noexcept {
  for (std::uint32_t i = 0; i < count; ++i)
    if (ov_status_t status = evaluate_number(e->value.operands[first + i], bindings, &values[i])) return status;
  return ov_error_none;
}

bool is_probability(double p) noexcept { return p >= 0.0 && p <= 1.0; }

// Stores the interval probabilities of every state, computed by `f(x1, x2)`.
template <typename F> void store_intervals(const Cell &c, bool open_top, F f) {
  for (std::uint32_t i = 0; i < c.n; ++i) c.store(i, f(c.v(i), c.upper(i, open_top)));
}

ov_status_t deterministic(const Expression *e, const Cell &c) noexcept {
  std::fill(c.out, c.out + 3 * static_cast<std::size_t>(c.n), 0.0);
  set_error(ov_error_none);
  std::int64_t state = -1;
  switch (c.child->subtype) {
  case ov_subtype_label: {
    const char *label = evaluate_label(e, c.bindings);
    if (label == nullptr) return ov_error_code();
    state = node_state_from_label(c.child, label);
    if (state < 0)
      return c.refuse(ov_error_invalid_expression, "Node %s does not have a (unique) state labeled `%s'\n",
                      node_get_name(c.child), label);
    break;
  }
  case ov_subtype_boolean:
    state = evaluate_boolean(e, c.bindings);
    if (state < 0) return ov_error_code();
    break;
  default: {
    double value = 0.0;
    if (ov_status_t status = evaluate_number(e, c.bindings, &value)) return status;
    state = node_state_from_value(c.child, value);
    if (state < 0)
      return c.refuse(ov_error_invalid_expression,
                      c.is_interval() ? "Value for node %s is out of bounds: %g\n"
                                      : "Node %s does not have a state with value %g\n",
                      node_get_name(c.child), value);
    break;
  }
  }
  c.store(static_cast<std::uint32_t>(state), 1.0);
  return ov_error_none;
}

ov_status_t normal(const Expression *e, const Cell &c) noexcept {
  if (!c.is_interval())
    return c.refuse(ov_error_invalid_expression, "A Normal distribution can only be applied to interval nodes");
  double p[2];
  if (ov_status_t status = parameters(e, c.bindings, p, 2)) return status;
  if (!(p[1] > 0.0))
    return c.refuse(ov_error_inappropriate_arguments,
                    "Variance for a normal distribution must be positive (observed: %g)\n", p[1]);
  if (!c.covers(-DBL_MAX, DBL_MAX))
    return c.refuse(ov_error_insufficient_state_range, "Node range must include (-inf, inf) for normal distribution");
  store_intervals(c, false, [&](double x1, double x2) { return normal_interval_probability(p[0], p[1], x1, x2); });
  return ov_error_none;
}

ov_status_t beta(const Expression *e, const Cell &c) noexcept {
  if (!c.is_interval())
    return c.refuse(ov_error_invalid_expression, "A Beta distribution can only be applied to interval nodes");
  double p[4] = {0.0, 0.0, 0.0, 1.0};
  const std::uint32_t count = operand_count(e) == 4 ? 4 : 2;
  if (ov_status_t status = parameters(e, c.bindings, p, count)) return status;
  if (!(p[0] > 0.0 && p[1] > 0.0))
    return c.refuse(ov_error_inappropriate_arguments,
                    "Beta distribution (shape) parameters must be positive (observed: a = %g and b = %g)\n", p[0],
                    p[1]);
  if (!(p[2] < p[3]))
    return c.refuse(ov_error_inappropriate_arguments,
                    "Beta distribution interval must have positive length (specified: [%g, %g])\n", p[2], p[3]);
  if (!c.covers(p[2], p[3]))
    return c.refuse(ov_error_insufficient_state_range, "Node range must include [%g, %g] for beta distribution", p[2],
                    p[3]);
  store_intervals(c, false,
                  [&](double x1, double x2) { return beta_interval_probability(p[0], p[1], p[2], p[3], x1, x2); });
  return ov_error_none;
}

ov_status_t gamma(const Expression *e, const Cell &c) noexcept {
  if (!c.is_interval())
    return c.refuse(ov_error_invalid_expression, "A Gamma distribution can only be applied to interval nodes");
  double p[2];
  if (ov_status_t status = parameters(e, c.bindings, p, 2)) return status;
  if (!(p[0] > 0.0 && p[1] > 0.0))
    return c.refuse(ov_error_inappropriate_arguments,
                    "Gamma distribution parameters must be positive (observed: shape = %g and scale = %g)\n", p[0],
                    p[1]);
  if (!c.covers(0.0, DBL_MAX))
    return c.refuse(ov_error_insufficient_state_range, "Node range must include [0, inf) for gamma distribution");
  for (std::uint32_t i = 0; i < c.n; ++i) {
    const double probability = gamma_interval_probability(p[0], p[1], c.v(i), c.v(i + 1));
    if (probability < 0.0) {
      const ov_status_t code = ov_error_code();
      if (log_printf(c.domain(), "Computation failed for gamma distribution with parameters: shape = %g, scale = %g\n",
                     p[0], p[1]) != ov_error_none)
        return ov_error_io;
      return fail(static_cast<ov_error_t>(code));
    }
    c.store(i, probability);
  }
  return ov_error_none;
}

ov_status_t weibull(const Expression *e, const Cell &c, bool exponential) noexcept {
  if (!c.is_interval())
    return c.refuse(ov_error_invalid_expression,
                    exponential ? "An Exponential distribution can only be applied to interval nodes"
                                : "A Weibull distribution can only be applied to interval nodes");
  double p[2] = {1.0, 0.0};
  if (exponential) {
    if (ov_status_t status = parameters(e, c.bindings, &p[1], 1)) return status;
    if (!(p[1] > 0.0))
      return c.refuse(ov_error_inappropriate_arguments,
                      "Exponential distribution parameter must be positive (observed: %g)\n", p[1]);
  } else {
    if (ov_status_t status = parameters(e, c.bindings, p, 2)) return status;
    if (!(p[0] > 0.0 && p[1] > 0.0))
      return c.refuse(ov_error_inappropriate_arguments,
                      "Weibull distribution parameters must be positive (observed: a = %g, b = %g)\n", p[0], p[1]);
  }
  if (!c.covers(0.0, DBL_MAX))
    return c.refuse(ov_error_insufficient_state_range,
                    exponential ? "Node range must include [0, inf) for exponential distribution"
                                : "Node range must include [0, inf) for Weibull distribution");
  store_intervals(c, false, [&](double x1, double x2) { return weibull_interval_probability(p[0], p[1], x1, x2); });
  return ov_error_none;
}

ov_status_t uniform(const Expression *e, const Cell &c) noexcept {
  if (c.is_number()) {
    for (std::uint32_t i = 0; i < c.n; ++i) c.store(i, 1.0 / c.n);
    return ov_error_none;
  }
  if (!c.is_interval()) return fail(ov_error_invalid_expression);
  double p[2];
  if (ov_status_t status = parameters(e, c.bindings, p, 2)) return status;
  if (!(p[0] < p[1]))
    return c.refuse(
        ov_error_inappropriate_arguments,
        "Uniform distribution: first parameter must be less than the second parameter (observed: a = %g and b = %g)\n",
        p[0], p[1]);
  if (!(c.v(0) <= p[0] && p[1] <= c.v(c.n)))
    return c.refuse(ov_error_insufficient_state_range,
                    "Node range must include [a, b] = [%g, %g] for uniform distribution", p[0], p[1]);
  store_intervals(c, false, [&](double x1, double x2) { return uniform_interval_probability(p[0], p[1], x1, x2); });
  return ov_error_none;
}

// Stores the values of a number child computed into the average block by
// `values`; a failed tail is stored as -1, which the caller reports.
template <typename F> ov_status_t store_counts(const Cell &c, F values) {
  if (values(c.out) != ov_error_none) {
    if (ov_error_code() != ov_error_computation_failed && ov_error_code() != ov_error_usage) return ov_error_code();
    c.out[c.n - 1] = -1.0;
  }
  for (std::uint32_t i = 0; i < c.n; ++i) c.store(i, c.out[i]);
  return ov_error_none;
}

ov_status_t binomial(const Expression *e, const Cell &c) noexcept {
  if (!c.is_number() && !c.is_interval())
    return c.refuse(ov_error_invalid_expression,
                    "A Binomial distribution can only be applied to numbered or interval nodes");
  double p[2];
  if (ov_status_t status = parameters(e, c.bindings, p, 2)) return status;
  if (c.is_number()) {
    if (!c.values_are_counts() || !(c.v(c.n - 1) >= p[0])) return fail(ov_error_insufficient_state_range);
    if (binomial_values(p[0], p[1], c.n, c.out) != ov_error_none) return ov_error_code();
    for (std::uint32_t i = 0; i < c.n; ++i) c.store(i, c.out[i]);
    return ov_error_none;
  }
  if (!(p[0] >= 0.0 && std::floor(p[0]) == p[0] && is_probability(p[1]))) return fail(ov_error_inappropriate_arguments);
  if (!c.covers(0.0, p[0])) return fail(ov_error_insufficient_state_range);
  store_intervals(c, true, [&](double x1, double x2) { return binomial_interval_probability(p[0], p[1], x1, x2); });
  return ov_error_none;
}

ov_status_t poisson(const Expression *e, const Cell &c) noexcept {
  if (!c.is_number() && !c.is_interval())
    return c.refuse(ov_error_invalid_expression,
                    "A Poisson distribution can only be applied to numbered or interval nodes");
  double mean = 0.0;
  if (ov_status_t status = parameters(e, c.bindings, &mean, 1)) return status;
  if (!(mean >= 0.0)) return fail(ov_error_inappropriate_arguments);
  if (c.is_number()) {
    if (!c.values_are_counts()) return fail(ov_error_insufficient_state_range);
    return store_counts(c, [&](double *out) { return poisson_values(mean, c.n, out); });
  }
  if (!c.covers(0.0, DBL_MAX)) return fail(ov_error_insufficient_state_range);
  store_intervals(c, false, [&](double x1, double x2) { return poisson_interval_probability(mean, x1, x2); });
  return ov_error_none;
}

// NegativeBinomial(r, p), and Geometric(p) as r = 1.
ov_status_t negative_binomial(const Expression *e, const Cell &c, bool geometric) noexcept {
  if (!c.is_number() && !c.is_interval())
    return c.refuse(ov_error_invalid_expression,
                    geometric ? "A Geometric distribution can only be applied to numbered or interval nodes"
                              : "A Negative Binomial distribution can only be applied to numbered or interval nodes");
  double p[2] = {1.0, 0.0};
  if (ov_status_t status = geometric ? parameters(e, c.bindings, &p[1], 1) : parameters(e, c.bindings, p, 2))
    return status;
  if (!(p[0] > 0.0 && is_probability(p[1]))) return fail(ov_error_inappropriate_arguments);
  if (c.is_number()) {
    if (!c.values_are_counts()) return fail(ov_error_insufficient_state_range);
    if (geometric) return store_counts(c, [&](double *out) { return geometric_values(p[1], c.n, out); });
    return store_counts(c, [&](double *out) { return negative_binomial_values(p[0], p[1], c.n, out); });
  }
  if (!c.covers(0.0, DBL_MAX)) return fail(ov_error_insufficient_state_range);
  store_intervals(c, false,
                  [&](double x1, double x2) { return negative_binomial_interval_probability(p[0], p[1], x1, x2); });
  return ov_error_none;
}

ov_status_t weights(const Expression *e, const Cell &c) noexcept {
  if (operand_count(e) != c.n)
    return c.refuse(ov_error_invalid_expression,
                    "The number of arguments of a Distribution expression must match the number of states");
  double sum = 0.0;
  for (std::uint32_t i = 0; i < c.n; ++i) {
    if (ov_status_t status = evaluate_number(e->value.operands[i], c.bindings, &c.out[i])) return status;
    if (!(c.out[i] >= 0.0))
      return c.refuse(ov_error_inappropriate_arguments, "Negative value in Distribution expression (state %s)",
                      format_count(c.domain(), i));
    sum += c.out[i];
  }
  if (!(sum > 0.0))
    return c.refuse(ov_error_inappropriate_arguments,
                    "At least one argument of a Distribution expression must be positive");
  for (std::uint32_t i = 0; i < c.n; ++i) c.store(i, c.out[i] / sum);
  return ov_error_none;
}

ov_status_t noisy_or(const Expression *e, const Cell &c) noexcept {
  if (c.child->subtype != ov_subtype_boolean)
    return c.refuse(ov_error_invalid_expression, "A Noisy-OR distribution can only be applied to boolean nodes");
  double product = 1.0;
  for (Expression *const *pair = e->value.operands; pair[0] != nullptr; pair += 2) {
    const int condition = evaluate_boolean(pair[0], c.bindings);
    if (condition < 0) return ov_error_code();
    double q = 0.0;
    if (ov_status_t status = evaluate_number(pair[1], c.bindings, &q)) return status;
    if (!is_probability(q)) return fail(ov_error_inappropriate_arguments);
    if (condition != 0) product *= q;
  }
  c.store(0, product);
  c.store(1, 1.0 - product);
  return ov_error_none;
}

// The probabilities of one configuration with every parent bound.
ov_status_t cell_values(const Expression *e, const Cell &c) noexcept {
  if (base_type(e->value_type) != ov_value_distribution) return deterministic(e, c);
  while (e->operator_code == ov_op_if) {
    const int condition = evaluate_boolean(e->value.operands[0], c.bindings);
    if (condition < 0) return ov_error_code();
    e = e->value.operands[condition != 0 ? 1 : 2];
  }
  switch (e->operator_code) {
  case ov_op_normal: return normal(e, c);
  case ov_op_beta: return beta(e, c);
  case ov_op_gamma: return gamma(e, c);
  case ov_op_exponential: return weibull(e, c, true);
  case ov_op_weibull: return weibull(e, c, false);
  case ov_op_uniform: return uniform(e, c);
  case ov_op_binomial: return binomial(e, c);
  case ov_op_poisson: return poisson(e, c);
  case ov_op_negative_binomial: return negative_binomial(e, c, false);
  case ov_op_geometric: return negative_binomial(e, c, true);
  case ov_op_distribution: return weights(e, c);
  case ov_op_noisy_or: return noisy_or(e, c);
  default: return fail(ov_error_error);
  }
}

} // namespace

ov_status_t distribution_values(const Expression *expression, Bindings &bindings, double *buffer,
                                std::uint32_t n) noexcept {
  const std::uint32_t child = static_cast<std::uint32_t>(bindings.nodes.size()) - 1;
  auto leaf = [&](double *out) -> ov_status_t {
    return cell_values(expression, Cell{bindings, bindings.nodes[child].node, n, out});
  };
  return bind_parents(bindings, 0, child, buffer, n, leaf);
}

} // namespace orvel
