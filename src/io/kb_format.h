// The encodings shared by the KB reader and writer: counts, strings, items
// in either byte order, the expression codes of old versions and the
// password digest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "orvel.h"

namespace orvel {

constexpr std::uint8_t kb_magic_1 = 125;
constexpr std::uint8_t kb_magic_2 = 0;
constexpr int kb_oldest_version = 6;
constexpr int kb_plain_version = 9;
constexpr int kb_password_version = 10;

// The byte order of this machine, as a KB file names it.
int kb_native_order() noexcept;

// Appends items of 1, 2, 4 or 8 bytes in the given byte order.
struct KbOut {
  std::vector<std::uint8_t> &bytes;
  bool swap;
  void byte(std::uint32_t value) { bytes.push_back(static_cast<std::uint8_t>(value)); }
  void items(const void *data, unsigned size, std::size_t count);
  void count(std::uint32_t value);
  void string(const char *text, std::size_t length);
  void string(const std::string &text) { string(text.c_str(), text.size()); }
  void null_string() { byte(0); }
  void integer32(std::int32_t value) { items(&value, 4, 1); }
  void number(float value) { items(&value, 4, 1); }
  void real(double value) { items(&value, 8, 1); }
};

// Reads items from decompressed bytes. Every failure records its code
// (io for data that runs out, format for a value out of range) and makes
// the reader fail from then on.
struct KbIn {
  const std::uint8_t *at;
  const std::uint8_t *end;
  bool swap = false;
  unsigned number_width = 4;
  bool failed = false;

  std::size_t left() const noexcept { return static_cast<std::size_t>(end - at); }
  bool fail_with(ov_error_t code) noexcept;
  bool items(void *data, unsigned size, std::size_t count) noexcept;
  bool byte(std::uint32_t &value) noexcept;
  // A byte that must not pass `highest`, else format.
  bool byte_upto(std::uint32_t &value, std::uint32_t highest) noexcept;
  bool count(std::uint32_t &value) noexcept;
  // A string: `present` false for a null string.
  bool string(std::string &text, bool &present);
  bool integer32(std::int32_t &value) noexcept;
  bool real(double &value) noexcept;
  // A number of the file's width, narrowed to a float.
  bool number(float &value) noexcept;
  // Whether `count` items of `size` bytes can still be read; io if not.
  bool has(std::uint64_t count, std::uint64_t size) noexcept;
};

// The operator of a stored expression byte of a version, 0 for a byte that
// is out of range.
int kb_operator_from_byte(int version, std::uint32_t byte) noexcept;

// The password block: eight salt bytes then an eight-byte digest of salt
// and password. Not a cipher: it keeps honest programs from loading a file
// without the password, nothing more.
std::vector<std::uint8_t> kb_password_block(const char *password, const std::uint8_t salt[8]);

} // namespace orvel
