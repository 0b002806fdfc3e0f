// The log-only check of conditional probability tables at compile time.
#include <algorithm>

#include "api/error.h"
#include "api/locale_guard.h"
#include "compile/compile.h"
#include "expr/model.h"
#include "table/table.h"

namespace orvel {

namespace {

// Writes one line per table node, from the first to node `last` - 1, with
// the state that the flat index gives it.
ov_status_t log_configuration(Domain *domain, const Table *table, Size index, std::uint32_t last) {
  // Strides: the last discrete node varies fastest.
  std::vector<Size> strides(table->discrete_count, 1);
  for (std::uint32_t i = table->discrete_count; i-- > 1;) strides[i - 1] = strides[i] * table->nodes[i]->state_count;
  for (std::uint32_t i = 0; i < last; ++i) {
    Node *node = table->nodes[i];
    std::uint32_t state = (index / strides[i]) % node->state_count;
    const char *name = node_get_name(node);
    if (name == nullptr) return ov_error_code();
    if (log_printf(domain, "    %s = %s\n", name, state_label(node, state)) != ov_error_none) return ov_error_io;
  }
  return ov_error_none;
}

// Reports the rows of one node's table; invalid_probability_potential if a
// row has a negative entry or sums to zero.
ov_status_t check_node_potential(Domain *domain, Node *node) {
  Table *table = node->table;
  if (table == nullptr || !table->data) return fail(ov_error_error);
  const char *name = node_get_name(node);
  if (name == nullptr) return ov_error_code();
  const std::uint32_t n = node->state_count;
  const std::uint32_t own = table->discrete_count; // the node's own state is last among the discrete
  const ov_number_t *data = table->data.get();
  const Size rows = table->size / n;
  bool bad = false;
  double least = 0.0, greatest = 0.0;
  for (Size row = 0; row < rows; ++row) {
    double sum = 0.0;
    bool negative = false;
    for (std::uint32_t s = 0; s < n; ++s) {
      Size index = row * n + s;
      ov_number_t value = data[index];
      if (value >= 0) {
        sum += value;
        continue;
      }
      negative = bad = true;
      if (log_printf(domain, "\nPotential for %s has a negative value (%g) for:\n", name, static_cast<double>(value)) !=
              ov_error_none ||
          log_configuration(domain, table, index, own) != ov_error_none)
        return ov_error_code();
    }
    if (row == 0) least = greatest = sum;
    if (negative) continue;
    if (sum == 0.0) {
      bad = true;
      ov_status_t written = table->nodes.size() < 2
                                ? log_printf(domain, "\nPotential for %s is a zero-sum distribution\n", name)
                                : log_printf(domain, "\nPotential for %s has a zero-sum distribution for:\n", name);
      if (written != ov_error_none || log_configuration(domain, table, row * n, own - 1) != ov_error_none)
        return ov_error_code();
      continue;
    }
    least = std::min(least, sum);
    greatest = std::max(greatest, sum);
  }
  if (bad) return fail(ov_error_invalid_probability_potential);
  if (least * 0.0001 < greatest - least &&
      log_printf(domain,
                 "\nWarning: Conditional distributions for %s sum to different values:\n    min = %g\n    max = %g\n",
                 name, least, greatest) != ov_error_none)
    return ov_error_io;
  return set_error(ov_error_none);
}

} // namespace

ov_status_t check_probability_potentials(Domain *domain) {
  if (domain->log_file == nullptr) return set_error(ov_error_none);
  LocaleGuard guard;
  if (!guard.ok()) return ov_error_code();
  if (log_printf(domain, "\n\nChecking conditional probability potentials:\n") != ov_error_none) return ov_error_io;
  ov_status_t remembered = ov_error_none;
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
    Node *node = it->get();
    if (node->category != ov_category_chance || !node->is_discrete()) continue;
    if (node->model && node->model->table_is_stale) continue;
    ov_status_t code = check_node_potential(domain, node);
    if (code == ov_error_invalid_probability_potential)
      remembered = code;
    else if (code != ov_error_none)
      return code;
  }
  return fail(static_cast<ov_error_t>(remembered));
}

} // namespace orvel
