// Exported calls on nodes.
#include "api/boundary.h"
#include "model/domain.h"
#include "model/node.h"

using namespace orvel;

extern "C" {

ov_node_t ov_domain_new_node(ov_domain_t domain, ov_category_t category, ov_kind_t kind) {
  if (check_usage(
          domain == nullptr ||
          !(category == ov_category_chance || category == ov_category_decision || category == ov_category_utility) ||
          !(kind == ov_kind_discrete || kind == ov_kind_continuous)))
    return nullptr;
  return guarded<ov_node_t>(nullptr, [&] { return node_create(domain, category, kind, ov_subtype_label, false); });
}

ov_node_t ov_class_new_node(ov_class_t c, ov_category_t category, ov_kind_t kind) {
  return ov_domain_new_node(as_domain(c), category, kind);
}

ov_status_t ov_node_delete(ov_node_t node) {
  if (check_usage(node == nullptr || node->master != nullptr || node->chain_component != nullptr))
    return ov_error_usage;
  return guarded_status([&] { return node_delete(node); });
}

ov_node_t ov_node_get_next(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  return node->home->next_node(node);
}

ov_category_t ov_node_get_category(ov_node_t node) {
  if (check_usage(node == nullptr)) return ov_category_error;
  return node->category;
}

ov_kind_t ov_node_get_kind(ov_node_t node) {
  if (check_usage(node == nullptr)) return ov_kind_error;
  return node->kind;
}

ov_subtype_t ov_node_get_subtype(ov_node_t node) {
  if (check_usage(!is_state_node(node))) return ov_subtype_error;
  return node->subtype;
}

ov_status_t ov_node_set_subtype(ov_node_t node, ov_subtype_t subtype) {
  // A boolean node has exactly the two states "false" and "true".
  if (check_usage(!is_state_node(node) || node->master != nullptr || subtype < ov_subtype_label ||
                  subtype > ov_subtype_interval ||
                  (subtype == ov_subtype_boolean && node->subtype != subtype && node->state_count != 2)))
    return ov_error_usage;
  node_set_subtype(node, subtype);
  return ov_error_none;
}

ov_count_t ov_node_get_number_of_states(ov_node_t node) {
  if (check_usage(!is_state_node(node))) return -1;
  return node->state_count;
}

ov_node_t *ov_node_get_parents(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  return node->parents.data();
}

ov_node_t *ov_node_get_children(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  return node->children.data();
}

ov_domain_t ov_node_get_domain(ov_node_t node) {
  if (check_usage(node == nullptr || node->home->is_class())) return nullptr;
  return node->home;
}

ov_domain_t ov_node_get_home_domain(ov_node_t node) { return ov_node_get_domain(node); }

ov_class_t ov_node_get_home_class(ov_node_t node) {
  if (check_usage(node == nullptr || !node->home->is_class())) return nullptr;
  return as_class(node->home);
}

ov_junction_tree_t ov_node_get_junction_tree(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  if (refuse(compiled_state(node->home))) return nullptr;
  return node->junction_tree;
}

ov_node_t ov_node_get_master(ov_node_t node) {
  if (check_usage(node == nullptr || node->master == nullptr)) return nullptr;
  return node->master;
}

ov_node_t ov_node_get_instance(ov_node_t node) {
  if (check_usage(node == nullptr || node->instance == nullptr)) return nullptr;
  return node->instance;
}

ov_node_t *ov_node_get_source(ov_node_t node) {
  if (check_usage(node == nullptr || !node->source)) return nullptr;
  return node->source->data();
}

ov_string_t ov_node_get_name(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  return guarded<ov_string_t>(nullptr, [&] { return node_get_name(node); });
}

ov_status_t ov_node_set_name(ov_node_t node, ov_string_t name) {
  if (check_usage(node == nullptr || name == nullptr)) return ov_error_usage;
  return guarded_status([&] { return node_set_name(node, name); });
}

ov_string_t ov_node_get_label(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  return node->label.c_str();
}

ov_status_t ov_node_set_label(ov_node_t node, ov_string_t label) {
  if (check_usage(node == nullptr || label == nullptr)) return ov_error_usage;
  return guarded_status([&] {
    node->label = label;
    return ov_error_none;
  });
}

ov_status_t ov_node_set_position(ov_node_t node, int x, int y) {
  if (check_usage(node == nullptr)) return ov_error_usage;
  node->position_x = x;
  node->position_y = y;
  return ov_error_none;
}

ov_status_t ov_node_get_position(ov_node_t node, int *x, int *y) {
  if (check_usage(node == nullptr || x == nullptr || y == nullptr || x == y)) return ov_error_usage;
  *x = node->position_x;
  *y = node->position_y;
  return ov_error_none;
}

ov_status_t ov_node_set_user_data(ov_node_t node, void *data) {
  if (check_usage(node == nullptr)) return ov_error_usage;
  node->user_data = data;
  return ov_error_none;
}

void *ov_node_get_user_data(ov_node_t node) {
  if (check_usage(node == nullptr)) return nullptr;
  return node->user_data;
}

ov_string_t ov_node_get_state_label(ov_node_t node, ov_index_t state) {
  if (check_usage(!valid_state(node, state))) return nullptr;
  return state_label(node, static_cast<std::uint32_t>(state));
}

ov_status_t ov_node_set_state_label(ov_node_t node, ov_index_t state, ov_string_t label) {
  if (check_usage(!valid_state(node, state) || label == nullptr || node->master != nullptr)) return ov_error_usage;
  return guarded_status([&] { return node_set_state_label(node, static_cast<std::uint32_t>(state), label); });
}

ov_index_t ov_node_get_state_index_from_label(ov_node_t node, ov_string_t label) {
  if (check_usage(!is_state_node(node) || label == nullptr)) return -1;
  return node_state_from_label(node, label);
}

ov_double_t ov_node_get_state_value(ov_node_t node, ov_index_t state) {
  if (check_usage(!valid_value_index(node, state))) return -1.0;
  return state_value(node, static_cast<std::uint32_t>(state));
}

ov_status_t ov_node_set_state_value(ov_node_t node, ov_index_t state, ov_double_t value) {
  if (check_usage(!valid_value_index(node, state) || node->master != nullptr)) return ov_error_usage;
  return guarded_status([&] { return node_set_state_value(node, static_cast<std::uint32_t>(state), value); });
}

ov_index_t ov_node_get_state_index_from_value(ov_node_t node, ov_double_t value) {
  if (check_usage(!values_searchable(node))) return -1;
  return node_state_from_value(node, value);
}

ov_status_t ov_node_touch_table(ov_node_t node) {
  if (check_usage(node == nullptr)) return ov_error_usage;
  touch_table(node);
  return ov_error_none;
}

} // extern "C"
