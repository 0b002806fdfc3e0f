// The numerical side of the standard distributions: the probability that a
// distribution gives to one interval state, the probabilities of all states
// of a number node whose values are 0, 1, ..., n - 1, and the special
// functions beneath them (error function, log gamma, incomplete gamma and
// beta ratios).
//
// Conventions. Every function works in double precision and is pure apart
// from the per-thread error slot. Functions that return a probability return
// a value in [0, 1] on success and leave the error state untouched; where one
// can fail, it returns -1 and records the code with set_error (the caller
// reads it with ov_error_code()). Functions that return ov_status_t return 0
// on success and otherwise the recorded code. An interval [x1, x2) may have
// infinite ends: a bound at or beyond DBL_MAX in size stands for infinity.
// Parameter checks of the operators (variance > 0 and so on) are the
// caller's; the functions below assume them unless they say otherwise.
#pragma once

#include <cstdint>

#include "orvel.h"

namespace orvel {

// ---- Special functions -------------------------------------------------

// erf(x), erfc(x) and exp(x * x) * erfc(x) by rational Chebyshev
// approximations (split points 0.46875 and 4). Never fail; erfc underflows
// to 0 beyond x of about 26.5, and the scaled form stays finite.
double error_function(double x) noexcept;
double complementary_error_function(double x) noexcept;
double scaled_complementary_error_function(double x) noexcept;

// ln |Gamma(a)| for a > 0. Never fails.
double log_gamma(double a) noexcept;

// The regularised incomplete gamma ratios P(a, x) and Q(a, x) = 1 - P(a, x),
// each to about 5e-15 relative. Failure codes: usage for a negative a or x,
// or a and x both 0; computation_failed when a >= 20 and x lies so close to
// a that the uniform asymptotic expansion cannot be used. On failure *p and
// *q are left undefined.
ov_status_t incomplete_gamma_ratios(double a, double x, double *p, double *q) noexcept;

// The regularised incomplete beta ratio I_x(a, b) in *w and its complement
// 1 - I_x(a, b) in *w1, with y = 1 - x given separately so that x near 1
// loses nothing, to about 1e-15 relative. Failure code usage when a, b, x
// or y is negative, x or y exceeds 1, |x + y - 1| > 6.661338147750939e-16,
// a and b both 0, or x = 0 with a = 0 (and the mirror cases y = 0 with
// b = 0). On failure *w and *w1 are left undefined.
ov_status_t incomplete_beta_ratios(double a, double b, double x, double y, double *w, double *w1) noexcept;

// ---- Interval probabilities of continuous distributions ---------------

// P(x1 <= X < x2) for X ~ Normal(mean, variance), variance > 0; 0 when
// x2 <= x1. Differences are taken on the side of the smaller tail, so far
// tails keep full relative accuracy down to underflow. Never fails.
double normal_interval_probability(double mean, double variance, double x1, double x2) noexcept;

// P(x1 <= X < x2) for X ~ Weibull(shape a, scale b), survivor
// exp(-(x / b)^a); a = 1 is the exponential with mean b. Negative ends are
// clamped to 0. Never fails.
double weibull_interval_probability(double shape, double scale, double x1, double x2) noexcept;

// The length of [x1, x2) within [a, b), divided by b - a; a < b. Never fails.
double uniform_interval_probability(double a, double b, double x1, double x2) noexcept;

// P(x1 <= X < x2) for X ~ Gamma(shape, scale), both > 0. A negative x1 is
// clamped to 0. On failure returns -1 with the code of
// incomplete_gamma_ratios recorded (computation_failed in practice).
double gamma_interval_probability(double shape, double scale, double x1, double x2) noexcept;

// P(x1 <= X < x2) for X = lo + (hi - lo) B with B ~ Beta(a, b), a, b > 0 and
// lo < hi. Ends are clamped to [lo, hi]. On failure returns -1 with the code
// of incomplete_beta_ratios recorded.
double beta_interval_probability(double a, double b, double lo, double hi, double x1, double x2) noexcept;

// ---- Interval probabilities of discrete distributions -----------------
// The probability of the integers k with ceil(x1) <= k < ceil(x2).

// X ~ Poisson(mean), mean >= 0. On failure returns -1 with the code of
// incomplete_gamma_ratios recorded.
double poisson_interval_probability(double mean, double x1, double x2) noexcept;

// X ~ Binomial(trials, p), trials a non-negative integer, 0 <= p <= 1. On
// failure returns -1 with the code of incomplete_beta_ratios recorded.
double binomial_interval_probability(double trials, double p, double x1, double x2) noexcept;

// X ~ NegativeBinomial(r, p): the number of failures before the r-th
// success, success probability p, P(X = k) = C(k + r - 1, k) p^r (1 - p)^k;
// r > 0, 0 <= p <= 1. Geometric(p) is r = 1. On failure returns -1 with the
// code of incomplete_beta_ratios recorded.
double negative_binomial_interval_probability(double r, double p, double x1, double x2) noexcept;

// ---- Number children: states with values 0, 1, ..., n - 1 --------------

// P(X = k) for X ~ Binomial(trials, p), from C(trials, k) as an exact
// product (no logarithms) in extended precision, then p^k (1 - p)^(trials - k)
// by repeated multiplication; 0 when k > trials. Failure: k or trials not an
// exact integer in [0, 2^32), or p outside [0, 1], gives
// inappropriate_arguments and returns -1.
double binomial_probability(double k, double trials, double p) noexcept;

// out[k] = binomial_probability(k, trials, p) for k = 0 .. n - 1. Failure
// codes: those of binomial_probability (out is then partly written).
ov_status_t binomial_values(double trials, double p, std::uint32_t n, double *out) noexcept;

// out[0] = exp(-mean), out[k] = mean * out[k - 1] / k up to n - 2, and
// out[n - 1] = P(X >= n - 1) for X ~ Poisson(mean), mean >= 0. Failure
// codes: those of poisson_interval_probability for the last state.
ov_status_t poisson_values(double mean, std::uint32_t n, double *out) noexcept;

// out[0] = p^r (0 when p <= 0), out[k] = (k - 1 + r) (1 - p) out[k - 1] / k
// up to n - 2, and out[n - 1] = P(X >= n - 1) for X ~ NegativeBinomial(r, p).
// Failure codes: those of negative_binomial_interval_probability.
ov_status_t negative_binomial_values(double r, double p, std::uint32_t n, double *out) noexcept;

// out[k] = p (1 - p)^k up to n - 2, and out[n - 1] = (1 - p)^(n - 1).
// Never fails; returns 0.
ov_status_t geometric_values(double p, std::uint32_t n, double *out) noexcept;

// ---- For tests of independence ------------------------------------------

// P(X >= x) for X ~ chi-square with `df` > 0 degrees of freedom: the gamma
// interval probability of [x, DBL_MAX) with shape df / 2 and scale 2. On
// failure returns -1 with the code recorded.
double chi_square_upper_tail(double x, double df) noexcept;

} // namespace orvel
