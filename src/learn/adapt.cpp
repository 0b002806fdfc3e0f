// Sequential adaptation by moment matching of Dirichlet distributions.
#include "learn/adapt.h"

#include <vector>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "inference/evidence.h"
#include "inference/propagation.h"
#include "learn/family.h"
#include "table/table.h"

namespace orvel {

namespace {

// What adapting one configuration reads: the posterior q of its states
// (summing to y, the probability of the configuration) and z, the
// probability of all other configurations.
struct Posterior {
  const double *q;
  double y, z;
};

// Replaces one configuration's distribution p (n states) and experience e
// with the Dirichlet of the posterior's mean, faded by f, and the strength
// that matches its spread. The complements are taken on whichever side
// keeps the digits of values near 1.
void update_configuration(ov_number_t *p, std::uint32_t n, ov_number_t &e, double f, const Posterior &post) {
  const double *q = post.q;
  const double y = post.y, z = post.z;
  const double strength = (f * y + z) * e;
  const double w = 1.0 / (strength + 1.0);
  double sum_a = 0.0, sum_b = 0.0, sum_c = 0.0, sum_d = 0.0, visited = 0.0;
  for (std::uint32_t i = 0; i < n; ++i) {
    const double old = p[i];
    const double a = z * old + q[i];
    const double r = (strength * old + a) * w;
    p[i] = static_cast<ov_number_t>(r);
    double c;
    if (old > 0.5) {
      c = visited;
      for (std::uint32_t j = i + 1; j < n; ++j) c += p[j];
    } else {
      c = 1.0 - old;
    }
    visited += old;
    double d;
    if (a > 0.5) {
      double g = y - q[i];
      if (g < q[i]) {
        g = 0.0;
        for (std::uint32_t j = 0; j < n; ++j)
          if (j != i) g += q[j];
      }
      d = c * z + g;
    } else {
      d = 1.0 - a;
    }
    const double h = r > 0.5 ? (c * strength + d) * w : 1.0 - r;
    sum_a += h * r;
    sum_b += a * d;
    sum_c += c * r;
    sum_d += d * old;
  }
  const double v = w * sum_b + sum_a;
  if (v > 0.0) e = static_cast<ov_number_t>(((w * sum_d + sum_c) / v) * strength);
}

double fading_of(const Node *node, std::uint64_t configuration) noexcept {
  return node->fading_table != nullptr ? node->fading_table->data[configuration] : 1.0;
}
bool adapts(double e, double f) noexcept { return e > 0.0 && f > 0.0 && f <= 1.0; }

ov_status_t adapt_node(Node *node) {
  Table *table = node->table;
  Table *experience = node->experience_table;
  if (table == nullptr || table_allocate(table) != ov_error_none || table_allocate(experience) != ov_error_none ||
      (node->fading_table != nullptr && table_allocate(node->fading_table) != ov_error_none))
    return ov_error_code();
  const std::uint32_t n = node->state_count;

  // Every parent instantiated: one configuration, seen with certainty.
  std::uint64_t configuration = 0;
  bool instantiated = true;
  for (Node *parent : experience->nodes) {
    const std::int32_t state = parent->is_discrete() ? entered_state(parent) : -1;
    if (state < 0 || !node_instantiated(parent)) {
      instantiated = false;
      break;
    }
    configuration = configuration * parent->state_count + static_cast<std::uint64_t>(state);
  }
  if (instantiated) {
    const double e = experience->data[configuration], f = fading_of(node, configuration);
    if (!adapts(e, f)) return ov_error_none;
    std::vector<double> q(n);
    for (std::uint32_t i = 0; i < n; ++i) q[i] = node->belief_table->data[i];
    update_configuration(table->data.get() + configuration * n, n, experience->data[configuration], f,
                         Posterior{q.data(), 1.0, 0.0});
    touch_table(node);
    return ov_error_none;
  }

  FamilyView view;
  if (family_view_make(view, node) != ov_error_none) return ov_error_code();
  const double total = family_view_gather(view, nullptr);
  if (!(total > 0.0)) return fail(ov_error_normalization);
  std::vector<double> &marginal = view.sums;
  for (double &cell : marginal) cell /= total;
  bool changed = false;
  for (std::uint64_t j = 0; j < experience->size; ++j) {
    const double e = experience->data[j], f = fading_of(node, j);
    if (!adapts(e, f)) continue;
    const double *q = marginal.data() + j * n;
    double y = 0.0;
    for (std::uint32_t i = 0; i < n; ++i) y += q[i];
    if (!(y > 0.0)) continue;
    double z = 0.0;
    if (y <= 0.5) {
      z = 1.0 - y;
    } else {
      for (std::uint64_t k = 0; k < j * n; ++k) z += marginal[k];
      for (std::uint64_t k = (j + 1) * n; k < view.family_size; ++k) z += marginal[k];
    }
    update_configuration(table->data.get() + j * n, n, experience->data[j], f, Posterior{q, y, z});
    changed = true;
  }
  if (changed) touch_table(node);
  return ov_error_none;
}

} // namespace

ov_status_t domain_adapt(Domain *domain) {
  if (ov_error_t code = compiled_state(domain); code != ov_error_none) return fail(code);
  if (forest_is_compressed(domain)) return fail(ov_error_compressed);
  if (domain_tables_to_propagate(domain) || domain_evidence_to_propagate(domain) ||
      !domain_equilibrium_is(domain, ov_equilibrium_sum) || domain_evidence_mode_is(domain, ov_mode_normal) != 1)
    return fail(ov_error_usage);
  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node)) {
    if (node->experience_table == nullptr) continue;
    if (adapt_node(node) != ov_error_none) return ov_error_code();
  }
  return ov_error_none;
}

} // namespace orvel
