// Class collections: membership and its order, class names, deletion.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "oo/oo_fixture.h"

namespace orvel::test {
namespace {

using CollectionTest = OoTest;

TEST_F(CollectionTest, MembersKeepTheOrderOfAddition) {
  ov_class_t *members = ov_cc_get_members(cc);
  ASSERT_NE(members, nullptr); // an empty collection still has an array
  EXPECT_EQ(members[0], nullptr);

  ov_class_t a = ov_cc_new_class(cc);
  ov_class_t b = ov_cc_new_class(cc);
  ov_domain_t plain = ov_new_domain();
  ASSERT_NE(ov_domain_new_node(plain, ov_category_chance, ov_kind_discrete), nullptr);
  EXPECT_EQ(ov_cc_add_domain(cc, plain), ov_error_none);
  ov_class_t c = ov_cc_new_class(cc);

  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{a, b, as_class(plain), c}));
  EXPECT_EQ(cc->count(), 4u);
  for (ov_class_t cls : {a, b, as_class(plain), c}) EXPECT_EQ(ov_class_get_class_collection(cls), cc);
  EXPECT_EQ(node_count(as_class(plain)), 1u); // the domain keeps its nodes

  // Deleting a member closes the gap and keeps the order of the others.
  EXPECT_EQ(ov_class_delete(b), ov_error_none);
  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{a, as_class(plain), c}));
  EXPECT_EQ(ov_class_delete(a), ov_error_none);
  EXPECT_EQ(ov_class_delete(c), ov_error_none);
  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{as_class(plain)}));
}

TEST_F(CollectionTest, ArgumentChecks) {
  EXPECT_EQ(ov_cc_new_class(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_cc_get_members(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_cc_delete(nullptr), ov_error_usage);
  EXPECT_EQ(ov_cc_get_class_by_name(nullptr, "A"), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_class_delete(nullptr), ov_error_usage);
  EXPECT_EQ(ov_class_get_class_collection(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_class_get_inputs(nullptr), nullptr);
  EXPECT_EQ(ov_class_get_outputs(nullptr), nullptr);
  EXPECT_EQ(ov_class_get_instances(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);

  // A plain domain is no class.
  ov_domain_t plain = ov_new_domain();
  ov_class_t fake = as_class(plain);
  EXPECT_EQ(ov_class_get_class_collection(fake), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_class_get_inputs(fake), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_class_get_name(fake), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_class_set_name(fake, "A"), ov_error_usage);
  EXPECT_EQ(ov_class_delete(fake), ov_error_usage);
  EXPECT_EQ(ov_domain_delete(plain), ov_error_none);

  EXPECT_EQ(ov_cc_set_user_data(nullptr, this), ov_error_usage);
  EXPECT_EQ(ov_cc_get_user_data(cc), nullptr);
  EXPECT_EQ(ov_cc_set_user_data(cc, this), ov_error_none);
  EXPECT_EQ(ov_cc_get_user_data(cc), this);
}

TEST_F(CollectionTest, EmptyListsOfANewClass) {
  ov_class_t a = ov_cc_new_class(cc);
  for (ov_node_t *list : {ov_class_get_inputs(a), ov_class_get_outputs(a), ov_class_get_instances(a)}) {
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list[0], nullptr);
  }
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_domain_get_first_node(as_domain(a)), nullptr);
}

TEST_F(CollectionTest, AddDomainRefusals) {
  EXPECT_EQ(ov_cc_add_domain(cc, nullptr), ov_error_usage);
  ov_domain_t plain = ov_new_domain();
  EXPECT_EQ(ov_cc_add_domain(nullptr, plain), ov_error_usage);

  // A node in a chain component keeps the domain out.
  ov_node_t node = ov_domain_new_node(plain, ov_category_chance, ov_kind_discrete);
  node->chain_component = reinterpret_cast<ChainComponent *>(node); // any non-null mark
  EXPECT_EQ(ov_cc_add_domain(cc, plain), ov_error_usage);
  EXPECT_FALSE(plain->is_class());
  EXPECT_EQ(cc->count(), 0u);
  node->chain_component = nullptr;

  // A triangulated domain is uncompiled on the way in.
  node->elimination_number = 1;
  ASSERT_EQ(ov_domain_is_triangulated(plain), 1);
  EXPECT_EQ(ov_cc_add_domain(cc, plain), ov_error_none);
  EXPECT_EQ(ov_domain_is_triangulated(plain), 0);
  EXPECT_EQ(ov_class_get_class_collection(as_class(plain)), cc);

  // A class cannot be added again, neither here nor elsewhere.
  EXPECT_EQ(ov_cc_add_domain(cc, plain), ov_error_usage);
  ov_class_collection_t other = ov_new_class_collection();
  EXPECT_EQ(ov_cc_add_domain(other, plain), ov_error_usage);
  EXPECT_EQ(ov_cc_add_domain(other, as_domain(ov_cc_new_class(cc))), ov_error_usage);
  EXPECT_EQ(other->count(), 0u);
  EXPECT_EQ(cc->count(), 2u);
  EXPECT_EQ(ov_cc_delete(other), ov_error_none);
}

// ---------------------------------------------------------------- names

TEST_F(CollectionTest, NameRules) {
  ov_class_t a = ov_cc_new_class(cc);
  ov_class_t b = ov_cc_new_class(cc);
  EXPECT_EQ(ov_class_set_name(a, "Engine"), ov_error_none);
  EXPECT_STREQ(ov_class_get_name(a), "Engine");

  // Refusals leave the name as it was.
  EXPECT_EQ(ov_class_set_name(a, "a b"), ov_error_invalid_name);
  EXPECT_EQ(ov_class_set_name(a, "1st"), ov_error_invalid_name);
  EXPECT_EQ(ov_class_set_name(a, ""), ov_error_invalid_name);
  EXPECT_EQ(ov_class_set_name(a, nullptr), ov_error_usage);
  EXPECT_STREQ(ov_class_get_name(a), "Engine");
  EXPECT_EQ(ov_class_set_name(a, "Engine"), ov_error_none); // its own name again

  EXPECT_EQ(ov_class_set_name(b, "Engine"), ov_error_twice);
  EXPECT_EQ(as_domain(b)->class_info.name, std::nullopt);
  EXPECT_EQ(ov_class_set_name(b, "_engine2"), ov_error_none);
  // The twice test comes before the form test.
  EXPECT_EQ(ov_class_set_name(b, "Engine"), ov_error_twice);

  // Renaming frees the old name for the others.
  EXPECT_EQ(ov_class_set_name(a, "Motor"), ov_error_none);
  EXPECT_EQ(ov_class_set_name(b, "Engine"), ov_error_none);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "Engine"), b);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "Motor"), a);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "_engine2"), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);

  // Names are unique only within a collection.
  ov_class_collection_t other = ov_new_class_collection();
  ov_class_t c = ov_cc_new_class(other);
  EXPECT_EQ(ov_class_set_name(c, "Engine"), ov_error_none);
  EXPECT_EQ(ov_cc_get_class_by_name(other, "Engine"), c);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "Engine"), b);
  EXPECT_EQ(ov_cc_delete(other), ov_error_none);
}

TEST_F(CollectionTest, AutomaticNamesSkipTakenOnes) {
  ov_class_t a = ov_cc_new_class(cc);
  ov_class_t b = ov_cc_new_class(cc);
  ov_class_t c = ov_cc_new_class(cc);
  EXPECT_EQ(ov_class_set_name(a, "C2"), ov_error_none);
  EXPECT_STREQ(ov_class_get_name(b), "C1");
  EXPECT_STREQ(ov_class_get_name(c), "C3"); // C1 and C2 are taken
  EXPECT_EQ(ov_error_code(), ov_error_none);
  // Once made, the name stays.
  const char *name = ov_class_get_name(c);
  EXPECT_EQ(ov_class_get_name(c), name);
  EXPECT_EQ(ov_cc_get_class_by_name(cc, "C3"), c);
}

// ---------------------------------------------------------------- class as domain

TEST_F(CollectionTest, AttributesOfAClass) {
  ov_class_t cls = make_class("A");
  EXPECT_EQ(ov_class_get_first_attribute(cls), nullptr);
  EXPECT_EQ(ov_class_set_attribute(cls, "first", "1"), ov_error_none);
  EXPECT_EQ(ov_class_set_attribute(cls, "_second", "2"), ov_error_none);
  EXPECT_EQ(ov_class_set_attribute(cls, "first", "one"), ov_error_none); // keeps its place
  EXPECT_EQ(ov_class_set_attribute(cls, "3rd", "3"), ov_error_invalid_name);
  EXPECT_EQ(ov_class_set_attribute(cls, "absent", nullptr), ov_error_none);
  std::vector<std::pair<std::string, std::string>> seen;
  for (ov_attribute_t a = ov_class_get_first_attribute(cls); a != nullptr; a = ov_attribute_get_next(a))
    seen.emplace_back(ov_attribute_get_key(a), ov_attribute_get_value(a));
  EXPECT_EQ(seen, (std::vector<std::pair<std::string, std::string>>{{"_second", "2"}, {"first", "one"}}));
  EXPECT_STREQ(ov_class_get_attribute(cls, "first"), "one");
  EXPECT_EQ(ov_class_set_attribute(cls, "first", nullptr), ov_error_none);
  EXPECT_EQ(ov_class_get_attribute(cls, "first"), nullptr);
  // The class's attributes are the record's: the domain calls see them.
  EXPECT_STREQ(ov_domain_get_attribute(as_domain(cls), "_second"), "2");
}

TEST_F(CollectionTest, NodesKnowTheirClassAndInstance) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  ov_node_t out = ov_class_new_node(part, ov_category_chance, ov_kind_discrete);
  ASSERT_EQ(ov_node_set_name(out, "out"), ov_error_none);
  ASSERT_EQ(ov_node_add_to_outputs(out), ov_error_none);
  ov_node_t instance = ov_class_new_instance(whole, part);
  ov_node_t clone = ov_node_get_output(instance, out);

  EXPECT_EQ(ov_class_get_node_by_name(part, "out"), out);
  EXPECT_EQ(ov_class_get_first_node(whole), clone); // the newest node
  EXPECT_EQ(ov_node_get_home_class(out), part);
  EXPECT_EQ(ov_node_get_home_class(clone), whole);
  EXPECT_EQ(ov_node_get_domain(clone), nullptr); // a class is no domain here
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_master(clone), out);
  EXPECT_EQ(ov_node_get_instance(clone), instance);
  EXPECT_EQ(ov_node_get_master(out), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  EXPECT_EQ(ov_node_get_instance(instance), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
}

// ---------------------------------------------------------------- deletion

TEST_F(CollectionTest, ClassWithInstancesCannotBeDeleted) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  make_output(part, "out");
  ov_node_t instance = ov_class_new_instance(whole, part);
  ASSERT_NE(instance, nullptr);

  EXPECT_EQ(ov_class_delete(part), ov_error_usage);
  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{part, whole}));
  EXPECT_EQ(entries(ov_class_get_instances(part)), (std::vector<ov_node_t>{instance}));

  // Without its instance the class goes.
  EXPECT_EQ(ov_node_delete(instance), ov_error_none);
  EXPECT_EQ(entries(ov_class_get_instances(part)), (std::vector<ov_node_t>{}));
  EXPECT_EQ(node_count(whole), 0u); // the clone went with the instance
  EXPECT_EQ(ov_class_delete(part), ov_error_none);
  EXPECT_EQ(entries(ov_cc_get_members(cc)), (std::vector<ov_class_t>{whole}));
}

TEST_F(CollectionTest, DeletingAContainerReleasesItsInstances) {
  ov_class_t part = make_class("Part");
  ov_class_t whole = make_class("Whole");
  ov_class_t other = make_class("Other");
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
  // And a plain domain turned class in the middle of the order.
  ov_domain_t plain = ov_new_domain();
  ASSERT_EQ(ov_cc_add_domain(cc, plain), ov_error_none);
  ASSERT_NE(ov_class_new_instance(chain[2], as_class(plain)), nullptr);
  EXPECT_EQ(ov_cc_delete(cc), ov_error_none);
  cc = nullptr;
}

} // namespace
} // namespace orvel::test
