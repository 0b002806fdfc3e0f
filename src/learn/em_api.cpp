// Exported calls of EM learning and the log-likelihood criteria.
#include "api/boundary.h"
#include "learn/em.h"

using namespace orvel;

extern "C" {

ov_status_t ov_domain_learn_tables(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  return guarded_status([&] { return domain_learn_tables(domain); });
}

ov_status_t ov_domain_learn_class_tables(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  return guarded_status([&] { return domain_learn_class_tables(domain); });
}

ov_double_t ov_domain_get_log_likelihood(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return 1.0;
  return guarded(1.0, [&] { return domain_log_likelihood(domain); });
}

ov_double_t ov_domain_get_AIC(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return 1.0;
  return guarded(1.0, [&] { return domain_aic(domain); });
}

ov_double_t ov_domain_get_BIC(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return 1.0;
  return guarded(1.0, [&] { return domain_bic(domain); });
}

} // extern "C"
