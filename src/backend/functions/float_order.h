#pragma once

#include <mpfr.h>

#include <span>

#include "backend/arithmetic/float_order.h"
#include "backend/functions/unit.h"

namespace functions {

// What minimum and maximum give in MPFR, for units that hold them among other things: one of both
// operands. -0 goes before +0, a number before a NaN, and equal magnitudes are ordered by value.
enum class Extreme { kLeast, kGreatest, kLeastMagnitude, kGreatestMagnitude };
mpfr_srcptr extreme(Extreme which, mpfr_srcptr x, mpfr_srcptr y);
// -0 equals +0; with a NaN only kNotEqual holds.
bool holds(arithmetic::Comparison comparison, mpfr_srcptr x, mpfr_srcptr y);

// DMFloatMinMax         the operand of least or greatest value or magnitude, with its sign
//                       Variant: {wE, wF, greatest, by magnitude, subnormals}
// DMFloatFusedMinMax    the same, the least for s = 0, the greatest for s = 1
//                       Variant: {wE, wF, by magnitude}
// DMFloatCompare        one bit. Variant: {wE, wF, comparison, subnormals, ordered}; comparison
//                       -2 to 3: <, <=, =, >=, >, !=; when it is not ordered, 1 with a NaN
// DMFloatCompareFused   the same, ordered, by s: 0 to 4: <, <=, =, >=, >; 5 to 7: 0
//                       Variant: {wE, wF, 0}
std::span<const UnitRow> floatOrderUnits();

}  // namespace functions
