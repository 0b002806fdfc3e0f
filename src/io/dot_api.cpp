// Exported call that writes pictures of networks as Graphviz DOT.
#include "api/boundary.h"
#include "io/dot.h"
#include "model/domain.h"

using namespace orvel;

extern "C" {

ov_status_t ov_domain_save_as_dot(ov_domain_t domain, ov_string_t file_name, ov_dot_form_t form) {
  if (check_usage(domain == nullptr || file_name == nullptr ||
                  (form != ov_dot_network && form != ov_dot_beliefs && form != ov_dot_junction_tree)))
    return ov_error_usage;
  return guarded_status([&] { return dot_save_file(domain, file_name, form); });
}

} // extern "C"
