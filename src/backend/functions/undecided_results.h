#pragma once

#include "backend/functions/unit.h"

namespace functions {

// What a unit may give whose correct rounding is not proven: the rounding of any number within
// 2^-kUnknownGap ulp of the exact result, which is that of the least or of the greatest of them. An
// exact result that has few digits, as e^0, is rounded as it is.
//
// `low` and `high` take one value for each output in the precisions and directions of
// UnitRow::evaluate(), whose other words hold here, too; a fixed-point one is rounded to the grid
// of its port, ties away from zero.
void evaluateUndecided(const UnitRow& unit, const Signature& signature, std::vector<NumValue>& low,
                       std::vector<NumValue>& high, const std::vector<NumValue>& inputs,
                       const std::vector<unsigned>& precisions,
                       const std::vector<mpfr_rnd_t>& roundings, bool subnormals);

}  // namespace functions
