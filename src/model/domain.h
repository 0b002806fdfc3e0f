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
#include "compile/clique.h"
#include "compile/junction_tree.h"
#include "learn/random.h"
#include "model/attribute.h"
#include "model/chain_component.h"
#include "model/node.h"
#include "model/node_list.h"
#include "orvel.h"

namespace orvel {

// Kernel plans are owned by their domain (see table/plan.h).
struct KernelPlanDeleter {
  void operator()(KernelPlan *plan) const noexcept;
};
using KernelPlanPtr = std::unique_ptr<KernelPlan, KernelPlanDeleter>;

// Chained hash table from names to nodes, built on demand by the lookup.
struct NameTable {
  std::vector<std::vector<Node *>> buckets; // empty: no table
};

} // namespace orvel

struct ov_domain_s {
  std::uint32_t clique_count = 0;        // also the source of clique numbers
  std::uint32_t junction_tree_count = 0; // also the source of tree numbers
  // The junction forest: cliques in list order and trees newest first. A
  // clique's or tree's position is its index here.
  std::vector<std::unique_ptr<ov_clique_s>> cliques;
  std::vector<std::unique_ptr<ov_junction_tree_s>> junction_trees;

  // Every table the domain owns, oldest first: a table's serial is its
  // position here from 1.
  std::vector<orvel::TablePtr> tables;

  // Every kernel plan the domain owns, oldest first: a plan's serial is its
  // position here from 1. Plans belong to the compiled state and go with it.
  std::vector<orvel::KernelPlanPtr> kernel_plans;

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
  std::uint32_t max_separators = 0;
  std::optional<orvel::NodeList> elimination_order;
  // Saved junction-tree data: the data, CG data and CG roles of every
  // forest table, in list order one behind the other.
  orvel::Buffer<ov_number_t> memory_table_data;
  orvel::Buffer<double> memory_table_cg;
  orvel::Buffer<std::int8_t> memory_table_kinds;
  std::uint32_t compressed = 0;
  // Strides of a clique's nodes during a walk of propagation, sized for the
  // largest clique at compile time.
  std::vector<std::uint32_t> walk_strides;

  double significance_level = 0.05;
  double log_likelihood_tolerance = 0.0001;
  std::uint32_t max_em_iterations = 0;
  double log_likelihood = 0.0;
  std::uint32_t log_likelihood_valid = 0;

  orvel::RandomState random; // seeded with the default seed at creation

  void *user_data = nullptr;
  orvel::AttributeList attributes;

  // Classes: class_collection is non-null exactly for a class.
  ov_class_collection_s *class_collection = nullptr;
  std::optional<std::string> class_name;
  orvel::NodeList class_inputs, class_outputs, class_instances;
  std::uint32_t class_mark = 0;

  ov_domain_s();
  ov_domain_s(const ov_domain_s &) = delete;
  ov_domain_s &operator=(const ov_domain_s &) = delete;
  ~ov_domain_s();

  std::uint32_t node_count() const noexcept { return static_cast<std::uint32_t>(nodes.size()); }
  std::uint32_t kernel_plan_count() const noexcept { return static_cast<std::uint32_t>(kernel_plans.size()); }
  bool is_class() const noexcept { return class_collection != nullptr; }
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
// elimination number.
bool domain_is_triangulated(const Domain *domain) noexcept;
// Releases the junction forest (and with drop_triangulation the
// triangulation too: neighbours, fill-ins, levels and elimination numbers),
// leaving node tables, entered evidence and cases alone. This is both the
// uncompile and the roll-back of every failed compile stage.
void release_forest(Domain *domain, bool drop_triangulation) noexcept;
// Releases the forest and the triangulation if the domain is triangulated.
void domain_uncompile(Domain *domain) noexcept;
// Uncompiles a domain and deletes it with its nodes and tables.
void domain_delete(Domain *domain) noexcept;
// Frees the saved junction-tree data.
void domain_reclaim_memory_tables(Domain *domain) noexcept;

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
