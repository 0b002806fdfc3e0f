// Case files (the findings of one case) and data files (many cases, one a
// line, kept in the domain's case storage): their readers and writers.
//
// Case storage lives in learn/, above this layer, so these files store and
// read cases through the exported case calls (ov_node_set_case_state and
// the like), which also give the readers their "API error" on a refusal;
// findings go through the evidence layer below.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "io/scanner.h"
#include "model/forward.h"
#include "orvel.h"

namespace orvel {

// Retracts all findings and enters the case of a file; on failure all
// findings are retracted again.
ov_status_t case_file_parse(Domain *domain, const char *file_name, ov_parse_error_handler_t handler, void *data);
// Appends the cases of a data file to the case storage; on failure the
// number of cases is set back to what it was.
ov_status_t data_file_parse(Domain *domain, const char *file_name, ov_parse_error_handler_t handler, void *data);

// Writes the findings of the chance and decision nodes as a case file.
ov_status_t case_file_save(Domain *domain, const char *file_name);
// Writes the listed cases (`cases` ends at a negative index; null means
// all) of the listed nodes as a data file, with counts if asked.
ov_status_t data_file_save(Domain *domain, const char *file_name, Node *const *nodes, const ov_index_t *cases,
                           bool counts, const char *separator, const char *missing);

// ---------------------------------------------------------------- shared

// How a value read for a node ends: entered (or stored), skipped after a
// soft error, or a hard failure whose code is recorded.
enum class ValueRead { done, skipped, failed };

// Reads one value for `node`: a finding in a case file (`case_index` < 0),
// a case entry of the data file otherwise. `line` is the line of the case in
// a data file, where a state index must stand on it.
ValueRead parse_case_value(ParseContext *ctx, Node *node, std::int64_t case_index, std::uint32_t line);

// A hard failure of a case parse: the message, counted, and the code.
ov_status_t case_parse_fail(ParseContext *ctx, const char *message, ov_error_t code = ov_error_parse);
// The failure of a token that the scanner has already reported (its code
// recorded), or else `message`.
ov_status_t case_token_fail(ParseContext *ctx, int token, const char *message);
// A library call that failed inside the parse: "API error: %s".
ov_status_t case_api_fail(ParseContext *ctx);

// A number written so that it reads back the same: "%G" where that is exact,
// else with as many digits as it takes. Holds the "C" locale (caller).
void format_case_number(char *text, std::size_t size, double value);
// How a state of a discrete node is written: its label as a string, true or
// false, its value, or "#" and its index where nothing else names it.
std::string state_text(const Node *node, std::uint32_t state);

} // namespace orvel
