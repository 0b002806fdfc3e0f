// The compile driver: the order of the stages and the roll-back of a failed
// compile.
#include "compile/compile.h"

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "compile/forest.h"
#include "compile/triangulate.h"
#include "inference/propagation.h"
#include "table/table.h"

namespace orvel {

namespace {

void report(ov_progress_function_t progress, const char *stage) {
  if (progress != nullptr) progress(stage);
}

// Runs stages and turns an allocation failure into its code, so that the
// caller can roll back.
template <class F> ov_status_t run_stages(F &&stages) {
  try {
    return stages();
  } catch (const std::bad_alloc &) {
    return fail(ov_error_no_memory);
  }
}

// Forgets what the failed compile made (and the triangulation if it made
// that too), then records the first error again.
ov_status_t roll_back(Domain *domain, ov_status_t code, bool forget_triangulation) {
  release_forest(domain, forget_triangulation);
  log_flush(domain);
  return fail(static_cast<ov_error_t>(code));
}

} // namespace

ov_status_t compile_qualitatively(Domain *domain, ov_progress_function_t progress) {
  const bool was_triangulated = domain_is_triangulated(domain);
  if (!was_triangulated) {
    report(progress, "Triangulating");
    if (domain_triangulate(domain, ov_tm_fill_in_weight) != ov_error_none) return ov_error_code();
  }
  ov_status_t code = run_stages([&]() -> ov_status_t {
    report(progress, "Creating cliques");
    if (build_cliques(domain) != ov_error_none || order_cliques(domain) != ov_error_none ||
        log_cliques(domain) != ov_error_none)
      return ov_error_code();
    report(progress, "Building junction tree(s)");
    if (build_junction_trees(domain) != ov_error_none || build_node_tables(domain) != ov_error_none ||
        build_chain_normalizers(domain) != ov_error_none || assign_potentials(domain) != ov_error_none)
      return ov_error_code();
    return log_flush(domain);
  });
  if (code != ov_error_none) return roll_back(domain, code, !was_triangulated);
  return set_error(ov_error_none);
}

namespace {

// Refuses, before anything is allocated, table data whose size has
// saturated: of one table, or of all the tables still to be allocated
// together. Such an allocation cannot succeed, and allocating the tables
// that do fit first would only take memory the compile then gives back.
ov_status_t check_table_sizes(const Domain *domain) {
  Size total = 0;
  for (auto &table : domain->tables) {
    if (table->data) continue;
    total = size_add(total, table->size);
    if (table->cg_stride > 0) total = size_add(total, size_multiply(table->size, table->cg_stride));
  }
  if (total == size_overflow) return fail(ov_error_no_memory);
  return ov_error_none;
}

} // namespace

ov_status_t compile_quantitatively(Domain *domain, ov_progress_function_t progress) {
  report(progress, "Allocating space for table data");
  if (check_table_sizes(domain) != ov_error_none) return ov_error_code();
  for (auto &table : domain->tables)
    if (table_allocate(table.get()) != ov_error_none) return ov_error_code();
  report(progress, "Global propagation");
  if (check_probability_potentials(domain) != ov_error_none) return ov_error_code();
  // The first propagation needs the domain to count as compiled.
  domain->compiled = 1;
  ov_status_t code = run_stages([&]() -> ov_status_t {
    for (auto &tree : domain->forest->junction_trees) {
      tree->tables_changed = true;
      if (jt_initialize(tree.get(), true) != ov_error_none) return ov_error_code();
    }
    return log_initial_beliefs(domain);
  });
  domain->compiled = 0;
  if (code != ov_error_none) return fail(static_cast<ov_error_t>(code));
  if (log_flush(domain) != ov_error_none) return ov_error_io;
  domain->compiled = 1;
  return set_error(ov_error_none);
}

ov_status_t domain_compile_with_progress(Domain *domain, ov_progress_function_t progress) {
  const bool was_triangulated = domain_is_triangulated(domain);
  const bool had_forest = !domain->forest->junction_trees.empty();
  if (!had_forest && compile_qualitatively(domain, progress) != ov_error_none) return ov_error_code();
  ov_status_t code = run_stages([&] { return compile_quantitatively(domain, progress); });
  if (code == ov_error_none) return ov_error_none;
  // A forest made by an earlier call stays, so that the call can be repeated.
  if (had_forest) return fail(static_cast<ov_error_t>(code));
  return roll_back(domain, code, !was_triangulated);
}

} // namespace orvel
