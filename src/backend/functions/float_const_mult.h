#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFPConstMult  a * k for a constant k, rounded to the output's format
//
// Variant: numbers {wE, wF, correct}, of which the ports and the accuracy of the request say the
// same; text {k}, read as a double and taken exactly. Infinities and NaN are constants, too.
std::span<const UnitRow> floatConstMultUnits();

}  // namespace functions
