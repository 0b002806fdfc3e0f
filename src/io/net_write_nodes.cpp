// Node and instance blocks of NET output.
#include "io/net_write_pieces.h"

#include <cstdint>

#include "expr/expression.h"
#include "model/domain.h"
#include "model/node.h"
#include "oo/class.h"

namespace orvel::writer {

namespace {

// The label and position items shared by nodes and instances.
ov_status_t write_label_and_position(Writer &w, const Node *node) {
  if (!node->label.empty()) {
    w.print("%slabel = ", w.inner);
    w.quoted(node->label.c_str());
    w.put(";\n");
  }
  if (node->position_x != 0 || node->position_y != 0)
    w.print("%sposition = (%ld %ld);\n", w.inner, static_cast<long>(node->position_x),
            static_cast<long>(node->position_y));
  return w.status();
}

} // namespace

ov_status_t write_node(Writer &w, Node *node) {
  const char *name = name_of(node);
  if (name == nullptr) return ov_error_code();
  const char *keyword;
  switch (node->category) {
  case ov_category_decision: keyword = "decision"; break;
  case ov_category_utility: keyword = "utility"; break;
  default: keyword = "node"; break;
  }
  w.print("\n%s%s%s %s\n%s{\n", w.outer, node->kind == ov_kind_continuous ? "continuous " : "", keyword, name, w.outer);
  OV_WRITE_CHECK(w, write_label_and_position(w, node));
  if (node->has_states()) {
    w.print("%sstates = (", w.inner);
    for (std::uint32_t s = 0; s < node->state_count; ++s) {
      if (s > 0) w.put(" ");
      w.quoted(state_label(node, s));
    }
    w.put(");\n");
    const char *subtype = nullptr;
    switch (node->subtype) {
    case ov_subtype_label: subtype = node->model ? "label" : nullptr; break;
    case ov_subtype_boolean: subtype = "boolean"; break;
    case ov_subtype_number: subtype = "number"; break;
    case ov_subtype_interval: subtype = "interval"; break;
    default: return fail(ov_error_error);
    }
    if (subtype != nullptr) w.print("%ssubtype = %s;\n", w.inner, subtype);
    bool numeric = node->subtype == ov_subtype_number || node->subtype == ov_subtype_interval;
    if (numeric && node->state_values) {
      std::uint32_t count = node->state_count + (node->subtype == ov_subtype_interval ? 1 : 0);
      w.print("%sstate_values = (", w.inner);
      for (std::uint32_t i = 0; i < count && i < node->state_values->size(); ++i) {
        char text[64];
        format_value(text, sizeof text, (*node->state_values)[i]);
        if (i > 0) w.put(" ");
        w.put(text);
      }
      w.put(");\n");
    }
  }
  OV_WRITE_CHECK(w, write_attributes(w, node->attributes, w.inner));
  w.print("%s}\n", w.outer);
  return w.status();
}

namespace {

// Whether an output clone must be named in its instance's bindings: it has
// a name, or children, or feeds an input of some instance.
bool clone_is_used(const Domain *domain, const Node *clone) {
  if (clone->name || clone->children.size() > 0) return true;
  for (const auto &other : domain->nodes) {
    if (other->category != ov_category_instance) continue;
    for (const Node *actual : other->input_bindings)
      if (actual == clone) return true;
  }
  return false;
}

} // namespace

ov_status_t write_instance(Writer &w, Node *instance) {
  const char *name = name_of(instance);
  if (name == nullptr) return ov_error_code();
  Domain *cls = instance->instance_class;
  const char *class_name = class_get_name(cls);
  if (class_name == nullptr) return ov_error_code();
  w.print("\n%sinstance %s : %s (", w.outer, name, class_name);
  bool first = true;
  for (std::uint32_t i = 0; i < cls->class_info.inputs.size(); ++i) {
    Node *actual = instance_input(instance, i);
    if (actual == nullptr) continue;
    const char *formal_name = name_of(cls->class_info.inputs[i]);
    if (formal_name == nullptr) return ov_error_code();
    const char *actual_name = name_of(actual);
    if (actual_name == nullptr) return ov_error_code();
    w.print("%s%s = %s", first ? "" : ", ", formal_name, actual_name);
    first = false;
  }
  first = true;
  for (std::uint32_t i = 0; i < cls->class_info.outputs.size() && i < instance->output_clones.size(); ++i) {
    Node *clone = instance->output_clones[i];
    if (!clone_is_used(w.domain, clone)) continue;
    const char *clone_name = name_of(clone);
    if (clone_name == nullptr) return ov_error_code();
    const char *output_name = name_of(cls->class_info.outputs[i]);
    if (output_name == nullptr) return ov_error_code();
    w.print("%s%s = %s", first ? "; " : ", ", clone_name, output_name);
    first = false;
  }
  w.print(")\n%s{\n", w.outer);
  OV_WRITE_CHECK(w, write_label_and_position(w, instance));
  OV_WRITE_CHECK(w, write_attributes(w, instance->attributes, w.inner));
  w.print("%s}\n", w.outer);
  return w.status();
}

} // namespace orvel::writer
