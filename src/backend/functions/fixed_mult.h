#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFxPTruncMult  q = a b, saturated; each port has a format of its own
//
// Variant: two numbers that mean nothing. Factors have at most 1024 bits. Below the bound 1, and
// where no partial products may be left out (Request::wholeProducts), the product is built whole.
std::span<const UnitRow> fixedMultUnits();

}  // namespace functions
