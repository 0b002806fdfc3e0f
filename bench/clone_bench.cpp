// Copying against building: ov_domain_clone of a compiled, propagated
// network next to ov_domain_compile of the same network from scratch; and
// unfolding a generated class hierarchy of 10^3, 10^4 and 10^5 nodes into a
// domain. Run with --benchmark_repetitions=N to get medians.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "compile/net_structure.h"

using namespace orvel::test;

namespace {

void clone_compiled(benchmark::State &state, const char *file) {
  ov_domain_t domain = parse_shared(file);
  if (domain == nullptr || ov_domain_compile(domain) != ov_error_none) {
    state.SkipWithError("cannot compile");
    return;
  }
  for (auto _ : state) {
    ov_domain_t copy = ov_domain_clone(domain);
    benchmark::DoNotOptimize(copy);
    state.PauseTiming();
    if (copy == nullptr) state.SkipWithError("clone failed");
    ov_domain_delete(copy);
    state.ResumeTiming();
  }
  ov_domain_delete(domain);
}

// Triangulation, junction forest, table data and the first propagation.
void compile_from_scratch(benchmark::State &state, const char *file) {
  ov_domain_t domain = parse_shared(file);
  if (domain == nullptr) {
    state.SkipWithError("cannot read");
    return;
  }
  for (auto _ : state) {
    if (ov_domain_compile(domain) != ov_error_none) state.SkipWithError("compile failed");
    state.PauseTiming();
    ov_domain_uncompile(domain);
    state.ResumeTiming();
  }
  ov_domain_delete(domain);
}

BENCHMARK_CAPTURE(clone_compiled, link, "link.net")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(compile_from_scratch, link, "link.net")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(clone_compiled, munin1, "munin1.net")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(compile_from_scratch, munin1, "munin1.net")->Unit(benchmark::kMillisecond);

// A class with one input, a chain of `length` nodes of two states fed by it,
// and the last node as output.
ov_class_t leaf_class(ov_class_collection_t cc, int length) {
  ov_class_t cls = ov_cc_new_class(cc);
  ov_node_t previous = ov_class_new_node(cls, ov_category_chance, ov_kind_discrete);
  ov_node_set_number_of_states(previous, 2);
  ov_node_add_to_inputs(previous);
  for (int i = 1; i < length; ++i) {
    ov_node_t node = ov_class_new_node(cls, ov_category_chance, ov_kind_discrete);
    ov_node_set_number_of_states(node, 2);
    ov_node_add_parent(node, previous);
    previous = node;
  }
  ov_node_add_to_outputs(previous);
  return cls;
}

// A class with one input node and `count` instances of `inner` in a row,
// each bound to the output of the one before (the first to the input); the
// last output is the output of the class.
ov_class_t row_class(ov_class_collection_t cc, ov_class_t inner, int count) {
  ov_class_t cls = ov_cc_new_class(cc);
  ov_node_t feed = ov_class_new_node(cls, ov_category_chance, ov_kind_discrete);
  ov_node_set_number_of_states(feed, 2);
  ov_node_add_to_inputs(feed);
  ov_node_t inner_input = ov_class_get_inputs(inner)[0], inner_output = ov_class_get_outputs(inner)[0];
  for (int i = 0; i < count; ++i) {
    ov_node_t instance = ov_class_new_instance(cls, inner);
    ov_node_set_input(instance, inner_input, feed);
    feed = ov_node_get_output(instance, inner_output);
  }
  ov_node_t out = ov_class_new_node(cls, ov_category_chance, ov_kind_discrete);
  ov_node_set_number_of_states(out, 2);
  ov_node_add_parent(out, feed);
  ov_node_add_to_outputs(out);
  return cls;
}

// Three levels: a row of n / 100 instances of a row of 10 instances of a
// chain of 11 nodes whose first node is the bound input, so about n nodes.
void unfold_hierarchy(benchmark::State &state) {
  ov_class_collection_t cc = ov_new_class_collection();
  ov_class_t leaf = leaf_class(cc, 11);
  ov_class_t middle = row_class(cc, leaf, 10);
  ov_class_t top = row_class(cc, middle, static_cast<int>(state.range(0)) / 100);
  std::int64_t nodes = 0;
  for (auto _ : state) {
    ov_domain_t domain = ov_class_create_domain(top);
    state.PauseTiming();
    if (domain == nullptr) state.SkipWithError(ov_error_name(ov_error_code()));
    nodes = 0;
    for (ov_node_t n = ov_domain_get_first_node(domain); n != nullptr; n = ov_node_get_next(n)) ++nodes;
    ov_domain_delete(domain);
    state.ResumeTiming();
  }
  state.counters["nodes"] = static_cast<double>(nodes);
  ov_cc_delete(cc);
}

BENCHMARK(unfold_hierarchy)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace
