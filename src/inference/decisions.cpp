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
#include "model/hooks.h"
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

// A decision's choices as the solution makes them: the clique where it is
// maximised, the nodes of its past left in that clique's potential then,
// and the best option in each of their configurations. With limited memory
// the past is the decision's parents and the clique the one nearest the
// root that holds them with the decision; `uniform` marks the policy that
// single policy updating starts from, each option equally likely.
struct Choice {
  const Clique *clique = nullptr;
  std::vector<Node *> past;
  std::vector<std::uint32_t> option;
  bool uniform = false;
};
using Choices = std::unordered_map<const Node *, Choice>;
// Nodes held to one state, with their findings.
using Pins = std::vector<std::pair<const Node *, std::uint32_t>>;

// Whether a decision is open: no finding rules out an option.
bool is_open(const Node *node) noexcept {
  const ov_number_t *f = node->propagated_finding->data.get();
  return std::all_of(f, f + node->state_count, [](ov_number_t x) { return x == 1.0f; });
}

// The policies of every decision but `decision`: what it is chosen against
// with limited memory.
Choices others_than(const Choices &policies, const Node *decision) {
  Choices others = policies;
  others.erase(decision);
  return others;
}

// Which nodes are maximised and what is recorded.
struct Rule {
  bool utilities = false;      // maximise open decisions and carry utilities
  const Node *fixed = nullptr; // the decision whose finding is replaced by one option
  const Pins *pins = nullptr;
  Choices *record = nullptr; // filled with the choice of each maximised decision

  const std::pair<const Node *, std::uint32_t> *pin(const Node *node) const noexcept {
    if (pins == nullptr) return nullptr;
    for (const auto &each : *pins)
      if (each.first == node) return &each;
    return nullptr;
  }
  // An open decision, in the utility pass, neither fixed nor pinned, of a
  // domain whose decisions remember the past: with limited memory every
  // decision follows a policy and is summed.
  bool maximises(const Node *node) const noexcept {
    if (!utilities || node == fixed || node->category != ov_category_decision || pin(node) != nullptr ||
        node->junction_tree->domain->limited_memory)
      return false;
    return is_open(node);
  }
};

// Eliminates one node: summed, or maximised by the weighted utility among
// the configurations that the findings leave possible (the first option
// where none is possible).
Potential eliminate(const Potential &source, Node *node, bool maximise, Choice *choice) {
  std::vector<Node *> kept = source.nodes;
  kept.erase(std::find(kept.begin(), kept.end(), node));
  Potential result =
      Potential{kept, std::vector<double>(configurations(kept), 0.0), std::vector<double>(configurations(kept), 0.0)};
  const std::vector<std::size_t> map = restriction(source.nodes, kept);
  std::vector<std::size_t> state;
  if (choice != nullptr) {
    state = restriction(source.nodes, {node});
    choice->past = kept;
    choice->option.assign(result.p.size(), 0);
  }
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
      if (choice != nullptr) choice->option[j] = static_cast<std::uint32_t>(state[i]);
    }
  }
  return result;
}

// Eliminates every node of the potential of `clique` that `kept` lacks, the
// node that the compile eliminates first first.
Potential reduce(Potential potential, const std::vector<Node *> &kept, const Rule &rule, const Clique *clique) {
  std::vector<Node *> out;
  for (Node *node : potential.nodes)
    if (std::find(kept.begin(), kept.end(), node) == kept.end()) out.push_back(node);
  std::sort(out.begin(), out.end(),
            [](const Node *a, const Node *b) { return a->elimination_number > b->elimination_number; });
  for (Node *node : out) {
    const bool maximise = rule.maximises(node);
    Choice *choice = nullptr;
    if (maximise && rule.record != nullptr) {
      choice = &(*rule.record)[node];
      choice->clique = clique;
    }
    potential = eliminate(potential, node, maximise, choice);
  }
  return potential;
}

std::vector<Node *> members(const Clique *clique) {
  return std::vector<Node *>(clique->table->nodes.begin(), clique->table->nodes.end());
}

std::vector<double> table_values(const Table *table) {
  return std::vector<double>(table->data.get(), table->data.get() + table->size);
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
  Rule rule;
  // The policies that the open decisions follow in a pass without
  // utilities; without them an open decision is uniform over its options.
  const Choices *policies = nullptr;
  std::uint32_t option = 0; // the option of rule.fixed

  std::vector<double> finding(Node *node) const {
    std::vector<double> f(node->state_count);
    const ov_number_t *cells = node->propagated_finding->data.get();
    for (std::uint32_t i = 0; i < node->state_count; ++i) f[i] = cells[i];
    if (node == rule.fixed) {
      std::fill(f.begin(), f.end(), 0.0);
      f[option] = 1.0;
    }
    if (const auto *pin = rule.pin(node)) {
      for (std::uint32_t i = 0; i < node->state_count; ++i)
        if (i != pin->second) f[i] = 0.0;
      if (node->category == ov_category_decision && f[pin->second] > 0.0) f[pin->second] = 1.0;
      return f;
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
    for (Node *node : Assignment::at(assignment->homed, clique)) {
      // A decision following a policy is pinned by its finding only.
      if (rule.maximises(node) || (policies != nullptr && policies->contains(node) && rule.pin(node) == nullptr))
        continue;
      multiply_probability(potential, {node}, finding(node));
    }
    if (policies != nullptr)
      for (const auto &[node, choice] : *policies) {
        if (choice.clique != clique) continue;
        // The policy as a table over the past and the decision: 1 at the
        // option chosen in each configuration of the past.
        std::vector<Node *> nodes = choice.past;
        nodes.push_back(const_cast<Node *>(node));
        std::vector<double> values(configurations(nodes), 0.0);
        for (std::size_t j = 0; j < choice.option.size(); ++j) {
          if (!choice.uniform) {
            values[j * node->state_count + choice.option[j]] = 1.0;
            continue;
          }
          for (std::uint32_t k = 0; k < node->state_count; ++k)
            values[j * node->state_count + k] = 1.0 / node->state_count;
        }
        multiply_probability(potential, nodes, values);
      }
    if (!rule.utilities) return potential;
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
    if (parent == nullptr) return reduce(std::move(potential), {}, rule, clique);
    std::vector<Node *> separator;
    for (Node *node : clique->table->nodes)
      if (parent->table->nodes.contains(node)) separator.push_back(node);
    return reduce(std::move(potential), separator, rule, clique);
  }

  // The probability of the findings and the weighted expected utility.
  Potential solve() const { return collect(tree->root, nullptr); }

  // The potential of the whole tree reduced to `kept`, nodes of `clique`,
  // by a collect to that clique.
  Potential gather(Clique *clique, const std::vector<Node *> &kept) const {
    Potential potential = initial(clique);
    for (const CliqueLink &link : clique->links) absorb_message(potential, collect(link.neighbour, clique));
    return reduce(std::move(potential), kept, rule, clique);
  }
};

// The open decisions of a tree, each after every decision among its
// ancestors: an ancestor of a node has fewer ancestors than the node.
std::vector<Node *> open_decisions_in_order(const JunctionTree *tree) {
  std::vector<std::pair<std::size_t, Node *>> ranked;
  for (Node *node : tree->members) {
    if (node->category != ov_category_decision || !is_open(node)) continue;
    std::vector<const Node *> seen, stack(node->parents.begin(), node->parents.end());
    while (!stack.empty()) {
      const Node *next = stack.back();
      stack.pop_back();
      if (std::find(seen.begin(), seen.end(), next) != seen.end()) continue;
      seen.push_back(next);
      stack.insert(stack.end(), next->parents.begin(), next->parents.end());
    }
    ranked.emplace_back(seen.size(), node);
  }
  std::stable_sort(ranked.begin(), ranked.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
  std::vector<Node *> order;
  for (const auto &each : ranked) order.push_back(each.second);
  return order;
}

// The policies of the open decisions of a limited-memory tree by single
// policy updating: from uniform policies, each decision in turn, the last
// first, takes the best option in each configuration of its parents given
// the policies of the others, until a round changes nothing. An option is
// replaced only by a clearly better one, so that every change gains and the
// rounds end.
Choices limited_policies(JunctionTree *tree, const Assignment &assignment) {
  std::vector<Node *> order = open_decisions_in_order(tree);
  std::reverse(order.begin(), order.end());
  Choices policies;
  for (Node *decision : order) {
    Choice &choice = policies[decision];
    choice.past.assign(decision->parents.begin(), decision->parents.end());
    std::vector<Node *> family = choice.past;
    family.push_back(decision);
    choice.clique = home_of(tree->root, nullptr, family);
    choice.option.assign(configurations(choice.past), 0);
    choice.uniform = true;
  }
  for (bool changed = !order.empty(); changed;) {
    changed = false;
    for (Node *decision : order) {
      const Choices others = others_than(policies, decision);
      Choice &choice = policies[decision];
      std::vector<Node *> family = choice.past;
      family.push_back(decision);
      const Potential local =
          Solver{tree, &assignment, Rule{true}, &others}.gather(const_cast<Clique *>(choice.clique), family);
      // The weighted utilities in the order of the family, the decision fastest.
      std::vector<double> p(local.p.size()), u(local.u.size());
      const std::vector<std::size_t> map = restriction(local.nodes, family);
      for (std::size_t i = 0; i < map.size(); ++i) {
        p[map[i]] = local.p[i];
        u[map[i]] = local.u[i];
      }
      const std::uint32_t n = decision->state_count;
      for (std::size_t j = 0; j < choice.option.size(); ++j) {
        std::uint32_t best = choice.uniform ? n : choice.option[j];
        for (std::uint32_t k = 0; k < n; ++k) {
          const double x = u[j * n + k];
          if (p[j * n + k] <= 0.0) continue;
          if (best == n || x > u[j * n + best] + 1e-12 * (std::fabs(x) + std::fabs(u[j * n + best]))) best = k;
        }
        if (best == n) best = choice.uniform ? 0 : choice.option[j];
        if (best != choice.option[j] || choice.uniform) changed = true;
        choice.option[j] = best;
      }
      choice.uniform = false;
    }
  }
  return policies;
}

// The optimal policies of a tree's open decisions: by the solution of the
// maximum expected utility, or by single policy updating.
Choices tree_policies(JunctionTree *tree, const Assignment &assignment) {
  if (tree->domain->limited_memory) return limited_policies(tree, assignment);
  Choices policies;
  Solver{tree, &assignment, Rule{true, nullptr, nullptr, &policies}}.solve();
  return policies;
}

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
    const Potential marginal = reduce(potential, {node}, solver.rule, clique);
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
    const Potential message = reduce(std::move(rest), separator, solver.rule, clique);
    distribute_beliefs(solver, link.neighbour, clique, &message);
    ++k;
  }
}

// The expected utility of the domain with the nodes pinned, or 0 where the
// findings and the pins are impossible together: the tree's share plus the
// maximum of the other trees.
double pinned_utility(JunctionTree *tree, const Assignment &assignment, const Pins &pins, const Choices *policies) {
  Rule rule{true, nullptr, &pins, nullptr};
  const Potential solved = Solver{tree, &assignment, rule, policies}.solve();
  if (solved.p[0] <= 0.0) return 0.0;
  return solved.u[0] / solved.p[0] + domain_expected_utility(tree->domain) - tree->expected_utility;
}

} // namespace

ov_status_t solve_decision_tree(JunctionTree *tree) {
  const Assignment assignment(tree);
  const Potential evidence = Solver{tree, &assignment, Rule{}}.solve();
  if (engine::check_range(evidence.p[0]) != ov_error_none) return ov_error_code();
  const bool limited = tree->domain->limited_memory;
  Choices policies;
  if (limited) policies = limited_policies(tree, assignment);
  const Potential meu = limited ? Solver{tree, &assignment, Rule{true}, &policies}.solve()
                                : Solver{tree, &assignment, Rule{true, nullptr, nullptr, &policies}}.solve();
  tree->expected_utility = meu.p[0] > 0.0 ? meu.u[0] / meu.p[0] : 0.0;
  // Beliefs and the probability of the findings with the open decisions
  // following their optimal policies.
  const Solver beliefs{tree, &assignment, Rule{}, &policies};
  const Potential chosen = beliefs.solve();
  if (engine::check_range(chosen.p[0]) != ov_error_none) return ov_error_code();
  tree->total_constant = chosen.p[0];
  tree->total_log_constant = std::log(chosen.p[0]);
  distribute_beliefs(beliefs, tree->root, nullptr, nullptr);
  tree->decision_utilities.clear();
  for (Node *node : tree->members) {
    if (node->category != ov_category_decision) continue;
    // With limited memory the other decisions follow their policies.
    const Choices others = limited ? others_than(policies, node) : Choices{};
    for (std::uint32_t k = 0; k < node->state_count; ++k) {
      const Potential taken = Solver{tree, &assignment, Rule{true, node}, limited ? &others : nullptr, k}.solve();
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

Table *decision_policy(Node *decision, bool utilities) {
  JunctionTree *tree = decision->junction_tree;
  const Assignment assignment(tree);
  const Choices policies = tree_policies(tree, assignment);
  const Choices others = tree->domain->limited_memory ? others_than(policies, decision) : Choices{};
  const auto found = policies.find(decision);
  Choice taken;
  if (found == policies.end()) {
    // A decision taken: the first option its finding leaves open.
    const ov_number_t *f = decision->propagated_finding->data.get();
    std::uint32_t k = 0;
    while (k + 1 < decision->state_count && f[k] <= 0.0f) ++k;
    taken.option.assign(1, k);
  }
  const Choice &choice = found == policies.end() ? taken : found->second;
  NodeList nodes;
  for (Node *node : choice.past) nodes.push_back(node);
  nodes.push_back(decision);
  Table *table = table_new(tree->domain, nodes.data(), ov_table_kind_probability, role_returned, false, true);
  if (table == nullptr) return nullptr;
  const std::uint32_t n = decision->state_count;
  std::fill_n(table->data.get(), table->size, 0.0f);
  Pins pins(choice.past.size() + 1);
  for (std::size_t j = 0; j < choice.option.size(); ++j) {
    if (!utilities) {
      table->data[j * n + choice.option[j]] = 1.0f;
      continue;
    }
    std::size_t rest = j;
    for (std::size_t i = choice.past.size(); i-- > 0;) {
      pins[i] = {choice.past[i], static_cast<std::uint32_t>(rest % choice.past[i]->state_count)};
      rest /= choice.past[i]->state_count;
    }
    for (std::uint32_t k = 0; k < n; ++k) {
      pins.back() = {decision, k};
      table->data[j * n + k] = static_cast<ov_number_t>(
          pinned_utility(tree, assignment, pins, tree->domain->limited_memory ? &others : nullptr));
    }
  }
  return table_detach(table);
}

void set_limited_memory(Domain *domain, bool limited) noexcept {
  if (domain->limited_memory == limited) return;
  domain_uncompile(domain);
  domain->limited_memory = limited;
}

double domain_expected_utility(const Domain *domain) noexcept {
  double total = 0.0;
  for (auto &tree : domain->forest->junction_trees) total += tree->expected_utility;
  return total;
}

} // namespace orvel
