// The NET parser: the block format (net, node, class, instance and potential
// blocks), the old node format, and node-list files. A hand-written
// recursive descent over the scanner's tokens that builds the domain or class
// through the ordinary graph and table operations.
//
// Trouble comes in three kinds. A hard error is reported once, records its
// code and unwinds at once. A soft error is reported and counted; the parse
// goes on so that one run shows as many faults as it can, and fails at its
// end. A warning is reported without being counted and never fails a parse.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "io/scanner.h"
#include "model/forward.h"
#include "model/node_list.h"
#include "orvel.h"

namespace orvel {

// A name of the text with the line it stood on, kept for the deferred
// binding of a class's interface.
struct NameAtLine {
  std::string name;
  std::uint32_t line = 0;
};

// The deferred bindings of one instance node: formal inputs of its class and
// the actual nodes of the container, in parallel.
struct InstanceBindings {
  Node *instance = nullptr;
  std::vector<NameAtLine> formals, actuals;
};

// Everything one parse keeps besides the scanner's context.
struct NetParser {
  ParseContext ctx;
  Domain *scope = nullptr; // the domain or class under construction (ctx.domain)
  // Whether the last token came with a message of the scanner's own, so
  // that the parser does not add a second one.
  bool scanner_reported = false;
  // Decision nodes whose information links a potential block has given.
  std::unordered_set<const Node *> decisions_specified;
  // Class blocks: the interface names and the bindings of the instances,
  // resolved when the block ends.
  std::vector<NameAtLine> inputs, outputs;
  bool inputs_seen = false, outputs_seen = false;
  std::vector<InstanceBindings> bindings;
  const char *file_name = nullptr; // the source file, if any

  NetParser(std::FILE *file, TokenFunction tokens) noexcept : ctx(file, tokens) {}
  NetParser(const char *string, TokenFunction tokens) noexcept : ctx(string, tokens) {}
};

// Token reading with the scanner's own reports noted.
int net_next(NetParser &p) noexcept;
int net_next_expression(NetParser &p) noexcept;

// A hard error: reports the message (unless the token is a tok_error that
// the scanner reported already), records `code` and returns it.
ov_status_t net_hard(NetParser &p, ov_error_t code, const char *format, ...) noexcept
    __attribute__((format(printf, 3, 4)));
// A hard error at an unexpected token: as net_hard with parse, but a
// tok_error the scanner has reported keeps the scanner's message and code.
ov_status_t net_unexpected(NetParser &p, int token, const char *format, ...) noexcept
    __attribute__((format(printf, 3, 4)));
// The failure of a library call inside the parser: "API error: %s" with the
// short name of the recorded code, which stays recorded and is returned.
ov_status_t net_api_error(NetParser &p) noexcept;
// Reads one token that must be the character `c`: "`%c' expected".
ov_status_t net_expect(NetParser &p, int c) noexcept;

// `(`, `count` numbers, `)`. With `allow_negative` false a negative number is
// a soft error. Values go to `values` as 32-bit floats.
ov_status_t parse_number_list(NetParser &p, std::uint32_t count, float *values, bool allow_negative);

// The potential block, after its keyword.
ov_status_t parse_potential(NetParser &p);
// The value of a `data`, `experience` or `fading` item: flat or nested.
ov_status_t read_table_data(NetParser &p, Table *table);
// A nested table over `nodes` whose discrete nodes come first: one level of
// parentheses for each discrete node. A node with 0 states (the old node
// format) takes the count of the sub-items of its first level. Leaves are
// numbers (stored in `numbers`, growing it) or, for CG tables, normal terms
// stored into `table`. With `warn` a negative number is a warning.
ov_status_t read_nested_table(NetParser &p, const NodeList &nodes, Table *table, std::vector<float> &numbers,
                              bool warn);

// The parses of whole sources into the context's scope. Each ends at
// tok_eof and fails with parse if any error was counted.
ov_status_t parse_net_blocks(NetParser &p);
ov_status_t parse_old_net(NetParser &p);
ov_status_t parse_class_file(NetParser &p);

// Puts the node and table lists of a finished domain or class in file
// order and renumbers them.
void domain_finish_lists(Domain *domain) noexcept;

} // namespace orvel
