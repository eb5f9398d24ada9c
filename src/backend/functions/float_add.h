#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFloatAdd           a + b, or with subtract a - b; of more inputs the sum by a balanced tree
//                     whose inner nodes are adders that round to nearest even
// CFloatAddSub        a + b where the third input is 0, a - b where it is 1
// DMFloatFusedAddSub  outputs a + b and a - b
// DMFloatDim          a - b where a > b, else +0
//
// Variant: subtract (CFloatAdd), dualPath (not the fused unit), tiesAway, degradeAccuracy, each 0
// or 1; of DMFloatDim {wE, wF, 0}. Every floating port has the same exponent and fraction widths,
// in IEEE-style or FPLib form.
std::span<const UnitRow> floatAddUnits();

}  // namespace functions
