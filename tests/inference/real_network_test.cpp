// Beliefs on the shared networks under random evidence against a plain
// variable-elimination reference in double precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

// A factor over variables (indices), the last varying fastest.
struct Factor {
  std::vector<int> vars;
  std::vector<double> values;
};

struct Network {
  std::vector<ov_node_t> nodes;
  std::vector<std::uint32_t> states;
  std::vector<Factor> tables;
};

Network read_network(ov_domain_t domain) {
  Network net;
  std::map<ov_node_t, int> index;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node)) {
    index[node] = static_cast<int>(net.nodes.size());
    net.nodes.push_back(node);
    net.states.push_back(static_cast<std::uint32_t>(ov_node_get_number_of_states(node)));
  }
  for (ov_node_t node : net.nodes) {
    ov_table_t table = ov_node_get_table(node);
    Factor f;
    for (ov_node_t *list = ov_table_get_nodes(table); *list != nullptr; ++list) f.vars.push_back(index[*list]);
    const ov_number_t *data = ov_table_get_data(table);
    f.values.assign(data, data + ov_table_get_size(table));
    // Rows as the engine uses them: normalised.
    const std::uint32_t row = net.states[index[node]];
    for (std::size_t start = 0; start < f.values.size(); start += row) {
      double sum = 0.0;
      for (std::uint32_t k = 0; k < row; ++k) sum += f.values[start + k];
      for (std::uint32_t k = 0; k < row; ++k) f.values[start + k] /= sum;
    }
    net.tables.push_back(std::move(f));
  }
  return net;
}

// The product of factors, summed over `gone`.
Factor eliminate(const std::vector<const Factor *> &factors, int gone, const std::vector<std::uint32_t> &states) {
  std::vector<int> vars;
  for (const Factor *f : factors)
    for (int v : f->vars)
      if (v != gone && std::find(vars.begin(), vars.end(), v) == vars.end()) vars.push_back(v);
  std::vector<int> all = vars;
  all.push_back(gone);
  std::size_t size = 1;
  for (int v : vars) size *= states[v];
  Factor result{vars, std::vector<double>(size, 0.0)};
  std::vector<std::uint32_t> config(all.size(), 0);
  std::vector<std::vector<std::size_t>> place(factors.size());
  for (std::size_t i = 0; i < factors.size(); ++i)
    for (int v : factors[i]->vars) place[i].push_back(std::find(all.begin(), all.end(), v) - all.begin());
  for (;;) {
    double p = 1.0;
    for (std::size_t i = 0; i < factors.size() && p != 0.0; ++i) {
      std::size_t cell = 0;
      for (std::size_t k = 0; k < place[i].size(); ++k) cell = cell * states[factors[i]->vars[k]] + config[place[i][k]];
      p *= factors[i]->values[cell];
    }
    std::size_t cell = 0;
    for (std::size_t k = 0; k < vars.size(); ++k) cell = cell * states[vars[k]] + config[k];
    result.values[cell] += p;
    std::size_t k = all.size();
    while (k > 0 && ++config[k - 1] == states[all[k - 1]]) config[--k] = 0;
    if (k == 0) break;
  }
  return result;
}

// P(query | evidence) by elimination with the smallest-product order;
// empty when an intermediate factor would pass `limit` cells.
std::vector<double> posterior(const Network &net, const std::vector<int> &evidence, int query, std::size_t limit) {
  std::vector<Factor> factors = net.tables;
  for (std::size_t v = 0; v < evidence.size(); ++v)
    if (evidence[v] >= 0) {
      Factor indicator{{static_cast<int>(v)}, std::vector<double>(net.states[v], 0.0)};
      indicator.values[evidence[v]] = 1.0;
      factors.push_back(indicator);
    }
  std::vector<bool> done(net.nodes.size(), false);
  done[query] = true;
  for (std::size_t round = 1; round < net.nodes.size(); ++round) {
    int best = -1;
    double best_size = 0;
    for (std::size_t v = 0; v < net.nodes.size(); ++v) {
      if (done[v]) continue;
      std::vector<int> vars;
      for (const Factor &f : factors)
        if (std::find(f.vars.begin(), f.vars.end(), static_cast<int>(v)) != f.vars.end())
          for (int w : f.vars)
            if (std::find(vars.begin(), vars.end(), w) == vars.end()) vars.push_back(w);
      double size = 1;
      for (int w : vars) size *= net.states[w];
      if (best < 0 || size < best_size) best = static_cast<int>(v), best_size = size;
    }
    if (best_size > static_cast<double>(limit)) return {};
    std::vector<const Factor *> touching;
    std::vector<Factor> rest;
    for (const Factor &f : factors)
      if (std::find(f.vars.begin(), f.vars.end(), best) != f.vars.end()) touching.push_back(&f);
    Factor made = eliminate(touching, best, net.states);
    for (const Factor &f : factors)
      if (std::find(f.vars.begin(), f.vars.end(), best) == f.vars.end()) rest.push_back(f);
    rest.push_back(std::move(made));
    factors = std::move(rest);
    done[best] = true;
  }
  std::vector<double> result(net.states[query], 1.0);
  for (const Factor &f : factors) {
    if (f.vars.empty()) continue;
    for (std::uint32_t s = 0; s < net.states[query]; ++s) result[s] *= f.values[s];
  }
  double sum = 0.0;
  for (double x : result) sum += x;
  for (double &x : result) x /= sum;
  return result;
}

TEST(RealNetworks, BeliefsAgreeWithVariableElimination) {
  int checked = 0;
  for (const char *file : {"asia.net", "cancer.net", "earthquake.net", "sachs.net", "survey.net", "child.net",
                           "alarm.net", "insurance.net", "win95pts.net", "hepar2.net"}) {
    SCOPED_TRACE(file);
    const std::string path = std::string(ORVEL_NETWORKS "/") + file;
    ov_domain_t domain = ov_net_parse_domain(path.c_str(), nullptr, nullptr);
    ASSERT_NE(domain, nullptr) << ov_error_name(ov_error_code());
    ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
    Network net = read_network(domain);
    std::mt19937 rng(4242);
    for (int round = 0; round < 3; ++round) {
      ov_domain_retract_findings(domain);
      std::vector<int> evidence(net.nodes.size(), -1);
      for (int k = 0; k < 4; ++k) {
        const std::size_t v = rng() % net.nodes.size();
        evidence[v] = static_cast<int>(rng() % net.states[v]);
        ov_node_select_state(net.nodes[v], evidence[v]);
      }
      const ov_status_t status = ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal);
      if (status == ov_error_inconsistency_or_underflow) continue; // an impossible draw
      ASSERT_EQ(status, ov_error_none);
      for (int q = 0; q < 6; ++q) {
        const int query = static_cast<int>(rng() % net.nodes.size());
        std::vector<double> reference = posterior(net, evidence, query, 1u << 20);
        if (reference.empty()) continue;
        for (std::uint32_t s = 0; s < net.states[query]; ++s)
          EXPECT_NEAR(ov_node_get_belief(net.nodes[query], s), reference[s], 1e-5) << "node " << query;
        ++checked;
      }
    }
    ov_domain_delete(domain);
  }
  EXPECT_GT(checked, 100);
}

} // namespace
