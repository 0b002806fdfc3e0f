#include "compile/net_structure.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "table/table.h"

namespace orvel::test {

Node *add_node(Domain *domain, const char *name, std::uint32_t states, ov_category_t category, ov_kind_t kind) {
  Node *node = ov_domain_new_node(domain, category, kind);
  if (node == nullptr || ov_node_set_name(node, name) != ov_error_none)
    throw std::runtime_error(std::string("cannot make node ") + name);
  if (kind == ov_kind_discrete && category != ov_category_utility && states != node->state_count &&
      ov_node_set_number_of_states(node, states) != ov_error_none)
    throw std::runtime_error(std::string("cannot give states to ") + name);
  return node;
}

void add_arc(Node *parent, Node *child) {
  if (ov_node_add_parent(child, parent) != ov_error_none)
    throw std::runtime_error("cannot add the arc " + *parent->name + " -> " + *child->name);
}

void add_arc_unchecked(Node *parent, Node *child) {
  domain_uncompile(child->home);
  node_list_insert_by_kind(child->parents, parent);
  parent->children.push_back(child);
}

ChainComponent *add_chain_component(Domain *domain, std::vector<Node *> members, bool with_potential) {
  auto component = std::make_unique<ChainComponent>();
  component->domain = domain;
  for (Node *member : members) {
    component->members.push_back(member);
    member->chain_component = component.get();
  }
  if (with_potential) {
    members.push_back(nullptr);
    Table *potential = table_new(domain, members.data(), ov_table_kind_probability, role_plain, false, false);
    if (potential == nullptr) throw std::runtime_error("cannot make a chain potential");
    component->potentials.push_back(potential);
  }
  domain->chain_components.push_back(std::move(component));
  return domain->chain_components.back().get();
}

std::string shared_network(const std::string &file) { return std::string(ORVEL_NETWORKS "/") + file; }

ov_domain_t parse_shared(const std::string &file) {
  ov_domain_t domain = ov_net_parse_domain(shared_network(file).c_str(), nullptr, nullptr);
  if (domain == nullptr) throw std::runtime_error("cannot read " + file);
  return domain;
}

std::vector<std::string> shared_networks() {
  std::vector<std::string> files;
  for (const auto &entry : std::filesystem::directory_iterator(std::string(ORVEL_NETWORKS)))
    if (entry.path().extension() == ".net") files.push_back(entry.path().filename().string());
  std::sort(files.begin(), files.end());
  return files;
}

} // namespace orvel::test
