// KB files: every shared network saved and loaded, uncompiled (in both byte
// orders), compiled (big-endian) and compiled with findings propagated
// (little-endian); a compiled load costs a first propagation, so each
// compiled state goes through one order. The loaded domain writes the same
// bytes as the original (every field of the file) and gives bit-identical
// beliefs.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "io/kb_files.h"
#include "io/kb_format.h"
#include "orvel.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::uint8_t> kb_bytes(ov_domain_t domain, int order) {
  std::vector<std::uint8_t> bytes;
  EXPECT_EQ(orvel::kb_write_bytes(domain, nullptr, order, bytes), ov_error_none);
  return bytes;
}

// Every belief of every node, as bits.
std::vector<std::uint32_t> belief_bits(ov_domain_t domain) {
  std::vector<std::uint32_t> bits;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n))
    for (ov_count_t s = 0; s < ov_node_get_number_of_states(n); ++s) {
      ov_number_t b = ov_node_get_belief(n, s);
      std::uint32_t u;
      std::memcpy(&u, &b, 4);
      bits.push_back(u);
    }
  return bits;
}

// Findings on a few nodes that cannot make the evidence impossible: the
// likeliest state of two nodes (one with a weight), and likelihoods on
// others.
void enter_findings(ov_domain_t domain) {
  int k = 0;
  for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr && k < 4; n = ov_node_get_next(n), ++k) {
    if (k <= 1) {
      ov_count_t best = 0;
      for (ov_count_t s = 1; s < ov_node_get_number_of_states(n); ++s)
        if (ov_node_get_belief(n, s) > ov_node_get_belief(n, best)) best = s;
      ASSERT_EQ(ov_node_select_state(n, best), ov_error_none);
      // The second one keeps its state with a weight.
      if (k == 1) {
        ASSERT_EQ(ov_node_enter_finding(n, best, 0.5f), ov_error_none);
      }
    } else {
      ASSERT_EQ(ov_node_enter_finding(n, 0, 0.25f), ov_error_none);
    }
  }
  ASSERT_EQ(ov_domain_propagate(domain, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
}

void check_round_trip(ov_domain_t original, const std::string &what, bool propagate, std::vector<int> orders) {
  const int native = orvel::kb_native_order();
  const auto expected = kb_bytes(original, native);
  for (int order : orders) {
    const auto bytes = kb_bytes(original, order);
    ov_domain_t loaded = orvel::kb_read_bytes(bytes.data(), bytes.size(), nullptr);
    ASSERT_NE(loaded, nullptr) << what << " order " << order << ": " << ov_error_name(ov_error_code());
    EXPECT_EQ(kb_bytes(loaded, native), expected) << what << " order " << order;
    if (ov_domain_is_compiled(original)) {
      if (propagate) {
        ASSERT_EQ(ov_domain_propagate(loaded, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      }
      EXPECT_EQ(belief_bits(loaded), belief_bits(original)) << what << " order " << order;
    }
    ov_domain_delete(loaded);
  }
}

TEST(KbRoundTrip, EverySharedNetworkInEveryStateAndByteOrder) {
  int networks = 0;
  for (const auto &entry : fs::directory_iterator(ORVEL_NETWORKS)) {
    if (entry.path().extension() != ".net") continue;
    const std::string file = entry.path().string();
    ov_domain_t d = ov_net_parse_domain(file.c_str(), nullptr, nullptr);
    ASSERT_NE(d, nullptr) << file;
    check_round_trip(d, file + " uncompiled", false, {1, 2});
    ASSERT_EQ(ov_domain_compile(d), ov_error_none) << file;
    check_round_trip(d, file + " compiled", false, {1});
    enter_findings(d);
    check_round_trip(d, file + " with findings", true, {2});
    ov_domain_delete(d);
    ++networks;
  }
  EXPECT_GE(networks, 18);
}

// A chain graph: the potential over two children keeps its place among the
// tables, and the normaliser is made again.
TEST(KbRoundTrip, ChainGraph) {
  ov_domain_t d = ov_net_parse_from_string("node A { states = (\"a\" \"b\"); }\n"
                                           "node B { states = (\"a\" \"b\"); }\n"
                                           "node C { states = (\"a\" \"b\"); }\n"
                                           "potential (A) { data = (0.5 0.5); }\n"
                                           "potential (B C | A) { data = (((1 2) (3 4)) ((5 6) (7 8))); }\n",
                                           nullptr);
  ASSERT_NE(d, nullptr);
  check_round_trip(d, "chain uncompiled", false, {1, 2});
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  check_round_trip(d, "chain compiled", false, {1});
  enter_findings(d);
  check_round_trip(d, "chain with findings", true, {2});
  ov_domain_delete(d);
}

} // namespace
