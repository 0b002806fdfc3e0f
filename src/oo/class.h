// Object-oriented networks: class collections, the interface of a class,
// instance nodes and their output clones, and input bindings.
//
// A class is a domain record whose class_info.collection is set. An instance node
// stands in a containing class for a whole other class; each output of that
// class appears in the container as an output clone, a node that shares its
// master's state description (count, subtype, labels, values) so that nodes
// of the container can have it as a parent. Input bindings name, per input of
// the instantiated class, the node of the container that feeds it.
#pragma once

#include <cstdint>
#include <vector>

#include "model/domain.h"
#include "orvel.h"

// A set of classes that may instantiate one another. It owns its classes.
struct ov_class_collection_s {
  // The classes in order of addition, followed by a null entry: data() is
  // the array the interface hands out.
  std::vector<ov_class_t> members{nullptr};
  void *user_data = nullptr;

  ov_class_collection_s() = default;
  ov_class_collection_s(const ov_class_collection_s &) = delete;
  ov_class_collection_s &operator=(const ov_class_collection_s &) = delete;
  // Deletes the remaining classes, each one only once nothing instantiates it.
  ~ov_class_collection_s();

  std::uint32_t count() const noexcept { return static_cast<std::uint32_t>(members.size() - 1); }
  orvel::Domain *member(std::uint32_t i) const noexcept { return orvel::as_domain(members[i]); }
};

namespace orvel {

// The domain record of a class handle, or null unless it is one.
inline Domain *class_of(ov_class_t cls) noexcept {
  Domain *domain = as_domain(cls);
  return domain != nullptr && domain->is_class() ? domain : nullptr;
}

// ---------------------------------------------------------------- collections

// A new empty class added to the collection.
Domain *cc_new_class(ClassCollection *collection);
// Turns a plain domain into a class of the collection: uncompiles it first.
// The caller has checked that it is no class yet and has no chain components.
ov_status_t cc_add_domain(ClassCollection *collection, Domain *domain);
// The class with that name, or null (no error is recorded).
Domain *cc_find_class(const ClassCollection *collection, const char *name) noexcept;
// Deletes a class that has no instances: takes it out of its collection,
// takes its own instance nodes off the instance lists of their classes, and
// frees the record with everything it owns.
void class_delete(Domain *cls) noexcept;

// ---------------------------------------------------------------- names

// Names a class: twice if another class of the collection holds the name,
// invalid_name unless it has the form of an identifier.
ov_status_t class_set_name(Domain *cls, const char *name);
// The class's name, generating "C1", "C2", ... for an unnamed class; null on
// failure.
const char *class_get_name(Domain *cls);

// ---------------------------------------------------------------- instances

// Whether an instance of `cls` inside `container` would close a cycle of the
// instance hierarchy; true for cls == container. Uses and clears class_info.mark
// on the members of the collection.
bool instance_would_cycle(Domain *container, Domain *cls) noexcept;
// A new instance node of `cls` in `container`, with one output clone per
// output of `cls`; null on failure with the container as it was.
Node *class_new_instance(Domain *container, Domain *cls);
// Replaces the class of an instance node by another class of the same
// collection, moving bindings and clones to the inputs and outputs of the
// same names. Nothing changes unless every check passes.
ov_status_t node_substitute_class(Node *instance, Domain *cls);

// ---------------------------------------------------------------- interface

// Whether a node can become an input (chance or decision node of a class,
// not an output, no master, no parents) or an output (chance or decision
// node of a class, not an input).
bool can_be_input(const Node *node) noexcept;
bool can_be_output(const Node *node) noexcept;
// Appends a node to its class's inputs; success at once if it is one.
ov_status_t node_add_to_inputs(Node *node);
// Appends a node to its class's outputs and gives every instance of the
// class a clone of it; on failure the node is no output afterwards.
ov_status_t node_add_to_outputs(Node *node);
// Takes an input out of its class's inputs; the bindings of every instance
// move down so that they stay in line with the remaining inputs.
ov_status_t node_remove_from_inputs(Node *node) noexcept;
// Takes an output out of its class's outputs and deletes its clone in every
// instance.
ov_status_t node_remove_from_outputs(Node *node);

// ---------------------------------------------------------------- unfolding

// A new plain domain with one node for each node of each instance at every
// depth; bound inputs give way to the nodes bound to them, output clones to
// the nodes they stand for. Each node's source lists the instance nodes
// passed on the way down and then the class node. The class is left as it
// was; on failure nothing is left behind and null is returned.
Domain *class_create_domain(Domain *cls);

// ---------------------------------------------------------------- bindings

// The position of `input` among the inputs of the instance's class, or -1.
std::int64_t input_position(const Node *instance, const Node *input) noexcept;
// The position of `output` among the outputs of the instance's class, or -1.
std::int64_t output_position(const Node *instance, const Node *output) noexcept;
// The actual node bound to an input of an instance (by position), or null.
Node *instance_input(const Node *instance, std::uint32_t position) noexcept;
// Binds an input of an instance (by position) to a node of the container;
// the binding array grows to the number of inputs on first need.
void instance_bind_input(Node *instance, std::uint32_t position, Node *actual);
// Clears the binding of an input of an instance (by position), if it has
// one.
void instance_unbind_input(Node *instance, std::uint32_t position) noexcept;

} // namespace orvel
