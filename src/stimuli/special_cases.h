#pragma once

#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// The cross product of awkward values over all ports: zeros, infinities, NaN, 1 and -1, their
// neighbours, powers of two near the top of the format and, with subnormals, the smallest numbers;
// of a fixed-point port all patterns.

// How many vectors there are, in 32 bits with wrap; 0 without ports. A fixed-point port doubles the
// count width modulo 32 times.
int getSpecialCasesCount(const PortSpecList& inPorts, const TestingOptions& t);
// Whether that count is not the true size of the product, because it takes more than 31 bits.
bool specialCasesOverflow(const PortSpecList& inPorts, const TestingOptions& t);

// Makes vector `testIndex`; `values` has one element for each port already, whose storage is
// reused. The last port moves fastest among ports of one kind; in a mixed list digits are cut with
// the radix of the port opposite, and the index always divided by the number of floating cases, so
// that not every combination occurs. Each value is what its port can carry.
void generateSpecialCasesStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                                 const TestingOptions& t, int testIndex, int testCount);
