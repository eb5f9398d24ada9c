#pragma once

#include <optional>

#include "backend/device/device.h"
#include "backend/graph/graph.h"

namespace mapping {

// How one sum is made, the rows of its products among them.
struct SumShape {
  bool inStages = false;  // added stage by stage, as bits arrive; else by counters at once
  bool counters = false;  // then before the additions of each stage as well
  bool apart = false;     // none that an earlier stage could take in behind its carry chains
  int chainStages = 2;    // for which a chain of rows of a product in logic may last
  bool cascades = true;   // blocks of a product, one above the other, add up by themselves
};

struct MappingOptions {
  device::Picoseconds period;  // additions wider than fit one stage are cut into linked pieces
  bool combinational = false;  // one stage: nothing is cut
  std::optional<double> lutPerDsp = {};  // what a block is worth; else the device's own figures
  SumShape sums = {};
  // Additions that many stages would ripple through become blocks to which their carries are added.
  bool carryIncrement = false;
  // The same for a memory block of the device's smaller kind; none are used where it is infinite.
  std::optional<double> lutPerMemory = {};
};

// The same function in operations that the device has: heaps become additions, wide products tiles
// of DSP products, additions that no stage can hold chains of pieces. A loop, which is one stage
// whatever it takes, keeps its additions whole. A table goes to memory blocks where those are worth
// less than its logic, if a register can follow it and the period leaves it time. Removes dead
// nodes. Ports, scopes and names stay, and so do states that an output depends on, each with its
// first value.
graph::Graph mapGraph(const graph::Graph& graph, const device::Device& device,
                      const MappingOptions& options);

}  // namespace mapping
