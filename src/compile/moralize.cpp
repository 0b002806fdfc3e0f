// Elimination levels, the moral graph and the necessary fill-ins.
#include <algorithm>

#include "api/error.h"
#include "compile/compile.h"
#include "model/chain_component.h"
#include "table/table.h"

namespace orvel {

namespace {

constexpr std::uint32_t level_busy = 0xFFFFFFFFu; // on the path of the walk

// The members of a node's chain component, or the node alone.
std::vector<Node *> component_of(Node *node) {
  if (node->chain_component == nullptr) return {node};
  return std::vector<Node *>(node->chain_component->members.begin(), node->chain_component->members.end());
}

// One node (with its chain component) on the path of the walk.
struct LevelFrame {
  std::vector<Node *> members;
  std::size_t member = 0; // member whose children are being walked
  std::size_t child = 0;  // next child of that member
  std::uint32_t level;    // least level of the children seen so far
};

// Depth first over children, iteratively so that long chains cannot exhaust
// the stack. A node's level becomes the least level of its children (2D + 2
// without any), less 2 for a decision; meeting a node on the path is a cycle.
ov_status_t visit_levels(Node *start, std::uint32_t top) {
  if (start->level == level_busy) return fail(ov_error_cyclic_network);
  if (start->level != 0) return ov_error_none;
  if (start->category == ov_category_utility) {
    start->level = top;
    return ov_error_none;
  }
  std::vector<LevelFrame> path;
  auto enter = [&](Node *node) {
    LevelFrame frame{component_of(node), 0, 0, top};
    for (Node *member : frame.members) member->level = level_busy;
    path.push_back(std::move(frame));
  };
  enter(start);
  while (!path.empty()) {
    LevelFrame &frame = path.back();
    if (frame.member < frame.members.size()) {
      Node *member = frame.members[frame.member];
      if (frame.child == member->children.size()) {
        ++frame.member;
        frame.child = 0;
        continue;
      }
      Node *child = member->children[static_cast<std::uint32_t>(frame.child++)];
      if (child->level == level_busy) return fail(ov_error_cyclic_network);
      if (child->level == 0 && child->category == ov_category_utility) child->level = top;
      if (child->level != 0) {
        frame.level = std::min(frame.level, child->level);
        continue;
      }
      enter(child);
      continue;
    }
    std::uint32_t level = frame.level;
    if (frame.members.front()->category == ov_category_decision) level -= 2;
    for (Node *member : frame.members) member->level = level;
    path.pop_back();
    if (!path.empty()) path.back().level = std::min(path.back().level, level);
  }
  return ov_error_none;
}

// Clears the marks of a set of nodes when it goes out of scope, also when
// an allocation fails on the way.
struct MarkClearer {
  std::vector<Node *> &nodes;
  ~MarkClearer() {
    for (Node *node : nodes) node->mark = 0;
  }
};

} // namespace

ov_status_t assign_levels(Domain *domain) {
  const std::uint32_t decisions = domain->decision_count;
  const std::uint32_t top = 2 * decisions + 2;
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it)
    if (visit_levels(it->get(), top) != ov_error_none) return ov_error_code();

  if (decisions > 0 && !domain->limited_memory) {
    for (auto &node : domain->nodes)
      if (node->category == ov_category_chance) node->level = 2 * decisions + 1;
    // The nodes observed before a decision go just below it.
    for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
      Node *decision = it->get();
      if (decision->category != ov_category_decision) continue;
      for (Node *parent : decision->parents)
        if (parent->level >= decision->level) parent->level = decision->level - 1;
    }
  } else {
    for (auto &node : domain->nodes) {
      if (node->category == ov_category_utility)
        node->level = 3;
      else
        node->level = node->is_discrete() ? 1 : 2;
    }
  }
  // The decisions must lie on one directed path: then the first one has
  // level 2.
  if (decisions > 1 && !domain->limited_memory) {
    bool found = std::any_of(domain->nodes.begin(), domain->nodes.end(),
                             [](const std::unique_ptr<Node> &node) { return node->level == 2; });
    if (!found) return fail(ov_error_decision_order);
  }
  return set_error(ov_error_none);
}

namespace {

// Builds the moral neighbours of one chance or decision node.
ov_status_t moral_neighbours(Domain *domain, Node *v, std::vector<Node *> &list) {
  list.clear();
  list.push_back(v);
  MarkClearer clearer{list};
  v->mark = 1;
  auto add = [&](Node *node) {
    if (node->mark != 0) return false;
    node->mark = 1;
    list.push_back(node);
    return true;
  };
  // Information links into a decision are not moral links, unless the
  // decision remembers only its parents: its policy is then a table over
  // its family like a chance node's.
  const bool family = v->category == ov_category_chance || domain->limited_memory;
  if (family)
    for (Node *parent : v->parents) add(parent);
  for (Node *child : v->children)
    if (child->category == ov_category_chance || (domain->limited_memory && in_moral_graph(child))) add(child);
  if (ChainComponent *component = v->chain_component) {
    for (Table *potential : component->potentials) {
      if (!potential->nodes.contains(v)) continue;
      for (Node *node : potential->nodes)
        if (node->chain_component == component) add(node);
    }
  }
  for (Node *child : v->children) {
    if (child->category == ov_category_decision && !domain->limited_memory) continue;
    for (Node *member : component_of(child)) {
      for (Node *q : member->parents) {
        if (!add(q)) continue;
        if (v->number < q->number && log_node_pair(domain, "    Marrying %s and %s\n", v, q) != ov_error_none)
          return ov_error_code();
      }
    }
  }
  v->neighbours.assign(list.begin() + 1, list.end());
  return ov_error_none;
}

} // namespace

ov_status_t moralize(Domain *domain) {
  if (assign_levels(domain) != ov_error_none) {
    ov_status_t code = ov_error_code();
    log_printf(domain, "\n\nCycle (or invalid decision order) detected in network.  Compilation aborted.\n");
    return fail(static_cast<ov_error_t>(code));
  }
  if (log_printf(domain, "\n\nMoral links:\n\n") != ov_error_none) return ov_error_io;
  if (domain->chance_count + domain->decision_count > 0) {
    std::vector<Node *> scratch;
    scratch.reserve(domain->chance_count + domain->decision_count + 1);
    for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
      Node *v = it->get();
      if (!in_moral_graph(v)) continue;
      if (moral_neighbours(domain, v, scratch) != ov_error_none) return ov_error_code();
    }
  }
  return add_necessary_fill_ins(domain);
}

namespace {

// For each connected component of the nodes above level k, links its
// boundary (the nodes at or below k next to it) into a complete graph.
ov_status_t complete_level_boundaries(Domain *domain, std::uint32_t k) {
  std::vector<Node *> visited, stack, boundary;
  MarkClearer clear_visited{visited};
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
    Node *start = it->get();
    if (start->mark != 0 || !in_moral_graph(start) || start->level <= k) continue;
    boundary.clear();
    start->mark = 1;
    visited.push_back(start);
    stack.push_back(start);
    while (!stack.empty()) {
      Node *node = stack.back();
      stack.pop_back();
      for (Node *neighbour : node->neighbours) {
        if (neighbour->mark != 0) continue;
        visited.push_back(neighbour);
        if (neighbour->level > k) {
          neighbour->mark = 1;
          stack.push_back(neighbour);
        } else {
          neighbour->mark = -1;
          boundary.push_back(neighbour);
        }
      }
    }
    // The boundary in node list order, free for the next component.
    std::sort(boundary.begin(), boundary.end(), [](const Node *a, const Node *b) { return a->number > b->number; });
    for (Node *node : boundary) node->mark = 0;
    for (Node *a : boundary) {
      std::vector<Node *> additions;
      for (Node *b : boundary) {
        if (b == a || std::find(a->neighbours.begin(), a->neighbours.end(), b) != a->neighbours.end()) continue;
        additions.push_back(b);
        if (a->number < b->number &&
            log_node_pair(domain, "    Creating necessary fill-in between %s and %s\n", a, b) != ov_error_none)
          return ov_error_code();
      }
      a->neighbours.insert(a->neighbours.end(), additions.begin(), additions.end());
    }
  }
  return ov_error_none;
}

} // namespace

ov_status_t add_necessary_fill_ins(Domain *domain) {
  std::uint32_t bound;
  if (domain->discrete_count > 0 && domain->continuous_count > 0) {
    bound = 2;
  } else {
    bound = domain->limited_memory ? 1 : 2 * domain->decision_count + 1;
    if (bound < 2) return set_error(ov_error_none);
  }
  if (log_printf(domain, "\n\nNecessary fill-ins:\n\n") != ov_error_none) return ov_error_io;
  for (std::uint32_t k = 1; k < bound; ++k)
    if (complete_level_boundaries(domain, k) != ov_error_none) return ov_error_code();
  return set_error(ov_error_none);
}

} // namespace orvel
