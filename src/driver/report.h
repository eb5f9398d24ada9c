#pragma once

#include "driver/run_state.h"

namespace driver {

// Prints the resources and the latency of the elaborated model, then, if asked for, the block that
// scripts read. With split outputs the latency of each goes to testing.outLatency. Returns the
// cycles from input to output.
int reportResults(RunState& run);

}  // namespace driver
