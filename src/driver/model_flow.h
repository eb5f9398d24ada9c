#pragma once

#include "util/words.h"

namespace driver {

// The flow of the word -kiln: reads its options, finds the operator in the catalogue, and has the
// unit described to the design kit, generated and given its vectors. `line` begins with the
// program's name. Returns the exit status; a mistake ends the run with one line and status 255,
// before anything is written.
int runModelFlow(util::Words line);

}  // namespace driver
