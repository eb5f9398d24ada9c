#pragma once

#include <string>

#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// The population of a floating-point multiply-accumulate unit, whose results depend on all earlier
// ones. The reference takes an accumulator behind the three ports, a do-not-care at first; it is
// fed with each ordinary result in the user's rounding, and holds 24 bits whatever the format.
// Inputs are delayed by latency - 1 cycles, results by one more. Random tests only; the run ends
// when no input of a test is on its way any more, one cycle before the last result shows.
// Returns the number of cycles. Needs MPFR's full exponent range.
int populateStmFiles_FPMultAcc(CFuncUnitFunctionInterface* unit, const std::string& baseName,
                               const PortSpecList& inPorts, const PortSpecList& outPorts,
                               int latency, const TestingOptions& options);
