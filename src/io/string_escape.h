// Strings in the text formats: how a string is written between double
// quotes so that the scanner reads back the same bytes.
#pragma once

#include <cstddef>

namespace orvel {

// Writes `text` escaped, without the surrounding quotes, into `out` (when it
// is not null) and returns the number of bytes that takes; no terminator is
// written. A double quote becomes \", a backslash \\, a tab \t, a carriage
// return \r and a line feed \n. Any other byte that is not printable in the
// "C" locale becomes an octal escape, with three digits when an octal digit
// follows (so that the reader cannot run on into it), else as few as needed.
// The caller holds the "C" locale.
std::size_t escape_string(const char *text, char *out) noexcept;

} // namespace orvel
