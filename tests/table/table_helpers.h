// Shared helpers of the table tests: a domain with nodes of chosen state
// counts, tables filled with given or random numbers, random shapes, and a
// naive per-cell reference marginal.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "model/domain.h"
#include "model/node.h"
#include "orvel.h"
#include "table/table.h"

namespace orvel::test {

struct Net {
  ov_domain_t domain = ov_new_domain();
  Net() = default;
  Net(const Net &) = delete;
  Net &operator=(const Net &) = delete;
  ~Net() { ov_domain_delete(domain); }

  // A discrete node with `states` states, set on the record before any table
  // over it exists.
  Node *discrete(std::uint32_t states, ov_category_t category = ov_category_chance) {
    Node *node = ov_domain_new_node(domain, category, ov_kind_discrete);
    node->state_count = states;
    return node;
  }
  Node *continuous() { return ov_domain_new_node(domain, ov_category_chance, ov_kind_continuous); }

  // An allocated table over `nodes` in this order.
  Table *table(const std::vector<Node *> &nodes, std::int32_t kind = ov_table_kind_probability,
               std::int32_t role = role_returned) {
    NodeList list;
    for (Node *node : nodes) list.push_back(node);
    return table_new(domain, list.data(), kind, role, false, true);
  }
  Table *filled(const std::vector<Node *> &nodes, const std::vector<float> &values,
                std::int32_t kind = ov_table_kind_probability) {
    Table *t = table(nodes, kind);
    for (std::size_t i = 0; i < values.size() && i < t->size; ++i) t->data[i] = values[i];
    return t;
  }
};

inline std::vector<float> data_of(const Table *table) {
  return std::vector<float>(table->data.get(), table->data.get() + table->size);
}

// The states of each discrete node of `table` at flat index `cell`.
inline std::vector<std::uint32_t> decode(const Table *table, std::uint32_t cell) {
  std::vector<std::uint32_t> states(table->discrete_count);
  for (std::uint32_t i = table->discrete_count; i-- > 0;) {
    std::uint32_t n = table->nodes[i]->state_count;
    states[i] = cell % n;
    cell /= n;
  }
  return states;
}

// The flat index in `coarse` of the configuration of `fine` at `cell`.
inline std::uint32_t project(const Table *fine, std::uint32_t cell, const Table *coarse) {
  std::vector<std::uint32_t> states = decode(fine, cell);
  std::uint32_t index = 0;
  for (std::uint32_t j = 0; j < coarse->discrete_count; ++j) {
    Node *node = coarse->nodes[j];
    std::uint32_t i = 0;
    while (fine->nodes[i] != node) ++i;
    index = index * node->state_count + states[i];
  }
  return index;
}

inline void fill_random(Table *table, std::mt19937 &rng, double zero_share = 0.0) {
  std::uniform_real_distribution<float> value(0.0f, 1.0f);
  std::uniform_real_distribution<double> coin(0.0, 1.0);
  for (Size i = 0; i < table->size; ++i) table->data[i] = coin(rng) < zero_share ? 0.0f : value(rng);
}

// Sum (or maximum) of `fine` onto `coarse` by a per-cell index loop.
inline std::vector<double> reference_marginal(const Table *fine, const Table *coarse, bool max) {
  std::vector<double> out(coarse->size, max ? -INFINITY : 0.0);
  for (std::uint32_t i = 0; i < fine->size; ++i) {
    double &v = out[project(fine, i, coarse)];
    v = max ? std::max(v, static_cast<double>(fine->data[i])) : v + fine->data[i];
  }
  return out;
}

// Up to 8 nodes (at least `least`) of 1 to 5 states in random order, at most
// 20000 cells, and a random subset of them in another random order.
struct Shape {
  std::vector<Node *> fine, coarse;
};

inline Shape random_shape(Net &net, std::mt19937 &rng, std::uint32_t least = 0) {
  std::uniform_int_distribution<std::uint32_t> states(1, 5), count(least, 8);
  Shape shape;
  std::uint32_t size = 1;
  for (std::uint32_t i = 0, n = count(rng); i < n; ++i) {
    std::uint32_t s = states(rng);
    if (size * s > 20000) s = 1;
    size *= s;
    shape.fine.push_back(net.discrete(s));
  }
  std::shuffle(shape.fine.begin(), shape.fine.end(), rng);
  for (Node *node : shape.fine)
    if (rng() % 2 == 0) shape.coarse.push_back(node);
  std::shuffle(shape.coarse.begin(), shape.coarse.end(), rng);
  return shape;
}

// The concurrency levels every kernel must agree on.
inline const std::vector<std::uint32_t> &levels() {
  static const std::vector<std::uint32_t> all{1, 2, 3, 4, 8};
  return all;
}

inline void set_level(Net &net, std::uint32_t level, std::uint32_t grain = 1) {
  net.domain->concurrency_level = level;
  net.domain->grain_size = grain;
}

} // namespace orvel::test
