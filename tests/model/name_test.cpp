// Node names: validity, uniqueness, automatic names, repair and the name
// table behind the lookup.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "model/domain.h"
#include "model/node.h"
#include "orvel.h"

namespace {

struct NodeNames : ::testing::Test {
  ov_domain_t domain = ov_new_domain();
  ~NodeNames() override { ov_domain_delete(domain); }

  ov_node_t chance() { return ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete); }
  ov_node_t find(const std::string &name) { return ov_domain_get_node_by_name(domain, name.c_str()); }
  // The node of that name found by walking the public node list.
  ov_node_t scan(const std::string &name) {
    for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n))
      if (n->name && *n->name == name) return n;
    return nullptr;
  }
  std::size_t buckets() const { return domain->names.buckets.size(); }
};

TEST_F(NodeNames, IdentifierFormOnly) {
  ov_node_t node = chance();
  for (const char *good : {"a", "_", "_x1", "Rain", "a_b_c", "x0123456789", "ABCxyz_"}) {
    EXPECT_EQ(ov_node_set_name(node, good), ov_error_none) << good;
    EXPECT_STREQ(ov_node_get_name(node), good);
  }
  for (const char *bad : {"", "a b", "1a", "9", "a-b", "a.b", "é", "a\tb", " a", "a "}) {
    EXPECT_EQ(ov_node_set_name(node, bad), ov_error_invalid_name) << bad;
    EXPECT_STREQ(ov_node_get_name(node), "ABCxyz_");
  }
}

TEST_F(NodeNames, UniqueCaseSensitiveAndFreedByARename) {
  ov_node_t a = chance(), b = chance();
  ASSERT_EQ(ov_node_set_name(a, "rain"), ov_error_none);
  EXPECT_EQ(ov_node_set_name(a, "rain"), ov_error_none) << "its own name again";
  EXPECT_EQ(ov_node_set_name(b, "rain"), ov_error_twice);
  EXPECT_EQ(b->name, std::nullopt) << "the refused node stays unnamed";
  ASSERT_EQ(ov_node_set_name(b, "Rain"), ov_error_none);
  EXPECT_EQ(find("rain"), a);
  EXPECT_EQ(find("Rain"), b);
  EXPECT_EQ(find("RAIN"), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none) << "not found is no error";
  ASSERT_EQ(ov_node_set_name(a, "new"), ov_error_none);
  EXPECT_EQ(find("rain"), nullptr);
  EXPECT_EQ(ov_node_set_name(b, "rain"), ov_error_none);
  EXPECT_EQ(find("rain"), b);
  EXPECT_EQ(find("new"), a);
}

TEST_F(NodeNames, AutomaticNames) {
  ov_node_t c = chance(), d = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  ov_node_t u = ov_domain_new_node(domain, ov_category_utility, ov_kind_discrete);
  EXPECT_STREQ(ov_node_get_name(u), "U3");
  EXPECT_STREQ(ov_node_get_name(c), "C1");
  EXPECT_STREQ(ov_node_get_name(d), "D2");
  EXPECT_EQ(find("D2"), d);
  const char *first = ov_node_get_name(c);
  EXPECT_EQ(ov_node_get_name(c), first) << "the name is kept";
  // After a deletion numbers stay dense: the new node is number 3, and "C3"
  // is held.
  ASSERT_EQ(ov_node_delete(d), ov_error_none);
  ASSERT_EQ(ov_node_set_name(c, "C3"), ov_error_none);
  ov_node_t n = chance();
  EXPECT_STREQ(ov_node_get_name(n), "C4") << "from node_count + 1 on";
  // Every taken candidate is skipped: "C4" (its number), then "C6" (the
  // node count + 1).
  ov_node_t e = chance(), f = chance();
  ASSERT_EQ(ov_node_set_name(f, "C6"), ov_error_none);
  EXPECT_STREQ(ov_node_get_name(e), "C7");
  EXPECT_EQ(ov_error_code(), ov_error_none);
}

TEST_F(NodeNames, RepairMakesIdentifiersAndGrowsCollisions) {
  // Names that came from elsewhere without the form test, and their repairs.
  const std::pair<const char *, const char *> repairs[] = {
      {"1abc", "_abc"}, {"a b", "a_b"}, {"x-y", "x_y__"}, {"", "__"}};
  std::vector<ov_node_t> odd;
  for (const auto &repair : repairs) odd.emplace_back(chance())->name = repair.first;
  ov_node_t taken = chance(), taken2 = chance(), unnamed = chance(), underscore = chance();
  ASSERT_EQ(ov_node_set_name(taken, "x_y") + ov_node_set_name(taken2, "x_y_") + ov_node_set_name(underscore, "_"),
            ov_error_none);
  ASSERT_EQ(orvel::domain_repair_names(domain), ov_error_none);
  for (std::size_t i = 0; i < odd.size(); ++i) EXPECT_EQ(*odd[i]->name, repairs[i].second);
  EXPECT_EQ(*taken->name, "x_y");
  EXPECT_FALSE(unnamed->name.has_value()) << "unnamed nodes stay unnamed";
  EXPECT_EQ(find("x_y__"), odd[2]);
}

TEST_F(NodeNames, LookupsAgreeWithAScanAcrossRenamesDeletionsAndGrowth) {
  std::vector<ov_node_t> nodes;
  std::map<std::string, ov_node_t> expected;
  auto check_all = [&](const char *when) {
    for (auto &[name, node] : expected) {
      ASSERT_EQ(find(name), node) << name << " " << when;
      ASSERT_EQ(scan(name), node);
    }
    for (const char *absent : {"x", "n", "n1000", "m1", "N1", "n_1"}) EXPECT_EQ(find(absent), nullptr) << absent;
  };
  for (int i = 0; i < 12; ++i) {
    nodes.push_back(chance());
    std::string name = "n" + std::to_string(i);
    ASSERT_EQ(ov_node_set_name(nodes.back(), name.c_str()), ov_error_none);
    expected[name] = nodes.back();
  }
  check_all("after building");
  // Renames move entries between buckets; a node named for the first time
  // while the table exists is inserted.
  for (int i = 0; i < 12; i += 3) {
    std::string new_name = "renamed_" + std::to_string(i);
    ASSERT_EQ(ov_node_set_name(nodes[i], new_name.c_str()), ov_error_none);
    expected.erase("n" + std::to_string(i));
    expected[new_name] = nodes[i];
  }
  ov_node_t late = chance();
  ASSERT_EQ(ov_node_set_name(late, "late"), ov_error_none);
  expected["late"] = late;
  check_all("after renames");
  for (int i : {1, 5}) {
    ASSERT_EQ(ov_node_delete(nodes[i]), ov_error_none);
    expected.erase("n" + std::to_string(i));
  }
  check_all("after deletions");
  // Grow well past twice the bucket count, with lookups along the way.
  std::size_t rebuilds = 0, last = buckets();
  for (int i = 100; i < 400; ++i) {
    ov_node_t node = chance();
    std::string name = "n" + std::to_string(i);
    if (i % 7 != 0) { // some stay unnamed
      ASSERT_EQ(ov_node_set_name(node, name.c_str()), ov_error_none);
      expected[name] = node;
    }
    if (i % 10 == 0) {
      check_all("while growing");
      if (buckets() != last) ++rebuilds, last = buckets();
    }
  }
  EXPECT_GE(rebuilds, 3u);
  // Automatic names are found too.
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n))
    EXPECT_EQ(find(ov_node_get_name(n)), n);
}

} // namespace
