#pragma once

#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// All combinations of input patterns, the first port moving fastest, each made from its index.

// How many vectors there are. Without ranges the product, over the ports, of 2^width for a
// fixed-point one and of 2^(wE + wF + 1) for a floating one, FPLib too. With a value range each
// fixed-point port multiplies by its size, and a floating port makes it the total, whatever came
// before. An exponent range, which then goes first, replaces 2^wE by its size; a forced sign leaves
// its bit out. Ends the run with one line where they are 2^31 or more.
int getExhaustiveTestCount(const PortSpecList& inPorts, const TestingOptions& t);

// Makes vector `testIndex` of them; `values` has one element for each port already, whose storage
// is reused.
//   fixed point   the digit of its radix (a value range: its lower bound plus the digit), as the
//                 port's pattern; beyond the port a signed one wraps and an unsigned one is clamped
//   floating      the raw pattern for the file and beside it the number that it stands for. A value
//                 range is one of patterns of all ports together, the first one lowest, in which
//                 only the first port counts. A forced sign and an exponent range (biased exponents
//                 from 0 on) shape the number alone, by which it and the pattern then differ.
void generateExhaustiveStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                               const TestingOptions& t, int testIndex);
