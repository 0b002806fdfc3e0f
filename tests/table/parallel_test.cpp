// The kernel frame: the worker count, the split of the outer dimension, and
// the fall-back rules for threads that do not start.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "api/error.h"
#include "table/algebra.h"
#include "table/kernels.h"
#include "table/parallel.h"
#include "table/plan.h"
#include "table_helpers.h"

namespace orvel {
namespace {

using test::Net;

TEST(ChooseWorkerCount, GrainArithmetic) {
  // {level, outer items, cost per item, workers}: with the grain 10000 an
  // item costing c makes g = ceil(10000 / c) items the least share.
  const std::uint32_t cases[][4] = {
      {4, 100, 1000, 4}, // g = 10, n = 10
      {4, 7, 1000, 1},   // g = 10, n = 0
      {4, 30, 1000, 3},  // n = 3, below the level
      {4, 100, 3000, 4}, // g = 4, n = 25
      {4, 7, 3000, 1},   // g = 4, n = 1
      {4, 8, 3000, 2},   // g = 4, n = 2
      {4, 1000, 20000, 4}, {1, 1000, 20000, 1},
  };
  Net net;
  net.domain->grain_size = 10000;
  for (const auto &c : cases) {
    net.domain->concurrency_level = c[0];
    EXPECT_EQ(choose_worker_count(net.domain, c[1], c[2]), c[3]) << c[1] << " items of cost " << c[2];
  }
  // Shares differ by at most one, the larger first.
  const std::uint32_t ten_over_four[] = {3, 3, 2, 2};
  for (std::uint32_t w = 0; w < 4; ++w) {
    EXPECT_EQ(worker_item_count(10, 4, w), ten_over_four[w]);
    EXPECT_EQ(worker_item_count(100, 4, w), 25u);
  }
}

// What the starters below saw, per worker block.
struct Seen {
  std::uint32_t item_count;
  std::ptrdiff_t target_offset, values_offset;
};
std::mutex seen_mutex;
std::vector<Seen> seen;
const float *seen_base = nullptr;
const double *seen_values = nullptr;
std::atomic<int> starts{0};

bool record_and_refuse(WorkerBlock &block) noexcept {
  std::lock_guard<std::mutex> lock(seen_mutex);
  seen.push_back({block.item_count, block.call.target_data - seen_base, block.call.source_values - seen_values});
  return false;
}

bool count_and_start(WorkerBlock &block) noexcept {
  ++starts;
  try {
    block.thread = std::thread([&block] { worker_run(block); });
    return true;
  } catch (...) {
    return false;
  }
}

bool refuse(WorkerBlock &) noexcept { return false; }

TEST(RunTableKernel, SplitsTheOuterDimensionInOrder) {
  Net net;
  Node *a = net.discrete(10), *b = net.discrete(3);
  Table *t = net.table({a, b});
  Table *s = net.table({a});
  for (Size i = 0; i < t->size; ++i) t->data[i] = static_cast<float>(i);
  test::set_level(net, 4);
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  plan_prepare(plan, false);
  ASSERT_EQ(plan->current()[0].count, 10u);
  double *values = ensure_scratch(net.domain, s->size);
  seen.clear();
  seen_base = t->data.get();
  seen_values = values;
  ASSERT_EQ(run_table_kernel_with(plan, kernel_sum, nullptr, values, 0, 0, record_and_refuse), ov_error_none);
  ASSERT_EQ(seen.size(), 4u);
  const std::uint32_t counts[] = {3, 3, 2, 2};
  const std::uint32_t firsts[] = {0, 3, 6, 8};
  for (std::uint32_t w = 0; w < 4; ++w) {
    EXPECT_EQ(seen[w].item_count, counts[w]);
    EXPECT_EQ(seen[w].target_offset, firsts[w] * 3) << "worker " << w;
    EXPECT_EQ(seen[w].values_offset, firsts[w]) << "worker " << w;
  }
  // Every share ran in the joining thread all the same.
  for (std::uint32_t k = 0; k < 10; ++k) EXPECT_EQ(values[k], 9.0 * k + 3.0);
  plan_reset(plan);
  plan_delete(plan);
}

TEST(RunTableKernel, NoThreadAtLevelOneOrWithoutSharedDimension) {
  Net net;
  Node *a = net.discrete(100), *b = net.discrete(100);
  Table *t = net.table({a, b});
  Table *s = net.table({a});
  Table *empty = net.table({});
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  KernelPlan *total = plan_new(t, nullptr, empty, nullptr);
  double *values = ensure_scratch(net.domain, s->size);
  auto run = [&](KernelPlan *p) {
    starts = 0;
    plan_prepare(p, false);
    run_table_kernel_with(p, kernel_sum, nullptr, values, 0, 0, count_and_start);
    plan_reset(p);
    return starts.load();
  };
  test::set_level(net, 1);
  EXPECT_EQ(run(plan), 0);
  test::set_level(net, 8);
  EXPECT_EQ(run(total), 0);
  EXPECT_EQ(values[0], 10000.0);
  // With a shared dimension and a small grain, workers do start.
  EXPECT_EQ(run(plan), 8);
  // A table below two grains runs sequentially whatever the level.
  test::set_level(net, 8, 6000);
  EXPECT_EQ(run(plan), 0);
}

TEST(RunTableKernel, FailedStartsGiveTheSequentialResult) {
  Net net;
  Node *a = net.discrete(12), *b = net.discrete(7), *c = net.discrete(5);
  std::mt19937 rng(11);
  Table *t = net.table({a, b, c});
  Table *s = net.table({c, a});
  test::fill_random(t, rng);
  test::fill_random(s, rng);
  Table *sequential = table_clone(t);
  KernelPlan *plan = plan_new(sequential, nullptr, s, nullptr);
  test::set_level(net, 1);
  ASSERT_EQ(table_multiply_into(plan, false), ov_error_none);
  plan_delete(plan);

  test::set_level(net, 4);
  plan = plan_new(t, nullptr, s, nullptr);
  plan_prepare(plan, false);
  ASSERT_EQ(run_table_kernel_with(plan, kernel_multiply, s->data.get(), nullptr, 0, 0, refuse), ov_error_none);
  plan_reset(plan);
  EXPECT_EQ(test::data_of(t), test::data_of(sequential));
}

// A kernel that writes the address of its work vector into each target cell
// of its call, as a float index relative to a base.
const double *work_base = nullptr;
void mark_work_vector(const KernelCall &call) {
  call.work_vector[0] = 1.0;
  const float index = static_cast<float>(call.work_vector - work_base);
  ov_number_t *t = call.target_data;
  const PlanDimension *d = call.dimensions;
  // One outer item at a time: all cells of the remaining dimensions.
  std::uint32_t cells = 1;
  for (std::uint32_t i = 0; i < call.shared_left + call.inner_left; ++i) cells *= d[i].count;
  for (std::uint32_t i = 0; i < cells; ++i) t[i] = index;
}

TEST(RunTableKernel, EachWorkerHasItsOwnWorkVector) {
  Net net;
  Node *a = net.discrete(8), *b = net.discrete(50);
  Table *t = net.table({a, b});
  Table *s = net.table({a});
  test::set_level(net, 4, 1);
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  plan_prepare(plan, false);
  seen.clear();
  ASSERT_EQ(run_table_kernel_with(plan, mark_work_vector, nullptr, nullptr, 3, 0,
                                  [](WorkerBlock &block) noexcept {
                                    work_base = block.call.work_vector - 0; // the first block's comes first
                                    return false;
                                  }),
            ov_error_none);
  plan_reset(plan);
  // Two items per worker; the vectors are three doubles apart, the last
  // block's pointer was recorded last, so offsets count down to 0.
  std::set<float> distinct(t->data.get(), t->data.get() + t->size);
  EXPECT_EQ(distinct.size(), 4u);
  EXPECT_EQ(t->data[0], -9.0f);
  EXPECT_EQ(t->data[7 * 50], 0.0f);
}

} // namespace
} // namespace orvel
