#pragma once

#include "backend/functions/unit.h"

namespace functions {

// DMFxPSQRT, DMFxPInvSQRT, DMFxPReciprocal: sqrt(a), 1 / sqrt(a) and 1 / a of fixed-point numbers,
// held within the limits of the result; 1 / 0, 1 / sqrt(0) and roots of negative numbers are the
// highest one. Number 0 of the variant promises an `a` in [1, 2), with one bit before the point of
// both ports; number 1, the method, changes nothing; number 2 of DMFxPReciprocal is the function: 0
// 1 / a, 1 sqrt(a), 2 1 / sqrt(a).
std::span<const UnitRow> fixedRootUnits();

}  // namespace functions
