// Type resolution and the number, boolean and label evaluators.
#include "expr/evaluate.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>

#include "api/error.h"
#include "expr/expression.h"
#include "model/node.h"

namespace orvel {

namespace {

int resolved_type(const Expression *e) noexcept { return base_type(e->value_type); }

bool all_of_type(Expression *const *operands, int type) noexcept {
  for (; *operands != nullptr; ++operands)
    if (resolved_type(*operands) != type) return false;
  return true;
}

// The operator's rule over its resolved operands.
bool operands_fit(Expression *e) noexcept {
  Expression *const *ops = e->value.operands;
  const int op = e->operator_code;
  switch (op) {
  case ov_op_noisy_or:
    for (; ops[0] != nullptr; ops += 2)
      if (ops[1] == nullptr || resolved_type(ops[0]) != ov_value_boolean || resolved_type(ops[1]) != ov_value_number)
        return false;
    return true;
  case ov_op_if: {
    if (resolved_type(ops[0]) != ov_value_boolean) return false;
    const int second = resolved_type(ops[1]);
    if (second > ov_value_distribution || second != resolved_type(ops[2])) return false;
    if (e->value_type >= ov_value_node) e->value_type = ops[1]->value_type;
    return true;
  }
  case ov_op_and:
  case ov_op_or:
  case ov_op_not: return all_of_type(ops, ov_value_boolean);
  case ov_op_equals:
  case ov_op_not_equals: {
    const int left = resolved_type(ops[0]);
    return left <= ov_value_label && left == resolved_type(ops[1]);
  }
  default: return all_of_type(ops, ov_value_number);
  }
}

int compare_as_numbers(const Expression *e, const Bindings &bindings) noexcept {
  double left = 0.0, right = 0.0;
  if (evaluate_number(e->value.operands[0], bindings, &left) != ov_error_none ||
      evaluate_number(e->value.operands[1], bindings, &right) != ov_error_none)
    return -1;
  switch (e->operator_code) {
  case ov_op_less_than: return left < right;
  case ov_op_greater_than: return left > right;
  case ov_op_less_than_or_equals: return left <= right;
  default: return left >= right;
  }
}

// Equality of two operands of like type: numbers as doubles, booleans as 0
// or 1, labels as strings; -1 on failure.
int operands_equal(const Expression *e, const Bindings &bindings) noexcept {
  const Expression *a = e->value.operands[0], *b = e->value.operands[1];
  switch (resolved_type(a)) {
  case ov_value_number: {
    double x = 0.0, y = 0.0;
    if (evaluate_number(a, bindings, &x) != ov_error_none || evaluate_number(b, bindings, &y) != ov_error_none)
      return -1;
    return x == y;
  }
  case ov_value_boolean: {
    const int x = evaluate_boolean(a, bindings);
    if (x < 0) return -1;
    const int y = evaluate_boolean(b, bindings);
    if (y < 0) return -1;
    return x == y;
  }
  case ov_value_label: {
    const char *x = evaluate_label(a, bindings);
    if (x == nullptr) return -1;
    const char *y = evaluate_label(b, bindings);
    if (y == nullptr) return -1;
    return std::strcmp(x, y) == 0;
  }
  default: set_error(ov_error_error); return -1;
  }
}

ov_status_t power(double base, double exponent, double *result) noexcept {
  if (base > 0.0) {
    *result = std::pow(base, exponent);
    return ov_error_none;
  }
  if (base == 0.0) {
    if (!(exponent > 0.0)) return fail(ov_error_inappropriate_arguments);
    *result = 0.0;
    return ov_error_none;
  }
  if (!(exponent >= INT32_MIN && exponent <= INT32_MAX) || exponent != std::trunc(exponent))
    return fail(ov_error_inappropriate_arguments);
  const double magnitude = std::pow(-base, exponent);
  *result = static_cast<std::int32_t>(exponent) % 2 != 0 ? -magnitude : magnitude;
  return ov_error_none;
}

// The functions of one number argument.
ov_status_t unary(int op, double x, double *result) noexcept {
  switch (op) {
  case ov_op_log:
  case ov_op_log2:
  case ov_op_log10:
    if (!(x > 0.0)) return fail(ov_error_inappropriate_arguments);
    *result = op == ov_op_log10 ? std::log10(x) : op == ov_op_log2 ? std::log(x) * 1.4426950408889634 : std::log(x);
    return ov_error_none;
  case ov_op_sqrt:
    if (x < 0.0) return fail(ov_error_inappropriate_arguments);
    *result = std::sqrt(x);
    return ov_error_none;
  case ov_op_exp: *result = std::exp(x); break;
  case ov_op_sin: *result = std::sin(x); break;
  case ov_op_cos: *result = std::cos(x); break;
  case ov_op_tan: *result = std::tan(x); break;
  case ov_op_sinh: *result = std::sinh(x); break;
  case ov_op_cosh: *result = std::cosh(x); break;
  case ov_op_tanh: *result = std::tanh(x); break;
  case ov_op_abs: *result = std::fabs(x); break;
  case ov_op_floor: *result = std::floor(x); break;
  case ov_op_ceil: *result = std::ceil(x); break;
  default: // negation
    *result = -x;
    break;
  }
  return ov_error_none;
}

ov_status_t binary(int op, double x, double y, double *result) noexcept {
  switch (op) {
  case ov_op_add: *result = x + y; return ov_error_none;
  case ov_op_subtract: *result = x - y; return ov_error_none;
  case ov_op_multiply: *result = x * y; return ov_error_none;
  case ov_op_divide:
    if (y == 0.0) return fail(ov_error_division_by_zero);
    *result = x / y;
    return ov_error_none;
  case ov_op_power: return power(x, y, result);
  default: { // mod: the floored remainder
    if (y == 0.0) return fail(ov_error_inappropriate_arguments);
    double r = std::fmod(x, y);
    if (r != 0.0 && x * y < 0.0) r += y;
    *result = r;
    return ov_error_none;
  }
  }
}

} // namespace

bool is_unbounded(double bound) noexcept { return std::fabs(bound) >= DBL_MAX; }

double representative_value(double lo, double hi) noexcept {
  if (is_unbounded(lo) && is_unbounded(hi)) return 0.0;
  if (is_unbounded(lo)) return hi > 0.0 ? hi * 0.999 : hi < 0.0 ? hi * 1.001 : -1.0;
  return lo > 0.0 ? lo * 1.001 : lo < 0.0 ? lo * 0.999 : 1.0;
}

ov_status_t resolve_expression_types(Expression *expression) noexcept {
  switch (expression->operator_code) {
  case ov_op_number:
  case ov_op_label:
  case ov_op_boolean: return ov_error_none;
  case ov_op_node: {
    const Node *node = expression->value.node;
    if (!node->has_states()) return fail(ov_error_error);
    switch (node->subtype) {
    case ov_subtype_label: expression->value_type = 7; return ov_error_none;
    case ov_subtype_boolean: expression->value_type = 6; return ov_error_none;
    case ov_subtype_number:
    case ov_subtype_interval: expression->value_type = 5; return ov_error_none;
    default: return fail(ov_error_error);
    }
  }
  default: break;
  }
  if (!is_composite_operator(expression->operator_code)) return fail(ov_error_error);
  for (Expression *const *op = expression->value.operands; *op != nullptr; ++op)
    if (ov_status_t status = resolve_expression_types(*op)) return status;
  return operands_fit(expression) ? ov_error_none : fail(ov_error_invalid_expression);
}

ov_status_t evaluate_number(const Expression *e, const Bindings &bindings, double *result) noexcept {
  const int op = e->operator_code;
  switch (op) {
  case ov_op_number: *result = e->value.number; return ov_error_none;
  case ov_op_node: {
    const Binding *b = bindings.find(e->value.node);
    if (b == nullptr) return fail(ov_error_error);
    *result = b->value;
    return ov_error_none;
  }
  case ov_op_if: {
    const int condition = evaluate_boolean(e->value.operands[0], bindings);
    if (condition < 0) return ov_error_code();
    return evaluate_number(e->value.operands[condition != 0 ? 1 : 2], bindings, result);
  }
  case ov_op_min:
  case ov_op_max: {
    double best = 0.0;
    if (ov_status_t status = evaluate_number(e->value.operands[0], bindings, &best)) return status;
    for (Expression *const *o = e->value.operands + 1; *o != nullptr; ++o) {
      double x = 0.0;
      if (ov_status_t status = evaluate_number(*o, bindings, &x)) return status;
      if (op == ov_op_min ? x < best : x > best) best = x;
    }
    *result = best;
    return ov_error_none;
  }
  case ov_op_mod:
  case ov_op_add:
  case ov_op_subtract:
  case ov_op_multiply:
  case ov_op_divide:
  case ov_op_power: {
    double x = 0.0, y = 0.0;
    if (ov_status_t status = evaluate_number(e->value.operands[0], bindings, &x)) return status;
    if (ov_status_t status = evaluate_number(e->value.operands[1], bindings, &y)) return status;
    return binary(op, x, y, result);
  }
  default: break;
  }
  if ((op >= ov_op_log && op <= ov_op_ceil) || op == ov_op_negate) {
    double x = 0.0;
    if (ov_status_t status = evaluate_number(e->value.operands[0], bindings, &x)) return status;
    return unary(op, x, result);
  }
  return fail(ov_error_error);
}

int evaluate_boolean(const Expression *e, const Bindings &bindings) noexcept {
  switch (e->operator_code) {
  case ov_op_boolean: return e->value.boolean;
  case ov_op_node: {
    const Binding *b = bindings.find(e->value.node);
    if (b == nullptr) {
      set_error(ov_error_error);
      return -1;
    }
    return b->state != 0 ? 1 : 0;
  }
  case ov_op_if: {
    const int condition = evaluate_boolean(e->value.operands[0], bindings);
    if (condition < 0) return -1;
    return evaluate_boolean(e->value.operands[condition != 0 ? 1 : 2], bindings);
  }
  case ov_op_and:
  case ov_op_or: {
    const int stop = e->operator_code == ov_op_or ? 1 : 0;
    for (Expression *const *o = e->value.operands; *o != nullptr; ++o) {
      const int x = evaluate_boolean(*o, bindings);
      if (x < 0) return -1;
      if (x == stop) return stop;
    }
    return 1 - stop;
  }
  case ov_op_not: {
    const int x = evaluate_boolean(e->value.operands[0], bindings);
    return x < 0 ? -1 : 1 - x;
  }
  case ov_op_equals:
  case ov_op_not_equals: {
    const int equal = operands_equal(e, bindings);
    if (equal < 0) return -1;
    return e->operator_code == ov_op_equals ? equal : 1 - equal;
  }
  case ov_op_less_than:
  case ov_op_greater_than:
  case ov_op_less_than_or_equals:
  case ov_op_greater_than_or_equals: return compare_as_numbers(e, bindings);
  default: set_error(ov_error_error); return -1;
  }
}

const char *evaluate_label(const Expression *e, const Bindings &bindings) noexcept {
  switch (e->operator_code) {
  case ov_op_label: return e->value.label;
  case ov_op_node: {
    const Binding *b = bindings.find(e->value.node);
    if (b == nullptr) break;
    return state_label(b->node, b->state);
  }
  case ov_op_if: {
    const int condition = evaluate_boolean(e->value.operands[0], bindings);
    if (condition < 0) return nullptr;
    return evaluate_label(e->value.operands[condition != 0 ? 1 : 2], bindings);
  }
  default: break;
  }
  set_error(ov_error_error);
  return nullptr;
}

} // namespace orvel
