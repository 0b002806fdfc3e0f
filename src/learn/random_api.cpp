// Exported calls on a domain's random number generator.
#include "api/boundary.h"
#include "learn/random.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_status_t ov_domain_seed_random(ov_domain_t domain, uint32_t seed) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  random_seed(*domain->random, seed);
  return ov_error_none;
}

ov_double_t ov_domain_get_uniform_deviate(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  return random_uniform(*domain->random);
}

ov_double_t ov_domain_get_normal_deviate(ov_domain_t domain, ov_double_t mean, ov_double_t variance) {
  if (check_usage(domain == nullptr || !(variance >= 0.0))) return -1.0;
  return random_normal(*domain->random, mean, variance);
}

} // extern "C"
