#pragma once

#include <mpfr.h>

#include <cstdio>
#include <string>
#include <vector>

#include "accuracy/rounding.h"
#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Fills the vector files of a unit (stm_writer.h) and returns the number of test cases: the
// selected categories in a fixed order, each vector drawn or generated, evaluated down, up and in
// the user's rounding, reduced to the legal values and written. Rows leave as they are made, so
// memory does not grow with their number.
//   latency   cycles from a stimulus to its result
// The user's mistakes end the run before a file is made; where a file cannot be written to its end
// both are removed. Runs in MPFR's full exponent range and restores the caller's.
int populateStmFilesFP(CFuncUnitFunctionInterface* unit, const std::string& baseName,
                       const PortSpecList& inPorts, const PortSpecList& outPorts, int latency,
                       const TestingOptions& options);

// Brings the three results to their ports, finds the legal values and writes one row to each file.
void filterAndOutToFile(const PortSpecList& outPorts, std::vector<NumValue>& down,
                        std::vector<NumValue>& up, std::vector<NumValue>& nearest,
                        const std::vector<unsigned>& precisions, const PortSpecList& inPorts,
                        const std::vector<NumValue>& stimulus, const TestingOptions& options,
                        FILE* xIn, FILE* xOut, int channel);

// Draws the state of a job of `total` steps on standard output, every `every` steps.
void progressBar(int current, int total, int every);
