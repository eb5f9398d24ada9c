#pragma once

#include <vector>

#include "backend/model/execute_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// What a unit should answer, and the way of an answer to the format of its port.

// Runs the unit's software model on one vector, latency + 1 cycles from a reset, and appends what
// its output ports then show. Patterns are of at most 64 bits, floating inputs IEEE-style without
// subnormals; outputs of other kinds than floating end the run with an assertion.
void executeFunction(const std::vector<NumValue>& in, const PortSpecList& inPorts,
                     std::vector<NumValue>& out, const PortSpecList& outPorts,
                     ExecuteInterface& model, int channel);

// Brings the value of each floating-point port to its wF + 1 bits, to nearest even; a do-not-care
// becomes +0. Other ports are left alone, and so is the exponent range.
void filterFloatingPointOutput(const PortSpecList& ports, std::vector<NumValue>& values);
// The same on three vectors of values.
void filterFloatingPointOutputs(const PortSpecList& ports, std::vector<NumValue>& a,
                                std::vector<NumValue>& b, std::vector<NumValue>& c,
                                const TestingOptions& t);
// Rounds the value in `c` of each fixed-point port to its grid, ties away from zero. The first two
// stay as they are: directed results keep the digits from which the legal values follow.
void filterFixedPointOutputs(const PortSpecList& ports, std::vector<NumValue>& a,
                             std::vector<NumValue>& b, std::vector<NumValue>& c,
                             const TestingOptions& t);

// Appends a copy of each value: floating ports at precisions[i] bits, to nearest even, others at
// their own precision.
void copyNumValueVector(std::vector<NumValue>& destination, const std::vector<NumValue>& source,
                        const PortSpecList& ports, const std::vector<unsigned>& precisions);

// Whether the enable signal is high in this cycle: a draw from 0 to 100 is at most `percent`.
bool generateEnable(int percent);
