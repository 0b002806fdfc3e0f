// Comparing two networks through the public interface, for the readers and
// writers of the exchange formats.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "orvel.h"

namespace orvel::test {

inline std::vector<ov_node_t> all_nodes(ov_domain_t domain) {
  std::vector<ov_node_t> nodes;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) nodes.push_back(n);
  return nodes;
}

inline std::vector<std::size_t> parent_positions(ov_node_t node, const std::vector<ov_node_t> &nodes) {
  std::vector<std::size_t> positions;
  for (ov_node_t *p = ov_node_get_parents(node); *p != nullptr; ++p)
    for (std::size_t i = 0; i < nodes.size(); ++i)
      if (nodes[i] == *p) positions.push_back(i);
  return positions;
}

inline std::vector<std::string> parent_names(ov_node_t node) {
  std::vector<std::string> names;
  for (ov_node_t *p = ov_node_get_parents(node); *p != nullptr; ++p) names.push_back(ov_node_get_name(*p));
  return names;
}

// Same nodes (matched by name, or with `by_position` by their place in the
// domain), same states and labels (not compared by position), parents in
// order, and tables within `tolerance`.
inline void expect_same_network(ov_domain_t a, ov_domain_t b, double tolerance, const std::string &what,
                                bool by_position = false) {
  std::vector<ov_node_t> na = all_nodes(a), nb = all_nodes(b);
  ASSERT_EQ(na.size(), nb.size()) << what;
  for (std::size_t i = 0; i < na.size(); ++i) {
    ov_node_t x = na[i], y = by_position ? nb[i] : ov_domain_get_node_by_name(b, ov_node_get_name(x));
    const std::string name = ov_node_get_name(x);
    ASSERT_NE(y, nullptr) << what << " " << name;
    const ov_count_t states = ov_node_get_number_of_states(x);
    ASSERT_EQ(states, ov_node_get_number_of_states(y)) << what << " " << name;
    if (by_position) {
      EXPECT_EQ(parent_positions(x, na), parent_positions(y, nb)) << what << " " << name;
    } else {
      EXPECT_EQ(parent_names(x), parent_names(y)) << what << " " << name;
      for (ov_count_t s = 0; s < states; ++s)
        EXPECT_STREQ(ov_node_get_state_label(x, s), ov_node_get_state_label(y, s)) << what << " " << name;
    }
    ov_table_t tx = ov_node_get_table(x), ty = ov_node_get_table(y);
    const ov_count_t size = ov_table_get_size(tx);
    ASSERT_EQ(size, ov_table_get_size(ty)) << what << " " << name;
    const ov_number_t *dx = ov_table_get_data(tx), *dy = ov_table_get_data(ty);
    for (ov_count_t k = 0; k < size; ++k) ASSERT_NEAR(dx[k], dy[k], tolerance) << what << " " << name << " cell " << k;
  }
}

// Compiles both, propagates and compares the beliefs of nodes of the same
// name.
inline void expect_same_beliefs(ov_domain_t a, ov_domain_t b, const std::string &what) {
  ASSERT_EQ(ov_domain_compile(a), ov_error_none) << what;
  ASSERT_EQ(ov_domain_compile(b), ov_error_none) << what;
  for (ov_node_t x : all_nodes(a)) {
    ov_node_t y = ov_domain_get_node_by_name(b, ov_node_get_name(x));
    for (ov_count_t s = 0; s < ov_node_get_number_of_states(x); ++s)
      ASSERT_NEAR(ov_node_get_belief(x, s), ov_node_get_belief(y, s), 1e-6) << what << " " << ov_node_get_name(x);
  }
}

// Every shared network goes NET -> the format -> NET: the format's copy
// equals the original exactly (nodes matched by place with `by_position`,
// for formats without names), and the NET file written from the copy reads
// back to it within the NET writer's six significant digits.
inline void expect_shared_networks_round_trip(const std::string &format, ov_status_t (*save)(ov_domain_t, ov_string_t),
                                              ov_domain_t (*parse)(ov_string_t, ov_parse_error_handler_t, void *),
                                              bool by_position = false) {
  namespace fs = std::filesystem;
  const std::string file = (fs::temp_directory_path() / ("orvel_round_trip." + format)).string();
  const std::string net_file = (fs::temp_directory_path() / ("orvel_round_trip_" + format + ".net")).string();
  int networks = 0;
  for (const auto &entry : fs::directory_iterator(ORVEL_NETWORKS)) {
    if (entry.path().extension() != ".net") continue;
    const std::string name = entry.path().stem().string();
    ov_domain_t first = ov_net_parse_domain(entry.path().c_str(), nullptr, nullptr);
    ASSERT_NE(first, nullptr) << name;
    ASSERT_EQ(save(first, file.c_str()), ov_error_none) << name;
    ov_domain_t copy = parse(file.c_str(), nullptr, nullptr);
    ASSERT_NE(copy, nullptr) << name;
    expect_same_network(first, copy, 0.0, name + " as " + format, by_position);
    ASSERT_EQ(ov_domain_save_as_net(copy, net_file.c_str()), ov_error_none) << name;
    ov_domain_t back = ov_net_parse_domain(net_file.c_str(), nullptr, nullptr);
    ASSERT_NE(back, nullptr) << name;
    expect_same_network(copy, back, 1e-6, name + " back as NET");
    for (ov_domain_t d : {first, copy, back}) ov_domain_delete(d);
    ++networks;
  }
  EXPECT_EQ(networks, 18);
  std::remove(file.c_str());
  std::remove(net_file.c_str());
}

} // namespace orvel::test
