// The expression parser: text to expression trees, by recursive descent over
// scan_expression_token.
//
// Grammar, from the lowest precedence to the highest:
//   comparison: sum [ ("==" | "=" | "<" | ">" | "!=" | "<>" | "<=" | ">=") sum ]
//   sum:        [ "+" | "-" ] product { ("+" | "-") product }
//   product:    power { ("*" | "/") power }
//   power:      primary [ "^" power ]
//   primary:    "(" comparison ")" | number | string | name | dotted name
//               | function-name "(" [ comparison { "," comparison } ] ")"
#pragma once

#include "io/scanner.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Parses one comparison-level expression from the context's source; names
// are looked up in ctx->domain. Reads through scan_expression_token, so it
// may be called in the middle of a file on the file's own context; the token
// that ends the expression is left unread (held back). Returns a tree with
// references 0, owned by the caller, or null with the error recorded
// (syntax, parse, an API error, no_memory); nothing built survives a failure.
Expression *parse_expression(ParseContext *ctx) noexcept;

// A whole string as one expression: parse_expression, then the end of the
// string. The caller holds the "C" locale.
Expression *parse_expression_string(Domain *scope, const char *text, ov_parse_error_handler_t handler,
                                    void *data) noexcept;

// The text forms under the "C" locale, whatever locale the application uses
// (expression_text.cpp). A string parsed as one expression, with a handler
// that takes the caller's pointer or one that takes none; and the text of an
// expression, a malloc'd string the caller frees. Null on failure.
Expression *expression_from_text(Domain *scope, const char *text, ov_parse_error_handler_t handler,
                                 void *data) noexcept;
Expression *expression_from_text(Domain *scope, const char *text, ov_simple_error_handler_t handler) noexcept;
char *expression_text(const Expression *expression) noexcept;

// The deepest nesting of parentheses, calls and powers the parser accepts.
constexpr std::uint32_t expression_nesting_limit = 1000;

} // namespace orvel
