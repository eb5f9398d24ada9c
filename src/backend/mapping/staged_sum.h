#pragma once

#include "backend/device/device.h"
#include "backend/graph/builder.h"
#include "backend/mapping/heap_columns.h"
#include "backend/mapping/mapping.h"

namespace mapping {

// Builds the sum of the terms in stages of the period: in each, what is there is added by carry
// chains in blocks that fit what is left of the stage, where the carry out of a block is one more
// bit of the sum; once all is there and fits, one last addition takes at most three rows, behind
// counters as far as these find their bits in registers or products, and with the carries into its
// blocks selected where they would ripple for too long. By options.sums.counters every stage has
// counters before its additions. Exact. What is late thus passes the last
// addition only, what is early is one row by then.
//   terms.rows  anything in the builder's graph, whose arrivals this finds
graph::Signal stagedSum(graph::Builder& builder, const device::Device& device,
                        const MappingOptions& options, const Terms& terms);

}  // namespace mapping
