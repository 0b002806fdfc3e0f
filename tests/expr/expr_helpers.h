// Shared helpers of the expression tests: composites from a list, the text
// of an expression, and a domain of named discrete nodes.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "orvel.h"

namespace orvel::test {

inline ov_expression_t make(ov_operator_t op, std::vector<ov_expression_t> operands) {
  operands.push_back(nullptr);
  return ov_make_composite_expression(op, operands.data());
}

// The printed form; "<null>" when printing fails.
inline std::string text_of(ov_expression_t expression) {
  char *text = ov_expression_to_string(expression);
  std::string copy = text != nullptr ? text : "<null>";
  std::free(text);
  return copy;
}

// A fixture with a domain of discrete chance nodes named as listed.
class NamedNodes : public ::testing::Test {
protected:
  void SetUp() override { domain = ov_new_domain(); }
  void TearDown() override { ov_domain_delete(domain); }
  ov_node_t named(const char *name) {
    ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
    ov_node_set_name(node, name);
    return node;
  }
  std::vector<ov_node_t> all_named(std::initializer_list<const char *> names) {
    std::vector<ov_node_t> nodes;
    for (const char *name : names) nodes.push_back(named(name));
    return nodes;
  }
  ov_domain_t domain = nullptr;
};

} // namespace orvel::test
