// Table generation: the log lines and failure codes of the generator and
// of the distributions, the evaluators' codes, values that have closed
// forms, the sampling of interval parents, and generation at compile.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "compile/forest_check.h"
#include "expr/model.h"
#include "orvel.h"

namespace orvel {
namespace {

// Parents of every kind, and children of every subtype with no parents but
// P (a two-state label node) and I (an interval node).
const char *const network = R"(
node P { states = ("p0" "p1"); }
node B { states = ("false" "true"); subtype = boolean; }
node N { states = ("" "" ""); subtype = number; state_values = (0 1 2); }
node I { states = ("" "" ""); subtype = interval; state_values = (-infinity 0 2 infinity); }
node L { states = ("a" "b" "a"); }
node CL { states = ("x" "y"); }
node CB { states = ("false" "true"); subtype = boolean; }
node CN { states = ("" "" "" ""); subtype = number; state_values = (0 1 2 3); }
node CI { states = ("" "" ""); subtype = interval; state_values = (-infinity 0 1 infinity); }
node CP { states = ("" "" ""); subtype = interval; state_values = (0 1 2 infinity); }
node CU { states = ("" "" ""); subtype = interval; state_values = (0 0.5 1 1.5); }
node BAD { states = ("" ""); subtype = number; state_values = (1 2); }
potential (CL | P I) {} potential (CB | P I) {} potential (CN | P I) {} potential (CI | P I) {}
potential (CP | P I) {} potential (CU | P I) {} potential (L | BAD) {}
)";

class Generate : public ::testing::Test {
protected:
  void SetUp() override {
    domain = ov_net_parse_from_string(network, nullptr);
    ASSERT_NE(domain, nullptr);
  }
  void TearDown() override { ov_domain_delete(domain); }
  ov_node_t node(const char *name) { return ov_domain_get_node_by_name(domain, name); }

  // Gives `child` a model without model nodes whose one slot holds `text`,
  // generates its table, and returns the code; the log is in `log`.
  ov_status_t generate(const char *child, const std::string &text) {
    ov_node_t c = node(child);
    ov_model_t model = ov_node_new_model(c, nullptr);
    ov_expression_t e = ov_domain_string_to_expression(domain, text.c_str(), nullptr, nullptr);
    EXPECT_NE(e, nullptr) << text;
    EXPECT_EQ(ov_model_set_expression(model, 0, e), ov_error_none) << text;
    test::LogCapture capture(domain);
    ov_status_t status = ov_node_generate_table(c);
    log = capture.text();
    ov_domain_set_log_file(domain, nullptr);
    return status;
  }
  std::vector<float> table(const char *name) {
    ov_table_t t = ov_node_get_table(node(name));
    const float *data = ov_table_get_data(t);
    return {data, data + ov_table_get_size(t)};
  }

  // Generates a node's table, keeping the log in `log`.
  ov_status_t run(ov_node_t n) {
    test::LogCapture capture(domain);
    ov_status_t status = ov_node_generate_table(n);
    log = capture.text();
    ov_domain_set_log_file(domain, nullptr);
    return status;
  }

  ov_domain_t domain = nullptr;
  std::string log;
};

std::string heading(const char *name) {
  return std::string("Using model for ") + name + " to generate a conditional probability table\n";
}

TEST_F(Generate, DistributionFailuresAreLoggedWithTheirCodes) {
  const struct {
    const char *child, *text;
    ov_error_t code;
    const char *message;
  } cases[] = {
      {"CN", "Normal (0, 1)", ov_error_invalid_expression,
       "A Normal distribution can only be applied to interval nodes"},
      {"CI", "Normal (0, 0)", ov_error_inappropriate_arguments,
       "Variance for a normal distribution must be positive (observed: 0)\n"},
      {"CP", "Normal (0, 1)", ov_error_insufficient_state_range,
       "Node range must include (-inf, inf) for normal distribution"},
      {"CL", "Beta (1, 1)", ov_error_invalid_expression, "A Beta distribution can only be applied to interval nodes"},
      {"CP", "Beta (0, 1)", ov_error_inappropriate_arguments,
       "Beta distribution (shape) parameters must be positive (observed: a = 0 and b = 1)\n"},
      {"CP", "Beta (1, 1, 2, 2)", ov_error_inappropriate_arguments,
       "Beta distribution interval must have positive length (specified: [2, 2])\n"},
      {"CP", "Beta (1, 1, -1, 1)", ov_error_insufficient_state_range,
       "Node range must include [-1, 1] for beta distribution"},
      {"CB", "Gamma (1, 1)", ov_error_invalid_expression, "A Gamma distribution can only be applied to interval nodes"},
      {"CP", "Gamma (1, -2)", ov_error_inappropriate_arguments,
       "Gamma distribution parameters must be positive (observed: shape = 1 and scale = -2)\n"},
      {"CU", "Gamma (1, 1)", ov_error_insufficient_state_range,
       "Node range must include [0, inf) for gamma distribution"},
      {"CN", "Exponential (1)", ov_error_invalid_expression,
       "An Exponential distribution can only be applied to interval nodes"},
      {"CP", "Exponential (0)", ov_error_inappropriate_arguments,
       "Exponential distribution parameter must be positive (observed: 0)\n"},
      {"CU", "Exponential (1)", ov_error_insufficient_state_range,
       "Node range must include [0, inf) for exponential distribution"},
      {"CN", "Weibull (1, 1)", ov_error_invalid_expression,
       "A Weibull distribution can only be applied to interval nodes"},
      {"CP", "Weibull (1, 0)", ov_error_inappropriate_arguments,
       "Weibull distribution parameters must be positive (observed: a = 1, b = 0)\n"},
      {"CU", "Weibull (1, 1)", ov_error_insufficient_state_range,
       "Node range must include [0, inf) for Weibull distribution"},
      {"CU", "Uniform (1, 1)", ov_error_inappropriate_arguments,
       "Uniform distribution: first parameter must be less than the second parameter (observed: a = 1 and b = 1)\n"},
      {"CU", "Uniform (0, 2)", ov_error_insufficient_state_range,
       "Node range must include [a, b] = [0, 2] for uniform distribution"},
      {"CL", "Uniform (0, 1)", ov_error_invalid_expression, ""},
      {"CL", "Binomial (3, 0.5)", ov_error_invalid_expression,
       "A Binomial distribution can only be applied to numbered or interval nodes"},
      {"CB", "Poisson (1)", ov_error_invalid_expression,
       "A Poisson distribution can only be applied to numbered or interval nodes"},
      {"CL", "NegativeBinomial (1, 0.5)", ov_error_invalid_expression,
       "A Negative Binomial distribution can only be applied to numbered or interval nodes"},
      {"CB", "Geometric (0.5)", ov_error_invalid_expression,
       "A Geometric distribution can only be applied to numbered or interval nodes"},
      {"CL", "Distribution (1, 2, 3)", ov_error_invalid_expression,
       "The number of arguments of a Distribution expression must match the number of states"},
      {"CL", "Distribution (0, 0)", ov_error_inappropriate_arguments,
       "At least one argument of a Distribution expression must be positive"},
      {"CL", "Distribution (1, -1)", ov_error_inappropriate_arguments,
       "Negative value in Distribution expression (state 1)"},
      {"CL", "NoisyOR (true, 0.5)", ov_error_invalid_expression,
       "A Noisy-OR distribution can only be applied to boolean nodes"},
      // Checks without a message of their own.
      {"CN", "Binomial (4, 0.5)", ov_error_insufficient_state_range, ""},
      {"CN", "Binomial (2.5, 0.5)", ov_error_inappropriate_arguments, ""},
      {"CP", "Binomial (2.5, 0.5)", ov_error_inappropriate_arguments, ""},
      {"CU", "Binomial (2, 0.5)", ov_error_insufficient_state_range, ""},
      {"CN", "Poisson (-1)", ov_error_inappropriate_arguments, ""},
      {"CU", "Poisson (1)", ov_error_insufficient_state_range, ""},
      {"CN", "NegativeBinomial (0, 0.5)", ov_error_inappropriate_arguments, ""},
      {"CP", "Geometric (1.5)", ov_error_inappropriate_arguments, ""},
      {"CB", "NoisyOR (false, 2)", ov_error_inappropriate_arguments, ""},
      {"CI", "Normal (log (0), 1)", ov_error_inappropriate_arguments, ""},
      // Deterministic values that name no state.
      {"CL", "\"z\"", ov_error_invalid_expression, "Node CL does not have a (unique) state labeled `z'\n"},
      {"CN", "1.5", ov_error_invalid_expression, "Node CN does not have a state with value 1.5\n"},
      {"CU", "7", ov_error_invalid_expression, "Value for node CU is out of bounds: 7\n"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(generate(c.child, c.text), c.code) << c.text;
    EXPECT_EQ(log, heading(c.child) + c.message) << c.text;
    EXPECT_EQ(ov_node_get_model(node(c.child))->table_is_stale, 1) << c.text;
  }
}

TEST_F(Generate, ModelAndStateValueFailures) {
  ov_node_t l = node("L");
  ov_model_t model = ov_node_new_model(l, nullptr);
  EXPECT_EQ(run(l), ov_error_invalid_expression);
  EXPECT_EQ(log, "Model for L is unspecified\n");
  ov_node_t bad = node("BAD");
  ASSERT_EQ(ov_node_set_state_value(bad, 1, 0.5), ov_error_none);
  ov_node_t list[] = {bad, nullptr};
  model = ov_node_new_model(l, list);
  ASSERT_EQ(ov_model_get_size(model), 2);
  EXPECT_EQ(run(l), ov_error_invalid_state_values);
  EXPECT_EQ(log, heading("L") + "The state values of node BAD do not form an increasing sequence.\n");
  ASSERT_EQ(ov_node_set_state_value(bad, 1, 3), ov_error_none);
  // Every bad slot is reported: an empty one and one of the wrong type.
  ov_model_set_expression(model, 1, ov_number_make_expression(1));
  EXPECT_EQ(run(l), ov_error_invalid_expression);
  EXPECT_EQ(log, heading("L") + "No expression at index 0\nInvalid expression at index 1\n");
  // A label state shared by two states is no unique state.
  ov_model_set_expression(model, 0, ov_label_make_expression("b"));
  ov_model_set_expression(model, 1, ov_label_make_expression("a"));
  EXPECT_EQ(run(l), ov_error_invalid_expression);
  EXPECT_EQ(log, heading("L") + "Node L does not have a (unique) state labeled `a'\n");
  // The first slot's cells were written before the failure.
  std::vector<float> written = table("L");
  EXPECT_EQ(std::vector<float>(written.begin(), written.begin() + 3), (std::vector<float>{0, 1, 0}));
  ov_model_set_expression(model, 1, ov_label_make_expression("b"));
  EXPECT_EQ(ov_node_generate_table(l), ov_error_none);
  EXPECT_EQ(model->table_is_stale, 0);
  // A model that is not stale generates nothing and logs nothing.
  EXPECT_EQ(run(l), ov_error_none);
  EXPECT_EQ(log, "");
  EXPECT_EQ(ov_node_generate_table(node("P")), ov_error_usage);
  EXPECT_EQ(ov_domain_generate_tables(nullptr), ov_error_usage);
}

// Numbers through a utility node: values, and the codes of failures with
// the utility walk's log line.
TEST_F(Generate, NumberEvaluation) {
  ov_node_t u = ov_domain_new_node(domain, ov_category_utility, ov_kind_discrete);
  ov_node_set_name(u, "U");
  ov_model_t model = ov_node_new_model(u, nullptr);
  const struct {
    const char *text;
    double value;
    ov_error_t code;
  } cases[] = {
      {"mod (7, -2)", -1, ov_error_none},
      {"mod (-7, 2)", 1, ov_error_none},
      {"(-8) ^ 3", -512, ov_error_none},
      {"2 ^ 3 ^ 2", 512, ov_error_none},
      {"min (3, 1, 2) + max (1, 5, 2)", 6, ov_error_none},
      {"log2 (8) + log10 (100) + log (exp (1))", 6, ov_error_none},
      {"if (and (1 < 2, not (2 <= 1)), sqrt (16), 0)", 4, ov_error_none},
      {"floor (-1.5) * ceil (1.5) - abs (-3)", -7, ov_error_none},
      {"0 ^ 0", 0, ov_error_inappropriate_arguments},
      {"(-8) ^ 0.5", 0, ov_error_inappropriate_arguments},
      {"1 / (1 - 1)", 0, ov_error_division_by_zero},
      {"mod (1, 0)", 0, ov_error_inappropriate_arguments},
      {"log (0)", 0, ov_error_inappropriate_arguments},
      {"sqrt (-1)", 0, ov_error_inappropriate_arguments},
  };
  for (const auto &c : cases) {
    ov_expression_t e = ov_domain_string_to_expression(domain, c.text, nullptr, nullptr);
    ASSERT_NE(e, nullptr) << c.text;
    ASSERT_EQ(ov_model_set_expression(model, 0, e), ov_error_none);
    test::LogCapture capture(domain);
    EXPECT_EQ(ov_node_generate_table(u), c.code) << c.text;
    if (c.code == ov_error_none)
      EXPECT_FLOAT_EQ(ov_table_get_data(ov_node_get_table(u))[0], static_cast<float>(c.value)) << c.text;
    else
      EXPECT_EQ(capture.text(), "Using model for U to generate a utility table\n(): evaluation failed") << c.text;
  }
}

TEST_F(Generate, ClosedFormValues) {
  const struct {
    const char *child, *text;
    std::vector<double> expected; // for every configuration of P and I
  } cases[] = {
      // P(X >= 1) for a mean of 2 is exp(-1/2); the scale is the mean.
      {"CP", "Exponential (2)", {1 - std::exp(-0.5), std::exp(-0.5) - std::exp(-1), std::exp(-1)}},
      {"CP", "Poisson (0)", {1, 0, 0}},
      {"CP", "Uniform (0.5, 2.5)", {0.25, 0.5, 0.25}},
      {"CN", "Uniform (7, 8)", {0.25, 0.25, 0.25, 0.25}},
      {"CN", "Binomial (3, 0.5)", {0.125, 0.375, 0.375, 0.125}},
      {"CN", "Geometric (0.5)", {0.5, 0.25, 0.125, 0.125}},
      {"CB", "NoisyOR (false, 0.3, P == \"p0\", 0.5)", {0.5, 0.5}},
      {"CB", "NoisyOR (false, 0.3)", {1, 0}},
      {"CL", "if (P == \"p1\", Distribution (1, 3), Distribution (1, 0))", {1, 0}},
  };
  for (const auto &c : cases) {
    ASSERT_EQ(generate(c.child, c.text), ov_error_none) << c.text << log;
    std::vector<float> t = table(c.child);
    // The first configuration (P = p0, I below 0).
    for (std::size_t j = 0; j < c.expected.size(); ++j)
      EXPECT_NEAR(t[j], c.expected[j], 1e-6) << c.text << " state " << j;
  }
  // The if chose per configuration: P = p1 gives the distribution.
  EXPECT_EQ(table("CL")[6], 0.25f);
  // NoisyOR with a true condition for P = p1 only.
  ASSERT_EQ(generate("CB", "NoisyOR (P == \"p1\", 0.3)"), ov_error_none);
  EXPECT_NEAR(table("CB")[6], 0.3f, 1e-7);
  // A Normal far in one tail keeps its tiny mass, P(12 <= Z < 13), where
  // a difference of distribution functions near 1 would cancel to 0.
  ASSERT_EQ(generate("CI", "Normal (-12, 1)"), ov_error_none);
  EXPECT_NEAR(table("CI")[1] / 1.776482112077679e-33, 1.0, 1e-5);
}

// I's middle state [0, 2) is sampled at the midpoints of equal parts; its
// unbounded states are bound once, to -1 and to 2 * 1.001.
TEST_F(Generate, IntervalParentsAreSampled) {
  ov_node_t cu = node("CU");
  ASSERT_EQ(generate("CU", "I / 2"), ov_error_invalid_expression); // -0.5 for I below 0
  EXPECT_EQ(log, heading("CU") + "Value for node CU is out of bounds: -0.5\n");
  ASSERT_EQ(generate("CU", "if (I < 0, 0.2, if (I > 2, 1.2, I * 0.75))"), ov_error_none);
  ov_model_set_number_of_samples_per_interval(ov_node_get_model(cu), 4);
  test::LogCapture capture(domain);
  ASSERT_EQ(ov_node_generate_table(cu), ov_error_none);
  // Samples 0.25, 0.75, 1.25, 1.75 give 0.1875, 0.5625, 0.9375, 1.3125.
  std::vector<float> t = table("CU");
  EXPECT_EQ(std::vector<float>(t.begin(), t.begin() + 9), (std::vector<float>{1, 0, 0, 0.25f, 0.5f, 0.25f, 0, 0, 1}));
  EXPECT_EQ(capture.text(), heading("CU") + "(0,1,0): 0.25 (min=0, max=1)\n(0,1,1): 0.5 (min=0, max=1)\n"
                                            "(0,1,2): 0.25 (min=0, max=1)\n(1,1,0): 0.25 (min=0, max=1)\n"
                                            "(1,1,1): 0.5 (min=0, max=1)\n(1,1,2): 0.25 (min=0, max=1)\n");
  // One sample is the midpoint alone.
  ov_model_set_number_of_samples_per_interval(ov_node_get_model(cu), 1);
  ASSERT_EQ(ov_node_generate_table(cu), ov_error_none);
  EXPECT_EQ(table("CU")[4], 1.0f);
}

// Compilation generates stale tables, and a changed model is generated
// again at the next propagation.
TEST(GenerateCompile, CompileAndPropagationUseGeneratedTables) {
  const char *text = R"(
node A { states = ("a0" "a1"); }
node X { states = ("" "" ""); subtype = number; state_values = (0 1 2); }
potential (A) { data = (0.25 0.75); }
potential (X | A) { model_nodes = (A); model_data = (Binomial (2, 0.5), Binomial (2, 0.1)); }
)";
  ov_domain_t d = ov_net_parse_from_string(text, nullptr);
  ASSERT_NE(d, nullptr);
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  ov_node_t x = ov_domain_get_node_by_name(d, "X");
  EXPECT_NEAR(ov_node_get_belief(x, 2), 0.25 * 0.25 + 0.75 * 0.01, 1e-6);
  ov_model_t m = ov_node_get_model(x);
  ov_expression_t e = ov_domain_string_to_expression(d, "Binomial (2, 1)", nullptr, nullptr);
  ASSERT_EQ(ov_model_set_expression(m, 0, e), ov_error_none);
  ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
  EXPECT_NEAR(ov_node_get_belief(x, 2), 0.25 + 0.75 * 0.01, 1e-6);
  // A failing generation fails the propagation with its code.
  ASSERT_EQ(ov_model_set_expression(m, 0, ov_domain_string_to_expression(d, "Binomial (3, 1)", nullptr, nullptr)),
            ov_error_none);
  EXPECT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_insufficient_state_range);
  ov_domain_delete(d);
}

// A class generates the tables of its own nodes, as a domain does.
TEST(GenerateCompile, ClassesGenerateTheirTables) {
  ov_class_collection_t cc = ov_new_class_collection();
  ov_class_t c = ov_cc_new_class(cc);
  ov_node_t x = ov_class_new_node(c, ov_category_chance, ov_kind_discrete);
  ov_node_set_name(x, "X");
  ov_node_set_number_of_states(x, 3);
  ov_node_set_subtype(x, ov_subtype_number);
  for (int i = 0; i < 3; ++i) ov_node_set_state_value(x, i, i);
  ov_node_t none[] = {nullptr};
  ov_model_t m = ov_node_new_model(x, none);
  ASSERT_EQ(ov_model_set_expression(m, 0, ov_class_string_to_expression(c, "Binomial (2, 0.5)", nullptr, nullptr)),
            ov_error_none);
  ASSERT_EQ(ov_class_generate_tables(c), ov_error_none);
  const ov_number_t *data = ov_table_get_data(ov_node_get_table(x));
  EXPECT_EQ(std::vector<float>(data, data + 3), (std::vector<float>{0.25f, 0.5f, 0.25f}));
  ov_cc_delete(cc);
}

} // namespace
} // namespace orvel
