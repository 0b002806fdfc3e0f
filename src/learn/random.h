// The random number generator of a domain: the floating-point subtractive
// lagged-Fibonacci generator with lags 100 and 37 and sums modulo 1, as
// published by Knuth, so that a seed gives the same sequence everywhere.
#pragma once

#include <array>
#include <cstdint>

namespace orvel {

struct RandomState {
  static constexpr int lag_long = 100; // KK
  static constexpr int lag_short = 37; // LL
  static constexpr int batch = 1009;   // outputs computed per refill, of which 100 are used
  std::array<double, lag_long> lags{}; // the generator's state
  std::array<double, batch> outputs{}; // the current batch
  int next = 0;                        // read position in outputs
  int unread = 0;                      // outputs of the batch left to hand out
};

// Seeds the generator; only the low 30 bits of the seed count.
void random_seed(RandomState &state, std::uint32_t seed) noexcept;
// The next uniform deviate in [0, 1).
double random_uniform(RandomState &state) noexcept;
// A normal deviate with the given mean and (non-negative) variance, by the
// ratio-of-uniforms method; a zero variance returns the mean and draws
// nothing.
double random_normal(RandomState &state, double mean, double variance) noexcept;
// Picks a state in proportion to weights[0..count-1] with the given total.
// Half of the draws scan from the first state up and half from the last
// down, which halves the expected length of the scan.
std::uint32_t random_choose(RandomState &state, const float *weights, std::uint32_t count, float total) noexcept;

} // namespace orvel
