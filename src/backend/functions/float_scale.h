#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatLdExp  a * 2^b, b an integer; exact but where it underflows or overflows
//               Variant: {wE, wF, 1, width of b, subnormals}
// DMFloatILogB  floor(log2 |a|) as a signed integer of 32 bits; a zero gives the lowest, an
//               infinity and a NaN the highest. Variant: {wE, wF, subnormals}
std::span<const UnitRow> floatScaleUnits();

}  // namespace functions
