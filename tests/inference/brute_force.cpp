#include "brute_force.h"

#include <algorithm>
#include <numeric>

namespace orvel::test {

Factor combine(const std::vector<const Factor *> &factors, const std::vector<int> &keep,
               const std::vector<std::uint32_t> &states, bool max) {
  std::vector<int> all(keep);
  for (const Factor *f : factors)
    for (int v : f->vars)
      if (std::find(all.begin(), all.end(), v) == all.end()) all.push_back(v);
  std::size_t size = 1;
  for (int v : keep) size *= states[v];
  Factor result{keep, std::vector<double>(size, 0.0)};
  std::vector<std::vector<std::size_t>> place(factors.size());
  for (std::size_t i = 0; i < factors.size(); ++i)
    for (int v : factors[i]->vars) place[i].push_back(std::find(all.begin(), all.end(), v) - all.begin());
  std::vector<std::uint32_t> config(all.size(), 0);
  for (;;) {
    double p = 1.0;
    for (std::size_t i = 0; i < factors.size() && p != 0.0; ++i) {
      std::size_t cell = 0;
      for (std::size_t k = 0; k < place[i].size(); ++k) cell = cell * states[factors[i]->vars[k]] + config[place[i][k]];
      p *= factors[i]->values[cell];
    }
    std::size_t cell = 0;
    for (std::size_t k = 0; k < keep.size(); ++k) cell = cell * states[keep[k]] + config[k];
    result.values[cell] = max ? std::max(result.values[cell], p) : result.values[cell] + p;
    std::size_t k = all.size();
    while (k > 0 && ++config[k - 1] == states[all[k - 1]]) config[--k] = 0;
    if (k == 0) break;
  }
  return result;
}

RandomNetwork RandomNetwork::make(std::mt19937 &rng, int max_nodes) {
  ov_domain_t domain = ov_new_domain();
  const int n = std::uniform_int_distribution<int>(1, max_nodes)(rng);
  std::uniform_int_distribution<int> state_count(1, 4);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<ov_node_t> nodes;
  for (int i = 0; i < n; ++i) {
    nodes.push_back(ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete));
    ov_node_set_number_of_states(nodes.back(), state_count(rng));
  }
  // Arcs from older to newer nodes, at most three parents each.
  const double density = unit(rng) * 0.5;
  for (int child = 0; child < n; ++child)
    for (int parent = 0, parents = 0; parent < child && parents < 3; ++parent)
      if (unit(rng) < density) ov_node_add_parent(nodes[child], nodes[parent]), ++parents;
  const double zeros = unit(rng) * 0.3;
  for (ov_node_t node : nodes) {
    ov_table_t table = ov_node_get_table(node);
    ov_number_t *data = ov_table_get_data(table);
    const std::size_t size = static_cast<std::size_t>(ov_table_get_size(table));
    const std::size_t row = static_cast<std::size_t>(ov_node_get_number_of_states(node));
    for (std::size_t start = 0; start < size; start += row) {
      double sum = 0.0;
      for (std::size_t k = 0; k < row; ++k)
        sum += data[start + k] = unit(rng) < zeros ? 0.0f : static_cast<float>(unit(rng));
      if (sum == 0.0) data[start + rng() % row] = 1.0f, sum = 1.0;
      for (std::size_t k = 0; k < row; ++k) data[start + k] = static_cast<float>(data[start + k] / sum);
    }
  }
  return read(domain);
}

RandomNetwork RandomNetwork::read(ov_domain_t domain) {
  RandomNetwork net;
  net.domain = domain;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node)) {
    net.nodes.push_back(node);
    net.states.push_back(static_cast<std::uint32_t>(ov_node_get_number_of_states(node)));
  }
  for (std::size_t i = 0; i < net.nodes.size(); ++i) {
    ov_table_t table = ov_node_get_table(net.nodes[i]);
    Factor f;
    for (ov_node_t *list = ov_table_get_nodes(table); *list != nullptr; ++list)
      f.vars.push_back(static_cast<int>(std::find(net.nodes.begin(), net.nodes.end(), *list) - net.nodes.begin()));
    const ov_number_t *data = ov_table_get_data(table);
    f.values.assign(data, data + ov_table_get_size(table));
    // Rows as the engine uses them: normalised.
    for (auto row = f.values.begin(); row != f.values.end(); row += net.states[i]) {
      const double sum = std::accumulate(row, row + net.states[i], 0.0);
      std::for_each(row, row + net.states[i], [sum](double &x) { x /= sum; });
    }
    net.tables.push_back(std::move(f));
  }
  return net;
}

RandomNetwork::RandomNetwork(RandomNetwork &&other) noexcept
    : domain(other.domain), nodes(std::move(other.nodes)), states(std::move(other.states)),
      tables(std::move(other.tables)) {
  other.domain = nullptr;
}

RandomNetwork::~RandomNetwork() {
  if (domain != nullptr) ov_domain_delete(domain);
}

std::vector<double> brute_marginal(const RandomNetwork &net, const Findings &findings, const std::vector<int> &keep,
                                   const std::vector<bool> &skip, bool max, double *total) {
  std::vector<Factor> weights;
  for (std::size_t i = 0; i < net.nodes.size(); ++i)
    if (!skip[i]) weights.push_back({{static_cast<int>(i)}, {findings[i].begin(), findings[i].end()}});
  std::vector<const Factor *> factors;
  for (const Factor &f : net.tables) factors.push_back(&f);
  for (const Factor &f : weights) factors.push_back(&f);
  std::vector<double> result = combine(factors, keep, net.states, max).values;
  if (total != nullptr)
    *total = max ? *std::max_element(result.begin(), result.end()) : std::accumulate(result.begin(), result.end(), 0.0);
  return result;
}

} // namespace orvel::test
