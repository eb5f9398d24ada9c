#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFloatMult  a * b, rounded to the output's format; each port has its own
//
// Variant: {0, 0, tiesAway}.
std::span<const UnitRow> floatMultUnits();

}  // namespace functions
