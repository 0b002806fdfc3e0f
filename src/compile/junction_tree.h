// Junction trees of a compiled domain.
#pragma once

#include <cstdint>
#include <vector>

#include "model/forward.h"
#include "orvel.h"

struct ov_junction_tree_s {
  std::uint32_t number = 0; // 1 for the first tree made; the newest tree heads the list
  ov_domain_s *domain = nullptr;
  ov_clique_s *root = nullptr;              // the clique the tree was created with
  std::vector<ov_clique_s *> clique_list;   // cache of ov_jt_get_cliques, null-terminated; empty until asked
  std::uint32_t changed_evidence_count = 0; // nodes whose entered evidence differs from the propagated
  // What the last propagation incorporated.
  bool evidence_propagated = false;
  bool likelihood_propagated = false;
  bool cg_evidence_propagated = false;
  // Set when a node table of the tree changed, so that the next propagation
  // reloads the potentials.
  bool tables_changed = false;
  int equilibrium = ov_equilibrium_none;
  int evidence_mode = ov_mode_normal;
  // Normalisation constants of propagation.
  double step_constant = 1.0, total_constant = 1.0;
  double step_log_constant = 0.0, total_log_constant = 0.0;
  double evidence_factor = 1.0, initial_constant = 1.0;
  double conflict_value = 0.0; // working value of the conflict measure
  void *user_data = nullptr;
  std::uint32_t position = 0; // index on the domain's tree list, 0 for its head

  // Propagation: made at the first initialisation, so that no later
  // propagation allocates.
  std::vector<ov_node_s *> members;    // chance and decision nodes of the tree, in node list order
  std::vector<ov_clique_s *> cliques;  // the tree's cliques, in domain list order
  std::vector<ov_node_s *> hard_nodes; // nodes whose finding is applied by zeroing in this run
  std::vector<ov_node_s *> homed;      // chance nodes whose table lives in a clique of the tree, in domain order
  // Chain components whose first member is in the tree, and those whose
  // normaliser lives in a clique of it.
  std::vector<orvel::ChainComponent *> components, normalized_components;
  bool lists_made = false; // members, cliques, homed and the components are filled
  // Where each forest table of the tree lies in the domain's table memory.
  struct SavedTable {
    ov_table_s *table;
    std::size_t data, cg, kinds; // offsets into the three arrays
  };
  std::vector<SavedTable> saved_tables;
  double probability_of_random_selection = 1.0; // of the last simulation
  // Influence diagrams: the tree's share of the maximum expected utility and
  // the expected utility of each option of its decisions, in member order,
  // counting its own utilities only.
  double expected_utility = 0.0;
  std::vector<double> decision_utilities;
};
