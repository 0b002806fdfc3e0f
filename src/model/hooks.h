// What the model and table layers need from the compiled state and from
// simulation, which sit above them: the record types stay opaque here and
// the functions are defined up there (compile/compiled_forest.cpp,
// learn/random.cpp). This is the one way down-layer code reaches up; see
// src/LAYERS.md.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "model/forward.h"

namespace orvel {

struct CompiledForest; // compile/compiled_forest.h
struct RandomState;    // learn/random.h

// The compiled state of a domain: junction forest, kernel plans, saved
// table memory and the work buffers of propagation.
struct CompiledForestDeleter {
  void operator()(CompiledForest *forest) const noexcept;
};
using CompiledForestPtr = std::unique_ptr<CompiledForest, CompiledForestDeleter>;
// An empty forest, for a new domain. Throws bad_alloc.
CompiledForestPtr compiled_forest_new();

// Releases the junction forest (and with drop_triangulation the
// triangulation too: neighbours, fill-ins, levels and elimination numbers),
// leaving node tables, entered evidence and cases alone. This is both the
// uncompile and the roll-back of every failed compile stage.
void release_forest(Domain *domain, bool drop_triangulation) noexcept;
// Releases the forest and the triangulation if the domain is triangulated.
void domain_uncompile(Domain *domain) noexcept;
// Frees the saved junction-tree data.
void domain_reclaim_memory_tables(Domain *domain) noexcept;
// Whether the domain's forest is compressed.
bool forest_is_compressed(const Domain *domain) noexcept;
// Marks that a node table of the tree changed, so that the next propagation
// reloads the potentials.
void junction_tree_note_table_change(JunctionTree *tree) noexcept;

// Kernel plans are owned by their domain's forest (see table/plan.h).
struct KernelPlanDeleter {
  void operator()(KernelPlan *plan) const noexcept;
};
using KernelPlanPtr = std::unique_ptr<KernelPlan, KernelPlanDeleter>;
// Every kernel plan the domain owns, oldest first: a plan's serial is its
// position here from 1.
std::vector<KernelPlanPtr> &domain_kernel_plans(Domain *domain) noexcept;

// The random number generator of a domain, seeded at creation.
struct RandomStateDeleter {
  void operator()(RandomState *state) const noexcept;
};
using RandomStatePtr = std::unique_ptr<RandomState, RandomStateDeleter>;
// A generator seeded with `seed`. Throws bad_alloc.
RandomStatePtr random_state_new(std::uint32_t seed);
// Gives `to` the state of `from`: both draw the same sequence from here.
void random_state_assign(RandomState *to, const RandomState *from) noexcept;

} // namespace orvel
