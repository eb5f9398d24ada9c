#pragma once

#include "backend/arithmetic/constant_multiplier.h"
#include "backend/functions/unit.h"

namespace functions {

// The constant of a signature: the first of its texts, read as a double. An infinity or a NaN where
// the word spells one; 0 where it spells nothing.
double constantWord(const Signature& signature);

// A finite constant, exactly, or rounded to `significantBits` bits, ties to even, where these are
// at least 1.
arithmetic::Dyadic exactConstant(double constant, int significantBits = 0);

}  // namespace functions
