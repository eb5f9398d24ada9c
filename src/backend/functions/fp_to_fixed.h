#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// A floating-point number as a fixed-point one: times 2^fraction, rounded once to an integer, held
// within the limits of the port; a NaN is the high limit. With a second output of 5 bits the flags:
// overflow where a number was held or infinite, underflow where one that is not 0 rounds to 0.
// Whatever bound is asked, the result is exact.
//
// DMFPToFxP  Variant: {wE, wF, w, fraction, signed, type, mode, flags, subnormals}. The mode: 0
//   toward zero, 1 nearest with ties away, 2 nearest even, 3 (type 1) by a second input of 1 bit,
//   tied to 0 where there is none: 0 toward zero, 1 ties away; 4 down, 5 up, 6 truth: the pattern
//   0 for a zero and 1 for all else. A second input chooses whatever the mode.
// DMFPToFXPExpert  the rounding by a second input of 2 bits: 0 nearest even, 1 down, 2 up, 3 toward
//   zero; with flags. Variant: {wE, wF, w, fraction, signed, 1}
std::span<const UnitRow> floatToFixedUnits();

}  // namespace functions
