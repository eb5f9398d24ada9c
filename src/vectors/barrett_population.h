#pragma once

#include <string>

#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// The population of a modular multiplier that is handed Barrett's reciprocal: factors a and b,
// a modulus m of w bits with its top bit set, and mu = floor(4^w / m), where w is the width of the
// first port. The factors are not reduced. Random tests, then exhaustive ones: all factors with all
// normalised moduli, 2^(3w-1) tests. Otherwise as the general population: a fill, a row for each
// test, a drain.
// Returns the number of tests. Needs MPFR's full exponent range.
int populateStmFiles_ModularMultBarrett(CFuncUnitFunctionInterface* unit,
                                        const std::string& baseName, const PortSpecList& inPorts,
                                        const PortSpecList& outPorts, int latency,
                                        const TestingOptions& options);
