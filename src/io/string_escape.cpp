#include "io/string_escape.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace orvel {

std::size_t escape_string(const char *text, char *out) noexcept {
  std::size_t length = 0;
  auto put = [&](const char *piece, std::size_t size) {
    if (out != nullptr) std::memcpy(out + length, piece, size);
    length += size;
  };
  for (const char *p = text; *p != 0; ++p) {
    auto c = static_cast<unsigned char>(*p);
    switch (c) {
    case '"': put("\\\"", 2); continue;
    case '\\': put("\\\\", 2); continue;
    case '\t': put("\\t", 2); continue;
    case '\r': put("\\r", 2); continue;
    case '\n': put("\\n", 2); continue;
    default: break;
    }
    if (std::isprint(c)) {
      put(p, 1);
      continue;
    }
    char octal[8];
    bool digit_follows = p[1] >= '0' && p[1] <= '7';
    int size = std::snprintf(octal, sizeof octal, digit_follows ? "\\%03o" : "\\%o", static_cast<unsigned>(c));
    put(octal, static_cast<std::size_t>(size));
  }
  return length;
}

} // namespace orvel
