// Exported calls of compilation and triangulation.
#include "api/boundary.h"
#include "compile/compile.h"
#include "compile/compiled_forest.h"
#include "compile/triangulate.h"

using namespace orvel;

namespace {

bool cannot_compile(const ov_domain_s *domain) noexcept {
  return domain == nullptr || domain->chance_count + domain->decision_count == 0 || domain_is_compiled(domain);
}

} // namespace

extern "C" {

ov_status_t ov_domain_compile(ov_domain_t domain) {
  if (check_usage(cannot_compile(domain))) return ov_error_usage;
  return guarded_status([&] { return domain_compile_with_progress(domain, nullptr); });
}

ov_status_t ov_domain_compile_qualitatively(ov_domain_t domain, ov_progress_function_t progress) {
  if (check_usage(cannot_compile(domain) || !domain->forest->junction_trees.empty())) return ov_error_usage;
  return guarded_status([&] { return compile_qualitatively(domain, progress); });
}

ov_status_t ov_domain_compile_quantitatively(ov_domain_t domain, ov_progress_function_t progress) {
  if (check_usage(domain == nullptr || domain->forest->junction_trees.empty() || domain_is_compiled(domain)))
    return ov_error_usage;
  return guarded_status([&] { return compile_quantitatively(domain, progress); });
}

ov_status_t ov_domain_triangulate(ov_domain_t domain, ov_triangulation_method_t method) {
  if (check_usage(domain == nullptr || domain->is_class() || domain_is_triangulated(domain) ||
                  method < ov_tm_clique_size || method > ov_tm_total_weight))
    return ov_error_usage;
  return guarded_status([&] { return domain_triangulate(domain, method); });
}

ov_status_t ov_domain_set_max_number_of_separators(ov_domain_t domain, size_t count) {
  if (check_usage(domain == nullptr)) return ov_error_usage;
  domain->max_separators = count;
  return ov_error_none;
}

size_t ov_domain_get_max_number_of_separators(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return 0;
  return domain->max_separators;
}

ov_status_t ov_domain_triangulate_with_order(ov_domain_t domain, ov_node_t *order) {
  if (check_usage(domain == nullptr || domain->is_class() || domain_is_triangulated(domain) || order == nullptr))
    return ov_error_usage;
  return guarded_status([&] { return domain_triangulate_with_order(domain, order); });
}

ov_node_t *ov_domain_get_elimination_order(ov_domain_t domain) {
  if (check_usage(domain == nullptr || (domain->node_count() > 0 && !domain_is_triangulated(domain)))) return nullptr;
  return guarded<ov_node_t *>(nullptr, [&]() -> ov_node_t * {
    NodeList *order = domain_elimination_order(domain);
    return order == nullptr ? nullptr : order->data();
  });
}

} // extern "C"
