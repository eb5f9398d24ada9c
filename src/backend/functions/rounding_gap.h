#pragma once

#include <optional>
#include <string_view>

#include "backend/functions/real_function.h"

namespace functions {

// How near the exact results of a function come to where a rounding changes, in bits below the last
// place of the result: unless it is such a place itself, each result with the output's full
// precision is at least 2^-nearest ulp away from the midpoints between two neighbours, and
// 2^-directed ulp from the numbers. An approximation with an error below that, its exact cases
// apart, rounds as the exact result does.
struct RoundingGap {
  int nearest = 0;
  int directed = 0;
};

// The gap of `f` over all inputs of a format: found by running through them where there are at most
// 2^16, from kept data for the functions and formats named there; nothing where it is not known.
//   name  the key of the kept data, the unit's name in the table of units
std::optional<RoundingGap> roundingGap(std::string_view name, RealFunction f,
                                       const kiln::FloatingPoint& input,
                                       const kiln::FloatingPoint& output, bool subnormals);

}  // namespace functions
