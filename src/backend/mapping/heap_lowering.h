#pragma once

#include <span>

#include "backend/device/device.h"
#include "backend/graph/builder.h"
#include "backend/mapping/mapping.h"

namespace mapping {

// Builds the sum of `terms` modulo 2^width from additions of at most three addends; exact. No
// addition is wider than the bits that its addends can reach. By options.sums all bits pass
// counters to one addition, or they are added stage by stage (staged_sum.h).
//   terms  any widths and shifts >= 0; those at or above `width` vanish
graph::Signal lowerHeap(graph::Builder& builder, const device::Device& device,
                        const MappingOptions& options, std::span<const graph::HeapTerm> terms,
                        int width);

}  // namespace mapping
