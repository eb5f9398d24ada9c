#pragma once

#include <vector>

#include "backend/device/device.h"
#include "backend/graph/graph.h"
#include "backend/schedule/schedule.h"
#include "backend/schedule/stage_model.h"

namespace schedule {

// A DSP block has two registers behind its product.
inline constexpr int kBlockRegisters = 2;

// The product in a DSP block all of whose bits, or some, each node is, through wiring; itself for
// such a product, none where the bits come from elsewhere too.
std::vector<graph::NodeId> productByNode(const graph::Graph& graph, const device::Device& device);

// Moves wiring behind a product as late as the block keeps that product and nothing reads less of
// it. Tools put a register into a block only where all bits of the product have it, read or not.
void keepProductsWhole(const StageModel& model, Schedule& schedule);

}  // namespace schedule
