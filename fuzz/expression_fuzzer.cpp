// Fuzz target: the expression parser and the three token functions.
//
// The first byte chooses what the rest of the input feeds:
//   0, 1  the expression parser over a string, with a round-trip oracle: a
//         tree that parses must print, read back and print to the same text;
//   2     the three token functions and the format probe over a string;
//   3     the same over a stream, and the parser on a file's own context.
// A tree that parses also generates the tables of children of every
// subtype and of a utility node, whose parents are the named nodes: any
// failure code is allowed, a crash or a not-a-number stored is not.
// Besides the sanitizers, the target aborts on any failure code the parser
// must not give, on a message longer than its buffer, and on a location
// beyond the input.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "expr/expression.h"
#include "expr/expression_parser.h"
#include "io/scanner.h"
#include "model/domain.h"
#include "orvel.h"

namespace {

using namespace orvel;

// Three states: labels "a" "b" "a", values 0 1 2, or cut points
// -inf 0 1 inf; two for a boolean node.
void shape(ov_node_t node, ov_subtype_t subtype) {
  ov_node_set_subtype(node, subtype);
  ov_node_set_number_of_states(node, subtype == ov_subtype_boolean ? 2 : 3);
  if (subtype == ov_subtype_label)
    for (int s = 0; s < 3; ++s) ov_node_set_state_label(node, s, s == 1 ? "b" : "a");
  if (subtype == ov_subtype_number)
    for (int s = 0; s < 3; ++s) ov_node_set_state_value(node, s, s);
  if (subtype == ov_subtype_interval)
    for (int s = 0; s < 4; ++s) ov_node_set_state_value(node, s, s == 0 ? -HUGE_VAL : s == 3 ? HUGE_VAL : s - 1);
}

// The scope of names, made once: nodes with plain names and with the names
// of operators, of every subtype, and the children whose tables are
// generated (the last five nodes made), each with all the named nodes as
// parents.
Domain *scope() {
  static Domain *domain = [] {
    Domain *d = ov_new_domain();
    const ov_subtype_t subtypes[] = {ov_subtype_label, ov_subtype_boolean, ov_subtype_number, ov_subtype_interval,
                                     ov_subtype_label, ov_subtype_number,  ov_subtype_boolean};
    std::vector<ov_node_t> named;
    int i = 0;
    for (const char *name : {"A", "B", "C", "min", "Normal", "x_1", "if"}) {
      ov_node_t node = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete);
      ov_node_set_name(node, name);
      shape(node, subtypes[i++]);
      named.push_back(node);
    }
    for (ov_subtype_t subtype : {ov_subtype_label, ov_subtype_boolean, ov_subtype_number, ov_subtype_interval}) {
      ov_node_t child = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete);
      shape(child, subtype);
      for (ov_node_t parent : named) ov_node_add_parent(child, parent);
    }
    ov_node_t utility = ov_domain_new_node(d, ov_category_utility, ov_kind_discrete);
    for (ov_node_t parent : named) ov_node_add_parent(utility, parent);
    return d;
  }();
  return domain;
}

void check(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "oracle failed: %s\n", what);
  std::abort();
}

struct HandlerState {
  std::size_t source_size;
};

void handler(std::uint32_t location, ov_string_t message, void *data) {
  auto *state = static_cast<HandlerState *>(data);
  check(message != nullptr, "null message");
  check(std::strlen(message) < message_capacity, "message longer than its buffer");
  if (state != nullptr) check(location <= state->source_size, "location beyond the input");
}

bool numbers_are_finite(const Expression *e) {
  if (e->operator_code == ov_op_number) return std::isfinite(e->value.number);
  if (!is_composite_operator(e->operator_code)) return true;
  for (Expression **operand = e->value.operands; *operand != nullptr; ++operand)
    if (!numbers_are_finite(*operand)) return false;
  return true;
}

// Same operators, node references, labels and shape; numbers are compared
// through their printed text by the caller.
bool same_shape(const Expression *x, const Expression *y) {
  if (x->operator_code != y->operator_code || x->value_type != y->value_type) return false;
  switch (x->operator_code) {
  case ov_op_label: return std::strcmp(x->value.label, y->value.label) == 0;
  case ov_op_node: return x->value.node == y->value.node;
  case ov_op_boolean: return x->value.boolean == y->value.boolean;
  case ov_op_number: return true;
  default: break;
  }
  Expression **a = x->value.operands, **b = y->value.operands;
  for (; *a != nullptr && *b != nullptr; ++a, ++b)
    if (!same_shape(*a, *b)) return false;
  return *a == nullptr && *b == nullptr;
}

void check_failure_code() {
  ov_error_t code = ov_error_code();
  check(code == ov_error_syntax || code == ov_error_parse || code == ov_error_invalid_expression ||
            code == ov_error_no_memory,
        "unexpected failure code of the parser");
}

// Stores the tree in a model of each child, generates its table, and
// takes the model away again.
void generate_with(ov_expression_t e) {
  ov_node_t node = ov_domain_get_first_node(scope());
  for (int child = 0; child < 5; ++child, node = ov_node_get_next(node)) {
    ov_model_t model = ov_node_new_model(node, nullptr);
    check(model != nullptr, "no model");
    ov_model_set_number_of_samples_per_interval(model, 2);
    // The model frees what it holds when it goes, so it holds a copy.
    ov_expression_t copy = ov_expression_clone(e);
    check(copy != nullptr, "clone failed");
    if (ov_model_set_expression(model, 0, copy) != ov_error_none)
      ov_expression_delete(copy);
    else if (ov_node_generate_table(node) == ov_error_none) {
      ov_table_t table = ov_node_get_table(node);
      const ov_number_t *data = ov_table_get_data(table);
      for (ov_count_t i = 0; i < ov_table_get_size(table); ++i) check(!std::isnan(data[i]), "not a number stored");
    }
    ov_model_delete(model);
  }
}

void fuzz_parser(const std::string &text) {
  HandlerState state{text.size()};
  ov_expression_t e = ov_domain_string_to_expression(scope(), text.c_str(), handler, &state);
  if (e == nullptr) {
    check_failure_code();
    return;
  }
  check(ov_error_code() == ov_error_none, "success with an error recorded");
  ov_expression_t copy = ov_expression_clone(e);
  check(copy != nullptr && same_shape(e, copy), "clone differs");
  ov_expression_delete(copy);
  if (numbers_are_finite(e)) {
    char *first = ov_expression_to_string(e);
    check(first != nullptr, "printing failed");
    HandlerState again{std::strlen(first)};
    ov_expression_t back = ov_domain_string_to_expression(scope(), first, handler, &again);
    check(back != nullptr, "printed text does not parse");
    check(same_shape(e, back), "printed text reads back to another tree");
    char *second = ov_expression_to_string(back);
    check(second != nullptr && std::strcmp(first, second) == 0, "printing is not stable");
    std::free(first);
    std::free(second);
    ov_expression_delete(back);
  }
  generate_with(e);
  check(ov_expression_delete(e) == ov_error_none, "delete failed");
}

// Reads tokens to the end; a string source can repeat an operator at its end
// without advancing, so the number of reads is bounded.
void drain(ParseContext &ctx, std::size_t size) {
  for (std::size_t reads = 0; reads < 4 * size + 16; ++reads) {
    int token = ctx.next_token(&ctx);
    if (token == tok_eof || token == tok_error) return;
    if (token == tok_name || token == tok_string || token == tok_dotted_name) {
      // Held tokens keep their text.
      std::string text = ctx.text_or_empty();
      unget_token(&ctx, token);
      check(ctx.next_token(&ctx) == token && text == ctx.text_or_empty(), "push-back lost a token");
    }
  }
}

void fuzz_string_tokens(const std::string &text) {
  HandlerState state{text.size()};
  for (TokenFunction function : {scan_net_token, scan_expression_token, scan_data_token}) {
    ParseContext ctx(text.c_str(), function);
    ctx.error_handler = handler;
    ctx.handler_data = &state;
    drain(ctx, text.size());
  }
  int format = probe_net_format(nullptr, text.c_str());
  check(format == 0 || format == 1, "probe of a string failed");
}

void fuzz_file_tokens(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return;
  std::FILE *file = fmemopen(const_cast<std::uint8_t *>(data), size, "rb");
  if (file == nullptr) return;
  for (TokenFunction function : {scan_net_token, scan_expression_token, scan_data_token}) {
    std::rewind(file);
    ParseContext ctx(file, function);
    ctx.error_handler = handler;
    drain(ctx, size);
  }
  std::rewind(file);
  check(probe_net_format(file, nullptr) >= 0, "probe of a stream failed");
  check(std::ftell(file) == 0, "probe did not go back");
  {
    // The parser in the middle of a file, on the file's own context.
    ParseContext ctx(file, scan_net_token);
    ctx.domain = scope();
    ctx.error_handler = handler;
    ov_expression_t e = parse_expression(&ctx);
    if (e == nullptr)
      check_failure_code();
    else
      ov_expression_delete(e);
  }
  std::fclose(file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint8_t mode = data[0] & 3u;
  // A string source ends at its first NUL byte, as for any C string.
  std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
  switch (mode) {
  case 0:
  case 1: fuzz_parser(text.c_str()); break;
  case 2: fuzz_string_tokens(text.c_str()); break;
  default: fuzz_file_tokens(data + 1, size - 1); break;
  }
  return 0;
}
