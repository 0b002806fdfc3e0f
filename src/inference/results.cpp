// Result queries and the report of initial beliefs.
#include "inference/results.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "api/boundary.h"
#include "api/error.h"
#include "compile/compile.h"
#include "compile/compiled_forest.h"
#include "compile/tree_walk.h"
#include "inference/evidence.h"
#include "inference/propagation.h"
#include "table/algebra.h"
#include "table/table.h"

namespace orvel {

namespace {

bool holds_all(const Clique *clique, const NodeList &nodes) noexcept {
  for (Node *node : nodes)
    if (!clique->table->nodes.contains(node)) return false;
  return true;
}

// Normalises a returned table to total 1 (fast retraction leaves the
// tables without the evidence of the nodes kept).
ov_status_t normalize_result(Table *table, ov_equilibrium_t equilibrium) {
  double total = 0.0;
  for (Size i = 0; i < table->size; ++i)
    total = equilibrium == ov_equilibrium_max ? std::max(total, static_cast<double>(table->data[i]))
                                              : total + table->data[i];
  if (!(total > 0.0)) return fail(ov_error_normalization);
  const double scale = 1.0 / total;
  for (Size i = 0; i < table->size; ++i) table->data[i] = static_cast<ov_number_t>(table->data[i] * scale);
  return ov_error_none;
}

// The general search: the joint over the listed nodes is gathered over the
// part of the tree that spans them, from a clique that holds the first node
// outwards, summing (or maximising) out whatever is no longer needed on the
// way back.
struct Gather {
  Domain *domain;
  const NodeList *wanted;
  ov_equilibrium_t equilibrium;
  ov_evidence_mode_t mode;
};

// Whether the subtree of `c` (away from `parent`) holds one of the nodes
// not yet covered.
bool subtree_needed(Clique *c, Clique *parent, const std::vector<bool> &covered, const NodeList &wanted,
                    WalkStack &stack) {
  return !walk_subtree(
      stack, c, parent,
      [&](WalkStep &step) {
        for (std::uint32_t i = 0; i < wanted.size(); ++i)
          if (!covered[i] && step.clique->table->nodes.contains(wanted[i])) return WalkVisit::stop;
        return WalkVisit::into;
      },
      [](WalkStep &, WalkStep *) { return true; });
}

// A new table over `nodes` holding the marginal of `table`; the old table is
// deleted.
Table *reduce_to(Table *table, const NodeList &nodes, const Gather &g) {
  if (nodes == table->nodes) return table;
  Table *reduced = table_new(g.domain, nodes.data(), ov_table_kind_probability, role_returned, true, true);
  if (reduced == nullptr) {
    table_delete(table);
    return nullptr;
  }
  ov_status_t status = marginalize_tables(table, reduced, g.equilibrium, ov_mode_normal, false);
  table_delete(table);
  if (status != ov_error_none) {
    table_delete(reduced);
    set_error(status);
    return nullptr;
  }
  return reduced;
}

// Joins `below`, the joint of a subtree reached over a link with
// `separator`, into `joint`, the joint of the clique `c` the link leaves:
// the subtree's joint over the separator and its wanted nodes, divided by
// the separator. Conditional independence given the separators makes the
// product exact. Both tables are consumed; null on failure.
Table *join_subtree(Clique *c, Table *joint, Table *below, Table *separator, const Gather &g) {
  const NodeList &wanted = *g.wanted;
  // Down to the separator and the wanted nodes.
  NodeList keep;
  for (Node *node : below->nodes)
    if (wanted.contains(node) || separator->nodes.contains(node)) keep.push_back(node);
  below = reduce_to(below, keep, g);
  if (below == nullptr) {
    table_delete(joint);
    return nullptr;
  }
  NodeList nodes = joint->nodes;
  for (Node *node : below->nodes)
    if (!nodes.contains(node)) nodes.push_back(node);
  Table *wide = table_new(g.domain, nodes.data(), ov_table_kind_probability, role_returned, true, true);
  ov_status_t status = wide == nullptr ? ov_error_code() : multiply_tables(wide, joint);
  table_delete(joint);
  if (status == ov_error_none) status = multiply_tables(wide, below);
  table_delete(below);
  if (status == ov_error_none) status = divide_tables(wide, separator);
  if (status != ov_error_none) {
    table_delete(wide);
    set_error(status);
    return nullptr;
  }
  // Only c's members and the wanted nodes matter from here on.
  keep = NodeList();
  for (Node *node : wide->nodes)
    if (wanted.contains(node) || c->table->nodes.contains(node)) keep.push_back(node);
  return reduce_to(wide, keep, g);
}

// The joint of `start`'s members and the wanted nodes of the tree: each
// clique's table times the joints of those neighbouring subtrees that hold
// a wanted node not yet covered, gathered leaves first.
Table *subtree_joint(Clique *start, std::vector<bool> &covered, const Gather &g) {
  const NodeList &wanted = *g.wanted;
  WalkStack stack, search;
  std::vector<Table *> joints; // one for each clique on the path
  Table *result = nullptr;
  bool failed = false;
  walk_tree(
      stack, start,
      [&](WalkStep &step) {
        Clique *c = step.clique;
        if (step.parent != nullptr && !subtree_needed(c, step.parent, covered, wanted, search)) return WalkVisit::skip;
        for (std::uint32_t i = 0; i < wanted.size(); ++i)
          if (c->table->nodes.contains(wanted[i])) covered[i] = true;
        Table *joint = table_clone(c->table);
        if (joint == nullptr) return failed = true, WalkVisit::stop;
        joint->role = role_returned;
        joints.push_back(joint);
        return WalkVisit::into;
      },
      [&](WalkStep &step, WalkStep *parent) {
        Table *below = joints.back();
        joints.pop_back();
        if (parent == nullptr) {
          result = below;
          return true;
        }
        joints.back() = join_subtree(parent->clique, joints.back(), below, step.down->separator, g);
        if (joints.back() != nullptr) return true;
        joints.pop_back();
        failed = true;
        return false;
      });
  if (failed)
    for (Table *joint : joints) table_delete(joint);
  return failed ? nullptr : result;
}

Table *general_search(Domain *domain, JunctionTree *tree, const NodeList &nodes) {
  // Start in a clique that holds the first node.
  Clique *start = nullptr;
  for (Clique *clique : tree->cliques)
    if (clique->table->nodes.contains(nodes[0])) {
      start = clique;
      break;
    }
  if (start == nullptr) return set_error(ov_error_error), nullptr;
  const Gather g{domain, &nodes, static_cast<ov_equilibrium_t>(tree->equilibrium),
                 static_cast<ov_evidence_mode_t>(tree->evidence_mode)};
  std::vector<bool> covered(nodes.size(), false);
  return subtree_joint(start, covered, g);
}

} // namespace

Table *domain_get_marginal(Domain *domain, const NodeList &nodes) {
  // Continuous marginals need conditional Gaussian propagation.
  if (domain->continuous_count > 0) return set_error(ov_error_usage), nullptr;
  if (nodes.empty()) {
    Table *table = table_new(domain, nodes.data(), ov_table_kind_probability, role_returned, false, true);
    return table == nullptr ? nullptr : table_detach(table);
  }
  JunctionTree *tree = nodes[0]->junction_tree;
  if (nodes.size() == 1) {
    if (tree->equilibrium == ov_equilibrium_none) return set_error(ov_error_no_equilibrium), nullptr;
    Table *copy = table_clone(nodes[0]->belief_table);
    if (copy == nullptr) return nullptr;
    copy->role = role_returned;
    return table_detach(copy);
  }
  for (Node *node : nodes)
    if (node->junction_tree != tree) return set_error(ov_error_usage), nullptr;
  if (domain->forest->compressed != 0) return set_error(ov_error_compressed), nullptr;
  if (tree->equilibrium == ov_equilibrium_none) return set_error(ov_error_no_equilibrium), nullptr;
  const auto equilibrium = static_cast<ov_equilibrium_t>(tree->equilibrium);
  // Without propagated evidence the two modes leave the same tables.
  const auto mode = tree->evidence_propagated ? static_cast<ov_evidence_mode_t>(tree->evidence_mode) : ov_mode_normal;
  Table *result = nullptr;
  Clique *home = nullptr;
  for (Clique *clique : tree->cliques)
    if (holds_all(clique, nodes) && (home == nullptr || clique->table->size < home->table->size)) home = clique;
  if (home != nullptr) {
    result = marginal_of(home->table, nodes, equilibrium, mode, false);
    if (result == nullptr) return nullptr;
  } else {
    // The search relies on the clique tables being consistent without
    // weights, which fast retraction does not give.
    if (mode == ov_mode_fast_retraction) return set_error(ov_error_fast_retraction), nullptr;
    Table *joint = general_search(domain, tree, nodes);
    if (joint == nullptr) return nullptr;
    Table *reduced = joint;
    if (!(joint->nodes == nodes)) {
      reduced = table_new(domain, nodes.data(), ov_table_kind_probability, role_returned, false, true);
      ov_status_t status =
          reduced == nullptr ? ov_error_code() : marginalize_tables(joint, reduced, equilibrium, mode, false);
      table_delete(joint);
      if (status != ov_error_none) {
        table_delete(reduced);
        set_error(status);
        return nullptr;
      }
    }
    result = table_detach(reduced);
  }
  if (mode == ov_mode_fast_retraction && normalize_result(result, equilibrium) != ov_error_none) {
    table_delete(result);
    return nullptr;
  }
  set_error(ov_error_none);
  return result;
}

double tree_conflict(const JunctionTree *tree) noexcept {
  double log_prior = 0.0;
  for (const Node *node : tree->members) {
    // A decision taken is no observation: it conditions the probability of
    // the evidence rather than being part of it.
    if (!node->is_discrete() || !evidence_propagated(node) || node->category == ov_category_decision) continue;
    const ov_number_t *p = node->propagated_finding->data.get();
    double weight = 0.0;
    for (std::uint32_t i = 0; i < node->state_count; ++i) weight += static_cast<double>(p[i]) * node->initial_belief[i];
    log_prior += std::log(weight);
  }
  return std::exp(log_prior - tree->total_log_constant);
}

double node_entropy(const Node *node) noexcept {
  double sum = 0.0;
  const Table *belief = node->belief_table;
  for (Size i = 0; i < belief->size; ++i) {
    const double p = belief->data[i];
    if (p > 0.0 && p < 1.0) sum -= p * std::log(p);
  }
  return sum;
}

double node_mutual_information(Node *a, Node *b) {
  NodeList pair;
  pair.push_back(a);
  pair.push_back(b);
  Table *joint = domain_get_marginal(a->home, pair);
  if (joint == nullptr) return -1.0;
  const ov_number_t *pa = a->belief_table->data.get();
  const ov_number_t *pb = b->belief_table->data.get();
  double sum = 0.0;
  // The joint lists a before b, so b runs fastest.
  for (std::uint32_t i = 0; i < a->state_count; ++i)
    for (std::uint32_t j = 0; j < b->state_count; ++j) {
      const double p = joint->data[static_cast<std::size_t>(i) * b->state_count + j];
      if (p > 0.0) sum += p * std::log(p / (static_cast<double>(pa[i]) * pb[j]));
    }
  table_delete(joint);
  set_error(ov_error_none);
  return sum > 0.0 ? sum : 0.0;
}

namespace {

// One node's lines of the report: a cell per state, the greatest marked.
ov_status_t log_node_cells(Domain *domain, Node *node, const ov_number_t *belief) {
  const char *name = node_get_name(node);
  if (name == nullptr) return ov_error_code();
  if (log_printf(domain, "\n    %s:\n", name) != ov_error_none) return ov_error_io;
  // The greatest cell carries the mark.
  std::uint32_t best = 0;
  for (std::uint32_t i = 1; i < node->state_count; ++i)
    if (belief[i] > belief[best]) best = i;
  for (std::uint32_t i = 0; i < node->state_count; ++i) {
    const char *mark = i == best ? " *****" : "";
    const char *label = state_label(node, i);
    ov_status_t status =
        label[0] != '\0'
            ? log_printf(domain, "\t%-10s %f%s\n", label, static_cast<double>(belief[i]), mark)
            : log_printf(domain, "\tstate%s   %f%s\n", format_count(domain, i), static_cast<double>(belief[i]), mark);
    if (status != ov_error_none) return ov_error_io;
  }
  return ov_error_none;
}

} // namespace

ov_status_t log_initial_beliefs(Domain *domain) {
  if (domain->log_file == nullptr) return set_error(ov_error_none);
  if (domain->utility_count > 0) {
    if (log_printf(domain, "\n\nUtilities for decisions:\n\n") != ov_error_none) return ov_error_io;
    for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it)
      if (it->get()->category == ov_category_decision &&
          log_node_cells(domain, it->get(), it->get()->utility_table->data.get()) != ov_error_none)
        return ov_error_code();
  }
  if (domain->chance_count == 0) return set_error(ov_error_none);
  if (log_printf(domain, "\n\nBeliefs for chance nodes:\n") != ov_error_none) return ov_error_io;
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it)
    if (it->get()->category == ov_category_chance && it->get()->is_discrete() &&
        log_node_cells(domain, it->get(), it->get()->belief_table->data.get()) != ov_error_none)
      return ov_error_code();
  return set_error(ov_error_none);
}

ov_error_t domain_result_state(const Domain *domain) noexcept {
  if (!domain_is_compiled(domain)) return ov_error_not_compiled;
  for (auto &tree : domain->forest->junction_trees)
    if (tree->equilibrium == ov_equilibrium_none) return ov_error_no_equilibrium;
  return ov_error_none;
}

ov_error_t information_state(const JunctionTree *tree) noexcept {
  const bool sum_normal =
      tree->equilibrium == ov_equilibrium_sum && (tree->evidence_mode == ov_mode_normal || !tree->evidence_propagated);
  return sum_normal ? ov_error_none : ov_error_usage;
}

double domain_conflict(const Domain *domain) noexcept {
  double product = 1.0;
  for (auto &tree : domain->forest->junction_trees) {
    if (tree->cg_evidence_propagated) return set_error(ov_error_cg_evidence_incorporated), -1.0;
    product *= tree_conflict(tree.get());
  }
  return product;
}

double domain_normalization_constant(const Domain *domain) noexcept {
  double product = 1.0;
  for (auto &tree : domain->forest->junction_trees) product *= tree->total_constant;
  return product;
}

double domain_log_normalization_constant(const Domain *domain) noexcept {
  double sum = 0.0;
  for (auto &tree : domain->forest->junction_trees) sum += tree->total_log_constant;
  return sum;
}

double mutual_information(Node *a, Node *b) {
  if (a == b) {
    if (refuse(tree_result_state(a->home, a->junction_tree))) return -1.0;
    if (refuse(information_state(a->junction_tree))) return -1.0;
    return node_entropy(a);
  }
  if (refuse(tree_result_state(a->home, a->junction_tree)) || refuse(tree_result_state(b->home, b->junction_tree)))
    return -1.0;
  if (a->junction_tree != b->junction_tree) return 0.0;
  if (refuse(information_state(a->junction_tree))) return -1.0;
  return node_mutual_information(a, b);
}

namespace {

bool is_chance(const Node *node, ov_kind_t kind) noexcept {
  return node->category == ov_category_chance && node->kind == kind;
}

} // namespace

bool marginal_list_valid(const NodeList &nodes) noexcept {
  std::uint32_t i = 0;
  while (i < nodes.size() && is_chance(nodes[i], ov_kind_discrete)) ++i;
  while (i < nodes.size() && is_chance(nodes[i], ov_kind_continuous)) ++i;
  return i == nodes.size();
}

double node_mean(const Node *node) noexcept {
  return node->value_propagated ? node->propagated_value : node->belief_table->cg_data[0];
}

double node_variance(const Node *node) noexcept {
  return node->value_propagated ? 0.0 : node->belief_table->cg_data[1];
}

} // namespace orvel
