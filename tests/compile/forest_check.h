// Test helpers: a log captured in memory, and independent checks of a
// junction forest.
#pragma once

#include <cstdio>
#include <string>

#include "model/domain.h"

namespace orvel::test {

// A log stream in memory that can be read back. The domain may be deleted
// while the capture lives, but must not write to its log after the capture
// ends.
class LogCapture {
public:
  explicit LogCapture(Domain *domain);
  ~LogCapture();
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;
  // Everything written so far.
  std::string text();

private:
  std::FILE *file_;
};

// Checks the junction forest of a domain against properties computed here
// from the network alone; reports failures through gtest. Returns the total
// clique table size computed independently.
double check_forest(Domain *domain);

} // namespace orvel::test
