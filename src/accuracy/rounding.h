#pragma once

#include <mpfr.h>

#include <vector>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Appends for each output the directions of the three evaluations and the precision in bits: wF + 1
// for a floating port, the working precision (and not less than the port needs) for a fixed one. A
// roundType outside 0 to 3 ends the run.
void populateRoundingAndPrecisionVectors(const PortSpecList& outPorts,
                                         const TestingOptions& options, std::vector<mpfr_rnd_t>& up,
                                         std::vector<mpfr_rnd_t>& down,
                                         std::vector<mpfr_rnd_t>& user,
                                         std::vector<unsigned>& precisions);
