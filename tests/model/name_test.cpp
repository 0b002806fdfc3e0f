// Node names: validity, uniqueness, automatic names and the name table.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "model/domain.h"
#include "model/node.h"
#include "orvel.h"

namespace {

struct DomainFixture : ::testing::Test {
  ov_domain_t domain = ov_new_domain();
  ~DomainFixture() override { ov_domain_delete(domain); }

  ov_node_t chance() { return ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete); }

  // The node of that name found by walking the public node list.
  ov_node_t scan(const std::string &name) {
    for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n))
      if (n->name && *n->name == name) return n;
    return nullptr;
  }
};

bool is_prime(std::size_t n) {
  if (n < 2) return false;
  for (std::size_t d = 2; d * d <= n; ++d)
    if (n % d == 0) return false;
  return true;
}

using NameValidity = DomainFixture;

TEST_F(NameValidity, IdentifierFormOnly) {
  ov_node_t node = chance();
  for (const char *good : {"a", "_", "_x1", "Rain", "a_b_c", "x0123456789", "ABCxyz_"}) {
    EXPECT_EQ(ov_node_set_name(node, good), ov_error_none) << good;
    EXPECT_STREQ(ov_node_get_name(node), good);
  }
  ov_node_set_name(node, "kept");
  for (const char *bad : {"", "a b", "1a", "9", "a-b", "a.b", "é", "a\tb", " a", "a "}) {
    EXPECT_EQ(ov_node_set_name(node, bad), ov_error_invalid_name) << bad;
    EXPECT_EQ(ov_error_code(), ov_error_invalid_name);
    EXPECT_STREQ(ov_node_get_name(node), "kept") << "a refused name changes nothing";
  }
  EXPECT_EQ(ov_node_set_name(node, nullptr), ov_error_usage);
  EXPECT_EQ(ov_node_set_name(nullptr, "a"), ov_error_usage);
  EXPECT_STREQ(ov_node_get_name(node), "kept");
}

TEST_F(NameValidity, SameNameAgainIsNoErrorAndAnotherNodesNameIsTwice) {
  ov_node_t a = chance(), b = chance();
  ASSERT_EQ(ov_node_set_name(a, "rain"), ov_error_none);
  EXPECT_EQ(ov_node_set_name(a, "rain"), ov_error_none);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_node_set_name(b, "rain"), ov_error_twice);
  EXPECT_EQ(ov_error_code(), ov_error_twice);
  EXPECT_EQ(b->name, std::nullopt) << "the refused node stays unnamed";
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "rain"), a);
  // Twice is tested before the form, so an existing name is twice even
  // though it is also a valid name; an invalid name that nobody holds is
  // invalid_name.
  EXPECT_EQ(ov_node_set_name(b, "r a"), ov_error_invalid_name);
}

TEST_F(NameValidity, RenameFreesTheOldName) {
  ov_node_t a = chance(), b = chance();
  ov_node_set_name(a, "old");
  ov_node_set_name(a, "new");
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "old"), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none) << "not found is no error";
  EXPECT_EQ(ov_node_set_name(b, "old"), ov_error_none);
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "old"), b);
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "new"), a);
}

TEST_F(NameValidity, NamesAreCaseSensitive) {
  ov_node_t a = chance(), b = chance();
  ASSERT_EQ(ov_node_set_name(a, "Rain"), ov_error_none);
  ASSERT_EQ(ov_node_set_name(b, "rain"), ov_error_none);
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "Rain"), a);
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "rain"), b);
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "RAIN"), nullptr);
}

using AutomaticNames = DomainFixture;

TEST_F(AutomaticNames, PatternByCategoryAndNumber) {
  ov_node_t c = chance();
  ov_node_t d = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  ov_node_t u = ov_domain_new_node(domain, ov_category_utility, ov_kind_discrete);
  EXPECT_STREQ(ov_node_get_name(u), "U3");
  EXPECT_STREQ(ov_node_get_name(c), "C1");
  EXPECT_STREQ(ov_node_get_name(d), "D2");
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "D2"), d);
  // The name is kept: asking again gives the same string.
  const char *first = ov_node_get_name(c);
  EXPECT_EQ(ov_node_get_name(c), first);
}

TEST_F(AutomaticNames, RenumberingAfterDeletionAndCollisions) {
  ov_node_t n1 = chance(), n2 = chance(), n3 = chance();
  EXPECT_EQ(n1->number, 1u);
  EXPECT_EQ(n2->number, 2u);
  EXPECT_EQ(n3->number, 3u);
  EXPECT_STREQ(ov_node_get_name(n3), "C3");
  ASSERT_EQ(ov_node_delete(n2), ov_error_none);
  EXPECT_EQ(n1->number, 1u);
  EXPECT_EQ(n3->number, 2u) << "numbers stay dense";
  // The new node is number 3, but "C3" is held: the name moves on from
  // node_count + 1.
  ov_node_t n4 = chance();
  EXPECT_EQ(n4->number, 3u);
  EXPECT_STREQ(ov_node_get_name(n4), "C4");
  EXPECT_EQ(ov_error_code(), ov_error_none);
}

TEST_F(AutomaticNames, CollisionSkipsEveryTakenName) {
  ov_node_t a = chance(), b = chance(), c = chance();
  // Take the node's own pattern and the first candidates after it.
  ASSERT_EQ(ov_node_set_name(a, "C3"), ov_error_none);
  ASSERT_EQ(ov_node_set_name(b, "C4"), ov_error_none);
  ov_node_t d = chance();
  ASSERT_EQ(ov_node_set_name(d, "C5"), ov_error_none);
  // c is number 3: "C3" is taken, then "C5" (node_count + 1 = 5) is taken,
  // so "C6" is next.
  EXPECT_STREQ(ov_node_get_name(c), "C6");
}

TEST_F(AutomaticNames, CloneNameJoinsInstanceAndMaster) {
  // A clone built by hand: its master and its instance have names.
  ov_node_t master = chance(), instance = chance(), clone = chance();
  ov_node_set_name(master, "out");
  ov_node_set_name(instance, "inst");
  clone->master = master;
  clone->instance = instance;
  EXPECT_STREQ(ov_node_get_name(clone), "inst_out");

  // When that name is taken the node falls back to the numbered pattern.
  ov_node_t clone2 = chance();
  clone2->master = master;
  clone2->instance = instance;
  EXPECT_STREQ(ov_node_get_name(clone2), "C4");
  clone->master = clone->instance = clone2->master = clone2->instance = nullptr;
}

using NameRepair = DomainFixture;

TEST_F(NameRepair, IllegalCharactersBecomeUnderscoresAndCollisionsGrow) {
  ov_node_t digit = chance(), space = chance(), dash = chance(), legal = chance(), taken = chance(), taken2 = chance();
  ov_node_t unnamed = chance();
  // Names that came from elsewhere without the form test (set by hand, in a
  // domain small enough to have no name table).
  digit->name = "1abc";
  space->name = "a b";
  dash->name = "x-y";
  ASSERT_EQ(ov_node_set_name(legal, "fine_1"), ov_error_none);
  ASSERT_EQ(ov_node_set_name(taken, "x_y"), ov_error_none);
  ASSERT_EQ(ov_node_set_name(taken2, "x_y_"), ov_error_none);
  ASSERT_EQ(orvel::domain_repair_names(domain), ov_error_none);
  EXPECT_EQ(*digit->name, "_abc");
  EXPECT_EQ(*space->name, "a_b");
  EXPECT_EQ(*dash->name, "x_y__");
  EXPECT_EQ(*legal->name, "fine_1");
  EXPECT_EQ(*taken->name, "x_y");
  EXPECT_FALSE(unnamed->name.has_value()) << "unnamed nodes stay unnamed";
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "x_y__"), dash);
}

TEST_F(NameRepair, AnEmptyNameBecomesAnUnderscore) {
  ov_node_t empty = chance(), other = chance();
  ASSERT_EQ(ov_node_set_name(other, "_"), ov_error_none);
  empty->name = "";
  EXPECT_EQ(orvel::domain_repair_names(domain), ov_error_none);
  EXPECT_EQ(*empty->name, "__");
}

using NameTable = DomainFixture;

TEST_F(NameTable, SmallDomainsScanAndBuildNoTable) {
  std::vector<ov_node_t> nodes;
  for (int i = 0; i < 10; ++i) nodes.push_back(chance());
  for (int i = 0; i < 10; ++i) ov_node_set_name(nodes[i], ("n" + std::to_string(i)).c_str());
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(ov_domain_get_node_by_name(domain, ("n" + std::to_string(i)).c_str()), nodes[i]);
  EXPECT_TRUE(domain->names.buckets.empty()) << "no table for ten nodes";
  chance(); // the eleventh node, unnamed
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "n3"), nodes[3]);
  EXPECT_EQ(domain->names.buckets.size(), 11u) << "the first prime not below the node count";
}

TEST_F(NameTable, LookupsAgreeWithAScanAcrossRenamesDeletionsAndGrowth) {
  std::vector<ov_node_t> nodes;
  std::map<std::string, ov_node_t> expected;
  auto check_all = [&](const char *when) {
    for (auto &[name, node] : expected) {
      ASSERT_EQ(ov_domain_get_node_by_name(domain, name.c_str()), node) << name << " " << when;
      ASSERT_EQ(scan(name), node);
    }
    // Names that nobody holds, including prefixes and near misses.
    for (const char *absent : {"x", "n", "n1000", "m1", "N1", "n_1"}) {
      EXPECT_EQ(ov_domain_get_node_by_name(domain, absent), scan(absent)) << absent;
      EXPECT_EQ(ov_error_code(), ov_error_none);
    }
    std::size_t buckets = domain->names.buckets.size();
    if (buckets != 0) {
      EXPECT_TRUE(is_prime(buckets)) << buckets;
      EXPECT_LE(domain->node_count(), 2 * buckets) << "grown past a load factor of 2";
    }
  };
  for (int i = 0; i < 12; ++i) {
    nodes.push_back(chance());
    std::string name = "n" + std::to_string(i);
    ASSERT_EQ(ov_node_set_name(nodes.back(), name.c_str()), ov_error_none);
    expected[name] = nodes.back();
  }
  check_all("after building");
  // Naming the eleventh node looked its name up (the test for twice) with
  // eleven nodes in the domain, which built the table.
  EXPECT_EQ(domain->names.buckets.size(), 11u);

  // Renames move entries between buckets; a node named for the first time
  // while the table exists is inserted.
  for (int i = 0; i < 12; i += 3) {
    std::string old_name = "n" + std::to_string(i), new_name = "renamed_" + std::to_string(i);
    ASSERT_EQ(ov_node_set_name(nodes[i], new_name.c_str()), ov_error_none);
    expected.erase(old_name);
    expected[new_name] = nodes[i];
  }
  ov_node_t late = chance();
  ASSERT_EQ(ov_node_set_name(late, "late"), ov_error_none);
  expected["late"] = late;
  check_all("after renames");

  // Deleting named nodes unlinks their entries.
  ASSERT_EQ(ov_node_delete(nodes[1]), ov_error_none);
  expected.erase("n1");
  ASSERT_EQ(ov_node_delete(nodes[5]), ov_error_none);
  expected.erase("n5");
  EXPECT_EQ(ov_domain_get_node_by_name(domain, "n1"), nullptr);
  check_all("after deletions");

  // Grow well past twice the bucket count, with lookups along the way so
  // that the table is rebuilt several times.
  std::size_t rebuilds = 0, last = domain->names.buckets.size();
  for (int i = 100; i < 400; ++i) {
    ov_node_t node = chance();
    std::string name = "n" + std::to_string(i);
    if (i % 7 != 0) { // some stay unnamed
      ASSERT_EQ(ov_node_set_name(node, name.c_str()), ov_error_none);
      expected[name] = node;
    }
    if (i % 10 == 0) {
      check_all("while growing");
      if (domain->names.buckets.size() != last) ++rebuilds, last = domain->names.buckets.size();
    }
  }
  check_all("after growth");
  EXPECT_GE(rebuilds, 3u);

  // Automatic names are found too.
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) {
    const char *name = ov_node_get_name(n);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(ov_domain_get_node_by_name(domain, name), n) << name;
  }
}

TEST_F(NameTable, BucketCountIsTheFirstPrimeNotBelowTheCountAtTheLookup) {
  for (int i = 0; i < 30; ++i) chance();
  ov_domain_get_node_by_name(domain, "none");
  EXPECT_EQ(domain->names.buckets.size(), 31u);
  for (int i = 0; i < 32; ++i) chance(); // 62 nodes: not above 62
  ov_domain_get_node_by_name(domain, "none");
  EXPECT_EQ(domain->names.buckets.size(), 31u);
  chance(); // 63 > 2 * 31
  ov_domain_get_node_by_name(domain, "none");
  EXPECT_EQ(domain->names.buckets.size(), 67u);
}

TEST_F(NameTable, TwiceIsFoundThroughTheTable) {
  std::vector<ov_node_t> nodes;
  for (int i = 0; i < 20; ++i) {
    nodes.push_back(chance());
    ov_node_set_name(nodes.back(), ("v" + std::to_string(i)).c_str());
  }
  ov_domain_get_node_by_name(domain, "v0"); // builds the table
  ASSERT_FALSE(domain->names.buckets.empty());
  for (int i = 1; i < 20; ++i)
    EXPECT_EQ(ov_node_set_name(nodes[0], ("v" + std::to_string(i)).c_str()), ov_error_twice) << i;
  EXPECT_STREQ(ov_node_get_name(nodes[0]), "v0");
}

} // namespace
