// The locale guard, and the log when a write fails.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <string>

#include "api/error.h"
#include "api/locale_guard.h"
#include "model/domain.h"

namespace orvel {
namespace {

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

TEST(Log, ReportsFailingWrites) {
  ov_domain_s domain;
  // A stream opened for reading only fails every write.
  std::FILE *read_only = std::fopen("/dev/null", "r");
  ASSERT_NE(read_only, nullptr);
  domain.log_file = read_only;
  EXPECT_EQ(log_printf(&domain, "%s", "lost"), ov_error_io);
  EXPECT_EQ(ov_error_code(), ov_error_io);
  std::fclose(read_only);
}

} // namespace
} // namespace orvel
