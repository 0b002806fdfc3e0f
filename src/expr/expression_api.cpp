// Exported calls on expressions and the string-to-expression entry points.
#include "api/boundary.h"
#include "expr/expression.h"
#include "expr/expression_parser.h"
#include "expr/model.h"
#include "model/domain.h"

using namespace orvel;

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
  return composite_expression(op, operands);
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
  return expression_text(expression);
}

ov_expression_t ov_domain_string_to_expression(ov_domain_t domain, ov_string_t text, ov_parse_error_handler_t handler,
                                               void *data) {
  if (check_usage(domain == nullptr || text == nullptr)) return nullptr;
  return expression_from_text(domain, text, handler, data);
}

ov_expression_t ov_class_string_to_expression(ov_class_t c, ov_string_t text, ov_parse_error_handler_t handler,
                                              void *data) {
  if (check_usage(c == nullptr || text == nullptr)) return nullptr;
  return expression_from_text(as_domain(c), text, handler, data);
}

ov_expression_t ov_string_to_expression(ov_string_t text, ov_domain_t domain, ov_simple_error_handler_t handler) {
  if (check_usage(domain == nullptr || text == nullptr)) return nullptr;
  return expression_from_text(domain, text, handler);
}

ov_expression_t ov_string_parse_expression(ov_string_t text, ov_model_t model, ov_parse_error_handler_t handler,
                                           void *data) {
  if (check_usage(model == nullptr || text == nullptr)) return nullptr;
  return expression_from_text(model->node->home, text, handler, data);
}

} // extern "C"
