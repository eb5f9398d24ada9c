#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// DMFxPModularMult: products of integers, whole or modulo a number. All ports of the modular ones
// are unsigned; factors are any patterns, not only residues.
//   numbers  0: architecture.
//            2, 19: products that fit r (int_product.h).
//            14: r = x y mod z, ports of w bits, for z with its top bit set, with the reciprocal
//            v = floor(4^w / z) of w + 1 bits beside it; 2^(w+1) - 1 where z = 2^(w-1), whose
//            reciprocal is one bit wider. Other z and v give undefined bits; the reference ignores
//            v and gives all ones for z = 0.
//   widths   1 to 1024 bits a factor
std::span<const UnitRow> modularUnits();

}  // namespace functions
