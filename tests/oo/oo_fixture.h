// Shared helpers of the object-oriented network tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model/domain.h"
#include "oo/class.h"
#include "orvel.h"

namespace orvel::test {

// A collection that is deleted at the end of each test.
class OoTest : public ::testing::Test {
protected:
  void SetUp() override { cc = ov_new_class_collection(); }
  void TearDown() override {
    if (cc != nullptr) {
      EXPECT_EQ(ov_cc_delete(cc), ov_error_none);
    }
  }

  // A new class of the collection with a name.
  ov_class_t make_class(const char *name) {
    ov_class_t cls = ov_cc_new_class(cc);
    EXPECT_NE(cls, nullptr);
    EXPECT_EQ(ov_class_set_name(cls, name), ov_error_none);
    return cls;
  }

  // A new named node of a class.
  static ov_node_t make_node(ov_class_t cls, const char *name, ov_category_t category = ov_category_chance,
                             ov_kind_t kind = ov_kind_discrete) {
    ov_node_t node = ov_domain_new_node(as_domain(cls), category, kind);
    EXPECT_EQ(ov_node_set_name(node, name), ov_error_none);
    return node;
  }

  // A discrete chance node with the given state labels, made an output.
  static ov_node_t make_output(ov_class_t cls, const char *name, std::vector<const char *> labels = {}) {
    ov_node_t node = make_node(cls, name);
    if (!labels.empty()) {
      EXPECT_EQ(ov_node_set_number_of_states(node, static_cast<ov_count_t>(labels.size())), ov_error_none);
      for (std::size_t i = 0; i < labels.size(); ++i)
        EXPECT_EQ(ov_node_set_state_label(node, static_cast<ov_index_t>(i), labels[i]), ov_error_none);
    }
    EXPECT_EQ(ov_node_add_to_outputs(node), ov_error_none);
    return node;
  }

  static ov_node_t make_input(ov_class_t cls, const char *name, ov_category_t category = ov_category_chance,
                              ov_kind_t kind = ov_kind_discrete) {
    ov_node_t node = make_node(cls, name, category, kind);
    EXPECT_EQ(ov_node_add_to_inputs(node), ov_error_none);
    return node;
  }

  // The entries of a null-terminated array.
  template <class T> static std::vector<T> entries(T *list) {
    std::vector<T> out;
    for (; list != nullptr && *list != nullptr; ++list) out.push_back(*list);
    return out;
  }

  static std::uint32_t node_count(ov_class_t cls) { return as_domain(cls)->node_count(); }

  ov_class_collection_t cc = nullptr;
};

} // namespace orvel::test
