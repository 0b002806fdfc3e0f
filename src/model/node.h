// The node record and the operations on nodes shared by the subsystems.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/attribute.h"
#include "model/node_list.h"
#include "orvel.h"

#include "model/forward.h"

namespace orvel {

// State labels of a discrete node; an absent label is a state that has none.
// Shared between a class output and its clones.
using StateLabels = std::vector<std::optional<std::string>>;
// State values, state_count + 1 of them; shared like the labels.
using StateValues = std::vector<double>;

struct TableDeleter {
  void operator()(Table *table) const noexcept;
};
using TablePtr = std::unique_ptr<Table, TableDeleter>;
struct ModelDeleter {
  void operator()(ov_model_s *model) const noexcept;
};
using ModelPtr = std::unique_ptr<ov_model_s, ModelDeleter>;
} // namespace orvel

struct ov_node_s {
  orvel::Domain *home = nullptr;
  ov_category_t category = ov_category_chance;
  ov_kind_t kind = ov_kind_discrete;
  std::uint32_t number = 0; // position counted from the oldest node, from 1
  std::optional<std::string> name;
  orvel::NodeList parents; // discrete parents first, the latest first
  orvel::NodeList children;
  std::int8_t mark = 0; // scratch mark of graph walks; 0 between operations
  std::string label;
  int position_x = 0, position_y = 0;

  ov_table_s *table = nullptr; // conditional or utility table, on the domain's list
  orvel::ChainComponent *chain_component = nullptr;

  // Compilation and inference (owned by the forest).
  ov_junction_tree_s *junction_tree = nullptr;
  ov_clique_s *home_clique = nullptr;      // clique that takes the node's table
  orvel::KernelPlan *table_plan = nullptr; // multiplies the table into its home clique
  orvel::KernelPlan *extra_table_plan = nullptr;
  orvel::KernelPlan *marginal_plan = nullptr; // from the marginal source to belief_table
  // Tables the marginal is taken from: a clique's or a separator's.
  ov_table_s *marginal_source = nullptr;
  ov_table_s *marginal_source_utility = nullptr;
  std::uint32_t elimination_number = 0; // non-zero means triangulated; the node eliminated first has the highest
  // Higher levels are eliminated first; also the visit mark of the cycle test.
  std::uint32_t level = 0;
  // Links of the moral graph, with the necessary fill-ins; chance and
  // decision nodes only.
  std::vector<ov_node_s *> neighbours;
  std::vector<ov_node_s *> fill_ins; // fill-in links added when an elimination order is applied
  ov_table_s *belief_table = nullptr;
  ov_table_s *utility_table = nullptr;
  ov_clique_s *conflict_clique = nullptr;

  // Edge constraints towards other nodes: (other node, value), one per node.
  std::vector<std::pair<ov_node_s *, int>> edge_constraints;

  ov_table_s *experience_table = nullptr;
  ov_table_s *fading_table = nullptr;
  void *user_data = nullptr;
  orvel::AttributeList attributes;
  orvel::ModelPtr model;

  // Object-oriented networks.
  ov_domain_s *instance_class = nullptr; // for an instance node: its class
  ov_node_s *master = nullptr;           // for a clone: the class node it stands for
  ov_node_s *instance = nullptr;         // for a clone: its instance node
  orvel::NodeList output_clones;         // for an instance node
  std::vector<ov_node_s *> input_bindings;
  // For a node of a domain unfolded from a class: the instance nodes passed
  // on the way down from the top class, then the class node itself.
  std::unique_ptr<orvel::NodeList> source;

  // Case values of a chance or decision node, made at the domain's case
  // capacity on the first write. A state of -1, or one at or above the
  // state count, is absent.
  std::vector<std::int16_t> case_states;
  std::vector<double> case_values;
  std::vector<std::uint8_t> case_value_is_set;

  // Discrete nodes.
  std::uint32_t state_count = 1;
  std::shared_ptr<orvel::StateLabels> state_labels; // null until a label is set
  std::vector<ov_number_t> entered_finding;         // empty: no finding
  bool has_entered_finding = false;
  ov_table_s *propagated_finding = nullptr;
  ov_clique_s *finding_clique = nullptr;     // clique that evidence on the node enters
  orvel::KernelPlan *finding_plan = nullptr; // from finding_clique to propagated_finding
  std::int32_t instantiated_state = -1;
  std::int32_t simulated_state = -1;
  // The belief at the initial equilibrium, the reference of conflict.
  std::vector<ov_number_t> initial_belief;
  ov_subtype_t subtype = ov_subtype_label;
  std::shared_ptr<orvel::StateValues> state_values; // null until set

  // Continuous nodes.
  bool value_entered = false;
  bool value_propagated = false;
  double entered_value = 0.0;
  double propagated_value = 0.0;
  double simulated_value = 0.0;
  bool simulated_value_set = false;

  bool is_discrete() const noexcept { return kind == ov_kind_discrete; }
  bool has_states() const noexcept {
    return kind == ov_kind_discrete && (category == ov_category_chance || category == ov_category_decision);
  }
};

namespace orvel {

// Creates a node at the head of the domain's list; null on failure (usage,
// no_memory or cg_influence_diagrams_not_supported), with the domain as it was.
Node *node_create(Domain *domain, ov_category_t category, ov_kind_t kind, ov_subtype_t subtype, bool is_clone);

// The label of a state: stored, or "false"/"true" for a boolean node, or "".
const char *state_label(const Node *node, std::uint32_t state) noexcept;
// The value of a state or bound, with the infinite bounds of an unset
// interval node and -1.0 otherwise.
double state_value(const Node *node, std::uint32_t state) noexcept;
// Whether the state values form a strictly increasing sequence.
bool values_increase(const Node *node) noexcept;

// Whether a node has states (it is a discrete chance or decision node).
inline bool is_state_node(const Node *node) noexcept { return node != nullptr && node->has_states(); }
// Whether `state` indexes a state of a node with states.
inline bool valid_state(const Node *node, std::int64_t state) noexcept {
  return is_state_node(node) && state >= 0 && static_cast<std::uint64_t>(state) < node->state_count;
}
// Whether `state` indexes a state value: below the count for a numbered
// node, up to the count for an interval node (which has one bound more than
// states).
bool valid_value_index(const Node *node, std::int64_t state) noexcept;
// Whether a state can be looked up by value: a numbered node, or an
// interval node with increasing bounds, with every value set.
bool values_searchable(const Node *node) noexcept;

// Changes the subtype, invalidating what depends on the old one.
void node_set_subtype(Node *node, ov_subtype_t subtype) noexcept;
// Sets the label of a state, shared with the node's clones.
ov_status_t node_set_state_label(Node *node, std::uint32_t state, const char *label);
// The state with that label; -1 when none or more than one has it.
std::int64_t node_state_from_label(const Node *node, const char *label) noexcept;
// Sets the value of a state or bound, shared with the node's clones.
ov_status_t node_set_state_value(Node *node, std::uint32_t state, double value);
// The state whose value is `value` (a numbered node, within a relative
// tolerance) or whose interval holds it; -1 when there is none. The node
// must satisfy values_searchable.
std::int64_t node_state_from_value(const Node *node, double value) noexcept;
// Whether a name has the form of a C identifier (checked in the "C" locale by
// the caller).
bool name_is_valid(const char *name) noexcept;

// Invalidation cascades: see the domain header for what each reaches.
void touch_table(Node *node) noexcept;
void invalidate_model(Node *node) noexcept;
void invalidate_dependants(Node *node) noexcept;
void refresh_clones(Node *node) noexcept;

// Gives a node a name, keeping the domain's name table up to date.
ov_status_t node_set_name(Node *node, const char *name);
// The node's name, generating one if it has none; null on failure.
const char *node_get_name(Node *node);
// Makes every name of a domain legal before it is written to a file: each
// character that a name may not hold (a leading digit too) becomes '_', and
// a repaired name that another node holds gets further '_' appended until
// it is free. Stops at the first other failure and returns it.
ov_status_t domain_repair_names(Domain *domain);

// Deletes a node, reshaping its neighbours' tables.
ov_status_t node_delete(Node *node);

// Inserts a node into a parent list: discrete ones at the front, continuous
// ones at the end.
void node_list_insert_by_kind(NodeList &list, Node *node);
// Whether each entry belongs to the domain and none occurs twice.
bool node_list_is_set_of(const NodeList &list, const Domain *domain) noexcept;
bool node_list_is_set_of(Node *const *list, const Domain *domain) noexcept;

} // namespace orvel
