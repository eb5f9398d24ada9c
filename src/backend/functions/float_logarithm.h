#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatLoge, DMFloatLog2: logarithms to the bases e and 2.
std::span<const UnitRow> floatLogarithmUnits();

}  // namespace functions
