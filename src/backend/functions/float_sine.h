#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatSinPiX: sin(pi a); DMFloatSinX: sin(a) in radians, number 3 of its variant 1 for the form
// without range reduction, which is refused. The other numbers repeat the format.
std::span<const UnitRow> floatSineUnits();

}  // namespace functions
