#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFloatMultAcc  inputs acc, a, b: a * b where acc is 0, the last result + a * b where it is 1,
//                fused and rounded in every step as the request's rounding says, whatever the
//                bound. With `sum` inputs acc, a: a, or the last result + a
//
// A step is a valid cycle. The reference of a product takes the last result as one more input, read
// like a value on the output port; that of a sum knows nothing of earlier steps. One IEEE-style
// format for all floating ports. Variant: {sum}.
std::span<const UnitRow> floatMultAccUnits();

}  // namespace functions
