// The identification calls.
#include "api/boundary.h"

extern "C" {

ov_string_t ov_get_user_name(void) {
  orvel::set_error(ov_error_none);
  return "Orvel user";
}

ov_string_t ov_get_organization(void) {
  orvel::set_error(ov_error_none);
  return "Orvel";
}

ov_string_t ov_get_package_name(void) {
  orvel::set_error(ov_error_none);
  return "Orvel 0.1";
}

} // extern "C"
