#pragma once

#include "cmdline/system_spec.h"
#include "numbers/testing_options.h"
#include "util/arguments.h"

namespace driver {

// Everything that the options of the model flow set.
struct ModelFlowSettings {
  TestingOptions testing;
  cmdline::DeviceSpec device{.family = "Merrow 10", .speedGrade = "1", .part = "AUTO"};
  int frequencyMHz = 50;
  bool combinatorial = false;
  bool hardFP = false;
};

// Reads the options of the model flow, in a fixed order and by their exact names, wherever they
// stand; of one that stands twice the first counts, and no other word has any effect. Prints what
// they print. testing.errorBounds has one entry, in ulps.
//
// A value that an option cannot have fails an assertion or ends the run with one line. A line that
// ends behind an option gives it an empty word, which reads as 0; behind -expRange it ends the run.
ModelFlowSettings readModelFlowOptions(const Options& options);

}  // namespace driver
