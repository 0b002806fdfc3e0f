#include "api/locale_guard.h"

#include <clocale>

#include "api/error.h"

namespace orvel {

CString locale_enter_c() noexcept {
  const char *current = std::setlocale(LC_ALL, nullptr);
  if (current == nullptr) {
    set_error(ov_error_locale);
    return nullptr;
  }
  CString saved = string_copy(current);
  if (!saved) return nullptr;
  if (std::setlocale(LC_ALL, "C") == nullptr) {
    set_error(ov_error_locale);
    return nullptr;
  }
  return saved;
}

void locale_leave_c(CString saved) noexcept {
  if (saved) std::setlocale(LC_ALL, saved.get());
}

} // namespace orvel
