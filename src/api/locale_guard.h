// Runs a piece of work in the "C" locale, whatever locale the application
// uses, so that numbers and identifiers are read and printed the same way
// everywhere. The guard switches the process-wide locale: guarded operations
// on different threads must not overlap.
#pragma once

#include "api/memory.h"

namespace orvel {

// Saves the current locale and switches to "C". Returns the saved name, or
// null with locale (or no_memory) recorded; then nothing was changed.
CString locale_enter_c() noexcept;
// Restores the saved locale and releases the saved name. Reports nothing.
void locale_leave_c(CString saved) noexcept;

// RAII form: enters in the constructor, leaves in the destructor. ok() tells
// whether the switch happened; on failure ov_error_code() says why.
class LocaleGuard {
public:
  LocaleGuard() noexcept : saved_(locale_enter_c()) {}
  ~LocaleGuard() {
    if (saved_) locale_leave_c(std::move(saved_));
  }
  LocaleGuard(const LocaleGuard &) = delete;
  LocaleGuard &operator=(const LocaleGuard &) = delete;
  bool ok() const noexcept { return saved_ != nullptr; }

private:
  CString saved_;
};

} // namespace orvel
