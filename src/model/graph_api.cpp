// Exported calls of graph editing and the d-separation queries.
#include "api/boundary.h"
#include "model/domain.h"
#include "model/graph.h"

using namespace orvel;

extern "C" {

ov_status_t ov_node_add_parent(ov_node_t child, ov_node_t parent) {
  if (check_usage(!parent_link_allowed(child, parent))) return ov_error_usage;
  return guarded_status([&] { return add_parent(child, parent); });
}

ov_status_t ov_node_remove_parent(ov_node_t node, ov_node_t parent) {
  if (check_usage(node == nullptr || !node->parents.contains(parent))) return ov_error_usage;
  return guarded_status([&] { return remove_parent(node, parent); });
}

ov_status_t ov_node_switch_parent(ov_node_t node, ov_node_t old_parent, ov_node_t new_parent) {
  if (check_usage(!switch_allowed(node, old_parent, new_parent))) return ov_error_usage;
  return guarded_status([&] { return switch_parent(node, old_parent, new_parent); });
}

ov_status_t ov_node_reverse_edge(ov_node_t node1, ov_node_t node2) {
  if (check_usage(!reversal_allowed(node1, node2))) return ov_error_usage;
  return guarded_status([&] { return reverse_edge(node1, node2); });
}

ov_status_t ov_node_set_number_of_states(ov_node_t node, ov_count_t count) {
  if (check_usage(count < 0 || !states_settable(node, static_cast<std::uint64_t>(count)))) return ov_error_usage;
  return guarded_status([&] { return set_number_of_states(node, static_cast<std::uint32_t>(count)); });
}

ov_edge_constraint_t ov_node_get_edge_constraint(ov_node_t node1, ov_node_t node2) {
  if (check_usage(!constraint_pair_valid(node1, node2))) return ov_constraint_error;
  return static_cast<ov_edge_constraint_t>(get_edge_constraint(node1, node2));
}

ov_status_t ov_node_set_edge_constraint(ov_node_t node1, ov_node_t node2, ov_edge_constraint_t constraint) {
  if (check_usage(!constraint_pair_valid(node1, node2) || constraint < ov_constraint_none ||
                  constraint > ov_constraint_backward_edge_forbidden))
    return ov_error_usage;
  return guarded_status([&] { return set_edge_constraint(node1, node2, constraint); });
}

ov_node_t *ov_domain_get_d_connected_nodes(ov_domain_t domain, ov_node_t *source, ov_node_t *hard_evidence,
                                           ov_node_t *soft_evidence) {
  if (check_usage(!d_separation_arguments_valid(domain, source, hard_evidence, soft_evidence))) return nullptr;
  return guarded<ov_node_t *>(nullptr,
                              [&] { return d_connected_nodes(domain, source, hard_evidence, soft_evidence, true); });
}

ov_node_t *ov_domain_get_d_separated_nodes(ov_domain_t domain, ov_node_t *source, ov_node_t *hard_evidence,
                                           ov_node_t *soft_evidence) {
  if (check_usage(!d_separation_arguments_valid(domain, source, hard_evidence, soft_evidence))) return nullptr;
  return guarded<ov_node_t *>(nullptr,
                              [&] { return d_connected_nodes(domain, source, hard_evidence, soft_evidence, false); });
}

} // extern "C"
