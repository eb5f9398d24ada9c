#pragma once

#include <gmp.h>

#include <cstdio>
#include <functional>

#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Walks through the places where sums and products are hard: cancellation, the overflow threshold,
// the border of the subnormal numbers. testCount / 10 trials each, of up to 1000 rows and more.

// Whether the options select a sweep that the operator has: sums (FPAdd) all three, products
// (FPMul) the one near zero; and only where all outputs and the first two inputs are floating.
bool hasDirectedSweeps(const PortSpecList& inPorts, const PortSpecList& outPorts,
                       const TestingOptions& t);
// Whether one of them draws numbers as random tests do.
bool sweepsDrawNumbers(const PortSpecList& inPorts, const PortSpecList& outPorts,
                       const TestingOptions& t);

// Where the rows go; `check` is called now and then to see whether they got there.
struct SweepFiles {
  FILE* in;
  FILE* out;
  std::function<void()> check;
};

// Runs the selected sweeps and returns the number of rows that each file got. Every input is
// brought to its port first. A response row has the result rounded to nearest, or for faithful
// rounding the results down and up, whatever the error bound. Works in MPFR's full exponent range,
// which the caller sets; lengths of the walks come from util::GetRandom.
int runDirectedSweeps(CFuncUnitFunctionInterface& unit, const PortSpecList& inPorts,
                      const PortSpecList& outPorts, const TestingOptions& t, gmp_randstate_t& state,
                      const SweepFiles& files);
