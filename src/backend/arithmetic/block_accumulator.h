#pragma once

#include "backend/graph/builder.h"

namespace arithmetic {

using graph::Builder;
using graph::Signal;

// The sum of all terms since and with the one at which `restarts` was 1 (before the first, from 0),
// modulo 2^width of the term; `carryIn` counts 1 with each term. A term and a carry of 0 without a
// restart leave the sum as it is.
//
// The running sum stands in digits of kAccumulatorDigit bits, each with the carry out of it saved
// for the digit above in the next step: no loop is longer than one digit, whatever the width. The
// one long addition, which joins digits and carries, stands behind the loops.
inline constexpr int kAccumulatorDigit = 8;
Signal accumulate(Builder& b, Signal term, Signal carryIn, Signal restarts);

}  // namespace arithmetic
