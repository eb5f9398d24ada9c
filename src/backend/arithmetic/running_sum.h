#pragma once

#include "backend/arithmetic/floating_point.h"

namespace arithmetic {

// A rounded number as an accumulator holds it: what takes time behind a rounding (specials, the
// fields of zeros, packing) is settled when it is read, beside the way through the loop.
//
// Rounds `x` to the fraction of an IEEE-style format once, in the bits of heldWidth(). Overflow and
// underflow are judged as by roundAndPack(), by a fixed rounding.
int heldWidth(const FloatFormat& format);
Signal roundHeld(Builder& b, const Unrounded& x, const FloatFormat& format, RoundMode mode);

// The number held, as unpack() would give it from the packed one; an all-zero word is a zero.
Unpacked readHeld(Builder& b, Signal held, const FloatFormat& format);

// Packs an unpacked number of its own format.
Signal pack(Builder& b, const Unpacked& x, bool quietNaN);

}  // namespace arithmetic
