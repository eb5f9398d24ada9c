#pragma once

#include <vector>

#include "backend/device/device.h"
#include "backend/graph/graph.h"

namespace schedule {

// A DSP block has two registers behind its product.
inline constexpr int kBlockRegisters = 2;

// The product in a DSP block all of whose bits, or some, each node is, through wiring; itself for
// such a product, none where the bits come from elsewhere too.
std::vector<graph::NodeId> productByNode(const graph::Graph& graph, const device::Device& device);

}  // namespace schedule
