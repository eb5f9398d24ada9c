#pragma once

#include <string>

#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// Compares what a simulation has recorded with the exact results and prints, between "@@start" and
// "@@end", for each output the largest, smallest and average relative error (floating ports) and
// absolute error, each also in units of 2^-wF or 2^-fraction, and how many values and special
// values failed.
//
// A regular value fails when its relative error (floating) or absolute error (fixed) is not below
// the port's error bound times that unit. A special value fails when only one side is a zero, an
// infinity or a NaN; a line tells each. A do-not-care on either side is not compared. The exact
// result is the reference in the user's rounding at the port's precision, or where that rounding is
// not proven what the simulation has, if it is legal; it counts as the port would carry it where
// special values are told apart.
//
//   latency       cycles between the rows of a stimulus and of its result. Without an enable as
//   many
//                 rows are left out in front of the results; with one the stimuli go through a
//                 model of the delay
//   stimulusPath  a stimulus file (vectors/stm_writer.h)
//   resultPath    a file in the form of a response file, one column for each output port
// Reading stops where the shorter file ends; a warning tells of unequal lengths, and one of results
// whose channel is not that of the stimulus. A file that cannot be read and a row of another form
// end the run with one line. The device adjustment that the reference may need is the caller's to
// hold. Returns 1.
int evaluateAccuracy(CFuncUnitCleanInterface* function, const PortSpecList& inPorts,
                     const PortSpecList& outPorts, int latency, const TestingOptions& t,
                     const std::string& stimulusPath, const std::string& resultPath);
