// EM learning: one propagation per case for the expected counts of each
// learned family, normalised into new tables.
#include "learn/em.h"

#include <cfloat>
#include <cmath>
#include <memory>
#include <vector>

#include "api/error.h"
#include "compile/compiled_forest.h"
#include "inference/evidence.h"
#include "inference/propagation.h"
#include "inference/results.h"
#include "learn/cases.h"
#include "learn/family.h"
#include "model/chain_component.h"
#include "table/table.h"

namespace orvel {

namespace {

// The expected and prior counts of one learned table. The owner is the node
// whose table and experience are learned: the node itself, or for class
// tables the class node that the aliases stand for.
struct FamilyCounts {
  Node *owner = nullptr;
  std::vector<Node *> aliases; // domain nodes that add to these counts
  std::vector<ov_number_t> expected, prior;
};

// A chance node as the per-case routine sees it.
struct ChanceEntry {
  Node *node = nullptr;
  std::vector<std::uint64_t> strides; // of its table's nodes, last fastest
  FamilyCounts *counts = nullptr;
  FamilyView view;                 // only for a node with counts
  std::vector<std::int32_t> fixed; // per clique dimension: the case's state or -1
};

struct CaseRoutine {
  Domain *domain = nullptr;
  std::vector<ChanceEntry> chance;    // in node-list order
  std::vector<Node *> evidence_nodes; // chance and decision nodes, in node-list order
  std::vector<std::unique_ptr<FamilyCounts>> counts;
};

std::vector<std::uint64_t> table_strides(const Table *table) {
  std::vector<std::uint64_t> strides(table->discrete_count);
  std::uint64_t stride = 1;
  for (std::uint32_t k = table->discrete_count; k-- > 0;) {
    strides[k] = stride;
    stride *= table->nodes[k]->state_count;
  }
  return strides;
}

// The tests shared by learning and the likelihood queries.
ov_error_t learning_state(const Domain *domain) noexcept {
  if (domain_has_chain_components(domain)) return ov_error_usage;
  if (domain->decision_count > 0)
    for (const auto &node : domain->nodes) {
      if (node->category != ov_category_decision) continue;
      for (std::uint32_t i = 0; i < domain->case_count; ++i)
        if (!node_case_is_set(node.get(), i)) return ov_error_usage;
    }
  return compiled_state(domain);
}

ov_status_t routine_make(CaseRoutine &r, Domain *domain) {
  r.domain = domain;
  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node)) {
    if (takes_evidence(node)) r.evidence_nodes.push_back(node);
    if (node->category != ov_category_chance) continue;
    Table *table = node_table(node);
    if (table == nullptr) return ov_error_code();
    ChanceEntry entry;
    entry.node = node;
    entry.strides = table_strides(table);
    r.chance.push_back(std::move(entry));
  }
  return ov_error_none;
}

// Gives a chance node of the routine its counts and its view of the clique.
ov_status_t routine_attach(CaseRoutine &r, Node *node, FamilyCounts *counts) {
  for (ChanceEntry &entry : r.chance) {
    if (entry.node != node) continue;
    if (family_view_make(entry.view, node) != ov_error_none) return ov_error_code();
    entry.fixed.assign(entry.view.dimensions.size(), -1);
    entry.counts = counts;
    counts->aliases.push_back(node);
    return ov_error_none;
  }
  return fail(ov_error_usage);
}

// Adds the case's expected counts to one family after propagation.
void accumulate(ChanceEntry &entry, std::uint32_t index, ov_number_t count) noexcept {
  const Table *table = entry.node->table;
  bool complete = true;
  for (std::uint32_t k = 0; k < table->discrete_count && complete; ++k)
    complete = node_case_state(table->nodes[k], index) >= 0;
  std::vector<ov_number_t> &expected = entry.counts->expected;
  if (complete) {
    expected[family_cell(table, entry.strides, [&](const Node *m) { return node_case_state(m, index); })] += count;
    return;
  }
  FamilyView &view = entry.view;
  for (std::uint32_t k = 0; k < view.dimensions.size(); ++k)
    entry.fixed[k] = node_case_state(view.dimensions[k].node, index);
  const double total = family_view_gather(view, entry.fixed.data());
  if (!(total > 0.0)) return;
  const double scale = count / total;
  for (std::uint64_t k = 0; k < view.family_size; ++k)
    if (view.sums[k] != 0.0) expected[k] += static_cast<ov_number_t>(view.sums[k] * scale);
}

// Propagates the case's evidence one finding at a time, so that the
// normalisation follows what one step would overflow.
ov_status_t propagate_stepwise(CaseRoutine &r, std::uint32_t index) {
  domain_retract_findings(r.domain);
  for (Node *node : r.evidence_nodes) {
    if (!node_case_is_set(node, index)) continue;
    ov_status_t status = node->is_discrete()
                             ? node_select_state(node, static_cast<std::uint32_t>(node_case_state(node, index)))
                             : node_enter_value(node, node->case_values[index]);
    if (status == ov_error_none) status = propagate_domain(r.domain, ov_equilibrium_sum, ov_mode_normal);
    if (status != ov_error_none) return status;
  }
  return ov_error_none;
}

// The contribution of case `index` to the log-likelihood, adding its
// expected counts to the families that have counts.
ov_status_t case_contribution(CaseRoutine &r, std::uint32_t index, double &result) {
  result = 0.0;
  const ov_number_t count = domain_case_count(r.domain, index);
  if (!(count > 0.0f)) return ov_error_none;

  // A complete case needs no propagation: its probability is the product
  // of one cell of each table.
  bool complete = r.domain->continuous_count == 0;
  for (std::uint32_t k = 0; k < r.chance.size() && complete; ++k)
    complete = node_case_state(r.chance[k].node, index) >= 0;
  if (complete) {
    double sum = 0.0;
    for (ChanceEntry &entry : r.chance) {
      const Table *table = entry.node->table;
      const std::uint64_t cell =
          family_cell(table, entry.strides, [&](const Node *m) { return node_case_state(m, index); });
      const ov_number_t p = table->data[cell];
      if (!(p > 0.0f)) return fail(ov_error_inconsistency_or_underflow);
      sum += std::log(static_cast<double>(p));
      if (entry.counts != nullptr) entry.counts->expected[cell] += count;
    }
    result = count * sum;
    return ov_error_none;
  }

  ov_status_t status = domain_enter_case(r.domain, index);
  if (status != ov_error_none) return status;
  status = propagate_domain(r.domain, ov_equilibrium_sum, ov_mode_normal);
  if (status == ov_error_overflow) status = propagate_stepwise(r, index);
  if (status != ov_error_none) return status;
  for (ChanceEntry &entry : r.chance)
    if (entry.counts != nullptr) accumulate(entry, index, count);
  result = count * domain_log_normalization_constant(r.domain);
  return ov_error_none;
}

// Keeps the forest's initial tables in the table memory for the length of a
// pass over the cases, when the domain keeps none: each case then restores
// them by a copy instead of rebuilding them from the node tables, which
// gives the same tables. After a table change the first case rebuilds
// them and saves over the copy. Memory made here is given back.
struct TableMemoryScope {
  Domain *domain;
  bool made = false;
  explicit TableMemoryScope(Domain *d) : domain(d) {
    if (domain->forest->memory_table_data) return;
    made = domain_save_to_memory(domain) == ov_error_none;
    set_error(ov_error_none); // without the memory the pass only runs slower
  }
  ~TableMemoryScope() {
    if (made) domain_reclaim_memory_tables(domain);
  }
  TableMemoryScope(const TableMemoryScope &) = delete;
  TableMemoryScope &operator=(const TableMemoryScope &) = delete;
};

ov_status_t sum_cases(CaseRoutine &r, double &total) {
  total = 0.0;
  for (std::uint32_t i = 0; i < r.domain->case_count; ++i) {
    double part = 0.0;
    if (case_contribution(r, i, part) != ov_error_none) return ov_error_code();
    total += part;
  }
  return ov_error_none;
}

// Prior counts: the conditional probabilities times the experience of
// their configuration, none where the experience is not positive.
void fill_prior(FamilyCounts &c) {
  const Table *table = c.owner->table;
  const Table *experience = c.owner->experience_table;
  const std::uint32_t states = c.owner->state_count;
  c.prior.assign(table->size, 0.0f);
  c.expected.assign(table->size, 0.0f);
  for (std::uint64_t j = 0; j < table->size / states; ++j) {
    const ov_number_t e = experience->data[j];
    if (!(e > 0.0f)) continue;
    for (std::uint32_t s = 0; s < states; ++s) c.prior[j * states + s] = table->data[j * states + s] * e;
  }
}

// The M-step for one set of counts: the owner's table becomes the counts
// normalised per configuration (uniform where they sum to 0), copied to
// every alias, each alias's table marked.
void maximize(FamilyCounts &c) {
  Table *table = c.owner->table;
  const std::uint32_t states = c.owner->state_count;
  ov_number_t *data = table->data.get();
  for (std::uint64_t start = 0; start < table->size; start += states) {
    ov_number_t sum = 0.0f;
    for (std::uint32_t s = 0; s < states; ++s) sum += c.expected[start + s];
    if (sum > 0.0f) {
      const ov_number_t scale = 1.0f / sum;
      for (std::uint32_t s = 0; s < states; ++s) data[start + s] = c.expected[start + s] * scale;
    } else {
      for (std::uint32_t s = 0; s < states; ++s) data[start + s] = 1.0f / static_cast<ov_number_t>(states);
    }
  }
  for (Node *alias : c.aliases) {
    if (alias != c.owner) std::copy(data, data + table->size, alias->table->data.get());
    touch_table(alias);
  }
}

// Experience after learning: the expected count of each configuration.
void store_experience(FamilyCounts &c) {
  const std::uint32_t states = c.owner->state_count;
  Table *experience = c.owner->experience_table;
  for (std::uint64_t j = 0; j < experience->size; ++j) {
    ov_number_t sum = 0.0f;
    for (std::uint32_t s = 0; s < states; ++s) sum += c.expected[j * states + s];
    experience->data[j] = sum;
  }
  for (Node *alias : c.aliases)
    if (alias != c.owner)
      std::copy(experience->data.get(), experience->data.get() + experience->size, alias->experience_table->data.get());
}

// The learned node a domain node stands for in class learning: the last
// of its sources.
Node *source_of(const Node *node) noexcept {
  return node->source == nullptr || node->source->empty() ? nullptr : (*node->source)[node->source->size() - 1];
}

// The source correspondence that class learning needs.
bool sources_match(const Domain *domain) noexcept {
  for (const auto &owned : domain->nodes) {
    const Node *node = owned.get();
    const Node *source = source_of(node);
    if (source == nullptr) return false;
    if (node->has_states() && source->state_count != node->state_count) return false;
    const Table *mine = node->experience_table, *theirs = source->experience_table;
    if (mine == nullptr || theirs == nullptr) continue;
    if (mine->nodes.size() != theirs->nodes.size()) return false;
    for (std::uint32_t k = 0; k < mine->nodes.size(); ++k)
      if (source_of(mine->nodes[k]) != theirs->nodes[k]) return false;
  }
  return true;
}

ov_status_t run_em(Domain *domain, CaseRoutine &r) {
  const LearningSettings &settings = domain->learning;
  for (auto &c : r.counts) fill_prior(*c);
  double previous = -DBL_MAX;
  std::uint64_t iteration = 0;
  for (;;) {
    for (auto &c : r.counts) std::copy(c->prior.begin(), c->prior.end(), c->expected.begin());
    double ll = 0.0;
    if (sum_cases(r, ll) != ov_error_none) return ov_error_code();
    ++iteration;
    if (log_printf(domain, "    Log-likelihood for iteration %s: %g\n", format_count(domain, iteration), ll) !=
        ov_error_none)
      return ov_error_code();
    bool stop = std::fabs(ll - previous) <= settings.log_likelihood_tolerance * std::fabs(ll);
    if (settings.max_em_iterations != 0 && iteration >= settings.max_em_iterations) stop = true;
    previous = ll;
    for (auto &c : r.counts) maximize(*c);
    if (stop) break;
  }
  if (domain_initialize(domain) != ov_error_none) return ov_error_code();
  for (auto &c : r.counts) store_experience(*c);
  return ov_error_none;
}

ov_status_t final_report(Domain *domain) {
  const double ll = domain_log_likelihood(domain);
  if (ll > 0.0) return ov_error_code();
  const double aic = domain_aic(domain), bic = domain_bic(domain);
  if (aic > 0.0 || bic > 0.0) return ov_error_code();
  if (log_printf(domain, "\nEM learning - final results:\n\n") != ov_error_none ||
      log_printf(domain, "    Log-likelihood: %g\n", ll) != ov_error_none ||
      log_printf(domain, "    AIC: %g\n", aic) != ov_error_none ||
      log_printf(domain, "    BIC: %g\n", bic) != ov_error_none)
    return ov_error_code();
  return log_flush(domain);
}

ov_status_t learn(Domain *domain, bool class_tables) {
  if (domain->case_count == 0 || (class_tables && !sources_match(domain))) return fail(ov_error_usage);
  if (ov_error_t code = learning_state(domain); code != ov_error_none) return fail(code);
  if (domain_is_compiled(domain) && forest_is_compressed(domain)) return fail(ov_error_compressed);
  if (log_printf(domain, "EM learning with %s cases:\n\n", format_count(domain, domain->case_count)) != ov_error_none)
    return ov_error_code();
  CaseRoutine r;
  if (routine_make(r, domain) != ov_error_none) return ov_error_code();
  TableMemoryScope memory(domain);
  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node)) {
    if (node->experience_table == nullptr || node->category != ov_category_chance || !node->is_discrete()) continue;
    Node *owner = node;
    if (class_tables) {
      owner = source_of(node);
      if (owner->experience_table == nullptr || owner->table == nullptr) continue;
    }
    FamilyCounts *counts = nullptr;
    for (auto &c : r.counts)
      if (c->owner == owner) counts = c.get();
    if (counts == nullptr) {
      r.counts.push_back(std::make_unique<FamilyCounts>());
      counts = r.counts.back().get();
      counts->owner = owner;
    }
    if (routine_attach(r, node, counts) != ov_error_none) return ov_error_code();
  }
  if (run_em(domain, r) != ov_error_none) return ov_error_code();
  r.counts.clear();
  return final_report(domain);
}

// Free parameters of the chance nodes' tables.
double free_parameters(Domain *domain) {
  double p = 0.0;
  for (const auto &node : domain->nodes) {
    if (node->category != ov_category_chance) continue;
    const Table *table = node_table(node.get());
    if (table == nullptr) continue;
    if (node->is_discrete())
      p += static_cast<double>(table->size) - static_cast<double>(table->size / node->state_count);
    else
      p += static_cast<double>(table->continuous_count + 1) * static_cast<double>(table->size);
  }
  return p;
}

} // namespace

ov_status_t domain_learn_tables(Domain *domain) { return learn(domain, false); }
ov_status_t domain_learn_class_tables(Domain *domain) { return learn(domain, true); }

double domain_log_likelihood(Domain *domain) {
  LearningSettings &settings = domain->learning;
  if (settings.log_likelihood_valid != 0) return settings.log_likelihood;
  if (ov_error_t code = learning_state(domain); code != ov_error_none) return fail(code), 1.0;
  if (domain->case_count == 0) return 0.0;
  CaseRoutine r;
  TableMemoryScope memory(domain);
  double ll = 0.0;
  if (routine_make(r, domain) != ov_error_none || sum_cases(r, ll) != ov_error_none) return 1.0;
  if (domain_initialize(domain) != ov_error_none) return 1.0;
  settings.log_likelihood = ll;
  settings.log_likelihood_valid = 1;
  return ll;
}

double domain_aic(Domain *domain) {
  const double ll = domain_log_likelihood(domain);
  if (ll > 0.0) return 1.0;
  return ll - free_parameters(domain);
}

double domain_bic(Domain *domain) {
  const double ll = domain_log_likelihood(domain);
  if (ll > 0.0) return 1.0;
  return ll - free_parameters(domain) * std::log(static_cast<double>(domain->case_count)) / 2.0;
}

} // namespace orvel
