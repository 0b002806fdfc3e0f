// Test helpers: networks built by hand or read, for their structure only,
// from NET files; and independent checks of a junction forest.
#pragma once

#include <cstdio>
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
Node *add_node(Domain *domain, const char *name, std::uint32_t states,
               ov_category_t category = ov_category_chance, ov_kind_t kind = ov_kind_discrete);
// An arc, with discrete parents ahead of continuous ones.
void add_arc(Node *parent, Node *child);
// A domain with the nodes (in file order) and arcs of a structure.
ov_domain_t build_domain(const NetStructure &structure);

// The path of a shared network by file name.
std::string shared_network(const std::string &file);
// All shared networks' file names.
std::vector<std::string> shared_networks();

// A log stream in memory that can be read back.
class LogCapture {
public:
  explicit LogCapture(Domain *domain);
  ~LogCapture();
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;
  // Everything written so far.
  std::string text();

private:
  Domain *domain_;
  std::FILE *file_;
};

// Checks the junction forest of a domain against properties computed here
// from the network alone; reports failures through gtest. Returns the total
// clique table size computed independently.
double check_forest(Domain *domain);

} // namespace orvel::test
