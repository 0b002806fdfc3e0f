// The compiled state of a domain, which the domain owns through one record:
// the junction forest, the kernel plans over its tables, the saved table
// memory and the work buffers of propagation. release_forest empties it;
// the record itself lives as long as its domain.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "api/memory.h"
#include "compile/clique.h"
#include "compile/junction_tree.h"
#include "compile/tree_walk.h"
#include "model/hooks.h"
#include "model/node_list.h"
#include "orvel.h"

namespace orvel {

struct CompiledForest {
  std::uint32_t clique_count = 0;        // also the source of clique numbers
  std::uint32_t junction_tree_count = 0; // also the source of tree numbers
  // The junction forest: cliques in list order and trees newest first. A
  // clique's or tree's position is its index here.
  std::vector<std::unique_ptr<Clique>> cliques;
  std::vector<std::unique_ptr<JunctionTree>> junction_trees;

  // Every kernel plan the domain owns, oldest first: a plan's serial is its
  // position here from 1. Plans belong to the compiled state and go with it.
  std::vector<KernelPlanPtr> kernel_plans;

  // The triangulation: these outlive a release that keeps it.
  std::uint32_t max_separators = 0;
  std::optional<NodeList> elimination_order;

  // Saved junction-tree data: the data, CG data and CG roles of every
  // forest table, in list order one behind the other.
  Buffer<ov_number_t> memory_table_data;
  Buffer<double> memory_table_cg;
  Buffer<std::int8_t> memory_table_kinds;
  std::uint32_t compressed = 0;
  // Strides of a clique's nodes during a walk of propagation, sized for the
  // largest clique at compile time.
  std::vector<std::uint32_t> walk_strides;
  // The path of a walk of propagation over a tree, reserved at compile time
  // for the tree with the most cliques.
  WalkStack walk_stack;
};

} // namespace orvel
