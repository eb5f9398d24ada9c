#pragma once

#include "util/words.h"

namespace driver {

// Walks the words of a line once, in order: each is an option, or an operator whose unit is built
// on the spot. Then generates the unit built last, reports it and writes its vectors. `line` begins
// with the program's name. Returns the exit status.
//
// A word that is neither an option nor an operator repeats for ever, as scripts with a time limit
// expect of it.
int runClassicFlow(util::Words line);

}  // namespace driver
