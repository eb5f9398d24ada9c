#pragma once

#include "backend/graph/graph.h"
#include "backend/schedule/schedule.h"

namespace schedule {

// Moves wiring to where it costs the fewest register bits, without changing what any other node
// reads: concatenations and replications as late as their first reader, so that registers hold only
// bits that differ; inversions too, unless a product is behind them; slices right behind their
// source unless the whole source is kept that long.
void placeWiring(const graph::Graph& graph, Schedule& schedule);

// The last cycle in which each node is read, by readers and output ports; the node's own cycle when
// nothing reads it later, or at all.
std::vector<int> lastReads(const graph::Graph& graph, const Schedule& schedule);

}  // namespace schedule
