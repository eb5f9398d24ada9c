#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatDiv: numbers are exponent and fraction bits, correct, version, subnormals.
std::span<const UnitRow> floatDivUnits();

}  // namespace functions
