// Exported calls on expressions and the string-to-expression entry points.
#include <cstdlib>

#include "api/boundary.h"
#include "api/locale_guard.h"
#include "expr/expression.h"
#include "expr/expression_parser.h"
#include "expr/model.h"
#include "io/scanner.h"
#include "model/domain.h"

using namespace orvel;

namespace {

// Parses under the "C" locale; the caller has checked the arguments.
ov_expression_t parse_guarded(Domain *scope, ov_string_t text, ov_parse_error_handler_t handler, void *data) {
  return guarded<ov_expression_t>(nullptr, [&]() -> ov_expression_t {
    LocaleGuard guard;
    if (!guard.ok()) return nullptr;
    return parse_expression_string(scope, text, handler, data);
  });
}

} // namespace

extern "C" {

ov_expression_t ov_number_make_expression(ov_double_t number) {
  set_error(ov_error_none);
  return number_expression(number);
}

ov_expression_t ov_boolean_make_expression(int value) {
  set_error(ov_error_none);
  return boolean_expression(value);
}

ov_expression_t ov_label_make_expression(ov_string_t label) {
  if (check_usage(label == nullptr)) return nullptr;
  return label_expression(label);
}

ov_expression_t ov_node_make_expression(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  return node_expression(node);
}

ov_expression_t ov_make_composite_expression(ov_operator_t op, ov_expression_t *operands) {
  if (check_usage(operands == nullptr || !is_composite_operator(op))) return nullptr;
  // The tree gets its own copy of the array; the caller keeps theirs.
  Size count = 0;
  while (operands[count] != nullptr) ++count;
  Buffer<Expression *> copy = alloc_array<Expression *>(size_add(count, 1));
  if (!copy) return nullptr;
  for (Size i = 0; i <= count; ++i) copy[i] = operands[i];
  return expression_new(op, copy);
}

int ov_expression_is_composite(ov_expression_t expression) {
  if (check_usage(expression == nullptr)) return -1;
  return is_composite_operator(expression->operator_code) ? 1 : 0;
}

ov_operator_t ov_expression_get_operator(ov_expression_t expression) {
  if (check_usage(expression == nullptr)) return ov_op_error;
  return static_cast<ov_operator_t>(expression->operator_code);
}

ov_expression_t *ov_expression_get_operands(ov_expression_t expression) {
  if (check_usage(expression == nullptr || !is_composite_operator(expression->operator_code))) return nullptr;
  return expression->value.operands;
}

ov_node_t ov_expression_get_node(ov_expression_t expression) {
  if (check_usage(expression == nullptr || expression->operator_code != ov_op_node)) return nullptr;
  return expression->value.node;
}

ov_double_t ov_expression_get_number(ov_expression_t expression) {
  if (check_usage(expression == nullptr || expression->operator_code != ov_op_number)) return -1.0;
  return expression->value.number;
}

ov_string_t ov_expression_get_label(ov_expression_t expression) {
  if (check_usage(expression == nullptr || expression->operator_code != ov_op_label)) return nullptr;
  return expression->value.label;
}

int ov_expression_get_boolean(ov_expression_t expression) {
  if (check_usage(expression == nullptr || expression->operator_code != ov_op_boolean)) return -1;
  return expression->value.boolean;
}

ov_expression_t ov_expression_clone(ov_expression_t expression) {
  if (check_usage(expression == nullptr)) return nullptr;
  return expression_clone(expression);
}

ov_status_t ov_expression_delete(ov_expression_t expression) {
  if (check_usage(expression == nullptr)) return ov_error_usage;
  expression_release(expression);
  return ov_error_none;
}

char *ov_expression_to_string(ov_expression_t expression) {
  if (check_usage(expression == nullptr)) return nullptr;
  return guarded<char *>(nullptr, [&]() -> char * {
    LocaleGuard guard;
    if (!guard.ok()) return nullptr;
    return expression_to_string(expression).release();
  });
}

ov_expression_t ov_domain_string_to_expression(ov_domain_t domain, ov_string_t text, ov_parse_error_handler_t handler,
                                               void *data) {
  if (check_usage(domain == nullptr || text == nullptr)) return nullptr;
  return parse_guarded(domain, text, handler, data);
}

ov_expression_t ov_class_string_to_expression(ov_class_t c, ov_string_t text, ov_parse_error_handler_t handler,
                                              void *data) {
  if (check_usage(c == nullptr || text == nullptr)) return nullptr;
  return parse_guarded(as_domain(c), text, handler, data);
}

ov_expression_t ov_string_to_expression(ov_string_t text, ov_domain_t domain, ov_simple_error_handler_t handler) {
  if (check_usage(domain == nullptr || text == nullptr)) return nullptr;
  // The simple handler travels as the data of the adapter.
  ov_simple_error_handler_t simple = handler;
  return parse_guarded(domain, text, handler != nullptr ? simple_error_adapter : nullptr, &simple);
}

ov_expression_t ov_string_parse_expression(ov_string_t text, ov_model_t model, ov_parse_error_handler_t handler,
                                           void *data) {
  if (check_usage(model == nullptr || text == nullptr)) return nullptr;
  return parse_guarded(model->node->home, text, handler, data);
}

} // extern "C"
