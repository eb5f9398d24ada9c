#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatLoge, DMFloatLog2, DMFloatLog10: logarithms to the bases e, 2 and 10.
std::span<const UnitRow> floatLogarithmUnits();

}  // namespace functions
