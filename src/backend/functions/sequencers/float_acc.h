#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFloatAcc  inputs x, n; outputs r, xo, xu, ao: the sum of all x since and with the one that came
//            with n = 1, in two's complement with bits of the weights 2^lsbA to 2^msbA (the sign)
//
// x is truncated toward zero to a multiple of 2^lsbA; the sum of that is exact and r is that sum,
// rounded once, +0 for zero. xo: x is NaN, infinite or not below 2^(maxMSBX+1) in magnitude, and is
// left out of the sum. xu: x is not zero, but below 2^lsbA in magnitude. ao: the sum has left
// [-2^msbA, 2^msbA), in this step or since it was begun; r is then undefined. The reference knows
// nothing of earlier steps. Variant: {lsbA, msbA, maxMSBX}.
std::span<const UnitRow> floatAccUnits();

}  // namespace functions
