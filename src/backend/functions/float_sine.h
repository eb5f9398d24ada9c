#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatSinPiX: sin(pi a). A variant's numbers are widths of its format, which are not looked at.
std::span<const UnitRow> floatSineUnits();

}  // namespace functions
