// The propagation driver: evidence entry, propagating a tree, re-initialising, saving to memory.
#include "inference/propagation.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <utility>
#include <vector>

#include "compile/compiled_forest.h"
#include "expr/model.h"
#include "inference/cg_propagation.h"
#include "inference/decisions.h"
#include "inference/evidence.h"
#include "inference/propagation_engine.h"
#include "model/chain_component.h"
#include "model/hooks.h"
#include "table/algebra.h"
#include "table/table.h"

namespace orvel {

using namespace engine;

namespace {

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
  // An infinite likelihood is beyond what a table holds: overflow, before
  // any table is touched.
  for (Node *node : tree->members)
    for (ov_number_t cell : node->entered_finding)
      if (std::isinf(cell)) return fail(ov_error_overflow);
  const Run run{tree, equilibrium, mode};
  const bool same = tree->equilibrium == equilibrium;
  bool joined = false; // the evidence walks joined the active cliques
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
    if (start != nullptr && !tree->hard_nodes.empty()) apply_hard_evidence(start);
    for (Node *node : tree->hard_nodes) node->mark = 0;
    tree->hard_nodes.clear();
    clique = start;
    joined = true;
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
  if (collect_and_distribute(run, clique, joined) != ov_error_none ||
      compute_marginals(tree, true, equilibrium, mode) != ov_error_none)
    return ov_error_code();
  tree->equilibrium = equilibrium;
  tree->evidence_mode = mode;
  tree->changed_evidence_count = 0;
  tree->evidence_propagated = tree->likelihood_propagated = tree->cg_evidence_propagated = false;
  for (Node *node : tree->members) {
    if (node->is_discrete()) {
      // A likelihood is evidence: a node without evidence needs no second look.
      if (evidence_propagated(node)) {
        tree->evidence_propagated = true;
        if (!tree->likelihood_propagated && likelihood_propagated(node)) tree->likelihood_propagated = true;
      }
    } else if (node->value_propagated) {
      tree->evidence_propagated = tree->cg_evidence_propagated = true;
    }
  }
  return ov_error_none;
}

bool evidence_mode_is(const JunctionTree *tree, ov_evidence_mode_t mode) noexcept {
  return tree->evidence_mode == mode || !tree->evidence_propagated;
}

// The solver of a tree that propagates beside the engine: influence
// diagrams and mixed networks.
ov_status_t solve_beside(JunctionTree *tree) {
  try {
    return has_decisions(tree->domain) ? solve_decision_tree(tree) : solve_cg_tree(tree);
  } catch (const std::bad_alloc &) {
    return fail(ov_error_no_memory);
  }
}

// An influence diagram or a mixed network is solved afresh from the node
// tables and the entered findings on each propagation that has something
// to do.
ov_status_t propagate_beside(JunctionTree *tree) {
  for (Node *node : tree->members) {
    if (!node->is_discrete()) continue;
    for (ov_number_t cell : node->entered_finding)
      if (std::isinf(cell)) return fail(ov_error_overflow);
  }
  for (Node *node : tree->members) {
    if (!node->is_discrete()) {
      node->value_propagated = node->value_entered;
      if (node->value_entered) node->propagated_value = node->entered_value;
      continue;
    }
    ov_number_t *p = propagated(node);
    if (node->entered_finding.empty())
      std::fill_n(p, node->state_count, 1.0f);
    else
      std::copy_n(node->entered_finding.data(), node->state_count, p);
    node->instantiated_state = single_state(p, node->state_count);
  }
  ov_status_t status = solve_beside(tree);
  if (status != ov_error_none) {
    jt_initialize(tree, false);
    return fail(static_cast<ov_error_t>(status));
  }
  tree->equilibrium = ov_equilibrium_sum;
  tree->evidence_mode = ov_mode_normal;
  tree->changed_evidence_count = 0;
  tree->evidence_propagated = tree->likelihood_propagated = tree->cg_evidence_propagated = false;
  for (Node *node : tree->members)
    if (evidence_propagated(node)) {
      tree->evidence_propagated = true;
      if (likelihood_propagated(node)) tree->likelihood_propagated = true;
      if (!node->is_discrete()) tree->cg_evidence_propagated = true;
    }
  return set_error(ov_error_none);
}

} // namespace

ov_status_t jt_initialize(JunctionTree *tree, bool first_time) {
  Domain *domain = tree->domain;
  if (domain->continuous_count > 0 && has_decisions(domain)) return fail(ov_error_cg_influence_diagrams_not_supported);
  tree->equilibrium = ov_equilibrium_none;
  prepare_tree(tree);
  if (!first_time) reset_evidence_state(tree);
  tree->changed_evidence_count = 0;
  if (domain->compiled != 0)
    for (Node *node : tree->members)
      if (finding_differs(node)) ++tree->changed_evidence_count;
  if (generate_tables_of_junction_tree(tree) != ov_error_none) return ov_error_code();
  if (has_decisions(domain) || domain->continuous_count > 0) {
    const ov_status_t status = solve_beside(tree);
    if (status != ov_error_none) return fail(static_cast<ov_error_t>(status));
    // The beliefs without evidence are the priors of the conflict measure.
    for (Node *node : tree->members)
      if (node->is_discrete())
        std::copy_n(node->belief_table->data.get(), node->state_count, node->initial_belief.data());
    tree->tables_changed = false;
    tree->equilibrium = ov_equilibrium_sum;
    return set_error(ov_error_none);
  }
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
  if (has_decisions(domain) || domain->continuous_count > 0) {
    if (tree->tables_changed && jt_initialize(tree, false) != ov_error_none) return ov_error_code();
    if (tree->changed_evidence_count == 0 && tree->equilibrium == ov_equilibrium_sum) return set_error(ov_error_none);
    return propagate_beside(tree);
  }
  if (mode == ov_mode_fast_retraction && domain->forest->compressed != 0) return fail(ov_error_compressed);
  if (tree->tables_changed && jt_initialize(tree, false) != ov_error_none) return ov_error_code();
  auto nothing_to_do = [&] {
    return tree->changed_evidence_count == 0 && tree->equilibrium == equilibrium && evidence_mode_is(tree, mode);
  };
  if (nothing_to_do()) return set_error(ov_error_none);
  const bool was_fast = tree->evidence_mode == ov_mode_fast_retraction && tree->evidence_propagated;
  bool initialized = false; // an initialisation resets the factors and conflict cliques itself
  if (mode == ov_mode_normal) {
    if (!was_fast) {
      for (Node *node : tree->members)
        if (finding_retracted(node)) {
          if (jt_initialize(tree, false) != ov_error_none) return ov_error_code();
          initialized = true;
          break;
        }
    }
  } else if (!was_fast && tree->evidence_propagated) {
    if (jt_initialize(tree, false) != ov_error_none) return ov_error_code();
    initialized = true;
  }
  if (!initialized) {
    for (Clique *c : tree->cliques) {
      for (Node *member : c->table->nodes) member->conflict_clique = nullptr;
      c->factor = 1.0;
    }
    tree->evidence_factor = tree->step_constant = 1.0;
    tree->step_log_constant = 0.0;
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

namespace {

// Whether a tree's tables may be saved: at sum equilibrium, and either in
// normal mode or without propagated evidence.
bool may_save(const JunctionTree *tree) noexcept {
  return tree->equilibrium == ov_equilibrium_sum &&
         (tree->evidence_mode == ov_mode_normal || !tree->evidence_propagated);
}

// What a full initialisation of a tree overwrites and the caller can see:
// the tree's forest tables (cliques, separators, beliefs, propagated
// findings, normalisers), the node tables it normalises, and the working
// state of the evidence.
struct TreeSnapshot {
  std::vector<std::pair<Table *, std::vector<ov_number_t>>> data;
  std::vector<std::pair<Table *, std::vector<double>>> cg;
  std::vector<double> factors;
  std::vector<std::pair<Clique *, std::int32_t>> members; // conflict clique, instantiated state
  std::vector<std::vector<ov_number_t>> initial_beliefs;
  JunctionTree tree_state; // constants, flags and mode (its lists stay empty)

  void take(JunctionTree *tree) {
    auto keep = [&](Table *table) {
      if (table == nullptr || table->data.get() == nullptr) return;
      data.emplace_back(table, std::vector<ov_number_t>(table->data.get(), table->data.get() + table->size));
      if (table->cg_stride > 0)
        cg.emplace_back(table, std::vector<double>(table->cg_data.get(),
                                                   table->cg_data.get() + std::size_t{table->size} * table->cg_stride));
    };
    for (const JunctionTree::SavedTable &saved : tree->saved_tables) keep(saved.table);
    for (Node *node : tree->members) {
      if (node->category == ov_category_chance) keep(node->table);
      members.emplace_back(node->conflict_clique, node->instantiated_state);
      initial_beliefs.push_back(node->initial_belief);
    }
    for (Clique *clique : tree->cliques) factors.push_back(clique->factor);
    copy_state(*tree, tree_state);
  }

  static void copy_state(const JunctionTree &from, JunctionTree &to) noexcept {
    to.evidence_propagated = from.evidence_propagated;
    to.likelihood_propagated = from.likelihood_propagated;
    to.cg_evidence_propagated = from.cg_evidence_propagated;
    to.equilibrium = from.equilibrium;
    to.evidence_mode = from.evidence_mode;
    to.step_constant = from.step_constant;
    to.total_constant = from.total_constant;
    to.step_log_constant = from.step_log_constant;
    to.total_log_constant = from.total_log_constant;
    to.evidence_factor = from.evidence_factor;
    to.initial_constant = from.initial_constant;
  }

  void give_back(JunctionTree *tree) const noexcept {
    for (const auto &[table, values] : data) std::copy(values.begin(), values.end(), table->data.get());
    for (const auto &[table, values] : cg) std::copy(values.begin(), values.end(), table->cg_data.get());
    for (std::size_t i = 0; i < tree->members.size(); ++i) {
      tree->members[i]->conflict_clique = members[i].first;
      tree->members[i]->instantiated_state = members[i].second;
      std::copy(initial_beliefs[i].begin(), initial_beliefs[i].end(), tree->members[i]->initial_belief.begin());
    }
    for (std::size_t i = 0; i < tree->cliques.size(); ++i) tree->cliques[i]->factor = factors[i];
    copy_state(tree_state, *tree);
  }
};

// Fills the table memory of a tree whose tables hold evidence multiplied in
// (normal mode): its current state goes aside, the evidence state is reset
// and a full initialisation makes the initial tables and saves them, then
// the current state comes back.
ov_status_t save_initial_tables(JunctionTree *tree) {
  TreeSnapshot snapshot;
  snapshot.take(tree);
  ov_status_t status;
  try {
    reset_evidence_state(tree);
    status = initialize_tables(tree, false);
  } catch (const std::bad_alloc &) {
    status = fail(ov_error_no_memory);
  }
  snapshot.give_back(tree);
  return status == ov_error_none ? ov_error_none : fail(static_cast<ov_error_t>(status));
}

} // namespace

// The table memory holds each tree's initial tables, those of the tree with
// no evidence, which an initialisation restores instead of recomputing
// them. Saving is allowed when every tree is at sum equilibrium, and in
// normal mode or without propagated evidence. A tree without evidence in
// its tables is copied as it stands. A tree whose tables hold normal-mode
// evidence keeps what the memory holds for it, if there is memory; else it
// is initialised afresh to get its initial tables, and then given
// back its tables and evidence state, so that the call changes nothing the
// caller can query (beliefs, constants, the evidence counted as
// propagated). A tree whose node tables changed is copied as it stands:
// its next initialisation is a full one and saves over the copy.
ov_status_t domain_save_to_memory(Domain *domain) {
  for (auto &tree : domain->forest->junction_trees)
    if (!may_save(tree.get())) return fail(ov_error_usage);
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
  // Memory that exists already holds the initial tables of every tree whose
  // node tables have not changed since: each initialisation restored them
  // from it, or saved them to it. They may differ from what the node tables
  // give (approximation), so they are kept rather than made afresh.
  const bool had_memory = static_cast<bool>(domain->forest->memory_table_data);
  if (!had_memory) {
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
  for (auto &tree : domain->forest->junction_trees) {
    if (!tree->evidence_propagated || tree->evidence_mode != ov_mode_normal || tree->tables_changed) {
      save_tables(tree.get());
    } else if (had_memory) {
      continue;
    } else if (save_initial_tables(tree.get()) != ov_error_none) {
      // No half-filled memory stays behind to be restored later.
      const ov_status_t code = ov_error_code();
      domain_reclaim_memory_tables(domain);
      return fail(static_cast<ov_error_t>(code));
    }
  }
  return set_error(ov_error_none);
}

} // namespace orvel
