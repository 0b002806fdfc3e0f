// Saturating size arithmetic and the allocation wrappers every subsystem uses.
//
// Sizes of tables and arrays are 32-bit and saturate at size_overflow, so a
// chain of multiplications needs one test at its end. An allocation of a
// saturated size fails with no_memory without asking the allocator.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace orvel {

using Size = std::uint32_t;
constexpr Size size_overflow = 0xFFFFFFFFu;

// a * b, or size_overflow if the product does not fit. `a` must not be 0.
inline Size size_multiply(Size a, Size b) noexcept { return b > size_overflow / a ? size_overflow : a * b; }

// a + b, or size_overflow if the sum does not fit.
inline Size size_add(Size a, Size b) noexcept { return b > static_cast<Size>(~a) ? size_overflow : a + b; }

// The C allocator behind the saturating sizes: records none on success and
// no_memory on failure. size_overflow never reaches the allocator.
void *mem_alloc(Size size) noexcept;
// Reallocation with the same rules; on failure the old block is untouched.
void *mem_realloc(void *block, Size size) noexcept;
// Gives back unused memory; cannot fail and records nothing.
void *mem_shrink(void *block, Size size) noexcept;

struct FreeDeleter {
  void operator()(void *block) const noexcept { std::free(block); }
};

// An array obtained through mem_alloc and released with free.
template <class T> using Buffer = std::unique_ptr<T[], FreeDeleter>;

// An uninitialised array of `count` elements, or null with no_memory.
template <class T> Buffer<T> alloc_array(Size count) noexcept {
  return Buffer<T>(static_cast<T *>(mem_alloc(size_multiply(static_cast<Size>(sizeof(T)), count))));
}

// A copy of a C string in mem_alloc'd memory (released with free).
using CString = std::unique_ptr<char[], FreeDeleter>;
CString string_copy(const char *text) noexcept;

} // namespace orvel
