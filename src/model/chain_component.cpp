#include "model/chain_component.h"

#include <algorithm>
#include <memory>

#include "api/error.h"
#include "model/domain.h"
#include "model/graph.h"
#include "table/table.h"

namespace orvel {

namespace {

bool chain_potential_allowed(const Domain *domain, const Table *table, std::uint32_t k) noexcept {
  if (domain == nullptr || table == nullptr || table->domain != domain || k < 2 || table->continuous_count != 0 ||
      table->discrete_count < k || table->value_kind != ov_table_kind_probability)
    return false;
  const std::uint32_t first_child = table->nodes.size() - k;
  for (std::uint32_t i = first_child; i < table->nodes.size(); ++i)
    if (table->nodes[i]->category != ov_category_chance) return false;
  for (std::uint32_t i = 0; i < first_child; ++i)
    for (std::uint32_t j = first_child; j < table->nodes.size(); ++j)
      if (!table->nodes[j]->parents.contains(table->nodes[i])) return false;
  return true;
}

} // namespace

ov_status_t domain_add_chain_potential(Domain *domain, Table *table, std::uint32_t child_count) {
  if (!chain_potential_allowed(domain, table, child_count)) return fail(ov_error_usage);
  const std::uint32_t first_child = table->nodes.size() - child_count;
  Node *const *children = table->nodes.begin() + first_child;

  // Children of different components joined by a directed path would make
  // the undirected component part of a directed cycle.
  for (std::uint32_t i = 0; i < child_count; ++i)
    for (std::uint32_t j = i + 1; j < child_count; ++j) {
      Node *a = children[i], *b = children[j];
      if (a == b || (a->chain_component != nullptr && a->chain_component == b->chain_component)) continue;
      if (is_descendant(a, b) || is_descendant(b, a)) return fail(ov_error_cyclic_network);
    }

  auto component = std::make_unique<ChainComponent>();
  component->domain = domain;
  std::vector<ChainComponent *> absorbed;
  for (std::uint32_t i = 0; i < child_count; ++i) {
    Node *child = children[i];
    ChainComponent *old = child->chain_component;
    if (old == nullptr) {
      if (!component->members.contains(child)) component->members.push_back(child);
    } else if (std::find(absorbed.begin(), absorbed.end(), old) == absorbed.end()) {
      absorbed.push_back(old);
      for (Node *member : old->members)
        if (!component->members.contains(member)) component->members.push_back(member);
      component->potentials.insert(component->potentials.end(), old->potentials.begin(), old->potentials.end());
    }
  }
  component->potentials.push_back(table);
  domain->chain_components.reserve(domain->chain_components.size() + 1);

  // Nothing below allocates: commit.
  for (Node *member : component->members) member->chain_component = component.get();
  auto &list = domain->chain_components;
  list.erase(std::remove_if(list.begin(), list.end(),
                            [&](const std::unique_ptr<ChainComponent> &c) {
                              return std::find(absorbed.begin(), absorbed.end(), c.get()) != absorbed.end();
                            }),
             list.end());
  list.push_back(std::move(component));
  domain_uncompile(domain);
  return set_error(ov_error_none);
}

bool domain_has_chain_components(const Domain *domain) noexcept {
  for (const auto &node : domain->nodes)
    if (node->chain_component != nullptr) return true;
  return false;
}

} // namespace orvel
