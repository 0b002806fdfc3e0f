// Exported calls that read and write case files and data files.
#include "api/boundary.h"
#include "io/case_files.h"
#include "model/domain.h"
#include "model/node.h"

using namespace orvel;

namespace {

// A non-empty list of chance and decision nodes of the domain.
bool valid_case_nodes(const ov_domain_s *domain, ov_node_t *nodes) noexcept {
  if (nodes == nullptr || nodes[0] == nullptr) return false;
  for (ov_node_t *node = nodes; *node != nullptr; ++node) {
    if ((*node)->home != domain) return false;
    if ((*node)->category != ov_category_chance && (*node)->category != ov_category_decision) return false;
  }
  return true;
}

// Every index of the list (ending at a negative one) names a case.
bool valid_case_indices(const ov_domain_s *domain, const ov_index_t *cases) noexcept {
  if (cases == nullptr) return true;
  for (; *cases >= 0; ++cases)
    if (static_cast<std::uint64_t>(*cases) >= domain->case_count) return false;
  return true;
}

} // namespace

extern "C" {

ov_status_t ov_domain_parse_case(ov_domain_t domain, ov_string_t file_name, ov_parse_error_handler_t handler,
                                 void *data) {
  // Findings belong to domains; a class has none.
  if (check_usage(domain == nullptr || domain->is_class() || file_name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return case_file_parse(domain, file_name, handler, data); });
}

ov_status_t ov_domain_save_case(ov_domain_t domain, ov_string_t file_name) {
  if (check_usage(domain == nullptr || domain->is_class() || file_name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return case_file_save(domain, file_name); });
}

ov_status_t ov_domain_parse_cases(ov_domain_t domain, ov_string_t file_name, ov_parse_error_handler_t handler,
                                  void *data) {
  if (check_usage(domain == nullptr || file_name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return data_file_parse(domain, file_name, handler, data); });
}

ov_status_t ov_domain_save_cases(ov_domain_t domain, ov_string_t file_name, ov_node_t *nodes, const ov_index_t *cases,
                                 int include_counts, ov_string_t separator, ov_string_t missing) {
  if (check_usage(domain == nullptr || file_name == nullptr || !valid_case_nodes(domain, nodes) ||
                  !valid_case_indices(domain, cases) || separator == nullptr || missing == nullptr))
    return ov_error_usage;
  return guarded_status(
      [&] { return data_file_save(domain, file_name, nodes, cases, include_counts != 0, separator, missing); });
}

} // extern "C"
