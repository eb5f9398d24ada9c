#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFloatFloor, DMFloatCeil, DMFloatTrunc  the integer below, above, toward zero
// DMFloatRound, DMFloatRint                the nearest integer, ties away from zero, to even
// DMFloatFrac                              a minus the integer toward zero
//
// Exact; a zero result has the sign of a. An integer beyond the largest finite number, which only
// exponents of few bits have, is an infinity. Variant: {wE, wF, 0}.
std::span<const UnitRow> floatIntegerPartUnits();

}  // namespace functions
