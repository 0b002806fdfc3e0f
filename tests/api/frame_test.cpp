// Saturating sizes, allocation, the locale guard, the log and format_count.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <string>

#include "api/error.h"
#include "api/locale_guard.h"
#include "api/memory.h"
#include "model/domain.h"

namespace orvel {
namespace {

TEST(SizeArithmetic, MultiplyAndAddSaturateAtTheLimit) {
  const Size max = 4294967295u;
  const Size products[][3] = {{4, 1073741824u, size_overflow},
                              {4, 1073741823u, 4294967292u},
                              {1, size_overflow, size_overflow},
                              {65536, 65536, size_overflow},
                              {65535, 65537, max},
                              {3, 0, 0},
                              {size_multiply(1u << 20, 1u << 12), 7, size_overflow}};
  for (auto [a, b, product] : products) EXPECT_EQ(size_multiply(a, b), product) << a << " * " << b;
  const Size sums[][3] = {{max, 1, size_overflow}, {max - 1, 2, size_overflow}, {max - 1, 1, max}, {0, 0, 0}};
  for (auto [a, b, sum] : sums) EXPECT_EQ(size_add(a, b), sum) << a << " + " << b;
}

TEST(Allocation, SaturatedSizeNeverReachesTheAllocator) {
  set_error(ov_error_none);
  EXPECT_EQ(mem_alloc(size_overflow), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  void *block = mem_alloc(16);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_none);
  EXPECT_EQ(mem_realloc(block, size_overflow), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  // The old block is still the caller's.
  block = mem_realloc(block, 32);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(mem_shrink(block, 0), nullptr);
  EXPECT_EQ(mem_shrink(nullptr, 10), nullptr);
  Buffer<double> huge = alloc_array<double>(size_overflow / 4);
  EXPECT_FALSE(huge);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
}

TEST(LocaleGuard, SwitchesToCAndRestores) {
  const char *before = std::setlocale(LC_ALL, nullptr);
  std::string saved = before;
  {
    LocaleGuard guard;
    ASSERT_TRUE(guard.ok());
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
    EXPECT_EQ(ov_error_code(), ov_error_none);
  }
  EXPECT_EQ(saved, std::setlocale(LC_ALL, nullptr));
}

TEST(Log, WritesFormattedTextAndReportsFailingWrites) {
  ov_domain_s domain;
  std::FILE *file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  domain.log_file = file;
  EXPECT_EQ(log_printf(&domain, "%d cliques\n", 3), ov_error_none);
  std::rewind(file);
  char line[32] = {};
  ASSERT_NE(std::fgets(line, sizeof line, file), nullptr);
  EXPECT_STREQ(line, "3 cliques\n");
  std::fclose(file);

  // A stream opened for reading only fails every write.
  std::FILE *read_only = std::fopen("/dev/null", "r");
  ASSERT_NE(read_only, nullptr);
  domain.log_file = read_only;
  EXPECT_EQ(log_printf(&domain, "%s", "lost"), ov_error_io);
  EXPECT_EQ(ov_error_code(), ov_error_io);
  std::fclose(read_only);
}

TEST(FormatCount, HugeAndTheRingOfEight) {
  ov_domain_s domain;
  EXPECT_STREQ(format_count(&domain, size_overflow), "HUGE");
  const char *first = format_count(&domain, 1);
  EXPECT_STREQ(first, "1");
  const char *texts[8];
  for (int i = 0; i < 7; ++i) texts[i] = format_count(&domain, 100 + i);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(std::stoi(texts[i]), 100 + i) << "eight results stay valid";
  EXPECT_STREQ(first, "1");
  const char *ninth = format_count(&domain, 42);
  EXPECT_EQ(ninth, first) << "the ninth call reuses the first buffer";
  EXPECT_STREQ(first, "42");
  EXPECT_STREQ(format_count(&domain, 4294967294u), "4294967294");
}

} // namespace
} // namespace orvel
