// Walking the junction forest: the trees and cliques in list order, and the
// arrays of a tree's cliques and a clique's neighbours.
#include "compile/clique.h"
#include "compile/compiled_forest.h"
#include "compile/forest.h"
#include "compile/junction_tree.h"
#include "model/domain.h"

namespace orvel {

JunctionTree *domain_first_junction_tree(const Domain *domain) noexcept {
  return domain->forest->junction_trees.empty() ? nullptr : domain->forest->junction_trees.front().get();
}

JunctionTree *jt_next(const JunctionTree *tree) noexcept {
  auto &trees = tree->domain->forest->junction_trees;
  return tree->position + 1 < trees.size() ? trees[tree->position + 1].get() : nullptr;
}

Clique *domain_first_clique(const Domain *domain) noexcept {
  return domain->forest->cliques.empty() ? nullptr : domain->forest->cliques.front().get();
}

Clique *clique_next(const Clique *clique) noexcept {
  auto &cliques = clique->domain->forest->cliques;
  return clique->position + 1 < cliques.size() ? cliques[clique->position + 1].get() : nullptr;
}

Clique **jt_clique_array(JunctionTree *tree) {
  if (tree->clique_list.empty()) {
    std::vector<Clique *> list;
    for (auto &clique : tree->domain->forest->cliques)
      if (clique->junction_tree == tree) list.push_back(clique.get());
    list.push_back(nullptr);
    tree->clique_list = std::move(list);
  }
  return tree->clique_list.data();
}

Clique **clique_neighbour_array(Clique *clique) {
  if (clique->neighbour_list.empty()) {
    std::vector<Clique *> list;
    list.reserve(clique->links.size() + 1);
    for (const CliqueLink &link : clique->links) list.push_back(link.neighbour);
    list.push_back(nullptr);
    clique->neighbour_list = std::move(list);
  }
  return clique->neighbour_list.data();
}

} // namespace orvel
