#include "learn/random.h"

#include <cmath>

#include "model/hooks.h"

namespace orvel {

namespace {

constexpr int KK = RandomState::lag_long;
constexpr int LL = RandomState::lag_short;

// (x + y) mod 1 for x, y in [0, 1).
inline double mod_sum(double x, double y) noexcept {
  double s = x + y;
  return s - static_cast<int>(s);
}

// Fills out[0..n) with the next n outputs (n >= KK) and advances the lags.
void fill_array(std::array<double, KK> &lags, double *out, int n) noexcept {
  int j = 0;
  for (; j < KK; ++j) out[j] = lags[j];
  for (; j < n; ++j) out[j] = mod_sum(out[j - KK], out[j - LL]);
  int i = 0;
  for (; i < LL; ++i, ++j) lags[i] = mod_sum(out[j - KK], out[j - LL]);
  for (; i < KK; ++i, ++j) lags[i] = mod_sum(out[j - KK], lags[i - LL]);
}

} // namespace

void RandomStateDeleter::operator()(RandomState *state) const noexcept { delete state; }

void random_state_assign(RandomState *to, const RandomState *from) noexcept { *to = *from; }

RandomStatePtr random_state_new(std::uint32_t seed) {
  RandomStatePtr state(new RandomState);
  random_seed(*state, seed);
  return state;
}

void random_seed(RandomState &state, std::uint32_t seed) noexcept {
  constexpr int TT = 70; // passes of squaring and shifting, plus one
  double u[KK + KK - 1];
  const double ulp = std::ldexp(1.0, -52);
  const std::uint32_t bits = seed & 0x3fffffffu;
  double ss = 2.0 * ulp * (static_cast<double>(bits) + 2.0);
  for (int j = 0; j < KK; ++j) {
    u[j] = ss;
    ss += ss;
    if (ss >= 1.0) ss -= 1.0 - 2 * ulp;
  }
  u[1] += ulp;
  for (std::uint32_t s = bits, t = TT - 1; t != 0;) {
    for (int j = KK - 1; j > 0; --j) {
      u[j + j] = u[j];
      u[j + j - 1] = 0.0;
    }
    for (int j = KK + KK - 2; j >= KK; --j) {
      u[j - (KK - LL)] = mod_sum(u[j - (KK - LL)], u[j]);
      u[j - KK] = mod_sum(u[j - KK], u[j]);
    }
    if (s & 1u) {
      for (int j = KK; j > 0; --j) u[j] = u[j - 1];
      u[0] = u[KK];
      u[LL] = mod_sum(u[LL], u[KK]);
    }
    if (s != 0)
      s >>= 1;
    else
      --t;
  }
  int j = 0;
  for (; j < LL; ++j) state.lags[j + KK - LL] = u[j];
  for (; j < KK; ++j) state.lags[j - LL] = u[j];
  for (int k = 0; k < 10; ++k) fill_array(state.lags, u, KK + KK - 1);
  state.next = 0;
  state.unread = 0;
}

double random_uniform(RandomState &state) noexcept {
  if (state.unread == 0) {
    fill_array(state.lags, state.outputs.data(), RandomState::batch);
    state.next = 0;
    state.unread = KK;
  }
  --state.unread;
  return state.outputs[state.next++];
}

double random_normal(RandomState &state, double mean, double variance) noexcept {
  if (variance == 0.0) return mean;
  for (;;) {
    double u;
    do u = random_uniform(state);
    while (u == 0.0);
    double w = random_uniform(state);
    double x = (w - 0.5) / u * 1.7155277699214135;
    if (x * x <= -4.0 * std::log(u)) return mean + x * std::sqrt(variance);
  }
}

std::uint32_t random_choose(RandomState &state, const float *weights, std::uint32_t count, float total) noexcept {
  float target = static_cast<float>(random_uniform(state) * total * 0.5);
  float sum = 0.0f;
  if (random_uniform(state) < 0.5) {
    for (std::uint32_t i = 0; i < count; ++i) {
      sum += weights[i];
      if (sum > target) return i;
    }
    return count - 1;
  }
  for (std::uint32_t i = count; i-- > 0;) {
    sum += weights[i];
    if (sum > target) return i;
  }
  return 0;
}

} // namespace orvel
