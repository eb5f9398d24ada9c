#pragma once

#include "backend/device/device.h"
#include "backend/graph/builder.h"
#include "backend/mapping/mapping.h"

namespace mapping {

// Builds the full product of a and b, width(a) + width(b) bits, exact: one multiplication where it
// fits one DSP block of the device, else tiles that do, and the sum of their products.
//   isSigned  both operands and the product are two's complement; else all are unsigned
graph::Signal lowerProduct(graph::Builder& builder, const device::Device& device,
                           const MappingOptions& options, graph::Signal a, graph::Signal b,
                           bool isSigned);

}  // namespace mapping
