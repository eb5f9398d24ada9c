#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFxPModularMult, architectures 2 and 19: exact integer products that always fit r.
//   numbers  0: architecture. 2: r = x y, each port signed or not by its own type, the two widths
//            independent; 19: r = x x, x unsigned
//   widths   1 to 1024 bits a factor
std::span<const UnitRow> integerProductUnits();

}  // namespace functions
