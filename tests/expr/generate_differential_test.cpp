// Generated tables against a plain reference: random expression trees over
// label, boolean, number and interval parents are evaluated here by a
// direct recursion, with the interval parent sampled as the generator does,
// and the tables (or the failure codes) must agree. Also NET round trips of
// networks with models.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "orvel.h"

namespace orvel {
namespace {

const char *const parents = R"(
node L { states = ("a" "b" "c"); }
node B { states = ("false" "true"); subtype = boolean; }
node N { states = ("" "" ""); subtype = number; state_values = (-1 0.5 2); }
node I { states = ("" "" "" ""); subtype = interval; state_values = (-infinity 0 1 3 infinity); }
node C { states = ("a" "b" "c"); }
potential (C | L B N I) {}
)";

// The reference: states of L, B, N, I and the value bound to I.
struct Config {
  int l, b, n, i;
  double iv;
};

struct Failure {
  ov_error_t code;
};

// Random trees, built through the public constructors.
struct Trees {
  std::mt19937 &rng;
  ov_domain_t d;
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }
  ov_expression_t node(const char *name) { return ov_node_make_expression(ov_domain_get_node_by_name(d, name)); }
  ov_expression_t op(ov_operator_t o, std::vector<ov_expression_t> args) {
    args.push_back(nullptr);
    return ov_make_composite_expression(o, args.data());
  }
  ov_expression_t number(int depth) {
    static const double constants[] = {0, 1, 2, -1.5, 0.5, 3};
    if (depth == 0 || pick(4) == 0) {
      switch (pick(3)) {
      case 0: return ov_number_make_expression(constants[pick(6)]);
      case 1: return node("N");
      default: return node("I");
      }
    }
    switch (pick(8)) {
    case 0: return op(ov_op_if, {boolean(depth - 1), number(depth - 1), number(depth - 1)});
    case 1: return op(static_cast<ov_operator_t>(ov_op_min + pick(2)), {number(depth - 1), number(depth - 1)});
    case 2: {
      static const ov_operator_t unary[] = {ov_op_log, ov_op_sqrt, ov_op_abs, ov_op_floor, ov_op_negate, ov_op_exp};
      return op(unary[pick(6)], {number(depth - 1)});
    }
    case 3: return op(ov_op_mod, {number(depth - 1), number(depth - 1)});
    default: return op(static_cast<ov_operator_t>(ov_op_add + pick(5)), {number(depth - 1), number(depth - 1)});
    }
  }
  ov_expression_t boolean(int depth) {
    if (depth == 0 || pick(4) == 0) return pick(3) != 0 ? node("B") : ov_boolean_make_expression(pick(2));
    switch (pick(6)) {
    case 0: return op(static_cast<ov_operator_t>(ov_op_and + pick(2)), {boolean(depth - 1), boolean(depth - 1)});
    case 1: return op(ov_op_not, {boolean(depth - 1)});
    case 2: return op(static_cast<ov_operator_t>(ov_op_equals + 3 * pick(2)), {label(depth - 1), label(depth - 1)});
    case 3: return op(ov_op_equals, {boolean(depth - 1), boolean(depth - 1)});
    default: {
      static const ov_operator_t order[] = {ov_op_less_than, ov_op_greater_than, ov_op_less_than_or_equals,
                                            ov_op_greater_than_or_equals, ov_op_not_equals};
      return op(order[pick(5)], {number(depth - 1), number(depth - 1)});
    }
    }
  }
  ov_expression_t label(int depth) {
    static const char *const labels[] = {"a", "b", "c", "z"};
    if (depth == 0 || pick(3) != 0) return pick(2) != 0 ? node("L") : ov_label_make_expression(labels[pick(4)]);
    return op(ov_op_if, {boolean(depth - 1), label(depth - 1), label(depth - 1)});
  }
  // The child's expression: a label, or weights over its three states.
  ov_expression_t model(int depth) {
    if (pick(2) == 0) return label(depth);
    return op(ov_op_distribution, {op(ov_op_abs, {number(depth)}), op(ov_op_abs, {number(depth)}), number(depth)});
  }
};

// Evaluation by the operators' definitions, through the public accessors.
struct Reference {
  const Config &c;
  ov_domain_t d;

  static std::vector<ov_expression_t> args(ov_expression_t e) {
    std::vector<ov_expression_t> list;
    for (ov_expression_t *o = ov_expression_get_operands(e); *o != nullptr; ++o) list.push_back(*o);
    return list;
  }
  const char *name(ov_expression_t e) { return ov_node_get_name(ov_expression_get_node(e)); }
  // 'n', 'b' or 'l': what the tree computes.
  char kind(ov_expression_t e) {
    switch (ov_expression_get_operator(e)) {
    case ov_op_label: return 'l';
    case ov_op_boolean: return 'b';
    case ov_op_number: return 'n';
    case ov_op_node: return name(e)[0] == 'L' ? 'l' : name(e)[0] == 'B' ? 'b' : 'n';
    case ov_op_if: return kind(args(e)[1]);
    default: {
      const ov_operator_t op = ov_expression_get_operator(e);
      return op >= ov_op_and && op != ov_op_add && op != ov_op_subtract && op != ov_op_multiply && op != ov_op_divide &&
                     op != ov_op_power && op != ov_op_negate
                 ? 'b'
                 : 'n';
    }
    }
  }

  double number(ov_expression_t e) {
    const ov_operator_t op = ov_expression_get_operator(e);
    if (op == ov_op_number) return ov_expression_get_number(e);
    if (op == ov_op_node) {
      static const double n_values[] = {-1, 0.5, 2};
      return std::strcmp(name(e), "N") == 0 ? n_values[c.n] : c.iv;
    }
    std::vector<ov_expression_t> a = args(e);
    if (op == ov_op_if) return boolean(a[0]) ? number(a[1]) : number(a[2]);
    const double x = number(a[0]);
    switch (op) {
    case ov_op_log:
      if (x <= 0) throw Failure{ov_error_inappropriate_arguments};
      return std::log(x);
    case ov_op_sqrt:
      if (x < 0) throw Failure{ov_error_inappropriate_arguments};
      return std::sqrt(x);
    case ov_op_abs: return std::fabs(x);
    case ov_op_floor: return std::floor(x);
    case ov_op_negate: return -x;
    case ov_op_exp: return std::exp(x);
    default: break;
    }
    const double y = number(a[1]);
    switch (op) {
    case ov_op_min: return y < x ? y : x;
    case ov_op_max: return y > x ? y : x;
    case ov_op_add: return x + y;
    case ov_op_subtract: return x - y;
    case ov_op_multiply: return x * y;
    case ov_op_divide:
      if (y == 0) throw Failure{ov_error_division_by_zero};
      return x / y;
    case ov_op_mod: {
      if (y == 0) throw Failure{ov_error_inappropriate_arguments};
      // The remainder takes the sign of the divisor.
      const double r = std::fmod(x, y);
      return r != 0 && (r < 0) != (y < 0) ? r + y : r;
    }
    default: // power
      if (x > 0) return std::pow(x, y);
      if (x == 0) {
        if (y > 0) return 0;
        throw Failure{ov_error_inappropriate_arguments};
      }
      if (y != std::trunc(y) || std::fabs(y) > 2147483647.0) throw Failure{ov_error_inappropriate_arguments};
      return std::fmod(std::fabs(y), 2.0) == 1.0 ? -std::pow(-x, y) : std::pow(-x, y);
    }
  }
  bool boolean(ov_expression_t e) {
    const ov_operator_t op = ov_expression_get_operator(e);
    if (op == ov_op_boolean) return ov_expression_get_boolean(e) != 0;
    if (op == ov_op_node) return c.b != 0;
    std::vector<ov_expression_t> a = args(e);
    switch (op) {
    case ov_op_and: return boolean(a[0]) && boolean(a[1]);
    case ov_op_or: return boolean(a[0]) || boolean(a[1]);
    case ov_op_not: return !boolean(a[0]);
    case ov_op_equals:
    case ov_op_not_equals: {
      const char k = kind(a[0]);
      const bool equal = k == 'l'   ? label(a[0]) == label(a[1])
                         : k == 'b' ? boolean(a[0]) == boolean(a[1])
                                    : number(a[0]) == number(a[1]);
      return op == ov_op_equals ? equal : !equal;
    }
    case ov_op_if: return boolean(a[0]) ? boolean(a[1]) : boolean(a[2]);
    default: {
      const double x = number(a[0]), y = number(a[1]);
      if (op == ov_op_less_than) return x < y;
      if (op == ov_op_greater_than) return x > y;
      if (op == ov_op_less_than_or_equals) return x <= y;
      return x >= y;
    }
    }
  }
  std::string label(ov_expression_t e) {
    const ov_operator_t op = ov_expression_get_operator(e);
    if (op == ov_op_label) return ov_expression_get_label(e);
    if (op == ov_op_node) return std::string(1, static_cast<char>('a' + c.l));
    std::vector<ov_expression_t> a = args(e);
    return boolean(a[0]) ? label(a[1]) : label(a[2]);
  }
  // The child's distribution for one binding of I.
  std::vector<double> child(ov_expression_t e) {
    std::vector<double> p(3, 0.0);
    if (ov_expression_get_operator(e) != ov_op_distribution) {
      const std::string l = label(e);
      if (l.size() != 1 || l[0] < 'a' || l[0] > 'c') throw Failure{ov_error_invalid_expression};
      p[static_cast<std::size_t>(l[0] - 'a')] = 1.0;
      return p;
    }
    std::vector<ov_expression_t> a = args(e);
    double sum = 0;
    for (int j = 0; j < 3; ++j) {
      p[j] = number(a[j]);
      if (!(p[j] >= 0)) throw Failure{ov_error_inappropriate_arguments};
      sum += p[j];
    }
    if (!(sum > 0)) throw Failure{ov_error_inappropriate_arguments};
    for (double &x : p) x /= sum;
    return p;
  }
};

// The reference table, or the code of the first failing configuration.
std::variant<std::vector<float>, ov_error_t> reference_table(ov_domain_t d, ov_expression_t e, int samples) {
  static const double cuts[] = {-HUGE_VAL, 0, 1, 3, HUGE_VAL};
  std::vector<float> table;
  try {
    for (int l = 0; l < 3; ++l)
      for (int b = 0; b < 2; ++b)
        for (int n = 0; n < 3; ++n)
          for (int i = 0; i < 4; ++i) {
            std::vector<double> sum(3, 0.0);
            const bool sampled = i == 1 || i == 2;
            const int count = sampled ? samples : 1;
            for (int k = 0; k < count; ++k) {
              const double iv = i == 0   ? -1.0
                                : i == 3 ? 3 * 1.001
                                         : cuts[i] + (k + 0.5) * (cuts[i + 1] - cuts[i]) / samples;
              Config c{l, b, n, i, iv};
              std::vector<double> p = Reference{c, d}.child(e);
              for (int j = 0; j < 3; ++j) sum[j] += p[j];
            }
            for (int j = 0; j < 3; ++j) {
              if (std::isnan(sum[j])) throw Failure{ov_error_computation_failed};
              table.push_back(static_cast<float>(sum[j] / count));
            }
          }
  } catch (const Failure &f) {
    return f.code;
  }
  return table;
}

TEST(GenerateDifferential, RandomTreesAgreeWithAPlainEvaluator) {
  std::mt19937 rng(20240611);
  ov_domain_t d = ov_net_parse_from_string(parents, nullptr);
  ASSERT_NE(d, nullptr);
  ov_node_t child = ov_domain_get_node_by_name(d, "C");
  ov_model_t model = ov_node_new_model(child, nullptr);
  ov_model_set_number_of_samples_per_interval(model, 3);
  Trees trees{rng, d};
  int succeeded = 0;
  for (int round = 0; round < 400; ++round) {
    ov_expression_t e = trees.model(1 + round % 4);
    ASSERT_NE(e, nullptr);
    ASSERT_EQ(ov_model_set_expression(model, 0, e), ov_error_none);
    const ov_status_t status = ov_node_generate_table(child);
    const auto expected = reference_table(d, e, 3);
    const std::string text = [&] {
      char *t = ov_expression_to_string(e);
      std::string s = t;
      std::free(t);
      return s;
    }();
    if (const ov_error_t *code = std::get_if<ov_error_t>(&expected)) {
      EXPECT_EQ(status, *code) << text;
      continue;
    }
    ASSERT_EQ(status, ov_error_none) << text;
    ++succeeded;
    const std::vector<float> &want = std::get<std::vector<float>>(expected);
    const float *got = ov_table_get_data(ov_node_get_table(child));
    for (std::size_t j = 0; j < want.size(); ++j)
      ASSERT_NEAR(got[j], want[j], 1e-6 * (1 + std::fabs(want[j]))) << text << " cell " << j;
  }
  EXPECT_GT(succeeded, 100); // the trees must mostly generate, or little is compared
  ov_domain_delete(d);
}

// A network with models reads, generates and writes back to a file that
// reads to the same tables; so does its compiled form, written with the
// generated data beside the models.
TEST(GenerateNet, RoundTrip) {
  ov_domain_t first = ov_net_parse_domain(ORVEL_TEST_DATA "/../../examples/measurement.net", nullptr, nullptr);
  ASSERT_NE(first, nullptr);
  ASSERT_EQ(ov_domain_generate_tables(first), ov_error_none);
  auto write = [](ov_domain_t d) {
    char *buffer = nullptr;
    std::size_t size = 0;
    std::FILE *stream = open_memstream(&buffer, &size);
    EXPECT_EQ(ov_domain_write_net(d, stream), ov_error_none);
    std::fclose(stream);
    std::string text(buffer, size);
    std::free(buffer);
    return text;
  };
  auto tables = [](ov_domain_t d) {
    std::vector<float> all;
    for (ov_node_t n = ov_domain_get_first_node(d); n != nullptr; n = ov_node_get_next(n)) {
      ov_table_t t = ov_node_get_table(n);
      all.insert(all.end(), ov_table_get_data(t), ov_table_get_data(t) + ov_table_get_size(t));
    }
    return all;
  };
  for (bool compiled : {false, true}) {
    if (compiled) {
      ASSERT_EQ(ov_domain_compile(first), ov_error_none);
    }
    const std::string text = write(first);
    ov_domain_t second = ov_net_parse_from_string(text.c_str(), nullptr);
    ASSERT_NE(second, nullptr) << text;
    ASSERT_EQ(ov_domain_generate_tables(second), ov_error_none);
    // Generated tables are written as data beside their models, in the six
    // digits of "%g", and read back with the model not stale.
    std::vector<float> want = tables(first), got = tables(second);
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t j = 0; j < want.size(); ++j) EXPECT_NEAR(got[j], want[j], 1e-5 * want[j]) << j;
    // The models read back generate exactly the first tables.
    for (ov_node_t n = ov_domain_get_first_node(second); n != nullptr; n = ov_node_get_next(n))
      if (ov_model_t m = ov_node_get_model(n))
        ov_model_set_number_of_samples_per_interval(m, ov_model_get_number_of_samples_per_interval(m));
    ASSERT_EQ(ov_domain_generate_tables(second), ov_error_none);
    EXPECT_EQ(tables(second), want);
    EXPECT_EQ(write(second), text);
    ov_domain_delete(second);
  }
  ov_domain_delete(first);
}

} // namespace
} // namespace orvel
