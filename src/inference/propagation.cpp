// The propagation engine: initialisation, evidence entry, collect and
// distribute, and the node marginals.
#include "inference/propagation.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_map>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "inference/evidence.h"
#include "model/chain_component.h"
#include "table/algebra.h"
#include "table/kernels.h"
#include "table/marginalize.h"
#include "table/parallel.h"
#include "table/plan.h"
#include "table/table.h"

namespace orvel {

namespace {

// The smallest normal and the largest finite 32-bit float, in doubles.
constexpr double smallest_normal = 1.1754943508222875e-38;
constexpr double largest_finite = 3.4028234663852886e+38;

// Totals of propagation: inconsistent evidence and underflow take the same
// path, since both leave nothing representable.
ov_status_t check_range(double x) noexcept {
  if (x >= smallest_normal && x < largest_finite) return ov_error_none;
  if (x >= 0.0 && x < smallest_normal) return fail(ov_error_inconsistency_or_underflow);
  if (x >= largest_finite) return fail(ov_error_overflow);
  // Negative or not a number: only a fault upstream gives this.
  return ov_error_code() != ov_error_none ? static_cast<ov_status_t>(ov_error_code()) : fail(ov_error_error);
}

// The link of `from` that leads to `to`.
CliqueLink &link_to(Clique *from, const Clique *to) noexcept {
  for (CliqueLink &link : from->links)
    if (link.neighbour == to) return link;
  return from->links.front(); // unreachable: links come in pairs
}

bool is_member(const Clique *clique, const Node *node) noexcept { return clique->table->nodes.contains(node); }

// The propagated cells of a discrete node.
ov_number_t *propagated(Node *node) noexcept { return node->propagated_finding->data.get(); }

bool has_likelihood(const Node *node) noexcept {
  return node->is_discrete() && node->propagated_finding != nullptr && evidence_propagated(node);
}

// With p the propagated finding and m the marginal: the sum of p * m at sum
// equilibrium, else the greatest p * m; with a single state, p * m there.
double likelihood_weight(const Node *node) noexcept {
  const ov_number_t *p = node->propagated_finding->data.get();
  const ov_number_t *m = node->belief_table->data.get();
  if (node->instantiated_state >= 0) {
    const std::int32_t s = node->instantiated_state;
    return static_cast<double>(p[s]) * m[s];
  }
  const bool sum = node->junction_tree->equilibrium != ov_equilibrium_max;
  double result = 0.0;
  for (std::uint32_t i = 0; i < node->state_count; ++i) {
    const double x = static_cast<double>(p[i]) * m[i];
    if (sum)
      result += x;
    else if (x > result)
      result = x;
  }
  return result;
}

// --------------------------------------------------------------------------
// Walks of the tree. All of them recurse over links with the parent passed
// down, so that they need no storage.

template <class F> void for_each_clique(Clique *c, const Clique *parent, F &f) {
  f(c);
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent) for_each_clique(link.neighbour, c, f);
}

Clique *first_active(Clique *c, const Clique *parent) noexcept {
  if (c->active) return c;
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent)
      if (Clique *found = first_active(link.neighbour, c)) return found;
  return nullptr;
}

// Makes active every clique on a path between two active cliques, and
// returns the active clique with the smallest table (the first met on a
// tie), or null if no clique below is active.
Clique *spread_active(Clique *c, const Clique *parent) noexcept {
  Clique *best = nullptr;
  for (CliqueLink &link : c->links) {
    if (link.neighbour == parent) continue;
    Clique *result = spread_active(link.neighbour, c);
    if (result != nullptr && (best == nullptr || result->table->size < best->table->size)) best = result;
  }
  if (!c->active) {
    if (best == nullptr) return nullptr;
    c->active = true;
  }
  if (best == nullptr || c->table->size <= best->table->size) return c;
  return best;
}

Clique *select_root(JunctionTree *tree) noexcept {
  Clique *active = first_active(tree->root, nullptr);
  return active == nullptr ? nullptr : spread_active(active, nullptr);
}

// The clique nearest to `c` (by links) that holds the node, with its
// distance; searched depth first.
void find_nearest(Clique *c, const Clique *parent, const Node *node, std::uint32_t depth, Clique *&best,
                  std::uint32_t &best_depth) noexcept {
  if (depth >= best_depth) return;
  if (is_member(c, node)) {
    best = c;
    best_depth = depth;
    return;
  }
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent) find_nearest(link.neighbour, c, node, depth + 1, best, best_depth);
}

// The first clique depth first from `c` that holds the nodes.
Clique *find_holding(Clique *c, const Clique *parent, Node *const *nodes, std::size_t count) noexcept {
  bool all = true;
  for (std::size_t i = 0; i < count && all; ++i) all = is_member(c, nodes[i]);
  if (all) return c;
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent)
      if (Clique *found = find_holding(link.neighbour, c, nodes, count)) return found;
  return nullptr;
}

Clique *select_for_hard_evidence(JunctionTree *tree, const std::vector<Node *> &nodes) noexcept {
  Clique *start = first_active(tree->root, nullptr);
  if (start == nullptr && !nodes.empty()) {
    // As many of the nodes as possible, taken from the end of the list.
    for (std::size_t count = nodes.size(); count > 0 && start == nullptr; --count)
      start = find_holding(tree->root, nullptr, nodes.data() + (nodes.size() - count), count);
  }
  if (start == nullptr) return nullptr;
  for (Node *node : nodes) {
    Clique *nearest = nullptr;
    std::uint32_t depth = UINT32_MAX;
    find_nearest(start, nullptr, node, 0, nearest, depth);
    if (nearest != nullptr) nearest->active = true;
  }
  return spread_active(start, nullptr);
}

// Zeroes, in each active clique, the cells that disagree with the hard
// findings marked on its members, and books their weights in the clique.
void apply_hard_evidence(Clique *c, const Clique *parent) noexcept {
  if (!c->active) return;
  for (CliqueLink &link : c->links)
    if (link.neighbour != parent) apply_hard_evidence(link.neighbour, c);
  Table *table = c->table;
  const std::uint32_t *strides = nullptr;
  for (std::uint32_t i = 0; i < table->discrete_count; ++i) {
    Node *node = table->nodes[i];
    if (node->mark == 0) continue;
    if (strides == nullptr) strides = discrete_strides(table, c->domain->forest->walk_strides.data());
    node->conflict_clique = c;
    c->factor *= likelihood_weight(node);
    zero_other_states(table, strides, i, static_cast<std::uint32_t>(node->instantiated_state));
  }
  if (strides != nullptr)
    for (Node *node : table->nodes) node->mark = 0;
}

// --------------------------------------------------------------------------
// Messages.

// The part of the domain's walk buffer that a stream marginal over the
// plan's target uses: behind the strides and the state of a clique walk.
std::uint32_t *stream_buffer(const KernelPlan *plan) noexcept {
  return plan->domain->forest->walk_strides.data() + 2 * static_cast<std::size_t>(plan->dimension_count);
}

struct Run {
  JunctionTree *tree;
  ov_equilibrium_t equilibrium;
  ov_evidence_mode_t mode;
};

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

// Passes the message of `source` over its link into `target`.
ov_status_t absorb(const Run &run, Clique *source, Clique *target, CliqueLink &link, bool collecting) {
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
  if (table_multiply_into(link_to(target, source).plan, restrict) != ov_error_none) return ov_error_code();
  for (Size i = 0; i < n; ++i) s[i] = static_cast<ov_number_t>(values[i]);
  return ov_error_none;
}

ov_status_t collect(const Run &run, Clique *c, Clique *parent) {
  if (!c->active) return ov_error_none;
  for (CliqueLink &link : c->links) {
    if (link.neighbour == parent) continue;
    if (collect(run, link.neighbour, c) != ov_error_none) return ov_error_code();
  }
  if (parent != nullptr) return absorb(run, c, parent, link_to(c, parent), true);
  return ov_error_none;
}

ov_status_t distribute(const Run &run, Clique *c, Clique *parent) {
  if (parent != nullptr && absorb(run, parent, c, link_to(parent, c), false) != ov_error_none) return ov_error_code();
  for (CliqueLink &link : c->links) {
    if (link.neighbour == parent) continue;
    if (distribute(run, link.neighbour, c) != ov_error_none) return ov_error_code();
  }
  return ov_error_none;
}

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

ov_status_t collect_and_distribute(const Run &run, Clique *clique) {
  JunctionTree *tree = run.tree;
  if (clique != nullptr) clique->active = true;
  Clique *root = select_root(tree);
  if (clique != nullptr) root = clique;
  if (root == nullptr) root = tree->root;
  if (collect(run, root, nullptr) != ov_error_none) return ov_error_code();
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
  return distribute(run, root, nullptr);
}

// --------------------------------------------------------------------------
// Marginals.

double table_total(const Table *table, ov_equilibrium_t equilibrium) noexcept {
  double total = 0.0;
  for (Size i = 0; i < table->size; ++i)
    total = equilibrium == ov_equilibrium_max ? std::max(total, static_cast<double>(table->data[i]))
                                              : total + table->data[i];
  return total;
}

ov_status_t compute_node_marginal(Node *node, bool shortcut, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  Table *belief = node->belief_table;
  if (shortcut && node->is_discrete() && node->category == ov_category_chance && mode == ov_mode_normal &&
      node->instantiated_state >= 0) {
    std::fill_n(belief->data.get(), belief->size, 0.0f);
    belief->data[node->instantiated_state] = 1.0f;
    return ov_error_none;
  }
  if (table_marginalize(node->marginal_plan, equilibrium, mode, false) != ov_error_none) return ov_error_code();
  if (node->category == ov_category_chance && mode == ov_mode_fast_retraction) {
    const double total = table_total(belief, equilibrium);
    if (!(total >= smallest_normal)) return fail(total >= 0.0 ? ov_error_normalization : ov_error_error);
    const double scale = 1.0 / total;
    for (Size i = 0; i < belief->size; ++i) belief->data[i] = static_cast<ov_number_t>(belief->data[i] * scale);
  }
  return ov_error_none;
}

ov_status_t compute_marginals(JunctionTree *tree, bool shortcut, ov_equilibrium_t equilibrium,
                              ov_evidence_mode_t mode) {
  for (Node *node : tree->members)
    if (compute_node_marginal(node, shortcut, equilibrium, mode) != ov_error_none) return ov_error_code();
  return ov_error_none;
}

// --------------------------------------------------------------------------
// Initialisation.

// Scales each row of a node table to sum one; strict refuses a zero row.
ov_status_t normalize_node_table(Table *table, bool strict) {
  if (table->continuous_count > 0) {
    std::fill_n(table->data.get(), table->size, 1.0f);
    return ov_error_none;
  }
  const Size row = table->discrete_count == 0 ? 1 : table->nodes[table->discrete_count - 1]->state_count;
  return table_normalize_runs(table, row, strict);
}

ov_status_t check_node_tables(JunctionTree *tree) {
  for (Node *node : tree->members)
    if (node->category == ov_category_chance && node->table != nullptr &&
        normalize_node_table(node->table, true) != ov_error_none)
      return ov_error_code();
  for (auto &component : tree->domain->chain_components) {
    if (component->members.empty() || component->members[0]->junction_tree != tree) continue;
    for (Table *potential : component->potentials)
      for (Size i = 0; i < potential->size; ++i)
        if (potential->data[i] < 0.0f) return fail(ov_error_negative_probability);
  }
  return ov_error_none;
}

// The normaliser of each chain component: the reciprocal of the sum of the
// product of its members' tables and chain potentials.
ov_status_t build_normalizers(JunctionTree *tree) {
  Domain *domain = tree->domain;
  for (auto &component : domain->chain_components) {
    if (component->members.empty() || component->members[0]->junction_tree != tree) continue;
    NodeList nodes = component->members;
    for (Node *node : component->normalizer->nodes)
      if (!nodes.contains(node)) nodes.push_back(node);
    Table *joint = table_new(domain, nodes.data(), ov_table_kind_probability, role_forest, true, true);
    if (joint == nullptr) return ov_error_code();
    ov_status_t status = ov_error_none;
    for (Node *member : component->members)
      if (status == ov_error_none && member->table != nullptr) status = multiply_tables(joint, member->table);
    for (Table *potential : component->potentials)
      if (status == ov_error_none) status = multiply_tables(joint, potential);
    if (status == ov_error_none)
      status = marginalize_tables(joint, component->normalizer, ov_equilibrium_sum, ov_mode_normal, false);
    table_delete(joint);
    if (status != ov_error_none) return fail(static_cast<ov_error_t>(status));
    Table *normalizer = component->normalizer;
    for (Size i = 0; i < normalizer->size; ++i) {
      if (!(normalizer->data[i] > 0.0f)) return fail(ov_error_chain_graph);
      normalizer->data[i] = 1.0f / normalizer->data[i];
    }
  }
  return ov_error_none;
}

ov_status_t fill_cliques(JunctionTree *tree) {
  Domain *domain = tree->domain;
  for (auto &node : domain->nodes)
    if (node->category == ov_category_chance && node->home_clique != nullptr &&
        node->home_clique->junction_tree == tree && table_multiply_into(node->table_plan, false) != ov_error_none)
      return ov_error_code();
  for (auto &component : domain->chain_components) {
    if (component->normalizer_clique == nullptr || component->normalizer_clique->junction_tree != tree) continue;
    if (table_multiply_into(component->normalizer_plan, false) != ov_error_none) return ov_error_code();
    for (KernelPlan *plan : component->potential_plans)
      if (table_multiply_into(plan, false) != ov_error_none) return ov_error_code();
  }
  return ov_error_none;
}

// Post-order over the whole tree: each child's marginal onto its separator
// goes into the parent. The separators held 1, so nothing is divided.
ov_status_t initial_collect(Clique *c, Clique *parent) {
  for (CliqueLink &link : c->links) {
    if (link.neighbour == parent) continue;
    if (initial_collect(link.neighbour, c) != ov_error_none) return ov_error_code();
  }
  if (parent == nullptr) return ov_error_none;
  CliqueLink &up = link_to(c, parent);
  if (table_marginalize(up.plan, ov_equilibrium_sum, ov_mode_normal, false) != ov_error_none ||
      table_multiply_into(link_to(parent, c).plan, false) != ov_error_none)
    return ov_error_code();
  return ov_error_none;
}

// Resets the evidence state of the tree: constants, flags, factors and the
// propagated findings.
void reset_evidence_state(JunctionTree *tree) noexcept {
  tree->total_constant = tree->step_constant = 1.0;
  tree->evidence_mode = ov_mode_normal;
  tree->evidence_propagated = tree->likelihood_propagated = tree->cg_evidence_propagated = false;
  tree->total_log_constant = tree->step_log_constant = 0.0;
  for (Clique *clique : tree->cliques) {
    for (Node *member : clique->table->nodes) member->conflict_clique = nullptr;
    clique->factor = 1.0;
  }
  tree->evidence_factor = 1.0;
  for (Node *node : tree->members) {
    if (!node->is_discrete()) {
      node->value_propagated = false;
      continue;
    }
    std::fill_n(propagated(node), node->state_count, 1.0f);
    node->instantiated_state = node->state_count == 1 ? 0 : -1;
  }
}

// The tree's node and clique lists and the domain's walk buffer; made once.
void prepare_tree(JunctionTree *tree) {
  Domain *domain = tree->domain;
  if (tree->members.empty()) {
    for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it)
      if ((*it)->junction_tree == tree && takes_evidence(it->get())) tree->members.push_back(it->get());
  }
  if (tree->cliques.empty())
    for (auto &clique : domain->forest->cliques)
      if (clique->junction_tree == tree) tree->cliques.push_back(clique.get());
  tree->hard_nodes.reserve(tree->members.size());
  std::size_t widest = 0;
  for (Clique *clique : tree->cliques) widest = std::max<std::size_t>(widest, clique->table->nodes.size());
  if (domain->forest->walk_strides.size() < 5 * widest) domain->forest->walk_strides.resize(5 * widest);
  // The scratch vector of marginals, for the largest separator and marginal.
  Size largest = 1;
  for (Clique *clique : tree->cliques)
    for (CliqueLink &link : clique->links) largest = std::max(largest, link.separator->size);
  if (ensure_scratch(domain, largest) == nullptr) throw std::bad_alloc();
  for (Node *node : tree->members)
    if (node->is_discrete()) node->initial_belief.resize(node->state_count);
}

void restore_tables(JunctionTree *tree) noexcept {
  const CompiledForest &forest = *tree->domain->forest;
  const ov_number_t *data = forest.memory_table_data.get();
  const double *cg = forest.memory_table_cg.get();
  const std::int8_t *kinds = forest.memory_table_kinds.get();
  for (const JunctionTree::SavedTable &saved : tree->saved_tables) {
    Table *table = saved.table;
    std::copy_n(data + saved.data, table->size, table->data.get());
    if (table->cg_stride > 0)
      std::copy_n(cg + saved.cg, static_cast<std::size_t>(table->size) * table->cg_stride, table->cg_data.get());
    if (table->continuous_count > 0) std::copy_n(kinds + saved.kinds, table->continuous_count, table->cg_roles.get());
  }
}

void save_tables(JunctionTree *tree) noexcept {
  CompiledForest &forest = *tree->domain->forest;
  ov_number_t *data = forest.memory_table_data.get();
  double *cg = forest.memory_table_cg.get();
  std::int8_t *kinds = forest.memory_table_kinds.get();
  for (const JunctionTree::SavedTable &saved : tree->saved_tables) {
    const Table *table = saved.table;
    std::copy_n(table->data.get(), table->size, data + saved.data);
    if (table->cg_stride > 0)
      std::copy_n(table->cg_data.get(), static_cast<std::size_t>(table->size) * table->cg_stride, cg + saved.cg);
    if (table->continuous_count > 0) std::copy_n(table->cg_roles.get(), table->continuous_count, kinds + saved.kinds);
  }
}

bool has_table_memory(const Domain *domain) noexcept { return static_cast<bool>(domain->forest->memory_table_data); }

void copy_initial_beliefs(JunctionTree *tree) noexcept {
  for (Node *node : tree->members)
    if (node->is_discrete())
      std::copy_n(node->belief_table->data.get(), node->state_count, node->initial_belief.data());
}

ov_status_t initialize_tables(JunctionTree *tree, bool first_time) {
  if (!first_time)
    for (Clique *clique : tree->cliques) {
      table_fill(clique->table);
      if (clique->utility_table != nullptr) table_fill(clique->utility_table);
    }
  if (check_node_tables(tree) != ov_error_none || build_normalizers(tree) != ov_error_none ||
      fill_cliques(tree) != ov_error_none || initial_collect(tree->root, nullptr) != ov_error_none)
    return ov_error_code();
  tree->initial_constant = 1.0;
  const Run run{tree, ov_equilibrium_sum, ov_mode_normal};
  if (distribute(run, tree->root, nullptr) != ov_error_none ||
      compute_marginals(tree, false, ov_equilibrium_sum, ov_mode_normal) != ov_error_none)
    return ov_error_code();
  copy_initial_beliefs(tree);
  if (has_table_memory(tree->domain)) save_tables(tree);
  return ov_error_none;
}

// Enters the change of evidence of a discrete node in normal mode: the
// ratio of entered to propagated goes into the finding clique, unless the
// finding only excludes states, which is marked for zeroing. With
// `whole`, the tables hold no evidence and the whole finding goes in.
ov_status_t enter_discrete_evidence(JunctionTree *tree, Node *node, bool whole) {
  ov_number_t *p = propagated(node);
  const ov_number_t *entered = node->entered_finding.data();
  const std::uint32_t n = node->state_count;
  if (whole) {
    std::copy_n(entered, n, p);
    node->instantiated_state = single_state(p, n);
    if (!likelihood_entered(node) && !evidence_entered(node)) return ov_error_none;
  } else {
    for (std::uint32_t i = 0; i < n; ++i)
      if (p[i] != 0.0f) p[i] = entered[i] / p[i];
  }
  const std::int32_t state = single_state(p, n);
  if (state >= 0 && p[state] == 1.0f && tree->domain->forest->compressed == 0) {
    node->mark = 1;
    tree->hard_nodes.push_back(node);
  } else {
    Clique *clique = node->finding_clique;
    if (table_multiply_into(node->finding_plan, false) != ov_error_none) return ov_error_code();
    node->conflict_clique = clique;
    clique->factor *= likelihood_weight(node);
    clique->active = true;
  }
  if (!whole) {
    std::copy_n(entered, n, p);
    node->instantiated_state = single_state(p, n);
  }
  return ov_error_none;
}

ov_status_t propagate_body(JunctionTree *tree, Clique *clique, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode,
                           bool was_fast) {
  const Run run{tree, equilibrium, mode};
  const bool same = tree->equilibrium == equilibrium;
  if (mode == ov_mode_normal) {
    for (Clique *c : tree->cliques) c->active = !same;
    const bool whole = tree->evidence_mode == ov_mode_fast_retraction && was_fast;
    if (same && whole)
      for (Node *node : tree->members)
        if (has_likelihood(node)) node->finding_clique->active = true;
    tree->hard_nodes.clear();
    for (Node *node : tree->members) {
      if (!node->is_discrete() || node->entered_finding.empty()) continue;
      if (!whole && !finding_differs(node)) continue;
      if (enter_discrete_evidence(tree, node, whole) != ov_error_none) return ov_error_code();
    }
    Clique *start = clique;
    if (start != nullptr) start->active = true;
    Clique *selected = select_for_hard_evidence(tree, tree->hard_nodes);
    if (start == nullptr) start = selected;
    if (start != nullptr && !tree->hard_nodes.empty()) apply_hard_evidence(start, nullptr);
    for (Node *node : tree->hard_nodes) node->mark = 0;
    tree->hard_nodes.clear();
    clique = start;
  } else {
    for (Clique *c : tree->cliques) c->active = !same;
    if (same)
      for (Node *node : tree->members)
        if (node->is_discrete() && finding_differs(node)) node->finding_clique->active = true;
    for (Node *node : tree->members) {
      if (!node->is_discrete() || node->entered_finding.empty()) continue;
      std::copy_n(node->entered_finding.data(), node->state_count, propagated(node));
      node->instantiated_state = single_state(propagated(node), node->state_count);
    }
  }
  if (collect_and_distribute(run, clique) != ov_error_none ||
      compute_marginals(tree, true, equilibrium, mode) != ov_error_none)
    return ov_error_code();
  tree->equilibrium = equilibrium;
  tree->evidence_mode = mode;
  tree->changed_evidence_count = 0;
  tree->evidence_propagated = tree->likelihood_propagated = tree->cg_evidence_propagated = false;
  for (Node *node : tree->members) {
    if (node->is_discrete()) {
      if (evidence_propagated(node)) tree->evidence_propagated = true;
      if (likelihood_propagated(node)) tree->likelihood_propagated = true;
    } else if (node->value_propagated) {
      tree->evidence_propagated = tree->cg_evidence_propagated = true;
    }
  }
  return ov_error_none;
}

bool evidence_mode_is(const JunctionTree *tree, ov_evidence_mode_t mode) noexcept {
  return tree->evidence_mode == mode || !tree->evidence_propagated;
}

} // namespace

ov_status_t jt_initialize(JunctionTree *tree, bool first_time) {
  Domain *domain = tree->domain;
  if (needs_cg_or_decisions(domain)) return fail(ov_error_cg_influence_diagrams_not_supported);
  tree->equilibrium = ov_equilibrium_none;
  prepare_tree(tree);
  if (!first_time) reset_evidence_state(tree);
  tree->changed_evidence_count = 0;
  if (domain->compiled != 0)
    for (Node *node : tree->members)
      if (finding_differs(node)) ++tree->changed_evidence_count;
  if (!tree->tables_changed && has_table_memory(domain) && !tree->saved_tables.empty()) {
    restore_tables(tree);
    tree->equilibrium = ov_equilibrium_sum;
    return set_error(ov_error_none);
  }
  if (initialize_tables(tree, first_time) != ov_error_none) return ov_error_code();
  tree->tables_changed = false;
  tree->equilibrium = ov_equilibrium_sum;
  return set_error(ov_error_none);
}

ov_status_t propagate_tree(JunctionTree *tree, Clique *clique, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode) {
  Domain *domain = tree->domain;
  if (needs_cg_or_decisions(domain) && !(equilibrium == ov_equilibrium_sum && mode == ov_mode_normal))
    return fail(ov_error_usage);
  if (needs_cg_or_decisions(domain)) return fail(ov_error_cg_influence_diagrams_not_supported);
  if (mode == ov_mode_fast_retraction && domain->forest->compressed != 0) return fail(ov_error_compressed);
  if (tree->tables_changed && jt_initialize(tree, false) != ov_error_none) return ov_error_code();
  auto nothing_to_do = [&] {
    return tree->changed_evidence_count == 0 && tree->equilibrium == equilibrium && evidence_mode_is(tree, mode);
  };
  if (nothing_to_do()) return set_error(ov_error_none);
  for (Clique *c : tree->cliques) {
    for (Node *member : c->table->nodes) member->conflict_clique = nullptr;
    c->factor = 1.0;
  }
  tree->evidence_factor = tree->step_constant = 1.0;
  tree->step_log_constant = 0.0;
  const bool was_fast = tree->evidence_mode == ov_mode_fast_retraction && tree->evidence_propagated;
  if (mode == ov_mode_normal) {
    if (!was_fast) {
      for (Node *node : tree->members)
        if (finding_retracted(node)) {
          if (jt_initialize(tree, false) != ov_error_none) return ov_error_code();
          break;
        }
    }
  } else if (!was_fast && tree->evidence_propagated) {
    if (jt_initialize(tree, false) != ov_error_none) return ov_error_code();
  }
  if (nothing_to_do()) return set_error(ov_error_none);
  ov_status_t status;
  try {
    status = propagate_body(tree, clique, equilibrium, mode, was_fast);
  } catch (const std::bad_alloc &) {
    status = fail(ov_error_no_memory);
  }
  if (status == ov_error_none) return set_error(ov_error_none);
  for (Node *node : tree->members) node->mark = 0;
  tree->hard_nodes.clear();
  jt_initialize(tree, false);
  return fail(static_cast<ov_error_t>(status));
}

ov_status_t domain_reset_inference_engine(Domain *domain) {
  for (auto &tree : domain->forest->junction_trees)
    if (tree->tables_changed || tree->equilibrium != ov_equilibrium_sum || tree->evidence_propagated)
      if (jt_initialize(tree.get(), false) != ov_error_none) return ov_error_code();
  return set_error(ov_error_none);
}

ov_status_t domain_save_to_memory(Domain *domain) {
  for (auto &tree : domain->forest->junction_trees)
    if (tree->equilibrium != ov_equilibrium_sum || tree->evidence_propagated || tree->tables_changed)
      return fail(ov_error_usage);
  for (auto &tree : domain->forest->junction_trees)
    if (tree->cg_evidence_propagated) return fail(ov_error_cg_evidence_incorporated);
  // Which tree each forest table belongs to.
  std::unordered_map<const Table *, JunctionTree *> owner;
  for (auto &clique : domain->forest->cliques) {
    owner[clique->table] = clique->junction_tree;
    if (clique->utility_table != nullptr) owner[clique->utility_table] = clique->junction_tree;
    for (CliqueLink &link : clique->links) {
      owner[link.separator] = clique->junction_tree;
      if (link.separator_utilities != nullptr) owner[link.separator_utilities] = clique->junction_tree;
    }
  }
  for (auto &node : domain->nodes) {
    if (node->junction_tree == nullptr) continue;
    for (const Table *table : {node->belief_table, node->utility_table, node->propagated_finding})
      if (table != nullptr) owner[table] = node->junction_tree;
  }
  for (auto &component : domain->chain_components)
    if (component->normalizer != nullptr && component->normalizer_clique != nullptr)
      owner[component->normalizer] = component->normalizer_clique->junction_tree;

  Size data = 0, cg = 0, kinds = 0;
  for (auto &table : domain->tables) {
    if (table->role < role_clique || table->role > role_forest) continue;
    data = size_add(data, table->size);
    cg = size_add(cg, size_multiply(table->size, table->cg_stride));
    kinds = size_add(kinds, table->continuous_count);
  }
  if (!domain->forest->memory_table_data) {
    Buffer<ov_number_t> new_data = alloc_array<ov_number_t>(data);
    if (!new_data) return ov_error_code();
    Buffer<double> new_cg;
    Buffer<std::int8_t> new_kinds;
    if (cg > 0 && !(new_cg = alloc_array<double>(cg))) return ov_error_code();
    if (kinds > 0 && !(new_kinds = alloc_array<std::int8_t>(kinds))) return ov_error_code();
    domain->forest->memory_table_data = std::move(new_data);
    domain->forest->memory_table_cg = std::move(new_cg);
    domain->forest->memory_table_kinds = std::move(new_kinds);
  }
  for (auto &tree : domain->forest->junction_trees) tree->saved_tables.clear();
  Size at_data = 0, at_cg = 0, at_kinds = 0;
  for (auto &table : domain->tables) {
    if (table->role < role_clique || table->role > role_forest) continue;
    auto found = owner.find(table.get());
    if (found != owner.end() && found->second != nullptr)
      found->second->saved_tables.push_back({table.get(), at_data, at_cg, at_kinds});
    at_data += table->size;
    at_cg += table->size * table->cg_stride;
    at_kinds += table->continuous_count;
  }
  for (auto &tree : domain->forest->junction_trees) save_tables(tree.get());
  return set_error(ov_error_none);
}

} // namespace orvel
