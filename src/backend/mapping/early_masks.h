#pragma once

#include <optional>
#include <span>
#include <vector>

#include "backend/graph/graph.h"

namespace mapping {

struct ScheduledGraph {
  graph::Graph graph;
  std::vector<int> cycleByNode;
};

// The same function with masks moved to the end of the cycle before, where they are selects right
// before registers, which those registers' clears do for nothing. `cycles` tells the cycle of each
// node. A mask goes where its condition is there in that cycle already, where all that it masks
// moves and joins bits of words that cross a register, and where whatever else reads these words
// behind their registers does not tell a masked one from a whole one: for each reason to mask,
// their bits are followed until the reason itself makes them count no more. Nothing where no mask
// moves. Whether it pays is not asked. Linear in nodes and operands.
std::optional<ScheduledGraph> withEarlyMasks(const graph::Graph& graph,
                                             std::span<const int> cycles);

}  // namespace mapping
