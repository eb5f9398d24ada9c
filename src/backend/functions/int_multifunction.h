#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFxPFusedMultiFunction  what code sOp says of the signed integers x, y and z, to r:
//
//   0 to 7    and, or, xor, nand, nor, xnor of x and y; not x; the bits of x reversed
//   8 to 11   x = y, x != y, x >= y, x < y
//   12 to 15  min(x, y), max(x, y), -x, |x|, wrapped
//   16 to 18  all bits of x set, any bit set; s = 0: x, 1: y, 2 and 3: z
//   19        (z mod 2^k) + 1 bits of x from position y mod 2^k up, k = ceil(log2 w), zeros above
//   20 on     0
//
// Truths are 0...01 or 0, and go to c as well, which is 0 for the other codes. Variant: {w}.
std::span<const UnitRow> intMultiFunctionUnits();

}  // namespace functions
