#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFPIEEEToFPIEEE  a number in another format, rounded once; an overflow is an infinity. Variant:
//   {wEIn, wFIn, wEOut, wFOut, rounding}: 0 (and any other) nearest with ties away, 1 nearest even,
//   2 toward zero, whatever direction is asked. Exact whatever bound is asked.
// DMFloatCastIEEEtoFPC  the number in a format of two more exponent bits, where it has no
//   subnormals; the second output of 3 bits is its class: 1 zero, 2 infinity, 4 NaN, 0 for the rest
// DMFloatCastFPCToIEEE  back to a format of two exponent bits less, rounded in the direction asked.
//   The second input of 3 bits is the class: its highest bit says zero, infinity or NaN whatever
//   the number is but for the sign; 0 leaves the number as it is. Variant of both: {wE, wF, 0}
std::span<const UnitRow> floatToFloatUnits();

}  // namespace functions
