// Expressions through the public calls: constructors and accessors, the type
// check, reference counting, cloning and the text form.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "expr/expression.h"
#include "expr_helpers.h"
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

// ---------------------------------------------------------------- leaves

TEST_F(ExpressionTest, LeavesAndTheirAccessors) {
  ov_expression_t n = num(2.5), t = boolean(7), l = label("hi"), r = ref(a);
  EXPECT_EQ(ov_expression_get_operator(n), ov_op_number);
  EXPECT_EQ(ov_expression_get_number(n), 2.5);
  EXPECT_EQ(ov_expression_get_boolean(t), 1); // any non-zero value is stored as 1
  EXPECT_STREQ(ov_expression_get_label(l), "hi");
  EXPECT_EQ(ov_expression_get_node(r), a);
  EXPECT_EQ(ov_expression_is_composite(n), 0);
  EXPECT_EQ(n->value_type, ov_value_number);
  EXPECT_EQ(t->value_type, ov_value_boolean);
  EXPECT_EQ(l->value_type, ov_value_label);
  EXPECT_EQ(r->value_type, ov_value_node);
  EXPECT_EQ(n->references, 0);
  for (ov_expression_t e : {n, t, l, r}) EXPECT_EQ(ov_expression_delete(e), ov_error_none);
}

// ---------------------------------------------------------------- type check

TEST_F(ExpressionTest, TypeCheckAcceptsAndRefuses) {
  struct Case {
    const char *what;
    ov_operator_t op;
    std::vector<int> operand_kinds; // 'n'umber, 'b'oolean, 'l'abel, 'd'istribution, 'r'eference
    ov_error_t expected;
    int value_type;
  };
  const Case cases[] = {
      {"and ()", ov_op_and, {}, ov_error_none, ov_value_boolean},
      {"or ()", ov_op_or, {}, ov_error_none, ov_value_boolean},
      {"Beta 2", ov_op_beta, {'n', 'n'}, ov_error_none, ov_value_distribution},
      {"Beta 3", ov_op_beta, {'n', 'n', 'n'}, ov_error_invalid_expression, 0},
      {"Beta 4", ov_op_beta, {'n', 'n', 'n', 'n'}, ov_error_none, ov_value_distribution},
      {"Beta 5", ov_op_beta, {'n', 'n', 'n', 'n', 'n'}, ov_error_invalid_expression, 0},
      {"Normal 1", ov_op_normal, {'n'}, ov_error_invalid_expression, 0},
      {"Normal label", ov_op_normal, {'n', 'l'}, ov_error_invalid_expression, 0},
      {"Normal ref", ov_op_normal, {'r', 'n'}, ov_error_none, ov_value_distribution},
      {"Distribution none", ov_op_distribution, {}, ov_error_invalid_expression, 0},
      {"Distribution 3", ov_op_distribution, {'n', 'n', 'r'}, ov_error_none, ov_value_distribution},
      {"NoisyOR pairs", ov_op_noisy_or, {'b', 'n', 'r', 'r'}, ov_error_none, ov_value_distribution},
      {"NoisyOR odd", ov_op_noisy_or, {'b', 'n', 'b'}, ov_error_invalid_expression, 0},
      {"NoisyOR none", ov_op_noisy_or, {}, ov_error_invalid_expression, 0},
      {"NoisyOR swapped", ov_op_noisy_or, {'n', 'b'}, ov_error_invalid_expression, 0},
      {"min none", ov_op_min, {}, ov_error_invalid_expression, 0},
      {"max 3", ov_op_max, {'n', 'n', 'n'}, ov_error_none, ov_value_number},
      {"log 2", ov_op_log, {'n', 'n'}, ov_error_invalid_expression, 0},
      {"sqrt bool", ov_op_sqrt, {'b'}, ov_error_invalid_expression, 0},
      {"mod", ov_op_mod, {'n', 'r'}, ov_error_none, ov_value_number},
      {"if number label", ov_op_if, {'b', 'n', 'l'}, ov_error_invalid_expression, 0},
      {"if ref label", ov_op_if, {'b', 'r', 'l'}, ov_error_none, ov_value_label},
      {"if label ref", ov_op_if, {'b', 'l', 'r'}, ov_error_none, ov_value_label},
      {"if ref ref", ov_op_if, {'r', 'r', 'r'}, ov_error_none, ov_value_node},
      {"if distributions", ov_op_if, {'b', 'd', 'd'}, ov_error_none, ov_value_distribution},
      {"if number cond", ov_op_if, {'n', 'n', 'n'}, ov_error_invalid_expression, 0},
      {"if two", ov_op_if, {'b', 'n'}, ov_error_invalid_expression, 0},
      {"and numbers", ov_op_and, {'b', 'n'}, ov_error_invalid_expression, 0},
      {"not", ov_op_not, {'r'}, ov_error_none, ov_value_boolean},
      {"not two", ov_op_not, {'b', 'b'}, ov_error_invalid_expression, 0},
      {"+ bool", ov_op_add, {'n', 'b'}, ov_error_invalid_expression, 0},
      {"- prefix", ov_op_negate, {'n'}, ov_error_none, ov_value_number},
      {"^ 3", ov_op_power, {'n', 'n', 'n'}, ov_error_invalid_expression, 0},
      {"== number label", ov_op_equals, {'n', 'l'}, ov_error_invalid_expression, 0},
      {"== ref label", ov_op_equals, {'r', 'l'}, ov_error_none, ov_value_boolean},
      {"== labels", ov_op_equals, {'l', 'l'}, ov_error_none, ov_value_boolean},
      {"!= booleans", ov_op_not_equals, {'b', 'b'}, ov_error_none, ov_value_boolean},
      {"== ref distribution", ov_op_equals, {'r', 'd'}, ov_error_invalid_expression, 0},
      {"!= distributions", ov_op_not_equals, {'d', 'd'}, ov_error_invalid_expression, 0},
      {"< labels", ov_op_less_than, {'l', 'l'}, ov_error_invalid_expression, 0},
      {">= ref", ov_op_greater_than_or_equals, {'r', 'n'}, ov_error_none, ov_value_boolean},
  };
  for (const Case &c : cases) {
    std::vector<ov_expression_t> operands;
    for (int kind : c.operand_kinds) {
      switch (kind) {
      case 'n': operands.push_back(num(1)); break;
      case 'b': operands.push_back(boolean(1)); break;
      case 'l': operands.push_back(label("x")); break;
      case 'r': operands.push_back(ref(a)); break;
      default: operands.push_back(make(ov_op_exponential, {num(1)})); break;
      }
    }
    ov_expression_t made = make(c.op, operands);
    EXPECT_EQ(ov_error_code(), c.expected) << c.what;
    if (c.expected == ov_error_none) {
      ASSERT_NE(made, nullptr) << c.what;
      EXPECT_EQ(made->value_type, c.value_type) << c.what;
      EXPECT_EQ(ov_expression_is_composite(made), 1);
      EXPECT_EQ(ov_expression_get_operator(made), c.op);
      for (ov_expression_t operand : operands) EXPECT_EQ(operand->references, 1) << c.what;
      EXPECT_EQ(ov_expression_delete(made), ov_error_none);
    } else {
      EXPECT_EQ(made, nullptr) << c.what;
      // A failed construction leaves the operands with the caller.
      for (ov_expression_t operand : operands) {
        EXPECT_EQ(operand->references, 0) << c.what;
        ov_expression_delete(operand);
      }
    }
  }
}

TEST_F(ExpressionTest, TheCallerKeepsTheOperandArray) {
  ov_expression_t one = num(1);
  std::vector<ov_expression_t> operands{one, nullptr};
  ov_expression_t e = ov_make_composite_expression(ov_op_exp, operands.data());
  ASSERT_NE(e, nullptr);
  EXPECT_NE(ov_expression_get_operands(e), operands.data());
  EXPECT_EQ(ov_expression_get_operands(e)[0], one);
  EXPECT_EQ(ov_expression_get_operands(e)[1], nullptr);
  ov_expression_delete(e);
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

// ---------------------------------------------------------------- references

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
  ov_expression_delete(tree);
  EXPECT_EQ(text_of(copy), "if (a < 3, -b, -b)");
  ov_expression_delete(copy);
}

// ---------------------------------------------------------------- text

// The parentheses of the text form are checked with the parser's golden
// rows (tests/data/expression_texts.tsv), whose trees are the ones built
// here.

TEST_F(ExpressionTest, LabelsAreEscaped) {
  struct Case {
    const char *label;
    const char *text;
  };
  const Case cases[] = {
      {"say \"hi\"\\", R"("say \"hi\"\\")"},
      {"tab\tcr\rlf\n", R"("tab\tcr\rlf\n")"},
      {"\x01"
       "7",
       R"("\0017")"},
      {"\x01"
       "a",
       R"("\1a")"},
      {"\x7f\xc3\xa9", R"("\177\303\251")"},
      {"%'?", R"("%'?")"},
  };
  for (const Case &c : cases) {
    ov_expression_t e = label(c.label);
    EXPECT_EQ(text_of(e), c.text);
    ov_expression_delete(e);
  }
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
