#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFxPSinCosPiX: sin(pi a), cos(pi a) or both, in this order. Numbers of its variant: address bits
// of a table, which this architecture does not read, and the outputs: 0 both, 1 sine, 2 cosine.
std::span<const UnitRow> fixedSineUnits();

}  // namespace functions
