// The kernel frame: when workers start, and the fall-back for threads that
// do not start.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
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

std::atomic<int> starts{0};

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

TEST(RunTableKernel, NoThreadAtLevelOneOrWithoutSharedDimension) {
  Net net;
  Node *a = net.discrete(100), *b = net.discrete(100);
  Table *t = net.table({a, b});
  Table *s = net.table({a});
  Table *empty = net.table({});
  KernelPlan *plan = plan_new(t, nullptr, s, nullptr);
  KernelPlan *total = plan_new(t, nullptr, empty, nullptr);
  double *values = ensure_scratch(net.domain, s->size);
  EXPECT_EQ(choose_worker_count(net.domain, 1, 1), 1u) << "less than a grain of work";
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

} // namespace
} // namespace orvel
