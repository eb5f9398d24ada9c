#pragma once

#include <span>

#include "backend/arithmetic/floating_point.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/unit.h"

namespace functions {

// DMFPMult  a * b and flags; the rounding follows port s where there is one
// DMFPALU   s = 0: a + b, s = 1: a - b, and flags; the rounding follows port r where there is one
//
// Variant: {wE, wF, flags, rounding port, subnormals}; the rounding port is the last input. Both
// round correctly whatever bound is asked, so that the flags are those of what is delivered.
std::span<const UnitRow> floatFlagUnits();

// The five bits of a flags port.
enum FlagBit : unsigned { kOverflow = 16, kUnderflow = 8, kNan = 4, kNegative = 2, kZero = 1 };
graph::Signal flagBits(graph::Builder& b, const arithmetic::Flagged& result);

// The direction that a rounding port asks for: 0 nearest even, 1 down, 2 up, 3 toward zero. A
// number never set is 0.
mpfr_rnd_t readRounding(const NumValue& input);

// Rounds an odd value (see roundToOdd()) into `result` as deliverOdd() does and writes the flags of
// what the port will carry. `stopsShort`: an overflow is the largest finite number where the
// direction does not lead to infinity. `finite`: all operands are, so that an infinity overflows.
void deliverFlagged(NumValue& result, NumValue& flags, unsigned flagsPrecision, mpfr_srcptr odd,
                    const Delivery& delivery, bool stopsShort, bool finite);

}  // namespace functions
