// Messages of propagation: absorption over a link, collect and distribute.
#include "inference/propagation_engine.h"

#include <algorithm>
#include <cmath>

#include "compile/compiled_forest.h"
#include "table/algebra.h"
#include "table/marginalize.h"
#include "table/plan.h"

namespace orvel::engine {

namespace {

// The part of the domain's walk buffer that a stream marginal over the
// plan's target uses: behind the strides and the state of a clique walk.
std::uint32_t *stream_buffer(const KernelPlan *plan) noexcept {
  return plan->domain->forest->walk_strides.data() + 2 * static_cast<std::size_t>(plan->dimension_count);
}

// Scales a message on the way to the root to total 1 and books the scale.
ov_status_t normalize_message(const Run &run, Clique *source, Clique *target, Table *separator, const double *values) {
  JunctionTree *tree = run.tree;
  const Size n = separator->size;
  double s = 0.0;
  if (tree->equilibrium == ov_equilibrium_max) {
    for (Size i = 0; i < n; ++i) s = std::max(s, values[i]);
  } else {
    for (Size i = 0; i < n; ++i) s += values[i];
  }
  if (check_range(s) != ov_error_none) return ov_error_code();
  tree->step_constant *= s;
  tree->step_log_constant += std::log(s);
  source->factor /= s;
  if (run.mode == ov_mode_fast_retraction)
    for (Node *node : source->table->nodes)
      if (!is_member(target, node) && has_likelihood(node)) {
        node->conflict_clique = source;
        source->factor *= likelihood_weight(node);
      }
  target->factor *= source->factor;
  const double scale = 1.0 / s;
  ov_number_t *quotient = separator->data.get();
  for (Size i = 0; i < n; ++i) quotient[i] = static_cast<ov_number_t>(quotient[i] * scale);
  return ov_error_none;
}

// Passes the message of `source` over its link `out` into `target`, whose
// link back is `in`.
ov_status_t absorb(const Run &run, Clique *source, Clique *target, CliqueLink &out, CliqueLink &in, bool collecting) {
  CliqueLink &link = out;
  Table *separator = link.separator;
  double *values = marginal_to_scratch(link.plan, run.equilibrium, run.mode, stream_buffer(link.plan));
  if (values == nullptr) return ov_error_code();
  const Size n = separator->size;
  ov_number_t *s = separator->data.get();
  const bool fast = run.mode == ov_mode_fast_retraction;
  for (Size i = 0; i < n; ++i) {
    if (!(s[i] > 0.0f)) continue;
    if (fast && !(values[i] > 0.0)) return fail(ov_error_fast_retraction);
    const double quotient = values[i] / s[i];
    if (quotient >= largest_finite) return fail(ov_error_overflow);
    s[i] = static_cast<ov_number_t>(quotient);
  }
  if (collecting && normalize_message(run, source, target, separator, values) != ov_error_none) return ov_error_code();
  // Going out in normal mode, the cells that disagree with a hard finding
  // are zero already (the finding reached this clique in the collect, or an
  // earlier propagation), so the multiply skips them.
  const bool restrict = !collecting && run.mode == ov_mode_normal;
  if (table_multiply_into(in.plan, restrict) != ov_error_none) return ov_error_code();
  for (Size i = 0; i < n; ++i) s[i] = static_cast<ov_number_t>(values[i]);
  return ov_error_none;
}

// Post-order from the root: a clique's subtree first, then its message to
// its parent. An inactive clique is left out with its subtree.
ov_status_t collect(const Run &run, Clique *root) {
  ov_status_t status = ov_error_none;
  walk_tree(
      root->domain->forest->walk_stack, root,
      [](WalkStep &step) { return step.clique->active ? WalkVisit::into : WalkVisit::skip; },
      [&](WalkStep &step, WalkStep *) {
        if (step.parent == nullptr) return true;
        status = absorb(run, step.clique, step.parent, link_to(step.clique, step.parent), *step.down, true);
        return status == ov_error_none;
      });
  return status;
}

} // namespace

// Pre-order from the root: each clique takes its parent's message before
// passing its own on.
ov_status_t distribute(const Run &run, Clique *root) {
  ov_status_t status = ov_error_none;
  walk_tree(root->domain->forest->walk_stack, root, [&](WalkStep &step) {
    if (step.parent == nullptr) return WalkVisit::into;
    status = absorb(run, step.parent, step.clique, *step.down, link_to(step.clique, step.parent), false);
    return status == ov_error_none ? WalkVisit::into : WalkVisit::stop;
  });
  return status;
}

namespace {

// The total of a clique table: the sum, or the greatest cell at max
// equilibrium; in fast retraction mode each cell weighted by the propagated
// findings of its states.
double clique_total(Clique *c, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) noexcept {
  Table *table = c->table;
  const ov_number_t *data = table->data.get();
  const Size size = table->size;
  const bool sum = equilibrium == ov_equilibrium_sum;
  bool weighted = false;
  if (mode == ov_mode_fast_retraction)
    for (std::uint32_t i = 0; i < table->discrete_count && !weighted; ++i) weighted = has_likelihood(table->nodes[i]);
  if (!weighted) {
    double total = 0.0;
    if (sum)
      for (Size i = 0; i < size; ++i) total += data[i];
    else
      for (Size i = 0; i < size; ++i) total = std::max(total, static_cast<double>(data[i]));
    return total;
  }
  // Odometer over the configurations, last member fastest; the weight of a
  // cell is the product of its members' findings.
  const std::uint32_t d = table->discrete_count;
  std::uint32_t *state = c->domain->forest->walk_strides.data() + d; // second half of the buffer
  std::fill_n(state, d, 0u);
  double total = 0.0;
  for (Size i = 0; i < size; ++i) {
    double w = data[i];
    for (std::uint32_t k = 0; k < d && w != 0.0; ++k) w *= propagated(table->nodes[k])[state[k]];
    if (sum)
      total += w;
    else
      total = std::max(total, w);
    for (std::uint32_t k = d; k-- > 0;) {
      if (++state[k] < table->nodes[k]->state_count) break;
      state[k] = 0;
    }
  }
  return total;
}

} // namespace

ov_status_t collect_and_distribute(const Run &run, Clique *clique, bool joined) {
  JunctionTree *tree = run.tree;
  if (clique != nullptr) clique->active = true;
  Clique *root = clique;
  if (!joined || root == nullptr) {
    Clique *selected = select_root(tree);
    if (root == nullptr) root = selected;
  }
  if (root == nullptr) root = tree->root;
  if (collect(run, root) != ov_error_none) return ov_error_code();
  const double z = clique_total(root, run.equilibrium, run.mode);
  if (check_range(z) != ov_error_none) return ov_error_code();
  root->factor /= z;
  if (run.mode == ov_mode_fast_retraction)
    for (Node *node : root->table->nodes)
      if (has_likelihood(node)) {
        node->conflict_clique = root;
        root->factor *= likelihood_weight(node);
      }
  tree->evidence_factor = root->factor;
  const double scale = 1.0 / z;
  ov_number_t *data = root->table->data.get();
  for (Size i = 0; i < root->table->size; ++i) data[i] = static_cast<ov_number_t>(data[i] * scale);
  tree->step_constant *= z;
  tree->step_log_constant += std::log(z);
  tree->total_constant *= tree->step_constant;
  tree->total_log_constant += tree->step_log_constant;
  return distribute(run, root);
}

} // namespace orvel::engine
