// What the readers and writers of the exchange formats (BIF, XMLBIF, UAI)
// share: a source held whole in memory with the position of each byte for
// messages, the building of a domain's nodes and tables, and the check of
// what those formats can hold.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "api/error.h"
#include "model/domain.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// A whole source and the place reached in it. Messages go to the handler as
// "NAME:LINE:COLUMN: message" with the line as their location, where NAME is
// the file name or "<string>".
struct TextSource {
  std::string text;
  std::string name;
  std::size_t pos = 0;
  std::uint32_t line = 1;
  std::size_t line_start = 0; // offset of the first byte of the current line
  ov_parse_error_handler_t handler = nullptr;
  void *data = nullptr;
  std::uint32_t errors = 0;

  std::uint32_t column_at(std::size_t offset) const noexcept {
    return static_cast<std::uint32_t>(offset - line_start + 1);
  }
  // Moves past one byte, counting lines.
  void advance() noexcept {
    if (text[pos++] == '\n') {
      ++line;
      line_start = pos;
    }
  }
  bool at_end() const noexcept { return pos >= text.size(); }
};

// Reads a whole file (false with io recorded when it cannot be read to its
// end) or takes a string.
bool source_from_file(TextSource &source, const char *file_name);
void source_from_string(TextSource &source, const char *text);

// Reports an error at a line and column; parse is recorded.
void source_report(TextSource &source, std::uint32_t line, std::uint32_t column, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

// A number of the whole text `word` in the "C" notation, finite as a 32-bit
// float; false if the word is not one.
bool parse_number(std::string_view word, double &value) noexcept;
// A decimal count without sign; false if the word is not one or too large.
bool parse_count(std::string_view word, std::uint64_t &value) noexcept;

// The shortest decimal text that reads back as exactly this float.
std::string float_text(float value);

// The parents of a node in order, and the position of each of them and of
// the node in its table, as strides of the table's layout.
struct TableLayout {
  std::vector<Node *> parents;
  std::vector<std::size_t> parent_strides;
  std::size_t child_stride = 1;
  std::uint32_t child_states = 0;
  std::size_t rows = 1; // configurations of the parents
  float *data = nullptr;
  std::size_t size = 0;
};
TableLayout table_layout(Node *node);
// The offset in the table of row `row` (parent configurations counted with
// the last parent fastest) and child state `state`.
std::size_t table_offset(const TableLayout &layout, std::size_t row, std::uint32_t state);

// The cells of the table of `child` over `parents`, saturating at 2^63.
std::uint64_t table_cells(Node *child, const std::vector<Node *> &parents);

// Makes `parents` the parents of `child` in this order (a discrete parent
// added goes first in the list, so they are added last first). On failure
// the code is recorded and `failed` is the parent that could not be added.
ov_status_t add_parents_in_order(Node *child, const std::vector<Node *> &parents, std::size_t &failed);

// Puts the nodes of a domain read from a file in the file's order, as
// NET files are read.
void finish_read_domain(Domain *domain) noexcept;

// Deletes a domain whose reading failed, keeping the recorded code.
void discard_read_domain(Domain *domain) noexcept;

// A new domain filled by `read(domain)`, which returns whether it read;
// the domain is deleted when it fails or throws. A domain read from a file
// keeps the file's name.
template <class Read> Domain *read_new_domain(const char *file_name, Read &&read) {
  Domain *domain = ov_new_domain();
  if (domain == nullptr) return nullptr;
  bool ok = false;
  try {
    ok = read(domain);
    if (ok && file_name != nullptr) domain->file_name.emplace(file_name);
  } catch (...) {
    discard_read_domain(domain);
    throw;
  }
  if (!ok) {
    discard_read_domain(domain);
    return nullptr;
  }
  finish_read_domain(domain);
  set_error(ov_error_none);
  return domain;
}

// Whether a format that holds only discrete chance nodes with probability
// tables can hold this domain; if not, format is recorded and the reason
// written to the domain's log ("FORMAT cannot hold ...").
bool check_discrete_network(Domain *domain, const char *format_name);

// The nodes of a domain in the order of its files (the first node first).
std::vector<Node *> domain_nodes(Domain *domain);

} // namespace orvel
