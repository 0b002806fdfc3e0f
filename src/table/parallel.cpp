// The frame of all table kernels: set-up, the split of the outer dimension,
// and the start and join of workers.
#include "table/parallel.h"

#include <memory>
#include <new>
#include <system_error>

#include "api/error.h"
#include "model/domain.h"
#include "table/table.h"

namespace orvel {

std::uint32_t choose_worker_count(const Domain *domain, std::uint32_t outer_count, std::uint64_t item_cost) noexcept {
  const std::uint64_t grain = domain->grain_size;
  const std::uint64_t cost = item_cost == 0 ? 1 : item_cost;
  std::uint64_t per_grain = grain / cost + (grain % cost != 0 ? 1 : 0); // items per grain, rounded up
  if (per_grain == 0) per_grain = 1;
  const std::uint64_t n = outer_count / per_grain;
  if (n == 0) return 1;
  return static_cast<std::uint32_t>(n < domain->concurrency_level ? n : domain->concurrency_level);
}

void worker_run(const WorkerBlock &block) noexcept {
  KernelCall call = block.call;
  block.kernel(call);
  for (std::uint32_t item = 1; item < block.item_count; ++item) {
    if (call.target_data != nullptr) call.target_data += block.item_stride;
    if (call.target_utility_data != nullptr) call.target_utility_data += block.item_stride;
    if (call.source_data != nullptr) call.source_data += block.source_step;
    if (call.source_values != nullptr) call.source_values += block.source_step;
    if (call.target_cg != nullptr)
      call.target_cg += static_cast<std::size_t>(block.item_stride) * block.target_cg_stride;
    if (call.source_cg != nullptr)
      call.source_cg += static_cast<std::size_t>(block.source_step) * block.source_cg_stride;
    block.kernel(call);
  }
}

namespace {

bool start_thread(WorkerBlock &block) noexcept {
  try {
    block.thread = std::thread([&block] { worker_run(block); });
    return true;
  } catch (const std::system_error &) {
    return false;
  }
}

// The dimensions a kernel runs over: the plan's current ones or a shape.
struct Dimensions {
  const PlanDimension *dims;
  std::uint32_t shared_count;
  std::uint32_t inner_count;
  Size base_offset;
};

// The first call, at the first cell of each table.
KernelCall first_call(KernelPlan *plan, const Dimensions &d, const ov_number_t *source_data,
                      double *source_values) noexcept {
  KernelCall call;
  call.plan = plan;
  const Table *T = plan->finer();
  const Table *S = plan->coarser();
  if (plan->target != nullptr && plan->target->data) call.target_data = plan->target->data.get() + d.base_offset;
  if (plan->target_utility != nullptr && plan->target_utility->data)
    call.target_utility_data = plan->target_utility->data.get() + d.base_offset;
  if (T->cg_data) call.target_cg = T->cg_data.get() + static_cast<std::size_t>(d.base_offset) * T->cg_stride;
  call.source_data = source_data;
  call.source_values = source_values;
  if (S->cg_data) call.source_cg = S->cg_data.get();
  call.dimensions = d.dims;
  call.shared_left = d.shared_count;
  call.inner_left = d.inner_count;
  return call;
}

// The sequential case: one call over all dimensions.
ov_status_t run_sequential(KernelCall call, KernelFunction kernel, Size work_length) noexcept {
  Buffer<double> work;
  if (work_length > 0) {
    work = alloc_array<double>(work_length);
    if (!work) return ov_error_no_memory;
    call.work_vector = work.get();
  }
  kernel(call);
  return ov_error_none;
}

ov_status_t run_kernel(KernelPlan *plan, const Dimensions &d, KernelFunction kernel, const ov_number_t *source_data,
                       double *source_values, Size work_length, std::uint32_t extra_cost, ThreadStarter start) {
  KernelCall call = first_call(plan, d, source_data, source_values);
  const Domain *domain = plan->domain;
  if (domain->concurrency_level < 2 || d.shared_count == 0) return run_sequential(call, kernel, work_length);

  // The cost of one outer item: every cell under it, each worth 1 + extra.
  const PlanDimension *dims = call.dimensions;
  std::uint64_t cost = static_cast<std::uint64_t>(extra_cost) + 1;
  for (std::uint32_t i = 1; i < d.shared_count + d.inner_count; ++i) {
    cost *= dims[i].count;
    if (cost > (std::uint64_t{1} << 40)) break; // already far beyond any grain
  }
  const std::uint32_t outer = dims[0].count;
  const std::uint32_t workers = choose_worker_count(domain, outer, cost);
  if (workers <= 1) return run_sequential(call, kernel, work_length);

  std::unique_ptr<WorkerBlock[]> blocks(new (std::nothrow) WorkerBlock[workers]);
  if (!blocks) return fail(ov_error_no_memory);
  Buffer<double> work;
  if (work_length > 0) {
    work = alloc_array<double>(size_multiply(work_length, workers));
    if (!work) return ov_error_no_memory;
  }

  // The split: consecutive runs of outer items, each worker's pointers at
  // the first cell of its run.
  const Table *T = plan->finer();
  const Table *S = plan->coarser();
  const Size item_stride = dims[0].stride;
  const Size source_step = S->size / outer;
  KernelCall shared = call;
  shared.dimensions = dims + 1;
  shared.shared_left = d.shared_count - 1;
  shared.work_vector = work.get();
  for (std::uint32_t w = 0; w < workers; ++w) {
    WorkerBlock &block = blocks[w];
    block.call = shared;
    block.kernel = kernel;
    block.item_count = worker_item_count(outer, workers, w);
    block.item_stride = item_stride;
    block.source_step = source_step;
    block.target_cg_stride = T->cg_stride;
    block.source_cg_stride = S->cg_stride;
    const std::size_t items = block.item_count;
    if (shared.target_data != nullptr) shared.target_data += items * item_stride;
    if (shared.target_utility_data != nullptr) shared.target_utility_data += items * item_stride;
    if (shared.source_data != nullptr) shared.source_data += items * source_step;
    if (shared.source_values != nullptr) shared.source_values += items * source_step;
    if (shared.target_cg != nullptr) shared.target_cg += items * item_stride * T->cg_stride;
    if (shared.source_cg != nullptr) shared.source_cg += items * source_step * S->cg_stride;
    if (shared.work_vector != nullptr) shared.work_vector += work_length;
  }

  for (std::uint32_t w = 0; w < workers; ++w) blocks[w].started = start(blocks[w]);

  // All decisions are taken at the join, in block order. A worker that never
  // started, or whose join fails, has its share run here. A successful join
  // also releases the thread, so there is no separate close that could fail.
  for (std::uint32_t w = 0; w < workers; ++w) {
    WorkerBlock &block = blocks[w];
    if (!block.started) {
      worker_run(block);
      continue;
    }
    try {
      block.thread.join();
    } catch (const std::system_error &) {
      if (block.thread.joinable()) block.thread.detach();
      worker_run(block);
    }
  }
  return ov_error_none;
}

} // namespace

ov_status_t run_table_kernel(KernelPlan *plan, KernelFunction kernel, const ov_number_t *source_data,
                             double *source_values, Size work_length, std::uint32_t extra_cost) {
  return run_table_kernel_with(plan, kernel, source_data, source_values, work_length, extra_cost, start_thread);
}

ov_status_t run_table_kernel_with(KernelPlan *plan, KernelFunction kernel, const ov_number_t *source_data,
                                  double *source_values, Size work_length, std::uint32_t extra_cost,
                                  ThreadStarter start) {
  const Dimensions d{plan->current(), plan->shared_count, plan->inner_count, plan->base_offset};
  return run_kernel(plan, d, kernel, source_data, source_values, work_length, extra_cost, start);
}

ov_status_t run_shaped_kernel(KernelPlan *plan, const PlanShape &shape, KernelFunction kernel,
                              const ov_number_t *source_data, double *source_values, Size work_length,
                              std::uint32_t extra_cost) {
  const Dimensions d{shape.dimensions.data(), shape.shared_count, shape.inner_count, shape.base_offset};
  // Below two grains no worker would start: call the kernel at once.
  const Domain *domain = plan->domain;
  if (work_length == 0 && (domain->concurrency_level < 2 || d.shared_count == 0 ||
                           static_cast<std::uint64_t>(plan->finer()->size) * (std::uint64_t{extra_cost} + 1) <
                               2 * static_cast<std::uint64_t>(domain->grain_size))) {
    kernel(first_call(plan, d, source_data, source_values));
    return ov_error_none;
  }
  return run_kernel(plan, d, kernel, source_data, source_values, work_length, extra_cost, start_thread);
}

} // namespace orvel
