// The domain's log stream and the printing of counts in reports.
#include <cstdarg>
#include <cstdio>

#include "api/error.h"
#include "model/domain.h"

namespace orvel {

ov_status_t log_printf(Domain *domain, const char *format, ...) {
  if (domain->log_file == nullptr) return ov_error_none;
  va_list arguments;
  va_start(arguments, format);
  int written = std::vfprintf(domain->log_file, format, arguments);
  va_end(arguments);
  if (written < 0) return fail(ov_error_io);
  return ov_error_none;
}

ov_status_t log_flush(Domain *domain) noexcept {
  if (domain->log_file == nullptr) return ov_error_none;
  if (std::fflush(domain->log_file) != 0) return fail(ov_error_io);
  return ov_error_none;
}

const char *format_count(Domain *domain, std::uint64_t value) noexcept {
  if (value == size_overflow) return "HUGE";
  char *text = domain->count_text[domain->count_text_next];
  domain->count_text_next = (domain->count_text_next + 1) % 8;
  std::snprintf(text, sizeof domain->count_text[0], "%lu", static_cast<unsigned long>(value));
  return text;
}

} // namespace orvel
