#pragma once

#include <string>

#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// The population of a folded floating-point ALU, which works on one instruction at a time for as
// many cycles as its opcode takes. Four inputs: operands a and b, opcode, go. An instruction of L
// cycles has L + 1 rows: all with its operands and opcode, the first alone with go; every response
// but the last is a do-not-care. Opcodes 0 to 2 have one operand, which both ports show.
// `testCount` instructions, whatever kinds of tests are selected; no row waits for the latency.
// Returns the number of instructions. Needs MPFR's full exponent range.
int populateStmFiles_FPFoldedALU(CFuncUnitFunctionInterface* unit, const std::string& baseName,
                                 const PortSpecList& inPorts, const PortSpecList& outPorts,
                                 int latency, const TestingOptions& options);
