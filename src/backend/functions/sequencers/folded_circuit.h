#pragma once

#include "backend/arithmetic/floating_point.h"
#include "backend/functions/sequencers/folded_plan.h"

namespace functions {

// The circuit of a folded ALU: operands are held from the cycle with `go` on, the product of three
// stages (factors, products of blocks, sum) runs through the plan's passes, then three stages align
// the result, round and pack it. Every register is a state.
struct FoldedOptions {
  arithmetic::FloatFormat format;
  arithmetic::RoundMode rounding;  // of a checked plan
  bool quietNaN = false;
  Shape dsp;  // widths of the two factors of one block
};
graph::Signal foldedCircuit(graph::Builder& b, const FoldedPlan& plan, const FoldedOptions& options,
                            std::span<const graph::Signal> inputs, graph::Signal go);

}  // namespace functions
