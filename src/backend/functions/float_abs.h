#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFloatAbs  |a|, exact; a NaN becomes the one that packing makes
std::span<const UnitRow> floatAbsUnits();

}  // namespace functions
