// The scanner: token tables, names, numbers, strings, comments, push-back,
// messages with their locations, and the format probe.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "api/error.h"
#include "io/scanner.h"

namespace orvel {
namespace {

struct Messages {
  std::vector<std::pair<std::uint32_t, std::string>> list;
  static void handler(std::uint32_t location, ov_string_t message, void *data) {
    static_cast<Messages *>(data)->list.emplace_back(location, message);
  }
  void attach(ParseContext &ctx) {
    ctx.error_handler = handler;
    ctx.handler_data = this;
  }
};

// A stream holding `text`, positioned at its start.
struct TempFile {
  std::FILE *file = std::tmpfile();
  explicit TempFile(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
  }
  ~TempFile() { std::fclose(file); }
};

std::vector<int> tokens_of(ParseContext &ctx, int limit = 64) {
  std::vector<int> tokens;
  for (int i = 0; i < limit; ++i) {
    int t = ctx.next_token(&ctx);
    tokens.push_back(t);
    if (t == tok_eof || t == tok_error) break;
  }
  return tokens;
}

std::vector<int> expression_tokens(const char *text) {
  ParseContext ctx(text, scan_expression_token);
  return tokens_of(ctx);
}

// ---------------------------------------------------------------- tables

TEST(TokenTables, EachFunctionAcceptsItsOwnCharacters) {
  // Characters that are tokens of their own in the three functions.
  const std::string all = "()*,:;{|}#=?/^";
  for (char c : all) {
    std::string text(1, c);
    ParseContext net(text.c_str(), scan_net_token);
    ParseContext expr(text.c_str(), scan_expression_token);
    ParseContext data(text.c_str(), scan_data_token);
    int n = scan_net_token(&net), e = scan_expression_token(&expr), d = scan_data_token(&data);
    bool net_itself = std::string("()*,:;{|}#=?").find(c) != std::string::npos;
    EXPECT_EQ(n, net_itself ? c : tok_error) << c;
    if (c == '#' || c == '?')
      EXPECT_EQ(e, tok_error) << c;
    else if (c == '=')
      EXPECT_EQ(e, tok_eq);
    else
      EXPECT_EQ(e, c) << c;
    if (c == '(' || c == ')')
      EXPECT_EQ(d, c);
    else if (c == '/')
      EXPECT_EQ(d, tok_name);
    else
      EXPECT_EQ(d, tok_error) << c;
  }
}

TEST(TokenTables, UnexpectedCharacterIsReportedWithTheCharacter) {
  Messages messages;
  ParseContext ctx("  @", scan_net_token);
  messages.attach(ctx);
  EXPECT_EQ(scan_net_token(&ctx), tok_error);
  EXPECT_EQ(ov_error_code(), ov_error_parse);
  ASSERT_EQ(messages.list.size(), 1u);
  EXPECT_EQ(messages.list[0].second, "unexpected character: `@'");
  EXPECT_EQ(messages.list[0].first, 3u); // bytes consumed, not a line
  EXPECT_EQ(ctx.error_count, 1u);
}

TEST(TokenTables, SignsAreNumbersInNetAndTokensInExpressions) {
  ParseContext net("-1.5 +2", scan_net_token);
  EXPECT_EQ(scan_net_token(&net), tok_number);
  EXPECT_EQ(net.number, -1.5);
  EXPECT_EQ(scan_net_token(&net), tok_number);
  EXPECT_EQ(net.number, 2.0);
  EXPECT_EQ(expression_tokens("-1.5"), (std::vector<int>{'-', tok_number, tok_eof}));
  // '<', '>' and '!' are errors outside expressions.
  ParseContext lt("<", scan_net_token);
  EXPECT_EQ(scan_net_token(&lt), tok_error);
}

// ---------------------------------------------------------------- comparisons

TEST(Comparisons, SpellingsGiveTheSameTokens) {
  EXPECT_EQ(expression_tokens("= == != <> < > <= >="),
            (std::vector<int>{tok_eq, tok_eq, tok_ne, tok_ne, tok_lt, tok_gt, tok_le, tok_ge, tok_eof}));
  EXPECT_EQ(expression_tokens("a<b"), (std::vector<int>{tok_name, tok_lt, tok_name, tok_eof}));
  EXPECT_EQ(expression_tokens("a>=-1"), (std::vector<int>{tok_name, tok_ge, '-', tok_number, tok_eof}));
}

TEST(Comparisons, BangWithoutEqualsIsAnError) {
  for (const char *text : {"!x", "!"}) {
    Messages messages;
    ParseContext ctx(text, scan_expression_token);
    messages.attach(ctx);
    EXPECT_EQ(scan_expression_token(&ctx), tok_error);
    EXPECT_EQ(ov_error_code(), ov_error_parse);
    ASSERT_EQ(messages.list.size(), 1u);
    EXPECT_EQ(messages.list[0].second, "`!' must be followed by `='");
  }
}

TEST(Comparisons, OperatorAtTheEndOfAStringIsReadAgain) {
  // Putting back the end of input steps the cursor back over the operator.
  for (auto [text, token] : {std::pair{"a =", tok_eq}, {"a <", tok_lt}, {"a >", tok_gt}}) {
    ParseContext ctx(text, scan_expression_token);
    EXPECT_EQ(scan_expression_token(&ctx), tok_name);
    EXPECT_EQ(scan_expression_token(&ctx), token);
    EXPECT_EQ(ctx.string_cursor, ctx.string_start + 2);
    EXPECT_EQ(scan_expression_token(&ctx), token);
  }
}

TEST(Comparisons, OperatorAtTheEndOfAFileCannotPutBackTheEnd) {
  TempFile source("a <");
  Messages messages;
  ParseContext ctx(source.file, scan_expression_token);
  messages.attach(ctx);
  EXPECT_EQ(scan_expression_token(&ctx), tok_name);
  EXPECT_EQ(scan_expression_token(&ctx), tok_error);
  EXPECT_EQ(ov_error_code(), ov_error_io);
  ASSERT_EQ(messages.list.size(), 1u);
  EXPECT_EQ(messages.list[0].second, "could not unget character");
}

// ---------------------------------------------------------------- names

TEST(Names, DottedNamesAndTheirErrors) {
  ParseContext ctx("a.b.c _x1 y", scan_expression_token);
  EXPECT_EQ(scan_expression_token(&ctx), tok_dotted_name);
  EXPECT_STREQ(ctx.text.get(), "a.b.c");
  EXPECT_EQ(scan_expression_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "_x1");
  EXPECT_EQ(scan_expression_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "y");
  EXPECT_EQ(scan_expression_token(&ctx), tok_eof);

  for (const char *bad : {"a.", "a.1", "a..b", "a._b.", "a.b.2c"}) {
    Messages messages;
    ParseContext bad_ctx(bad, scan_net_token);
    messages.attach(bad_ctx);
    EXPECT_EQ(scan_net_token(&bad_ctx), tok_error) << bad;
    EXPECT_EQ(ov_error_code(), ov_error_parse);
    ASSERT_EQ(messages.list.size(), 1u);
    EXPECT_EQ(messages.list[0].second, "`.' must be followed by a letter or a `_'");
  }
  ParseContext underscore("a._b", scan_net_token);
  EXPECT_EQ(scan_net_token(&underscore), tok_dotted_name);
}

TEST(Names, HaveNoLengthLimit) {
  std::string name(100000, 'n');
  name += "_end";
  std::string text = name + " (";
  ParseContext ctx(text.c_str(), scan_net_token);
  EXPECT_EQ(scan_net_token(&ctx), tok_name);
  EXPECT_EQ(std::string(ctx.text.get()), name);
  EXPECT_GE(ctx.text_capacity, name.size() + 1);
  EXPECT_EQ(scan_net_token(&ctx), '(');
}

TEST(Names, WordsOfTheDataGrammar) {
  ParseContext ctx("a/b-c +1.5e2 -x . .5 - 12abc", scan_data_token);
  EXPECT_EQ(scan_data_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "a/b-c");
  EXPECT_EQ(scan_data_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, 150.0);
  EXPECT_EQ(scan_data_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "-x");
  EXPECT_EQ(scan_data_token(&ctx), tok_name); // "." is no number
  EXPECT_EQ(scan_data_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, 0.5);
  EXPECT_EQ(scan_data_token(&ctx), tok_name);   // "-" alone
  EXPECT_EQ(scan_data_token(&ctx), tok_number); // a digit starts a number, not a word
  EXPECT_EQ(ctx.number, 12.0);
  EXPECT_EQ(scan_data_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "abc");
  EXPECT_EQ(scan_data_token(&ctx), tok_eof);
}

// ---------------------------------------------------------------- numbers

TEST(Numbers, FromAStringTheCursorMovesByWhatStrtodUsed) {
  ParseContext ctx("1.5e3 1-2 7L 3e .", scan_expression_token);
  EXPECT_EQ(scan_expression_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, 1500.0);
  // "1-2" is copied whole, but only "1" is a number.
  EXPECT_EQ(scan_expression_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, 1.0);
  EXPECT_STREQ(ctx.text.get(), "1-2");
  EXPECT_EQ(scan_expression_token(&ctx), '-');
  EXPECT_EQ(scan_expression_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, 2.0);
  // 'L' is copied but never used.
  EXPECT_EQ(scan_expression_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, 7.0);
  EXPECT_EQ(scan_expression_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "L");
  EXPECT_EQ(scan_expression_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, 3.0);
  EXPECT_EQ(scan_expression_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "e");
  // A lone dot is no number, and nothing is reported.
  Messages messages;
  messages.attach(ctx);
  EXPECT_EQ(scan_expression_token(&ctx), tok_error);
  EXPECT_TRUE(messages.list.empty());
}

TEST(Numbers, FromAFile) {
  TempFile source("-2.5e1 +x");
  Messages messages;
  ParseContext ctx(source.file, scan_net_token);
  messages.attach(ctx);
  EXPECT_EQ(scan_net_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, -25.0);
  // A sign without a number: the caller reports what it expected.
  EXPECT_EQ(scan_net_token(&ctx), tok_error);
  EXPECT_TRUE(messages.list.empty());
}

// ---------------------------------------------------------------- strings

TEST(Strings, EscapesAreResolved) {
  ParseContext ctx(R"("a\"b\'c\?d\\e" "\a\b\f\n\r\t\v" "\x41\x4142\x7e!" "\101\1018\62z" "x\
y")",
                   scan_expression_token);
  EXPECT_EQ(scan_expression_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "a\"b'c?d\\e");
  EXPECT_EQ(scan_expression_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "\a\b\f\n\r\t\v");
  // Hexadecimal digits without limit, kept as one byte.
  EXPECT_EQ(scan_expression_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "AB~!");
  // Up to three octal digits; a shorter escape puts back what ended it.
  EXPECT_EQ(scan_expression_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "AA82z");
  // A backslash before a line feed continues the string and counts the line.
  EXPECT_EQ(scan_expression_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "xy");
  EXPECT_EQ(ctx.line, 2u);
  EXPECT_EQ(scan_expression_token(&ctx), tok_eof);
}

TEST(Strings, PercentInsideAStringIsOrdinary) {
  ParseContext ctx("\"50% off\" % a comment\n\"x\"", scan_net_token);
  EXPECT_EQ(scan_net_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "50% off");
  EXPECT_EQ(scan_net_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "x");
}

TEST(Strings, Failures) {
  struct Case {
    const char *text;
    const char *message; // null: no message
    ov_error_t code;
  };
  const Case cases[] = {
      {"\"abc", "string did not end", ov_error_parse},
      {"\"ab\ncd\"", "string did not end", ov_error_parse},
      {"\"ab\\", "string did not end", ov_error_parse},
      {"\"a\\qb\"", "illegal escape sequence: `\\q'", ov_error_parse},
      {"\"a\\x41", "could not unget character", ov_error_io},
      {"\"a\\12", "could not unget character", ov_error_io},
  };
  for (const Case &c : cases) {
    Messages messages;
    ParseContext ctx(c.text, scan_net_token);
    messages.attach(ctx);
    EXPECT_EQ(scan_net_token(&ctx), tok_error) << c.text;
    EXPECT_EQ(ov_error_code(), c.code) << c.text;
    ASSERT_EQ(messages.list.size(), 1u) << c.text;
    EXPECT_EQ(messages.list[0].second, c.message);
  }
  // "\x" without a hexadecimal digit: no message and no error code.
  set_error(ov_error_none);
  Messages messages;
  ParseContext ctx("\"\\xg\"", scan_net_token);
  messages.attach(ctx);
  EXPECT_EQ(scan_net_token(&ctx), tok_error);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_TRUE(messages.list.empty());
}

TEST(Strings, NullCharacterIsAWarningAndEndsTheString) {
  Messages messages;
  ParseContext ctx("\"ab\\0cd\" \"\\x100\"", scan_net_token);
  messages.attach(ctx);
  EXPECT_EQ(scan_net_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "ab");
  EXPECT_EQ(ctx.text[3], 'c'); // stored, behind the terminator the caller sees
  EXPECT_EQ(scan_net_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "");
  ASSERT_EQ(messages.list.size(), 2u);
  EXPECT_EQ(messages.list[0].second, "warning: null character in string");
  EXPECT_EQ(ctx.error_count, 0u); // warnings are not counted
}

TEST(Strings, PlainNulByteInAFile) {
  std::string text("\"a\0b\"", 5);
  TempFile source(text);
  Messages messages;
  ParseContext ctx(source.file, scan_net_token);
  messages.attach(ctx);
  EXPECT_EQ(scan_net_token(&ctx), tok_string);
  EXPECT_STREQ(ctx.text.get(), "a");
  ASSERT_EQ(messages.list.size(), 1u);
  EXPECT_EQ(messages.list[0].second, "warning: null character in string");
  EXPECT_EQ(messages.list[0].first, 1u); // a line for a file
}

TEST(Strings, LongStringsGrowTheBuffer) {
  std::string body(5000, 'q');
  std::string text = "\"" + body + "\"";
  ParseContext ctx(text.c_str(), scan_net_token);
  EXPECT_EQ(scan_net_token(&ctx), tok_string);
  EXPECT_EQ(std::string(ctx.text.get()), body);
  EXPECT_EQ(ctx.text_capacity, 8192u); // 64 doubled until it fits
}

// ---------------------------------------------------------------- blanks

TEST(Blanks, CommentsAndLines) {
  TempFile source("a % comment ( \" \n\n  b %last");
  ParseContext ctx(source.file, scan_net_token);
  EXPECT_EQ(scan_net_token(&ctx), tok_name);
  EXPECT_EQ(ctx.line, 1u);
  EXPECT_EQ(scan_net_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "b");
  EXPECT_EQ(ctx.line, 3u);
  EXPECT_EQ(scan_net_token(&ctx), tok_eof);
  EXPECT_EQ(scan_net_token(&ctx), tok_eof);
}

TEST(Blanks, LocationOfAStringIsAByteCountEvenAcrossLines) {
  Messages messages;
  ParseContext ctx("a\nb\n  $", scan_expression_token);
  messages.attach(ctx);
  EXPECT_EQ(tokens_of(ctx), (std::vector<int>{tok_name, tok_name, tok_error}));
  EXPECT_EQ(ctx.line, 3u);
  ASSERT_EQ(messages.list.size(), 1u);
  EXPECT_EQ(messages.list[0].first, 7u);
}

TEST(Blanks, LocationOfAFileIsTheLine) {
  TempFile source("a\nb\n  $");
  Messages messages;
  ParseContext ctx(source.file, scan_expression_token);
  messages.attach(ctx);
  EXPECT_EQ(tokens_of(ctx), (std::vector<int>{tok_name, tok_name, tok_error}));
  ASSERT_EQ(messages.list.size(), 1u);
  EXPECT_EQ(messages.list[0].first, 3u);
}

// ---------------------------------------------------------------- push-back

TEST(PushBack, TwoTokensComeBackNewestFirstAndKeepTheirText) {
  ParseContext ctx("first second", scan_net_token);
  EXPECT_EQ(scan_net_token(&ctx), tok_name);
  unget_token(&ctx, tok_name);
  unget_token(&ctx, ';');
  // Any token function pops the same held tokens.
  EXPECT_EQ(scan_expression_token(&ctx), ';');
  EXPECT_EQ(scan_data_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "first");
  EXPECT_EQ(scan_net_token(&ctx), tok_name);
  EXPECT_STREQ(ctx.text.get(), "second");
}

// ---------------------------------------------------------------- messages

TEST(Messages, LongNamesAreCutAndTheMessageStaysWhole) {
  std::string name(3000, 'x');
  MessageName shown = message_name(name.c_str());
  EXPECT_EQ(std::string(shown.text), std::string(message_name_limit - 3, 'x') + "...");
  EXPECT_STREQ(message_name("short").text, "short");
  std::string exact(message_name_limit, 'y');
  EXPECT_EQ(std::string(message_name(exact.c_str()).text), exact);

  // A multi-byte character at the cut is dropped whole.
  std::string utf8(message_name_limit - 4, 'z');
  utf8 += "\xC3\xA9\xC3\xA9\xC3\xA9";
  std::string cut = message_name(utf8.c_str()).text;
  EXPECT_EQ(cut, std::string(message_name_limit - 4, 'z') + "...");

  Messages messages;
  ParseContext ctx("", scan_net_token);
  messages.attach(ctx);
  parse_reportf(&ctx, "class `%s' does not have a node named `%s'", message_name(name.c_str()).text,
                message_name(name.c_str()).text);
  ASSERT_EQ(messages.list.size(), 1u);
  const std::string &m = messages.list[0].second;
  EXPECT_LT(m.size(), message_capacity);
  EXPECT_EQ(m.back(), '\'');
  EXPECT_EQ(m.substr(0, 7), "class `");
}

TEST(Messages, NoteDoesNotCountAndNullHandlerDropsMessages) {
  ParseContext ctx("@", scan_net_token);
  parse_note(&ctx, "warning: x");
  EXPECT_EQ(ctx.error_count, 0u);
  EXPECT_EQ(scan_net_token(&ctx), tok_error); // no handler: still counted
  EXPECT_EQ(ctx.error_count, 1u);
}

// ---------------------------------------------------------------- probe

TEST(Probe, FiveTokensDecideTheFormat) {
  EXPECT_EQ(probe_net_format(nullptr, "domain \"label\" 10 20 1.5 anything"), 0);
  EXPECT_EQ(probe_net_format(nullptr, "domain \"\" -1 +2 .5"), 0);
  EXPECT_EQ(probe_net_format(nullptr, "net { }"), 1);
  EXPECT_EQ(probe_net_format(nullptr, ""), 1);
  EXPECT_EQ(probe_net_format(nullptr, "domain \"label\" 10 20"), 1);
  EXPECT_EQ(ov_error_code(), ov_error_none);
}

TEST(Probe, AFileGoesBackToWhereItWas) {
  TempFile source("skip domain \"l\" 1 2 3\nnode");
  ParseContext first(source.file, scan_net_token);
  EXPECT_EQ(scan_net_token(&first), tok_name);
  long position = std::ftell(source.file);
  EXPECT_EQ(probe_net_format(source.file, nullptr), 0);
  EXPECT_EQ(std::ftell(source.file), position);
  ParseContext rest(source.file, scan_net_token);
  EXPECT_EQ(scan_net_token(&rest), tok_name);
  EXPECT_STREQ(rest.text.get(), "domain");
}

} // namespace
} // namespace orvel
