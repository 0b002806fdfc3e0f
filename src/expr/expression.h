// Expressions: small immutable trees that say how a table entry is computed.
//
// A tree is built bottom-up; each composite takes a reference on each of its
// operands, and a model slot takes one on the expression it holds. A record
// is freed by expression_release when nothing holds it any more, so the same
// expression may stand in several trees and slots at once.
#pragma once

#include <cstdint>
#include <memory>

#include "api/memory.h"
#include "model/forward.h"
#include "model/node_list.h"
#include "orvel.h"

struct ov_expression_s {
  std::int32_t operator_code; // an ov_operator_t
  std::int32_t value_type;    // an ov_value_type_t; 5 to 7 once generation has resolved a node reference
  std::int32_t references;    // parents and model slots that hold the expression
  union {
    double number;              // ov_op_number
    char *label;                // ov_op_label: owned, from the C allocator
    ov_node_s *node;            // ov_op_node
    std::int32_t boolean;       // ov_op_boolean: 0 or 1
    ov_expression_s **operands; // composites: owned, null-terminated, from the C allocator
  } value;
  // 1 for a leaf, else one more than the highest operand; bounded by
  // expression_height_limit.
  std::uint32_t height;
};

namespace orvel {

// The highest tree that can be built. Trees are walked with explicit
// stacks, so the bound guards the heap those stacks take, not the thread's
// stack.
constexpr std::uint32_t expression_height_limit = 10000;

inline bool is_composite_operator(int op) noexcept { return op >= ov_op_normal && op <= ov_op_greater_than_or_equals; }
inline bool is_function_operator(int op) noexcept { return op >= ov_op_normal && op <= ov_op_not; }
inline bool is_comparison_operator(int op) noexcept { return op >= ov_op_equals && op <= ov_op_greater_than_or_equals; }

// The text of an operator: the function name for 60 to 92, the symbol for
// 93 to 104, null otherwise.
const char *operator_text(int op) noexcept;
// The function operator (60 to 92) of a name, searched in code order with
// exact case; -1 if there is none.
int function_operator_from_name(const char *name) noexcept;

// Leaves, with references 0; null with no_memory.
Expression *number_expression(double value) noexcept;
Expression *boolean_expression(int value) noexcept; // any non-zero value is 1
Expression *label_expression(const char *label) noexcept;
Expression *node_expression(Node *node) noexcept;

// The checked constructor of a composite. On success the new record owns
// the null-terminated operand array, taken out of `operands`, and each
// operand has gained a reference. On failure nothing has changed and the
// array stays with the caller: usage for an operator outside 60 to 104,
// invalid_expression for operands that do not fit the operator (or a tree
// higher than expression_height_limit), no_memory.
Expression *expression_new(int op, Buffer<Expression *> &operands) noexcept;
// The same over a caller's null-terminated operand array, which the
// expression copies; the caller keeps the array.
Expression *composite_expression(int op, Expression *const *operands) noexcept;

// Frees an expression that nothing holds (references 0), and with it each
// operand that it held last. A null expression, or one still held, is left
// alone.
void expression_release(Expression *expression) noexcept;
// Drops one reference, then releases.
void expression_unref(Expression *expression) noexcept;

// A deep copy without any sharing, references 0; null on failure, with
// nothing left behind.
Expression *expression_clone(const Expression *expression) noexcept;

// The number of operands of a composite (0 for a leaf).
std::uint32_t operand_count(const Expression *expression) noexcept;

// Whether a node-reference leaf anywhere in the tree names `node`.
bool expression_mentions(const Expression *expression, const Node *node);
// Whether every node-reference leaf of the tree names a member of `nodes`.
bool expression_nodes_within(const Expression *expression, const NodeList &nodes);
// Rewrites, in place, every node-reference leaf naming `from` to name `to`.
// These three walks throw bad_alloc when their stack cannot grow.
void expression_replace_node(Expression *expression, const Node *from, Node *to);

// The text form, in one allocation from the C allocator; null on failure
// (a node whose name cannot be made, no_memory). The caller holds the "C"
// locale.
CString expression_to_string(const Expression *expression);

// Owns a tree under construction: releases it unless it was taken.
struct ExpressionReleaser {
  void operator()(Expression *expression) const noexcept { expression_release(expression); }
};
using ExpressionPtr = std::unique_ptr<Expression, ExpressionReleaser>;

} // namespace orvel
