// Nodes for the columns of a data file, for learning a network from data
// alone.
#pragma once

#include <orvel.h>

#include <string>

namespace orvel_tool {

// A new domain with one discrete chance node per column of the data file,
// named by its header. A column whose values are all numbers gets a
// numbered node whose states are the distinct values in increasing order;
// a column of labels (names or quoted strings) gets a labelled node whose
// states are the labels in order of first appearance; a column of state
// indices (#n) gets n + 1 unlabelled states for its largest n. Missing
// values (empty, * or ?) add nothing. Null with `error` set when the file
// cannot be read or a column mixes kinds of value.
ov_domain_t domain_from_data_columns(const std::string &file, std::string &error);

} // namespace orvel_tool
