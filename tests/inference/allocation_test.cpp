// Propagation after compile allocates nothing: the allocator of this test
// executable counts every malloc, calloc and realloc while a test asks it
// to (which covers operator new, since it allocates through malloc).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "brute_force.h"
#include "compile/net_structure.h"
#include "orvel.h"

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && defined(__GLIBC__)
#define ORVEL_COUNT_ALLOCATIONS 1
namespace {
std::atomic<bool> counting{false};
std::atomic<long> allocations{0};
} // namespace

extern "C" {
void *__libc_malloc(std::size_t);
void *__libc_calloc(std::size_t, std::size_t);
void *__libc_realloc(void *, std::size_t);

void *malloc(std::size_t size) {
  if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void *calloc(std::size_t count, std::size_t size) {
  if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}
void *realloc(void *block, std::size_t size) {
  if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(block, size);
}
}
#endif

namespace orvel::test {
namespace {

TEST(PropagationMemory, NoAllocationAfterCompile) {
#ifndef ORVEL_COUNT_ALLOCATIONS
  GTEST_SKIP() << "allocation counting needs the plain glibc allocator";
#else
  std::mt19937 rng(11);
  ov_domain_t source = parse_shared("alarm.net");
  ASSERT_EQ(ov_domain_compile(source), ov_error_none);
  // A clone of a compiled domain propagates without allocating too.
  ov_domain_t clone = ov_domain_clone(source);
  ASSERT_NE(clone, nullptr);
  // So does a compressed domain, through its maps.
  ov_domain_t compressed = parse_shared("alarm.net");
  ASSERT_EQ(ov_domain_compile(compressed), ov_error_none);
  ASSERT_GT(ov_domain_compress(compressed), 0.0);
  for (ov_domain_t domain : {source, clone, compressed}) {
    std::vector<ov_node_t> nodes;
    for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node))
      nodes.push_back(node);
    float sink = 0.0f;
    // The counter sees allocations made through operator new.
    counting = true;
    allocations = 0;
    {
      auto probe = std::make_unique<std::vector<int>>(16);
      EXPECT_EQ(probe->size(), 16u);
    }
    EXPECT_GE(allocations.load(), 1);
    allocations = 0;
    for (int round = 0; round < 30; ++round) {
      for (int k = 0; k < 4; ++k) {
        ov_node_t node = nodes[rng() % nodes.size()];
        const auto states = ov_node_get_number_of_states(node);
        if (rng() % 3 == 0)
          ov_node_enter_finding(node, static_cast<ov_index_t>(rng() % states), 0.5f);
        else
          ov_node_select_state(node, static_cast<ov_index_t>(rng() % states));
      }
      const auto equilibrium = round % 4 == 3 ? ov_equilibrium_max : ov_equilibrium_sum;
      const auto mode = round % 5 == 4 ? ov_mode_fast_retraction : ov_mode_normal;
      ov_domain_propagate(domain, equilibrium, mode); // impossible evidence may fail: it must not allocate either
      for (ov_node_t node : nodes) sink += ov_node_get_belief(node, 0);
      sink += static_cast<float>(ov_domain_get_normalization_constant(domain));
      if (round % 6 == 5) ov_domain_retract_findings(domain);
    }
    counting = false;
    EXPECT_EQ(allocations.load(), 0);
    EXPECT_GE(sink, 0.0f);
    ov_domain_delete(domain);
  }
#endif
}

// EM and the log-likelihood allocate for a run, not for a case: twice the
// cases, the same number of allocations (after a first run, whose buffers
// the later runs reuse).
TEST(PropagationMemory, EmAllocatesPerRunNotPerCase) {
#ifndef ORVEL_COUNT_ALLOCATIONS
  GTEST_SKIP() << "allocation counting needs the plain glibc allocator";
#else
  ov_domain_t domain = parse_shared("alarm.net");
  ASSERT_EQ(ov_domain_compile(domain), ov_error_none);
  std::vector<ov_node_t> nodes;
  for (ov_node_t node = ov_domain_get_first_node(domain); node != nullptr; node = ov_node_get_next(node))
    nodes.push_back(node);
  std::mt19937 rng(3);
  ASSERT_EQ(ov_domain_set_number_of_cases(domain, 400), 0);
  for (int i = 0; i < 400; ++i) {
    ASSERT_EQ(ov_domain_simulate(domain), 0);
    for (ov_node_t node : nodes)
      if (rng() % 5 != 0) ov_node_set_case_state(node, i, ov_node_get_sampled_state(node));
  }
  for (ov_node_t node : nodes) ASSERT_NE(ov_node_get_experience_table(node), nullptr);
  ASSERT_EQ(ov_domain_set_max_number_of_em_iterations(domain, 2), 0);
  long counts[3];
  for (int run = 0; run < 3; ++run) {
    ASSERT_EQ(ov_domain_set_number_of_cases(domain, run < 2 ? 200 : 400), 0);
    counting = true;
    allocations = 0;
    EXPECT_EQ(ov_domain_learn_tables(domain), 0);
    counting = false;
    counts[run] = allocations.load();
  }
  EXPECT_EQ(counts[1], counts[2]);
  ov_domain_delete(domain);
#endif
}

} // namespace
} // namespace orvel::test
