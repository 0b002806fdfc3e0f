// Instance nodes, output clones, the interface of a class and input bindings.
#include <cstring>
#include <vector>

#include "api/error.h"
#include "model/domain.h"
#include "model/graph.h"
#include "model/node.h"
#include "oo/class.h"

namespace orvel {

// ---------------------------------------------------------------- cycle test

namespace {

// Marks `cls` and, through their instance nodes, every class that uses it.
void mark_users(Domain *cls) noexcept {
  if (cls->class_info.mark != 0) return;
  cls->class_info.mark = 1;
  for (Node *instance : cls->class_info.instances) mark_users(instance->home);
}

void clear_class_marks(const ClassCollection *collection) noexcept {
  for (std::uint32_t i = 0; i < collection->count(); ++i) collection->member(i)->class_info.mark = 0;
}

} // namespace

bool instance_would_cycle(Domain *container, Domain *cls) noexcept {
  const ClassCollection *collection = container->class_info.collection;
  clear_class_marks(collection);
  mark_users(container);
  bool cycle = cls->class_info.mark != 0;
  clear_class_marks(collection);
  return cycle;
}

// ---------------------------------------------------------------- clones

namespace {

// Makes the clone's state description the master's: the arrays are shared.
void copy_state_description(Node *clone, const Node *master) noexcept {
  if (!master->is_discrete()) return;
  clone->state_count = master->state_count;
  clone->subtype = master->subtype;
  clone->state_labels = master->state_labels;
  clone->state_values = master->state_values;
}

// A new clone of `output` in the instance's home, not yet on the instance's
// clone list; null on failure.
Node *make_clone(Node *instance, Node *output) {
  Node *clone = node_create(instance->home, output->category, output->kind, ov_subtype_label, true);
  if (clone == nullptr) return nullptr;
  clone->master = output;
  clone->instance = instance;
  copy_state_description(clone, output);
  return clone;
}

// Appends a clone of `output` to the instance's clones; null on failure with
// the instance as it was.
Node *add_output_clone(Node *instance, Node *output) {
  instance->output_clones.reserve_one();
  Node *clone = make_clone(instance, output);
  if (clone != nullptr) instance->output_clones.push_back(clone);
  return clone;
}

// Deletes a node made during an operation that fails, keeping the code of
// the failure.
void undo_node(Node *node) noexcept {
  ov_status_t code = ov_error_code();
  try {
    node_delete(node);
  } catch (...) {
    // Deleting a fresh node with no neighbours allocates nothing.
  }
  set_error(static_cast<unsigned>(code));
}

} // namespace

Node *class_new_instance(Domain *container, Domain *cls) {
  if (instance_would_cycle(container, cls)) {
    set_error(ov_error_cyclic_instance_hierarchy);
    return nullptr;
  }
  cls->class_info.instances.reserve_one();
  Node *instance = node_create(container, ov_category_instance, ov_kind_discrete, ov_subtype_label, false);
  if (instance == nullptr) return nullptr;
  instance->instance_class = cls;
  cls->class_info.instances.push_back(instance);
  try {
    instance->output_clones.reserve(cls->class_info.outputs.size());
    for (Node *output : cls->class_info.outputs)
      if (add_output_clone(instance, output) == nullptr) {
        undo_node(instance);
        return nullptr;
      }
  } catch (...) {
    undo_node(instance);
    throw;
  }
  set_error(ov_error_none);
  return instance;
}

// ---------------------------------------------------------------- interface

bool can_be_input(const Node *node) noexcept {
  const Domain *cls = node->home;
  return cls->is_class() && (node->category == ov_category_chance || node->category == ov_category_decision) &&
         !cls->class_info.outputs.contains(node) && node->master == nullptr && node->parents.empty();
}

bool can_be_output(const Node *node) noexcept {
  const Domain *cls = node->home;
  return cls->is_class() && (node->category == ov_category_chance || node->category == ov_category_decision) &&
         !cls->class_info.inputs.contains(node);
}

ov_status_t node_add_to_inputs(Node *node) {
  NodeList &inputs = node->home->class_info.inputs;
  if (!inputs.contains(node)) inputs.push_back(node);
  return set_error(ov_error_none);
}

ov_status_t node_add_to_outputs(Node *node) {
  Domain *cls = node->home;
  if (cls->class_info.outputs.contains(node)) return set_error(ov_error_none);
  cls->class_info.outputs.push_back(node);
  try {
    for (Node *instance : cls->class_info.instances)
      if (add_output_clone(instance, node) == nullptr) {
        ov_status_t code = ov_error_code();
        node_remove_from_outputs(node);
        return fail(static_cast<ov_error_t>(code));
      }
  } catch (...) {
    node_remove_from_outputs(node);
    throw;
  }
  return set_error(ov_error_none);
}

ov_status_t node_remove_from_inputs(Node *node) noexcept {
  Domain *cls = node->home;
  std::int64_t found = cls->class_info.inputs.index_of(node);
  if (found < 0) return fail(ov_error_usage);
  auto p = static_cast<std::size_t>(found);
  cls->class_info.inputs.erase_at(static_cast<std::uint32_t>(p));
  // The bindings behind p move down one place; the array keeps its length.
  for (Node *instance : cls->class_info.instances) {
    std::vector<Node *> &bindings = instance->input_bindings;
    if (bindings.size() <= p) continue;
    for (std::size_t i = p; i + 1 < bindings.size(); ++i) bindings[i] = bindings[i + 1];
    bindings.back() = nullptr;
  }
  return set_error(ov_error_none);
}

ov_status_t node_remove_from_outputs(Node *node) {
  Domain *cls = node->home;
  std::int64_t found = cls->class_info.outputs.index_of(node);
  if (found < 0) return fail(ov_error_usage);
  auto p = static_cast<std::uint32_t>(found);
  cls->class_info.outputs.erase_at(p);
  // Deleting a clone takes it off its instance's clone list; an instance
  // that never got one (a failed addition) has fewer clones.
  for (Node *instance : cls->class_info.instances)
    if (p < instance->output_clones.size()) node_delete(instance->output_clones[p]);
  return set_error(ov_error_none);
}

// ---------------------------------------------------------------- bindings

std::int64_t input_position(const Node *instance, const Node *input) noexcept {
  return instance->instance_class->class_info.inputs.index_of(input);
}

std::int64_t output_position(const Node *instance, const Node *output) noexcept {
  return instance->instance_class->class_info.outputs.index_of(output);
}

Node *instance_input(const Node *instance, std::uint32_t position) noexcept {
  return position < instance->input_bindings.size() ? instance->input_bindings[position] : nullptr;
}

void instance_bind_input(Node *instance, std::uint32_t position, Node *actual) {
  std::vector<Node *> &bindings = instance->input_bindings;
  if (bindings.size() <= position) bindings.resize(instance->instance_class->class_info.inputs.size(), nullptr);
  bindings[position] = actual;
}

void instance_unbind_input(Node *instance, std::uint32_t position) noexcept {
  if (position < instance->input_bindings.size()) instance->input_bindings[position] = nullptr;
}

// ---------------------------------------------------------------- substitution

namespace {

// The node of a list with the given name, or null; unnamed nodes match
// nothing.
Node *find_by_name(const NodeList &list, const std::optional<std::string> &name) noexcept {
  if (!name) return nullptr;
  for (Node *node : list)
    if (node->name && std::strcmp(node->name->c_str(), name->c_str()) == 0) return node;
  return nullptr;
}

} // namespace

ov_status_t node_substitute_class(Node *instance, Domain *cls) {
  Domain *old_class = instance->instance_class;
  if (cls == old_class) return set_error(ov_error_none);
  if (instance_would_cycle(instance->home, cls)) return fail(ov_error_cyclic_instance_hierarchy);
  cls->class_info.instances.reserve_one();

  // Bindings: each old input must reappear by name, with its category and
  // kind, and its binding moves to the new position.
  const NodeList &old_inputs = old_class->class_info.inputs;
  const NodeList &new_inputs = cls->class_info.inputs;
  const bool rebind = !old_inputs.empty();
  std::vector<Node *> bindings;
  if (rebind) {
    bindings.assign(new_inputs.size(), nullptr);
    for (std::uint32_t i = 0; i < old_inputs.size(); ++i) {
      Node *old_input = old_inputs[i];
      Node *match = find_by_name(new_inputs, old_input->name);
      if (match == nullptr || match->category != old_input->category || match->kind != old_input->kind)
        return fail(ov_error_usage);
      bindings[static_cast<std::uint32_t>(new_inputs.index_of(match))] = instance_input(instance, i);
    }
  }

  // Clones: each old output must reappear by name as a compatible node, and
  // its clone moves to the new position.
  const NodeList &old_outputs = old_class->class_info.outputs;
  const NodeList &new_outputs = cls->class_info.outputs;
  std::vector<Node *> clones(new_outputs.size(), nullptr);
  std::vector<Node *> masters(new_outputs.size(), nullptr);
  for (std::uint32_t i = 0; i < old_outputs.size(); ++i) {
    Node *old_output = old_outputs[i];
    Node *match = find_by_name(new_outputs, old_output->name);
    if (match == nullptr || !interchangeable(old_output, match)) return fail(ov_error_usage);
    auto at = static_cast<std::uint32_t>(new_outputs.index_of(match));
    clones[at] = instance->output_clones[i];
    masters[at] = match;
  }

  // New outputs get new clones; a failure deletes those made so far.
  std::vector<Node *> made;
  NodeList clone_list;
  try {
    made.reserve(new_outputs.size());
    clone_list.reserve(new_outputs.size());
    for (std::uint32_t i = 0; i < new_outputs.size(); ++i) {
      if (clones[i] != nullptr) continue;
      Node *clone = make_clone(instance, new_outputs[i]);
      if (clone == nullptr) {
        for (Node *node : made) undo_node(node);
        return ov_error_code();
      }
      made.push_back(clone);
      clones[i] = clone;
    }
  } catch (...) {
    for (Node *node : made) undo_node(node);
    throw;
  }

  // Every check has passed: commit.
  for (std::uint32_t i = 0; i < new_outputs.size(); ++i) {
    clone_list.push_back(clones[i]);
    if (masters[i] == nullptr) continue;
    clones[i]->master = masters[i];
    copy_state_description(clones[i], masters[i]);
    refresh_clones(clones[i]);
  }
  old_class->class_info.instances.remove(instance);
  cls->class_info.instances.push_back(instance);
  if (rebind)
    instance->input_bindings.swap(bindings);
  else
    instance->input_bindings.clear();
  instance->output_clones = std::move(clone_list);
  instance->instance_class = cls;
  return set_error(ov_error_none);
}

} // namespace orvel
