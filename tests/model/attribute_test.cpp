// Attribute lists of domains and nodes: order, replacement, removal, keys.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "model/attribute.h"
#include "orvel.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs walk(ov_attribute_t first) {
  Pairs pairs;
  for (ov_attribute_t a = first; a != nullptr; a = ov_attribute_get_next(a))
    pairs.emplace_back(ov_attribute_get_key(a), ov_attribute_get_value(a));
  return pairs;
}

struct Attributes : ::testing::Test {
  ov_domain_t domain = ov_new_domain();
  ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  ~Attributes() override { ov_domain_delete(domain); }
};

TEST_F(Attributes, NewestFirstAndReplacementKeepsItsPlace) {
  EXPECT_EQ(ov_node_get_first_attribute(node), nullptr);
  ASSERT_EQ(ov_node_set_attribute(node, "a", "1"), ov_error_none);
  ASSERT_EQ(ov_node_set_attribute(node, "b", "2"), ov_error_none);
  ASSERT_EQ(ov_node_set_attribute(node, "c", "3"), ov_error_none);
  EXPECT_EQ(walk(ov_node_get_first_attribute(node)), (Pairs{{"c", "3"}, {"b", "2"}, {"a", "1"}}));
  ov_attribute_t middle = ov_attribute_get_next(ov_node_get_first_attribute(node));
  ASSERT_EQ(ov_node_set_attribute(node, "b", "two"), ov_error_none);
  EXPECT_EQ(walk(ov_node_get_first_attribute(node)), (Pairs{{"c", "3"}, {"b", "two"}, {"a", "1"}}));
  EXPECT_EQ(ov_attribute_get_next(ov_node_get_first_attribute(node)), middle) << "the entry itself stays";
  EXPECT_STREQ(ov_node_get_attribute(node, "b"), "two");
  EXPECT_EQ(ov_node_get_attribute(node, "d"), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  // Values may be empty; keys compare exactly.
  ASSERT_EQ(ov_node_set_attribute(node, "B", ""), ov_error_none);
  EXPECT_STREQ(ov_node_get_attribute(node, "B"), "");
  EXPECT_STREQ(ov_node_get_attribute(node, "b"), "two");
}

TEST_F(Attributes, RemovalAtEachPositionAndOfAbsentKeys) {
  for (const char *key : {"k1", "k2", "k3", "k4"}) ASSERT_EQ(ov_domain_set_attribute(domain, key, key), ov_error_none);
  EXPECT_EQ(ov_domain_set_attribute(domain, "absent", nullptr), ov_error_none);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(walk(ov_domain_get_first_attribute(domain)).size(), 4u);
  ASSERT_EQ(ov_domain_set_attribute(domain, "k2", nullptr), ov_error_none); // in the middle
  EXPECT_EQ(walk(ov_domain_get_first_attribute(domain)), (Pairs{{"k4", "k4"}, {"k3", "k3"}, {"k1", "k1"}}));
  ASSERT_EQ(ov_domain_set_attribute(domain, "k4", nullptr), ov_error_none); // the head
  ASSERT_EQ(ov_domain_set_attribute(domain, "k1", nullptr), ov_error_none); // the tail
  EXPECT_EQ(walk(ov_domain_get_first_attribute(domain)), (Pairs{{"k3", "k3"}}));
  EXPECT_EQ(ov_domain_get_attribute(domain, "k1"), nullptr);
  ASSERT_EQ(ov_domain_set_attribute(domain, "k3", nullptr), ov_error_none);
  EXPECT_EQ(ov_domain_get_first_attribute(domain), nullptr);
  // A removed key can come back, at the head.
  ASSERT_EQ(ov_domain_set_attribute(domain, "k9", "x"), ov_error_none);
  ASSERT_EQ(ov_domain_set_attribute(domain, "k2", "y"), ov_error_none);
  EXPECT_EQ(walk(ov_domain_get_first_attribute(domain)), (Pairs{{"k2", "y"}, {"k9", "x"}}));
}

TEST_F(Attributes, KeysHaveTheFormOfNamesAndListsAreSeparate) {
  ASSERT_EQ(ov_node_set_attribute(node, "k", "node"), ov_error_none);
  for (const char *bad : {"1abc", "9", "", "a b", "a-b", "x.y"}) {
    EXPECT_EQ(ov_node_set_attribute(node, bad, "v"), ov_error_invalid_name) << bad;
    EXPECT_EQ(ov_node_set_attribute(node, bad, nullptr), ov_error_invalid_name) << "also when removing";
  }
  for (const char *good : {"_", "_private", "HR_Label", "a1"})
    EXPECT_EQ(ov_node_set_attribute(node, good, "ok"), ov_error_none) << good;
  EXPECT_EQ(walk(ov_node_get_first_attribute(node)).size(), 5u);
  ASSERT_EQ(ov_domain_set_attribute(domain, "k", "domain"), ov_error_none);
  EXPECT_STREQ(ov_domain_get_attribute(domain, "k"), "domain");
  EXPECT_STREQ(ov_node_get_attribute(node, "k"), "node");
}

TEST(AttributeList, ALongListIsReleasedWithoutRecursion) {
  // Built by hand: setting keys one by one scans the list each time.
  orvel::AttributeList list;
  for (int i = 0; i < 300000; ++i) {
    auto entry = std::make_unique<orvel::Attribute>();
    entry->key = "k";
    entry->next = std::move(list.first);
    list.first = std::move(entry);
  }
  EXPECT_EQ(orvel::attribute_set(list, "k", "v", true), ov_error_none);
  EXPECT_STREQ(orvel::attribute_get(list, "k"), "v") << "the first match counts";
}

} // namespace
