// D-separation: which nodes are d-connected to a set of source nodes given
// hard and soft evidence.
//
// The query marks the nodes in two phases. The first marks every ancestor
// of a source or evidence node with 2 (they are the nodes whose colliders
// can open) and then each hard evidence node with 1. The second walks from
// the sources: a node marked 2 is passed in both directions (-1), a node
// marked 0 has no evidence below it and passes influence only downwards
// (-2), and hard evidence passes influence only between its parents.
// Information links into decision nodes carry no dependence and are not
// followed. Undirected links of chain components are passed through their
// chain potentials.
//
// The walks run over an explicit work list, so that deep networks cannot
// exhaust the call stack; the order of the visits does not change which
// nodes are reached.
#include <vector>

#include "api/error.h"
#include "model/chain_component.h"
#include "model/domain.h"
#include "model/graph.h"
#include "table/table.h"

namespace orvel {

namespace {

constexpr std::int8_t mark_unreached = 0;
constexpr std::int8_t mark_hard = 1;
constexpr std::int8_t mark_ancestor = 2;
constexpr std::int8_t mark_walked = -1;
constexpr std::int8_t mark_down = -2;

bool is_decision(const Node *node) noexcept { return node->category == ov_category_decision; }

// Zeroes every mark of the domain when the query leaves early.
class MarkReset {
public:
  explicit MarkReset(Domain *domain) noexcept : domain_(domain) {}
  MarkReset(const MarkReset &) = delete;
  MarkReset &operator=(const MarkReset &) = delete;
  ~MarkReset() {
    if (domain_ != nullptr)
      for (auto &node : domain_->nodes) node->mark = mark_unreached;
  }
  void dismiss() noexcept { domain_ = nullptr; }

private:
  Domain *domain_;
};

// Marks a node and all its ancestors with 2. A node of a chain component
// brings all its members; the parents of a decision node are not followed.
void mark_up(Node *start, std::vector<Node *> &stack) {
  auto raise = [&](Node *node) {
    if (node->mark != mark_unreached) return;
    if (node->chain_component != nullptr) {
      for (Node *member : node->chain_component->members)
        if (member->mark == mark_unreached) {
          member->mark = mark_ancestor;
          stack.push_back(member);
        }
    } else {
      node->mark = mark_ancestor;
      stack.push_back(node);
    }
  };
  raise(start);
  while (!stack.empty()) {
    Node *node = stack.back();
    stack.pop_back();
    if (!is_decision(node))
      for (Node *parent : node->parents) raise(parent);
  }
}

// The second phase: the walk in both directions from nodes marked 2 and the
// walk downwards from nodes marked 0.
class Walker {
public:
  void walk_from(Node *source) {
    walks_.push_back(source);
    while (!walks_.empty() || !downs_.empty()) {
      if (!walks_.empty()) {
        Node *node = walks_.back();
        walks_.pop_back();
        walk(node);
      } else {
        Node *node = downs_.back();
        downs_.pop_back();
        walk_down(node);
      }
    }
  }

private:
  void walk_parents(const Node *node) {
    for (Node *parent : node->parents)
      if (parent->mark == mark_ancestor) walks_.push_back(parent);
  }

  void walk(Node *node) {
    if (node->mark != mark_ancestor) return; // reached before
    node->mark = mark_walked;
    if (!is_decision(node)) walk_parents(node);
    for (Node *child : node->children) {
      if (is_decision(child)) continue;
      const std::int8_t mark = child->mark;
      if (mark == mark_unreached)
        downs_.push_back(child);
      else if (mark == mark_ancestor)
        walks_.push_back(child);
      else if (mark == mark_hard)
        walk_parents(child); // evidence on a collider connects its parents
      if (mark != mark_unreached && child->chain_component != nullptr)
        for (Node *member : child->chain_component->members)
          if (!is_decision(member) && member->mark > 0) walk_parents(member);
    }
    if (node->chain_component != nullptr)
      for (Table *potential : node->chain_component->potentials)
        if (potential->nodes.contains(node))
          for (Node *other : potential->nodes)
            if (other->mark == mark_ancestor) walks_.push_back(other);
  }

  void walk_down(Node *node) {
    if (node->mark != mark_unreached) return;
    if (node->chain_component == nullptr) {
      node->mark = mark_down;
      push_children_down(node);
      return;
    }
    for (Node *member : node->chain_component->members)
      if (member->mark == mark_unreached) member->mark = mark_down;
    for (Node *member : node->chain_component->members) push_children_down(member);
  }

  void push_children_down(const Node *node) {
    for (Node *child : node->children)
      if (!is_decision(child) && child->mark == mark_unreached) downs_.push_back(child);
  }

  std::vector<Node *> walks_, downs_;
};

bool holds_utility_node(Node *const *list) noexcept {
  for (; *list != nullptr; ++list)
    if ((*list)->category == ov_category_utility) return true;
  return false;
}

} // namespace

bool d_separation_arguments_valid(const Domain *domain, Node *const *source, Node *const *hard,
                                  Node *const *soft) noexcept {
  if (domain == nullptr || source == nullptr || hard == nullptr || soft == nullptr || source[0] == nullptr)
    return false;
  if (!node_list_is_set_of(source, domain) || !node_list_is_set_of(hard, domain) || !node_list_is_set_of(soft, domain))
    return false;
  return domain->utility_count == 0 || (!holds_utility_node(hard) && !holds_utility_node(soft));
}

Node **d_connected_nodes(Domain *domain, Node *const *source, Node *const *hard, Node *const *soft, bool connected) {
  if (!d_separation_arguments_valid(domain, source, hard, soft)) {
    set_error(ov_error_usage);
    return nullptr;
  }
  NodeList &result = domain->result_nodes;
  result.clear();
  result.reserve(domain->node_count() + 2);

  MarkReset reset(domain);
  std::vector<Node *> stack;
  for (Node *const *list : {source, hard, soft})
    for (Node *const *node = list; *node != nullptr; ++node)
      if ((*node)->mark == mark_unreached) mark_up(*node, stack);
  // Hard evidence blocks; soft evidence keeps 2: it opens a collider as its
  // ancestors do, but does not block.
  for (Node *const *node = hard; *node != nullptr; ++node) (*node)->mark = mark_hard;

  Walker walker;
  for (Node *const *node = source; *node != nullptr; ++node)
    if ((*node)->mark == mark_ancestor) walker.walk_from(*node);

  // The result in the order of the public list, newest first; the marks go
  // back to 0 on the way.
  for (std::size_t i = domain->nodes.size(); i-- > 0;) {
    Node *node = domain->nodes[i].get();
    if ((node->mark < 0) == connected) result.push_back(node);
    node->mark = mark_unreached;
  }
  reset.dismiss();
  set_error(ov_error_none);
  return result.data();
}

} // namespace orvel
