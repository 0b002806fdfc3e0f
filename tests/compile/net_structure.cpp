#include "compile/net_structure.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "table/table.h"

namespace orvel::test {

namespace {

std::vector<std::string> words_of(const std::string &text) {
  std::vector<std::string> words;
  std::string word;
  for (char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.' || c == '-') {
      word += c;
    } else {
      if (!word.empty()) words.push_back(word);
      word.clear();
      if (c == '|' || c == '(' || c == ')') words.push_back(std::string(1, c));
    }
  }
  if (!word.empty()) words.push_back(word);
  return words;
}

} // namespace

NetStructure read_net_structure(const std::string &path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot read " + path);
  NetStructure net;
  std::map<std::string, std::uint32_t> index;
  std::string line;
  bool in_node = false;
  while (std::getline(in, line)) {
    std::vector<std::string> words = words_of(line);
    if (words.empty()) continue;
    if (words[0] == "node" && words.size() >= 2) {
      index[words[1]] = static_cast<std::uint32_t>(net.names.size());
      net.names.push_back(words[1]);
      net.states.push_back(0);
      net.parents.emplace_back();
      in_node = true;
    } else if (in_node && words[0] == "states") {
      net.states.back() = static_cast<std::uint32_t>(std::count(line.begin(), line.end(), '"') / 2);
    } else if (words[0] == "potential") {
      in_node = false;
      std::uint32_t child = index.at(words[2]);
      bool after_bar = false;
      for (std::size_t i = 3; i < words.size() && words[i] != ")"; ++i) {
        if (words[i] == "|") {
          after_bar = true;
          continue;
        }
        if (after_bar) net.parents[child].push_back(index.at(words[i]));
      }
    }
  }
  return net;
}

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

ov_domain_t build_domain(const NetStructure &structure) {
  ov_domain_t domain = ov_new_domain();
  std::vector<Node *> nodes;
  for (std::size_t i = 0; i < structure.names.size(); ++i)
    nodes.push_back(add_node(domain, structure.names[i].c_str(), structure.states[i]));
  for (std::size_t i = 0; i < structure.names.size(); ++i)
    for (std::uint32_t parent : structure.parents[i]) add_arc(nodes[parent], nodes[i]);
  return domain;
}

std::string shared_network(const std::string &file) { return std::string(ORVEL_NETWORKS "/") + file; }

std::vector<std::string> shared_networks() {
  std::vector<std::string> files;
  for (const auto &entry : std::filesystem::directory_iterator(std::string(ORVEL_NETWORKS)))
    if (entry.path().extension() == ".net") files.push_back(entry.path().filename().string());
  std::sort(files.begin(), files.end());
  return files;
}

} // namespace orvel::test
