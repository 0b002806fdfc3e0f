// Classes meet graph editing: edges to and from interface nodes and clones,
// and changes of the number of states of an output.
#include <gtest/gtest.h>

#include "oo/oo_fixture.h"
#include "table/table.h"

namespace orvel::test {
namespace {

using ClassGraphTest = OoTest;

TEST_F(ClassGraphTest, InputsHaveNoParents) {
  ov_class_t cls = make_class("A");
  ov_node_t parent = make_node(cls, "parent");
  ov_node_t child = make_node(cls, "child");
  ASSERT_EQ(ov_node_add_parent(child, parent), ov_error_none);
  EXPECT_EQ(ov_node_add_to_inputs(child), ov_error_usage);
  EXPECT_EQ(entries(ov_class_get_inputs(cls)), (std::vector<ov_node_t>{}));

  // An input refuses a parent, and can still be one.
  ov_node_t input = make_input(cls, "input");
  EXPECT_EQ(ov_node_add_parent(input, parent), ov_error_usage);
  EXPECT_EQ(entries(ov_node_get_parents(input)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(ov_node_add_parent(child, input), ov_error_none);

  // Out of the inputs, it can get parents again.
  EXPECT_EQ(ov_node_remove_from_inputs(input), ov_error_none);
  EXPECT_EQ(ov_node_add_parent(input, parent), ov_error_none);
}

TEST_F(ClassGraphTest, ClonesAreParentsButNotChildren) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  ov_node_t out = make_output(part, "out");
  ASSERT_EQ(ov_node_set_number_of_states(out, 3), ov_error_none);
  ov_node_t instance = ov_class_new_instance(whole, part);
  ov_node_t clone = ov_node_get_output(instance, out);
  ov_node_t child = make_node(whole, "child");
  ov_node_t other = make_node(whole, "other");
  ASSERT_EQ(ov_node_set_number_of_states(child, 2), ov_error_none);

  EXPECT_EQ(ov_node_add_parent(clone, other), ov_error_usage);
  EXPECT_EQ(ov_node_add_parent(instance, other), ov_error_usage);
  ASSERT_EQ(ov_node_add_parent(child, clone), ov_error_none);
  ov_table_t table = ov_node_get_table(child);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(ov_table_get_size(table), 6); // 3 states of the clone times 2

  // Removing the output deletes the clone, and the child's table narrows.
  EXPECT_EQ(ov_node_remove_from_outputs(out), ov_error_none);
  EXPECT_EQ(entries(ov_node_get_parents(child)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(ov_table_get_size(table), 2);
  EXPECT_EQ(entries(ov_table_get_nodes(table)), (std::vector<ov_node_t>{child}));
  EXPECT_EQ(node_count(whole), 3u);
}

TEST_F(ClassGraphTest, StateCountsReachClonesAtEveryDepth) {
  ov_class_t inner = make_class("Inner");
  ov_class_t middle = make_class("Middle");
  ov_class_t outer = make_class("Outer");
  ov_node_t out = make_output(inner, "out", {"a", "b"});
  ov_node_t mid_instance = ov_class_new_instance(middle, inner);
  ov_node_t mid_clone = ov_node_get_output(mid_instance, out);
  ASSERT_EQ(ov_node_add_to_outputs(mid_clone), ov_error_none);
  ov_node_t outer_clone = ov_node_get_output(ov_class_new_instance(outer, middle), mid_clone);
  ov_node_t reader = make_node(outer, "reader");
  ASSERT_EQ(ov_node_add_parent(reader, outer_clone), ov_error_none);
  ov_table_t table = ov_node_get_table(reader);

  ASSERT_EQ(ov_node_set_number_of_states(out, 4), ov_error_none);
  for (ov_node_t clone : {mid_clone, outer_clone}) {
    EXPECT_EQ(ov_node_get_number_of_states(clone), 4);
    EXPECT_STREQ(ov_node_get_state_label(clone, 1), "b");
    EXPECT_STREQ(ov_node_get_state_label(clone, 3), "");
  }
  EXPECT_EQ(ov_table_get_size(table), 4); // the reader's table follows the clone
  // Clones refuse a count of their own.
  EXPECT_EQ(ov_node_set_number_of_states(outer_clone, 2), ov_error_usage);
  EXPECT_EQ(ov_node_get_number_of_states(outer_clone), 4);

  ASSERT_EQ(ov_node_set_number_of_states(out, 1), ov_error_none);
  EXPECT_EQ(ov_node_get_number_of_states(outer_clone), 1);
  EXPECT_EQ(ov_table_get_size(table), 1);
  // A new instance starts from the present count.
  EXPECT_EQ(ov_node_get_number_of_states(ov_node_get_output(ov_class_new_instance(middle, inner), out)), 1);
}

} // namespace
} // namespace orvel::test
