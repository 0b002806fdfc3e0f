// The scanner shared by every text the library reads: NET files and NET text
// in memory, expression strings, node-list files, case and data files.
//
// A parse keeps all its state in one ParseContext on the stack of the entry
// point that starts it. Three token functions share the sub-scanners below
// and differ only in which characters they accept; they all pop the same
// two-entry push-back first, so a parser may switch between them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "api/memory.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Token codes. A one-character token is its own character code; the named
// tokens are negative. The comparison codes are the negated operator codes
// of the expressions (ov_op_equals .. ov_op_greater_than_or_equals).
constexpr int tok_name = -1;        // a plain name or word, in `text`
constexpr int tok_number = -2;      // a number, in `number`
constexpr int tok_string = -3;      // a string without quotes, escapes resolved, in `text`
constexpr int tok_dotted_name = -4; // a name holding at least one '.', in `text`
constexpr int tok_eof = -5;
constexpr int tok_error = -6;
constexpr int tok_eq = -99; // = or ==
constexpr int tok_lt = -100;
constexpr int tok_gt = -101;
constexpr int tok_ne = -102; // != or <>
constexpr int tok_le = -103;
constexpr int tok_ge = -104;

struct ParseContext;
using TokenFunction = int (*)(ParseContext *ctx);

struct ParseContext {
  // Characters of the last name, word or string, NUL-terminated. Grows by
  // doubling from 64 bytes; null only if even the first allocation failed.
  Buffer<char> text;
  std::uint32_t text_capacity = 0; // bytes allocated for `text`
  double number = 0.0;             // value of the last tok_number

  // Exactly one source: a stream, or a NUL-terminated string.
  std::FILE *file = nullptr;
  const char *string_start = nullptr;
  const char *string_cursor = nullptr;

  // Set once reading the stream has failed (as opposed to reaching its
  // end); from then on the source reads as empty and every token is an
  // error with io recorded.
  bool read_failed = false;
  bool read_failure_reported = false;

  std::uint32_t line = 1;        // current line of the source
  std::uint32_t error_count = 0; // messages given through parse_report
  ov_parse_error_handler_t error_handler = nullptr;
  void *handler_data = nullptr;

  Domain *domain = nullptr; // the domain or class being built: the scope of names
  TokenFunction next_token = nullptr;

  // Held-back tokens; `pushback_top` is the number held (the next free
  // slot). Parsers put back at most two tokens between two reads.
  int pushback[2] = {0, 0};
  std::uint32_t pushback_top = 0;

  double scale = 1.0; // scale factor of the old node format

  // Nesting of the expression parser (parentheses, calls, powers), bounded
  // so that hostile text cannot exhaust the stack.
  std::uint32_t expression_depth = 0;

  // Class files only.
  ClassCollection *class_collection = nullptr;
  ov_class_loader_t class_loader = nullptr;
  void *class_loader_data = nullptr;

  // A context over a stream or over a string (the string must outlive the
  // context). The text buffer is allocated here; if that fails, the first
  // token that needs it reports "out-of-memory".
  ParseContext(std::FILE *source, TokenFunction tokens) noexcept;
  ParseContext(const char *source, TokenFunction tokens) noexcept;
  ParseContext(const ParseContext &) = delete;
  ParseContext &operator=(const ParseContext &) = delete;

  // The location given to the error handler: the line for a file, the
  // number of bytes consumed for a string.
  std::uint32_t location() const noexcept;
  const char *text_or_empty() const noexcept { return text ? text.get() : ""; }
};

// The token functions.
// NET, node-list, case and data files.
int scan_net_token(ParseContext *ctx) noexcept;
// Expressions: operators, comparisons, signs as tokens of their own.
int scan_expression_token(ParseContext *ctx) noexcept;
// The old node format and the format probe: names are words that may hold
// '/', '.', '-' and '+', and a word that reads wholly as a number is one.
int scan_data_token(ParseContext *ctx) noexcept;

// Holds back a token; the next read of any token function returns it.
void unget_token(ParseContext *ctx, int token) noexcept;

// The message of a stream that fails part-way (rather than ending).
constexpr const char *read_failure_message = "could not read input";

// Gives a message to the error handler, if there is one, without counting it
// (warnings).
void parse_note(ParseContext *ctx, const char *message) noexcept;
// Gives a message to the error handler and counts it as an error.
void parse_report(ParseContext *ctx, const char *message) noexcept;

// Composing messages. A message is formatted into a buffer of
// message_capacity bytes. Names have no length limit, so every name placed in
// a message goes through message_name, which keeps at most
// message_name_limit bytes: a longer name keeps its first bytes (never
// splitting a UTF-8 sequence) followed by "...". Messages hold at most two
// names beside fewer than 100 bytes of fixed text, so the composed message
// always fits whole, with its closing quote; vsnprintf is the last guard and
// never overruns the buffer.
constexpr std::size_t message_capacity = 512;
constexpr std::size_t message_name_limit = 200;

struct MessageName {
  char text[message_name_limit + 1];
};
MessageName message_name(const char *name) noexcept;

// parse_report / parse_note of a message composed with printf rules.
void parse_reportf(ParseContext *ctx, const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));
void parse_notef(ParseContext *ctx, const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

// Which NET grammar a source uses: 0 for the old node format (its first five
// tokens are a name, a string and three numbers), 1 for the block format, -1
// with io if the stream position cannot be kept or the stream cannot be
// read. Reads from the stream's
// current position and goes back to it; a string source is read through a
// cursor of its own. Exactly one of `file` and `string` is non-null.
int probe_net_format(std::FILE *file, const char *string) noexcept;

// The error function that entry points taking an ov_simple_error_handler_t
// install: `data` points at a variable holding the simple handler.
void simple_error_adapter(std::uint32_t location, ov_string_t message, void *data);

} // namespace orvel
