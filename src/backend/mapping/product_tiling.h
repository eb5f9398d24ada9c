#pragma once

#include "backend/device/device.h"
#include "backend/graph/builder.h"
#include "backend/mapping/heap_terms.h"
#include "backend/mapping/mapping.h"

namespace mapping {

// Builds the full product of a and b, width(a) + width(b) bits, exact: blocks, logic or both, as is
// cheapest by the options' prices.
//   isSigned  both operands and the product are two's complement; else all are unsigned
graph::Signal lowerProduct(graph::Builder& builder, const device::Device& device,
                           const MappingOptions& options, graph::Signal a, graph::Signal b,
                           bool isSigned);

// Adds the same product times 2^shift to the terms of a larger sum, in parts that are not added up.
void addProduct(graph::Builder& builder, HeapTerms& terms, const device::Device& device,
                const MappingOptions& options, graph::Signal a, graph::Signal b, bool isSigned,
                int shift);

}  // namespace mapping
