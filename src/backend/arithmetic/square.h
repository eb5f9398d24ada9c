#pragma once

#include <vector>

#include "backend/graph/builder.h"

namespace arithmetic {

// The square of x (unsigned, any width) as terms of a heap of 2 * x.width columns; exact.
//
// x is cut into limbs of `shortSide` bits. Each limb is squared, and each limb times all that
// stands above it is multiplied once, in tiles of at most longSide x shortSide bits, and counted
// twice by one place more of shift: about half the tiles of a product of x with itself.
std::vector<graph::HeapTerm> foldedSquare(graph::Builder& builder, graph::Signal x, int longSide,
                                          int shortSide);

}  // namespace arithmetic
