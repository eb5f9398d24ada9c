#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFxPConstMult  q = a C for a constant C, saturated; each port has a format of its own
//
// Variant: numbers {correct, constPrec, arch, cropped}, text {C}.
//   C          the word read as a double; with constPrec >= 1 rounded to so many significant bits
//   arch       0 and others: whichever is cheaper, 1: tables, 2: shift and add; the function is the
//              same
//   cropped    1: a C truncated toward zero, modulo 2^(width of q), for integer ports
//   widths     a product has at most 200 bits, cropped ones at most 4096
// `correct` is said by the accuracy of the request.
std::span<const UnitRow> fixedConstMultUnits();

}  // namespace functions
