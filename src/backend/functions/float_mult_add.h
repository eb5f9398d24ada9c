#pragma once

#include <span>

#include "backend/functions/float_reference.h"
#include "backend/functions/unit.h"

namespace functions {

// CFloatMultAdd  a * b + c, or with subtract a * b - c, rounded once; one format for all ports
//
// Variant: {subtract}.
std::span<const UnitRow> floatMultAddUnits();

// x * y + addend, or with `subtract` x * y - addend, of exact numbers, rounded once.
void deliverMultAdd(NumValue& result, mpfr_srcptr x, mpfr_srcptr y, mpfr_srcptr addend,
                    bool subtract, const Delivery& delivery);

}  // namespace functions
