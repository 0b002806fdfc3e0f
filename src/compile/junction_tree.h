// Junction trees of a compiled domain.
#pragma once

#include <cstdint>

#include "orvel.h"

struct ov_junction_tree_s {
  ov_domain_s *domain = nullptr;
  // Set when a node table of the tree changed, so that the next propagation
  // reloads the potentials.
  bool tables_changed = false;
};
