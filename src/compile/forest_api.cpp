// Exported calls that walk the junction forest.
#include "api/boundary.h"
#include "compile/compiled_forest.h"
#include "compile/forest.h"
#include "table/table.h"

using namespace orvel;

extern "C" {

ov_junction_tree_t ov_domain_get_first_junction_tree(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return nullptr;
  if (refuse(compiled_state(domain))) return nullptr;
  return domain_first_junction_tree(domain);
}

ov_junction_tree_t ov_jt_get_next(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return nullptr;
  return jt_next(tree);
}

ov_clique_t ov_jt_get_root(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return nullptr;
  return tree->root;
}

ov_clique_t *ov_jt_get_cliques(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return nullptr;
  return guarded<ov_clique_t *>(nullptr, [&] { return jt_clique_array(tree); });
}

ov_status_t ov_jt_set_user_data(ov_junction_tree_t tree, void *data) {
  if (check_usage(tree == nullptr)) return ov_error_usage;
  tree->user_data = data;
  return ov_error_none;
}

void *ov_jt_get_user_data(ov_junction_tree_t tree) {
  if (check_usage(tree == nullptr)) return nullptr;
  return tree->user_data;
}

ov_clique_t ov_domain_get_first_clique(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return nullptr;
  return domain_first_clique(domain);
}

ov_clique_t ov_clique_get_next(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return nullptr;
  return clique_next(clique);
}

ov_junction_tree_t ov_clique_get_junction_tree(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return nullptr;
  return clique->junction_tree;
}

ov_node_t *ov_clique_get_members(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return nullptr;
  return clique->table->nodes.data();
}

ov_count_t ov_clique_get_number_of_members(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return -1;
  return clique->table->nodes.size();
}

ov_clique_t *ov_clique_get_neighbors(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return nullptr;
  return guarded<ov_clique_t *>(nullptr, [&] { return clique_neighbour_array(clique); });
}

ov_count_t ov_clique_get_number_of_neighbors(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return -1;
  return static_cast<ov_count_t>(clique->links.size());
}

ov_table_t ov_clique_get_probability_table(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return nullptr;
  return clique->table;
}

ov_table_t ov_clique_get_utility_table(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return nullptr;
  return clique->utility_table;
}

ov_status_t ov_clique_set_user_data(ov_clique_t clique, void *data) {
  if (check_usage(clique == nullptr)) return ov_error_usage;
  clique->user_data = data;
  return ov_error_none;
}

void *ov_clique_get_user_data(ov_clique_t clique) {
  if (check_usage(clique == nullptr)) return nullptr;
  return clique->user_data;
}

ov_count_t ov_domain_get_number_of_cliques(ov_domain_t domain) {
  if (check_usage(domain == nullptr)) return -1;
  return domain->forest->clique_count;
}

ov_count_t ov_domain_get_jt_cost(ov_domain_t domain) {
  if (check_usage(domain == nullptr || domain->forest->cliques.empty())) return -1;
  return jt_cost(domain);
}

} // extern "C"
