// Exported calls that make a junction forest smaller after compilation.
#include <cmath>

#include "api/boundary.h"
#include "inference/compression.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_double_t ov_domain_approximate(ov_domain_t domain, ov_double_t epsilon) {
  if (check_usage(domain == nullptr || !(epsilon >= 0.0 && epsilon < 1.0))) return -1.0;
  if (refuse(compiled_state(domain)) || refuse(approximation_state(domain))) return -1.0;
  return guarded(-1.0, [&] { return domain_approximate(domain, epsilon); });
}

ov_double_t ov_domain_compress(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1.0;
  if (refuse(compiled_state(domain)) || refuse(compression_state(domain))) return -1.0;
  return guarded(-1.0, [&] { return domain_compress(domain); });
}

} // extern "C"
