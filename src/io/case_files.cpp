// The value syntax that case and data files share, and case files: the
// findings of one case as "name: value" items.
#include "io/case_files.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "api/boundary.h"
#include "api/error.h"
#include "api/locale_guard.h"
#include "inference/evidence.h"
#include "io/string_escape.h"
#include "model/domain.h"
#include "model/node.h"

namespace orvel {

// ---------------------------------------------------------------- failures

ov_status_t case_parse_fail(ParseContext *ctx, const char *message, ov_error_t code) {
  parse_report(ctx, message);
  return fail(code);
}

ov_status_t case_token_fail(ParseContext *ctx, int token, const char *message) {
  if (token == tok_error && ov_error_code() != ov_error_none) return static_cast<ov_status_t>(ov_error_code());
  return case_parse_fail(ctx, message);
}

ov_status_t case_api_fail(ParseContext *ctx) {
  ov_error_t code = ov_error_code();
  if (code == ov_error_none) code = ov_error_error;
  parse_reportf(ctx, "API error: %s", ov_error_name(code));
  return fail(code);
}

// ---------------------------------------------------------------- values

namespace {

bool is_case_node(const Node *node) noexcept {
  return node->category == ov_category_chance || node->category == ov_category_decision;
}

// Gives the state to the finding or to the case entry.
ValueRead take_state(ParseContext *ctx, Node *node, std::int64_t case_index, std::uint32_t state) {
  const ov_status_t status = case_index < 0 ? node_select_state(node, state)
                                            : ov_node_set_case_state(node, case_index, static_cast<ov_index_t>(state));
  if (status == ov_error_none) return ValueRead::done;
  case_api_fail(ctx);
  return ValueRead::failed;
}

ValueRead hard(ParseContext *ctx, const char *message) {
  case_parse_fail(ctx, message);
  return ValueRead::failed;
}

ValueRead token_hard(ParseContext *ctx, int token, const char *message) {
  case_token_fail(ctx, token, message);
  return ValueRead::failed;
}

// A soft error: reported and counted; the value is skipped.
ValueRead soft(ParseContext *ctx, const char *message) {
  parse_report(ctx, message);
  return ValueRead::skipped;
}
ValueRead skipped() { return ValueRead::skipped; }

ValueRead read_state_index(ParseContext *ctx, Node *node, std::int64_t case_index, std::uint32_t line) {
  if (!node->has_states()) return hard(ctx, "state index can only be specified for discrete nodes");
  const int token = ctx->next_token(ctx);
  const double n = ctx->number;
  const bool valid = token == tok_number && n >= 0.0 && n < node->state_count && n == std::floor(n) &&
                     (case_index < 0 || ctx->line == line);
  if (!valid) return token_hard(ctx, token, "`#' must be followed by a valid state index");
  return take_state(ctx, node, case_index, static_cast<std::uint32_t>(n));
}

ValueRead read_likelihood(ParseContext *ctx, Node *node) {
  if (!node->has_states()) return hard(ctx, "likelihood can only be specified for discrete nodes");
  std::vector<ov_number_t> cells(node->state_count);
  for (ov_number_t &cell : cells) {
    const int token = ctx->next_token(ctx);
    if (token == ')') return hard(ctx, "likelihood vector too short");
    if (token != tok_number) return token_hard(ctx, token, "number expected");
    if (!(ctx->number >= 0.0)) return hard(ctx, "likelihood values must be nonnegative");
    cell = static_cast<ov_number_t>(ctx->number);
  }
  const int token = ctx->next_token(ctx);
  if (token != ')') return token_hard(ctx, token, "likelihood vector too long");
  for (std::uint32_t state = 0; state < node->state_count; ++state) {
    if (node_enter_finding(node, state, cells[state]) != ov_error_none) {
      case_api_fail(ctx);
      return ValueRead::failed;
    }
  }
  return ValueRead::done;
}

ValueRead read_number(ParseContext *ctx, Node *node, std::int64_t case_index) {
  const double value = ctx->number;
  if (!node->is_discrete()) {
    const ov_status_t status =
        case_index < 0 ? node_enter_value(node, value) : ov_node_set_case_value(node, case_index, value);
    if (status == ov_error_none) return ValueRead::done;
    case_api_fail(ctx);
    return ValueRead::failed;
  }
  if (node->subtype != ov_subtype_number && node->subtype != ov_subtype_interval)
    return soft(ctx, "numeric findings are only allowed for CG, numbered, and interval nodes");
  const MessageName name = message_name(node->name ? node->name->c_str() : "");
  if (!values_increase(node)) {
    parse_reportf(ctx, "the state values of `%s' do not form an increasing sequence", name.text);
    return skipped();
  }
  const std::int64_t state = node_state_from_value(node, value);
  if (state < 0) {
    parse_reportf(ctx, "no state of `%s' corresponds to the value %G", name.text, value);
    return skipped();
  }
  return take_state(ctx, node, case_index, static_cast<std::uint32_t>(state));
}

ValueRead read_label(ParseContext *ctx, Node *node, std::int64_t case_index, int token) {
  const char *text = ctx->text_or_empty();
  if (token == tok_name && node->has_states() && node->subtype == ov_subtype_boolean) {
    const bool is_false = std::strcmp(text, "false") == 0;
    if (!is_false && std::strcmp(text, "true") != 0)
      return soft(ctx, "state of boolean node should be `false' or `true'");
    const std::int64_t state = node_state_from_label(node, text);
    if (state < 0) return soft(ctx, "state of boolean node should be `false' or `true'");
    return take_state(ctx, node, case_index, static_cast<std::uint32_t>(state));
  }
  if (!node->has_states() || node->subtype != ov_subtype_label)
    return soft(ctx, "state labels are only allowed for labeled nodes");
  const std::int64_t state = node_state_from_label(node, text);
  if (state < 0) {
    parse_reportf(ctx, "\"%s\" is not a (unique) state label of `%s'", message_name(text).text,
                  message_name(node->name ? node->name->c_str() : "").text);
    return skipped();
  }
  return take_state(ctx, node, case_index, static_cast<std::uint32_t>(state));
}

} // namespace

ValueRead parse_case_value(ParseContext *ctx, Node *node, std::int64_t case_index, std::uint32_t line) {
  const int token = ctx->next_token(ctx);
  switch (token) {
  case '#': return read_state_index(ctx, node, case_index, line);
  case '(':
    if (case_index >= 0) return hard(ctx, "illegal token");
    return read_likelihood(ctx, node);
  case tok_number: return read_number(ctx, node, case_index);
  case tok_name:
  case tok_string: return read_label(ctx, node, case_index, token);
  case tok_eof: return hard(ctx, "unexpected end-of-file");
  default: return token_hard(ctx, token, "illegal token");
  }
}

// ---------------------------------------------------------------- writing

void format_case_number(char *text, std::size_t size, double value) {
  // An infinity or NaN carries its sign, so that the reader takes it for a
  // number rather than a name.
  if (!std::isfinite(value)) {
    std::snprintf(text, size, "%+G", value);
    return;
  }
  std::snprintf(text, size, "%G", value);
  if (std::strtod(text, nullptr) == value) return;
  std::snprintf(text, size, "%.15G", value);
  if (std::strtod(text, nullptr) == value) return;
  std::snprintf(text, size, "%.17G", value);
}

std::string state_text(const Node *node, std::uint32_t state) {
  switch (node->subtype) {
  case ov_subtype_boolean: return state == 0 ? "false" : "true";
  case ov_subtype_number:
    if (values_increase(node)) {
      char text[64];
      format_case_number(text, sizeof text, state_value(node, state));
      return text;
    }
    break;
  case ov_subtype_label: {
    const char *label = state_label(node, state);
    if (label[0] != 0 && node_state_from_label(node, label) == state) {
      std::string quoted(escape_string(label, nullptr) + 2, '"');
      escape_string(label, quoted.data() + 1);
      return quoted;
    }
    break;
  }
  default: break;
  }
  std::string index = "#";
  index += std::to_string(state);
  return index;
}

// ---------------------------------------------------------------- case files

namespace {

ov_status_t parse_case_items(ParseContext &ctx, Domain *domain) {
  for (;;) {
    int token = ctx.next_token(&ctx);
    if (token == tok_eof) break;
    if (token != tok_name) return case_token_fail(&ctx, token, "node name expected");
    Node *node = domain_find_node(domain, ctx.text_or_empty());
    if (node == nullptr) {
      parse_reportf(&ctx, "the domain has no node named `%s'", message_name(ctx.text_or_empty()).text);
      return fail(ov_error_parse);
    }
    if (!is_case_node(node)) return case_parse_fail(&ctx, "only chance and decision nodes can have findings");
    if (evidence_entered(node))
      parse_reportf(&ctx, "findings specified twice for `%s'", message_name(ctx.text_or_empty()).text);
    token = ctx.next_token(&ctx);
    if (token != ':') {
      if (token == tok_error && ov_error_code() != ov_error_none) return static_cast<ov_status_t>(ov_error_code());
      parse_reportf(&ctx, "`%c' expected", ':');
      return fail(ov_error_parse);
    }
    if (parse_case_value(&ctx, node, -1, ctx.line) == ValueRead::failed)
      return static_cast<ov_status_t>(ov_error_code());
  }
  if (ctx.error_count > 0) return fail(ov_error_parse);
  return ov_error_none;
}

} // namespace

ov_status_t case_file_parse(Domain *domain, const char *file_name, ov_parse_error_handler_t handler, void *data) {
  LocaleGuard guard;
  if (!guard.ok()) return static_cast<ov_status_t>(ov_error_code());
  std::FILE *file = std::fopen(file_name, "r");
  if (file == nullptr) return fail(ov_error_io);
  domain_retract_findings(domain);
  ov_status_t status;
  {
    ParseContext ctx(file, scan_net_token);
    ctx.error_handler = handler;
    ctx.handler_data = data;
    ctx.domain = domain;
    status = guarded_status([&] { return parse_case_items(ctx, domain); });
    if (ctx.read_failed) status = fail(ov_error_io);
  }
  if (std::fclose(file) != 0 && status == ov_error_none) status = fail(ov_error_io);
  if (status != ov_error_none) {
    domain_retract_findings(domain);
    set_error(static_cast<unsigned>(status));
    return status;
  }
  return set_error(ov_error_none);
}

ov_status_t case_file_save(Domain *domain, const char *file_name) {
  LocaleGuard guard;
  if (!guard.ok()) return static_cast<ov_status_t>(ov_error_code());
  std::FILE *stream = std::fopen(file_name, "w");
  if (stream == nullptr) return fail(ov_error_io);
  bool ok = true;
  char number[64];
  for (Node *node = ov_domain_get_first_node(domain); node != nullptr && ok; node = ov_node_get_next(node)) {
    if (!is_case_node(node) || !evidence_entered(node)) continue;
    const char *name = node_get_name(node);
    if (name == nullptr) {
      std::fclose(stream);
      return static_cast<ov_status_t>(ov_error_code());
    }
    ok = std::fprintf(stream, "%s: ", name) >= 0;
    if (!node->is_discrete()) {
      format_case_number(number, sizeof number, node->entered_value);
      ok = ok && std::fputs(number, stream) >= 0;
    } else if (!likelihood_entered(node) && entered_state(node) >= 0) {
      ok = ok && std::fputs(state_text(node, static_cast<std::uint32_t>(entered_state(node))).c_str(), stream) >= 0;
    } else {
      ok = ok && std::fputc('(', stream) != EOF;
      for (std::uint32_t state = 0; state < node->state_count && ok; ++state) {
        format_case_number(number, sizeof number, entered_finding_cell(node, state));
        ok = (state == 0 || std::fputc(' ', stream) != EOF) && std::fputs(number, stream) >= 0;
      }
      ok = ok && std::fputc(')', stream) != EOF;
    }
    if (ok && !node->label.empty()) {
      std::string escaped(escape_string(node->label.c_str(), nullptr), '\0');
      escape_string(node->label.c_str(), escaped.data());
      ok = std::fprintf(stream, "\t%% \"%s\"", escaped.c_str()) >= 0;
    }
    ok = ok && std::fputc('\n', stream) != EOF;
  }
  const bool closed = std::fclose(stream) == 0;
  if (!ok || !closed) return fail(ov_error_io);
  return set_error(ov_error_none);
}

} // namespace orvel
