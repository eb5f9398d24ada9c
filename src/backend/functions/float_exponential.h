#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatExpE, DMFloatExp2: e^x and 2^x.
std::span<const UnitRow> floatExponentialUnits();

}  // namespace functions
