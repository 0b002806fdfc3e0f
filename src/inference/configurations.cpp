// Configurations of lists of discrete nodes.
#include "inference/configurations.h"

#include <algorithm>
#include <cstdint>

#include "compile/clique.h"
#include "model/node.h"
#include "table/table.h"

namespace orvel {

std::size_t configurations(const std::vector<Node *> &nodes) noexcept {
  std::size_t n = 1;
  for (const Node *node : nodes) n *= node->state_count;
  return n;
}

std::vector<std::size_t> restriction(const std::vector<Node *> &big, const std::vector<Node *> &small) {
  std::vector<std::size_t> stride(big.size(), 0);
  std::size_t s = 1;
  for (std::size_t i = small.size(); i-- > 0;) {
    const auto at = std::find(big.begin(), big.end(), small[i]);
    stride[static_cast<std::size_t>(at - big.begin())] = s;
    s *= small[i]->state_count;
  }
  std::vector<std::size_t> map(configurations(big));
  std::vector<std::uint32_t> digit(big.size(), 0);
  std::size_t offset = 0;
  for (std::size_t i = 0; i < map.size(); ++i) {
    map[i] = offset;
    for (std::size_t d = big.size(); d-- > 0;) {
      offset += stride[d];
      if (++digit[d] < big[d]->state_count) break;
      offset -= stride[d] * digit[d];
      digit[d] = 0;
    }
  }
  return map;
}

Clique *home_of(Clique *clique, const Clique *parent, const std::vector<Node *> &nodes) {
  const bool holds =
      std::all_of(nodes.begin(), nodes.end(), [&](const Node *node) { return clique->table->nodes.contains(node); });
  if (holds) return clique;
  for (const CliqueLink &link : clique->links)
    if (link.neighbour != parent)
      if (Clique *found = home_of(link.neighbour, clique, nodes)) return found;
  return nullptr;
}

} // namespace orvel
