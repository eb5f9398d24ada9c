#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatFusedMultiFunction  what code sOp says of x, y and z, to r, and the truths also to c:
//
//   0 to 3   min(x, y), max(x, y), the operand of least, of greatest magnitude
//   4 to 9   1.0 or 0 for x <= y, x < y, x = y, x >= y, x > y, x != y
//   10, 11   min(max(x, y), z); s = 0: x, 1: y, 2 and 3: z
//   12 on    0
//
// Variant: {wE, wF, 0}.
std::span<const UnitRow> floatMultiFunctionUnits();

}  // namespace functions
