#pragma once

#include <gmp.h>

#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Draws one value for each input port, in the order of the ports, which is part of the repeatable
// sequence. `values` has one element for each port already; their storage is reused. Works in
// MPFR's full exponent range, which the caller sets.
void generateRandomStimuli(std::vector<NumValue>& values, gmp_randstate_t& state,
                           const PortSpecList& inPorts, const TestingOptions& t);
