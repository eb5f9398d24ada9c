#pragma once

#include <vector>

#include "numbers/component_type.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// How many hand-built vectors an operator has; 0 for one that is not in the table.
int getHandTestStimuliCount(componentType type);

// Makes such a vector, which is the same for every index: a NaN on each floating-point port, to
// which the operator has to answer, and +0 on each fixed-point one. `values` has one element for
// each port already, whose storage is reused.
void generateHandTestStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                             const TestingOptions& t, int testIndex);
