// Deep structures on small stacks: a chain of nodes gives a junction tree
// as deep as the network, and an expression may be as high as the library
// allows; neither may exhaust the stack of the thread that works on it.
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "compile/net_structure.h"
#include "expr/expression.h"
#include "expr/expression_parser.h"
#include "orvel.h"

using namespace orvel;
using namespace orvel::test;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::uint32_t long_chain = 50000; // the sanitizers make a long chain slow
#else
constexpr std::uint32_t long_chain = 200000;
#endif
constexpr std::size_t small_stack = 256 * 1024;

// Runs `work` on a thread with a stack of `size` bytes and waits for it.
void on_small_stack(std::size_t size, const std::function<void()> &work) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
  pthread_t thread;
  auto run = [](void *argument) -> void * {
    (*static_cast<const std::function<void()> *>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()> *>(&work)), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// X0 -> X1 -> ... with P(X0) = prior and P(Xi | Xi-1) = step, both binary.
constexpr std::array<double, 2> prior{0.3, 0.7};
constexpr std::array<std::array<double, 2>, 2> step{{{0.9, 0.1}, {0.2, 0.8}}};

ov_domain_t chain(std::uint32_t length) {
  ov_domain_t domain = ov_new_domain();
  Node *previous = nullptr;
  for (std::uint32_t i = 0; i < length; ++i) {
    Node *node = add_node(domain, ("X" + std::to_string(i)).c_str(), 2);
    ov_number_t *data = ov_table_get_data(ov_node_get_table(node));
    if (previous == nullptr) {
      data[0] = static_cast<ov_number_t>(prior[0]), data[1] = static_cast<ov_number_t>(prior[1]);
    } else {
      add_arc(previous, node);
      data = ov_table_get_data(ov_node_get_table(node));
      for (int k = 0; k < 4; ++k) data[k] = static_cast<ov_number_t>(step[k / 2][k % 2]);
    }
    previous = node;
  }
  return domain;
}

std::array<double, 2> forward(std::array<double, 2> p, std::uint32_t steps) {
  for (std::uint32_t i = 0; i < steps; ++i)
    p = {p[0] * step[0][0] + p[1] * step[1][0], p[0] * step[0][1] + p[1] * step[1][1]};
  return p;
}

// Compiles the chain, enters X(m+1) = 0 with m in the middle, propagates,
// and checks X(m) and the last node against the closed form.
void check_chain(std::uint32_t length) {
  ov_domain_t domain = chain(length);
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  const std::uint32_t m = length / 2;
  auto node = [&](std::uint32_t i) { return ov_domain_get_node_by_name(domain, ("X" + std::to_string(i)).c_str()); };
  ASSERT_EQ(ov_node_select_state(node(m + 1), 0), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);

  // P(Xm | Xm+1 = 0) is proportional to P(Xm) P(Xm+1 = 0 | Xm).
  const std::array<double, 2> pm = forward(prior, m);
  const double joint0 = pm[0] * step[0][0], joint1 = pm[1] * step[1][0];
  EXPECT_NEAR(ov_node_get_belief(node(m), 0), joint0 / (joint0 + joint1), 1e-5);
  EXPECT_NEAR(ov_domain_get_normalization_constant(domain), joint0 + joint1, 1e-5);
  const std::array<double, 2> last = forward({1.0, 0.0}, length - 1 - (m + 1));
  EXPECT_NEAR(ov_node_get_belief(node(length - 1), 0), last[0], 1e-5);
  ov_domain_delete(domain);
}

TEST(DeepTree, LongChainCompilesAndPropagatesOnTheMainThread) { check_chain(long_chain); }

TEST(DeepTree, ChainCompilesAndPropagatesOnASmallThread) {
  on_small_stack(small_stack, [] { check_chain(20000); });
}

TEST(DeepTree, ExpressionsAtTheHeightLimitCloneAndPrintOnASmallThread) {
  // 1 - (1 - (... - (1 - 1))), as high as the library builds it.
  ov_expression_t one = ov_number_make_expression(1.0);
  ov_expression_t tree = one;
  std::string text = "1";
  for (std::uint32_t height = 1;; ++height) {
    ov_expression_t operands[] = {ov_number_make_expression(1.0), tree, nullptr};
    ov_expression_t higher = ov_make_composite_expression(ov_op_subtract, operands);
    if (higher == nullptr) {
      EXPECT_EQ(ov_error_code(), ov_error_invalid_expression);
      EXPECT_EQ(height, expression_height_limit);
      ov_expression_delete(operands[0]);
      break;
    }
    text = tree == one ? "1 - 1" : "1 - (" + text + ")";
    tree = higher;
  }
  on_small_stack(small_stack, [&] {
    ov_expression_t copy = ov_expression_clone(tree);
    ASSERT_NE(copy, nullptr);
    char *printed = ov_expression_to_string(tree);
    char *printed_copy = ov_expression_to_string(copy);
    ASSERT_NE(printed, nullptr);
    ASSERT_NE(printed_copy, nullptr);
    // Compared as a whole: the text is too long for a failure message.
    EXPECT_TRUE(printed == text);
    EXPECT_TRUE(printed_copy == text);
    free(printed);
    free(printed_copy);
    EXPECT_EQ(ov_expression_delete(copy), ov_error_none);
    EXPECT_EQ(ov_expression_delete(tree), ov_error_none);
  });
}

TEST(DeepTree, TextNestedToTheLimitParsesOnASmallThread) {
  // Parentheses, calls and powers each nest one level; the whole text is one.
  const std::uint32_t deepest = expression_nesting_limit - 1;
  auto nested = [](std::uint32_t levels, const std::string &open, const std::string &close) {
    std::string text;
    for (std::uint32_t i = 0; i < levels; ++i) text += open;
    text += "1";
    for (std::uint32_t i = 0; i < levels; ++i) text += close;
    return text;
  };
  ov_domain_t domain = ov_new_domain();
  on_small_stack(small_stack, [&] {
    for (const auto &[open, close] : {std::pair<std::string, std::string>{"(", ")"}, {"max(", ")"}, {"2^", ""}}) {
      ov_expression_t parsed = ov_string_to_expression(nested(deepest, open, close).c_str(), domain, nullptr);
      ASSERT_NE(parsed, nullptr) << open;
      EXPECT_EQ(ov_expression_delete(parsed), ov_error_none);
      EXPECT_EQ(ov_string_to_expression(nested(deepest + 1, open, close).c_str(), domain, nullptr), nullptr);
      EXPECT_EQ(ov_error_code(), ov_error_syntax);
    }
  });
  ov_domain_delete(domain);
}

} // namespace
