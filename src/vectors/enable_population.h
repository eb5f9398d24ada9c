#pragma once

#include <string>

#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// The population of a unit that can stall, or whose outputs have latencies of their own. Rows are
// clock cycles: each has a stimulus and what the unit shows in that cycle, by a model of its delay.
// The run begins with the start stages of that delay and ends when the last result has left it.
// Random and exhaustive tests only, and random ones where both are chosen. In a stalled cycle the
// stimulus goes nowhere and the response stays.
//   latency   cycles from a stimulus to its result; with split outputs the options' outLatency
//             counts instead
// Returns the number of cycles. Needs MPFR's full exponent range.
int populateStmFiles_EnableOrSplitOutputs(CFuncUnitFunctionInterface* unit,
                                          const std::string& baseName, const PortSpecList& inPorts,
                                          const PortSpecList& outPorts, int latency,
                                          const TestingOptions& options);
