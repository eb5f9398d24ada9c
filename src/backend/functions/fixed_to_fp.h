#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFxPToFP  a fixed-point number as a floating-point one, rounded once; with a second output of 5
// bits its flags
//
// Variant: {wE, wF, rounding, flags, rounding port, subnormals}. The rounding: 0 toward zero, 1
// nearest even, 2 nearest with ties away, 3 up, 4 down; with a rounding port the last input says it
// (0 nearest even, 1 down, 2 up, 3 toward zero) and an overflow stops at the largest finite number
// where the direction does not lead to infinity. Whatever bound is asked, the result is exact.
std::span<const UnitRow> fixedToFloatUnits();

}  // namespace functions
