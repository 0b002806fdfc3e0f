// Networks for tests: built by hand, or the shared networks.
#pragma once

#include <string>
#include <vector>

#include "model/domain.h"

namespace orvel::test {

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

// The path of a shared network by file name.
std::string shared_network(const std::string &file);
// A shared network read by the NET parser; the caller deletes it.
ov_domain_t parse_shared(const std::string &file);
// All shared networks' file names.
std::vector<std::string> shared_networks();

} // namespace orvel::test
