// The scanner: sources, sub-scanners, the three token functions, messages
// and the format probe.
#include "io/scanner.h"

#include <cassert>
#include <cctype>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "api/error.h"

namespace orvel {

namespace {

constexpr Size initial_text_capacity = 64;

// ---------------------------------------------------------------- sources

// The next byte of the source, or EOF. A NUL byte ends a string source and
// is not consumed, so reading on at the end keeps giving EOF. A stream that
// fails is marked, and reads as ended from then on.
int read_char(ParseContext *ctx) noexcept {
  if (ctx->file != nullptr) {
    if (ctx->read_failed) return EOF;
    int c = std::getc(ctx->file);
    if (c == EOF && std::ferror(ctx->file)) ctx->read_failed = true;
    return c;
  }
  auto c = static_cast<unsigned char>(*ctx->string_cursor);
  if (c == 0) return EOF;
  ++ctx->string_cursor;
  return c;
}

// Puts back a byte read ahead. On a string the cursor steps back and the byte
// there is compared with `c`; EOF is stepped back over without comparing,
// since reading EOF consumed nothing: an operator at the very end of a string
// is therefore read a second time, a behaviour callers rely on being stable.
bool unread_char(ParseContext *ctx, int c) noexcept {
  if (ctx->file != nullptr) return std::ungetc(c, ctx->file) != EOF;
  if (ctx->string_cursor == ctx->string_start) return false;
  --ctx->string_cursor;
  return c == EOF || static_cast<unsigned char>(*ctx->string_cursor) == c;
}

// Records a failure of the scanner that has a message of its own. After a
// failed read the token is cut short by it, and the read failure is the one
// reported (by checked_token).
int scan_failure(ParseContext *ctx, const char *message, ov_error_t code) noexcept {
  if (ctx->read_failed) return tok_error;
  parse_report(ctx, message);
  set_error(code);
  return tok_error;
}

// unread_char with the failure reported; false when the byte could not go
// back.
bool put_back(ParseContext *ctx, int c) noexcept {
  if (unread_char(ctx, c)) return true;
  scan_failure(ctx, "could not unget character", ov_error_io);
  return false;
}

int unexpected_character(ParseContext *ctx, int c) noexcept {
  parse_reportf(ctx, "unexpected character: `%c'", c);
  set_error(ov_error_parse);
  return tok_error;
}

// ---------------------------------------------------------------- text

// Stores one byte at `length` and keeps room for the terminator, doubling
// the buffer when it is full. On failure reports "out-of-memory" and leaves
// no_memory recorded.
bool text_put(ParseContext *ctx, Size &length, char c) noexcept {
  if (size_add(length, 1) >= ctx->text_capacity) {
    Size capacity = ctx->text_capacity == 0 ? initial_text_capacity : size_multiply(2, ctx->text_capacity);
    void *grown = mem_realloc(ctx->text.get(), capacity);
    if (grown == nullptr) {
      parse_report(ctx, "out-of-memory");
      set_error(ov_error_no_memory);
      return false;
    }
    (void)ctx->text.release();
    ctx->text.reset(static_cast<char *>(grown));
    ctx->text_capacity = capacity;
  }
  ctx->text[length++] = c;
  ctx->text[length] = 0;
  return true;
}

// Makes sure `text` holds at least the empty string.
bool text_clear(ParseContext *ctx) noexcept {
  if (ctx->text_capacity == 0) {
    Size length = 0;
    if (!text_put(ctx, length, 0)) return false;
  }
  ctx->text[0] = 0;
  return true;
}

bool is_name_char(int c) noexcept { return c != EOF && (std::isalnum(c) || c == '_' || c == '.'); }
bool is_word_char(int c) noexcept {
  return c != EOF && (std::isalnum(c) || c == '_' || c == '/' || c == '.' || c == '-' || c == '+');
}
bool is_number_char(int c) noexcept {
  return c != EOF && (std::isdigit(c) || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E' || c == 'L');
}
bool is_octal_digit(int c) noexcept { return c >= '0' && c <= '7'; }

// ---------------------------------------------------------------- blanks

// Skips white space and comments ('%' to the end of the line), counting
// lines; returns the first other byte, or EOF.
int skip_blanks(ParseContext *ctx) noexcept {
  for (;;) {
    int c = read_char(ctx);
    if (c == '\n') {
      ++ctx->line;
      continue;
    }
    if (c != EOF && std::isspace(c)) continue;
    if (c != '%') return c;
    do c = read_char(ctx);
    while (c != '\n' && c != EOF);
    if (c == EOF) return EOF;
    ++ctx->line;
  }
}

// ---------------------------------------------------------------- numbers

// A number that starts with `first`, already read. A stream is read with one
// "%lg" conversion. A string source is copied over the bytes that may belong
// to a number and converted with strtod; the cursor then moves by exactly the
// bytes strtod used. Neither reports anything when no number is there.
int scan_number(ParseContext *ctx, int first) noexcept {
  if (!put_back(ctx, first)) return tok_error;
  if (ctx->file != nullptr) {
    const int converted = std::fscanf(ctx->file, "%lg", &ctx->number);
    // A failure part-way through the digits still converts what came first.
    if (std::ferror(ctx->file)) ctx->read_failed = true;
    return converted == 1 ? tok_number : tok_error;
  }
  Size length = 0;
  if (!text_clear(ctx)) return tok_error;
  for (const char *p = ctx->string_cursor; is_number_char(static_cast<unsigned char>(*p)); ++p)
    if (!text_put(ctx, length, *p)) return tok_error;
  char *end = nullptr;
  double value = std::strtod(ctx->text.get(), &end);
  if (end == ctx->text.get()) return tok_error;
  ctx->number = value;
  ctx->string_cursor += end - ctx->text.get();
  return tok_number;
}

// ---------------------------------------------------------------- names

// A name: letters, digits, '_' and '.', after a first letter or '_'. A name
// with dots is a dotted name, and each dot must start a new name.
int scan_name(ParseContext *ctx, int first) noexcept {
  Size length = 0;
  if (!text_put(ctx, length, static_cast<char>(first))) return tok_error;
  int c = read_char(ctx);
  for (; is_name_char(c); c = read_char(ctx))
    if (!text_put(ctx, length, static_cast<char>(c))) return tok_error;
  if (c != EOF && !put_back(ctx, c)) return tok_error;
  const char *text = ctx->text.get();
  const char *dot = std::strchr(text, '.');
  if (dot == nullptr) return tok_name;
  for (; dot != nullptr; dot = std::strchr(dot + 1, '.')) {
    auto next = static_cast<unsigned char>(dot[1]);
    if (!(std::isalpha(next) || next == '_'))
      return scan_failure(ctx, "`.' must be followed by a letter or a `_'", ov_error_parse);
  }
  return tok_dotted_name;
}

// A word of the data grammar: letters, digits and "_/.-+". A word that
// starts with '.', '-' or '+' and reads wholly as a number is a number.
int scan_word(ParseContext *ctx, int first) noexcept {
  Size length = 0;
  if (!text_put(ctx, length, static_cast<char>(first))) return tok_error;
  int c = read_char(ctx);
  for (; is_word_char(c); c = read_char(ctx))
    if (!text_put(ctx, length, static_cast<char>(c))) return tok_error;
  // At end of input there is nothing to put back (a string source would
  // otherwise step back into the word and read its last byte again).
  if (c != EOF && !put_back(ctx, c)) return tok_error;
  const char *text = ctx->text.get();
  if (text[0] == '.' || text[0] == '-' || text[0] == '+') {
    char *end = nullptr;
    double value = std::strtod(text, &end);
    if (end != text && *end == 0) {
      ctx->number = value;
      return tok_number;
    }
  }
  return tok_name;
}

// ---------------------------------------------------------------- strings

// Stores one byte of a string; a NUL is stored with a warning, since the
// string as the caller sees it ends there.
bool string_put(ParseContext *ctx, Size &length, int value) noexcept {
  if (value == 0) parse_note(ctx, "warning: null character in string");
  return text_put(ctx, length, static_cast<char>(value));
}

int hex_value(int c) noexcept {
  if (std::isdigit(c)) return c - '0';
  return std::tolower(c) - 'a' + 10;
}

// A string, after its opening quote, up to the closing quote.
int scan_string(ParseContext *ctx) noexcept {
  Size length = 0;
  if (!text_clear(ctx)) return tok_error;
  for (;;) {
    int c = read_char(ctx);
    if (c == '"') return tok_string;
    if (c == EOF || c == '\n') return scan_failure(ctx, "string did not end", ov_error_parse);
    if (c != '\\') {
      if (!string_put(ctx, length, c)) return tok_error;
      continue;
    }
    int e = read_char(ctx);
    int stored;
    switch (e) {
    case EOF: return scan_failure(ctx, "string did not end", ov_error_parse);
    case '\n': ++ctx->line; continue;
    case '"':
    case '\'':
    case '?':
    case '\\': stored = e; break;
    // The letter escapes are never 0, so they skip the NUL warning.
    case 'a': stored = 7; break;
    case 'b': stored = 8; break;
    case 'f': stored = 12; break;
    case 'n': stored = 10; break;
    case 'r': stored = 13; break;
    case 't': stored = 9; break;
    case 'v': stored = 11; break;
    case 'x': {
      // Any number of hexadecimal digits, shifted in and kept as one byte.
      int d = read_char(ctx);
      if (d == EOF || !std::isxdigit(d)) return tok_error;
      unsigned value = 0;
      for (; d != EOF && std::isxdigit(d); d = read_char(ctx))
        value = (value << 4) | static_cast<unsigned>(hex_value(d));
      // The string cannot end here, so an end of input cannot go back.
      if (d == EOF) return scan_failure(ctx, "could not unget character", ov_error_io);
      if (!put_back(ctx, d)) return tok_error;
      if (!string_put(ctx, length, static_cast<int>(value & 0xFFu))) return tok_error;
      continue;
    }
    default:
      if (is_octal_digit(e)) {
        unsigned value = static_cast<unsigned>(e - '0');
        int digits = 1;
        int d = EOF;
        while (digits < 3) {
          d = read_char(ctx);
          if (!is_octal_digit(d)) break;
          value = value * 8 + static_cast<unsigned>(d - '0');
          ++digits;
        }
        if (digits < 3) {
          if (d == EOF) return scan_failure(ctx, "could not unget character", ov_error_io);
          if (!put_back(ctx, d)) return tok_error;
        }
        if (!string_put(ctx, length, static_cast<int>(value & 0xFFu))) return tok_error;
        continue;
      }
      parse_reportf(ctx, "illegal escape sequence: `\\%c'", e);
      set_error(ov_error_parse);
      return tok_error;
    }
    if (!text_put(ctx, length, static_cast<char>(stored))) return tok_error;
  }
}

// ---------------------------------------------------------------- comparisons

// A comparison operator of the expression grammar, after its first byte.
int scan_comparison(ParseContext *ctx, int first) noexcept {
  int c = read_char(ctx);
  switch (first) {
  case '=':
    if (c == '=') return tok_eq;
    return put_back(ctx, c) ? tok_eq : tok_error;
  case '!':
    if (c == '=') return tok_ne;
    return scan_failure(ctx, "`!' must be followed by `='", ov_error_parse);
  case '<':
    if (c == '=') return tok_le;
    if (c == '>') return tok_ne;
    return put_back(ctx, c) ? tok_lt : tok_error;
  default: // '>'
    if (c == '=') return tok_ge;
    return put_back(ctx, c) ? tok_gt : tok_error;
  }
}

// The last step of every token function: a token read from a stream that
// failed on the way is not what the source holds, so it becomes an error
// with io, reported with a message of its own the first time.
int checked_token(ParseContext *ctx, int token) noexcept {
  if (!ctx->read_failed) return token;
  if (ctx->read_failure_reported) {
    set_error(ov_error_io);
    return tok_error;
  }
  ctx->read_failure_reported = true;
  parse_report(ctx, read_failure_message);
  set_error(ov_error_io);
  return tok_error;
}

// The first step of every token function: pops the newest held-back token.
bool held_token(ParseContext *ctx, int &token) noexcept {
  if (ctx->pushback_top == 0) return false;
  token = ctx->pushback[--ctx->pushback_top];
  return true;
}

} // namespace

// ---------------------------------------------------------------- context

ParseContext::ParseContext(std::FILE *source, TokenFunction tokens) noexcept : file(source), next_token(tokens) {
  text.reset(static_cast<char *>(mem_alloc(initial_text_capacity)));
  if (text) {
    text_capacity = initial_text_capacity;
    text[0] = 0;
  }
}

ParseContext::ParseContext(const char *source, TokenFunction tokens) noexcept
    : ParseContext(static_cast<std::FILE *>(nullptr), tokens) {
  string_start = source;
  string_cursor = source;
}

std::uint32_t ParseContext::location() const noexcept {
  if (file != nullptr || string_start == nullptr) return line;
  return static_cast<std::uint32_t>(string_cursor - string_start);
}

// ---------------------------------------------------------------- tokens

namespace {

// What NET and expression text share beyond their punctuation: a string, a
// name or a number, told by the first character.
int scan_operand(ParseContext *ctx, int c) noexcept {
  if (c == '"') return scan_string(ctx);
  if (c == '_' || std::isalpha(c)) return scan_name(ctx, c);
  if (std::isdigit(c)) return scan_number(ctx, c);
  return unexpected_character(ctx, c);
}

int net_token(ParseContext *ctx) noexcept {
  int token;
  if (held_token(ctx, token)) return token;
  int c = skip_blanks(ctx);
  if (c == EOF) return tok_eof;
  switch (c) {
  case '(':
  case ')':
  case '*':
  case ',':
  case ':':
  case ';':
  case '{':
  case '|':
  case '}':
  case '#':
  case '=':
  case '?': return c;
  case '+':
  case '-':
  case '.': return scan_number(ctx, c);
  default: return scan_operand(ctx, c);
  }
}

int expression_token(ParseContext *ctx) noexcept {
  int token;
  if (held_token(ctx, token)) return token;
  int c = skip_blanks(ctx);
  if (c == EOF) return tok_eof;
  switch (c) {
  case '(':
  case ')':
  case '*':
  case ',':
  case ':':
  case ';':
  case '{':
  case '|':
  case '}':
  case '/':
  case '^':
  case '+':
  case '-': return c;
  case '=':
  case '<':
  case '>':
  case '!': return scan_comparison(ctx, c);
  case '.': return scan_number(ctx, c);
  default: return scan_operand(ctx, c);
  }
}

int data_token(ParseContext *ctx) noexcept {
  int token;
  if (held_token(ctx, token)) return token;
  int c = skip_blanks(ctx);
  if (c == EOF) return tok_eof;
  switch (c) {
  case '(':
  case ')': return c;
  case '/':
  case '+':
  case '-':
  case '.':
  case '_': return scan_word(ctx, c);
  case '"': return scan_string(ctx);
  default:
    if (std::isdigit(c)) return scan_number(ctx, c);
    if (std::isalpha(c)) return scan_word(ctx, c);
    return unexpected_character(ctx, c);
  }
}

} // namespace

int scan_net_token(ParseContext *ctx) noexcept { return checked_token(ctx, net_token(ctx)); }
int scan_expression_token(ParseContext *ctx) noexcept { return checked_token(ctx, expression_token(ctx)); }
int scan_data_token(ParseContext *ctx) noexcept { return checked_token(ctx, data_token(ctx)); }

void unget_token(ParseContext *ctx, int token) noexcept {
  assert(ctx->pushback_top < 2 && "at most two tokens are held back");
  if (ctx->pushback_top < 2) ctx->pushback[ctx->pushback_top++] = token;
}

// ---------------------------------------------------------------- messages

void parse_note(ParseContext *ctx, const char *message) noexcept {
  if (ctx->error_handler != nullptr) ctx->error_handler(ctx->location(), message, ctx->handler_data);
}

void parse_report(ParseContext *ctx, const char *message) noexcept {
  parse_note(ctx, message);
  ++ctx->error_count;
}

MessageName message_name(const char *name) noexcept {
  MessageName shown;
  std::size_t length = std::strlen(name);
  if (length <= message_name_limit) {
    std::memcpy(shown.text, name, length + 1);
    return shown;
  }
  // Keep the head and mark the cut; never split a multi-byte character.
  std::size_t cut = message_name_limit - 3;
  while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0u) == 0x80u) --cut;
  std::memcpy(shown.text, name, cut);
  std::memcpy(shown.text + cut, "...", 4);
  return shown;
}

void parse_reportf(ParseContext *ctx, const char *format, ...) noexcept {
  char message[message_capacity];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  parse_report(ctx, message);
}

void parse_notef(ParseContext *ctx, const char *format, ...) noexcept {
  char message[message_capacity];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  parse_note(ctx, message);
}

void simple_error_adapter(std::uint32_t location, ov_string_t message, void *data) {
  auto handler = *static_cast<ov_simple_error_handler_t *>(data);
  if (handler != nullptr) handler(location, message);
}

// ---------------------------------------------------------------- probe

namespace {

int probe_tokens(ParseContext &ctx) noexcept {
  static constexpr int expected[5] = {tok_name, tok_string, tok_number, tok_number, tok_number};
  int matched = 0;
  while (matched < 5 && ctx.next_token(&ctx) == expected[matched]) ++matched;
  return matched == 5 ? 0 : 1;
}

} // namespace

int probe_net_format(std::FILE *file, const char *string) noexcept {
  int result;
  if (file != nullptr) {
    long position = std::ftell(file);
    if (position < 0) {
      set_error(ov_error_io);
      return -1;
    }
    bool read_failed;
    {
      ParseContext ctx(file, scan_data_token);
      result = probe_tokens(ctx);
      read_failed = ctx.read_failed;
    }
    if (read_failed) {
      set_error(ov_error_io);
      return -1;
    }
    if (std::fseek(file, position, SEEK_SET) != 0) {
      set_error(ov_error_io);
      return -1;
    }
  } else {
    ParseContext ctx(string, scan_data_token);
    result = probe_tokens(ctx);
  }
  // What the probe's scanning recorded says nothing about the source.
  set_error(ov_error_none);
  return result;
}

} // namespace orvel
