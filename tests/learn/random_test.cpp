// The domain's random number generator.
#include <gtest/gtest.h>

#include "learn/random.h"
#include "orvel.h"

namespace orvel {
namespace {

// The check value that the generator's author published: after seeding
// with 310952 and computing 2009 batches of 1009 numbers, the first lag
// entry is 0.36410514377569680455.
TEST(Random, MatchesThePublishedCheckValue) {
  RandomState state;
  random_seed(state, 310952);
  for (int i = 0; i < 2009 * 100; ++i) random_uniform(state);
  EXPECT_EQ(state.lags[0], 0.36410514377569680455);
}

// A new domain uses the default seed; seeds equal modulo 2^30 give one
// sequence, and another seed another.
TEST(Random, SeedsEqualModulo2To30GiveOneSequence) {
  ov_domain_t a = ov_new_domain(), b = ov_new_domain(), c = ov_new_domain(), d = ov_new_domain();
  ov_domain_seed_random(a, 12345);
  ov_domain_seed_random(b, 12345u + (1u << 30));
  ov_domain_seed_random(d, 310952);
  bool differs_from_default = false;
  for (int i = 0; i < 300; ++i) {
    double x = ov_domain_get_uniform_deviate(a), y = ov_domain_get_uniform_deviate(c);
    ASSERT_EQ(x, ov_domain_get_uniform_deviate(b));
    ASSERT_EQ(y, ov_domain_get_uniform_deviate(d));
    ASSERT_GE(x, 0.0);
    ASSERT_LT(x, 1.0);
    differs_from_default |= x != y;
  }
  EXPECT_TRUE(differs_from_default);
  for (ov_domain_t domain : {a, b, c, d}) ov_domain_delete(domain);
}

TEST(Random, NormalDeviates) {
  ov_domain_t domain = ov_new_domain();
  // A zero variance draws nothing.
  ov_domain_seed_random(domain, 99);
  EXPECT_EQ(ov_domain_get_normal_deviate(domain, 3.5, 0.0), 3.5);
  double first = ov_domain_get_uniform_deviate(domain);
  ov_domain_seed_random(domain, 99);
  EXPECT_EQ(ov_domain_get_uniform_deviate(domain), first);

  const int n = 100000;
  double sum = 0, squares = 0;
  for (int i = 0; i < n; ++i) {
    double x = ov_domain_get_normal_deviate(domain, 2.0, 4.0);
    sum += x;
    squares += x * x;
  }
  double mean = sum / n, variance = squares / n - mean * mean;
  EXPECT_NEAR(mean, 2.0, 0.05);
  EXPECT_NEAR(variance, 4.0, 0.1);
  ov_domain_delete(domain);
}

} // namespace
} // namespace orvel
