// Short names for the records behind the public handles.
#pragma once

#include "orvel.h"

namespace orvel {
using Domain = ov_domain_s;
using Node = ov_node_s;
using Table = ov_table_s;
using Clique = ov_clique_s;
using JunctionTree = ov_junction_tree_s;
using Expression = ov_expression_s;
using Model = ov_model_s;
using ClassCollection = ov_class_collection_s;
struct KernelPlan;
struct ChainComponent;
} // namespace orvel
