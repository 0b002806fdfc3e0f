// Reference answers for the inference tests: products of factors summed or
// maximised onto chosen variables, on networks built through the public calls.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "orvel.h"

namespace orvel::test {

// A factor over variables (indices), the last varying fastest.
struct Factor {
  std::vector<int> vars;
  std::vector<double> values;
};

// The product of `factors` summed (or maximised) onto `keep`, by enumeration
// of the variables they mention.
Factor combine(const std::vector<const Factor *> &factors, const std::vector<int> &keep,
               const std::vector<std::uint32_t> &states, bool max = false);

struct RandomNetwork {
  ov_domain_t domain = nullptr;
  std::vector<ov_node_t> nodes;      // in node list order
  std::vector<std::uint32_t> states; // per node
  std::vector<Factor> tables;        // per node: its table, rows normalised

  // Up to `max_nodes` nodes of 1 to 4 states, random arcs and tables with
  // some zeros (no row all zero).
  static RandomNetwork make(std::mt19937 &rng, int max_nodes);
  // The nodes and tables of `domain`, which the network then owns.
  static RandomNetwork read(ov_domain_t domain);
  ~RandomNetwork();
  RandomNetwork() = default;
  RandomNetwork(RandomNetwork &&other) noexcept;
  RandomNetwork &operator=(RandomNetwork &&) = delete;
};

// Findings per node per state (1.0 everywhere means none).
using Findings = std::vector<std::vector<float>>;

inline Findings no_findings(const RandomNetwork &net) {
  Findings findings;
  for (std::uint32_t states : net.states) findings.emplace_back(states, 1.0f);
  return findings;
}

// The joint weighted by the findings of the nodes not marked in `skip`,
// summed (or maximised) onto `keep`; the result lists `keep`'s states with
// the last fastest. `total` receives the sum (or maximum) over everything.
std::vector<double> brute_marginal(const RandomNetwork &net, const Findings &findings, const std::vector<int> &keep,
                                   const std::vector<bool> &skip, bool max, double *total);

} // namespace orvel::test
