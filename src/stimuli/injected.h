#pragma once

#include <optional>
#include <string>
#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Makes the one vector that the user gave, injectedVector[p] rounded to nearest for port p: to
// wF + 1 bits, or to width + 1 on a fixed-point port. `values` has one element for each port
// already. No range filter runs; what a port cannot carry injectionRefused() tells beforehand.
void generateInjectedTestVectorStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                                       const TestingOptions& t, int testIndex, int testCount);

// Why the vector cannot be written: fewer values than ports, or a number that is, once rounded, out
// of the range of its port. Nothing when it can.
std::optional<std::string> injectionRefused(const PortSpecList& inPorts, const TestingOptions& t);
