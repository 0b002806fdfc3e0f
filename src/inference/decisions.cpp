// Influence diagrams on the strong junction tree.
#include "inference/decisions.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "api/error.h"
#include "compile/clique.h"
#include "compile/compiled_forest.h"
#include "compile/junction_tree.h"
#include "inference/configurations.h"
#include "inference/propagation_engine.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

namespace {

// A potential over a list of discrete nodes, the last node varying fastest:
// probabilities and probability-weighted utilities.
struct Potential {
  std::vector<Node *> nodes;
  std::vector<double> p, u;
};

Potential unit_potential(std::vector<Node *> nodes) {
  const std::size_t n = configurations(nodes);
  return Potential{std::move(nodes), std::vector<double>(n, 1.0), std::vector<double>(n, 0.0)};
}

// Multiplies a probability table over `nodes` into the potential.
void multiply_probability(Potential &target, const std::vector<Node *> &nodes, const std::vector<double> &values) {
  const std::vector<std::size_t> map = restriction(target.nodes, nodes);
  for (std::size_t i = 0; i < map.size(); ++i) {
    target.p[i] *= values[map[i]];
    target.u[i] *= values[map[i]];
  }
}

// Adds a utility table over `nodes`: weighted by the probability, as the
// potential holds it.
void add_utility(Potential &target, const std::vector<Node *> &nodes, const std::vector<double> &values) {
  const std::vector<std::size_t> map = restriction(target.nodes, nodes);
  for (std::size_t i = 0; i < map.size(); ++i) target.u[i] += target.p[i] * values[map[i]];
}

// Combines a message into a potential: probabilities multiply, utilities add.
void absorb_message(Potential &target, const Potential &message) {
  const std::vector<std::size_t> map = restriction(target.nodes, message.nodes);
  for (std::size_t i = 0; i < map.size(); ++i) {
    const std::size_t j = map[i];
    target.u[i] = target.u[i] * message.p[j] + target.p[i] * message.u[j];
    target.p[i] *= message.p[j];
  }
}

// Eliminates one node: summed, or maximised by the weighted utility among
// the configurations that the findings leave possible.
Potential eliminate(const Potential &source, Node *node, bool maximise) {
  std::vector<Node *> kept = source.nodes;
  kept.erase(std::find(kept.begin(), kept.end(), node));
  Potential result =
      Potential{kept, std::vector<double>(configurations(kept), 0.0), std::vector<double>(configurations(kept), 0.0)};
  const std::vector<std::size_t> map = restriction(source.nodes, kept);
  std::vector<char> seen(maximise ? result.p.size() : 0, 0);
  for (std::size_t i = 0; i < map.size(); ++i) {
    const std::size_t j = map[i];
    if (!maximise) {
      result.p[j] += source.p[i];
      result.u[j] += source.u[i];
    } else if (seen[j] == 0 || (source.p[i] > 0.0 && (result.p[j] <= 0.0 || source.u[i] > result.u[j]))) {
      seen[j] = 1;
      result.p[j] = source.p[i];
      result.u[j] = source.u[i];
    }
  }
  return result;
}

// Eliminates every node of the potential that `kept` lacks, the node that
// the compile eliminates first first.
// Whether the node is maximised: an open decision, in the utility pass, and
// not the one whose option is taken.
bool maximised(const Node *node, bool utilities, const Node *fixed) noexcept {
  if (!utilities || node == fixed || node->category != ov_category_decision) return false;
  const ov_number_t *f = node->propagated_finding->data.get();
  return std::all_of(f, f + node->state_count, [](ov_number_t x) { return x == 1.0f; });
}

Potential reduce(Potential potential, const std::vector<Node *> &kept, bool utilities, const Node *fixed) {
  std::vector<Node *> out;
  for (Node *node : potential.nodes)
    if (std::find(kept.begin(), kept.end(), node) == kept.end()) out.push_back(node);
  std::sort(out.begin(), out.end(),
            [](const Node *a, const Node *b) { return a->elimination_number > b->elimination_number; });
  for (Node *node : out) potential = eliminate(potential, node, maximised(node, utilities, fixed));
  return potential;
}

std::vector<Node *> members(const Clique *clique) {
  return std::vector<Node *>(clique->table->nodes.begin(), clique->table->nodes.end());
}

std::vector<double> table_values(const Table *table) {
  return std::vector<double>(table->data.get(), table->data.get() + table->size);
}

// The first clique of the tree, from its root, that holds all the nodes.
Clique *home_of(Clique *clique, const Clique *parent, const std::vector<Node *> &nodes) {
  const bool holds =
      std::all_of(nodes.begin(), nodes.end(), [&](const Node *node) { return clique->table->nodes.contains(node); });
  if (holds) return clique;
  for (const CliqueLink &link : clique->links)
    if (link.neighbour != parent)
      if (Clique *found = home_of(link.neighbour, clique, nodes)) return found;
  return nullptr;
}

// Where the tables of a tree go: each chance node's table, each utility
// table and each node's finding (and belief) to the first clique from the
// root that holds its nodes.
struct Assignment {
  std::unordered_map<const Clique *, std::vector<Node *>> tables, homed, utilities;

  explicit Assignment(JunctionTree *tree) {
    Domain *domain = tree->domain;
    for (auto &owned : domain->nodes) {
      Node *node = owned.get();
      if (node->category == ov_category_utility) {
        Table *table = node_table(node);
        const std::vector<Node *> nodes(table->nodes.begin(), table->nodes.end());
        // A utility without parents is a constant of the first tree.
        Clique *home = nodes.empty() ? (tree == domain->forest->junction_trees.front().get() ? tree->root : nullptr)
                                     : home_of(tree->root, nullptr, nodes);
        if (home != nullptr) utilities[home].push_back(node);
        continue;
      }
      if (node->junction_tree != tree) continue;
      homed[home_of(tree->root, nullptr, {node})].push_back(node);
      if (node->category == ov_category_chance) {
        Table *table = node_table(node);
        tables[home_of(tree->root, nullptr, std::vector<Node *>(table->nodes.begin(), table->nodes.end()))].push_back(
            node);
      }
    }
  }
  static const std::vector<Node *> &at(const std::unordered_map<const Clique *, std::vector<Node *>> &map,
                                       const Clique *clique) {
    static const std::vector<Node *> none;
    const auto found = map.find(clique);
    return found == map.end() ? none : found->second;
  }
};

// One solution of a tree: the potentials of its cliques before any message.
struct Solver {
  JunctionTree *tree;
  const Assignment *assignment;
  bool utilities; // maximise open decisions and carry utilities
  // The node whose finding is replaced by one option, and that option.
  Node *fixed = nullptr;
  std::uint32_t option = 0;

  std::vector<double> finding(Node *node) const {
    std::vector<double> f(node->state_count);
    const ov_number_t *cells = node->propagated_finding->data.get();
    for (std::uint32_t i = 0; i < node->state_count; ++i) f[i] = cells[i];
    if (node == fixed) {
      std::fill(f.begin(), f.end(), 0.0);
      f[option] = 1.0;
    }
    // A decision summed out is a mean over the options its finding leaves open.
    if (node->category == ov_category_decision) {
      double total = 0.0;
      for (double x : f) total += x;
      if (total > 0.0)
        for (double &x : f) x /= total;
    }
    return f;
  }

  Potential initial(Clique *clique) const {
    Potential potential = unit_potential(members(clique));
    for (Node *node : Assignment::at(assignment->tables, clique)) {
      Table *table = node_table(node);
      multiply_probability(potential, std::vector<Node *>(table->nodes.begin(), table->nodes.end()),
                           table_values(table));
    }
    for (Node *node : Assignment::at(assignment->homed, clique))
      if (!maximised(node, utilities, fixed)) multiply_probability(potential, {node}, finding(node));
    if (!utilities) return potential;
    for (Node *node : Assignment::at(assignment->utilities, clique)) {
      Table *table = node_table(node);
      add_utility(potential, std::vector<Node *>(table->nodes.begin(), table->nodes.end()), table_values(table));
    }
    return potential;
  }

  Potential collect(Clique *clique, const Clique *parent) const {
    Potential potential = initial(clique);
    for (const CliqueLink &link : clique->links)
      if (link.neighbour != parent) absorb_message(potential, collect(link.neighbour, clique));
    if (parent == nullptr) return reduce(std::move(potential), {}, utilities, fixed);
    std::vector<Node *> separator;
    for (Node *node : clique->table->nodes)
      if (parent->table->nodes.contains(node)) separator.push_back(node);
    return reduce(std::move(potential), separator, utilities, fixed);
  }

  // The probability of the findings and the weighted expected utility.
  Potential solve() const { return collect(tree->root, nullptr); }
};

// The beliefs of every clique by a collect and a distribute of probabilities.
void distribute_beliefs(const Solver &solver, Clique *clique, const Clique *parent, const Potential *from_parent) {
  Potential potential = solver.initial(clique);
  if (from_parent != nullptr) absorb_message(potential, *from_parent);
  std::vector<Potential> messages;
  for (const CliqueLink &link : clique->links)
    if (link.neighbour != parent) {
      messages.push_back(solver.collect(link.neighbour, clique));
      absorb_message(potential, messages.back());
    }
  for (Node *node : Assignment::at(solver.assignment->homed, clique)) {
    const Potential marginal = reduce(potential, {node}, solver.utilities, solver.fixed);
    double total = 0.0;
    for (double x : marginal.p) total += x;
    for (std::uint32_t i = 0; i < node->state_count; ++i)
      node->belief_table->data[i] = static_cast<ov_number_t>(total > 0.0 ? marginal.p[i] / total : 0.0);
  }
  std::size_t k = 0;
  for (const CliqueLink &link : clique->links) {
    if (link.neighbour == parent) continue;
    // The message to a child is the clique's belief without the child's own.
    Potential rest = solver.initial(clique);
    if (from_parent != nullptr) absorb_message(rest, *from_parent);
    std::size_t j = 0;
    for (const CliqueLink &other : clique->links) {
      if (other.neighbour == parent) continue;
      if (j != k) absorb_message(rest, messages[j]);
      ++j;
    }
    std::vector<Node *> separator;
    for (Node *node : clique->table->nodes)
      if (link.neighbour->table->nodes.contains(node)) separator.push_back(node);
    const Potential message = reduce(std::move(rest), separator, solver.utilities, solver.fixed);
    distribute_beliefs(solver, link.neighbour, clique, &message);
    ++k;
  }
}

} // namespace

ov_status_t solve_decision_tree(JunctionTree *tree) {
  const Assignment assignment(tree);
  const Solver beliefs{tree, &assignment, false};
  const Potential evidence = beliefs.solve();
  if (engine::check_range(evidence.p[0]) != ov_error_none) return ov_error_code();
  tree->total_constant = evidence.p[0];
  tree->total_log_constant = std::log(evidence.p[0]);
  distribute_beliefs(beliefs, tree->root, nullptr, nullptr);
  const Solver best{tree, &assignment, true};
  const Potential meu = best.solve();
  tree->expected_utility = meu.p[0] > 0.0 ? meu.u[0] / meu.p[0] : 0.0;
  tree->decision_utilities.clear();
  for (Node *node : tree->members) {
    if (node->category != ov_category_decision) continue;
    for (std::uint32_t k = 0; k < node->state_count; ++k) {
      const Potential taken = Solver{tree, &assignment, true, node, k}.solve();
      tree->decision_utilities.push_back(taken.p[0] > 0.0 ? taken.u[0] / taken.p[0] : 0.0);
    }
  }
  const Domain *domain = tree->domain;
  const double total = domain_expected_utility(domain);
  // Each decision's options count the utilities of the other trees at their
  // maximum, which the decision cannot change.
  for (auto &each : domain->forest->junction_trees) {
    std::size_t at = 0;
    const double others = total - each->expected_utility;
    for (Node *node : each->members) {
      if (node->category != ov_category_decision || node->utility_table == nullptr) continue;
      for (std::uint32_t k = 0; k < node->state_count && at < each->decision_utilities.size(); ++k, ++at)
        node->utility_table->data[k] = static_cast<ov_number_t>(each->decision_utilities[at] + others);
    }
  }
  return set_error(ov_error_none);
}

double domain_expected_utility(const Domain *domain) noexcept {
  double total = 0.0;
  for (auto &tree : domain->forest->junction_trees) total += tree->expected_utility;
  return total;
}

} // namespace orvel
