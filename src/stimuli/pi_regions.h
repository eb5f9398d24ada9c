#pragma once

#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Makes vector `testIndex` = k * w + r, w = piTestInterval >= 1: on every port the number next to
// (k + 1) * pi/2 at the port's precision, or one of its neighbours there, from w / 2 steps below
// (r = 0) upward; then brought into the port's range, without subnormals. `values` has one element
// for each port already, whose storage is reused.
void generatePiOverTwoRegionStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                                    const TestingOptions& t, int testIndex);
