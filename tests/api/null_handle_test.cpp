// Every exported function refuses a NULL handle: it records usage and
// returns the failure value of its result type, without crashing.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "api/error.h"
#include "orvel.h"

namespace {

struct Case {
  const char *name;
  std::function<bool()> refused; // calls the function, true if it returned its failure value
};

int w, h;
ov_node_t no_nodes[] = {nullptr};

// One entry per function: its name, its failure value and the arguments of
// a call with a NULL handle (the other arguments are valid).
#define C(fn, failure, ...)                                                                                            \
  Case {                                                                                                               \
#fn, [] { return fn(__VA_ARGS__) == (failure); }                                                                   \
  }

const std::vector<Case> &cases() {
  // clang-format off
  static const std::vector<Case> all = {
      C(ov_domain_delete, 1, {}), C(ov_domain_uncompile, 1, {}), C(ov_domain_is_compiled, -1, {}),
      C(ov_domain_is_compressed, -1, {}), C(ov_domain_is_triangulated, -1, {}),
      C(ov_domain_get_first_node, nullptr, {}), C(ov_domain_get_node_by_name, nullptr, {}, "a"),
      C(ov_domain_set_user_data, 1, {}, &w), C(ov_domain_get_user_data, nullptr, {}),
      C(ov_domain_get_file_name, nullptr, {}), C(ov_domain_get_filename, nullptr, {}),
      C(ov_domain_set_node_size, 1, {}, 1, 2), C(ov_domain_get_node_size, 1, {}, &w, &h),
      C(ov_domain_set_grain_size, 1, {}, 5), C(ov_domain_get_grain_size, -1, {}),
      C(ov_domain_set_concurrency_level, 1, {}, 2), C(ov_domain_get_concurrency_level, -1, {}),
      C(ov_domain_set_significance_level, 1, {}, 0.1), C(ov_domain_get_significance_level, -1.0, {}),
      C(ov_domain_set_log_likelihood_tolerance, 1, {}, 0.1), C(ov_domain_get_log_likelihood_tolerance, -1.0, {}),
      C(ov_domain_set_max_number_of_em_iterations, 1, {}, 3), C(ov_domain_get_max_number_of_em_iterations, -1, {}),
      C(ov_domain_set_log_file, 1, {}, stderr), C(ov_domain_reclaim_memory_tables, 1, {}),
      C(ov_domain_seed_random, 1, {}, 7), C(ov_domain_get_uniform_deviate, -1.0, {}),
      C(ov_domain_get_normal_deviate, -1.0, {}, 0.0, 1.0), C(ov_class_get_first_node, nullptr, {}),
      C(ov_class_get_node_by_name, nullptr, {}, "a"), C(ov_class_get_file_name, nullptr, {}),
      C(ov_class_set_node_size, 1, {}, 1, 2), C(ov_class_get_node_size, 1, {}, &w, &h),
      C(ov_class_new_node, nullptr, {}, ov_category_chance, ov_kind_discrete), C(ov_class_set_log_file, 1, {}, stderr),
      C(ov_domain_new_node, nullptr, {}, ov_category_chance, ov_kind_discrete), C(ov_node_delete, 1, {}),
      C(ov_node_get_next, nullptr, {}), C(ov_node_get_category, ov_category_error, {}),
      C(ov_node_get_kind, ov_kind_error, {}), C(ov_node_get_subtype, ov_subtype_error, {}),
      C(ov_node_set_subtype, 1, {}, ov_subtype_number), C(ov_node_get_number_of_states, -1, {}),
      C(ov_node_get_parents, nullptr, {}), C(ov_node_get_children, nullptr, {}), C(ov_node_get_domain, nullptr, {}),
      C(ov_node_get_home_domain, nullptr, {}), C(ov_node_get_home_class, nullptr, {}),
      C(ov_node_get_junction_tree, nullptr, {}), C(ov_node_get_master, nullptr, {}),
      C(ov_node_get_instance, nullptr, {}), C(ov_node_get_source, nullptr, {}), C(ov_node_get_name, nullptr, {}),
      C(ov_node_set_name, 1, {}, "a"), C(ov_node_get_label, nullptr, {}), C(ov_node_set_label, 1, {}, "a"),
      C(ov_node_set_position, 1, {}, 1, 2), C(ov_node_get_position, 1, {}, &w, &h),
      C(ov_node_set_user_data, 1, {}, &w), C(ov_node_get_user_data, nullptr, {}),
      C(ov_node_get_state_label, nullptr, {}, 0), C(ov_node_set_state_label, 1, {}, 0, "a"),
      C(ov_node_get_state_index_from_label, -1, {}, "a"), C(ov_node_get_state_value, -1.0, {}, 0),
      C(ov_node_set_state_value, 1, {}, 0, 1.0), C(ov_node_get_state_index_from_value, -1, {}, 1.0),
      C(ov_node_touch_table, 1, {}), C(ov_node_add_parent, 1, {}, {}), C(ov_node_remove_parent, 1, {}, {}),
      C(ov_node_switch_parent, 1, {}, {}, {}), C(ov_node_reverse_edge, 1, {}, {}),
      C(ov_node_set_number_of_states, 1, {}, 2), C(ov_node_get_edge_constraint, ov_constraint_error, {}, {}),
      C(ov_node_set_edge_constraint, 1, {}, {}, ov_constraint_edge_required),
      C(ov_domain_get_d_connected_nodes, nullptr, {}, no_nodes, no_nodes, no_nodes),
      C(ov_domain_get_d_separated_nodes, nullptr, {}, no_nodes, no_nodes, no_nodes), C(ov_domain_compile, 1, {}),
      C(ov_domain_compile_qualitatively, 1, {}, {}), C(ov_domain_compile_quantitatively, 1, {}, {}),
      C(ov_domain_triangulate, 1, {}, ov_tm_fill_in_weight), C(ov_domain_triangulate_with_order, 1, {}, no_nodes),
      C(ov_domain_get_elimination_order, nullptr, {}), C(ov_domain_set_max_number_of_separators, 1, {}, 5),
      C(ov_domain_get_max_number_of_separators, 0, {}), C(ov_node_select_state, 1, {}, 0),
      C(ov_node_enter_finding, 1, {}, 0, 0.5f), C(ov_node_enter_value, 1, {}, 1.0), C(ov_node_retract_findings, 1, {}),
      C(ov_domain_retract_findings, 1, {}), C(ov_node_get_entered_finding, -1.0f, {}, 0),
      C(ov_node_get_propagated_finding, -1.0f, {}, 0), C(ov_node_get_entered_value, -1.0, {}),
      C(ov_node_get_propagated_value, -1.0, {}), C(ov_node_get_entered_state, -1, {}),
      C(ov_node_evidence_is_entered, -1, {}), C(ov_node_likelihood_is_entered, -1, {}),
      C(ov_node_evidence_is_propagated, -1, {}), C(ov_node_likelihood_is_propagated, -1, {}),
      C(ov_node_evidence_to_propagate, -1, {}), C(ov_node_evidence_to_retract, -1, {}),
      C(ov_node_is_instantiated, -1, {}), C(ov_node_is_consistent, -1, {}), C(ov_jt_evidence_to_propagate, -1, {}),
      C(ov_domain_evidence_to_propagate, -1, {}), C(ov_jt_evidence_is_propagated, -1, {}),
      C(ov_domain_evidence_is_propagated, -1, {}), C(ov_jt_likelihood_is_propagated, -1, {}),
      C(ov_domain_likelihood_is_propagated, -1, {}), C(ov_jt_cg_evidence_is_propagated, -1, {}),
      C(ov_domain_cg_evidence_is_propagated, -1, {}), C(ov_jt_equilibrium_is, -1, {}, ov_equilibrium_sum),
      C(ov_domain_equilibrium_is, -1, {}, ov_equilibrium_sum), C(ov_jt_evidence_mode_is, -1, {}, ov_mode_normal),
      C(ov_domain_evidence_mode_is, -1, {}, ov_mode_normal),
      C(ov_domain_propagate, 1, {}, ov_equilibrium_sum, ov_mode_normal),
      C(ov_jt_propagate, 1, {}, ov_equilibrium_sum, ov_mode_normal),
      C(ov_clique_propagate, 1, {}, ov_equilibrium_sum, ov_mode_normal), C(ov_domain_reset_inference_engine, 1, {}),
      C(ov_domain_initialize, 1, {}), C(ov_domain_tables_to_propagate, -1, {}), C(ov_jt_tables_to_propagate, -1, {}),
      C(ov_domain_save_to_memory, 1, {}), C(ov_domain_approximate, -1.0, {}, 0.1), C(ov_domain_compress, -1.0, {}),
      C(ov_node_get_belief, -1.0f, {}, 0), C(ov_node_get_mean, -1.0, {}),
      C(ov_node_get_variance, -1.0, {}), C(ov_node_get_distribution, nullptr, {}),
      C(ov_node_get_expected_utility, -1.0f, {}, 0), C(ov_node_get_policy, nullptr, {}),
      C(ov_node_get_policy_utilities, nullptr, {}),
      C(ov_domain_get_expected_utility, -1.0, {}), C(ov_domain_set_limited_memory, 1, {}, 1),
      C(ov_domain_get_limited_memory, -1, {}),
      C(ov_domain_get_marginal, nullptr, {}, no_nodes), C(ov_domain_get_conflict, -1.0, {}),
      C(ov_jt_get_conflict, -1.0, {}), C(ov_clique_get_conflict, -1.0, {}),
      C(ov_node_get_conflict_clique, nullptr, {}), C(ov_domain_get_normalization_constant, -1.0, {}),
      C(ov_domain_get_log_normalization_constant, 1.0, {}), C(ov_node_get_entropy, -1.0, {}),
      C(ov_node_get_mutual_information, -1.0, {}, {}), C(ov_domain_simulate, 1, {}),
      C(ov_node_get_sampled_state, -1, {}), C(ov_node_get_sampled_value, -1.0, {}),
      C(ov_domain_get_probability_of_random_selection, -1.0, {}),
      C(ov_domain_set_number_of_cases, 1, {}, 1), C(ov_domain_new_case, -1, {}),
      C(ov_domain_get_number_of_cases, -1, {}), C(ov_domain_set_case_count, 1, {}, 0, 1.0f),
      C(ov_domain_get_case_count, -1.0f, {}, 0), C(ov_node_set_case_state, 1, {}, 0, 0),
      C(ov_node_set_case_value, 1, {}, 0, 0.0), C(ov_node_unset_case, 1, {}, 0),
      C(ov_node_get_case_state, -1, {}, 0), C(ov_node_get_case_value, -1.0, {}, 0),
      C(ov_node_case_is_set, -1, {}, 0), C(ov_domain_enter_case, 1, {}, 0),
      C(ov_domain_learn_tables, 1, {}), C(ov_domain_learn_class_tables, 1, {}), C(ov_domain_get_log_likelihood, 1.0, {}),
      C(ov_domain_get_AIC, 1.0, {}), C(ov_domain_get_BIC, 1.0, {}), C(ov_node_get_experience_table, nullptr, {}),
      C(ov_node_has_experience_table, -1, {}), C(ov_node_get_fading_table, nullptr, {}),
      C(ov_node_has_fading_table, -1, {}), C(ov_domain_adapt, 1, {}),
      C(ov_domain_learn_structure, 1, {}), C(ov_node_get_data_independency, -1.0, {}, {}), C(ov_domain_get_first_junction_tree, nullptr, {}),
      C(ov_jt_get_next, nullptr, {}), C(ov_jt_get_root, nullptr, {}), C(ov_jt_get_cliques, nullptr, {}),
      C(ov_jt_set_user_data, 1, {}, &w), C(ov_jt_get_user_data, nullptr, {}),
      C(ov_domain_get_first_clique, nullptr, {}), C(ov_clique_get_next, nullptr, {}),
      C(ov_clique_get_junction_tree, nullptr, {}), C(ov_clique_get_members, nullptr, {}),
      C(ov_clique_get_number_of_members, -1, {}), C(ov_clique_get_neighbors, nullptr, {}),
      C(ov_clique_get_number_of_neighbors, -1, {}), C(ov_clique_get_probability_table, nullptr, {}),
      C(ov_clique_get_utility_table, nullptr, {}), C(ov_clique_set_user_data, 1, {}, &w),
      C(ov_clique_get_user_data, nullptr, {}), C(ov_domain_get_number_of_cliques, -1, {}),
      C(ov_domain_get_jt_cost, -1, {}), C(ov_node_get_table, nullptr, {}), C(ov_table_get_data, nullptr, {}),
      C(ov_table_get_nodes, nullptr, {}), C(ov_table_get_size, -1, {}), C(ov_table_get_mean, -1.0, {}, 0, {}),
      C(ov_table_get_covariance, -1.0, {}, 0, {}, {}), C(ov_table_get_variance, -1.0, {}, 0, {}),
      C(ov_table_reorder_nodes, 1, {}, no_nodes), C(ov_table_delete, 1, {}), C(ov_table_set_user_data, 1, {}, &w),
      C(ov_table_get_user_data, nullptr, {}), C(ov_node_set_alpha, 1, {}, 1.0, 0), C(ov_node_get_alpha, -1.0, {}, 0),
      C(ov_node_set_beta, 1, {}, 1.0, {}, 0), C(ov_node_get_beta, -1.0, {}, {}, 0),
      C(ov_node_set_gamma, 1, {}, 1.0, 0), C(ov_node_get_gamma, -1.0, {}, 0),
      C(ov_domain_set_attribute, 1, {}, "k", "v"), C(ov_domain_get_attribute, nullptr, {}, "k"),
      C(ov_domain_get_first_attribute, nullptr, {}), C(ov_node_set_attribute, 1, {}, "k", "v"),
      C(ov_node_get_attribute, nullptr, {}, "k"), C(ov_node_get_first_attribute, nullptr, {}),
      C(ov_class_set_attribute, 1, {}, "k", "v"), C(ov_class_get_attribute, nullptr, {}, "k"),
      C(ov_class_get_first_attribute, nullptr, {}), C(ov_attribute_get_key, nullptr, {}),
      C(ov_attribute_get_value, nullptr, {}), C(ov_attribute_get_next, nullptr, {}), C(ov_cc_new_class, nullptr, {}),
      C(ov_cc_add_domain, 1, {}, {}), C(ov_cc_delete, 1, {}), C(ov_cc_get_members, nullptr, {}),
      C(ov_cc_get_class_by_name, nullptr, {}, "a"), C(ov_cc_set_user_data, 1, {}, &w),
      C(ov_cc_get_user_data, nullptr, {}), C(ov_class_delete, 1, {}), C(ov_class_create_domain, nullptr, {}), C(ov_domain_clone, nullptr, {}), C(ov_node_clone, nullptr, {}), C(ov_class_get_class_collection, nullptr, {}),
      C(ov_class_get_name, nullptr, {}), C(ov_class_set_name, 1, {}, "a"), C(ov_class_get_inputs, nullptr, {}),
      C(ov_class_get_outputs, nullptr, {}), C(ov_class_get_instances, nullptr, {}),
      C(ov_class_new_instance, nullptr, {}, {}), C(ov_node_add_to_inputs, 1, {}), C(ov_node_add_to_outputs, 1, {}),
      C(ov_node_remove_from_inputs, 1, {}), C(ov_node_remove_from_outputs, 1, {}),
      C(ov_node_get_instance_class, nullptr, {}), C(ov_node_get_input, nullptr, {}, {}),
      C(ov_node_set_input, 1, {}, {}, {}), C(ov_node_unset_input, 1, {}, {}), C(ov_node_get_output, nullptr, {}, {}),
      C(ov_node_substitute_class, 1, {}, {}), C(ov_label_make_expression, nullptr, {}),
      C(ov_node_make_expression, nullptr, {}), C(ov_make_composite_expression, nullptr, ov_op_add, {}),
      C(ov_expression_is_composite, -1, {}), C(ov_expression_get_operator, ov_op_error, {}),
      C(ov_expression_get_operands, nullptr, {}), C(ov_expression_get_node, nullptr, {}),
      C(ov_expression_get_number, -1.0, {}), C(ov_expression_get_label, nullptr, {}),
      C(ov_expression_get_boolean, -1, {}), C(ov_expression_clone, nullptr, {}), C(ov_expression_delete, 1, {}),
      C(ov_expression_to_string, nullptr, {}), C(ov_domain_string_to_expression, nullptr, {}, "1", {}, {}),
      C(ov_class_string_to_expression, nullptr, {}, "1", {}, {}), C(ov_string_to_expression, nullptr, "1", {}, {}),
      C(ov_string_parse_expression, nullptr, "1", {}, {}, {}), C(ov_node_new_model, nullptr, {}, no_nodes),
      C(ov_node_get_model, nullptr, {}), C(ov_model_delete, 1, {}), C(ov_model_get_nodes, nullptr, {}),
      C(ov_model_get_size, -1, {}), C(ov_model_set_expression, 1, {}, 0, {}),
      C(ov_model_get_expression, nullptr, {}, 0), C(ov_model_set_number_of_samples_per_interval, 1, {}, 5),
      C(ov_model_get_number_of_samples_per_interval, -1, {}), C(ov_model_set_user_data, 1, {}, &w),
      C(ov_model_get_user_data, nullptr, {}), C(ov_node_generate_table, 1, {}), C(ov_domain_generate_tables, 1, {}),
      C(ov_class_generate_tables, 1, {}), C(ov_domain_write_net, 1, {}, stderr),
      C(ov_domain_save_as_net, 1, {}, "unused.net"), C(ov_class_save_as_net, 1, {}, "unused.net"),
      C(ov_cc_save_as_net, 1, {}, "unused.net"), C(ov_net_parse_domain, nullptr, {}, {}, {}),
      C(ov_net_parse, nullptr, {}, {}), C(ov_net_parse_from_string, nullptr, {}, {}),
      C(ov_net_parse_classes, 1, {}, {}, {}, {}, {}), C(ov_domain_parse_nodes, nullptr, {}, "nodes.txt", {}, {}),
      C(ov_class_parse_nodes, nullptr, {}, "nodes.txt", {}, {}),
      C(ov_domain_parse_case, 1, {}, "unused.case", {}, {}), C(ov_domain_save_case, 1, {}, "unused.case"),
      C(ov_domain_parse_cases, 1, {}, "unused.dat", {}, {}),
      C(ov_domain_save_cases, 1, {}, "unused.dat", no_nodes, {}, 0, ",", "*"),
      C(ov_domain_save_as_kb, 1, {}, "unused.kb", {}), C(ov_domain_save, 1, {}, "unused.kb", 0),
      C(ov_kb_load_domain, nullptr, {}, {}), C(ov_load_domain, nullptr, {}),
      C(ov_bif_parse_domain, nullptr, {}, {}, {}), C(ov_bif_parse_from_string, nullptr, {}, {}, {}),
      C(ov_domain_save_as_bif, 1, {}, "unused.bif"), C(ov_xmlbif_parse_domain, nullptr, {}, {}, {}),
      C(ov_xmlbif_parse_from_string, nullptr, {}, {}, {}), C(ov_domain_save_as_xmlbif, 1, {}, "unused.xml"),
      C(ov_uai_parse_domain, nullptr, {}, {}, {}), C(ov_uai_parse_from_string, nullptr, {}, {}, {}),
      C(ov_domain_save_as_uai, 1, {}, "unused.uai"), C(ov_domain_parse_uai_evidence, 1, {}, "unused.evid", {}, {}),
      C(ov_domain_save_as_dot, 1, {}, "unused.dot", ov_dot_network),
  };
  // clang-format on
  return all;
}

#undef C

// Functions that take no handle.
// clang-format off
const std::set<std::string> no_handle = {"ov_error_code", "ov_error_name", "ov_error_description", "ov_get_user_name",
    "ov_get_organization", "ov_get_package_name", "ov_new_domain", "ov_new_class_collection",
    "ov_number_make_expression", "ov_boolean_make_expression"};
// clang-format on

TEST(NullHandles, EveryFunctionRecordsUsageAndReturnsItsFailureValue) {
  for (const Case &c : cases()) {
    orvel::set_error(ov_error_none);
    EXPECT_TRUE(c.refused()) << c.name << " returned something other than its failure value";
    EXPECT_EQ(ov_error_code(), ov_error_usage) << c.name;
  }
}

TEST(NullHandles, TheListCoversEveryDeclaredFunction) {
  std::ifstream header(ORVEL_TEST_DATA "/../../include/orvel.h");
  ASSERT_TRUE(header);
  std::stringstream text;
  text << header.rdbuf();
  std::string source = text.str();
  std::set<std::string> declared;
  std::regex declaration(R"(OV_API[^;(]*\b(ov_\w+)\s*\()");
  for (auto it = std::sregex_iterator(source.begin(), source.end(), declaration); it != std::sregex_iterator(); ++it)
    declared.insert((*it)[1]);
  ASSERT_GT(declared.size(), 50u);

  std::set<std::string> listed(no_handle);
  for (const Case &c : cases()) EXPECT_TRUE(listed.insert(c.name).second) << c.name << " is listed twice";
  for (const std::string &name : declared)
    EXPECT_TRUE(listed.count(name)) << name << " is declared in orvel.h but missing from the list above";
  for (const std::string &name : listed) EXPECT_TRUE(declared.count(name)) << name << " is not declared";
}

} // namespace
