#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CLongAdd: r = the sum of all inputs modulo 2^(width of r), in the range of r. Exact.
//   numbers  0: signed or not, as the ports' types say too
//            1: length in bits of the carry chain's chunks; <= 0: one chain, which mapping cuts to
//               the clock
//            2: operands, 2 to 256
//   widths   1 to 4096 bits an operand
std::span<const UnitRow> longAddUnits();

}  // namespace functions
