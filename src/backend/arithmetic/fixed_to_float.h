#pragma once

#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/leading_zeros.h"

namespace arithmetic {

// A number ready to be rounded, and the format to pack it to: the one asked for, counted as one
// with subnormals when the number has no underflow, which spares the test for it.
struct Converted {
  Unrounded number;
  FloatFormat format;
};

// (-1)^sign * magnitude as a floating-point number; exact, what lies lower than `below` bits under
// the fraction in `sticky`.
//   magnitude  unsigned, its top bit has weight 2^topWeight; 0 gives a zero of sign `sign`
Converted fixedToFloat(Builder& b, Signal sign, Signal magnitude, long topWeight,
                       const FloatFormat& format, int below,
                       FirstOne firstOne = FirstOne::kSharedGates);

}  // namespace arithmetic
