// The test phase of structure learning: G² tests of pairs of nodes, first
// marginal (many pairs per pass over the cases, by blocks from cyclic
// difference sets), then given up to three neighbours of the pair.
#include <algorithm>
#include <cmath>

#include "api/error.h"
#include "expr/distribution_math.h"
#include "learn/count_cases.h"
#include "learn/structure.h"
#include "learn/structure_search.h"
#include "model/graph.h"

namespace orvel {

EdgeTestRecord &StructureSearch::record(const Node *a, const Node *b) { return records[pair_index(a, b)]; }
const EdgeTestRecord &StructureSearch::record(const Node *a, const Node *b) const { return records[pair_index(a, b)]; }

namespace {

constexpr std::size_t max_conditioning = 3;

// A table counted over some nodes, last varying fastest.
struct CountTable {
  std::vector<Node *> nodes;
  std::vector<double> cells;
};

// Sums `from` onto the nodes at `keep` (in that order, last fastest).
void marginalise(const CountTable &from, const std::vector<std::size_t> &keep, CountTable &to) {
  const std::size_t n = from.nodes.size();
  std::vector<std::size_t> target_stride(n, 0);
  to.nodes.clear();
  std::size_t size = 1;
  for (std::size_t k = keep.size(); k-- > 0;) {
    target_stride[keep[k]] = size;
    size *= from.nodes[keep[k]]->state_count;
  }
  for (std::size_t k : keep) to.nodes.push_back(from.nodes[k]);
  to.cells.assign(size, 0.0);
  std::vector<std::uint32_t> state(n, 0);
  std::size_t target = 0;
  for (double count : from.cells) {
    to.cells[target] += count;
    for (std::size_t d = n; d-- > 0;) { // odometer, last dimension fastest
      target += target_stride[d];
      if (++state[d] < from.nodes[d]->state_count) break;
      target -= target_stride[d] * state[d];
      state[d] = 0;
    }
  }
}

bool same_set(const std::vector<Node *> &a, const std::vector<Node *> &b) noexcept {
  if (a.size() != b.size()) return false;
  for (Node *node : a)
    if (std::find(b.begin(), b.end(), node) == b.end()) return false;
  return true;
}

bool has_test_with(const EdgeTestRecord &record, const std::vector<Node *> &set) noexcept {
  for (const IndependenceTest &test : record.tests)
    if (same_set(test.conditioning_set, set)) return true;
  return false;
}

// Whether testing x and y given `set` would be skipped.
bool test_skipped(const StructureSearch &search, Node *x, Node *y, const std::vector<Node *> &set) {
  const EdgeTestRecord &record = search.record(x, y);
  if (!pair_connected(record) || pair_settled(record)) return true;
  for (Node *s : set)
    if (!pair_connected(search.record(s, x)) && !pair_connected(search.record(s, y))) return true;
  return has_test_with(record, set);
}

// G² and degrees of freedom of a table over (S..., x, y): per
// configuration of S, over the rows and columns with non-zero sums.
void g_squared(const CountTable &table, double *statistic, std::uint32_t *degrees) {
  const std::size_t n = table.nodes.size();
  const std::uint32_t nx = table.nodes[n - 2]->state_count, ny = table.nodes[n - 1]->state_count;
  const std::size_t stratum = static_cast<std::size_t>(nx) * ny;
  std::vector<double> rows(nx), columns(ny);
  double g2 = 0.0;
  std::uint64_t df = 0;
  for (std::size_t base = 0; base < table.cells.size(); base += stratum) {
    const double *cell = table.cells.data() + base;
    std::fill(rows.begin(), rows.end(), 0.0);
    std::fill(columns.begin(), columns.end(), 0.0);
    double total = 0.0;
    for (std::uint32_t i = 0; i < nx; ++i)
      for (std::uint32_t j = 0; j < ny; ++j) {
        rows[i] += cell[i * ny + j];
        columns[j] += cell[i * ny + j];
        total += cell[i * ny + j];
      }
    const auto non_zero = [](const std::vector<double> &v) {
      return static_cast<std::uint64_t>(std::count_if(v.begin(), v.end(), [](double c) { return c != 0.0; }));
    };
    const std::uint64_t r = non_zero(rows), c = non_zero(columns);
    if (r < 2 || c < 2) continue;
    df += (r - 1) * (c - 1);
    for (std::uint32_t i = 0; i < nx; ++i)
      for (std::uint32_t j = 0; j < ny; ++j) {
        const double observed = cell[i * ny + j], expected = rows[i] * columns[j] / total;
        if (expected != 0.0 && observed != 0.0) g2 += 2.0 * observed * std::log(observed / expected);
      }
  }
  *statistic = g2;
  *degrees = static_cast<std::uint32_t>(std::min<std::uint64_t>(df, UINT32_MAX));
}

// Tests the nodes at positions i and j of the table given its other nodes.
ov_status_t test_pair(StructureSearch &search, const CountTable &table, std::size_t i, std::size_t j) {
  Node *x = table.nodes[i], *y = table.nodes[j];
  std::vector<Node *> set;
  std::vector<std::size_t> keep;
  for (std::size_t k = 0; k < table.nodes.size(); ++k)
    if (k != i && k != j) {
      set.push_back(table.nodes[k]);
      keep.push_back(k);
    }
  if (test_skipped(search, x, y, set)) return ov_error_none;
  keep.push_back(i);
  keep.push_back(j);
  CountTable marginal;
  marginalise(table, keep, marginal);
  IndependenceTest test;
  g_squared(marginal, &test.statistic, &test.degrees_of_freedom);

  EdgeTestRecord &record = search.record(x, y);
  for (const IndependenceTest &earlier : record.tests)
    if (earlier.is_independent && earlier.conditioning_set.size() < set.size()) return ov_error_none;
  if (test.degrees_of_freedom == 0) {
    test.p_value = 1.0;
  } else {
    test.p_value = chi_square_upper_tail(test.statistic, test.degrees_of_freedom);
    if (test.p_value < 0.0) return static_cast<ov_status_t>(ov_error_code());
  }
  test.is_independent = search.domain->learning.significance_level <= test.p_value;
  if (record.tests.empty())
    record.strength = test.statistic;
  else
    test.conditioning_set = std::move(set);
  record.independent_count += test.is_independent ? 1 : 0;
  record.tests.push_back(std::move(test));
  ++search.test_count;
  return ov_error_none;
}

// Tests every pair of the table's nodes given the others.
ov_status_t test_all_pairs(StructureSearch &search, const CountTable &table) {
  for (std::size_t i = 0; i < table.nodes.size(); ++i)
    for (std::size_t j = i + 1; j < table.nodes.size(); ++j)
      if (ov_status_t status = test_pair(search, table, i, j); status != ov_error_none) return status;
  return ov_error_none;
}

bool all_complete(const StructureSearch &search, const std::vector<Node *> &nodes) {
  for (const Node *node : nodes)
    if (!search.complete[search.vertex_of[node->number - 1]]) return false;
  return true;
}

ov_status_t count_and_test(StructureSearch &search, std::vector<Node *> nodes) {
  CountTable table;
  table.nodes = std::move(nodes);
  count_cases_into_table(search.domain, table.nodes, all_complete(search, table.nodes), table.cells);
  return test_all_pairs(search, table);
}

// Blocks of a cyclic difference set: every pair of positions below the
// modulus lies together in at least one block.
struct DifferenceSet {
  std::uint32_t modulus;
  std::vector<std::vector<std::uint32_t>> bases;
};

DifferenceSet difference_set(std::size_t m) {
  if (m < 22) return {21, {{1, 2, 5, 15, 17}}};
  if (m < 32) return {31, {{1, 2, 7, 19, 23, 30}}};
  if (m < 58) return {57, {{0, 1, 7, 19, 23, 44, 47, 49}}};
  return {91, {{0, 1, 3, 7, 25, 38}, {0, 5, 20, 32, 46, 75}, {0, 8, 17, 47, 57, 80}}};
}

// A block table above this many cells is not counted whole: its pairs are
// counted one by one instead, which gives the same counts (block nodes have
// a value in every case).
constexpr std::size_t max_block_cells = std::size_t{1} << 22;

ov_status_t block_stage(StructureSearch &search) {
  std::vector<Node *> members;
  for (std::size_t v = 0; v < search.nodes.size(); ++v)
    if (search.usable[v] && search.complete[v]) members.push_back(search.nodes[v]);
  const std::size_t m = members.size();
  if (m < 2) return ov_error_none;
  const DifferenceSet set = difference_set(m);
  for (const auto &base : set.bases)
    for (std::uint32_t shift = 0; shift < set.modulus; ++shift) {
      std::vector<std::uint32_t> positions;
      for (std::uint32_t b : base)
        if (const std::uint32_t p = (b + shift) % set.modulus; p < m) positions.push_back(p);
      if (positions.size() < 2) continue;
      std::sort(positions.begin(), positions.end());
      CountTable block;
      std::size_t cells = 1;
      for (std::uint32_t p : positions) {
        block.nodes.push_back(members[p]);
        cells = cells > max_block_cells ? cells : cells * members[p]->state_count;
      }
      if (cells > max_block_cells) {
        for (std::size_t i = 0; i < block.nodes.size(); ++i)
          for (std::size_t j = i + 1; j < block.nodes.size(); ++j)
            if (!search.record(block.nodes[i], block.nodes[j]).tests.empty())
              continue;
            else if (ov_status_t status = count_and_test(search, {block.nodes[i], block.nodes[j]}); status != 0)
              return status;
        continue;
      }
      count_cases_into_table(search.domain, block.nodes, true, block.cells);
      for (std::size_t i = 0; i < block.nodes.size(); ++i)
        for (std::size_t j = i + 1; j < block.nodes.size(); ++j) {
          CountTable pair;
          marginalise(block, {i, j}, pair);
          if (ov_status_t status = test_pair(search, pair, 0, 1); status != ov_error_none) return status;
        }
    }
  return ov_error_none;
}

ov_status_t pair_stage(StructureSearch &search) {
  const std::size_t n = search.nodes.size();
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j) {
      if (!search.usable[i] || !search.usable[j]) continue;
      if (!search.record(search.nodes[i], search.nodes[j]).tests.empty()) continue;
      if (ov_status_t status = count_and_test(search, {search.nodes[i], search.nodes[j]}); status != ov_error_none)
        return status;
    }
  return ov_error_none;
}

struct Pair {
  std::uint32_t x, y; // vertices
  double strength;
};

// The pairs still open to a verdict from the data, strongest first.
std::vector<Pair> pair_list(const StructureSearch &search) {
  std::vector<Pair> pairs;
  const std::size_t n = search.nodes.size();
  for (std::uint32_t i = 0; i < n; ++i)
    for (std::uint32_t j = i + 1; j < n; ++j) {
      if (!search.usable[i] || !search.usable[j]) continue;
      const EdgeTestRecord &record = search.record(search.nodes[i], search.nodes[j]);
      if (pair_connected(record) && !pair_settled(record)) pairs.push_back({i, j, record.strength});
    }
  std::stable_sort(pairs.begin(), pairs.end(), [](const Pair &a, const Pair &b) { return a.strength > b.strength; });
  return pairs;
}

bool adjacent(const StructureSearch &search, std::uint32_t a, std::uint32_t b) {
  return a != b && pair_connected(search.record(search.nodes[a], search.nodes[b]));
}

struct Candidate {
  std::uint32_t vertex;
  double association;
};

// The usable nodes adjacent to either end of the pair, by the sum of their
// marginal strengths to the two ends, strongest first.
std::vector<Candidate> candidates(const StructureSearch &search, const Pair &pair) {
  std::vector<Candidate> list;
  for (std::uint32_t v = 0; v < search.nodes.size(); ++v) {
    if (v == pair.x || v == pair.y || !search.usable[v]) continue;
    if (!adjacent(search, v, pair.x) && !adjacent(search, v, pair.y)) continue;
    Node *node = search.nodes[v];
    list.push_back(
        {v, search.record(node, search.nodes[pair.x]).strength + search.record(node, search.nodes[pair.y]).strength});
  }
  std::stable_sort(list.begin(), list.end(),
                   [](const Candidate &a, const Candidate &b) { return a.association > b.association; });
  return list;
}

// Calls `visit` with each k-subset of {0, ..., n - 1} in nested order
// (earlier members first); stops at a failure.
template <class F> ov_status_t for_each_subset(std::size_t n, std::size_t k, F &&visit) {
  if (k > n) return ov_error_none;
  std::vector<std::size_t> pick(k);
  for (std::size_t i = 0; i < k; ++i) pick[i] = i;
  for (;;) {
    if (ov_status_t status = visit(pick); status != ov_error_none) return status;
    std::size_t i = k;
    while (i > 0 && pick[i - 1] == n - k + i - 1) --i;
    if (i == 0) return ov_error_none;
    ++pick[i - 1];
    for (std::size_t j = i; j < k; ++j) pick[j] = pick[j - 1] + 1;
  }
}

bool some_pair_needs_test(const StructureSearch &search, const std::vector<Node *> &nodes) {
  for (std::size_t i = 0; i < nodes.size(); ++i)
    for (std::size_t j = i + 1; j < nodes.size(); ++j) {
      std::vector<Node *> set;
      for (std::size_t k = 0; k < nodes.size(); ++k)
        if (k != i && k != j) set.push_back(nodes[k]);
      if (!test_skipped(search, nodes[i], nodes[j], set)) return true;
    }
  return false;
}

// Works on the nodes of `table` at `positions`: smaller subsets first, then
// every pair given the rest.
ov_status_t visit_subset(StructureSearch &search, const CountTable &table, const std::vector<std::size_t> &positions) {
  std::vector<Node *> nodes;
  for (std::size_t p : positions) nodes.push_back(table.nodes[p]);
  if (!some_pair_needs_test(search, nodes)) return ov_error_none;
  CountTable marginal;
  marginalise(table, positions, marginal);
  if (positions.size() > 3) {
    ov_status_t status = for_each_subset(positions.size(), positions.size() - 1,
                                         [&](const std::vector<std::size_t> &pick) -> ov_status_t {
                                           std::vector<std::size_t> sub;
                                           for (std::size_t p : pick) sub.push_back(positions[p]);
                                           return visit_subset(search, table, sub);
                                         });
    if (status != ov_error_none) return status;
  }
  return test_all_pairs(search, marginal);
}

ov_status_t high_order_stage(StructureSearch &search) {
  const double case_limit = search.domain->case_count / 10.0;
  for (const Pair &pair : pair_list(search)) {
    if (!search.complete[pair.x] || !search.complete[pair.y]) continue;
    const std::vector<Candidate> list = candidates(search, pair);
    CountTable table;
    table.nodes = {search.nodes[pair.x], search.nodes[pair.y]};
    double product = static_cast<double>(table.nodes[0]->state_count) * table.nodes[1]->state_count;
    for (const Candidate &candidate : list) {
      if (table.nodes.size() == max_conditioning + 2) break;
      if (candidate.association < list.front().association / 2.0) break;
      if (!search.complete[candidate.vertex]) continue;
      Node *node = search.nodes[candidate.vertex];
      product *= node->state_count;
      if (product > case_limit) break;
      table.nodes.push_back(node);
    }
    if (table.nodes.size() == 2) continue;
    count_cases_into_table(search.domain, table.nodes, true, table.cells);
    std::vector<std::size_t> all(table.nodes.size());
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
    if (ov_status_t status = visit_subset(search, table, all); status != ov_error_none) return status;
  }
  return ov_error_none;
}

ov_status_t sweeps(StructureSearch &search) {
  for (std::size_t k = 1; k <= max_conditioning; ++k)
    for (int sweep = 1; sweep <= 2; ++sweep)
      for (const Pair &pair : pair_list(search)) {
        const std::vector<Candidate> list = candidates(search, pair);
        Node *x = search.nodes[pair.x], *y = search.nodes[pair.y];
        ov_status_t status = for_each_subset(list.size(), k, [&](const std::vector<std::size_t> &pick) -> ov_status_t {
          bool both = true, all_x = true, all_y = true;
          std::vector<Node *> set;
          for (std::size_t p : pick) {
            const std::uint32_t v = list[p].vertex;
            const bool to_x = adjacent(search, v, pair.x), to_y = adjacent(search, v, pair.y);
            both &= to_x && to_y;
            all_x &= to_x;
            all_y &= to_y;
            set.push_back(search.nodes[v]);
          }
          if (sweep == 1 ? !both : !(all_x || all_y)) return ov_error_none;
          if (has_test_with(search.record(x, y), set)) return ov_error_none;
          std::vector<Node *> nodes{x, y};
          nodes.insert(nodes.end(), set.begin(), set.end());
          return count_and_test(search, std::move(nodes));
        });
        if (status != ov_error_none) return status;
      }
  return ov_error_none;
}

} // namespace

ov_status_t run_independence_tests(StructureSearch &search) {
  const Domain *domain = search.domain;
  const std::size_t n = search.nodes.size();
  search.usable.assign(n, 0);
  search.complete.assign(n, 0);
  search.vertex_of.assign(n, 0);
  search.records.assign(n * (n - 1) / 2, EdgeTestRecord{});
  for (std::uint32_t v = 0; v < n; ++v) {
    const Node *node = search.nodes[v];
    search.vertex_of[node->number - 1] = v;
    const bool has_data = !node->case_states.empty();
    search.usable[v] = has_data && node->state_count >= 2;
    bool complete = has_data;
    for (std::uint32_t c = 0; complete && c < domain->case_count; ++c)
      complete = static_cast<std::uint32_t>(static_cast<std::int32_t>(node->case_states[c])) < node->state_count;
    search.complete[v] = complete;
  }
  if (ov_status_t status = block_stage(search); status != ov_error_none) return status;
  if (ov_status_t status = pair_stage(search); status != ov_error_none) return status;
  if (search.test_count == 0) return ov_error_none;
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j)
      search.record(search.nodes[i], search.nodes[j]).constraint =
          get_edge_constraint(search.nodes[i], search.nodes[j]);
  if (ov_status_t status = high_order_stage(search); status != ov_error_none) return status;
  return sweeps(search);
}

} // namespace orvel
