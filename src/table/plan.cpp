// Kernel plans: creation, the domain's list, and shaping the dimensions for
// one operation.
#include "table/plan.h"

#include <algorithm>
#include <new>

#include "api/error.h"
#include "model/domain.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

void KernelPlanDeleter::operator()(KernelPlan *plan) const noexcept { delete plan; }

namespace {

// Whether every node of `inner` occurs in `outer`.
bool nodes_nest(const Table *inner, const Table *outer) noexcept {
  for (Node *node : inner->nodes)
    if (!outer->nodes.contains(node)) return false;
  return true;
}

// Whether the discrete parts of two tables list the same nodes in the same
// order.
bool same_discrete_nodes(const Table *a, const Table *b) noexcept {
  if (a->discrete_count != b->discrete_count) return false;
  for (std::uint32_t i = 0; i < a->discrete_count; ++i)
    if (a->nodes[i] != b->nodes[i]) return false;
  return true;
}

// Puts a new plan on the domain's list.
KernelPlan *plan_attach_new(Domain *domain) {
  // Room for one more, growing geometrically so that building a forest stays linear.
  auto &plans = domain_kernel_plans(domain);
  if (plans.size() == plans.capacity()) plans.reserve(2 * plans.size() + 1);
  KernelPlanPtr plan(new KernelPlan);
  plan->domain = domain;
  plan->serial = static_cast<std::uint32_t>(plans.size() + 1);
  plans.push_back(std::move(plan));
  return plans.back().get();
}

// For each continuous node of S, its place among T's continuous nodes.
void build_cg_index_map(KernelPlan *plan, const Table *T, const Table *S) {
  plan->cg_index_map.resize(S->continuous_count);
  for (std::uint32_t i = 0; i < S->continuous_count; ++i)
    plan->cg_index_map[i] = static_cast<std::uint32_t>(table_continuous_index(T, S->nodes[S->discrete_count + i]));
}

// The first half of the dimensions: T's order, with each node's count and
// its stride in S (0 where S lacks the node).
std::shared_ptr<PlanLayout> build_layout(const Table *T, const Table *S) {
  auto layout = std::make_shared<PlanLayout>();
  const std::uint32_t n = T->discrete_count;
  layout->dimensions.resize(2 * static_cast<std::size_t>(n));
  layout->source_places.assign(n, no_place);
  layout->target_strides.resize(n);
  Size target_stride = 1;
  for (std::uint32_t i = n; i-- > 0;) {
    layout->target_strides[i] = target_stride;
    target_stride = size_multiply(target_stride, T->nodes[i]->state_count);
  }
  std::vector<Size> source_strides(S->discrete_count);
  Size stride = 1;
  for (std::uint32_t i = S->discrete_count; i-- > 0;) {
    source_strides[i] = stride;
    stride = size_multiply(stride, S->nodes[i]->state_count);
  }
  for (std::uint32_t i = 0; i < n; ++i) {
    Node *node = T->nodes[i];
    std::int64_t place = S->nodes.index_of(node);
    PlanDimension &d = layout->dimensions[i];
    d.count = node->state_count;
    if (place >= 0 && static_cast<std::uint32_t>(place) < S->discrete_count) {
      layout->source_places[i] = static_cast<std::uint32_t>(place);
      d.stride = source_strides[static_cast<std::uint32_t>(place)];
    } else if (node->category == ov_category_decision) {
      layout->inner_decisions = true;
    }
  }
  if (n > 0 && target_stride <= cell_map_limit) {
    // An odometer over T's cells in storage order, last node fastest.
    layout->cell_map.resize(target_stride);
    std::vector<std::uint32_t> state(n, 0);
    Size at = 0;
    for (Size cell = 0; cell < target_stride; ++cell) {
      layout->cell_map[cell] = static_cast<std::uint16_t>(at);
      for (std::uint32_t i = n; i-- > 0;) {
        const PlanDimension &d = layout->dimensions[i];
        at += d.stride;
        if (++state[i] < d.count) break;
        at -= static_cast<Size>(d.count) * d.stride;
        state[i] = 0;
      }
    }
  }
  return layout;
}

bool table_is_in_forest_role(const Table *table) noexcept {
  return table != nullptr && (table->role == role_clique || table->role == role_separator);
}

} // namespace

KernelPlan *plan_new(Table *target, Table *target_utility, Table *source, Table *source_utility) {
  auto refuse = []() -> KernelPlan * {
    set_error(ov_error_usage);
    return nullptr;
  };
  Table *T = target != nullptr ? target : target_utility;
  Table *S = source != nullptr ? source : source_utility;
  if (T == nullptr || S == nullptr) return refuse();
  if ((target != nullptr && target->value_kind != ov_table_kind_probability) ||
      (source != nullptr && source->value_kind != ov_table_kind_probability) ||
      (target_utility != nullptr && target_utility->value_kind != ov_table_kind_utility) ||
      (source_utility != nullptr && source_utility->value_kind != ov_table_kind_utility))
    return refuse();
  for (auto [a, b] : {std::pair{target, target_utility}, std::pair{source, source_utility}})
    if (a != nullptr && b != nullptr && (a->role != b->role || !(a->nodes == b->nodes))) return refuse();
  Domain *domain = T->domain;
  for (Table *table : {target, target_utility, source, source_utility})
    if (table != nullptr && table->domain != domain) return refuse();
  if (!nodes_nest(S, T)) return refuse();
  if (domain->compiled != 0 && forest_is_compressed(domain)) {
    // Compression makes the maps of clique and separator tables itself.
    set_error(ov_error_compressed);
    if (table_is_in_forest_role(T) || table_is_in_forest_role(S)) return refuse();
    set_error(ov_error_none);
  }

  std::shared_ptr<PlanLayout> layout = build_layout(T, S);
  KernelPlan *plan = plan_attach_new(domain);
  plan->target = target;
  plan->target_utility = target_utility;
  plan->source = source;
  plan->source_utility = source_utility;
  plan->layout = std::move(layout);
  plan->dimension_count = T->discrete_count;
  try {
    for (PlanShape &shape : plan->shapes) shape.dimensions.resize(plan->dimension_count);
    build_cg_index_map(plan, T, S);
  } catch (...) {
    plan_delete(plan);
    throw;
  }
  plan_reset(plan);
  set_error(ov_error_none);
  return plan;
}

KernelPlan *plan_bind(KernelPlan *plan, Table *target, Table *source) {
  if (plan == nullptr || target == nullptr || source == nullptr || !plan->has_dimensions() ||
      target->domain != plan->domain || source->domain != plan->domain || !same_discrete_nodes(target, plan->finer()) ||
      !same_discrete_nodes(source, plan->coarser()) || !nodes_nest(source, target)) {
    set_error(ov_error_usage);
    return nullptr;
  }
  KernelPlan *bound = plan_attach_new(plan->domain);
  bound->target = target;
  bound->source = source;
  bound->layout = plan->layout;
  bound->bound = true;
  bound->dimension_count = plan->dimension_count;
  try {
    for (PlanShape &shape : bound->shapes) shape.dimensions.resize(bound->dimension_count);
    build_cg_index_map(bound, target, source);
  } catch (...) {
    plan_delete(bound);
    throw;
  }
  plan_reset(bound);
  set_error(ov_error_none);
  return bound;
}

KernelPlan *plan_for_tables(Table *target, Table *source) {
  if (target == nullptr || source == nullptr || target->domain != source->domain ||
      !same_discrete_nodes(target, source) || !nodes_nest(source, target)) {
    set_error(ov_error_usage);
    return nullptr;
  }
  KernelPlan *plan = plan_attach_new(target->domain);
  plan->target = target->value_kind == ov_table_kind_utility ? nullptr : target;
  plan->target_utility = target->value_kind == ov_table_kind_utility ? target : nullptr;
  plan->source = source->value_kind == ov_table_kind_utility ? nullptr : source;
  plan->source_utility = source->value_kind == ov_table_kind_utility ? source : nullptr;
  try {
    build_cg_index_map(plan, target, source);
  } catch (...) {
    plan_delete(plan);
    throw;
  }
  set_error(ov_error_none);
  return plan;
}

void plan_delete(KernelPlan *plan) noexcept {
  if (plan == nullptr) return;
  auto &plans = domain_kernel_plans(plan->domain);
  std::uint32_t index = plan->serial - 1;
  // The list owns the record: erasing it frees the plan. A bound plan only
  // drops its share of the layout.
  plans.erase(plans.begin() + index);
  for (std::uint32_t i = index; i < plans.size(); ++i) plans[i]->serial = i + 1;
}

void plan_reset(KernelPlan *plan) noexcept {
  plan->base_offset = 0;
  if (!plan->has_dimensions()) {
    plan->shared_count = plan->inner_count = 0;
    return;
  }
  const Table *T = plan->finer();
  const std::uint32_t n = plan->dimension_count;
  const std::vector<std::uint32_t> &places = plan->layout->source_places;
  PlanDimension *current = plan->current();
  std::uint32_t shared = 0;
  for (std::uint32_t i = 0; i < n; ++i)
    if (places[i] != no_place) ++shared;
  // From the last node to the first with a running stride; nodes of S go to
  // their place in S, the others fill the array from its end downwards.
  std::uint32_t next_inner = n;
  Size stride = 1;
  for (std::uint32_t i = n; i-- > 0;) {
    std::uint32_t position = places[i] != no_place ? places[i] : --next_inner;
    std::uint32_t count = T->nodes[i]->state_count;
    current[position] = PlanDimension{count, stride, 0, nullptr};
    stride *= count;
  }
  plan->shared_count = shared;
  plan->inner_count = n - shared;
}

namespace {

// Calls `visit(node, dimension index)` for each inner dimension, in the
// target's order; `visit` returns true to remove the dimension.
template <class F> void for_each_inner(KernelPlan *plan, F &&visit) noexcept {
  const Table *T = plan->finer();
  const std::vector<std::uint32_t> &places = plan->layout->source_places;
  PlanDimension *current = plan->current();
  std::uint32_t index = plan->shared_count;
  for (std::uint32_t i = 0; i < plan->dimension_count; ++i) {
    if (places[i] != no_place) continue;
    if (visit(T->nodes[i], current[index])) {
      for (std::uint32_t k = index + 1; k < plan->shared_count + plan->inner_count; ++k) current[k - 1] = current[k];
      --plan->inner_count;
    } else {
      ++index;
    }
  }
}

} // namespace

bool has_propagated_evidence(const Node *node) noexcept {
  const Table *finding = node->propagated_finding;
  if (finding == nullptr || !finding->data) return false;
  for (Size i = 0; i < finding->size; ++i)
    if (finding->data[i] != 1.0f) return true;
  return false;
}

void plan_drop_fixed(KernelPlan *plan, bool with_test) noexcept {
  if (!plan->has_dimensions()) return;
  for_each_inner(plan, [&](Node *node, const PlanDimension &d) {
    std::int32_t state = node->instantiated_state;
    if (state < 0) return false;
    if (with_test) {
      const Table *finding = node->propagated_finding;
      if (finding == nullptr || !finding->data || finding->data[state] != 1.0f) return false;
    }
    plan->base_offset += d.stride * static_cast<Size>(state);
    return true;
  });
}

const std::uint16_t *plan_cell_map(const KernelPlan *plan, bool restrict) noexcept {
  if (plan->layout == nullptr || plan->layout->cell_map.empty()) return nullptr;
  if (restrict) {
    const Table *T = plan->finer();
    const std::uint32_t *places = plan->layout->source_places.data();
    for (std::uint32_t i = 0; i < plan->dimension_count; ++i)
      if (places[i] == no_place && T->nodes[i]->instantiated_state >= 0) return nullptr;
  }
  return plan->layout->cell_map.data();
}

std::uint32_t merge_dimensions(PlanDimension *dims, std::uint32_t n, std::uint32_t level) noexcept {
  if (n == 0) return 0;
  std::uint32_t last = 0;
  for (std::uint32_t i = 1; i < n; ++i) {
    PlanDimension &a = dims[last];
    const PlanDimension &b = dims[i];
    bool joinable =
        a.stride == b.stride * b.count && a.sum_flag == b.sum_flag && a.weights == nullptr && b.weights == nullptr;
    // A first dimension that can be split evenly over the workers stays
    // apart.
    if (joinable && last == 0 && level >= 2) joinable = a.count < 4 * level && a.count % level != 0;
    if (joinable) {
      a.count *= b.count;
      a.stride = b.stride;
    } else {
      dims[++last] = b;
    }
  }
  return last + 1;
}

void plan_merge(KernelPlan *plan) noexcept {
  if (!plan->has_dimensions()) return;
  PlanDimension *current = plan->current();
  std::uint32_t shared = merge_dimensions(current, plan->shared_count, plan->domain->concurrency_level);
  std::uint32_t inner = merge_dimensions(current + plan->shared_count, plan->inner_count, 1);
  for (std::uint32_t k = 0; k < inner; ++k) current[shared + k] = current[plan->shared_count + k];
  plan->shared_count = shared;
  plan->inner_count = inner;
}

ov_status_t plan_prepare(KernelPlan *plan, bool restrict) noexcept {
  plan_reset(plan);
  if (restrict) plan_drop_fixed(plan, false);
  plan_merge(plan);
  return set_error(ov_error_none);
}

const PlanShape &plan_shape(KernelPlan *plan, bool restrict) noexcept {
  PlanShape &shape = plan->shapes[restrict ? 1 : 0];
  const std::uint32_t level = plan->domain->concurrency_level;
  const std::uint32_t n = plan->dimension_count;
  // Which inner dimensions evidence fixes, and the offset of the fixed
  // states: what plan_drop_fixed would remove and add.
  std::uint64_t fixed = 0;
  Size offset = 0;
  if (restrict) {
    const Table *T = plan->finer();
    const std::uint32_t *places = plan->layout->source_places.data();
    const Size *strides = plan->layout->target_strides.data();
    for (std::uint32_t i = 0; i < n; ++i) {
      if (places[i] != no_place) continue;
      const std::int32_t state = T->nodes[i]->instantiated_state;
      if (state < 0) continue;
      if (i < 64) fixed |= std::uint64_t{1} << i;
      offset += strides[i] * static_cast<Size>(state);
    }
  }
  // Beyond 64 dimensions the set is not told by the mask: merge each time.
  if (shape.level != level || shape.fixed != fixed || n > 64) {
    plan_reset(plan);
    if (restrict) plan_drop_fixed(plan, false);
    plan_merge(plan);
    const std::uint32_t used = plan->shared_count + plan->inner_count;
    std::copy_n(plan->current(), used, shape.dimensions.data());
    shape.shared_count = plan->shared_count;
    shape.inner_count = plan->inner_count;
    shape.fixed = fixed;
    shape.level = level;
    plan_reset(plan);
  }
  shape.base_offset = offset;
  return shape;
}

ov_status_t plan_prepare_weighted(KernelPlan *plan) noexcept {
  plan_reset(plan);
  if (plan->has_dimensions()) {
    for_each_inner(plan, [](Node *node, PlanDimension &d) {
      if (has_propagated_evidence(node)) d.weights = node->propagated_finding->data.get();
      return false;
    });
    plan_drop_fixed(plan, true);
  }
  plan_merge(plan);
  return set_error(ov_error_none);
}

ov_status_t plan_prepare_summing(KernelPlan *plan, bool restrict) noexcept {
  plan_reset(plan);
  if (plan->has_dimensions()) {
    for_each_inner(plan, [](Node *node, PlanDimension &d) {
      d.sum_flag = node->category != ov_category_decision || has_propagated_evidence(node) ? 1 : 0;
      return false;
    });
    if (restrict) plan_drop_fixed(plan, false);
  }
  plan_merge(plan);
  return set_error(ov_error_none);
}

} // namespace orvel
