#pragma once

#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Which results of a unit are legal. A bound of 0.5 ulp accepts the rounded result alone, or where
// the rounding is not proven what it and a number very near it are rounded to; a bound
// of n or more, n = 1, 2, ..., accepts n values on each side of the exact result; a bound below 1
// other than 0.5 accepts no value, and its port has no column.

// The bound in ulps of output `port`: its entry in errorBounds, else the first entry, else 1 for
// faithful and 0.5 for correct rounding.
float errorBoundOf(const TestingOptions& options, std::size_t port);

// Columns of output `port` in a row of the response file: responseColumns() of its bound.
int alternativesOf(const TestingOptions& options, std::size_t port);

// Writes the legal values of each output into `candidates`, one list for each port, as low 0, high
// 0, low 1, high 1, ...; storage is reused. A list may hold repeats.
//   down, up   the exact result rounded in that direction, filtered to the port
//   nearest    the result rounded as the options say, filtered to the port
// Where a bound of 0.5 has two columns, down and up are the two that it accepts.
// Floating: low 0 and high 0 are down and up (-0 and +0 when both are zero), and each further pair
// lies one step outward. +0 and -0 are two values one step apart, at which a walk ends; NaN and
// infinity repeat. With subnormals a step below the normal numbers is the subnormal unit. An FPLib
// port has no subnormals: what lies below its smallest number is a zero. Fixed: pairs lie toward
// and away from zero; a result on the grid gives itself and the next value away from zero.
void generateOutputsForBeyondFaithfulTesting(std::vector<std::vector<NumValue>>& candidates,
                                             const PortSpecList& outPorts,
                                             const std::vector<NumValue>& down,
                                             const std::vector<NumValue>& up,
                                             const std::vector<NumValue>& nearest,
                                             const std::vector<unsigned>& precisions,
                                             const TestingOptions& options);
