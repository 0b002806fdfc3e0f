// Round trip of the text form: random well-typed trees are printed, parsed
// back and compared node by node with the original; printing the parsed tree
// gives the same text again.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "expr/expression.h"
#include "expr_helpers.h"
#include "orvel.h"

namespace {

using orvel::test::text_of;

enum class Type { number, boolean, label, distribution };

class TreeGenerator {
public:
  TreeGenerator(unsigned seed, std::vector<ov_node_t> nodes, bool exact_numbers)
      : random_(seed), nodes_(std::move(nodes)), exact_numbers_(exact_numbers) {}

  ov_expression_t generate(Type type, int depth) {
    switch (type) {
    case Type::number: return number(depth);
    case Type::boolean: return boolean(depth);
    case Type::label: return label(depth);
    default: return distribution(depth);
    }
  }

private:
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }
  bool leaf(int depth) { return depth <= 0 || pick(4) == 0; }

  ov_expression_t make(ov_operator_t op, std::vector<ov_expression_t> operands) {
    operands.push_back(nullptr);
    ov_expression_t e = ov_make_composite_expression(op, operands.data());
    EXPECT_NE(e, nullptr) << "operator " << op;
    return e;
  }
  std::vector<ov_expression_t> several(Type type, int count, int depth) {
    std::vector<ov_expression_t> list;
    for (int i = 0; i < count; ++i) list.push_back(generate(type, depth));
    return list;
  }
  ov_expression_t reference() { return ov_node_make_expression(nodes_[pick(static_cast<int>(nodes_.size()))]); }

  double constant() {
    double value;
    switch (pick(4)) {
    case 0: value = pick(2001) - 1000; break;
    case 1: value = pick(9) * 0.125; break;
    case 2: value = -0.0; break;
    default: value = std::uniform_real_distribution<double>(-1, 1)(random_) * std::pow(10.0, pick(40) - 15); break;
    }
    if (!exact_numbers_) return value;
    // A value that "%G" prints exactly, so that it reads back unchanged.
    char text[64];
    std::snprintf(text, sizeof text, "%G", value);
    return std::strtod(text, nullptr);
  }

  ov_expression_t number(int depth) {
    if (leaf(depth)) return pick(3) == 0 ? reference() : ov_number_make_expression(constant());
    switch (pick(8)) {
    case 0: {
      static const ov_operator_t binary[] = {ov_op_add,    ov_op_subtract, ov_op_multiply,
                                             ov_op_divide, ov_op_power,    ov_op_mod};
      return make(binary[pick(6)], several(Type::number, 2, depth - 1));
    }
    case 1:
    case 2: {
      static const ov_operator_t binary[] = {ov_op_add, ov_op_subtract, ov_op_multiply, ov_op_divide, ov_op_power};
      return make(binary[pick(5)], several(Type::number, 2, depth - 1));
    }
    case 3: {
      // Prefix minus of a number constant reads back folded into the
      // constant, so its operand is never a constant.
      ov_expression_t operand = number(depth - 1);
      while (ov_expression_get_operator(operand) == ov_op_number) {
        ov_expression_delete(operand);
        operand = number(depth - 1);
      }
      return make(ov_op_negate, {operand});
    }
    case 4: return make(pick(2) == 0 ? ov_op_min : ov_op_max, several(Type::number, 1 + pick(3), depth - 1));
    case 5: return make(static_cast<ov_operator_t>(ov_op_log + pick(14)), several(Type::number, 1, depth - 1));
    case 6: return make(ov_op_if, {boolean(depth - 1), number(depth - 1), number(depth - 1)});
    default: return make(ov_op_multiply, several(Type::number, 2, depth - 1));
    }
  }

  ov_expression_t boolean(int depth) {
    if (leaf(depth)) return pick(4) == 0 ? reference() : ov_boolean_make_expression(pick(2));
    switch (pick(6)) {
    case 0: return make(pick(2) == 0 ? ov_op_and : ov_op_or, several(Type::boolean, pick(4), depth - 1));
    case 1: return make(ov_op_not, {boolean(depth - 1)});
    case 2: return make(static_cast<ov_operator_t>(ov_op_less_than + pick(2)), several(Type::number, 2, depth - 1));
    case 3:
      return make(pick(2) == 0 ? ov_op_less_than_or_equals : ov_op_greater_than_or_equals,
                  several(Type::number, 2, depth - 1));
    case 4: {
      static const Type alike[] = {Type::number, Type::boolean, Type::label};
      Type type = alike[pick(3)];
      return make(pick(2) == 0 ? ov_op_equals : ov_op_not_equals, several(type, 2, depth - 1));
    }
    default: return make(ov_op_if, several(Type::boolean, 3, depth - 1));
    }
  }

  ov_expression_t label(int depth) {
    if (leaf(depth)) {
      if (pick(4) == 0) return reference();
      std::string text;
      for (int i = pick(9); i > 0; --i) text += static_cast<char>(1 + pick(255));
      return ov_label_make_expression(text.c_str());
    }
    return make(ov_op_if, {boolean(depth - 1), label(depth - 1), label(depth - 1)});
  }

  ov_expression_t distribution(int depth) {
    switch (pick(7)) {
    case 0: return make(ov_op_beta, several(Type::number, pick(2) == 0 ? 2 : 4, depth - 1));
    case 1: return make(ov_op_distribution, several(Type::number, 1 + pick(4), depth - 1));
    case 2: {
      std::vector<ov_expression_t> pairs;
      for (int i = 1 + pick(3); i > 0; --i) {
        pairs.push_back(boolean(depth - 1));
        pairs.push_back(number(depth - 1));
      }
      return make(ov_op_noisy_or, pairs);
    }
    case 3: {
      static const ov_operator_t one[] = {ov_op_exponential, ov_op_poisson, ov_op_geometric};
      return make(one[pick(3)], several(Type::number, 1, depth - 1));
    }
    case 4:
      if (depth > 0) return make(ov_op_if, {boolean(depth - 1), distribution(depth - 1), distribution(depth - 1)});
      [[fallthrough]];
    default: {
      static const ov_operator_t two[] = {ov_op_normal,  ov_op_gamma,    ov_op_weibull,
                                          ov_op_uniform, ov_op_binomial, ov_op_negative_binomial};
      return make(two[pick(6)], several(Type::number, 2, depth - 1));
    }
    }
  }

  std::mt19937 random_;
  std::vector<ov_node_t> nodes_;
  bool exact_numbers_;
};

// Node-by-node equality; numbers compare exactly, the sign of zero included.
::testing::AssertionResult same_tree(ov_expression_t x, ov_expression_t y) {
  if (ov_expression_get_operator(x) != ov_expression_get_operator(y))
    return ::testing::AssertionFailure() << "operators " << ov_expression_get_operator(x) << " and "
                                         << ov_expression_get_operator(y);
  if (x->value_type != y->value_type) return ::testing::AssertionFailure() << "value types differ";
  switch (ov_expression_get_operator(x)) {
  case ov_op_number: {
    double a = ov_expression_get_number(x), b = ov_expression_get_number(y);
    if (a != b || std::signbit(a) != std::signbit(b))
      return ::testing::AssertionFailure() << "numbers " << a << " and " << b;
    return ::testing::AssertionSuccess();
  }
  case ov_op_label:
    if (std::strcmp(ov_expression_get_label(x), ov_expression_get_label(y)) != 0)
      return ::testing::AssertionFailure() << "labels differ";
    return ::testing::AssertionSuccess();
  case ov_op_node:
    if (ov_expression_get_node(x) != ov_expression_get_node(y)) return ::testing::AssertionFailure() << "nodes";
    return ::testing::AssertionSuccess();
  case ov_op_boolean:
    if (ov_expression_get_boolean(x) != ov_expression_get_boolean(y)) return ::testing::AssertionFailure() << "bool";
    return ::testing::AssertionSuccess();
  default: break;
  }
  ov_expression_t *a = ov_expression_get_operands(x), *b = ov_expression_get_operands(y);
  for (; *a != nullptr && *b != nullptr; ++a, ++b) {
    auto result = same_tree(*a, *b);
    if (!result) return result;
  }
  if (*a != nullptr || *b != nullptr) return ::testing::AssertionFailure() << "operand counts differ";
  return ::testing::AssertionSuccess();
}

class RoundTrip : public orvel::test::NamedNodes {
protected:
  void SetUp() override {
    NamedNodes::SetUp();
    nodes = all_named({"A", "B", "C", "min", "Normal", "x_1"});
  }
  std::vector<ov_node_t> nodes;
};

TEST_F(RoundTrip, PrintedTreesReadBackToTheSameTree) {
  TreeGenerator generator(20240611u, nodes, true);
  static const Type types[] = {Type::number, Type::boolean, Type::label, Type::distribution};
  for (int i = 0; i < 3000; ++i) {
    ov_expression_t tree = generator.generate(types[i % 4], 1 + i % 6);
    ASSERT_NE(tree, nullptr);
    std::string text = text_of(tree);
    ov_expression_t back = ov_domain_string_to_expression(domain, text.c_str(), nullptr, nullptr);
    ASSERT_NE(back, nullptr) << text << ": " << ov_error_name(ov_error_code());
    EXPECT_TRUE(same_tree(tree, back)) << text;
    EXPECT_EQ(text_of(back), text);
    ov_expression_delete(tree);
    ov_expression_delete(back);
  }
}

TEST_F(RoundTrip, TextIsStableForAnyNumbers) {
  // With numbers that "%G" rounds, the first reading may differ from the
  // original, but from then on the text is fixed.
  TreeGenerator generator(7u, nodes, false);
  for (int i = 0; i < 1000; ++i) {
    ov_expression_t tree = generator.generate(Type::number, 1 + i % 5);
    std::string text = text_of(tree);
    ov_expression_t back = ov_domain_string_to_expression(domain, text.c_str(), nullptr, nullptr);
    ASSERT_NE(back, nullptr) << text;
    EXPECT_EQ(text_of(back), text);
    ov_expression_t clone = ov_expression_clone(back);
    EXPECT_TRUE(same_tree(back, clone));
    ov_expression_delete(tree);
    ov_expression_delete(back);
    ov_expression_delete(clone);
  }
}

} // namespace
