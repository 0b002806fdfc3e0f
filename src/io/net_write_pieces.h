// Pieces of the NET writer that its files share: the stream with its
// indents, and the helpers of every block. Node and instance blocks are
// written by net_write_nodes.cpp, table values by net_write_tables.cpp,
// potentials by net_write_potentials.cpp, and a whole object by
// net_writer.cpp.
//
// Layout. A domain's blocks stand at the left margin with their items
// indented by four blanks and table continuation lines by one tab; a class
// wraps everything in its own block, so each of these moves one step in.
// Tables are printed nested, one pair of parentheses per discrete node, and
// each line of a table ends in a comment naming the configuration it
// finishes, so that a human reader can find a number.
//
// Every piece goes out through its own stream call. The first failing call
// records io; the writer then prints nothing more and returns io as soon as
// the work in hand reaches its next check.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>

#include "api/error.h"
#include "io/string_escape.h"
#include "model/attribute.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel::writer {

// The stream and the indents of the object being written.
struct Writer {
  std::FILE *stream = nullptr;
  Domain *domain = nullptr;
  bool is_class = false;
  const char *outer = "";          // blocks of nodes, instances and potentials
  const char *inner = "    ";      // items inside those blocks
  const char *table_indent = "\t"; // continuation lines of tables
  bool failed = false;

  // Each returns false once output has failed.
  bool put(const char *text) {
    if (!failed && std::fputs(text, stream) < 0) failed = true;
    return !failed;
  }
  [[gnu::format(printf, 2, 3)]] bool print(const char *format, ...) {
    if (failed) return false;
    va_list args;
    va_start(args, format);
    int written = std::vfprintf(stream, format, args);
    va_end(args);
    if (written < 0) failed = true;
    return !failed;
  }
  // A string between double quotes, escaped so that the scanner reads back
  // the same bytes.
  bool quoted(const char *text) {
    std::string escaped(escape_string(text, nullptr), '\0');
    escape_string(text, escaped.data());
    return put("\"") && put(escaped.c_str()) && put("\"");
  }
  // io once output has failed, else none.
  ov_status_t status() const { return failed ? fail(ov_error_io) : ov_error_none; }
};

// The status of the work so far: io after a failed output call, else the
// given status.
#define OV_WRITE_CHECK(writer, expression)                                                                             \
  do {                                                                                                                 \
    ov_status_t check_status_ = (expression);                                                                          \
    if (check_status_ != ov_error_none) return check_status_;                                                          \
    if ((writer).failed) return fail(ov_error_io);                                                                     \
  } while (0)

// A state value or bound: eight significant digits, and the bounds of the
// double range as words.
void format_value(char *text, std::size_t size, double value);
// The name of a node, made if it has none; null with the code recorded.
const char *name_of(Node *node);
// The attribute items of a list, each on its own line after `indent`.
ov_status_t write_attributes(Writer &w, const AttributeList &list, const char *indent);
// "key = (a b c);" with the names of the nodes.
ov_status_t write_name_list(Writer &w, const char *key, Node *const *nodes);

// A node or instance block.
ov_status_t write_node(Writer &w, Node *node);
ov_status_t write_instance(Writer &w, Node *instance);

// Whether a table prints on the line of its key: it has no discrete nodes,
// or it is a probability table over one discrete node alone.
bool table_is_simple(const Table *table);
// The value of a table, nested, with a comment at the end of each line
// naming the configuration that line finishes.
ov_status_t write_table(Writer &w, const Table *table);

// The potential block of a node, and those of a chain component.
ov_status_t write_potential(Writer &w, Node *node);
ov_status_t write_chain_potentials(Writer &w, const ChainComponent &component);

} // namespace orvel::writer
