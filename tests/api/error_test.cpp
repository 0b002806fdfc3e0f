// The error table and the per-thread error slot.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "orvel.h"

namespace {

TEST(ErrorTable, NamesAndDescriptionsMatchTheReferenceText) {
  std::ifstream file(ORVEL_TEST_DATA "/error_table.tsv");
  ASSERT_TRUE(file) << "missing reference table";
  std::string line;
  int rows = 0;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string code, name, description;
    std::getline(fields, code, '\t');
    std::getline(fields, name, '\t');
    std::getline(fields, description);
    int value = std::stoi(code);
    EXPECT_EQ(value, rows) << "rows are in code order";
    EXPECT_EQ(ov_error_name(static_cast<ov_error_t>(value)), name);
    EXPECT_EQ(ov_error_description(static_cast<ov_error_t>(value)), description) << name;
    ++rows;
  }
  EXPECT_EQ(rows, 48);
}

TEST(ErrorTable, OutOfRangeCodesHaveFixedTextAndLeaveTheSlotAlone) {
  ov_node_get_kind(nullptr); // records usage
  EXPECT_STREQ(ov_error_name(static_cast<ov_error_t>(-1)), "no_such_error");
  EXPECT_STREQ(ov_error_name(static_cast<ov_error_t>(48)), "no_such_error");
  EXPECT_STREQ(ov_error_description(static_cast<ov_error_t>(48)), "No such error.");
  EXPECT_STREQ(ov_error_description(static_cast<ov_error_t>(-7)), "No such error.");
  EXPECT_EQ(ov_error_code(), ov_error_usage);
}

TEST(ErrorSlot, EachThreadHasItsOwn) {
  ov_node_get_kind(nullptr);
  ASSERT_EQ(ov_error_code(), ov_error_usage);
  ov_error_t first = ov_error_usage, second = ov_error_usage, failed = ov_error_none;
  std::thread([&] {
    first = ov_error_code();
    second = ov_error_code();
    ov_domain_set_grain_size(nullptr, 5);
    failed = ov_error_code();
  }).join();
  EXPECT_EQ(first, ov_error_none) << "a new thread starts at none";
  EXPECT_EQ(second, ov_error_none);
  EXPECT_EQ(failed, ov_error_usage);
  EXPECT_EQ(ov_error_code(), ov_error_usage) << "the other thread's calls do not reach this one";
  ov_domain_t domain = ov_new_domain();
  EXPECT_EQ(ov_error_code(), ov_error_none) << "a successful call resets the slot";
  std::thread([] { ov_node_get_kind(nullptr); }).join();
  EXPECT_EQ(ov_error_code(), ov_error_none);
  ov_domain_delete(domain);
}

TEST(Identification, CallsRecordNone) {
  ov_node_get_kind(nullptr);
  EXPECT_NE(ov_get_package_name(), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_NE(ov_get_user_name(), nullptr);
  EXPECT_NE(ov_get_organization(), nullptr);
}

} // namespace
