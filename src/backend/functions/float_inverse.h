#pragma once

#include "backend/functions/unit.h"

namespace functions {

// DMFloatInverse: 1 / x. DMFloatInverseSqrt: 1 / sqrt(x), of -0 the negative infinity.
std::span<const UnitRow> floatInverseUnits();

}  // namespace functions
