// The expression parser: one function per level of precedence. Each level
// reads its first operand, then one token; a token that does not belong to
// the level goes back, and the level returns what it has. Every level holds
// its partial trees in ExpressionPtr, so a failure anywhere releases all of
// them on the way out.
#include "expr/expression_parser.h"

#include <cstring>
#include <new>
#include <vector>

#include "api/error.h"
#include "expr/expression.h"
#include "io/name_resolver.h"
#include "model/domain.h"

namespace orvel {

namespace {

ExpressionPtr parse_comparison(ParseContext *ctx);

ExpressionPtr syntax_error() noexcept {
  set_error(ov_error_syntax);
  return nullptr;
}

// Counts one level of nesting for as long as it lives.
class NestingLevel {
public:
  explicit NestingLevel(ParseContext *ctx) noexcept : ctx_(ctx) { ++ctx_->expression_depth; }
  ~NestingLevel() { --ctx_->expression_depth; }
  NestingLevel(const NestingLevel &) = delete;
  NestingLevel &operator=(const NestingLevel &) = delete;
  // False, with the error reported, when the parser is nested too deeply.
  bool ok() const noexcept {
    if (ctx_->expression_depth <= expression_nesting_limit) return true;
    parse_report(ctx_, "expression is nested too deeply");
    set_error(ov_error_syntax);
    return false;
  }

private:
  ParseContext *ctx_;
};

// A composite of the given operands. The operands are released if it cannot
// be built; the error stands.
ExpressionPtr make_composite(int op, ExpressionPtr first, ExpressionPtr second) {
  Buffer<Expression *> operands = alloc_array<Expression *>(3);
  if (!operands) return nullptr;
  operands[0] = first.get();
  operands[1] = second.get();
  operands[2] = nullptr;
  Expression *made = expression_new(op, operands);
  if (made == nullptr) return nullptr;
  (void)first.release();
  (void)second.release();
  return ExpressionPtr(made);
}

// The operands of a call, after its "(": none, or comparison-level
// expressions separated by "," up to ")".
bool parse_arguments(ParseContext *ctx, std::vector<ExpressionPtr> &arguments) {
  int token = scan_expression_token(ctx);
  if (token == ')') return true;
  unget_token(ctx, token);
  for (;;) {
    ExpressionPtr argument = parse_comparison(ctx);
    if (!argument) return false;
    arguments.push_back(std::move(argument));
    token = scan_expression_token(ctx);
    if (token == ',') continue;
    if (token == ')') return true;
    parse_report(ctx, "`,' or `)' expected");
    set_error(ov_error_syntax);
    return false;
  }
}

// A function call: the operator's name has been read, and its "(".
ExpressionPtr parse_call(ParseContext *ctx) {
  int op = function_operator_from_name(ctx->text_or_empty());
  if (op < 0) {
    parse_reportf(ctx, "unknown operator `%s'", message_name(ctx->text_or_empty()).text);
    return syntax_error();
  }
  std::vector<ExpressionPtr> arguments;
  if (!parse_arguments(ctx, arguments)) return nullptr;
  Buffer<Expression *> operands = alloc_array<Expression *>(size_add(static_cast<Size>(arguments.size()), 1));
  if (!operands) return nullptr;
  for (std::size_t i = 0; i < arguments.size(); ++i) operands[i] = arguments[i].get();
  operands[arguments.size()] = nullptr;
  Expression *made = expression_new(op, operands);
  if (made == nullptr) {
    ov_error_t code = ov_error_code();
    parse_reportf(ctx, "API error: %s", ov_error_name(code));
    set_error(code);
    return nullptr;
  }
  for (ExpressionPtr &argument : arguments) (void)argument.release();
  return ExpressionPtr(made);
}

// A name: a function call when "(" follows, otherwise a node of the scope
// (which hides the constants true and false), or one of those constants.
ExpressionPtr parse_name(ParseContext *ctx) {
  const char *name = ctx->text_or_empty();
  set_error(ov_error_none);
  Node *node = ctx->domain != nullptr ? domain_find_node(ctx->domain, name) : nullptr;
  ov_error_t lookup_error = ov_error_code();
  int constant = std::strcmp(name, "true") == 0 ? 1 : std::strcmp(name, "false") == 0 ? 0 : -1;

  int token = scan_expression_token(ctx);
  if (token == '(') return parse_call(ctx);
  unget_token(ctx, token);
  if (node != nullptr) return ExpressionPtr(node_expression(node));
  if (lookup_error != ov_error_none) {
    set_error(lookup_error);
    return nullptr;
  }
  if (constant >= 0) return ExpressionPtr(boolean_expression(constant));
  parse_report(ctx, "no such node");
  return syntax_error();
}

ExpressionPtr parse_primary(ParseContext *ctx) {
  int token = scan_expression_token(ctx);
  switch (token) {
  case '(': {
    ExpressionPtr inner = parse_comparison(ctx);
    if (!inner) return nullptr;
    if (scan_expression_token(ctx) != ')') return syntax_error();
    return inner;
  }
  case tok_dotted_name: {
    if (ctx->domain == nullptr) return syntax_error(); // no scope to resolve in
    Node *node = resolve_node_path(ctx, ctx->domain, ctx->text.get());
    if (node == nullptr) return nullptr;
    return ExpressionPtr(node_expression(node));
  }
  case tok_string: return ExpressionPtr(label_expression(ctx->text_or_empty()));
  case tok_number: return ExpressionPtr(number_expression(ctx->number));
  case tok_name: return parse_name(ctx);
  default: return syntax_error();
  }
}

// power: primary [ "^" power ], grouping to the right.
ExpressionPtr parse_power(ParseContext *ctx) {
  ExpressionPtr base = parse_primary(ctx);
  if (!base) return nullptr;
  int token = scan_expression_token(ctx);
  if (token != '^') {
    unget_token(ctx, token);
    return base;
  }
  NestingLevel level(ctx);
  if (!level.ok()) return nullptr;
  ExpressionPtr exponent = parse_power(ctx);
  if (!exponent) return nullptr;
  return make_composite(ov_op_power, std::move(base), std::move(exponent));
}

// product: power { ("*" | "/") power }, grouping to the left.
ExpressionPtr parse_product(ParseContext *ctx) {
  ExpressionPtr left = parse_power(ctx);
  if (!left) return nullptr;
  for (;;) {
    int token = scan_expression_token(ctx);
    if (token != '*' && token != '/') {
      unget_token(ctx, token);
      return left;
    }
    ExpressionPtr right = parse_power(ctx);
    if (!right) return nullptr;
    left = make_composite(token == '*' ? ov_op_multiply : ov_op_divide, std::move(left), std::move(right));
    if (!left) return nullptr;
  }
}

// sum: [ "+" | "-" ] product { ("+" | "-") product }. A leading sign covers
// the whole first product; on a number constant a minus is folded into it.
ExpressionPtr parse_sum(ParseContext *ctx) {
  int token = scan_expression_token(ctx);
  bool negate = token == '-';
  if (token != '+' && token != '-') unget_token(ctx, token);
  ExpressionPtr left = parse_product(ctx);
  if (!left) return nullptr;
  if (negate) {
    if (left->operator_code == ov_op_number) {
      left->value.number = -left->value.number;
    } else {
      left = make_composite(ov_op_negate, std::move(left), nullptr);
      if (!left) return nullptr;
    }
  }
  for (;;) {
    token = scan_expression_token(ctx);
    if (token != '+' && token != '-') {
      unget_token(ctx, token);
      return left;
    }
    ExpressionPtr right = parse_product(ctx);
    if (!right) return nullptr;
    left = make_composite(token == '+' ? ov_op_add : ov_op_subtract, std::move(left), std::move(right));
    if (!left) return nullptr;
  }
}

// comparison: sum [ op sum ]. At most one comparison: a second one is left
// for the caller, who does not expect it.
ExpressionPtr parse_comparison(ParseContext *ctx) {
  NestingLevel level(ctx);
  if (!level.ok()) return nullptr;
  ExpressionPtr left = parse_sum(ctx);
  if (!left) return nullptr;
  int token = scan_expression_token(ctx);
  if (token > tok_eq || token < tok_ge) {
    unget_token(ctx, token);
    return left;
  }
  ExpressionPtr right = parse_sum(ctx);
  if (!right) return nullptr;
  return make_composite(-token, std::move(left), std::move(right));
}

} // namespace

Expression *parse_expression(ParseContext *ctx) noexcept {
  try {
    return parse_comparison(ctx).release();
  } catch (const std::bad_alloc &) {
    set_error(ov_error_no_memory);
  } catch (...) {
    set_error(ov_error_error);
  }
  return nullptr;
}

Expression *parse_expression_string(Domain *scope, const char *text, ov_parse_error_handler_t handler,
                                    void *data) noexcept {
  ParseContext ctx(text, scan_expression_token);
  ctx.domain = scope;
  ctx.error_handler = handler;
  ctx.handler_data = data;
  ExpressionPtr expression(parse_expression(&ctx));
  if (!expression) return nullptr;
  if (scan_expression_token(&ctx) != tok_eof) {
    set_error(ov_error_syntax);
    return nullptr;
  }
  set_error(ov_error_none);
  return expression.release();
}

} // namespace orvel
