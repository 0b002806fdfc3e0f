// Fuzz target: sequences of public calls on one small domain: nodes made
// and deleted, links added, removed and reversed, state counts and tables
// changed, compiling and uncompiling, findings entered and retracted,
// propagation in both equilibria and both modes, marginals and simulation.
//
// Besides the sanitizers, the target aborts when, right after a successful
// sum propagation, a belief, a two-node marginal or the probability of the
// evidence differs from an enumeration of the joint distribution of the
// node tables and the entered findings (in fast retraction mode without the
// findings of the nodes asked about), and when a simulated state lies
// outside its node's states.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "orvel.h"

namespace {

constexpr std::size_t max_nodes = 7;
constexpr ov_count_t max_states = 4;

void check(bool condition, const char *what) {
  if (condition) return;
  std::fprintf(stderr, "oracle failed: %s\n", what);
  std::abort();
}

struct Bytes {
  const std::uint8_t *data;
  std::size_t size;
  bool empty() const { return size == 0; }
  std::uint8_t next() {
    if (size == 0) return 0;
    --size;
    return *data++;
  }
};

// The joint distribution of the domain's chance nodes, by enumeration: the
// node tables with each row scaled to sum to one, times the entered findings
// of all nodes but `skip_a` and `skip_b`.
struct Joint {
  std::vector<ov_node_t> nodes;
  std::vector<ov_count_t> states;
  std::vector<double> weights; // the first node slowest
  double total = 0.0;

  std::size_t index_of(ov_node_t node) const {
    for (std::size_t i = 0; i < nodes.size(); ++i)
      if (nodes[i] == node) return i;
    return nodes.size();
  }
};

Joint enumerate(ov_domain_t domain, ov_node_t skip_a = nullptr, ov_node_t skip_b = nullptr) {
  Joint joint;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) {
    joint.nodes.push_back(n);
    joint.states.push_back(ov_node_get_number_of_states(n));
  }
  std::size_t size = 1;
  for (ov_count_t s : joint.states) size *= static_cast<std::size_t>(s);
  joint.weights.assign(size, 1.0);
  std::vector<std::size_t> x(joint.nodes.size());
  for (std::size_t cell = 0; cell < size; ++cell) {
    std::size_t rest = cell;
    for (std::size_t i = joint.nodes.size(); i-- > 0;) {
      x[i] = rest % static_cast<std::size_t>(joint.states[i]);
      rest /= static_cast<std::size_t>(joint.states[i]);
    }
    double w = 1.0;
    for (std::size_t i = 0; i < joint.nodes.size() && w != 0.0; ++i) {
      ov_node_t node = joint.nodes[i];
      ov_table_t table = ov_node_get_table(node);
      const ov_number_t *data = ov_table_get_data(table);
      // The cell of this configuration and the run of the node's own states.
      std::size_t position = 0, own_stride = 0, stride = 1;
      std::vector<ov_node_t> members;
      for (ov_node_t *m = ov_table_get_nodes(table); *m != nullptr; ++m) members.push_back(*m);
      for (std::size_t k = members.size(); k-- > 0;) {
        const std::size_t j = joint.index_of(members[k]);
        if (members[k] == node) own_stride = stride;
        position += x[j] * stride;
        stride *= static_cast<std::size_t>(joint.states[j]);
      }
      const std::size_t row_start = position - x[i] * own_stride;
      double row = 0.0;
      for (ov_count_t s = 0; s < joint.states[i]; ++s)
        row += data[row_start + static_cast<std::size_t>(s) * own_stride];
      w *= data[position] / row;
      if (node != skip_a && node != skip_b) w *= ov_node_get_entered_finding(node, static_cast<ov_index_t>(x[i]));
    }
    joint.weights[cell] = w;
    joint.total += w;
  }
  return joint;
}

// The sum of the joint over every configuration with node `a` in state sa
// (and node `b` in state sb when b is not the node count).
double marginal(const Joint &joint, std::size_t a, std::size_t sa, std::size_t b, std::size_t sb) {
  double sum = 0.0;
  for (std::size_t cell = 0; cell < joint.weights.size(); ++cell) {
    std::size_t rest = cell;
    bool match = true;
    for (std::size_t i = joint.nodes.size(); i-- > 0 && match;) {
      const std::size_t state = rest % static_cast<std::size_t>(joint.states[i]);
      rest /= static_cast<std::size_t>(joint.states[i]);
      if ((i == a && state != sa) || (i == b && state != sb)) match = false;
    }
    if (match) sum += joint.weights[cell];
  }
  return sum;
}

// After a sum propagation. In fast retraction mode a node's belief, and a
// marginal, leave out the findings of the nodes they are over.
void check_against_enumeration(ov_domain_t domain, bool fast) {
  const Joint joint = enumerate(domain);
  check(joint.total > 0.0, "a propagation succeeded on impossible evidence");
  const double constant = ov_domain_get_normalization_constant(domain);
  check(std::fabs(constant - joint.total) <= 1e-3 * joint.total + 1e-30, "probability of the evidence");
  for (std::size_t i = 0; i < joint.nodes.size(); ++i) {
    const Joint own = fast ? enumerate(domain, joint.nodes[i]) : joint;
    for (ov_count_t s = 0; s < joint.states[i]; ++s) {
      const double expected = marginal(own, i, static_cast<std::size_t>(s), joint.nodes.size(), 0) / own.total;
      check(std::fabs(ov_node_get_belief(joint.nodes[i], s) - expected) <= 1e-4, "a belief");
    }
  }
}

void check_pair_marginal(ov_domain_t domain, ov_node_t a, ov_node_t b, bool fast) {
  ov_node_t list[] = {a, b, nullptr};
  ov_table_t table = ov_domain_get_marginal(domain, list);
  if (table == nullptr) return;
  const Joint joint = fast ? enumerate(domain, a, b) : enumerate(domain);
  const std::size_t ia = joint.index_of(a), ib = joint.index_of(b);
  // The table's own node order decides its layout; the last varies fastest.
  ov_node_t *members = ov_table_get_nodes(table);
  const ov_number_t *data = ov_table_get_data(table);
  check(members[0] != nullptr && members[1] != nullptr && members[2] == nullptr, "marginal table nodes");
  const std::size_t first = joint.index_of(members[0]), second = joint.index_of(members[1]);
  check((first == ia && second == ib) || (first == ib && second == ia), "marginal table nodes");
  for (ov_count_t s = 0; s < joint.states[first]; ++s)
    for (ov_count_t t = 0; t < joint.states[second]; ++t) {
      const double expected =
          marginal(joint, first, static_cast<std::size_t>(s), second, static_cast<std::size_t>(t)) / joint.total;
      const double got = data[static_cast<std::size_t>(s * joint.states[second] + t)];
      check(std::fabs(got - expected) <= 1e-4, "a two-node marginal");
    }
  ov_table_delete(table);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Bytes in{data, size};
  ov_domain_t domain = ov_new_domain();
  std::vector<ov_node_t> nodes;
  bool fresh = false; // beliefs reflect every table and finding
  bool fast = false;  // of the last propagation
  auto pick = [&]() { return nodes[in.next() % nodes.size()]; };
  for (int step = 0; step < 200 && !in.empty(); ++step) {
    const std::uint8_t op = in.next() % 16;
    if (nodes.empty() && op != 0) continue;
    switch (op) {
    case 0:
      if (nodes.size() < max_nodes) {
        ov_node_t node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
        check(node != nullptr, "a new node");
        ov_node_set_number_of_states(node, 1 + in.next() % max_states);
        nodes.push_back(node);
      }
      break;
    case 1: {
      const std::size_t i = in.next() % nodes.size();
      if (ov_node_delete(nodes[i]) == ov_error_none) nodes.erase(nodes.begin() + static_cast<std::ptrdiff_t>(i));
      break;
    }
    case 2: {
      ov_node_t child = pick(), parent = pick();
      ov_node_add_parent(child, parent);
      break;
    }
    case 3: {
      ov_node_t child = pick(), parent = pick();
      ov_node_remove_parent(child, parent);
      break;
    }
    case 4: {
      ov_node_t a = pick(), b = pick();
      ov_node_reverse_edge(a, b);
      break;
    }
    case 5: ov_node_set_number_of_states(pick(), 1 + in.next() % max_states); break;
    case 6: {
      // New table data: small bytes are zeros, so rows may be partly zero.
      ov_node_t node = pick();
      ov_table_t table = ov_node_get_table(node);
      ov_number_t *cells = ov_table_get_data(table);
      const ov_count_t cells_count = ov_table_get_size(table);
      if (cells == nullptr || cells_count <= 0) break;
      for (ov_count_t k = 0; k < cells_count; ++k) {
        const std::uint8_t b = in.next();
        cells[k] = b < 40 ? 0.0f : static_cast<ov_number_t>(b) / 255.0f;
      }
      ov_node_touch_table(node);
      break;
    }
    case 7: ov_domain_compile(domain); break;
    case 8: ov_domain_uncompile(domain); break;
    case 9: {
      ov_node_t node = pick();
      ov_node_select_state(node, in.next() % ov_node_get_number_of_states(node));
      break;
    }
    case 10: {
      ov_node_t node = pick();
      const std::uint8_t b = in.next();
      ov_node_enter_finding(node, in.next() % ov_node_get_number_of_states(node),
                            b < 60 ? 0.0f : static_cast<ov_number_t>(b) / 64.0f);
      break;
    }
    case 11: ov_node_retract_findings(pick()); break;
    case 12: {
      const std::uint8_t how = in.next();
      const ov_equilibrium_t equilibrium = how & 1u ? ov_equilibrium_max : ov_equilibrium_sum;
      const ov_evidence_mode_t mode = how & 2u ? ov_mode_fast_retraction : ov_mode_normal;
      fresh = ov_domain_propagate(domain, equilibrium, mode) == ov_error_none && equilibrium == ov_equilibrium_sum;
      fast = mode == ov_mode_fast_retraction;
      continue; // keeps `fresh`
    }
    case 13:
      if (fresh) check_against_enumeration(domain, fast);
      continue;
    case 14:
      if (fresh) check_pair_marginal(domain, pick(), pick(), fast);
      continue;
    case 15:
      if (ov_domain_simulate(domain) == ov_error_none)
        for (ov_node_t node : nodes) {
          const ov_index_t s = ov_node_get_sampled_state(node);
          check(s >= 0 && s < ov_node_get_number_of_states(node), "a sampled state");
        }
      continue;
    }
    fresh = false;
  }
  ov_domain_delete(domain);
  return 0;
}
