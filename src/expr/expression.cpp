// Expressions: the operator table, construction with its type check,
// reference counting, cloning and the text form.
#include "expr/expression.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "api/error.h"
#include "io/string_escape.h"
#include "model/node.h"

namespace orvel {

namespace {

// Texts of operators 60 to 104, in code order.
constexpr const char *operator_texts[] = {"Normal",
                                          "Beta",
                                          "Gamma",
                                          "Exponential",
                                          "Weibull",
                                          "Uniform",
                                          "Binomial",
                                          "Poisson",
                                          "NegativeBinomial",
                                          "Geometric",
                                          "Distribution",
                                          "NoisyOR",
                                          "min",
                                          "max",
                                          "log",
                                          "log2",
                                          "log10",
                                          "exp",
                                          "sin",
                                          "cos",
                                          "tan",
                                          "sinh",
                                          "cosh",
                                          "tanh",
                                          "sqrt",
                                          "abs",
                                          "floor",
                                          "ceil",
                                          "mod",
                                          "if",
                                          "and",
                                          "or",
                                          "not",
                                          "+",
                                          "-",
                                          "*",
                                          "/",
                                          "^",
                                          "-",
                                          "==",
                                          "<",
                                          ">",
                                          "!=",
                                          "<=",
                                          ">="};
static_assert(sizeof operator_texts / sizeof operator_texts[0] == ov_op_greater_than_or_equals - ov_op_normal + 1);

struct FreeRecord {
  void operator()(Expression *expression) const noexcept { std::free(expression); }
};
using RecordPtr = std::unique_ptr<Expression, FreeRecord>;

RecordPtr new_record(int op, int value_type) noexcept {
  RecordPtr record(static_cast<Expression *>(mem_alloc(sizeof(Expression))));
  if (record) {
    record->operator_code = op;
    record->value_type = value_type;
    record->references = 0;
    record->value.operands = nullptr;
    record->height = 1;
  }
  return record;
}

// Value types as the check sees them: 4 and above (a node reference, or a
// type resolved from one) fits anything.
bool fits_number(int type) noexcept { return type == ov_value_number || type >= ov_value_node; }
bool fits_boolean(int type) noexcept { return type == ov_value_boolean || type >= ov_value_node; }
bool alike(int a, int b) noexcept { return a == b || a >= ov_value_node || b >= ov_value_node; }

bool all_numbers(Expression *const *operands, std::uint32_t count) noexcept {
  for (std::uint32_t i = 0; i < count; ++i)
    if (!fits_number(operands[i]->value_type)) return false;
  return true;
}

bool all_booleans(Expression *const *operands, std::uint32_t count) noexcept {
  for (std::uint32_t i = 0; i < count; ++i)
    if (!fits_boolean(operands[i]->value_type)) return false;
  return true;
}

// Whether the operands fit a composite operator (60 to 104).
bool operands_fit(int op, Expression *const *operands, std::uint32_t count) noexcept {
  switch (op) {
  case ov_op_normal:
  case ov_op_gamma:
  case ov_op_weibull:
  case ov_op_uniform:
  case ov_op_binomial:
  case ov_op_negative_binomial:
  case ov_op_mod:
  case ov_op_add:
  case ov_op_subtract:
  case ov_op_multiply:
  case ov_op_divide:
  case ov_op_power:
  case ov_op_less_than:
  case ov_op_greater_than:
  case ov_op_less_than_or_equals:
  case ov_op_greater_than_or_equals: return count == 2 && all_numbers(operands, count);
  case ov_op_beta: return (count == 2 || count == 4) && all_numbers(operands, count);
  case ov_op_distribution:
  case ov_op_min:
  case ov_op_max: return count >= 1 && all_numbers(operands, count);
  case ov_op_noisy_or:
    if (count == 0 || count % 2 != 0) return false;
    for (std::uint32_t i = 0; i < count; i += 2)
      if (!fits_boolean(operands[i]->value_type) || !fits_number(operands[i + 1]->value_type)) return false;
    return true;
  case ov_op_if:
    return count == 3 && fits_boolean(operands[0]->value_type) &&
           alike(operands[1]->value_type, operands[2]->value_type);
  case ov_op_and:
  case ov_op_or: return all_booleans(operands, count);
  case ov_op_not: return count == 1 && all_booleans(operands, count);
  case ov_op_equals:
  case ov_op_not_equals:
    return count == 2 && alike(operands[0]->value_type, operands[1]->value_type) &&
           operands[0]->value_type != ov_value_distribution && operands[1]->value_type != ov_value_distribution;
  default: // the functions of one number: 63, 67, 69, 74 to 87, and prefix minus
    return count == 1 && all_numbers(operands, count);
  }
}

int result_type(int op, Expression *const *operands) noexcept {
  if (op <= ov_op_noisy_or) return ov_value_distribution;
  if (op == ov_op_if) {
    int second = operands[1]->value_type;
    return second == ov_value_node ? operands[2]->value_type : second;
  }
  if (op >= ov_op_and && op <= ov_op_not) return ov_value_boolean;
  if (is_comparison_operator(op)) return ov_value_boolean;
  return ov_value_number;
}

} // namespace

const char *operator_text(int op) noexcept {
  return is_composite_operator(op) ? operator_texts[op - ov_op_normal] : nullptr;
}

int function_operator_from_name(const char *name) noexcept {
  for (int op = ov_op_normal; op <= ov_op_not; ++op)
    if (std::strcmp(operator_texts[op - ov_op_normal], name) == 0) return op;
  return -1;
}

// ---------------------------------------------------------------- leaves

Expression *number_expression(double value) noexcept {
  RecordPtr record = new_record(ov_op_number, ov_value_number);
  if (record) record->value.number = value;
  return record.release();
}

Expression *boolean_expression(int value) noexcept {
  RecordPtr record = new_record(ov_op_boolean, ov_value_boolean);
  if (record) record->value.boolean = value != 0 ? 1 : 0;
  return record.release();
}

Expression *label_expression(const char *label) noexcept {
  RecordPtr record = new_record(ov_op_label, ov_value_label);
  if (!record) return nullptr;
  CString copy = string_copy(label);
  if (!copy) return nullptr;
  record->value.label = copy.release();
  return record.release();
}

Expression *node_expression(Node *node) noexcept {
  RecordPtr record = new_record(ov_op_node, ov_value_node);
  if (record) record->value.node = node;
  return record.release();
}

// ---------------------------------------------------------------- composites

Expression *expression_new(int op, Buffer<Expression *> &operands) noexcept {
  if (!is_composite_operator(op)) {
    set_error(ov_error_usage);
    return nullptr;
  }
  Expression **list = operands.get();
  std::uint32_t count = 0;
  std::uint32_t height = 0;
  for (; list[count] != nullptr; ++count)
    if (list[count]->height > height) height = list[count]->height;
  if (!operands_fit(op, list, count) || height >= expression_height_limit) {
    set_error(ov_error_invalid_expression);
    return nullptr;
  }
  RecordPtr record = new_record(op, result_type(op, list));
  if (!record) return nullptr;
  record->height = height + 1;
  record->value.operands = operands.release();
  for (std::uint32_t i = 0; i < count; ++i) ++list[i]->references;
  return record.release();
}

void expression_release(Expression *expression) noexcept {
  if (expression == nullptr || expression->references > 0) return;
  // Composites waiting to be freed form a list through the terminating slot
  // of their operand arrays, with the operand count kept in the height
  // (which a record about to go needs no more): no recursion, no allocation.
  Expression *pending = nullptr;
  auto retire = [&pending](Expression *e) noexcept {
    if (e->operator_code == ov_op_label) {
      std::free(e->value.label);
    } else if (is_composite_operator(e->operator_code)) {
      const std::uint32_t count = operand_count(e);
      e->height = count;
      e->value.operands[count] = pending;
      pending = e;
      return;
    }
    std::free(e);
  };
  retire(expression);
  while (pending != nullptr) {
    Expression *e = pending;
    Expression **operands = e->value.operands;
    pending = operands[e->height];
    for (std::uint32_t i = 0; i < e->height; ++i)
      if (--operands[i]->references <= 0) retire(operands[i]);
    std::free(operands);
    std::free(e);
  }
}

void expression_unref(Expression *expression) noexcept {
  if (expression == nullptr) return;
  --expression->references;
  expression_release(expression);
}

namespace {

Expression *clone_leaf(const Expression *expression) noexcept {
  switch (expression->operator_code) {
  case ov_op_number: return number_expression(expression->value.number);
  case ov_op_boolean: return boolean_expression(expression->value.boolean);
  case ov_op_label: return label_expression(expression->value.label);
  default: return node_expression(expression->value.node);
  }
}

// A composite being copied: the copies of its first `next` operands.
struct CloneStep {
  const Expression *source;
  std::uint32_t count, next;
  Buffer<Expression *> copies;
};

Expression *clone_composite(const Expression *expression, std::vector<CloneStep> &path) {
  auto enter = [&path](const Expression *source) {
    const std::uint32_t count = operand_count(source);
    Buffer<Expression *> copies = alloc_array<Expression *>(size_add(count, 1));
    if (!copies) return false;
    for (std::uint32_t i = 0; i <= count; ++i) copies[i] = nullptr;
    path.push_back(CloneStep{source, count, 0, std::move(copies)});
    return true;
  };
  if (!enter(expression)) return nullptr;
  while (!path.empty()) {
    CloneStep &step = path.back();
    if (step.next < step.count) {
      const Expression *operand = step.source->value.operands[step.next];
      if (is_composite_operator(operand->operator_code)) {
        if (!enter(operand)) return nullptr;
        continue;
      }
      Expression *copy = clone_leaf(operand);
      if (copy == nullptr) return nullptr;
      step.copies[step.next++] = copy;
      continue;
    }
    Expression *made = expression_new(step.source->operator_code, step.copies);
    if (made == nullptr) return nullptr;
    path.pop_back();
    if (path.empty()) return made;
    path.back().copies[path.back().next++] = made;
  }
  return nullptr;
}

} // namespace

Expression *expression_clone(const Expression *expression) noexcept {
  if (!is_composite_operator(expression->operator_code)) return clone_leaf(expression);
  std::vector<CloneStep> path;
  Expression *clone = nullptr;
  try {
    path.reserve(expression->height);
    clone = clone_composite(expression, path);
  } catch (const std::bad_alloc &) {
    set_error(ov_error_no_memory);
  }
  if (clone != nullptr) return clone;
  // The copies made so far go; the first error stands.
  const ov_error_t code = ov_error_code();
  for (CloneStep &step : path)
    for (std::uint32_t i = 0; i < step.next; ++i) expression_release(step.copies[i]);
  set_error(code);
  return nullptr;
}

std::uint32_t operand_count(const Expression *expression) noexcept {
  if (!is_composite_operator(expression->operator_code)) return 0;
  std::uint32_t count = 0;
  while (expression->value.operands[count] != nullptr) ++count;
  return count;
}

namespace {

// Calls `visit` on each node-reference leaf of the tree, left to right,
// until it returns true; whether it did.
template <class E, class F> bool any_node_leaf(E *expression, F &&visit) {
  std::vector<E *> stack{expression};
  while (!stack.empty()) {
    E *e = stack.back();
    stack.pop_back();
    if (e->operator_code == ov_op_node) {
      if (visit(e)) return true;
    } else if (is_composite_operator(e->operator_code)) {
      for (std::uint32_t i = operand_count(e); i-- > 0;) stack.push_back(e->value.operands[i]);
    }
  }
  return false;
}

} // namespace

bool expression_mentions(const Expression *expression, const Node *node) {
  return any_node_leaf(expression, [node](const Expression *leaf) { return leaf->value.node == node; });
}

bool expression_nodes_within(const Expression *expression, const NodeList &nodes) {
  return !any_node_leaf(expression, [&nodes](const Expression *leaf) { return !nodes.contains(leaf->value.node); });
}

void expression_replace_node(Expression *expression, const Node *from, Node *to) {
  any_node_leaf(expression, [from, to](Expression *leaf) {
    if (leaf->value.node == from) leaf->value.node = to;
    return false;
  });
}

// ---------------------------------------------------------------- text

namespace {

// The two passes of the text form share this writer: the first has no
// buffer and only counts, the second writes into a buffer of that size.
struct TextSink {
  char *out = nullptr;
  std::size_t length = 0;
  void put(const char *piece, std::size_t size) noexcept {
    if (out != nullptr) std::memcpy(out + length, piece, size);
    length += size;
  }
  void put(const char *piece) noexcept { put(piece, std::strlen(piece)); }
};

bool is_additive(const Expression *e) noexcept {
  if (e == nullptr) return false;
  int op = e->operator_code;
  // -0 counts as negative: printed bare as "-0" it would not read back after
  // a binary minus.
  return op == ov_op_add || op == ov_op_subtract || op == ov_op_negate ||
         (op == ov_op_number && std::signbit(e->value.number));
}

bool is_multiplicative(const Expression *e) noexcept {
  return e != nullptr && (e->operator_code == ov_op_multiply || e->operator_code == ov_op_divide);
}

bool is_comparison(const Expression *e) noexcept { return e != nullptr && is_comparison_operator(e->operator_code); }

bool is_power(const Expression *e) noexcept { return e != nullptr && e->operator_code == ov_op_power; }

// Which operands of a binary operator or prefix minus need parentheses, so
// that the text reads back to the same tree: '^' groups to the right, the
// other binary operators to the left.
bool left_needs_parentheses(int op, const Expression *left) noexcept {
  switch (op) {
  case ov_op_multiply:
  case ov_op_divide:
  case ov_op_negate: return is_additive(left);
  case ov_op_power: return is_additive(left) || is_multiplicative(left) || is_power(left);
  default: return is_comparison_operator(op) && is_comparison(left);
  }
}

bool right_needs_parentheses(int op, const Expression *right) noexcept {
  switch (op) {
  case ov_op_add:
  case ov_op_subtract: return is_additive(right);
  case ov_op_multiply:
  case ov_op_divide:
  case ov_op_power: return is_additive(right) || is_multiplicative(right);
  default: return is_comparison_operator(op) && is_comparison(right);
  }
}

// What is left to write: an expression, or a piece of text.
struct TextTask {
  const Expression *e;
  const char *text;
};

// Writes the text form, left to right, from a stack of what is left to
// write; false when a node has no name and none can be made.
bool write_expression(TextSink &sink, const Expression *root, std::vector<TextTask> &stack) {
  stack.clear();
  if (root != nullptr) stack.push_back({root, nullptr});
  auto later = [&stack](const char *text) { stack.push_back({nullptr, text}); };
  // Pushed before what precedes it, since the stack is written from its end.
  auto later_operand = [&](const Expression *operand, bool parenthesised) {
    if (operand == nullptr) return;
    if (parenthesised) later(")");
    stack.push_back({operand, nullptr});
    if (parenthesised) later("(");
  };
  while (!stack.empty()) {
    const TextTask task = stack.back();
    stack.pop_back();
    const Expression *e = task.e;
    if (e == nullptr) {
      sink.put(task.text);
      continue;
    }
    const int op = e->operator_code;
    switch (op) {
    case ov_op_number: {
      char text[64];
      int size = std::snprintf(text, sizeof text, "%G", e->value.number);
      sink.put(text, static_cast<std::size_t>(size));
      continue;
    }
    case ov_op_label: {
      sink.put("\"", 1);
      std::size_t size = escape_string(e->value.label, sink.out != nullptr ? sink.out + sink.length : nullptr);
      sink.length += size;
      sink.put("\"", 1);
      continue;
    }
    case ov_op_node: {
      const char *name = node_get_name(e->value.node);
      if (name == nullptr) return false;
      sink.put(name);
      continue;
    }
    case ov_op_boolean: sink.put(e->value.boolean != 0 ? "true" : "false"); continue;
    default: break;
    }
    Expression *const *operands = e->value.operands;
    if (is_function_operator(op)) {
      sink.put(operator_text(op));
      sink.put(" (", 2);
      later(")");
      for (std::uint32_t i = operand_count(e); i-- > 0;) {
        stack.push_back({operands[i], nullptr});
        if (i > 0) later(", ");
      }
      continue;
    }
    if (op == ov_op_negate) {
      sink.put("-", 1);
      later_operand(operands[0], left_needs_parentheses(op, operands[0]));
      continue;
    }
    const Expression *left = operands[0];
    const Expression *right = left != nullptr ? operands[1] : nullptr;
    later_operand(right, right_needs_parentheses(op, right));
    later(" ");
    later(operator_text(op));
    later(" ");
    later_operand(left, left_needs_parentheses(op, left));
  }
  return true;
}

} // namespace

CString expression_to_string(const Expression *expression) {
  try {
    std::vector<TextTask> stack;
    TextSink count;
    if (!write_expression(count, expression, stack)) return nullptr;
    Size size = count.length >= size_overflow ? size_overflow : size_add(static_cast<Size>(count.length), 1);
    CString text(static_cast<char *>(mem_alloc(size)));
    if (!text) return nullptr;
    TextSink write;
    write.out = text.get();
    if (!write_expression(write, expression, stack)) return nullptr;
    text[write.length] = 0;
    set_error(ov_error_none);
    return text;
  } catch (const std::bad_alloc &) {
    set_error(ov_error_no_memory);
    return nullptr;
  }
}

Expression *composite_expression(int op, Expression *const *operands) noexcept {
  Size count = 0;
  while (operands[count] != nullptr) ++count;
  Buffer<Expression *> copy = alloc_array<Expression *>(size_add(count, 1));
  if (!copy) return nullptr;
  for (Size i = 0; i <= count; ++i) copy[i] = operands[i];
  return expression_new(op, copy);
}

} // namespace orvel
