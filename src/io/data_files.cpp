// Data files: a header line naming the nodes (after an optional '#' that
// says each case starts with its count), then one case a line, its fields
// separated by blanks or by one ','. A field that is empty, '*' or '?' is a
// missing value. The end of a line is seen only through the scanner's line
// count, so a case cannot span lines.
#include <cstring>
#include <string>
#include <vector>

#include "api/boundary.h"
#include "api/error.h"
#include "api/locale_guard.h"
#include "io/case_files.h"
#include "model/domain.h"
#include "model/node.h"

namespace orvel {
namespace {

// Reports a message at `line` (where the trouble is), although the scanner
// has already moved on to the line of the token that showed it.
void report_at(ParseContext &ctx, std::uint32_t line, const char *message) {
  const std::uint32_t current = ctx.line;
  ctx.line = line;
  parse_report(&ctx, message);
  ctx.line = current;
}

ov_status_t fail_at(ParseContext &ctx, std::uint32_t line, const char *message) {
  report_at(ctx, line, message);
  return fail(ov_error_parse);
}

struct Header {
  bool counts = false;
  std::vector<Node *> nodes;
};

// The header: the first line with a token.
ov_status_t parse_header(ParseContext &ctx, Domain *domain, Header &header) {
  int token = ctx.next_token(&ctx);
  const std::uint32_t line = ctx.line;
  // True when the header line goes on with a token (in `token`).
  auto more = [&] {
    token = ctx.next_token(&ctx);
    return token != tok_eof && ctx.line == line;
  };
  if (token == '#') {
    header.counts = true;
    if (!more()) return fail_at(ctx, line, "line is incomplete");
    if (token == ',' && !more()) return fail_at(ctx, line, "line is incomplete");
  }
  for (;;) {
    if (token != tok_name) return case_token_fail(&ctx, token, "node name expected");
    const char *name = ctx.text_or_empty();
    Node *node = domain_find_node(domain, name);
    if (node == nullptr) {
      parse_reportf(&ctx, "the domain has no node named `%s'", message_name(name).text);
      return fail(ov_error_parse);
    }
    if (node->category != ov_category_chance && node->category != ov_category_decision) {
      parse_reportf(&ctx, "node `%s' is not a chance or a decision node", message_name(name).text);
      return fail(ov_error_parse);
    }
    for (const Node *listed : header.nodes) {
      if (listed != node) continue;
      parse_reportf(&ctx, "node `%s' listed twice", message_name(name).text);
      return fail(ov_error_parse);
    }
    header.nodes.push_back(node);
    if (!more()) break;
    if (token == ',' && !more()) return fail_at(ctx, line, "line is incomplete");
  }
  if (token == tok_error) return case_token_fail(&ctx, token, "syntax error");
  unget_token(&ctx, token);
  return ov_error_none;
}

// One case line, whose first token is next.
ov_status_t parse_case_line(ParseContext &ctx, const Header &header) {
  const ov_index_t index = ov_domain_new_case(ctx.domain);
  if (index < 0) return case_api_fail(&ctx);
  int token = ctx.next_token(&ctx);
  const std::uint32_t line = ctx.line;
  if (header.counts) {
    if (token != tok_number) return case_token_fail(&ctx, token, "case count expected");
    if (!(ctx.number >= 0.0)) return case_parse_fail(&ctx, "case counts must be nonnegative");
    if (ov_domain_set_case_count(ctx.domain, index, static_cast<ov_number_t>(ctx.number)) != ov_error_none)
      return case_api_fail(&ctx);
    token = ctx.next_token(&ctx);
    if (token == tok_eof || ctx.line != line) return fail_at(ctx, line, "line is incomplete");
    if (token == ',') token = ctx.next_token(&ctx);
  }
  for (std::size_t k = 0; k < header.nodes.size(); ++k) {
    Node *node = header.nodes[k];
    if (k > 0) {
      token = ctx.next_token(&ctx);
      if (token == ',' && ctx.line == line) token = ctx.next_token(&ctx);
    }
    if (token == tok_eof) return case_parse_fail(&ctx, "unexpected end-of-file");
    if (token == tok_error) return case_token_fail(&ctx, token, "syntax error");
    if (ctx.line != line) {
      report_at(ctx, line, "the case has too few data items");
      unget_token(&ctx, token);
      return ov_error_none;
    }
    if (token == ',' || token == '*' || token == '?') continue; // missing
    unget_token(&ctx, token);
    if (parse_case_value(&ctx, node, index, line) == ValueRead::failed)
      return static_cast<ov_status_t>(ov_error_code());
  }
  token = ctx.next_token(&ctx);
  if (token != tok_eof && ctx.line == line) return case_parse_fail(&ctx, "the case has extra stuff at the end");
  unget_token(&ctx, token);
  return ov_error_none;
}

ov_status_t parse_data(ParseContext &ctx, Domain *domain) {
  Header header;
  int token = ctx.next_token(&ctx);
  if (token != tok_eof) {
    unget_token(&ctx, token);
    if (const ov_status_t status = parse_header(ctx, domain, header); status != ov_error_none) return status;
    token = ctx.next_token(&ctx);
  }
  if (token == tok_eof) {
    parse_note(&ctx, "warning: file contains no cases");
    return ctx.error_count > 0 ? fail(ov_error_parse) : ov_error_none;
  }
  while (token != tok_eof) {
    unget_token(&ctx, token);
    if (const ov_status_t status = parse_case_line(ctx, header); status != ov_error_none) return status;
    token = ctx.next_token(&ctx);
  }
  return ctx.error_count > 0 ? fail(ov_error_parse) : ov_error_none;
}

} // namespace

ov_status_t data_file_parse(Domain *domain, const char *file_name, ov_parse_error_handler_t handler, void *data) {
  LocaleGuard guard;
  if (!guard.ok()) return static_cast<ov_status_t>(ov_error_code());
  std::FILE *file = std::fopen(file_name, "r");
  if (file == nullptr) return fail(ov_error_io);
  const std::uint32_t old_count = domain->case_count;
  ov_status_t status;
  {
    ParseContext ctx(file, scan_net_token);
    ctx.error_handler = handler;
    ctx.handler_data = data;
    ctx.domain = domain;
    status = guarded_status([&] { return parse_data(ctx, domain); });
    if (ctx.read_failed) status = fail(ov_error_io);
  }
  if (std::fclose(file) != 0 && status == ov_error_none) status = fail(ov_error_io);
  if (status != ov_error_none) {
    ov_domain_set_number_of_cases(domain, old_count);
    set_error(static_cast<unsigned>(status));
    return status;
  }
  return set_error(ov_error_none);
}

// ---------------------------------------------------------------- writing

namespace {

// The columns of a data file: each node with the texts of its states,
// made once for the whole file.
struct Column {
  Node *node;
  std::vector<std::string> states;
};

bool write_entry(std::FILE *stream, const Column &column, ov_index_t index, const char *missing) {
  Node *node = column.node;
  if (ov_node_case_is_set(node, index) != 1) return std::fputs(missing, stream) >= 0;
  if (node->is_discrete()) {
    const auto state = static_cast<std::size_t>(ov_node_get_case_state(node, index));
    return std::fputs(column.states[state].c_str(), stream) >= 0;
  }
  char number[64];
  format_case_number(number, sizeof number, ov_node_get_case_value(node, index));
  return std::fputs(number, stream) >= 0;
}

bool write_case(std::FILE *stream, Domain *domain, const std::vector<Column> &columns, ov_index_t index, bool counts,
                const char *separator, const char *missing) {
  if (counts) {
    char number[64];
    format_case_number(number, sizeof number, ov_domain_get_case_count(domain, index));
    if (std::fputs(number, stream) < 0 || std::fputs(separator, stream) < 0) return false;
  }
  for (std::size_t k = 0; k < columns.size(); ++k) {
    if (k > 0 && std::fputs(separator, stream) < 0) return false;
    if (!write_entry(stream, columns[k], index, missing)) return false;
  }
  return std::fputc('\n', stream) != EOF;
}

} // namespace

ov_status_t data_file_save(Domain *domain, const char *file_name, Node *const *nodes, const ov_index_t *cases,
                           bool counts, const char *separator, const char *missing) {
  LocaleGuard guard;
  if (!guard.ok()) return static_cast<ov_status_t>(ov_error_code());
  std::vector<const char *> names;
  std::vector<Column> columns;
  for (std::size_t k = 0; nodes[k] != nullptr; ++k) {
    const char *name = node_get_name(nodes[k]);
    if (name == nullptr) return static_cast<ov_status_t>(ov_error_code());
    names.push_back(name);
    Column &column = columns.emplace_back(Column{nodes[k], {}});
    if (nodes[k]->is_discrete())
      for (std::uint32_t state = 0; state < nodes[k]->state_count; ++state)
        column.states.push_back(state_text(nodes[k], state));
  }
  std::FILE *stream = std::fopen(file_name, "w");
  if (stream == nullptr) return fail(ov_error_io);
  bool ok = !counts || std::fprintf(stream, "#%s", separator) >= 0;
  for (std::size_t k = 0; k < names.size() && ok; ++k)
    ok = (k == 0 || std::fputs(separator, stream) >= 0) && std::fputs(names[k], stream) >= 0;
  ok = ok && std::fputs("\n\n", stream) >= 0;
  if (cases == nullptr) {
    for (ov_index_t index = 0; index < domain->case_count && ok; ++index)
      ok = write_case(stream, domain, columns, index, counts, separator, missing);
  } else {
    for (const ov_index_t *index = cases; *index >= 0 && ok; ++index)
      ok = write_case(stream, domain, columns, *index, counts, separator, missing);
  }
  const bool closed = std::fclose(stream) == 0;
  if (!ok || !closed) return fail(ov_error_io);
  return set_error(ov_error_none);
}

} // namespace orvel
