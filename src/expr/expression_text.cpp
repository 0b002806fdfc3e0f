// Expressions to and from text, under the "C" locale.
#include "api/boundary.h"
#include "api/locale_guard.h"
#include "expr/expression.h"
#include "expr/expression_parser.h"
#include "io/scanner.h"

namespace orvel {

Expression *expression_from_text(Domain *scope, const char *text, ov_parse_error_handler_t handler,
                                 void *data) noexcept {
  return guarded<Expression *>(nullptr, [&]() -> Expression * {
    LocaleGuard guard;
    if (!guard.ok()) return nullptr;
    return parse_expression_string(scope, text, handler, data);
  });
}

Expression *expression_from_text(Domain *scope, const char *text, ov_simple_error_handler_t handler) noexcept {
  // The simple handler travels as the data of the adapter.
  ov_simple_error_handler_t simple = handler;
  return expression_from_text(scope, text, handler != nullptr ? simple_error_adapter : nullptr, &simple);
}

char *expression_text(const Expression *expression) noexcept {
  return guarded<char *>(nullptr, [&]() -> char * {
    LocaleGuard guard;
    if (!guard.ok()) return nullptr;
    return expression_to_string(expression).release();
  });
}

} // namespace orvel
