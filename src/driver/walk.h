#pragma once

#include "driver/run_state.h"
#include "util/words.h"

namespace driver {

// Walks the words of the line: sets what options set and builds the operators.
void walk(RunState& run, util::Words words);

}  // namespace driver
