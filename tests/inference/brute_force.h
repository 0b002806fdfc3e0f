// A network built through the public calls, with a reference answer by
// enumeration of its joint distribution.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "orvel.h"

namespace orvel::test {

struct RandomNetwork {
  ov_domain_t domain = nullptr;
  std::vector<ov_node_t> nodes;           // in creation order
  std::vector<std::uint32_t> states;      // per node
  std::vector<std::vector<int>> table_of; // per node: the indices of its table's nodes, in table order
  std::vector<std::vector<float>> tables; // per node: a copy of its table

  // Up to `max_nodes` nodes of 1 to 4 states, random arcs and tables with
  // some zeros (no row all zero).
  static RandomNetwork make(std::mt19937 &rng, int max_nodes);
  ~RandomNetwork();
  RandomNetwork() = default;
  RandomNetwork(RandomNetwork &&other) noexcept;
  RandomNetwork &operator=(RandomNetwork &&) = delete;
};

// Findings per node per state (1.0 everywhere means none).
using Findings = std::vector<std::vector<float>>;

// The joint weighted by the findings of the nodes not marked in `skip`,
// summed (or maximised) onto `keep`; the result lists `keep`'s states with
// the last fastest. `total` receives the sum (or maximum) over everything.
std::vector<double> brute_marginal(const RandomNetwork &net, const Findings &findings, const std::vector<int> &keep,
                                   const std::vector<bool> &skip, bool max, double *total);

} // namespace orvel::test
