#include "api/memory.h"

#include <cstring>

#include "api/error.h"

namespace orvel {

void *mem_alloc(Size size) noexcept {
  if (size == size_overflow) {
    set_error(ov_error_no_memory);
    return nullptr;
  }
  // A zero-byte request is legal and must still give a distinct pointer.
  void *block = std::malloc(size == 0 ? 1 : size);
  set_error(block == nullptr ? ov_error_no_memory : ov_error_none);
  return block;
}

void *mem_realloc(void *block, Size size) noexcept {
  if (block == nullptr) return mem_alloc(size);
  if (size == size_overflow) {
    set_error(ov_error_no_memory);
    return nullptr;
  }
  void *grown = std::realloc(block, size == 0 ? 1 : size);
  set_error(grown == nullptr ? ov_error_no_memory : ov_error_none);
  return grown;
}

void *mem_shrink(void *block, Size size) noexcept {
  if (block == nullptr) return nullptr;
  if (size == 0) {
    std::free(block);
    return nullptr;
  }
  void *smaller = std::realloc(block, size);
  return smaller == nullptr ? block : smaller;
}

CString string_copy(const char *text) noexcept {
  Size length = static_cast<Size>(std::strlen(text));
  CString copy(static_cast<char *>(mem_alloc(size_multiply(1, size_add(length, 1)))));
  if (copy) std::memcpy(copy.get(), text, static_cast<std::size_t>(length) + 1);
  return copy;
}

} // namespace orvel
