// The expression parser: a recursive-descent grammar run from an explicit
// stack of frames, one per rule in progress. Each level reads its first
// operand, then one token; a token that does not belong to the level goes
// back, and the level returns what it has.
#include "expr/expression_parser.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

#include "api/error.h"
#include "expr/expression.h"
#include "io/name_resolver.h"
#include "model/domain.h"

namespace orvel {

namespace {

ExpressionPtr syntax_error() noexcept {
  set_error(ov_error_syntax);
  return nullptr;
}

// One more level of nesting; false, with the error reported, when that is
// one too many.
bool enter_level(ParseContext *ctx) {
  ++ctx->expression_depth;
  if (ctx->expression_depth <= expression_nesting_limit) return true;
  parse_report(ctx, "expression is nested too deeply");
  set_error(ov_error_syntax);
  return false;
}

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

// A call of the operator op over the arguments read.
ExpressionPtr make_call(ParseContext *ctx, int op, std::vector<ExpressionPtr> &arguments) {
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

// The grammar, lowest precedence first:
//   comparison: sum [ op sum ]                       (at most one comparison)
//   sum:        [ "+" | "-" ] product { ("+" | "-") product }
//   product:    power { ("*" | "/") power }
//   power:      primary [ "^" power ]                 (grouping to the right)
//   primary:    "(" comparison ")" | path | string | number
//             | name [ "(" [ comparison { "," comparison } ] ")" ]
// A leading sign covers the whole first product; on a number constant a
// minus is folded into it.
//
// Nesting is unbounded in the text but bounded by expression_nesting_limit,
// so the rules are run from an explicit stack of frames rather than by
// recursion: the depth of a parse never depends on the caller's stack. A
// frame is a rule in progress; `stage' says where it goes on when the rule
// it started returns its result. Every level holds its partial trees in
// ExpressionPtr, so a failure anywhere releases all of them.
enum class Rule : std::uint8_t { comparison, sum, product, power, parenthesis, arguments };

struct Frame {
  explicit Frame(Rule r) : rule(r) {}
  Rule rule;
  int stage = 0;
  int op = 0;           // the operator waiting for its right operand, or the call's
  bool negate = false;  // a leading minus of a sum
  bool counted = false; // the frame holds a level of nesting
  ExpressionPtr left;
  std::vector<ExpressionPtr> arguments;
};

class Parser {
public:
  explicit Parser(ParseContext *ctx) : ctx_(ctx), depth_(ctx->expression_depth) {}
  ~Parser() { ctx_->expression_depth = depth_; }
  Parser(const Parser &) = delete;
  Parser &operator=(const Parser &) = delete;

  ExpressionPtr run() {
    if (!call(Rule::comparison)) return nullptr;
    ExpressionPtr result;
    while (!frames_.empty()) {
      Step step = resume(frames_.back(), result);
      if (step == Step::fail) return nullptr;
      if (step == Step::give) {
        result = std::move(frames_.back().left);
        if (frames_.back().counted) --ctx_->expression_depth;
        frames_.pop_back();
      }
    }
    return result;
  }

private:
  // What a frame does next: wait for the rule it started, return its `left'
  // to the frame below, or fail.
  enum class Step { wait, give, fail };

  bool call(Rule rule) {
    frames_.emplace_back(rule);
    if (rule != Rule::comparison) return true;
    frames_.back().counted = true;
    return enter_level(ctx_);
  }

  Step start(Rule rule) { return call(rule) ? Step::wait : Step::fail; }

  static Step give(Frame &frame, ExpressionPtr value) {
    if (!value) return Step::fail;
    frame.left = std::move(value);
    return Step::give;
  }

  Step resume(Frame &frame, ExpressionPtr &result) {
    switch (frame.rule) {
    case Rule::comparison: return comparison(frame, result);
    case Rule::sum: return sum(frame, result);
    case Rule::product: return product(frame, result);
    case Rule::power: return power(frame, result);
    case Rule::parenthesis:
      if (scan_expression_token(ctx_) != ')') return (void)syntax_error(), Step::fail;
      return give(frame, std::move(result));
    case Rule::arguments: return arguments(frame, result);
    }
    return Step::fail;
  }

  Step comparison(Frame &frame, ExpressionPtr &result) {
    switch (frame.stage) {
    case 0: frame.stage = 1; return start(Rule::sum);
    case 1: {
      frame.left = std::move(result);
      int token = scan_expression_token(ctx_);
      if (token > tok_eq || token < tok_ge) {
        unget_token(ctx_, token);
        return Step::give;
      }
      frame.op = -token;
      frame.stage = 2;
      return start(Rule::sum);
    }
    default: return give(frame, make_composite(frame.op, std::move(frame.left), std::move(result)));
    }
  }

  Step sum(Frame &frame, ExpressionPtr &result) {
    switch (frame.stage) {
    case 0: {
      int token = scan_expression_token(ctx_);
      frame.negate = token == '-';
      if (token != '+' && token != '-') unget_token(ctx_, token);
      frame.stage = 1;
      return start(Rule::product);
    }
    case 1:
      frame.left = std::move(result);
      if (frame.negate) {
        if (frame.left->operator_code == ov_op_number) {
          frame.left->value.number = -frame.left->value.number;
        } else {
          frame.left = make_composite(ov_op_negate, std::move(frame.left), nullptr);
          if (!frame.left) return Step::fail;
        }
      }
      break;
    default:
      frame.left = make_composite(frame.op, std::move(frame.left), std::move(result));
      if (!frame.left) return Step::fail;
      break;
    }
    int token = scan_expression_token(ctx_);
    if (token != '+' && token != '-') {
      unget_token(ctx_, token);
      return Step::give;
    }
    frame.op = token == '+' ? ov_op_add : ov_op_subtract;
    frame.stage = 2;
    return start(Rule::product);
  }

  Step product(Frame &frame, ExpressionPtr &result) {
    switch (frame.stage) {
    case 0: frame.stage = 1; return start(Rule::power);
    case 1: frame.left = std::move(result); break;
    default:
      frame.left = make_composite(frame.op, std::move(frame.left), std::move(result));
      if (!frame.left) return Step::fail;
      break;
    }
    int token = scan_expression_token(ctx_);
    if (token != '*' && token != '/') {
      unget_token(ctx_, token);
      return Step::give;
    }
    frame.op = token == '*' ? ov_op_multiply : ov_op_divide;
    frame.stage = 2;
    return start(Rule::power);
  }

  Step power(Frame &frame, ExpressionPtr &result) {
    switch (frame.stage) {
    case 0: return primary(frame);
    case 1: {
      frame.left = std::move(result);
      int token = scan_expression_token(ctx_);
      if (token != '^') {
        unget_token(ctx_, token);
        return Step::give;
      }
      frame.counted = true;
      if (!enter_level(ctx_)) return Step::fail;
      frame.stage = 2;
      return start(Rule::power);
    }
    default: return give(frame, make_composite(ov_op_power, std::move(frame.left), std::move(result)));
    }
  }

  // The primary of a power frame: either read at once (the frame goes on to
  // look for "^"), or started as a rule of its own whose result comes back
  // to stage 1.
  Step primary(Frame &frame) {
    frame.stage = 1;
    int token = scan_expression_token(ctx_);
    switch (token) {
    case '(': return start(Rule::parenthesis) == Step::wait ? start(Rule::comparison) : Step::fail;
    case tok_dotted_name: {
      if (ctx_->domain == nullptr) return (void)syntax_error(), Step::fail; // no scope to resolve in
      Node *node = resolve_node_path(ctx_, ctx_->domain, ctx_->text.get());
      if (node == nullptr) return Step::fail;
      return operand(ExpressionPtr(node_expression(node)));
    }
    case tok_string: return operand(ExpressionPtr(label_expression(ctx_->text_or_empty())));
    case tok_number: return operand(ExpressionPtr(number_expression(ctx_->number)));
    case tok_name: return name();
    default: return (void)syntax_error(), Step::fail;
    }
  }

  // A primary read at once: handed to the power frame on top as if a rule
  // had returned it.
  Step operand(ExpressionPtr value) {
    if (!value) return Step::fail;
    frames_.emplace_back(Rule::parenthesis);
    frames_.back().stage = -1;
    frames_.back().left = std::move(value);
    return Step::give;
  }

  // A name: a function call when "(" follows, otherwise a node of the scope
  // (which hides the constants true and false), or one of those constants.
  Step name() {
    const char *name = ctx_->text_or_empty();
    set_error(ov_error_none);
    Node *node = ctx_->domain != nullptr ? domain_find_node(ctx_->domain, name) : nullptr;
    ov_error_t lookup_error = ov_error_code();
    int constant = std::strcmp(name, "true") == 0 ? 1 : std::strcmp(name, "false") == 0 ? 0 : -1;

    int token = scan_expression_token(ctx_);
    if (token == '(') return call_operator();
    unget_token(ctx_, token);
    if (node != nullptr) return operand(ExpressionPtr(node_expression(node)));
    if (lookup_error != ov_error_none) {
      set_error(lookup_error);
      return Step::fail;
    }
    if (constant >= 0) return operand(ExpressionPtr(boolean_expression(constant)));
    parse_report(ctx_, "no such node");
    return (void)syntax_error(), Step::fail;
  }

  // A function call: the operator's name has been read, and its "(".
  Step call_operator() {
    int op = function_operator_from_name(ctx_->text_or_empty());
    if (op < 0) {
      parse_reportf(ctx_, "unknown operator `%s'", message_name(ctx_->text_or_empty()).text);
      return (void)syntax_error(), Step::fail;
    }
    frames_.emplace_back(Rule::arguments);
    Frame &frame = frames_.back();
    frame.op = op;
    int token = scan_expression_token(ctx_);
    if (token == ')') return give(frame, make_call(ctx_, op, frame.arguments));
    unget_token(ctx_, token);
    frame.stage = 1;
    return start(Rule::comparison);
  }

  // The operands of a call: comparison-level expressions separated by ","
  // up to ")".
  Step arguments(Frame &frame, ExpressionPtr &result) {
    frame.arguments.push_back(std::move(result));
    int token = scan_expression_token(ctx_);
    if (token == ',') return start(Rule::comparison);
    if (token == ')') return give(frame, make_call(ctx_, frame.op, frame.arguments));
    parse_report(ctx_, "`,' or `)' expected");
    set_error(ov_error_syntax);
    return Step::fail;
  }

  ParseContext *ctx_;
  std::uint32_t depth_;
  std::vector<Frame> frames_;
};

} // namespace

Expression *parse_expression(ParseContext *ctx) noexcept {
  try {
    return Parser(ctx).run().release();
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
