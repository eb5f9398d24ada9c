#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFloatAdd     a + b, or a - b with variant {subtract, dualPath, tiesAway, degradeAccuracy}
// CFloatAddSub  a + b when the third input is 0, a - b when it is 1; variant {0, dualPath,
// tiesAway,
//               degradeAccuracy}
std::span<const UnitRow> floatAddUnits();

}  // namespace functions
