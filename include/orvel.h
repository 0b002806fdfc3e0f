/*
 * orvel.h -- the public C interface of the Orvel library.
 *
 * Orvel builds, compiles and queries Bayesian networks and influence
 * diagrams. Every function has the prefix ov_, reports failure in one way
 * (ov_error_code() after the call) and returns a failure value of its result
 * type: a status function returns the error code, a handle function NULL, a
 * count, index or predicate -1, a floating query -1.0.
 *
 * Handles stay the library's unless a function says that the caller owns the
 * result. Calls on one domain must never overlap; different domains are
 * independent; the current error belongs to the calling thread.
 *
 * This header is plain C99 and compiles as C++ as well.
 */
#ifndef ORVEL_H
#define ORVEL_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* OV_API marks the exported functions. On Windows the library's own build
 * defines ORVEL_BUILDING (export), a client of the static library defines
 * ORVEL_STATIC (plain linkage) and any other client imports from the DLL; the
 * CMake package and the pkg-config file set these for the client. */
#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(ORVEL_STATIC)
#define OV_API
#elif defined(ORVEL_BUILDING)
#define OV_API __declspec(dllexport)
#else
#define OV_API __declspec(dllimport)
#endif
#elif defined(__GNUC__) && __GNUC__ >= 4
#define OV_API __attribute__((visibility("default")))
#else
#define OV_API
#endif

/* In C++ the enumerations are given int as their underlying type, so that
 * any int a caller passes (an invalid category, say) is a value the library
 * can test; in C an enumeration is an int already. */
#ifdef __cplusplus
#define OV_ENUM_BASE : int
#else
#define OV_ENUM_BASE
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Numeric types and handles
 * ------------------------------------------------------------------------ */

typedef float ov_number_t;  /* table data, findings, beliefs, utilities */
typedef double ov_double_t; /* CG data, means, variances, constants */
typedef int ov_status_t;    /* 0 on success, else the error code */
typedef int64_t ov_count_t; /* counts and sizes; -1 on failure */
typedef int64_t ov_index_t; /* indices; -1 on failure or "none" */
typedef const char *ov_string_t;

typedef struct ov_domain_s *ov_domain_t;
typedef struct ov_node_s *ov_node_t;
typedef struct ov_table_s *ov_table_t;
typedef struct ov_expression_s *ov_expression_t;
typedef struct ov_model_s *ov_model_t;
typedef struct ov_class_s *ov_class_t;
typedef struct ov_class_collection_s *ov_class_collection_t;
typedef struct ov_junction_tree_s *ov_junction_tree_t;
typedef struct ov_clique_s *ov_clique_t;
typedef struct ov_attribute_s *ov_attribute_t;

/* ------------------------------------------------------------------------
 * Constants
 * ------------------------------------------------------------------------ */

typedef enum OV_ENUM_BASE {
  ov_error_none = 0,
  ov_error_usage = 1,
  ov_error_io = 2,
  ov_error_no_memory = 3,
  ov_error_cg_influence_diagrams_not_supported = 4,
  ov_error_twice = 5,
  ov_error_invalid_name = 6,
  ov_error_cyclic_network = 7,
  ov_error_size_too_large = 8,
  ov_error_fast_retraction = 9,
  ov_error_rounding = 10,
  ov_error_invalid_password = 11,
  ov_error_bad_file = 12,
  ov_error_bad_version = 13,
  ov_error_format = 14,
  ov_error_not_compiled = 15,
  ov_error_invalid_probability_potential = 16,
  ov_error_zero_sum = 17,
  ov_error_negative_probability = 18,
  ov_error_chain_graph = 19,
  ov_error_enumeration = 20,
  ov_error_decision_order = 21,
  ov_error_no_equilibrium = 22,
  ov_error_inconsistency_or_underflow = 23,
  ov_error_overflow = 24,
  ov_error_low_density = 25,
  ov_error_zero_variance = 26,
  ov_error_cg_evidence_incorporated = 27,
  ov_error_normalization = 28,
  ov_error_compressed = 29,
  ov_error_table_too_large = 30,
  ov_error_case_state_too_large = 31,
  ov_error_no_value = 32,
  ov_error_parse = 33,
  ov_error_locale = 34,
  ov_error_invalid_expression = 35,
  ov_error_syntax = 36,
  ov_error_division_by_zero = 37,
  ov_error_inappropriate_arguments = 38,
  ov_error_computation_failed = 39,
  ov_error_insufficient_state_range = 40,
  ov_error_invalid_state_values = 41,
  ov_error_cyclic_instance_hierarchy = 42,
  ov_error_illegal_binding = 43,
  ov_error_invalid_license = 44,
  ov_error_expired_license = 45,
  ov_error_demo = 46,
  ov_error_error = 47
} ov_error_t;

/* Node categories. */
typedef enum OV_ENUM_BASE {
  ov_category_error = -1,
  ov_category_instance = 6,
  ov_category_chance = 7,
  ov_category_decision = 8,
  ov_category_utility = 9
} ov_category_t;

/* Node kinds; ov_kind_error (2) is the failure value of ov_node_get_kind. */
typedef enum OV_ENUM_BASE { ov_kind_discrete = 0, ov_kind_continuous = 1, ov_kind_error = 2 } ov_kind_t;

/* Subtypes of discrete chance and decision nodes; ov_subtype_error (34) is
 * the failure value of ov_node_get_subtype. */
typedef enum OV_ENUM_BASE {
  ov_subtype_label = 30,
  ov_subtype_boolean = 31,
  ov_subtype_number = 32,
  ov_subtype_interval = 33,
  ov_subtype_error = 34
} ov_subtype_t;

/* Equilibria of a junction tree; ov_equilibrium_none marks a tree that holds
 * no equilibrium. */
typedef enum OV_ENUM_BASE {
  ov_equilibrium_none = 10,
  ov_equilibrium_sum = 11,
  ov_equilibrium_max = 12
} ov_equilibrium_t;

/* Evidence modes of propagation. */
typedef enum OV_ENUM_BASE { ov_mode_normal = 20, ov_mode_fast_retraction = 21 } ov_evidence_mode_t;

/* Triangulation methods. */
typedef enum OV_ENUM_BASE {
  ov_tm_clique_size = 15,
  ov_tm_clique_weight = 16,
  ov_tm_fill_in_size = 17,
  ov_tm_fill_in_weight = 18,
  ov_tm_total_weight = 19
} ov_triangulation_method_t;

/* Edge constraints for structure learning; ov_constraint_error (107) is the
 * failure value of ov_node_get_edge_constraint. */
typedef enum OV_ENUM_BASE {
  ov_constraint_none = 100,
  ov_constraint_edge_required = 101,
  ov_constraint_forward_edge_required = 102,
  ov_constraint_backward_edge_required = 103,
  ov_constraint_edge_forbidden = 104,
  ov_constraint_forward_edge_forbidden = 105,
  ov_constraint_backward_edge_forbidden = 106,
  ov_constraint_error = 107
} ov_edge_constraint_t;

/* Expression operators. The numbering is fixed: files and callers depend on
 * it. 60-71 build distributions, 72-104 compute values, 105-108 are leaves
 * and 109 is returned on error. */
typedef enum OV_ENUM_BASE {
  ov_op_normal = 60,
  ov_op_beta = 61,
  ov_op_gamma = 62,
  ov_op_exponential = 63,
  ov_op_weibull = 64,
  ov_op_uniform = 65,
  ov_op_binomial = 66,
  ov_op_poisson = 67,
  ov_op_negative_binomial = 68,
  ov_op_geometric = 69,
  ov_op_distribution = 70,
  ov_op_noisy_or = 71,
  ov_op_min = 72,
  ov_op_max = 73,
  ov_op_log = 74,
  ov_op_log2 = 75,
  ov_op_log10 = 76,
  ov_op_exp = 77,
  ov_op_sin = 78,
  ov_op_cos = 79,
  ov_op_tan = 80,
  ov_op_sinh = 81,
  ov_op_cosh = 82,
  ov_op_tanh = 83,
  ov_op_sqrt = 84,
  ov_op_abs = 85,
  ov_op_floor = 86,
  ov_op_ceil = 87,
  ov_op_mod = 88,
  ov_op_if = 89,
  ov_op_and = 90,
  ov_op_or = 91,
  ov_op_not = 92,
  ov_op_add = 93,
  ov_op_subtract = 94,
  ov_op_multiply = 95,
  ov_op_divide = 96,
  ov_op_power = 97,
  ov_op_negate = 98,
  ov_op_equals = 99,
  ov_op_less_than = 100,
  ov_op_greater_than = 101,
  ov_op_not_equals = 102,
  ov_op_less_than_or_equals = 103,
  ov_op_greater_than_or_equals = 104,
  ov_op_number = 105,
  ov_op_label = 106,
  ov_op_node = 107,
  ov_op_boolean = 108,
  ov_op_error = 109
} ov_operator_t;

/* Value types of expressions. ov_value_node is a node reference whose type
 * is not yet known. */
typedef enum OV_ENUM_BASE {
  ov_value_number = 0,
  ov_value_boolean = 1,
  ov_value_label = 2,
  ov_value_distribution = 3,
  ov_value_node = 4
} ov_value_type_t;

/* What the numbers of a table are. */
typedef enum OV_ENUM_BASE {
  ov_table_kind_probability = 0,
  ov_table_kind_utility = 1,
  ov_table_kind_experience = 2,
  ov_table_kind_fading = 3
} ov_table_kind_t;

/* ------------------------------------------------------------------------
 * Callback types
 * ------------------------------------------------------------------------ */

/* Receives each parse message with its location: the line for a file, the
 * number of bytes consumed for a string. */
typedef void (*ov_parse_error_handler_t)(uint32_t location, ov_string_t message, void *data);
/* The same without the caller's pointer. */
typedef void (*ov_simple_error_handler_t)(uint32_t location, ov_string_t message);
/* Called by ov_net_parse_classes for a class named by an instance that is not
 * yet in the collection; it should put that class in. */
typedef void (*ov_class_loader_t)(ov_string_t class_name, ov_class_collection_t collection, void *data);
/* Progress of compilation: receives the name of each stage. */
typedef void (*ov_progress_function_t)(ov_string_t stage);

/* ------------------------------------------------------------------------
 * Errors and identification (src/api/error.cpp, src/api/identity.cpp)
 * ------------------------------------------------------------------------ */

/* The error recorded by the most recent call on this thread. */
OV_API ov_error_t ov_error_code(void);
/* The short name of an error code; "no_such_error" outside 0..47. */
OV_API ov_string_t ov_error_name(ov_error_t code);
/* The long description of an error code; "No such error." outside 0..47. */
OV_API ov_string_t ov_error_description(ov_error_t code);
/* Name of the licensee (a constant string). */
OV_API ov_string_t ov_get_user_name(void);
/* Organisation of the licensee (a constant string). */
OV_API ov_string_t ov_get_organization(void);
/* Name and version of this package (a constant string). */
OV_API ov_string_t ov_get_package_name(void);

/* ------------------------------------------------------------------------
 * Domains (src/model/domain_api.cpp)
 * ------------------------------------------------------------------------ */

/* A new empty domain, owned by the caller (free with ov_domain_delete). */
OV_API ov_domain_t ov_new_domain(void);
/* Deletes a domain with its nodes and every table still on it; usage for a
 * class, which goes through ov_class_delete. */
OV_API ov_status_t ov_domain_delete(ov_domain_t domain);
/* Releases the junction forest and the triangulation. */
OV_API ov_status_t ov_domain_uncompile(ov_domain_t domain);
/* 1 if compiled, 0 if not; -1 with usage for NULL. */
OV_API int ov_domain_is_compiled(ov_domain_t domain);
/* 1 if compressed, 0 if not; -1 with usage for NULL. */
OV_API int ov_domain_is_compressed(ov_domain_t domain);
/* 1 if triangulated, 0 if not (an empty domain is not); -1 on failure. */
OV_API int ov_domain_is_triangulated(ov_domain_t domain);
/* The newest node, or NULL for an empty domain. */
OV_API ov_node_t ov_domain_get_first_node(ov_domain_t domain);
/* The node of that name, or NULL (with none) if there is none. */
OV_API ov_node_t ov_domain_get_node_by_name(ov_domain_t domain, ov_string_t name);
/* Stores the caller's pointer. */
OV_API ov_status_t ov_domain_set_user_data(ov_domain_t domain, void *data);
/* The caller's pointer, or NULL. */
OV_API void *ov_domain_get_user_data(ov_domain_t domain);
/* The file the domain was read from, owned by the domain, or NULL. */
OV_API ov_string_t ov_domain_get_file_name(ov_domain_t domain);
/* Alias of ov_domain_get_file_name. */
OV_API ov_string_t ov_domain_get_filename(ov_domain_t domain);
/* Stores the node size for a drawing application. */
OV_API ov_status_t ov_domain_set_node_size(ov_domain_t domain, int width, int height);
/* Reads the node size; usage for NULL or identical result pointers. */
OV_API ov_status_t ov_domain_get_node_size(ov_domain_t domain, int *width, int *height);
/* Least work per thread of the table kernels; usage for 0. */
OV_API ov_status_t ov_domain_set_grain_size(ov_domain_t domain, uint32_t size);
/* The grain size, or -1. */
OV_API ov_count_t ov_domain_get_grain_size(ov_domain_t domain);
/* Most threads of the table kernels; usage for 0. */
OV_API ov_status_t ov_domain_set_concurrency_level(ov_domain_t domain, uint32_t level);
/* The concurrency level, or -1. */
OV_API ov_count_t ov_domain_get_concurrency_level(ov_domain_t domain);
/* Test level of structure learning (default 0.05). */
OV_API ov_status_t ov_domain_set_significance_level(ov_domain_t domain, ov_double_t level);
/* The significance level, or -1.0. */
OV_API ov_double_t ov_domain_get_significance_level(ov_domain_t domain);
/* Stopping rule of EM learning (default 0.0001). */
OV_API ov_status_t ov_domain_set_log_likelihood_tolerance(ov_domain_t domain, ov_double_t tolerance);
/* The log-likelihood tolerance, or -1.0. */
OV_API ov_double_t ov_domain_get_log_likelihood_tolerance(ov_domain_t domain);
/* Limit of EM iterations; 0 is no limit. */
OV_API ov_status_t ov_domain_set_max_number_of_em_iterations(ov_domain_t domain, uint32_t count);
/* The limit of EM iterations, or -1. */
OV_API ov_count_t ov_domain_get_max_number_of_em_iterations(ov_domain_t domain);
/* Sets the stream that reports go to; NULL switches logging off. The stream
 * stays the caller's. */
OV_API ov_status_t ov_domain_set_log_file(ov_domain_t domain, FILE *log);
/* Frees the junction-tree data that the domain keeps in memory, if any. */
OV_API ov_status_t ov_domain_reclaim_memory_tables(ov_domain_t domain);

/* ------------------------------------------------------------------------
 * Classes as domains (src/model/domain_api.cpp, src/model/node_api.cpp): a
 * class shares the domain record, and these are the domain calls under the
 * class's name.
 * ------------------------------------------------------------------------ */

/* The newest node of a class, or NULL. */
OV_API ov_node_t ov_class_get_first_node(ov_class_t c);
/* The node of that name in a class, or NULL (with none) if there is none. */
OV_API ov_node_t ov_class_get_node_by_name(ov_class_t c, ov_string_t name);
/* The file the class was read from, owned by the class, or NULL. */
OV_API ov_string_t ov_class_get_file_name(ov_class_t c);
/* Stores the node size for a drawing application. */
OV_API ov_status_t ov_class_set_node_size(ov_class_t c, int width, int height);
/* Reads the node size; usage for NULL or identical result pointers. */
OV_API ov_status_t ov_class_get_node_size(ov_class_t c, int *width, int *height);
/* A new node of a class, as ov_domain_new_node. */
OV_API ov_node_t ov_class_new_node(ov_class_t c, ov_category_t category, ov_kind_t kind);
/* Sets the stream that the class's reports go to; NULL switches logging off. */
OV_API ov_status_t ov_class_set_log_file(ov_class_t c, FILE *log);

/* ------------------------------------------------------------------------
 * Random numbers (src/learn/random_api.cpp)
 * ------------------------------------------------------------------------ */

/* Seeds the domain's generator; seeds equal modulo 2^30 give one sequence. */
OV_API ov_status_t ov_domain_seed_random(ov_domain_t domain, uint32_t seed);
/* The next uniform deviate in [0, 1), or -1.0. */
OV_API ov_double_t ov_domain_get_uniform_deviate(ov_domain_t domain);
/* A normal deviate; usage for a negative variance. -1.0 on failure. */
OV_API ov_double_t ov_domain_get_normal_deviate(ov_domain_t domain, ov_double_t mean, ov_double_t variance);

/* ------------------------------------------------------------------------
 * Nodes (src/model/node_api.cpp)
 * ------------------------------------------------------------------------ */

/* A new node of a category (chance, decision, utility) and kind (discrete,
 * continuous); the domain owns it. */
OV_API ov_node_t ov_domain_new_node(ov_domain_t domain, ov_category_t category, ov_kind_t kind);
/* Deletes a node; its children's tables lose it. */
OV_API ov_status_t ov_node_delete(ov_node_t node);
/* The next older node, or NULL. */
OV_API ov_node_t ov_node_get_next(ov_node_t node);
/* The category, or -1 (ov_category_error). */
OV_API ov_category_t ov_node_get_category(ov_node_t node);
/* The kind, or ov_kind_error. */
OV_API ov_kind_t ov_node_get_kind(ov_node_t node);
/* The subtype of a discrete chance or decision node, or ov_subtype_error. */
OV_API ov_subtype_t ov_node_get_subtype(ov_node_t node);
/* Sets the subtype (boolean needs exactly two states). */
OV_API ov_status_t ov_node_set_subtype(ov_node_t node, ov_subtype_t subtype);
/* States of a discrete chance or decision node, or -1. */
OV_API ov_count_t ov_node_get_number_of_states(ov_node_t node);
/* The parents, NULL-terminated, owned by the node; never NULL for a node. */
OV_API ov_node_t *ov_node_get_parents(ov_node_t node);
/* The children, NULL-terminated, owned by the node; never NULL for a node. */
OV_API ov_node_t *ov_node_get_children(ov_node_t node);
/* The domain of a node; usage if its home is a class. */
OV_API ov_domain_t ov_node_get_domain(ov_node_t node);
/* Alias of ov_node_get_domain. */
OV_API ov_domain_t ov_node_get_home_domain(ov_node_t node);
/* The class of a node; usage if its home is a domain. */
OV_API ov_class_t ov_node_get_home_class(ov_node_t node);
/* The junction tree that holds the node; not_compiled unless compiled. */
OV_API ov_junction_tree_t ov_node_get_junction_tree(ov_node_t node);
/* For an input or output clone: the class node it stands for; else usage. */
OV_API ov_node_t ov_node_get_master(ov_node_t node);
/* For an input or output clone: its instance node; else usage. */
OV_API ov_node_t ov_node_get_instance(ov_node_t node);
/* For a node of an unfolded class: the instance nodes on the way down, then
 * the class node (NULL-terminated, owned by the node); else usage. */
OV_API ov_node_t *ov_node_get_source(ov_node_t node);
/* The name; an unnamed node is given an automatic name first. */
OV_API ov_string_t ov_node_get_name(ov_node_t node);
/* Sets the name: twice if another node holds it, invalid_name unless it has
 * the form of a C identifier. */
OV_API ov_status_t ov_node_set_name(ov_node_t node, ov_string_t name);
/* The label, "" when none was set. */
OV_API ov_string_t ov_node_get_label(ov_node_t node);
/* Sets the label (copied). */
OV_API ov_status_t ov_node_set_label(ov_node_t node, ov_string_t label);
/* Stores a position for a drawing application. */
OV_API ov_status_t ov_node_set_position(ov_node_t node, int x, int y);
/* Reads the position; usage for NULL or identical result pointers. */
OV_API ov_status_t ov_node_get_position(ov_node_t node, int *x, int *y);
/* Stores the caller's pointer. */
OV_API ov_status_t ov_node_set_user_data(ov_node_t node, void *data);
/* The caller's pointer, or NULL. */
OV_API void *ov_node_get_user_data(ov_node_t node);
/* The label of a state: the stored one, "false"/"true" for a boolean node,
 * else "". */
OV_API ov_string_t ov_node_get_state_label(ov_node_t node, ov_index_t state);
/* Sets the label of a state (copied). */
OV_API ov_status_t ov_node_set_state_label(ov_node_t node, ov_index_t state, ov_string_t label);
/* The only state with that label, or -1 (with none) for none or several. */
OV_API ov_index_t ov_node_get_state_index_from_label(ov_node_t node, ov_string_t label);
/* The value of a state of a numbered or interval node; -1.0 on failure. */
OV_API ov_double_t ov_node_get_state_value(ov_node_t node, ov_index_t state);
/* Sets the value of a state (or bound, for an interval node). */
OV_API ov_status_t ov_node_set_state_value(ov_node_t node, ov_index_t state, ov_double_t value);
/* The state that holds a value, or -1. */
OV_API ov_index_t ov_node_get_state_index_from_value(ov_node_t node, ov_double_t value);
/* Marks the node's table as changed so that the next propagation reloads it. */
OV_API ov_status_t ov_node_touch_table(ov_node_t node);

/* ------------------------------------------------------------------------
 * Graph editing (src/model/graph_api.cpp)
 * ------------------------------------------------------------------------ */

/* Makes parent a parent of child; the child's table ignores the new parent
 * (cyclic_network if a cycle would arise). */
OV_API ov_status_t ov_node_add_parent(ov_node_t child, ov_node_t parent);
/* Removes a parent; the child's table keeps the slice of its state 0. */
OV_API ov_status_t ov_node_remove_parent(ov_node_t node, ov_node_t parent);
/* Replaces a parent by an interchangeable node, keeping the table numbers. */
OV_API ov_status_t ov_node_switch_parent(ov_node_t node, ov_node_t old_parent, ov_node_t new_parent);
/* Reverses the link between two chance nodes, keeping the joint distribution. */
OV_API ov_status_t ov_node_reverse_edge(ov_node_t node1, ov_node_t node2);
/* Sets the number of states, resizing tables (new states copy state 0) and
 * discarding the entered finding. */
OV_API ov_status_t ov_node_set_number_of_states(ov_node_t node, ov_count_t count);
/* The constraint of node1 towards node2 for structure learning
 * (ov_constraint_none if none); ov_constraint_error on failure. */
OV_API ov_edge_constraint_t ov_node_get_edge_constraint(ov_node_t node1, ov_node_t node2);
/* Sets the constraint of node1 towards node2 and its mirror on node2. */
OV_API ov_status_t ov_node_set_edge_constraint(ov_node_t node1, ov_node_t node2, ov_edge_constraint_t constraint);
/* The nodes d-connected to the source nodes given hard and soft evidence (all
 * three NULL-terminated); the result is overwritten by the next such query. */
OV_API ov_node_t *ov_domain_get_d_connected_nodes(ov_domain_t domain, ov_node_t *source, ov_node_t *hard_evidence,
                                                  ov_node_t *soft_evidence);
/* The nodes d-separated from the source nodes, as the query above. */
OV_API ov_node_t *ov_domain_get_d_separated_nodes(ov_domain_t domain, ov_node_t *source, ov_node_t *hard_evidence,
                                                  ov_node_t *soft_evidence);

/* ------------------------------------------------------------------------
 * Compilation (src/compile/compile_api.cpp)
 * ------------------------------------------------------------------------ */

/* Compiles the domain: triangulation (minimum fill-in weight unless already
 * triangulated), junction forest, table data and first propagation. usage for
 * an empty or compiled domain; on failure the domain is as before the call.
 * Conditional Gaussian and influence-diagram inference are not available: a
 * domain with continuous, decision or utility nodes fails with usage (and is
 * rolled back). Tables of nodes whose models are stale are generated from
 * the models first; a failing generation fails the compile with its code. */
OV_API ov_status_t ov_domain_compile(ov_domain_t domain);
/* Builds the junction forest without table data; progress (may be NULL)
 * receives the name of each stage. usage if already compiled or built. */
OV_API ov_status_t ov_domain_compile_qualitatively(ov_domain_t domain, ov_progress_function_t progress);
/* Allocates table data, checks the potentials when a log is open and runs the
 * first propagation; usage without a forest. A failure removes nothing. */
OV_API ov_status_t ov_domain_compile_quantitatively(ov_domain_t domain, ov_progress_function_t progress);
/* Moralises and triangulates by a greedy heuristic (ov_tm_clique_size to
 * ov_tm_fill_in_weight) or by the search for least total clique table size
 * (ov_tm_total_weight); usage for a class, a triangulated domain or another
 * method. cyclic_network, decision_order on a bad network. */
OV_API ov_status_t ov_domain_triangulate(ov_domain_t domain, ov_triangulation_method_t method);
/* The bound on the work of ov_tm_total_weight: the most search states (sets
 * of eliminated nodes) it may make for one prime component before it falls
 * back to the lightest of the four heuristics and of 80 randomised greedy
 * runs (fixed seeds, so compiles are reproducible) there. 0, the initial
 * value, selects the built-in bound of 200000. usage for a null domain. */
OV_API ov_status_t ov_domain_set_max_number_of_separators(ov_domain_t domain, size_t count);
/* The bound set, 0 for the built-in one; 0 with usage for a null domain. */
OV_API size_t ov_domain_get_max_number_of_separators(ov_domain_t domain);
/* Triangulates by eliminating the chance and decision nodes in the order of
 * the NULL-terminated list; enumeration for a repeated, missing, utility or
 * out-of-level node, usage for a node of another domain. */
OV_API ov_status_t ov_domain_triangulate_with_order(ov_domain_t domain, ov_node_t *order);
/* The elimination order (eliminated first first), NULL-terminated, owned by
 * the domain; usage if the domain has nodes and is not triangulated. */
OV_API ov_node_t *ov_domain_get_elimination_order(ov_domain_t domain);

/* ------------------------------------------------------------------------
 * Junction forest (src/compile/forest_api.cpp)
 * ------------------------------------------------------------------------ */

/* The first junction tree (the one made last); NULL with not_compiled if the
 * domain is not compiled. */
OV_API ov_junction_tree_t ov_domain_get_first_junction_tree(ov_domain_t domain);
/* The next junction tree, or NULL. */
OV_API ov_junction_tree_t ov_jt_get_next(ov_junction_tree_t tree);
/* The clique the tree was built from. */
OV_API ov_clique_t ov_jt_get_root(ov_junction_tree_t tree);
/* The tree's cliques in domain order, NULL-terminated, owned by the tree. */
OV_API ov_clique_t *ov_jt_get_cliques(ov_junction_tree_t tree);
/* Stores the caller's pointer. */
OV_API ov_status_t ov_jt_set_user_data(ov_junction_tree_t tree, void *data);
/* The caller's pointer, or NULL. */
OV_API void *ov_jt_get_user_data(ov_junction_tree_t tree);
/* The first clique of the domain, or NULL. */
OV_API ov_clique_t ov_domain_get_first_clique(ov_domain_t domain);
/* The next clique of the domain, or NULL. */
OV_API ov_clique_t ov_clique_get_next(ov_clique_t clique);
/* The junction tree that holds the clique. */
OV_API ov_junction_tree_t ov_clique_get_junction_tree(ov_clique_t clique);
/* The members, discrete first, NULL-terminated, owned by the clique. */
OV_API ov_node_t *ov_clique_get_members(ov_clique_t clique);
/* The number of members, or -1. */
OV_API ov_count_t ov_clique_get_number_of_members(ov_clique_t clique);
/* The neighbouring cliques, NULL-terminated, owned by the clique. */
OV_API ov_clique_t *ov_clique_get_neighbors(ov_clique_t clique);
/* The number of neighbouring cliques, or -1. */
OV_API ov_count_t ov_clique_get_number_of_neighbors(ov_clique_t clique);
/* The clique's probability table, owned by the clique. */
OV_API ov_table_t ov_clique_get_probability_table(ov_clique_t clique);
/* The clique's utility table (NULL without decisions and utilities). */
OV_API ov_table_t ov_clique_get_utility_table(ov_clique_t clique);
/* Stores the caller's pointer. */
OV_API ov_status_t ov_clique_set_user_data(ov_clique_t clique, void *data);
/* The caller's pointer, or NULL. */
OV_API void *ov_clique_get_user_data(ov_clique_t clique);
/* The number of cliques, or -1. */
OV_API ov_count_t ov_domain_get_number_of_cliques(ov_domain_t domain);
/* The sum over the cliques of (CG entries per cell + 1) times the table size;
 * -1 for a size too large to count, and -1 with usage without cliques. */
OV_API ov_count_t ov_domain_get_jt_cost(ov_domain_t domain);

/* ------------------------------------------------------------------------
 * Evidence (src/inference/evidence_api.cpp)
 *
 * Findings belong to chance and decision nodes and survive an uncompile. A
 * discrete finding is one number per state: 1.0 is neutral, 0 excludes the
 * state, anything else is a likelihood.
 * ------------------------------------------------------------------------ */

/* Makes `state` the only possible state of a discrete node. */
OV_API ov_status_t ov_node_select_state(ov_node_t node, ov_index_t state);
/* Sets the finding of one state (not negative, not NaN); an infinite
 * likelihood makes the next propagation fail with overflow. */
OV_API ov_status_t ov_node_enter_finding(ov_node_t node, ov_index_t state, ov_number_t value);
/* Enters an observed value on a continuous node. */
OV_API ov_status_t ov_node_enter_value(ov_node_t node, ov_double_t value);
/* Removes the node's evidence. */
OV_API ov_status_t ov_node_retract_findings(ov_node_t node);
/* Removes the evidence of every chance and decision node. */
OV_API ov_status_t ov_domain_retract_findings(ov_domain_t domain);
/* The entered finding of a state (1.0 when none was entered), or -1.0. */
OV_API ov_number_t ov_node_get_entered_finding(ov_node_t node, ov_index_t state);
/* The finding of a state as last propagated; not_compiled unless compiled. */
OV_API ov_number_t ov_node_get_propagated_finding(ov_node_t node, ov_index_t state);
/* The entered value of a continuous node; usage if none. */
OV_API ov_double_t ov_node_get_entered_value(ov_node_t node);
/* The propagated value of a continuous node; usage if none. */
OV_API ov_double_t ov_node_get_propagated_value(ov_node_t node);
/* The only state the entered finding allows, or -1. */
OV_API ov_index_t ov_node_get_entered_state(ov_node_t node);
/* 1 if evidence is entered on the node, else 0; -1 on failure. */
OV_API int ov_node_evidence_is_entered(ov_node_t node);
/* 1 if an entered cell is neither 0 nor 1, else 0; -1 on failure. */
OV_API int ov_node_likelihood_is_entered(ov_node_t node);
/* 1 if the node's tree incorporates evidence on it. */
OV_API int ov_node_evidence_is_propagated(ov_node_t node);
/* 1 if a propagated cell is neither 0 nor 1. */
OV_API int ov_node_likelihood_is_propagated(ov_node_t node);
/* 1 if the entered evidence differs from the propagated. */
OV_API int ov_node_evidence_to_propagate(ov_node_t node);
/* 1 if propagating the entered evidence needs a re-initialisation. */
OV_API int ov_node_evidence_to_retract(ov_node_t node);
/* 1 if the entered evidence fixes the node to one state (or value). */
OV_API int ov_node_is_instantiated(ov_node_t node);
/* 1 if the tree has nothing to propagate, else whether the node is instantiated. */
OV_API int ov_node_is_consistent(ov_node_t node);
/* 1 if some node of the tree has evidence to propagate. */
OV_API int ov_jt_evidence_to_propagate(ov_junction_tree_t tree);
/* 1 if some tree has evidence to propagate; not_compiled unless compiled. */
OV_API int ov_domain_evidence_to_propagate(ov_domain_t domain);
/* 1 if the last propagation of the tree incorporated evidence. */
OV_API int ov_jt_evidence_is_propagated(ov_junction_tree_t tree);
/* 1 if some tree incorporates evidence. */
OV_API int ov_domain_evidence_is_propagated(ov_domain_t domain);
/* 1 if the tree incorporates a likelihood. */
OV_API int ov_jt_likelihood_is_propagated(ov_junction_tree_t tree);
/* 1 if some tree incorporates a likelihood. */
OV_API int ov_domain_likelihood_is_propagated(ov_domain_t domain);
/* 1 if the tree incorporates continuous evidence. */
OV_API int ov_jt_cg_evidence_is_propagated(ov_junction_tree_t tree);
/* 1 if some tree incorporates continuous evidence. */
OV_API int ov_domain_cg_evidence_is_propagated(ov_domain_t domain);
/* 1 if the tree is in that equilibrium (ov_equilibrium_sum or _max). */
OV_API int ov_jt_equilibrium_is(ov_junction_tree_t tree, ov_equilibrium_t equilibrium);
/* 1 if every tree is in that equilibrium. */
OV_API int ov_domain_equilibrium_is(ov_domain_t domain, ov_equilibrium_t equilibrium);
/* 1 if the tree's evidence was propagated in that mode or it has none;
 * no_equilibrium for a tree without equilibrium. */
OV_API int ov_jt_evidence_mode_is(ov_junction_tree_t tree, ov_evidence_mode_t mode);
/* 1 unless some tree has evidence propagated in another mode. */
OV_API int ov_domain_evidence_mode_is(ov_domain_t domain, ov_evidence_mode_t mode);

/* ------------------------------------------------------------------------
 * Propagation (src/inference/propagation_api.cpp)
 *
 * Only sum equilibrium in normal mode is available in a domain with
 * continuous, decision or utility nodes. A failed propagation leaves the
 * tree at its initial equilibrium with the findings still entered.
 * ------------------------------------------------------------------------ */

/* Propagates the entered evidence in every tree: inconsistency_or_underflow
 * for impossible evidence, overflow (also for an infinite likelihood),
 * fast_retraction, normalization. */
OV_API ov_status_t ov_domain_propagate(ov_domain_t domain, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode);
/* Propagates one junction tree. */
OV_API ov_status_t ov_jt_propagate(ov_junction_tree_t tree, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode);
/* Propagates the clique's tree with the clique as root of the run. */
OV_API ov_status_t ov_clique_propagate(ov_clique_t clique, ov_equilibrium_t equilibrium, ov_evidence_mode_t mode);
/* Brings every tree back to its initial sum equilibrium; findings stay. */
OV_API ov_status_t ov_domain_reset_inference_engine(ov_domain_t domain);
/* ov_domain_reset_inference_engine, then ov_domain_retract_findings. */
OV_API ov_status_t ov_domain_initialize(ov_domain_t domain);
/* 1 if a node table changed since the last propagation of some tree. */
OV_API int ov_domain_tables_to_propagate(ov_domain_t domain);
/* 1 if a node table of the tree changed since its last propagation. */
OV_API int ov_jt_tables_to_propagate(ov_junction_tree_t tree);
/* Keeps a copy of the initial tables of the forest (those with no evidence),
 * from which later re-initialisations restore them; usage unless every tree
 * is at sum equilibrium, in normal mode or without propagated evidence.
 * Evidence propagated in normal mode stays propagated: beliefs and constants
 * do not change. */
OV_API ov_status_t ov_domain_save_to_memory(ov_domain_t domain);

/* ------------------------------------------------------------------------
 * Approximation and compression (src/inference/compression_api.cpp)
 * ------------------------------------------------------------------------ */

/* Zeroes, clique by clique, the smallest cells of the initial tables (those
 * without evidence) whose sum is at most epsilon (0 <= epsilon < 1) of the
 * clique's total, brings each tree to equilibrium again and keeps the result
 * in the table memory, which later propagations start from. Returns the
 * probability mass d of the joint distribution that was removed (at most
 * epsilon times the number of cliques), or -1.0. Every tree is left at its
 * initial equilibrium; entered findings wait for the next propagation.
 * Error bound: with findings of values at most 1 propagated at sum
 * equilibrium and c the normalisation constant then reported, every belief
 * differs from the exact one by at most d / ((1 - d) * c), which is at
 * least d / P(e) for the exact probability P(e) of the evidence (the beliefs
 * are the exact ones conditioned on avoiding the removed cells, which have
 * probability at most d / P(e) given e). A change of a node table,
 * ov_domain_reclaim_memory_tables or a new compilation brings the exact
 * tables back from the next initialisation of a tree on. usage for domains with decision, utility or continuous nodes;
 * compressed. */
OV_API ov_double_t ov_domain_approximate(ov_domain_t domain, ov_double_t epsilon);
/* Drops the clique cells that are zero in the current tables (deterministic
 * tables, approximation, evidence propagated now) and keeps the rest, with a
 * 16-bit map from each kept cell to the cell of every table it meets; a
 * clique that meets a table of more than 65536 cells stays full.
 * Beliefs and constants stay exact for evidence consistent with what was
 * dropped; evidence that is not gives inconsistency_or_underflow. Returns
 * the clique and separator cells after compression (the log has both counts),
 * or -1.0 with the domain unchanged: not_compiled; usage for decision,
 * utility or continuous nodes, chain components, or a tree not at
 * equilibrium, with unpropagated evidence or changed tables, or propagated in
 * fast retraction mode; compressed if compressed already. A compressed
 * domain refuses with compressed: fast retraction, joint marginals, EM
 * learning, adaptation, cloning, KB files and approximation; it simulates,
 * drawing what the uncompressed domain would. Uncompiling clears it. */
OV_API ov_double_t ov_domain_compress(ov_domain_t domain);

/* ------------------------------------------------------------------------
 * Results (src/inference/results_api.cpp)
 * ------------------------------------------------------------------------ */

/* The belief of a state of a discrete chance node, or -1.0. In an influence
 * diagram beliefs (and the normalization constant) are those with the open
 * decisions following their optimal policies. */
OV_API ov_number_t ov_node_get_belief(ov_node_t node, ov_index_t state);
/* The mean of a continuous chance node, or -1.0. */
OV_API ov_double_t ov_node_get_mean(ov_node_t node);
/* The variance of a continuous chance node, or -1.0. */
OV_API ov_double_t ov_node_get_variance(ov_node_t node);
/* The distribution of an unobserved continuous chance node as a mixture: a
 * new table owned by the caller, over discrete nodes and the node, holding
 * per configuration its probability and the node's mean and variance given
 * it (ov_table_get_mean, ov_table_get_variance); NULL on failure. */
OV_API ov_table_t ov_node_get_distribution(ov_node_t node);
/* The expected utility of a state of a decision node, or -1.0: the maximum
 * expected utility of the domain (under no-forgetting) when that option is
 * taken, given the propagated findings, the decisions taken (findings on
 * decision nodes) and the best choices at the open decisions; 0.0 for an
 * option under which the findings are impossible. */
OV_API ov_number_t ov_node_get_expected_utility(ov_node_t node, ov_index_t state);
/* The maximum expected utility of the domain after propagation: each open
 * decision takes the option with the greatest expected utility given what is
 * known when it is made (its parents and, by no-forgetting, every earlier
 * decision and its parents); findings and decisions taken are respected.
 * Expectations are conditioned on the findings; a finding on a descendant of
 * a decision weighs the policies by its probability under each. 0.0 without
 * utility nodes. On failure -1.0 with the error set, which can be a true
 * result too, so test ov_error_code. */
OV_API ov_double_t ov_domain_get_expected_utility(ov_domain_t domain);
/* The optimal policy of a decision node after propagation, as a new table
 * the caller deletes with ov_table_delete: over the decision's past as the
 * solution uses it (the earlier decisions and observed chance nodes on
 * which the choice depends, a subset of what is known when it is made),
 * then the decision itself, fastest. Each configuration of the past holds 1
 * at the best option (the first of equally good ones) and 0 elsewhere;
 * where the findings make the configuration impossible, 1 at the first
 * option. A decision taken (a finding) has a policy over itself alone: 1 at
 * the first option its finding allows. NULL with the error set on failure. */
OV_API ov_table_t ov_node_get_policy(ov_node_t node);
/* The table of ov_node_get_policy holding the expected utility of the
 * domain for each option in each configuration of the past, given that
 * configuration, the findings and the best choices at the other open
 * decisions; 0.0 where they are impossible together. */
OV_API ov_table_t ov_node_get_policy_utilities(ov_node_t node);
/* Limited memory: with a nonzero `limited` each decision of the domain
 * knows only its parents (its information links), not everything decided
 * and observed before it, and the decisions need not be totally ordered. A
 * change uncompiles the domain; the default is 0, no-forgetting. The
 * policies are then found by single policy updating: from uniform policies,
 * each open decision in turn (the later before the earlier) takes the best
 * option in each configuration of its parents given the other policies,
 * until a round changes nothing. The result is a local optimum: no change
 * of one decision's policy alone gains. It is the optimum when the diagram
 * is soluble, for example when each decision observes what every earlier
 * decision observed and the earlier decisions themselves. The queries above
 * answer with every open decision following its policy: the expected
 * utility of an option is the domain's with the decision taking it and the
 * others following their policies, ov_domain_get_expected_utility is that
 * of the policies, and ov_node_get_policy is a table over the decision's
 * parents. Findings and decisions taken are respected as under
 * no-forgetting. usage for a null domain. */
OV_API ov_status_t ov_domain_set_limited_memory(ov_domain_t domain, int limited);
/* 1 if the domain's decisions have limited memory, 0 if not, -1 (usage) for
 * a null domain. */
OV_API int ov_domain_get_limited_memory(ov_domain_t domain);
/* The joint of the NULL-terminated nodes (discrete chance nodes of one tree)
 * as a new table the caller deletes with ov_table_delete. Nodes that share
 * no clique are not supported in fast retraction mode (fast_retraction). */
OV_API ov_table_t ov_domain_get_marginal(ov_domain_t domain, ov_node_t *nodes);
/* The conflict of the propagated evidence: the product over the findings of
 * their prior probabilities divided by the probability of all of them; above
 * 1 suggests conflicting evidence. */
OV_API ov_double_t ov_domain_get_conflict(ov_domain_t domain);
/* The conflict of one tree's evidence. */
OV_API ov_double_t ov_jt_get_conflict(ov_junction_tree_t tree);
/* The share of the conflict that the clique's findings contributed in the
 * last propagation. */
OV_API ov_double_t ov_clique_get_conflict(ov_clique_t clique);
/* The clique in which the node's finding was last counted, or NULL. */
OV_API ov_clique_t ov_node_get_conflict_clique(ov_node_t node);
/* The probability of all evidence propagated (at max equilibrium, of the
 * most probable configuration with it), or -1.0. */
OV_API ov_double_t ov_domain_get_normalization_constant(ov_domain_t domain);
/* Its natural logarithm, kept apart so that it survives underflow; 1.0 on
 * failure. Without continuous findings a true result is never positive; with
 * them the constant is a density and its logarithm may be positive, so test
 * ov_error_code() there. */
OV_API ov_double_t ov_domain_get_log_normalization_constant(ov_domain_t domain);
/* The entropy of a discrete chance node's belief (natural log), or -1.0. */
OV_API ov_double_t ov_node_get_entropy(ov_node_t node);
/* The mutual information of two discrete chance nodes, or -1.0. */
OV_API ov_double_t ov_node_get_mutual_information(ov_node_t a, ov_node_t b);

/* ------------------------------------------------------------------------
 * Simulation (src/learn/simulation_api.cpp)
 * ------------------------------------------------------------------------ */

/* Draws one configuration of all chance and decision nodes: given the
 * propagated evidence when compiled (sum equilibrium, normal mode, nothing
 * left to propagate), else from the node tables (evidence must instantiate
 * its nodes; decisions must be instantiated). */
OV_API ov_status_t ov_domain_simulate(ov_domain_t domain);
/* The sampled state of a discrete chance or decision node; usage if none. */
OV_API ov_index_t ov_node_get_sampled_state(ov_node_t node);
/* The sampled value of a continuous node; usage if none. */
OV_API ov_double_t ov_node_get_sampled_value(ov_node_t node);
/* The probability, given the evidence, of the configuration last drawn from
 * the compiled domain (the product over the junction trees). */
OV_API ov_double_t ov_domain_get_probability_of_random_selection(ov_domain_t domain);

/* ------------------------------------------------------------------------
 * Cases (src/learn/case_api.cpp)
 * ------------------------------------------------------------------------ */

/* A domain holds numbered cases: a state (discrete) or value (continuous)
 * per chance and decision node, any of which may be absent, and a count
 * (weight, 1 until set). Learning and the case files read them from here. */

/* Sets the number of cases; new cases are absent everywhere with count 1,
 * and lowering the number drops the cases above it. */
OV_API ov_status_t ov_domain_set_number_of_cases(ov_domain_t domain, ov_count_t count);
/* Adds one case; its index (the previous number of cases), or -1. */
OV_API ov_index_t ov_domain_new_case(ov_domain_t domain);
OV_API ov_count_t ov_domain_get_number_of_cases(ov_domain_t domain);
/* The count of a case: any number >= 0 (0 is legal; NaN is usage). */
OV_API ov_status_t ov_domain_set_case_count(ov_domain_t domain, ov_index_t index, ov_number_t count);
/* The count of a case, or -1.0. */
OV_API ov_number_t ov_domain_get_case_count(ov_domain_t domain, ov_index_t index);
/* The state of a discrete chance or decision node in a case; usage for a
 * state outside the node's, case_state_too_large above 32767. */
OV_API ov_status_t ov_node_set_case_state(ov_node_t node, ov_index_t index, ov_index_t state);
/* The value of a continuous chance node in a case. */
OV_API ov_status_t ov_node_set_case_value(ov_node_t node, ov_index_t index, ov_double_t value);
/* Makes the node's entry of a case absent. */
OV_API ov_status_t ov_node_unset_case(ov_node_t node, ov_index_t index);
/* The state in a case, or -1: no_value when absent (a stored state at or
 * above the node's present state count reads as absent). */
OV_API ov_index_t ov_node_get_case_state(ov_node_t node, ov_index_t index);
/* The value in a case, or -1.0: no_value when absent. */
OV_API ov_double_t ov_node_get_case_value(ov_node_t node, ov_index_t index);
/* 1 when the node has a state or value in the case, 0 when absent, -1. */
OV_API int ov_node_case_is_set(ov_node_t node, ov_index_t index);
/* Makes a case the evidence: selects the state or enters the value of each
 * chance and decision node present in the case and retracts the findings
 * of every other, newest node first; stops at the first failing node (the
 * nodes before it keep their new evidence). A value the engine refuses is
 * skipped. */
OV_API ov_status_t ov_domain_enter_case(ov_domain_t domain, ov_index_t index);

/* ------------------------------------------------------------------------
 * Learning tables from cases (src/learn/em_api.cpp) and sequential
 * adaptation (src/learn/adapt_api.cpp)
 *
 * Only discrete chance nodes with an experience table are learned or
 * adapted; the experience of a parent configuration is the weight of its
 * current distribution as a prior, and 0 (the default) switches the prior
 * off in EM and adaptation off for that configuration.
 * ------------------------------------------------------------------------ */

/* EM on the cases of a compiled domain, from the current tables, until the
 * relative change of the log-likelihood is within the tolerance or the
 * iteration limit is reached; each iteration and the final log-likelihood,
 * AIC and BIC are written to the log. usage for no cases, chain graph
 * components or a decision without a value in some case; not_compiled.
 * Leaves the domain initialised, with new tables and experience counts. */
OV_API ov_status_t ov_domain_learn_tables(ov_domain_t domain);
/* The same on a domain unfolded from a class: the nodes that stand for one
 * class node share its counts and its table. usage also for a node without
 * a source or whose states or experience table do not match its source's. */
OV_API ov_status_t ov_domain_learn_class_tables(ov_domain_t domain);
/* The log-likelihood of the cases (weighted by their counts) under the
 * current tables, computed once until a case or a table changes; 1.0 on
 * failure. */
OV_API ov_double_t ov_domain_get_log_likelihood(ov_domain_t domain);
/* The log-likelihood minus the number of free parameters P; 1.0 on failure. */
OV_API ov_double_t ov_domain_get_AIC(ov_domain_t domain);
/* The log-likelihood minus P ln(N) / 2 for N cases; 1.0 on failure. */
OV_API ov_double_t ov_domain_get_BIC(ov_domain_t domain);
/* The experience table of a discrete chance node (over its parents, made
 * on first use, all 0); usage for an output clone of an instance. */
OV_API ov_table_t ov_node_get_experience_table(ov_node_t node);
/* 1 if the node has an experience table, 0 if not, -1. */
OV_API int ov_node_has_experience_table(ov_node_t node);
/* The fading table of a discrete chance node (made on first use, all 1):
 * the factor in (0, 1] by which old experience is multiplied per case. */
OV_API ov_table_t ov_node_get_fading_table(ov_node_t node);
/* 1 if the node has a fading table, 0 if not, -1. */
OV_API int ov_node_has_fading_table(ov_node_t node);
/* Adapts the tables of the nodes with experience to the propagated
 * evidence (one case); usage unless every tree is at sum equilibrium in
 * normal mode with nothing left to propagate; not_compiled. The next
 * propagation uses the new tables. */
OV_API ov_status_t ov_domain_adapt(ov_domain_t domain);

/* ------------------------------------------------------------------------
 * Structure learning (src/learn/structure_api.cpp)
 * ------------------------------------------------------------------------ */

/* Learns the edges of a domain of discrete chance nodes without edges from
 * its cases: G² tests of independence given at most three other nodes (at
 * the domain's significance level; each test uses the cases complete for
 * its own nodes), colliders, derived directions, then the remaining
 * undirected edges directed where they add fewer parameters. Edge
 * constraints override the data. Each step is written to the domain's log.
 * usage for other nodes, existing edges or chain components; a domain
 * without case data learns nothing and succeeds. */
OV_API ov_status_t ov_domain_learn_structure(ov_domain_t domain);
/* After structure learning: the p-value of the marginal test of two nodes
 * (1 when they were not tested), or -1.0 (usage) when there was no run. */
OV_API ov_double_t ov_node_get_data_independency(ov_node_t a, ov_node_t b);

/* ------------------------------------------------------------------------
 * Case and data files (src/io/case_file_api.cpp)
 *
 * A case file holds findings, one "name: value" item each; a data file holds
 * cases: a header line of node names (after '#' when each case starts with
 * its count), then one case a line, fields separated by blanks or one ','.
 * An empty field, '*' or '?' is a missing value. Messages go to the handler
 * with the line; soft errors fail the read at its end. io when a file will
 * not open or close. */

/* Retracts all findings and enters the case of a file; on failure all
 * findings are retracted again. */
OV_API ov_status_t ov_domain_parse_case(ov_domain_t domain, ov_string_t file_name, ov_parse_error_handler_t handler,
                                        void *data);
/* Writes the findings of the chance and decision nodes as a case file. */
OV_API ov_status_t ov_domain_save_case(ov_domain_t domain, ov_string_t file_name);
/* Appends the cases of a data file; on failure the number of cases is set
 * back to what it was. */
OV_API ov_status_t ov_domain_parse_cases(ov_domain_t domain, ov_string_t file_name, ov_parse_error_handler_t handler,
                                         void *data);
/* Writes the cases listed in `cases` (ending at a negative index; NULL for
 * all) of the chance and decision nodes of the NULL-terminated, non-empty
 * `nodes` as a data file, with counts when include_counts is 1; fields are
 * joined by `separator` and a missing value is written as `missing`. An
 * empty `missing` reads back only between fields: at the end of a line the
 * reader takes the case for one with too few data items. */
OV_API ov_status_t ov_domain_save_cases(ov_domain_t domain, ov_string_t file_name, ov_node_t *nodes,
                                        const ov_index_t *cases, int include_counts, ov_string_t separator,
                                        ov_string_t missing);

/* ------------------------------------------------------------------------
 * Tables (src/table/table_api.cpp)
 * ------------------------------------------------------------------------ */

/* The conditional table of a chance node or the table of a utility node,
 * built at first need; owned by the node. */
OV_API ov_table_t ov_node_get_table(ov_node_t node);
/* The table's data array (allocated on first need); writes change the table. */
OV_API ov_number_t *ov_table_get_data(ov_table_t table);
/* The table's nodes, NULL-terminated, owned by the table. */
OV_API ov_node_t *ov_table_get_nodes(ov_table_t table);
/* The number of discrete configurations; -1 with size_too_large if it does
 * not fit. */
OV_API ov_count_t ov_table_get_size(ov_table_t table);
/* The mean of a continuous node in a configuration; -1.0 on failure. */
OV_API ov_double_t ov_table_get_mean(ov_table_t table, ov_index_t configuration, ov_node_t node);
/* The covariance of two continuous nodes in a configuration. */
OV_API ov_double_t ov_table_get_covariance(ov_table_t table, ov_index_t configuration, ov_node_t node1,
                                           ov_node_t node2);
/* The variance of a continuous node in a configuration. */
OV_API ov_double_t ov_table_get_variance(ov_table_t table, ov_index_t configuration, ov_node_t node);
/* Puts the table's nodes in a new order, moving the numbers with them. */
OV_API ov_status_t ov_table_reorder_nodes(ov_table_t table, ov_node_t *order);
/* Deletes a table the caller owns, or an experience or fading table. */
OV_API ov_status_t ov_table_delete(ov_table_t table);
/* Stores the caller's pointer. */
OV_API ov_status_t ov_table_set_user_data(ov_table_t table, void *data);
/* The caller's pointer, or NULL. */
OV_API void *ov_table_get_user_data(ov_table_t table);
/* Sets the intercept of a continuous chance node in a configuration. */
OV_API ov_status_t ov_node_set_alpha(ov_node_t node, ov_double_t alpha, ov_index_t configuration);
/* The intercept, or -1.0. */
OV_API ov_double_t ov_node_get_alpha(ov_node_t node, ov_index_t configuration);
/* Sets the regression coefficient on a continuous parent. */
OV_API ov_status_t ov_node_set_beta(ov_node_t node, ov_double_t beta, ov_node_t parent, ov_index_t configuration);
/* The regression coefficient, or -1.0. */
OV_API ov_double_t ov_node_get_beta(ov_node_t node, ov_node_t parent, ov_index_t configuration);
/* Sets the conditional variance (not negative). */
OV_API ov_status_t ov_node_set_gamma(ov_node_t node, ov_double_t gamma, ov_index_t configuration);
/* The conditional variance, or -1.0. */
OV_API ov_double_t ov_node_get_gamma(ov_node_t node, ov_index_t configuration);

/* ------------------------------------------------------------------------
 * Attributes (src/model/attribute_api.cpp)
 * ------------------------------------------------------------------------ */

/* Sets (or with a NULL value removes) a key of the domain. */
OV_API ov_status_t ov_domain_set_attribute(ov_domain_t domain, ov_string_t key, ov_string_t value);
/* The value of a key, or NULL. */
OV_API ov_string_t ov_domain_get_attribute(ov_domain_t domain, ov_string_t key);
/* The newest attribute, or NULL. */
OV_API ov_attribute_t ov_domain_get_first_attribute(ov_domain_t domain);
/* Sets (or with a NULL value removes) a key of the node. */
OV_API ov_status_t ov_node_set_attribute(ov_node_t node, ov_string_t key, ov_string_t value);
/* The value of a key, or NULL. */
OV_API ov_string_t ov_node_get_attribute(ov_node_t node, ov_string_t key);
/* The newest attribute, or NULL. */
OV_API ov_attribute_t ov_node_get_first_attribute(ov_node_t node);
/* Sets (or with a NULL value removes) a key of a class. */
OV_API ov_status_t ov_class_set_attribute(ov_class_t c, ov_string_t key, ov_string_t value);
/* The value of a key of a class, or NULL. */
OV_API ov_string_t ov_class_get_attribute(ov_class_t c, ov_string_t key);
/* The newest attribute of a class, or NULL. */
OV_API ov_attribute_t ov_class_get_first_attribute(ov_class_t c);
/* The key of an attribute. */
OV_API ov_string_t ov_attribute_get_key(ov_attribute_t attribute);
/* The value of an attribute. */
OV_API ov_string_t ov_attribute_get_value(ov_attribute_t attribute);
/* The next (older) attribute, or NULL. */
OV_API ov_attribute_t ov_attribute_get_next(ov_attribute_t attribute);

/* ------------------------------------------------------------------------
 * Expressions (src/expr/expression_api.cpp)
 *
 * Expressions are immutable trees. A composite takes over its operands, and
 * a model slot holds the expression stored in it: ov_expression_delete frees
 * an expression only when nothing holds it (and then frees the operands it
 * held last), and otherwise does nothing.
 * ------------------------------------------------------------------------ */

/* A number constant (ov_op_number), owned by the caller. */
OV_API ov_expression_t ov_number_make_expression(ov_double_t number);
/* A boolean constant (ov_op_boolean); any non-zero value is true. */
OV_API ov_expression_t ov_boolean_make_expression(int value);
/* A label constant (ov_op_label) holding a copy of the string; usage for NULL. */
OV_API ov_expression_t ov_label_make_expression(ov_string_t label);
/* A reference to a node (ov_op_node); usage for NULL. */
OV_API ov_expression_t ov_node_make_expression(ov_node_t node);
/* A composite of an operator 60..104 and a NULL-terminated operand array. The
 * array is copied and stays the caller's; the operands belong to the new
 * tree, or stay the caller's on failure: usage (NULL array, operator out of
 * range), invalid_expression (operands that do not fit), no_memory. */
OV_API ov_expression_t ov_make_composite_expression(ov_operator_t op, ov_expression_t *operands);
/* 1 for a composite, 0 for a leaf, -1 with usage for NULL. */
OV_API int ov_expression_is_composite(ov_expression_t expression);
/* The operator, or ov_op_error with usage for NULL. */
OV_API ov_operator_t ov_expression_get_operator(ov_expression_t expression);
/* The NULL-terminated operands of a composite, owned by the tree; usage for
 * a leaf. */
OV_API ov_expression_t *ov_expression_get_operands(ov_expression_t expression);
/* The node of an ov_op_node leaf; usage otherwise. */
OV_API ov_node_t ov_expression_get_node(ov_expression_t expression);
/* The value of an ov_op_number leaf; -1.0 with usage otherwise. */
OV_API ov_double_t ov_expression_get_number(ov_expression_t expression);
/* The string of an ov_op_label leaf, owned by the tree; usage otherwise. */
OV_API ov_string_t ov_expression_get_label(ov_expression_t expression);
/* 0 or 1 for an ov_op_boolean leaf; -1 with usage otherwise. */
OV_API int ov_expression_get_boolean(ov_expression_t expression);
/* A deep copy sharing nothing, owned by the caller. */
OV_API ov_expression_t ov_expression_clone(ov_expression_t expression);
/* Frees an expression that nothing holds; does nothing (with success) for one
 * held by a tree or a model. */
OV_API ov_status_t ov_expression_delete(ov_expression_t expression);
/* The text form, which reads back to the same tree; the caller frees it with
 * free(). NULL on failure. */
OV_API char *ov_expression_to_string(ov_expression_t expression);
/* Parses an expression whose names are nodes of the domain; the caller owns
 * the result. Errors: usage, syntax, parse, an error of a failed step; the
 * handler receives each message with the number of bytes read so far. */
OV_API ov_expression_t ov_domain_string_to_expression(ov_domain_t domain, ov_string_t text,
                                                      ov_parse_error_handler_t handler, void *data);
/* The same with the names of a class (dotted names reach instance outputs). */
OV_API ov_expression_t ov_class_string_to_expression(ov_class_t c, ov_string_t text, ov_parse_error_handler_t handler,
                                                     void *data);
/* The same with a simple handler; note the order of the first two arguments. */
OV_API ov_expression_t ov_string_to_expression(ov_string_t text, ov_domain_t domain, ov_simple_error_handler_t handler);
/* The same with the names of the domain (or class) of the model's node. */
OV_API ov_expression_t ov_string_parse_expression(ov_string_t text, ov_model_t model, ov_parse_error_handler_t handler,
                                                  void *data);

/* ------------------------------------------------------------------------
 * Models (src/expr/model_api.cpp)
 *
 * A model generates the table of a discrete chance or utility node from one
 * expression per configuration of its model nodes (some of the node's
 * parents). Slot index: the first model node varies slowest, the last
 * fastest. A node owns its model.
 * ------------------------------------------------------------------------ */

/* A new model of the node over a NULL-terminated list of distinct parents (a
 * NULL list is empty), replacing any model it had; the node owns it. usage
 * for another node kind, an output clone or a bad list; no_memory. */
OV_API ov_model_t ov_node_new_model(ov_node_t node, ov_node_t *model_nodes);
/* The node's model, or NULL (with none) if it has none. */
OV_API ov_model_t ov_node_get_model(ov_node_t node);
/* Deletes a model, releasing its expressions; the table stays as it is. */
OV_API ov_status_t ov_model_delete(ov_model_t model);
/* The model nodes, NULL-terminated, owned by the model. */
OV_API ov_node_t *ov_model_get_nodes(ov_model_t model);
/* The number of slots (the product of the model nodes' state counts); -1 with
 * size_too_large or no_memory. */
OV_API ov_count_t ov_model_get_size(ov_model_t model);
/* Stores an expression in a slot (NULL clears it), taking a reference on it.
 * usage for a bad index; invalid_expression if it names a node that is not a
 * parent of the model's node, or if a utility node's model is given a
 * boolean, label or distribution. Marks the model stale. */
OV_API ov_status_t ov_model_set_expression(ov_model_t model, ov_index_t index, ov_expression_t expression);
/* The expression of a slot, owned by the model, or NULL (with none) if unset. */
OV_API ov_expression_t ov_model_get_expression(ov_model_t model, ov_index_t index);
/* Samples taken across each bounded interval parent (default 25); usage for
 * 0. Marks the model stale. */
OV_API ov_status_t ov_model_set_number_of_samples_per_interval(ov_model_t model, uint32_t count);
/* The samples per interval, or -1. */
OV_API ov_count_t ov_model_get_number_of_samples_per_interval(ov_model_t model);
/* Stores the caller's pointer. */
OV_API ov_status_t ov_model_set_user_data(ov_model_t model, void *data);
/* The caller's pointer, or NULL. */
OV_API void *ov_model_get_user_data(ov_model_t model);

/* ------------------------------------------------------------------------
 * Table generation (src/expr/generate_api.cpp)
 *
 * A stale model's node table is computed from the model: for each
 * configuration of the table's nodes the slot of the model nodes' states is
 * evaluated with the parents bound to their states (number and interval
 * parents to their values; a bounded interval parent is sampled at the
 * midpoints of samples_per_interval equal parts and the results averaged).
 * Reports and failures are written to the domain's log. Errors:
 * invalid_expression (no expressions, an empty or ill-typed slot, a value
 * that is no state of the node), invalid_state_values (state values that do
 * not increase), inappropriate_arguments, insufficient_state_range,
 * division_by_zero, negative_probability, computation_failed, io.
 * ------------------------------------------------------------------------ */

/* Generates the node's table if its model is stale (else does nothing).
 * usage for a node without a model. */
OV_API ov_status_t ov_node_generate_table(ov_node_t node);
/* The same for each node with a model, in node list order; stops at the
 * first failure. */
OV_API ov_status_t ov_domain_generate_tables(ov_domain_t domain);
OV_API ov_status_t ov_class_generate_tables(ov_class_t c);

/* ------------------------------------------------------------------------
 * Copies of domains and nodes (src/oo/clone_api.cpp)
 * ------------------------------------------------------------------------ */

/* A new domain, owned by the caller, that is a deep and independent copy of
 * `domain`, exactly where the source stands:
 * - the nodes in the same list order, with their names, labels, positions,
 *   categories, kinds, subtypes, states (labels and values), parents and
 *   children in the same order, edge constraints, attributes and sources
 *   (ov_node_get_source leads to the same class nodes);
 * - every table bit for bit, in the same list order: node tables,
 *   experience and fading tables, chain components with their potentials;
 *   models with their expressions;
 * - the settings: log file (shared, not owned), concurrency level and grain
 *   size, learning settings, node size, file name, attributes, and the
 *   state of the random number generator, so that both draw the same
 *   sequence until one is seeded again;
 * - the triangulation and, for a compiled domain, the junction forest
 *   itself (the same cliques, trees and numbers, with their tables and any
 *   saved table memory): the copy is compiled without triangulating or
 *   propagating again;
 * - the evidence: entered findings and values, propagated findings, the
 *   equilibrium, evidence mode and normalising constants of each tree, and
 *   simulated states. Every query gives the same numbers, bit for bit, as on
 *   the source, and so does every later propagation of the same evidence;
 * - the cases with their counts.
 * Not copied: user data (of the domain, nodes, tables, cliques, trees and
 * models, which refers to the source's objects), tables that queries
 * handed to the caller, and the test records of structure learning
 * (ov_node_get_data_independency is usage on the copy). The two domains share nothing but the log file: an
 * edit, finding or propagation on one never reaches the other, and they may
 * be used on different threads at once. usage for NULL and for a class
 * handle (ov_class_create_domain makes a domain of a class). A failure
 * (no_memory) leaves nothing behind. */
OV_API ov_domain_t ov_domain_clone(ov_domain_t domain);
/* A new node in the node's domain (or class) with the node's category, kind,
 * subtype, states (count, labels and values), label, position and
 * attributes, the same parents in the same order, a copy of its table (with
 * the new node in the node's place) and of its model. It has no name until
 * asked (ov_node_get_name then names it as any new node), no children, no
 * edge constraints, no evidence, no experience or fading table and no user
 * data. The domain is uncompiled, as by any structural edit. usage for NULL,
 * an instance node and an output clone. */
OV_API ov_node_t ov_node_clone(ov_node_t node);

/* ------------------------------------------------------------------------
 * Classes (src/oo/class_api.cpp)
 * ------------------------------------------------------------------------ */

/* A new empty class collection, owned by the caller (free with ov_cc_delete). */
OV_API ov_class_collection_t ov_new_class_collection(void);
/* A new empty class, added to the collection, which owns it. */
OV_API ov_class_t ov_cc_new_class(ov_class_collection_t collection);
/* Turns a plain domain without chain components into a class of the
 * collection; the domain is uncompiled and the collection owns it. */
OV_API ov_status_t ov_cc_add_domain(ov_class_collection_t collection, ov_domain_t domain);
/* Deletes the collection with all its classes. */
OV_API ov_status_t ov_cc_delete(ov_class_collection_t collection);
/* The classes in order of addition, NULL-terminated, owned by the collection. */
OV_API ov_class_t *ov_cc_get_members(ov_class_collection_t collection);
/* The class of that name, or NULL (with none) if there is none. */
OV_API ov_class_t ov_cc_get_class_by_name(ov_class_collection_t collection, ov_string_t name);
/* Stores the caller's pointer. */
OV_API ov_status_t ov_cc_set_user_data(ov_class_collection_t collection, void *data);
/* The caller's pointer, or NULL. */
OV_API void *ov_cc_get_user_data(ov_class_collection_t collection);
/* Deletes a class; usage while it has instances. */
OV_API ov_status_t ov_class_delete(ov_class_t cls);
/* A new domain, owned by the caller, that unfolds the class: every instance
 * is expanded recursively into nodes of the domain; a bound input gives way
 * to the node bound to it (its children take that node as parent), an
 * unbound input stays as a parentless node, and output clones are replaced
 * by the nodes they stand for. Tables, models, attributes and edge
 * constraints are copied; the new nodes have no names until asked, and
 * ov_node_get_source leads back to the class nodes. illegal_binding for a
 * binding between nodes with different states, cyclic_network for a cycle
 * through bindings. The class is left unchanged, and a failure leaves no
 * domain behind. */
OV_API ov_domain_t ov_class_create_domain(ov_class_t cls);
/* The collection of a class. */
OV_API ov_class_collection_t ov_class_get_class_collection(ov_class_t cls);
/* The name of a class; an unnamed class is named "C1", "C2", ... first. */
OV_API ov_string_t ov_class_get_name(ov_class_t cls);
/* Sets the name: twice if another class of the collection holds it,
 * invalid_name unless it has the form of a C identifier. */
OV_API ov_status_t ov_class_set_name(ov_class_t cls, ov_string_t name);
/* The input nodes, NULL-terminated, owned by the class. */
OV_API ov_node_t *ov_class_get_inputs(ov_class_t cls);
/* The output nodes, NULL-terminated, owned by the class. */
OV_API ov_node_t *ov_class_get_outputs(ov_class_t cls);
/* The instance nodes of the class, NULL-terminated, owned by the class. */
OV_API ov_node_t *ov_class_get_instances(ov_class_t cls);
/* A new instance of `cls` in `container`, with one output clone per output
 * of `cls`; cyclic_instance_hierarchy if `cls` uses `container`. */
OV_API ov_node_t ov_class_new_instance(ov_class_t container, ov_class_t cls);
/* Makes a parentless chance or decision node of a class, not an output and
 * not a clone, an input of its class. */
OV_API ov_status_t ov_node_add_to_inputs(ov_node_t node);
/* Makes a chance or decision node of a class, not an input, an output of its
 * class; every instance gets a clone of it. */
OV_API ov_status_t ov_node_add_to_outputs(ov_node_t node);
/* Takes an input out of its class's inputs; bindings stay in line. */
OV_API ov_status_t ov_node_remove_from_inputs(ov_node_t node);
/* Takes an output out of its class's outputs, deleting its clones. */
OV_API ov_status_t ov_node_remove_from_outputs(ov_node_t node);
/* The class of an instance node. */
OV_API ov_class_t ov_node_get_instance_class(ov_node_t instance);
/* The node bound to an input of the instance's class, or NULL (with none). */
OV_API ov_node_t ov_node_get_input(ov_node_t instance, ov_node_t input);
/* Binds an input of the instance's class to a node of the same category and
 * kind in the instance's own class. */
OV_API ov_status_t ov_node_set_input(ov_node_t instance, ov_node_t input, ov_node_t actual);
/* Unbinds an input of the instance's class. */
OV_API ov_status_t ov_node_unset_input(ov_node_t instance, ov_node_t input);
/* The clone that stands for an output of the instance's class. */
OV_API ov_node_t ov_node_get_output(ov_node_t instance, ov_node_t output);
/* Gives an instance another class of the collection, moving bindings and
 * clones to the inputs and outputs of the same names. */
OV_API ov_status_t ov_node_substitute_class(ov_node_t instance, ov_class_t cls);

/* ------------------------------------------------------------------------
 * NET files (src/io/net_api.cpp)
 * ------------------------------------------------------------------------ */

/* writing */
/* Writes a domain, or a class cast to ov_domain_t, as NET text to an open
 * stream and flushes it; a domain's node names are made legal first.
 * format, with nothing written, for what the NET text cannot give back: an
 * attribute key that is an item name of its block (label, position, states,
 * subtype, state_values on a node; node_size on a domain; node_size, inputs,
 * outputs and the block keywords on a class), a position or node size that
 * a 32-bit float does not hold exactly, a negative node size, NaN in a state
 * value, a number that is not finite in a written table or model
 * expression, or a negative number in a probability table over one node
 * (whose flat form takes none). An infinite state value is written as infinity, which reads
 * back as the greatest finite double, the infinite bound of an interval.
 * io on output failure. */
OV_API ov_status_t ov_domain_write_net(ov_domain_t domain, FILE *stream);
/* Writes a domain to a NET file; its file name becomes file_name. As
 * ov_domain_write_net; with format the file is not touched. */
OV_API ov_status_t ov_domain_save_as_net(ov_domain_t domain, ov_string_t file_name);
/* Writes a class to a NET file; its file name becomes file_name. */
OV_API ov_status_t ov_class_save_as_net(ov_class_t cls, ov_string_t file_name);
/* Writes every class of a non-empty collection to one NET file, each after
 * the classes it instantiates; their file names become file_name. */
OV_API ov_status_t ov_cc_save_as_net(ov_class_collection_t collection, ov_string_t file_name);

/* KB files: a domain with its triangulation, junction forest and findings,
 * as a gzip stream. With a password the file is version 10 and loads only
 * with that password (invalid_password otherwise); without one, version 9.
 * The file is written little-endian. The domain's file name becomes
 * file_name. */
OV_API ov_status_t ov_domain_save_as_kb(ov_domain_t domain, ov_string_t file_name, ov_string_t password);
/* Saves without a password in byte order 1 (big-endian) or 2 (little-endian;
 * 0 means 2); a NULL name means the domain's file name. */
OV_API ov_status_t ov_domain_save(ov_domain_t domain, ov_string_t file_name, int byte_order);
/* Loads a KB file of version 6 to 10; a compiled domain comes back compiled,
 * with its findings entered. NULL on failure: bad_file, bad_version, format,
 * compressed, invalid_password, io, no_memory. */
OV_API ov_domain_t ov_kb_load_domain(ov_string_t file_name, ov_string_t password);
/* ov_kb_load_domain without a password. */
OV_API ov_domain_t ov_load_domain(ov_string_t file_name);

/* reading: a source that cannot be read to its end (a directory, a failing
 * device or stream) fails the read with io and the message "could not read
 * input"; it is never taken for a shorter text. */
/* Reads a NET file (block or old node format) into a new domain that keeps
 * the file name; NULL on failure, with messages given to the handler. */
OV_API ov_domain_t ov_net_parse_domain(ov_string_t file_name, ov_parse_error_handler_t handler, void *data);
/* Reads NET text from an open stream, which stays the caller's. */
OV_API ov_domain_t ov_net_parse(FILE *file, ov_simple_error_handler_t handler);
/* Reads NET text from a string; locations are byte offsets. */
OV_API ov_domain_t ov_net_parse_from_string(ov_string_t text, ov_simple_error_handler_t handler);
/* Reads the classes of a NET file into a collection; the loader is asked
 * for classes that instances name; a failure removes the classes added. */
OV_API ov_status_t ov_net_parse_classes(ov_string_t file_name, ov_class_collection_t collection,
                                        ov_class_loader_t loader, ov_parse_error_handler_t handler, void *data);
/* The nodes named in a file, NULL-terminated, owned by the caller (free). */
OV_API ov_node_t *ov_domain_parse_nodes(ov_domain_t domain, ov_string_t file_name, ov_parse_error_handler_t handler,
                                        void *data);
/* The same for the nodes of a class. */
OV_API ov_node_t *ov_class_parse_nodes(ov_class_t cls, ov_string_t file_name, ov_parse_error_handler_t handler,
                                       void *data);

/* ------------------------------------------------------------------------
 * Exchange formats: BIF, XMLBIF and UAI (src/io/bif_api.cpp,
 * src/io/xmlbif_api.cpp, src/io/uai_api.cpp)
 *
 * These formats are an extension of this library beyond its own NET and KB
 * files, for networks written by other tools. They hold discrete chance nodes
 * with probability tables only: writing a domain with decision, utility,
 * instance or continuous nodes, or with a model, fails with format and the
 * file untouched; the reason goes to the domain's log. Readers give each
 * message to the handler as "FILE:LINE:COLUMN: text" ("<string>" for text
 * in memory), with the line as its location, and fail with parse (io when
 * the file cannot be read, cyclic_network for a cycle); a file's name
 * becomes the domain's file name.
 * ------------------------------------------------------------------------ */

/* BIF: state labels and rows are read by name, in any order, with the
 * "default" and "table" forms; "property KEY = VALUE;" sets the label
 * ("label") or position ("position = (x, y)") of a node, and other keys
 * become attributes of the node, or of the domain in the network block. The
 * writer writes labels that are not plain words as strings and refuses
 * states without labels or with a label twice. A table of more than 2^24
 * cells that the file is too short to list (two bytes a cell) is refused
 * with size_too_large, whatever "default" would fill. */
OV_API ov_domain_t ov_bif_parse_domain(ov_string_t file_name, ov_parse_error_handler_t handler, void *data);
OV_API ov_domain_t ov_bif_parse_from_string(ov_string_t text, ov_parse_error_handler_t handler, void *data);
OV_API ov_status_t ov_domain_save_as_bif(ov_domain_t domain, ov_string_t file_name);

/* UAI: BAYES and MARKOV network files. A MARKOV network is read as a chain
 * graph whose distribution is the normalised product of the functions: a
 * function of one variable goes into that node's table, any other becomes a
 * chain potential tying its variables by undirected links. The writer
 * writes BAYES files and refuses undirected links with format. UAI has
 * no names: variable i (from 0, in file order) becomes node "v<i>", its
 * state j the label "s<j>"; the writer writes the nodes in domain order,
 * each node's function with its parents in order and the node last. The
 * evidence call reads "K v_1 s_1 ... v_K s_K" (or the older form of one
 * sample, "1 K v_1 s_1 ...") and selects state s of the v-th node of the
 * domain for each pair, entering nothing unless the whole file reads. */
OV_API ov_domain_t ov_uai_parse_domain(ov_string_t file_name, ov_parse_error_handler_t handler, void *data);
OV_API ov_domain_t ov_uai_parse_from_string(ov_string_t text, ov_parse_error_handler_t handler, void *data);
OV_API ov_status_t ov_domain_save_as_uai(ov_domain_t domain, ov_string_t file_name);
OV_API ov_status_t ov_domain_parse_uai_evidence(ov_domain_t domain, ov_string_t file_name,
                                                ov_parse_error_handler_t handler, void *data);

/* XMLBIF 0.3, read with the expat XML parser: variables of TYPE "nature"
 * with their OUTCOMEs, DEFINITIONs with FOR, GIVEN and a TABLE listing the
 * child's state fastest, then the last GIVEN; PROPERTY "KEY = VALUE" as in
 * BIF. Only the elements of the format, each in its own parent, are read; a
 * document type declaration (and so any entity declaration) and attribute
 * values over 1024 bytes are refused with parse. */
OV_API ov_domain_t ov_xmlbif_parse_domain(ov_string_t file_name, ov_parse_error_handler_t handler, void *data);
OV_API ov_domain_t ov_xmlbif_parse_from_string(ov_string_t text, ov_parse_error_handler_t handler, void *data);
OV_API ov_status_t ov_domain_save_as_xmlbif(ov_domain_t domain, ov_string_t file_name);

/* ------------------------------------------------------------------------
 * Pictures: Graphviz DOT (src/io/dot_api.cpp)
 *
 * Also an extension of this library. The writer is a library call rather
 * than a part of the orvel command so that any application can draw the
 * domain it holds, with its current beliefs, without going through a file
 * of the network; laying the picture out is left to Graphviz, which the
 * library does not need. The DOT text is UTF-8: a byte that is not part of
 * valid UTF-8 is written as the character of its value, and control
 * characters as spaces.
 *
 * ov_dot_network: a digraph with one node per network node (ellipse for
 * chance, box for decision, diamond for utility, double octagon for
 * instance nodes), labelled with its name and, when it has one that
 * differs, its label, and an edge from each parent.
 * ov_dot_beliefs: the same, with each discrete chance node drawn as a table
 * of its states: label, a bar whose length is ov_dot_bar_length points
 * times the belief (rounded), and the belief as a percentage; nodes with
 * propagated evidence get a bold border and red bars. Needs a compiled
 * domain (not_compiled).
 * ov_dot_junction_tree: an undirected graph of the junction forest: one
 * node per clique, labelled with its members and its table size (the
 * product of the numbers of states of its discrete members), one edge per
 * separator, labelled the same way. Needs a compiled domain (not_compiled).
 *
 * Any other form is usage. The file is written whole or fails with io.
 * ------------------------------------------------------------------------ */

typedef enum OV_ENUM_BASE { ov_dot_network = 0, ov_dot_beliefs = 1, ov_dot_junction_tree = 2 } ov_dot_form_t;
enum { ov_dot_bar_length = 80 };
OV_API ov_status_t ov_domain_save_as_dot(ov_domain_t domain, ov_string_t file_name, ov_dot_form_t form);

#ifdef __cplusplus
}
#endif

#endif /* ORVEL_H */
