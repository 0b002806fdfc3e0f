// The junction forest: cliques from the elimination order, their order with
// the running intersection property, trees and separators, and the homes of
// potentials, marginals and findings.
#include "compile/forest.h"

#include <algorithm>

#include "api/error.h"
#include "compile/compile.h"
#include "compile/compiled_forest.h"
#include "compile/triangulate.h"
#include "model/chain_component.h"
#include "table/plan.h"
#include "table/table.h"

namespace orvel {

namespace {

bool domain_has_utilities(const Domain *domain) noexcept { return domain->decision_count + domain->utility_count > 0; }

const NodeList &members_of(const Clique *clique) noexcept { return clique->table->nodes; }

bool holds_all(const Clique *clique, Node *const *nodes, std::size_t count) noexcept {
  const NodeList &members = members_of(clique);
  for (std::size_t i = 0; i < count; ++i)
    if (!members.contains(nodes[i])) return false;
  return true;
}

const char *clique_name(Domain *domain, const Clique *clique) { return format_count(domain, clique->number); }

// Logs a node's name in a line; the name is generated if the node has none.
ov_status_t logged_name(Node *node, const char *&name) {
  name = node_get_name(node);
  return name == nullptr ? ov_error_code() : ov_error_none;
}

// The names of nodes joined by ", ".
ov_status_t joined_names(const NodeList &nodes, std::string &text) {
  text.clear();
  for (Node *node : nodes) {
    const char *name;
    if (logged_name(node, name) != ov_error_none) return ov_error_code();
    if (!text.empty()) text += ", ";
    text += name;
  }
  return ov_error_none;
}

} // namespace

std::unique_ptr<Clique> clique_new(Domain *domain, Table *table) {
  Table *utilities = nullptr;
  if (domain_has_utilities(domain)) {
    utilities = table_new(domain, table->nodes.data(), ov_table_kind_utility, role_clique, false, false);
    if (utilities == nullptr) return nullptr;
  }
  auto clique = std::make_unique<Clique>();
  clique->domain = domain;
  clique->table = table;
  clique->utility_table = utilities;
  clique->number = ++domain->forest->clique_count;
  return clique;
}

void install_cliques(Domain *domain, std::vector<std::unique_ptr<Clique>> made) noexcept {
  auto &list = domain->forest->cliques;
  std::vector<std::unique_ptr<Clique>> installed;
  installed.swap(made);
  std::reverse(installed.begin(), installed.end());
  for (auto &clique : list) installed.push_back(std::move(clique));
  list.swap(installed);
  for (std::uint32_t i = 0; i < list.size(); ++i) list[i]->position = i;
}

CliqueIndex index_cliques(const Domain *domain) {
  const CompiledForest &forest = *domain->forest;
  CliqueIndex index(domain->node_count());
  for (std::uint32_t i = 0; i < forest.cliques.size(); ++i)
    for (Node *node : members_of(forest.cliques[i].get())) index[node->number - 1].push_back(i);
  return index;
}

Clique *clique_find_superset(Domain *domain, const CliqueIndex &index, const NodeList &nodes, std::uint32_t stop) {
  const CompiledForest &forest = *domain->forest;
  if (nodes.empty()) return stop > 0 && !forest.cliques.empty() ? forest.cliques[0].get() : nullptr;
  // Such a clique holds the first node: only its cliques are candidates.
  for (std::uint32_t position : index[nodes[0]->number - 1]) {
    if (position >= stop) break;
    Clique *clique = forest.cliques[position].get();
    if (holds_all(clique, nodes.data(), nodes.size())) return clique;
  }
  return nullptr;
}

Clique *tree_find_superset(Clique *clique, const Clique *parent, const NodeList &nodes) {
  struct Step {
    Clique *clique;
    const Clique *parent;
  };
  std::vector<Step> stack{{clique, parent}};
  while (!stack.empty()) {
    Step step = stack.back();
    stack.pop_back();
    if (holds_all(step.clique, nodes.data(), nodes.size())) return step.clique;
    // Pushed in reverse, so that links are visited in their order.
    for (auto link = step.clique->links.rbegin(); link != step.clique->links.rend(); ++link)
      if (link->neighbour != step.parent) stack.push_back({link->neighbour, step.clique});
  }
  return nullptr;
}

ov_status_t build_cliques(Domain *domain) {
  if (!domain->forest->cliques.empty()) return set_error(ov_error_none);
  NodeList *order = domain_elimination_order(domain);
  if (order == nullptr) return ov_error_code();

  // Eliminating each node links its neighbours that are eliminated later.
  std::vector<Node *> later;
  auto collect_later = [&](Node *v) {
    later.clear();
    for (Node *other : v->neighbours)
      if (other->elimination_number < v->elimination_number) later.push_back(other);
    for (Node *other : v->fill_ins)
      if (other->elimination_number < v->elimination_number) later.push_back(other);
  };
  for (Node *v : *order) {
    collect_later(v);
    for (std::size_t i = 0; i < later.size(); ++i)
      for (std::size_t j = i + 1; j < later.size(); ++j) {
        if (nodes_linked(later[i], later[j])) continue;
        add_fill_in(later[i], later[j]);
        if (log_fill_in(domain, later[i], later[j]) != ov_error_none) return ov_error_code();
      }
  }

  // Each node with its later neighbours is a clique unless a clique made
  // before holds it; such a clique holds the node too.
  std::vector<std::vector<Clique *>> holding(domain->node_count());
  std::vector<std::unique_ptr<Clique>> made;
  NodeList family;
  for (Node *v : *order) {
    collect_later(v);
    family.clear();
    family.push_back(v);
    for (Node *other : later) family.push_back(other);
    std::sort(family.begin(), family.end(),
              [](const Node *a, const Node *b) { return a->elimination_number < b->elimination_number; });
    bool covered = false;
    for (Clique *clique : holding[v->number - 1])
      if (holds_all(clique, family.data(), family.size())) {
        covered = true;
        break;
      }
    if (covered) continue;
    Table *table = table_new(domain, family.data(), ov_table_kind_probability, role_clique, true, false);
    std::unique_ptr<Clique> clique = table == nullptr ? nullptr : clique_new(domain, table);
    if (clique == nullptr) return ov_error_code();
    for (Node *member : family) holding[member->number - 1].push_back(clique.get());
    made.push_back(std::move(clique));
  }
  install_cliques(domain, std::move(made));
  return set_error(ov_error_none);
}

ov_status_t order_cliques(Domain *domain) {
  CompiledForest &forest = *domain->forest;
  const std::uint32_t count = static_cast<std::uint32_t>(forest.cliques.size());
  if (count <= 1) return set_error(ov_error_none);
  NodeList *order = domain_elimination_order(domain);
  if (order == nullptr) return ov_error_code();
  CliqueIndex holding = index_cliques(domain);
  std::vector<bool> removed(count, false);
  std::vector<std::uint32_t> taken; // in the order taken out
  std::uint32_t left = count;
  NodeList below;
  for (Node *v : *order) {
    if (left == 1) break;
    std::uint32_t c = count;
    for (std::uint32_t position : holding[v->number - 1])
      if (!removed[position]) {
        c = position;
        break;
      }
    if (c == count) continue;
    below.clear();
    for (Node *member : members_of(forest.cliques[c].get()))
      if (member->elimination_number < v->elimination_number) below.push_back(member);
    // The clique is a leaf if another one holds what it shares with the
    // nodes eliminated later.
    bool leaf = false;
    if (below.empty()) {
      leaf = true;
    } else {
      for (std::uint32_t position : holding[below[0]->number - 1])
        if (position != c && !removed[position] &&
            holds_all(forest.cliques[position].get(), below.data(), below.size())) {
          leaf = true;
          break;
        }
    }
    if (!leaf) continue;
    removed[c] = true;
    taken.push_back(c);
    --left;
  }
  if (left != 1) return fail(ov_error_error);

  // The clique left last heads the list, then those taken out, the last
  // taken first.
  std::vector<std::unique_ptr<Clique>> ordered;
  ordered.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i)
    if (!removed[i]) ordered.push_back(std::move(forest.cliques[i]));
  for (auto it = taken.rbegin(); it != taken.rend(); ++it) ordered.push_back(std::move(forest.cliques[*it]));
  forest.cliques = std::move(ordered);
  for (std::uint32_t i = 0; i < count; ++i) forest.cliques[i]->position = i;
  for (std::uint32_t i = 0; i < count; ++i) forest.cliques[i]->number = forest.clique_count - i;
  return set_error(ov_error_none);
}

ov_status_t log_cliques(Domain *domain) {
  if (domain->log_file == nullptr) return set_error(ov_error_none);
  if (log_printf(domain, "\n\nCliques:\n") != ov_error_none) return ov_error_io;
  Size total = 0, total_cg = 0;
  bool any_cg = false;
  for (auto &clique : domain->forest->cliques) {
    const Table *table = clique->table;
    std::uint32_t members = table->nodes.size();
    if (log_printf(domain, "\nClique %s, %s member%s, table size = ", clique_name(domain, clique.get()),
                   format_count(domain, members), members == 1 ? "" : "s") != ov_error_none ||
        log_table_size(domain, table->size, table->cg_stride) != ov_error_none ||
        log_printf(domain, ":\n") != ov_error_none ||
        log_node_names(domain, table->nodes.data(), members) != ov_error_none)
      return ov_error_code();
    total = size_add(total, table->size);
    if (table->cg_stride > 0) {
      any_cg = true;
      total_cg = size_add(total_cg, size_multiply(table->size, table->cg_stride));
    }
  }
  if (log_printf(domain, "\nTotal clique table size: %s", format_count(domain, total)) != ov_error_none ||
      (any_cg && log_printf(domain, " + %s", format_count(domain, total_cg)) != ov_error_none) ||
      log_printf(domain, "\n") != ov_error_none)
    return ov_error_io;
  return set_error(ov_error_none);
}

ov_status_t build_junction_trees(Domain *domain) {
  CompiledForest &forest = *domain->forest;
  if (log_printf(domain, "\n\nThe junction forest:\n") != ov_error_none) return ov_error_io;
  std::vector<bool> seen(domain->node_count(), false);
  CliqueIndex index = index_cliques(domain);
  // Trees in the order made; they go on the domain's list, newest first,
  // when this stage ends, however it ends.
  struct Installer {
    CompiledForest &forest;
    std::vector<std::unique_ptr<JunctionTree>> made;
    ~Installer() {
      auto &list = forest.junction_trees; // reserved below: nothing allocates here
      list.insert(list.begin(), std::make_move_iterator(made.rbegin()), std::make_move_iterator(made.rend()));
      for (std::uint32_t i = 0; i < list.size(); ++i) list[i]->position = i;
    }
  } trees{forest, {}};
  trees.made.reserve(forest.cliques.size());
  forest.junction_trees.reserve(forest.junction_trees.size() + forest.cliques.size());
  NodeList separator;
  for (std::uint32_t position = 0; position < forest.cliques.size(); ++position) {
    Clique *clique = forest.cliques[position].get();
    separator.clear();
    for (Node *member : members_of(clique)) {
      if (seen[member->number - 1]) separator.push_back(member);
      seen[member->number - 1] = true;
    }
    // With utilities every clique but the first gets a separator, even an
    // empty one, so that the domain forms one tree.
    bool linked = position > 0 && (!separator.empty() || clique->utility_table != nullptr);
    if (!linked) {
      auto tree = std::make_unique<JunctionTree>();
      tree->domain = domain;
      tree->root = clique;
      tree->number = forest.junction_tree_count + 1;
      JunctionTree *made = tree.get();
      trees.made.push_back(std::move(tree));
      ++forest.junction_tree_count;
      clique->junction_tree = made;
      for (Node *member : members_of(clique)) member->junction_tree = made;
      if (log_printf(domain, "\nCreating junction tree with clique %s as root ...\n", clique_name(domain, clique)) !=
          ov_error_none)
        return ov_error_io;
      continue;
    }
    Clique *parent = clique_find_superset(domain, index, separator, position);
    if (parent == nullptr) return fail(ov_error_error);
    Table *weights = table_new(domain, separator.data(), ov_table_kind_probability, role_separator, false, false);
    if (weights == nullptr) return ov_error_code();
    Table *utilities = nullptr;
    if (clique->utility_table != nullptr) {
      utilities = table_new(domain, separator.data(), ov_table_kind_utility, role_separator, false, false);
      if (utilities == nullptr) return ov_error_code();
    }
    clique->junction_tree = parent->junction_tree;
    for (Node *member : members_of(clique)) member->junction_tree = parent->junction_tree;
    // One plan in each direction, both onto the same separator tables.
    KernelPlan *down = plan_new(parent->table, parent->utility_table, weights, utilities);
    KernelPlan *up = down == nullptr ? nullptr : plan_new(clique->table, clique->utility_table, weights, utilities);
    if (up == nullptr) return ov_error_code();
    parent->links.insert(parent->links.begin(), CliqueLink{clique, weights, utilities, down});
    clique->links.insert(clique->links.begin(), CliqueLink{parent, weights, utilities, up});
    std::uint32_t members = separator.size();
    if (log_printf(domain, "\nCliques %s and %s linked, separator has %s member%s and table size = ",
                   clique_name(domain, parent), clique_name(domain, clique), format_count(domain, members),
                   members == 1 ? "" : "s") != ov_error_none ||
        log_table_size(domain, weights->size, weights->cg_stride) != ov_error_none)
      return ov_error_code();
    // An empty separator ends its line with the size: the next record
    // starts with a line feed of its own.
    if (members > 0 && (log_printf(domain, ":\n") != ov_error_none ||
                        log_node_names(domain, separator.data(), members) != ov_error_none))
      return ov_error_code();
  }
  return set_error(ov_error_none);
}

ov_status_t build_node_tables(Domain *domain) {
  // The smallest separator that holds each node, each link taken once from
  // the clique with the lower number; on equal size the fewer CG entries,
  // then the first found.
  std::vector<const CliqueLink *> smallest(domain->node_count(), nullptr);
  for (auto &clique : domain->forest->cliques)
    for (const CliqueLink &link : clique->links) {
      if (clique->number > link.neighbour->number) continue;
      const Table *separator = link.separator;
      for (Node *node : separator->nodes) {
        const CliqueLink *&best = smallest[node->number - 1];
        if (best == nullptr || separator->size < best->separator->size ||
            (separator->size == best->separator->size && separator->cg_stride < best->separator->cg_stride))
          best = &link;
      }
    }
  CliqueIndex holding = index_cliques(domain);

  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
    Node *node = it->get();
    if (!in_moral_graph(node)) continue;
    Clique *clique = nullptr;
    if (node->category == ov_category_decision) {
      NodeList self;
      self.push_back(node);
      if (node->junction_tree != nullptr) clique = tree_find_superset(node->junction_tree->root, nullptr, self);
    } else if (!holding[node->number - 1].empty()) {
      clique = domain->forest->cliques[holding[node->number - 1].front()].get();
    }
    if (clique == nullptr) return fail(ov_error_error);
    Table *source = clique->table;
    Table *source_utility = clique->utility_table;
    if (node->category == ov_category_chance && smallest[node->number - 1] != nullptr) {
      source = smallest[node->number - 1]->separator;
      source_utility = smallest[node->number - 1]->separator_utilities;
    }
    Node *self[] = {node, nullptr};
    node->belief_table = table_new(domain, self, ov_table_kind_probability, role_forest, false, true);
    if (node->belief_table == nullptr) return ov_error_code();
    if (source_utility != nullptr) {
      node->utility_table = table_new(domain, self, ov_table_kind_utility, role_forest, false, true);
      if (node->utility_table == nullptr) return ov_error_code();
    }
    node->marginal_source = source;
    node->marginal_source_utility = source_utility;
    node->marginal_plan = plan_new(source, source_utility, node->belief_table, node->utility_table);
    if (node->marginal_plan == nullptr) return ov_error_code();
    if (!node->is_discrete()) continue;
    node->finding_clique = clique;
    node->propagated_finding = table_new(domain, self, ov_table_kind_probability, role_forest, false, true);
    if (node->propagated_finding == nullptr) return ov_error_code();
    node->finding_plan = plan_new(clique->table, nullptr, node->propagated_finding, nullptr);
    if (node->finding_plan == nullptr) return ov_error_code();
    if (node->state_count == 1) node->instantiated_state = 0;
    // Findings entered before a compile survive it.
    if (node->entered_finding.empty()) node->entered_finding.assign(node->state_count, 1.0f);
  }
  return set_error(ov_error_none);
}

ov_status_t build_chain_normalizers(Domain *domain) {
  for (auto &component : domain->chain_components) {
    NodeList parents;
    for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
      Node *node = it->get();
      if (std::any_of(node->children.begin(), node->children.end(),
                      [&](const Node *child) { return child->chain_component == component.get(); }))
        parents.push_back(node);
    }
    component->normalizer = table_new(domain, parents.data(), ov_table_kind_probability, role_forest, true, false);
    if (component->normalizer == nullptr) return ov_error_code();
  }
  return set_error(ov_error_none);
}

ov_status_t assign_potentials(Domain *domain) {
  bool warned = false;
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
    Node *node = it->get();
    if (node->table != nullptr) continue;
    if (node->category != ov_category_chance && node->category != ov_category_utility) continue;
    if (domain->log_file != nullptr) {
      const char *name;
      if (logged_name(node, name) != ov_error_none) return ov_error_code();
      if ((!warned && log_printf(domain, "\n\nChecking tables for all nodes:\n\n") != ov_error_none) ||
          log_printf(domain, "    Warning: Node `%s' has no table\n", name) != ov_error_none)
        return ov_error_io;
      warned = true;
    }
    if (node_table(node) == nullptr) return ov_error_code();
  }

  if (log_printf(domain, "\n\nAssignment of potentials to cliques:\n\n") != ov_error_none) return ov_error_io;
  const CliqueIndex index = index_cliques(domain);
  const std::uint32_t all = static_cast<std::uint32_t>(domain->forest->cliques.size());
  for (auto it = domain->nodes.rbegin(); it != domain->nodes.rend(); ++it) {
    Node *node = it->get();
    Table *table = node->table;
    if (table == nullptr) continue;
    Clique *clique;
    if (node->category == ov_category_chance && !node->is_discrete()) {
      // Nearest the strong root of its tree.
      if (node->junction_tree == nullptr) return fail(ov_error_error);
      clique = tree_find_superset(node->junction_tree->root, nullptr, table->nodes);
    } else if (node->category == ov_category_chance || node->category == ov_category_decision ||
               node->category == ov_category_utility) {
      clique = clique_find_superset(domain, index, table->nodes, all);
    } else {
      return fail(ov_error_error);
    }
    if (clique == nullptr) return fail(ov_error_error);
    node->home_clique = clique;
    // The table multiplies (weights) or adds (utilities) into the clique.
    if (node->category == ov_category_utility) {
      node->junction_tree = clique->junction_tree;
      node->table_plan = plan_new(clique->table, clique->utility_table, nullptr, table);
    } else {
      node->table_plan = plan_new(clique->table, clique->utility_table, table, nullptr);
    }
    if (node->table_plan == nullptr) return ov_error_code();
    if (domain->log_file != nullptr) {
      const char *name;
      if (logged_name(node, name) != ov_error_none) return ov_error_code();
      if (log_printf(domain, "    Node %s assigned to clique %s\n", name, clique_name(domain, clique)) != ov_error_none)
        return ov_error_io;
    }
  }

  std::string names;
  for (auto &component : domain->chain_components) {
    Clique *clique;
    if (component->normalizer->nodes.empty()) {
      Node *first = component->members.empty() ? nullptr : component->members[0];
      clique = first != nullptr && first->junction_tree != nullptr ? first->junction_tree->root : nullptr;
    } else {
      clique = clique_find_superset(domain, index, component->normalizer->nodes, all);
    }
    if (clique == nullptr) return fail(ov_error_error);
    component->normalizer_clique = clique;
    component->normalizer_plan = plan_new(clique->table, nullptr, component->normalizer, nullptr);
    if (component->normalizer_plan == nullptr) return ov_error_code();
    if (domain->log_file != nullptr &&
        (joined_names(component->members, names) != ov_error_none ||
         log_printf(domain, "    Chain graph component (%s):\n\tParents assigned to clique %s\n", names.c_str(),
                    clique_name(domain, clique)) != ov_error_none))
      return ov_error_code();
    component->potential_cliques.clear();
    component->potential_plans.clear();
    for (Table *potential : component->potentials) {
      Clique *home = clique_find_superset(domain, index, potential->nodes, all);
      if (home == nullptr) return fail(ov_error_error);
      component->potential_cliques.push_back(home);
      component->potential_plans.push_back(plan_new(home->table, nullptr, potential, nullptr));
      if (component->potential_plans.back() == nullptr) return ov_error_code();
      if (domain->log_file != nullptr && (joined_names(potential->nodes, names) != ov_error_none ||
                                          log_printf(domain, "   Potential (%s) assigned to clique %s\n", names.c_str(),
                                                     clique_name(domain, home)) != ov_error_none))
        return ov_error_code();
    }
  }
  return set_error(ov_error_none);
}

std::int64_t jt_cost(const Domain *domain) noexcept {
  std::uint64_t total = 0;
  for (auto &clique : domain->forest->cliques) {
    const Table *table = clique->table;
    if (table->size == size_overflow) return -1;
    std::uint64_t cost = static_cast<std::uint64_t>(table->cg_stride + 1) * table->size;
    if (total + cost > static_cast<std::uint64_t>(INT64_MAX)) return -1;
    total += cost;
  }
  return static_cast<std::int64_t>(total);
}

} // namespace orvel
