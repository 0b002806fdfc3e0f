// Models: expressions that generate a node's table.
#pragma once

#include "orvel.h"

struct ov_model_s {
  ov_node_s *node = nullptr; // the node whose table the model generates
  // Set when the generated table no longer matches the node's states or
  // expressions and must be generated again.
  bool table_stale = true;
};
