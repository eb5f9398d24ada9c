#pragma once

#include <string>

#include "backend/graph/graph.h"
#include "backend/schedule/schedule.h"

namespace schedule {

// The scheduled graph in the language of graphviz: a column for each cycle, in it a box for each
// scope, nodes with operation and width; what crosses registers is drawn grey, what closes a loop
// dashed. The short form leaves literals out and draws a value through slices, concatenations and
// replications straight to its readers; the long form has every node, with its number and name.
std::string drawingText(const graph::Graph& graph, const Schedule& schedule,
                        const std::string& title, bool isShort);

}  // namespace schedule
