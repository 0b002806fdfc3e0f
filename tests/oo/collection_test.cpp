// Class collections: membership and its order, class names, deletion.
#include <gtest/gtest.h>

#include <vector>

#include "oo/oo_fixture.h"

namespace orvel::test {
namespace {

using CollectionTest = OoTest;

TEST_F(CollectionTest, MembersKeepTheOrderOfAddition) {
  ov_class_t *members = ov_cc_get_members(cc);
  EXPECT_TRUE(members != nullptr && members[0] == nullptr) << "an empty collection still has an array";
  ov_class_t a = ov_cc_new_class(cc), b = ov_cc_new_class(cc);
  for (ov_node_t *list : {ov_class_get_inputs(a), ov_class_get_outputs(a), ov_class_get_instances(a)})
    EXPECT_TRUE(list != nullptr && list[0] == nullptr);
  ov_domain_t plain = ov_new_domain();
  ov_node_t node = ov_domain_new_node(plain, ov_category_chance, ov_kind_discrete);
  node->elimination_number = 1;
  ASSERT_EQ(ov_domain_is_triangulated(plain), 1);
  EXPECT_EQ(ov_cc_add_domain(cc, plain), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(plain), 0) << "uncompiled on the way in";
  ov_class_t c = ov_cc_new_class(cc);
  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{a, b, as_class(plain), c}));
  for (ov_class_t cls : {a, b, as_class(plain), c}) EXPECT_EQ(ov_class_get_class_collection(cls), cc);
  EXPECT_EQ(node_count(as_class(plain)), 1u) << "the domain keeps its nodes";
  EXPECT_EQ(ov_class_delete(b), ov_error_none);
  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{a, as_class(plain), c}));
  EXPECT_EQ(ov_class_delete(a), ov_error_none);
  EXPECT_EQ(ov_class_delete(c), ov_error_none);
  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{as_class(plain)}));
  EXPECT_EQ(ov_cc_get_user_data(cc), nullptr);
  EXPECT_EQ(ov_cc_set_user_data(cc, this), ov_error_none);
  EXPECT_EQ(ov_cc_get_user_data(cc), this);
}

TEST_F(CollectionTest, Names) {
  ov_class_t a = ov_cc_new_class(cc), b = ov_cc_new_class(cc), c = ov_cc_new_class(cc);
  EXPECT_EQ(ov_class_set_name(a, "C2"), ov_error_none);
  EXPECT_STREQ(ov_class_get_name(b), "C1");
  EXPECT_STREQ(ov_class_get_name(c), "C3") << "C1 and C2 are taken";
  const char *name = ov_class_get_name(c);
  EXPECT_EQ(ov_class_get_name(c), name) << "once made, the name stays";
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "C3"), c);
  EXPECT_EQ(ov_class_set_name(a, "Engine"), ov_error_none);
  EXPECT_EQ(ov_class_set_name(a, "Engine"), ov_error_none) << "its own name again";
  EXPECT_EQ(ov_class_set_name(b, "Engine"), ov_error_twice);
  EXPECT_STREQ(ov_class_get_name(b), "C1");
  // Renaming frees the old name for the others.
  EXPECT_EQ(ov_class_set_name(a, "Motor"), ov_error_none);
  EXPECT_EQ(ov_class_set_name(b, "Engine"), ov_error_none);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "Engine"), b);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "Motor"), a);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "C2"), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  // Names are unique only within a collection.
  ov_class_collection_t other = ov_new_class_collection();
  ov_class_t d = ov_cc_new_class(other);
  EXPECT_EQ(ov_class_set_name(d, "Engine"), ov_error_none);
  EXPECT_EQ(ov_cc_get_class_by_name(other, "Engine"), d);
  EXPECT_EQ(ov_cc_delete(other), ov_error_none);
}

TEST_F(CollectionTest, DeletingAContainerReleasesItsInstances) {
  ov_class_t part = make_class("Part"), whole = make_class("Whole"), other = make_class("Other");
  ov_node_t kept = ov_class_new_instance(other, part);
  ASSERT_NE(ov_class_new_instance(whole, part), nullptr);
  ASSERT_NE(ov_class_new_instance(whole, part), nullptr);
  EXPECT_EQ(entries(ov_class_get_instances(part)).size(), 3u);
  EXPECT_EQ(ov_class_delete(whole), ov_error_none);
  EXPECT_EQ(entries(ov_class_get_instances(part)), (std::vector<ov_node_t>{kept}));
}

// Each class instantiates the one added before it, so the collection has to
// delete from the back. Under the sanitizers a wrong order shows as a use of
// freed memory.
TEST_F(CollectionTest, CollectionDeletionRespectsInstances) {
  std::vector<ov_class_t> chain;
  for (int i = 0; i < 6; ++i) {
    ov_class_t cls = ov_cc_new_class(cc);
    make_output(cls, "out");
    if (!chain.empty()) {
      ASSERT_NE(ov_class_new_instance(cls, chain.back()), nullptr);
      ASSERT_NE(ov_class_new_instance(cls, chain.front()), nullptr);
    }
    chain.push_back(cls);
  }
  ov_domain_t plain = ov_new_domain();
  ASSERT_EQ(ov_cc_add_domain(cc, plain), ov_error_none);
  ASSERT_NE(ov_class_new_instance(chain[2], as_class(plain)), nullptr);
  EXPECT_EQ(ov_cc_delete(cc), ov_error_none);
  cc = nullptr;
}

} // namespace
} // namespace orvel::test
