// The expression parser through its public entry points: the printed form
// of what each text parses to, or its error with messages and locations,
// against a golden file; the tree shapes of signs, and class scopes.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "expr/expression.h"
#include "expr/expression_parser.h"
#include "expr_helpers.h"
#include "io/golden_rows.h"
#include "model/domain.h"
#include "orvel.h"

namespace {

using orvel::test::text_of;

using Messages = std::vector<std::pair<std::uint32_t, std::string>>;

void collect(std::uint32_t location, ov_string_t message, void *data) {
  static_cast<Messages *>(data)->emplace_back(location, message);
}

Messages *simple_sink = nullptr;
void collect_simple(std::uint32_t location, ov_string_t message) { simple_sink->emplace_back(location, message); }

class ParserTest : public orvel::test::NamedNodes {
protected:
  void SetUp() override {
    NamedNodes::SetUp();
    all_named({"a", "b", "c", "min", "Normal", "x_1"});
  }

  // The printed form of what the text parses to, or "error <name>".
  std::string parse(const char *text) {
    messages.clear();
    ov_expression_t e = ov_domain_string_to_expression(domain, text, collect, &messages);
    if (e == nullptr) return std::string("error ") + ov_error_name(ov_error_code());
    EXPECT_EQ(ov_error_code(), ov_error_none);
    std::string printed = text_of(e);
    ov_expression_delete(e);
    return printed;
  }

  Messages messages;
};

// Each row of tests/data/expression_texts.tsv: a text, what it prints as
// (or "error <code>"), and the messages as "location: message" joined by
// " | ". The domain has the nodes a, b, c, min, Normal and x_1.
TEST_F(ParserTest, TextsPrintOrFailAsTheGoldenFileSays) {
  const auto rows = orvel::test::golden_rows("expression_texts.tsv");
  ASSERT_GE(rows.size(), 50u);
  for (const auto &row : rows) {
    ASSERT_EQ(row.size(), 3u) << row[0];
    EXPECT_EQ(parse(row[0].c_str()), row[1]) << row[0];
    std::string said;
    for (const auto &[location, message] : messages)
      said += (said.empty() ? "" : " | ") + std::to_string(location) + ": " + message;
    EXPECT_EQ(said, row[2]) << row[0];
  }
}

TEST_F(ParserTest, ANodeNamedTrueHidesTheConstant) {
  ov_node_t t = named("true");
  ov_expression_t e = ov_domain_string_to_expression(domain, "true", nullptr, nullptr);
  EXPECT_EQ(ov_expression_get_node(e), t);
  ov_expression_delete(e);
}

TEST_F(ParserTest, LongUnknownOperatorNameGivesABoundedWellFormedMessage) {
  std::string name(10000, 'F');
  std::string text = name + " (1)";
  EXPECT_EQ(parse(text.c_str()), "error syntax");
  ASSERT_EQ(messages.size(), 1u);
  const std::string &m = messages[0].second;
  EXPECT_LT(m.size(), orvel::message_capacity);
  EXPECT_EQ(m, "unknown operator `" + std::string(orvel::message_name_limit - 3, 'F') + "...'");
}

TEST_F(ParserTest, NestingIsBounded) {
  std::string deep(orvel::expression_nesting_limit - 1, '(');
  deep += "a" + std::string(orvel::expression_nesting_limit - 1, ')');
  EXPECT_EQ(parse(deep.c_str()), "a");
  std::string deeper = "(" + deep + ")";
  EXPECT_EQ(parse(deeper.c_str()), "error syntax");
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].second, "expression is nested too deeply");
  std::string open(100000, '(');
  EXPECT_EQ(parse(open.c_str()), "error syntax");
}

TEST_F(ParserTest, SimpleHandlerReceivesLocationAndMessage) {
  Messages simple;
  simple_sink = &simple;
  EXPECT_EQ(ov_string_to_expression("a + zzz", domain, collect_simple), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_syntax);
  EXPECT_EQ(simple, (Messages{{7, "no such node"}}));
  ov_expression_t e = ov_string_to_expression("a + b", domain, nullptr);
  ASSERT_NE(e, nullptr);
  ov_expression_delete(e);
  simple_sink = nullptr;
}

TEST_F(ParserTest, ClassScopeResolvesInstanceOutputs) {
  // Class Outer holds an instance of class Inner, whose output is `out`.
  const std::string path = ::testing::TempDir() + "class_scope.net";
  std::FILE *file = std::fopen(path.c_str(), "w");
  ASSERT_NE(file, nullptr);
  std::fputs("class Inner { outputs = (out); node out {} node hidden {} }\n"
             "class Outer { instance inst : Inner () {} node plain {} }\n",
             file);
  std::fclose(file);
  ov_class_collection_t collection = ov_new_class_collection();
  ASSERT_EQ(ov_net_parse_classes(path.c_str(), collection, nullptr, nullptr, nullptr), ov_error_none);
  ov_class_t inner = ov_cc_get_class_by_name(collection, "Inner"), outer = ov_cc_get_class_by_name(collection, "Outer");
  ov_node_t clone =
      ov_node_get_output(ov_class_get_node_by_name(outer, "inst"), ov_class_get_node_by_name(inner, "out"));
  ASSERT_NE(clone, nullptr);
  ov_node_t plain = ov_class_get_node_by_name(outer, "plain");

  ov_expression_t e = ov_class_string_to_expression(outer, "inst.out + plain", collect, &messages);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(ov_expression_get_node(ov_expression_get_operands(e)[0]), clone);
  EXPECT_EQ(ov_expression_get_node(ov_expression_get_operands(e)[1]), plain);
  ov_expression_delete(e);

  struct ErrorCase {
    const char *text;
    ov_error_t code;
    Messages messages;
  };
  const ErrorCase cases[] = {
      {"inst.hidden", ov_error_parse, {{11, "node `hidden' is not an output node in class `Inner'"}}},
      {"inst.nothing", ov_error_parse, {{12, "class `Inner' has no node named `nothing'"}}},
      {"plain.out", ov_error_parse, {{9, "node `plain' is not an instance node in class `Outer'"}}},
      {"missing.out", ov_error_parse, {{11, "class `Outer' has no node named `missing'"}}},
      {"nothing", ov_error_syntax, {{7, "no such node"}}},
  };
  for (const ErrorCase &bad : cases) {
    messages.clear();
    EXPECT_EQ(ov_class_string_to_expression(outer, bad.text, collect, &messages), nullptr) << bad.text;
    EXPECT_EQ(ov_error_code(), bad.code) << bad.text;
    EXPECT_EQ(messages, bad.messages) << bad.text;
  }
  ov_cc_delete(collection);
}

TEST_F(ParserTest, ParsingIsIndependentOfTheCallersLocale) {
  const char *german = std::setlocale(LC_ALL, "de_DE.UTF-8");
  if (german == nullptr) GTEST_SKIP() << "no de_DE locale on this machine";
  EXPECT_EQ(parse("1.5 * a"), "1.5 * a");
  std::setlocale(LC_ALL, "C");
}

} // namespace
