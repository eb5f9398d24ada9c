#pragma once

#include <mpfr.h>

#include <cstdio>
#include <string>
#include <vector>

#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Fills the vector files of a unit (stm_writer.h) and returns the number of test cases: the
// selected categories in a fixed order, each vector drawn or generated, evaluated down, up and in
// the user's rounding, reduced to the legal values and written. Rows leave as they are made, so
// memory does not grow with their number.
//   latency   cycles from a stimulus to its result
// The user's mistakes end the run before a file is made; where a file cannot be written to its end
// both are removed. Runs in MPFR's full exponent range and restores the caller's.
int populateStmFilesFP(CFuncUnitFunctionInterface* unit, const std::string& baseName,
                       const PortSpecList& inPorts, const PortSpecList& outPorts, int latency,
                       const TestingOptions& options);

// Units with vectors of their own have one response file, <name>_xOut.stm, split outputs or not.
bool hasOneResponseFile(componentType type);
