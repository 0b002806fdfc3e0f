// The per-thread error slot and the constant table of error records.
#pragma once

#include "orvel.h"

namespace orvel {

struct ErrorRecord {
  int code;
  const char *name;
  const char *description;
};

constexpr int error_count = 48;

// Records error `code` as the current error of the calling thread and
// returns it. A boolean argument records usage (true) or none (false), which
// is how every exported function checks its arguments in one step.
unsigned set_error(unsigned code) noexcept;

// Records `code` and returns it as a status; for early returns in internal
// operations.
inline ov_status_t fail(ov_error_t code) noexcept { return static_cast<ov_status_t>(set_error(code)); }

} // namespace orvel
