#pragma once

#include <span>

#include "backend/functions/unit.h"

namespace functions {

// CFPFoldedALUNR  inputs x, y, opcode (3 bits), go (1 bit); output 1/sqrt(x), sqrt(x), 1/x, x / y
//                 or x * y for the opcodes 0 to 4; undefined for 5 to 7
//
// One multiplier that all share, behind a seed table, and a sequencer that a valid cycle with go
// starts. Operands and opcode are read in that cycle; the result shows 23, 26, 19, 22 or 6 cycles
// later and stays until the next go. All registers are the unit's own states: none is added to meet
// a clock. The reference looks at no go. One IEEE-style format for all floating ports. From a bound
// of 1 ulp on faithful, below that rounded as asked. No variant.
std::span<const UnitRow> foldedAluUnits();

}  // namespace functions
