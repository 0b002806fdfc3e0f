// The scanner: token sequences with their messages and codes against a
// golden file, what needs a stream, push-back, message names and the
// format probe.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "api/error.h"
#include "golden_rows.h"
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

// A scan of a stream holding `text`, its messages collected.
struct FileScan : TempFile {
  Messages messages;
  ParseContext ctx;
  FileScan(const std::string &text, TokenFunction function) : TempFile(text), ctx(file, function) {
    messages.attach(ctx);
  }
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

// A token as the golden file writes it.
std::string token_text(const ParseContext &ctx, int token) {
  switch (token) {
  case tok_name: return std::string("name:") + ctx.text.get();
  case tok_dotted_name: return std::string("dotted:") + ctx.text.get();
  case tok_number: {
    std::ostringstream number;
    number << "number:" << ctx.number;
    return number.str();
  }
  case tok_string: {
    std::string text = "string:\"";
    for (const char *c = ctx.text.get(); *c != '\0'; ++c) {
      const auto u = static_cast<unsigned char>(*c);
      if (u < 32 || u >= 127 || u == '"' || u == '\\') {
        char hex[8];
        std::snprintf(hex, sizeof hex, "<%02x>", u);
        text += hex;
      } else {
        text += *c;
      }
    }
    return text + "\"";
  }
  default: {
    static const std::map<int, std::string> named{{tok_eof, "eof"}, {tok_error, "error"}, {tok_eq, "=="},
                                                  {tok_ne, "!="},   {tok_lt, "<"},        {tok_gt, ">"},
                                                  {tok_le, "<="},   {tok_ge, ">="}};
    return named.count(token) ? named.at(token) : std::string(1, static_cast<char>(token));
  }
  }
}

// Each row of tests/data/scanner_tokens.tsv: the token function (net,
// expr, data), the input, the tokens up to the end or an error, the
// messages ("location: message", joined by " | ") and the error code.
TEST(ScannerGolden, TokensMessagesAndCodes) {
  const auto rows = test::golden_rows("scanner_tokens.tsv");
  ASSERT_GE(rows.size(), 30u);
  for (const auto &row : rows) {
    ASSERT_EQ(row.size(), 5u) << row[0];
    SCOPED_TRACE(row[1]);
    TokenFunction function = row[0] == "net"    ? scan_net_token
                             : row[0] == "expr" ? scan_expression_token
                                                : scan_data_token;
    set_error(ov_error_none);
    Messages messages;
    ParseContext ctx(row[1].c_str(), function);
    messages.attach(ctx);
    std::string tokens;
    for (int i = 0; i < 64; ++i) {
      const int token = function(&ctx);
      tokens += (tokens.empty() ? "" : " ") + token_text(ctx, token);
      if (token == tok_eof || token == tok_error) break;
    }
    std::string said;
    for (const auto &[location, message] : messages.list)
      said += (said.empty() ? "" : " | ") + std::to_string(location) + ": " + message;
    EXPECT_EQ(tokens, row[2]);
    EXPECT_EQ(said, row[3]);
    EXPECT_EQ(ov_error_name(ov_error_code()), row[4]);
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
  FileScan scan("a <", scan_expression_token);
  auto [messages, ctx] = std::tie(scan.messages, scan.ctx);
  EXPECT_EQ(scan_expression_token(&ctx), tok_name);
  EXPECT_EQ(scan_expression_token(&ctx), tok_error);
  EXPECT_EQ(ov_error_code(), ov_error_io);
  ASSERT_EQ(messages.list.size(), 1u);
  EXPECT_EQ(messages.list[0].second, "could not unget character");
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

TEST(Numbers, FromAFile) {
  FileScan scan("-2.5e1 +x", scan_net_token);
  auto [messages, ctx] = std::tie(scan.messages, scan.ctx);
  EXPECT_EQ(scan_net_token(&ctx), tok_number);
  EXPECT_EQ(ctx.number, -25.0);
  // A sign without a number: the caller reports what it expected.
  EXPECT_EQ(scan_net_token(&ctx), tok_error);
  EXPECT_TRUE(messages.list.empty());
}

TEST(Strings, PlainNulByteInAFile) {
  FileScan scan(std::string("\"a\0b\"", 5), scan_net_token);
  auto [messages, ctx] = std::tie(scan.messages, scan.ctx);
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

TEST(Blanks, LocationOfAFileIsTheLine) {
  FileScan scan("a\nb\n  $", scan_expression_token);
  auto [messages, ctx] = std::tie(scan.messages, scan.ctx);
  EXPECT_EQ(tokens_of(ctx), (std::vector<int>{tok_name, tok_name, tok_error}));
  ASSERT_EQ(messages.list.size(), 1u);
  EXPECT_EQ(messages.list[0].first, 3u);
}

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
