#pragma once

#include "backend/arithmetic/floating_point.h"
#include "backend/graph/builder.h"

namespace arithmetic {

inline constexpr int kTableInputs = 6;  // of the look-up tables that circuits are shaped for

// Conditions of many bits as the carry of an addition, whose chain takes no tables but those of
// groups of bits. They are for conditions that many bits wait for: tools map what stands between
// two chains for its least depth, and would make the last gates of a tree once for each reader.

// 1 where any bit of `x` is 1, and `gate`, where there is one; `perTable`: bits of `x` that a table
// takes, up to its six inputs.
Signal anyByCarry(Builder& b, Signal x, int perTable = kTableInputs, Signal gate = {});
// 1 where all bits of `x` are 1.
Signal allByCarry(Builder& b, Signal x);
// 1 where the pattern of an IEEE-style port is that of a NaN.
Signal isNanByCarry(Builder& b, Signal port, const FloatFormat& format);

}  // namespace arithmetic
