#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CCtpop: q = the number of ones in the pattern of a. No numbers; widths 1 to 4096.
// CBarrelShift: q = floor(a / 2^min(s, maxShift)), the sign copied in for a signed a.
//   numbers  0: maxShift, 0 or more
//   widths   1 to 200, what the reference's precision holds
std::span<const UnitRow> bitUnits();

}  // namespace functions
