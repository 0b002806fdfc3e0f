// The domain record, shared by domains and classes, and the operations on
// the domain as a whole.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "api/memory.h"
#include "model/attribute.h"
#include "model/chain_component.h"
#include "model/hooks.h"
#include "model/node.h"
#include "model/node_list.h"
#include "orvel.h"

namespace orvel {

// Chained hash table from names to nodes, built on demand by the lookup.
struct NameTable {
  std::vector<std::vector<Node *>> buckets; // empty: no table
};

// Settings and results of learning from cases.
struct LearningSettings {
  double significance_level = 0.05;
  double log_likelihood_tolerance = 0.0001;
  std::uint32_t max_em_iterations = 0;
  double log_likelihood = 0.0;
  std::uint32_t log_likelihood_valid = 0;
};

// The record of the independence tests of one pair of nodes, made by
// structure learning and kept for the data-independency query.
struct IndependenceTest {
  std::vector<ov_node_s *> conditioning_set; // empty for the first (marginal) test
  std::uint32_t degrees_of_freedom = 0;
  double statistic = 0.0; // G²
  double p_value = 1.0;
  bool is_independent = false;
};
struct EdgeTestRecord {
  double strength = 0.0; // G² of the marginal test
  std::vector<IndependenceTest> tests;
  std::uint32_t independent_count = 0;
  int constraint = ov_constraint_none;
};

// A domain as a class of an object-oriented network.
struct ClassSettings {
  ov_class_collection_s *collection = nullptr; // non-null exactly for a class
  std::optional<std::string> name;
  NodeList inputs, outputs, instances;
  std::uint32_t mark = 0;
};

} // namespace orvel

struct ov_domain_s {
  // Every table the domain owns, oldest first: a table's serial is its
  // position here from 1.
  std::vector<orvel::TablePtr> tables;

  // The ring of format_count.
  char count_text[8][64] = {};
  std::uint32_t count_text_next = 0;

  int node_width = 0, node_height = 0;
  std::optional<std::string> file_name;
  std::FILE *log_file = nullptr; // not owned

  // The nodes, oldest first: a node's number is its position here from 1,
  // and the public list (newest first) walks this vector backwards.
  std::vector<std::unique_ptr<ov_node_s>> nodes;
  std::uint32_t discrete_count = 0, continuous_count = 0;
  std::uint32_t chance_count = 0, decision_count = 0, utility_count = 0, instance_count = 0;
  orvel::NameTable names;
  // Undirected components of a chain graph, made by the NET parser.
  std::vector<std::unique_ptr<orvel::ChainComponent>> chain_components;

  std::uint32_t grain_size = 10000;
  std::uint32_t concurrency_level = 1;
  std::vector<double> scratch_values; // working vector of kernels and evaluator
  orvel::NodeList result_nodes;       // buffer of the d-separation queries

  std::uint32_t compiled = 0;
  // The bound on the states of the optimal triangulation search; 0: built in.
  std::size_t max_separators = 0;
  // Decisions remember only their parents (a limited-memory influence
  // diagram) instead of everything observed and decided before them.
  bool limited_memory = false;
  // The compiled state: junction forest, kernel plans, saved table memory
  // and the work buffers of propagation (compile/compiled_forest.h). Never
  // null; release_forest empties it.
  orvel::CompiledForestPtr forest;

  orvel::LearningSettings learning;
  // Cases: numbered records of observed values, with a weight (count) each;
  // the values are on the nodes. Every per-case array that exists has
  // case_capacity entries. No weights: every count is 1.
  std::uint32_t case_count = 0, case_capacity = 0;
  std::vector<ov_number_t> case_weights;
  // One record per unordered pair of nodes, by pair_index, from the last
  // structure learning run that tested something; empty otherwise.
  std::vector<orvel::EdgeTestRecord> structure_data;
  orvel::RandomStatePtr random; // never null; seeded with the default seed at creation

  void *user_data = nullptr;
  orvel::AttributeList attributes;

  orvel::ClassSettings class_info;

  ov_domain_s();
  ov_domain_s(const ov_domain_s &) = delete;
  ov_domain_s &operator=(const ov_domain_s &) = delete;
  ~ov_domain_s();

  std::uint32_t node_count() const noexcept { return static_cast<std::uint32_t>(nodes.size()); }
  bool is_class() const noexcept { return class_info.collection != nullptr; }
  // The newest node, or null.
  ov_node_s *first_node() const noexcept { return nodes.empty() ? nullptr : nodes.back().get(); }
  // The node older than `node`, or null.
  ov_node_s *next_node(const ov_node_s *node) const noexcept {
    return node->number > 1 ? nodes[node->number - 2].get() : nullptr;
  }
};

namespace orvel {

inline Domain *as_domain(ov_class_t c) noexcept { return reinterpret_cast<Domain *>(c); }
inline ov_class_t as_class(Domain *d) noexcept { return reinterpret_cast<ov_class_t>(d); }

// Whether the domain has a junction forest with its tables.
inline bool domain_is_compiled(const Domain *domain) noexcept { return domain->compiled != 0; }
// What stands in the way of an operation that needs a junction forest:
// not_compiled for a domain that has none, else none.
inline ov_error_t compiled_state(const Domain *domain) noexcept {
  return domain_is_compiled(domain) ? ov_error_none : ov_error_not_compiled;
}

// Whether the domain keeps a triangulation: its first node has an
// elimination number. Releasing the forest and uncompiling: model/hooks.h.
bool domain_is_triangulated(const Domain *domain) noexcept;
// Uncompiles a domain and deletes it with its nodes and tables.
void domain_delete(Domain *domain) noexcept;

// The node of that name, building or growing the name table as needed.
Node *domain_find_node(Domain *domain, const char *name);
// Name table maintenance for a node whose name changes from `old_name`.
void name_table_rename(Domain *domain, Node *node, const std::optional<std::string> &old_name) noexcept;
void name_table_remove(Domain *domain, Node *node) noexcept;

// Writes a report line to the domain's log. No log: success. A failing
// write records io and returns it.
ov_status_t log_printf(Domain *domain, const char *format, ...) __attribute__((format(printf, 2, 3)));
// Flushes the log; io on failure.
ov_status_t log_flush(Domain *domain) noexcept;
// A count in text, "HUGE" for size_overflow; valid for eight further calls
// on the same domain.
const char *format_count(Domain *domain, std::uint64_t value) noexcept;

} // namespace orvel
