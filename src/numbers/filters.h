#pragma once

#include "numbers/ports.h"

// Range filters move a value into what a port can carry, so that the packers never see one out of
// range. A value without a number (a raw pattern) passes unchanged; the others keep their NumType
// and have no pattern. The forms with `result` first reuse its storage; it must not be `v`.

// Rounds to nearest even at wF + 1 bits, then judges the rounded exponent: below the smallest
// accepted number a zero of the value's sign, above the largest an infinity of its sign. A
// subnormal keeps its wF + 1 bits here; packing cuts it to the grid.
void fpRangeFilter(NumValue& result, const NumValue& v, const kiln::FloatingPoint& fp,
                   bool subnormals);
NumValue fpRangeFilter(const NumValue& v, const kiln::FloatingPoint& fp, bool subnormals);

// Holds the value within the limits of the port: above them, positive infinity and NaN give the
// high limit, below them and negative infinity the low one. Does not round to the grid. Limits are
// formed at `precision` bits, or at the port's width where that is more.
void fxpRangeFilter(NumValue& result, const NumValue& v, const kiln::FixedPoint& fx, int precision);
NumValue fxpRangeFilter(const NumValue& v, const kiln::FixedPoint& fx, int precision);
