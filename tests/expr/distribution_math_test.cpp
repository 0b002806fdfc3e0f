// The distribution numerics against values computed independently at high
// precision (tests/data/distribution_reference.tsv, written by
// scripts/distribution-reference.py), and their failure codes.
#include <gtest/gtest.h>

#include <cfloat>
#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "expr/distribution_math.h"
#include "orvel.h"

namespace orvel {
namespace {

double read_double(const std::string &text) {
  double v = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), v);
  if (result.ec == std::errc::result_out_of_range) return text[0] == '-' ? -0.0 : 0.0; // below the subnormals
  EXPECT_EQ(result.ptr, text.data() + text.size()) << text;
  return v;
}

// One state of a number child from a filler.
template <typename Fill> double state_value(Fill fill, double n, double k) {
  std::vector<double> out(static_cast<std::size_t>(n));
  EXPECT_EQ(fill(out.data()), 0);
  return out[static_cast<std::size_t>(k)];
}

double evaluate(const std::string &name, const std::vector<double> &x) {
  double p, q;
  if (name == "erf") return error_function(x[0]);
  if (name == "erfc") return complementary_error_function(x[0]);
  if (name == "erfcx") return scaled_complementary_error_function(x[0]);
  if (name == "lgamma") return log_gamma(x[0]);
  if (name == "gamma_p" || name == "gamma_q") {
    EXPECT_EQ(incomplete_gamma_ratios(x[0], x[1], &p, &q), 0);
    return name == "gamma_p" ? p : q;
  }
  if (name == "beta_i" || name == "beta_ic") {
    EXPECT_EQ(incomplete_beta_ratios(x[0], x[1], x[2], 1 - x[2], &p, &q), 0);
    return name == "beta_i" ? p : q;
  }
  if (name == "normal") return normal_interval_probability(x[0], x[1], x[2], x[3]);
  if (name == "gamma") return gamma_interval_probability(x[0], x[1], x[2], x[3]);
  if (name == "chisq") return chi_square_upper_tail(x[0], x[1]);
  if (name == "beta") return beta_interval_probability(x[0], x[1], x[2], x[3], x[4], x[5]);
  if (name == "weibull") return weibull_interval_probability(x[0], x[1], x[2], x[3]);
  if (name == "poisson") return poisson_interval_probability(x[0], x[1], x[2]);
  if (name == "binomial") return binomial_interval_probability(x[0], x[1], x[2], x[3]);
  if (name == "negbin") return negative_binomial_interval_probability(x[0], x[1], x[2], x[3]);
  if (name == "binomial_point") return binomial_probability(x[0], x[1], x[2]);
  const auto n = static_cast<std::uint32_t>(x.size() > 2 ? x[x.size() - 2] : 0);
  if (name == "poisson_values") return state_value([&](double *o) { return poisson_values(x[0], n, o); }, n, x[2]);
  if (name == "negbin_values")
    return state_value([&](double *o) { return negative_binomial_values(x[0], x[1], n, o); }, n, x[3]);
  if (name == "geometric_values") return state_value([&](double *o) { return geometric_values(x[0], n, o); }, n, x[2]);
  ADD_FAILURE() << "unknown function " << name;
  return NAN;
}

// Relative error at most 1e-6, measured against max(|expected|, DBL_MIN):
// below the normal range of double, where a result is subnormal or flushed
// to zero, it need only be within 1e-6 * DBL_MIN of the reference.
TEST(DistributionMath, MatchesHighPrecisionReference) {
  std::ifstream file(ORVEL_TEST_DATA "/distribution_reference.tsv");
  ASSERT_TRUE(file) << "distribution_reference.tsv";
  std::string line;
  int rows = 0;
  while (std::getline(file, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name, args, expected_text;
    std::getline(fields, name, '\t');
    std::getline(fields, args, '\t');
    std::getline(fields, expected_text, '\t');
    std::vector<double> x;
    std::istringstream arg_stream(args);
    for (std::string arg; std::getline(arg_stream, arg, ',');) x.push_back(read_double(arg));
    const double expected = read_double(expected_text);
    const double got = evaluate(name, x);
    const double scale = std::fmax(std::fabs(expected), DBL_MIN);
    EXPECT_LE(std::fabs(got - expected), 1e-6 * scale) << line << "\n  got " << got;
    ++rows;
  }
  EXPECT_GT(rows, 300);
}

TEST(DistributionMath, FailureCodes) {
  double p, q;
  // Incomplete gamma: arguments outside the domain, and a shape so large
  // that no expansion reaches an argument within rounding of it.
  EXPECT_EQ(incomplete_gamma_ratios(-1, 1, &p, &q), ov_error_usage);
  EXPECT_EQ(incomplete_gamma_ratios(1, -1, &p, &q), ov_error_usage);
  EXPECT_EQ(incomplete_gamma_ratios(0, 0, &p, &q), ov_error_usage);
  EXPECT_EQ(incomplete_gamma_ratios(1e35, 1e35 * (1 + DBL_EPSILON), &p, &q), ov_error_computation_failed);
  EXPECT_EQ(incomplete_gamma_ratios(1e35, 1e35, &p, &q), ov_error_computation_failed);
  EXPECT_EQ(gamma_interval_probability(1e35, 1, 1e35, 2e35), -1);
  EXPECT_EQ(ov_error_code(), ov_error_computation_failed);
  EXPECT_EQ(chi_square_upper_tail(2e35, 2e35), -1);
  EXPECT_EQ(ov_error_code(), ov_error_computation_failed);
  // Incomplete beta: negative or empty shapes, x and y that do not add to 1.
  EXPECT_EQ(incomplete_beta_ratios(-1, 1, 0.5, 0.5, &p, &q), ov_error_usage);
  EXPECT_EQ(incomplete_beta_ratios(0, 0, 0.5, 0.5, &p, &q), ov_error_usage);
  EXPECT_EQ(incomplete_beta_ratios(1, 1, 0.5, 0.5 + 1e-15, &p, &q), ov_error_usage);
  EXPECT_EQ(incomplete_beta_ratios(0, 1, 0, 1, &p, &q), ov_error_usage);
  EXPECT_EQ(incomplete_beta_ratios(1, 0, 1, 0, &p, &q), ov_error_usage);
  EXPECT_EQ(incomplete_beta_ratios(1, 1, 1.5, -0.5, &p, &q), ov_error_usage);
  EXPECT_EQ(beta_interval_probability(-1, 1, 0, 1, 0.2, 0.5), -1);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
  // Binomial by exact product: counts must be exact integers below 2^32.
  for (const auto &[k, n, pr] : {std::tuple{1.5, 3.0, 0.5},
                                 {1.0, 3.5, 0.5},
                                 {-1.0, 3.0, 0.5},
                                 {1.0, 4294967296.0, 0.5},
                                 {1.0, 3.0, 1.5},
                                 {1.0, 3.0, NAN}}) {
    EXPECT_EQ(binomial_probability(k, n, pr), -1) << k << " " << n << " " << pr;
    EXPECT_EQ(ov_error_code(), ov_error_inappropriate_arguments);
  }
  double out[4];
  EXPECT_EQ(binomial_values(2.5, 0.5, 4, out), ov_error_inappropriate_arguments);
}

// The number-child fillers give distributions: every state, the tail
// included, adds up to 1.
TEST(DistributionMath, NumberChildrenSumToOne) {
  std::vector<double> out(200);
  auto total = [&](std::uint32_t n) {
    double s = 0;
    for (std::uint32_t k = 0; k < n; ++k) s += out[k];
    return s;
  };
  ASSERT_EQ(binomial_values(30, 0.3, 31, out.data()), 0);
  EXPECT_NEAR(total(31), 1, 1e-14);
  ASSERT_EQ(poisson_values(40, 60, out.data()), 0);
  EXPECT_NEAR(total(60), 1, 1e-14);
  ASSERT_EQ(negative_binomial_values(3.5, 0.4, 50, out.data()), 0);
  EXPECT_NEAR(total(50), 1, 1e-14);
  ASSERT_EQ(geometric_values(0.2, 10, out.data()), 0);
  EXPECT_NEAR(total(10), 1, 1e-14);
}

} // namespace
} // namespace orvel
