#pragma once

#include <functional>
#include <span>

#include "backend/device/device.h"
#include "backend/graph/builder.h"
#include "backend/mapping/mapping.h"

namespace mapping {

// Builds a sum from its operands by the options' shape.
using MakeSum = std::function<graph::Signal(
    graph::Builder&, std::span<const graph::Signal> operands, const MappingOptions&)>;

// The sum in the shape that costs least, tried out on graphs of its own: look-up tables, and for
// each stage until the result is there what the registers of a stage are worth. All operands count
// as early.
graph::Signal cheapestSum(graph::Builder& builder, const device::Device& device,
                          const MappingOptions& options, std::span<const graph::Signal> operands,
                          const MakeSum& make);

}  // namespace mapping
