#include "brute_force.h"

#include <algorithm>

namespace orvel::test {

RandomNetwork RandomNetwork::make(std::mt19937 &rng, int max_nodes) {
  RandomNetwork net;
  net.domain = ov_new_domain();
  const int n = std::uniform_int_distribution<int>(1, max_nodes)(rng);
  std::uniform_int_distribution<int> state_count(1, 4);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int i = 0; i < n; ++i) {
    ov_node_t node = ov_domain_new_node(net.domain, ov_category_chance, ov_kind_discrete);
    std::uint32_t states = static_cast<std::uint32_t>(state_count(rng));
    ov_node_set_number_of_states(node, states);
    net.nodes.push_back(node);
    net.states.push_back(states);
  }
  // Arcs from older to newer nodes, at most three parents each.
  const double density = unit(rng) * 0.5;
  for (int child = 0; child < n; ++child) {
    int parents = 0;
    for (int parent = 0; parent < child && parents < 3; ++parent)
      if (unit(rng) < density) {
        ov_node_add_parent(net.nodes[child], net.nodes[parent]);
        ++parents;
      }
  }
  const double zeros = unit(rng) * 0.3;
  for (int i = 0; i < n; ++i) {
    ov_table_t table = ov_node_get_table(net.nodes[i]);
    std::vector<int> order;
    for (ov_node_t *list = ov_table_get_nodes(table); *list != nullptr; ++list)
      order.push_back(static_cast<int>(std::find(net.nodes.begin(), net.nodes.end(), *list) - net.nodes.begin()));
    net.table_of.push_back(order);
    ov_number_t *data = ov_table_get_data(table);
    const std::size_t size = static_cast<std::size_t>(ov_table_get_size(table));
    const std::uint32_t row = net.states[i];
    for (std::size_t start = 0; start < size; start += row) {
      double sum = 0.0;
      for (std::uint32_t k = 0; k < row; ++k) {
        data[start + k] = unit(rng) < zeros ? 0.0f : static_cast<float>(unit(rng));
        sum += data[start + k];
      }
      if (sum == 0.0) data[start + rng() % row] = 1.0f, sum = 1.0;
      for (std::uint32_t k = 0; k < row; ++k) data[start + k] = static_cast<float>(data[start + k] / sum);
    }
    net.tables.emplace_back(data, data + size);
  }
  return net;
}

RandomNetwork::RandomNetwork(RandomNetwork &&other) noexcept
    : domain(other.domain), nodes(std::move(other.nodes)), states(std::move(other.states)),
      table_of(std::move(other.table_of)), tables(std::move(other.tables)) {
  other.domain = nullptr;
}

RandomNetwork::~RandomNetwork() {
  if (domain != nullptr) ov_domain_delete(domain);
}

std::vector<double> brute_marginal(const RandomNetwork &net, const Findings &findings, const std::vector<int> &keep,
                                   const std::vector<bool> &skip, bool max, double *total) {
  const std::size_t n = net.nodes.size();
  std::size_t result_size = 1;
  for (int k : keep) result_size *= net.states[k];
  std::vector<double> result(result_size, 0.0);
  std::vector<std::uint32_t> config(n, 0);
  double all = 0.0;
  for (;;) {
    double p = 1.0;
    for (std::size_t i = 0; i < n && p != 0.0; ++i) {
      std::size_t index = 0;
      for (int k : net.table_of[i]) index = index * net.states[k] + config[k];
      p *= net.tables[i][index];
      if (!skip[i]) p *= findings[i][config[i]];
    }
    std::size_t cell = 0;
    for (int k : keep) cell = cell * net.states[k] + config[k];
    if (max) {
      result[cell] = std::max(result[cell], p);
      all = std::max(all, p);
    } else {
      result[cell] += p;
      all += p;
    }
    std::size_t i = n;
    while (i > 0 && ++config[i - 1] == net.states[i - 1]) config[--i] = 0;
    if (i == 0) break;
  }
  if (total != nullptr) *total = all;
  return result;
}

} // namespace orvel::test
