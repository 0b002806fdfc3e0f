// Expressions through the public calls: constructors and accessors, the type
// check, reference counting, cloning and the text form.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "expr/expression.h"
#include "expr_helpers.h"
#include "io/golden_rows.h"
#include "orvel.h"

namespace {

using orvel::test::make;
using orvel::test::text_of;

ov_expression_t num(double value) { return ov_number_make_expression(value); }
ov_expression_t boolean(int value) { return ov_boolean_make_expression(value); }
ov_expression_t label(const char *text) { return ov_label_make_expression(text); }

class ExpressionTest : public orvel::test::NamedNodes {
protected:
  void SetUp() override {
    NamedNodes::SetUp();
    a = named("a");
    b = named("b");
    c = named("c");
  }
  ov_expression_t ref(ov_node_t node) { return ov_node_make_expression(node); }

  ov_node_t a = nullptr, b = nullptr, c = nullptr;
};

// Each row of tests/data/expression_types.tsv: a composite by operator
// number and operand kinds, and the error code and value type it gets.
TEST_F(ExpressionTest, TypeCheckAcceptsAndRefuses) {
  const auto rows = orvel::test::golden_rows("expression_types.tsv");
  ASSERT_GE(rows.size(), 40u);
  const std::vector<std::string> types{"number", "boolean", "label", "distribution", "node"};
  for (const auto &row : rows) {
    ASSERT_EQ(row.size(), 5u) << row[0];
    SCOPED_TRACE(row[0]);
    const auto op = static_cast<ov_operator_t>(std::stoi(row[1]));
    std::vector<ov_expression_t> operands;
    for (char kind : row[2]) {
      switch (kind) {
      case 'n': operands.push_back(num(1)); break;
      case 'b': operands.push_back(boolean(1)); break;
      case 'l': operands.push_back(label("x")); break;
      case 'r': operands.push_back(ref(a)); break;
      default: operands.push_back(make(ov_op_exponential, {num(1)})); break;
      }
    }
    ov_expression_t made = make(op, operands);
    EXPECT_EQ(ov_error_name(ov_error_code()), row[3]);
    if (row[3] == "none") {
      ASSERT_NE(made, nullptr);
      EXPECT_EQ(types.at(made->value_type), row[4]);
      EXPECT_EQ(ov_expression_is_composite(made), 1);
      EXPECT_EQ(ov_expression_get_operator(made), op);
      for (ov_expression_t operand : operands) EXPECT_EQ(operand->references, 1);
      EXPECT_EQ(ov_expression_delete(made), ov_error_none);
    } else {
      EXPECT_EQ(made, nullptr);
      // A failed construction leaves the operands with the caller.
      for (ov_expression_t operand : operands) {
        EXPECT_EQ(operand->references, 0);
        ov_expression_delete(operand);
      }
    }
  }
}

TEST_F(ExpressionTest, HeightIsBounded) {
  ov_expression_t e = num(0);
  std::uint32_t height = 1;
  for (; height < orvel::expression_height_limit; ++height) {
    ov_expression_t next = make(ov_op_add, {e, num(1)});
    ASSERT_NE(next, nullptr);
    e = next;
  }
  EXPECT_EQ(e->height, orvel::expression_height_limit);
  ov_expression_t one = num(1);
  EXPECT_EQ(make(ov_op_add, {e, one}), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_invalid_expression);
  ov_expression_delete(one);
  ov_expression_delete(e);
}

TEST_F(ExpressionTest, SharedOperandLivesUntilItsLastParentGoes) {
  ov_expression_t shared = make(ov_op_multiply, {ref(a), num(2)});
  ov_expression_t first = make(ov_op_add, {shared, num(1)});
  ov_expression_t second = make(ov_op_subtract, {shared, shared});
  EXPECT_EQ(shared->references, 3);
  // Deleting a held expression does nothing and succeeds.
  EXPECT_EQ(ov_expression_delete(shared), ov_error_none);
  EXPECT_EQ(shared->references, 3);
  EXPECT_EQ(ov_expression_delete(second), ov_error_none);
  EXPECT_EQ(shared->references, 1);
  EXPECT_EQ(text_of(first), "a * 2 + 1");
  EXPECT_EQ(ov_expression_delete(first), ov_error_none); // frees shared too (the sanitizers check)
}

TEST_F(ExpressionTest, CloneIsDeepAndKeepsNoSharing) {
  ov_expression_t shared = make(ov_op_negate, {ref(b)});
  ov_expression_t tree = make(ov_op_if, {make(ov_op_less_than, {ref(a), num(3)}), shared, shared});
  ov_expression_t copy = ov_expression_clone(tree);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->references, 0);
  EXPECT_EQ(text_of(copy), text_of(tree));
  ov_expression_t *operands = ov_expression_get_operands(copy);
  EXPECT_NE(operands[1], operands[2]);
  EXPECT_NE(operands[1], shared);
  EXPECT_EQ(operands[1]->references, 1);
  EXPECT_EQ(ov_expression_get_node(ov_expression_get_operands(operands[1])[0]), b);
  ov_expression_t original = label("text");
  ov_expression_t label_copy = ov_expression_clone(original);
  EXPECT_NE(ov_expression_get_label(label_copy), ov_expression_get_label(original));
  EXPECT_STREQ(ov_expression_get_label(label_copy), "text");
  ov_expression_delete(original);
  ov_expression_delete(label_copy);
  original = boolean(7);
  EXPECT_EQ(ov_expression_get_boolean(original), 1) << "any non-zero value is stored as 1";
  ov_expression_delete(original);
  ov_expression_delete(tree);
  EXPECT_EQ(text_of(copy), "if (a < 3, -b, -b)");
  ov_expression_delete(copy);
}

TEST_F(ExpressionTest, UnnamedNodeGetsItsNameWhenPrinted) {
  ov_node_t unnamed = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  ov_expression_t e = ref(unnamed);
  std::string text = text_of(e);
  EXPECT_FALSE(text.empty());
  EXPECT_EQ(text, ov_node_get_name(unnamed));
  ov_expression_delete(e);
}

} // namespace
