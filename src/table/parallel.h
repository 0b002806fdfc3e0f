// Running a table kernel over a plan, in the calling thread or split over
// worker threads that live only for the one call.
//
// The outermost (shared) dimension of the plan is divided among the workers;
// each works on its own part of the target, so no lock is needed. The
// domain's grain size and concurrency level decide how many workers start;
// at level 1 none ever does.
#pragma once

#include <cstdint>
#include <thread>

#include "api/memory.h"
#include "model/forward.h"
#include "orvel.h"
#include "table/plan.h"

namespace orvel {

// The arguments of one kernel call: where it starts in each array and the
// dimensions left for it.
struct KernelCall {
  const KernelPlan *plan = nullptr;
  ov_number_t *target_data = nullptr;
  const ov_number_t *source_data = nullptr;
  ov_number_t *target_utility_data = nullptr;
  double *target_cg = nullptr;
  double *source_values = nullptr; // a caller's double vector, mostly the domain's scratch
  double *source_cg = nullptr;
  double *work_vector = nullptr; // private to the call
  const PlanDimension *dimensions = nullptr;
  std::uint32_t shared_left = 0;
  std::uint32_t inner_left = 0;
};

// Does the arithmetic on the block of a call. A kernel cannot fail: it
// neither allocates nor records errors.
using KernelFunction = void (*)(const KernelCall &call);

// A worker's share of the outer dimension.
struct WorkerBlock {
  KernelCall call;
  KernelFunction kernel = nullptr;
  std::uint32_t item_count = 0; // values of the outer dimension
  Size item_stride = 0;         // target cells per outer value
  Size source_step = 0;         // source cells per outer value
  Size target_cg_stride = 0;    // doubles per target configuration
  Size source_cg_stride = 0;    // doubles per source configuration
  std::thread thread;
  bool started = false;
};

// Starts a worker's thread; false if it could not be started.
using ThreadStarter = bool (*)(WorkerBlock &block) noexcept;

// Runs `kernel` over the plan's current dimensions, which must have been
// prepared. `work_length` doubles of private scratch are given to each call,
// and `extra_cost` is added to the cost of 1 per cell when deciding how many
// workers pay off. Returns none, or no_memory before any kernel has run.
ov_status_t run_table_kernel(KernelPlan *plan, KernelFunction kernel, const ov_number_t *source_data,
                             double *source_values, Size work_length, std::uint32_t extra_cost);
// The same with a chosen way of starting threads, for testing the fall-back
// rules.
ov_status_t run_table_kernel_with(KernelPlan *plan, KernelFunction kernel, const ov_number_t *source_data,
                                  double *source_values, Size work_length, std::uint32_t extra_cost,
                                  ThreadStarter start);

// As run_table_kernel, over a shape of the plan (plan_shape) in place of its
// current dimensions. Below two grains of work, or at concurrency level 1,
// the kernel is called at once with no set-up for workers.
ov_status_t run_shaped_kernel(KernelPlan *plan, const PlanShape &shape, KernelFunction kernel,
                              const ov_number_t *source_data, double *source_values, Size work_length,
                              std::uint32_t extra_cost);

// How many workers to use for `outer_count` items of cost `item_cost` each:
// at least 1, at most the concurrency level, and never so many that a worker
// gets less than a grain of work.
std::uint32_t choose_worker_count(const Domain *domain, std::uint32_t outer_count, std::uint64_t item_cost) noexcept;

// The number of outer items of worker `index` of `workers` for `outer_count`
// items: the first outer_count mod workers get one more.
inline std::uint32_t worker_item_count(std::uint32_t outer_count, std::uint32_t workers, std::uint32_t index) noexcept {
  return outer_count / workers + (index < outer_count % workers ? 1 : 0);
}

// The worker's body: the kernel on each of its outer items in turn.
void worker_run(const WorkerBlock &block) noexcept;

} // namespace orvel
