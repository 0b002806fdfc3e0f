// Encodings of KB files.
#include "io/kb_format.h"

#include <algorithm>
#include <bit>

#include "api/error.h"

namespace orvel {

int kb_native_order() noexcept { return std::endian::native == std::endian::little ? 2 : 1; }

namespace {

void swap_items(std::uint8_t *data, unsigned size, std::size_t count) noexcept {
  if (size < 2) return;
  for (std::size_t i = 0; i < count; ++i) std::reverse(data + i * size, data + (i + 1) * size);
}

} // namespace

void KbOut::items(const void *data, unsigned size, std::size_t count) {
  const std::size_t start = bytes.size();
  const auto *from = static_cast<const std::uint8_t *>(data);
  bytes.insert(bytes.end(), from, from + size * count);
  if (swap) swap_items(bytes.data() + start, size, count);
}

void KbOut::count(std::uint32_t value) {
  if (value < 128) {
    byte(value);
  } else if (value < 32640) {
    byte(128 + (value - 128) / 256);
    byte((value - 128) % 256);
  } else {
    byte(255);
    items(&value, 4, 1);
  }
}

void KbOut::string(const char *text, std::size_t length) {
  count(static_cast<std::uint32_t>(length + 1));
  bytes.insert(bytes.end(), text, text + length);
}

bool KbIn::fail_with(ov_error_t code) noexcept {
  if (!failed) set_error(code);
  failed = true;
  return false;
}

bool KbIn::has(std::uint64_t count, std::uint64_t size) noexcept {
  if (failed) return false;
  if (size != 0 && count > left() / size) return fail_with(ov_error_io);
  return true;
}

bool KbIn::items(void *data, unsigned size, std::size_t count) noexcept {
  if (size != 1 && size != 2 && size != 4 && size != 8) return fail_with(ov_error_error);
  if (!has(count, size)) return false;
  std::memcpy(data, at, size * count);
  at += size * count;
  if (swap) swap_items(static_cast<std::uint8_t *>(data), size, count);
  return true;
}

bool KbIn::byte(std::uint32_t &value) noexcept {
  if (failed) return false;
  if (at == end) return fail_with(ov_error_io);
  value = *at++;
  return true;
}

bool KbIn::byte_upto(std::uint32_t &value, std::uint32_t highest) noexcept {
  if (!byte(value)) return false;
  return value <= highest || fail_with(ov_error_format);
}

bool KbIn::count(std::uint32_t &value) noexcept {
  std::uint32_t first = 0;
  if (!byte(first)) return false;
  if (first < 128) {
    value = first;
  } else if (first < 255) {
    std::uint32_t second = 0;
    if (!byte(second)) return false;
    value = 128 + (first - 128) * 256 + second;
  } else {
    if (!items(&value, 4, 1)) return false;
  }
  return true;
}

bool KbIn::string(std::string &text, bool &present) {
  std::uint32_t n = 0;
  if (!count(n)) return false;
  present = n != 0;
  text.clear();
  if (n == 0) return true;
  if (!has(n - 1, 1)) return false;
  text.assign(reinterpret_cast<const char *>(at), n - 1);
  at += n - 1;
  if (text.find('\0') != std::string::npos) return fail_with(ov_error_format);
  return true;
}

bool KbIn::integer32(std::int32_t &value) noexcept { return items(&value, 4, 1); }
bool KbIn::real(double &value) noexcept { return items(&value, 8, 1); }

bool KbIn::number(float &value) noexcept {
  if (number_width == 4) return items(&value, 4, 1);
  double wide = 0.0;
  if (!items(&wide, 8, 1)) return false;
  value = static_cast<float>(wide);
  return true;
}

int kb_operator_from_byte(int version, std::uint32_t byte) noexcept {
  // The operators as they stood in versions 6 and 7, and in version 8.
  static constexpr int old_6[] = {60, 61, 62, 63, 64, 65, 66, 67, 69,  71,  72,  73,  74,  77,  84,  89,  90, 91,
                                  92, 93, 94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104, 105, 106, 107, 108};
  static constexpr int old_8[] = {60, 61, 62, 63, 64, 65,  66,  67,  68,  69,  71,  72,  73,  74, 75,
                                  76, 77, 78, 79, 80, 81,  82,  83,  84,  89,  90,  91,  92,  93, 94,
                                  95, 96, 97, 98, 99, 100, 101, 102, 103, 104, 105, 106, 107, 108};
  static_assert(std::size(old_6) == 35 && std::size(old_8) == 44);
  if (version <= 7) return byte >= 60 && byte < 60 + std::size(old_6) ? old_6[byte - 60] : 0;
  if (version == 8) return byte >= 60 && byte < 60 + std::size(old_8) ? old_8[byte - 60] : 0;
  return byte >= ov_op_normal && byte <= ov_op_boolean ? static_cast<int>(byte) : 0;
}

std::vector<std::uint8_t> kb_password_block(const char *password, const std::uint8_t salt[8]) {
  // FNV-1a over salt and password, folded again many times.
  std::uint64_t hash = 14695981039346656037ull;
  const auto mix = [&hash](std::uint8_t b) { hash = (hash ^ b) * 1099511628211ull; };
  const std::size_t length = std::strlen(password);
  for (int round = 0; round < 4096; ++round) {
    for (int i = 0; i < 8; ++i) mix(salt[i]);
    for (std::size_t i = 0; i < length; ++i) mix(static_cast<std::uint8_t>(password[i]));
  }
  std::vector<std::uint8_t> block(salt, salt + 8);
  for (int i = 0; i < 8; ++i) block.push_back(static_cast<std::uint8_t>(hash >> (8 * i)));
  return block;
}

} // namespace orvel
