#pragma once

#include <span>

#include "backend/device/device.h"
#include "backend/graph/builder.h"
#include "backend/mapping/mapping.h"

namespace mapping {

// The node `id` of `graph` over rebuilt operands, in pieces that each fit one stage of the period:
//   additions    pieces linked by their carries, none below 8 bits; or, where asked for and from
//                so many pieces on, each piece by itself, all carries at once, and increments
//   comparisons  pieces, joined as a tree
//   reductions   trees
//   picks        trees of picks of four
//   tables       picks of tables of fewer bits
// No signal for a node that fits as it is or cannot be cut.
graph::Signal cutToFit(graph::Builder& builder, const graph::Graph& graph, graph::NodeId id,
                       std::span<const graph::Signal> operands, const device::Device& device,
                       const MappingOptions& options);

// True for an addition that the options can make of increments.
bool canIncrement(const graph::Graph& graph, graph::NodeId id, const device::Device& device,
                  const MappingOptions& options);

}  // namespace mapping
