// Networks for tests and benchmarks: built by hand, or read for their
// structure only (names, state counts, parents) from NET files.
#pragma once

#include <string>
#include <vector>

#include "model/domain.h"

namespace orvel::test {

// Node names, state counts and parent lists (by index) of a NET file, read
// from its node blocks and its "potential (X | A B)" lines.
struct NetStructure {
  std::vector<std::string> names;
  std::vector<std::uint32_t> states;
  std::vector<std::vector<std::uint32_t>> parents;
};

NetStructure read_net_structure(const std::string &path);

// A new discrete chance node with a name and a number of states.
Node *add_node(Domain *domain, const char *name, std::uint32_t states, ov_category_t category = ov_category_chance,
               ov_kind_t kind = ov_kind_discrete);
// An arc, through the graph editing calls.
void add_arc(Node *parent, Node *child);
// An arc pushed into the parent and child lists without any check, so that
// a test can build a cycle.
void add_arc_unchecked(Node *parent, Node *child);
// A chain component over `members`, with one chain potential over them
// when `with_potential` is set.
ChainComponent *add_chain_component(Domain *domain, std::vector<Node *> members, bool with_potential);
// A domain with the nodes (in file order) and arcs of a structure.
ov_domain_t build_domain(const NetStructure &structure);

// The path of a shared network by file name.
std::string shared_network(const std::string &file);
// All shared networks' file names.
std::vector<std::string> shared_networks();

} // namespace orvel::test
