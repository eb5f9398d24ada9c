#pragma once

#include <gmp.h>
#include <mpfr.h>

#include <cstdio>
#include <string>
#include <vector>

#include "accuracy/rounding.h"
#include "backend/model/function_interface.h"
#include "numbers/ports.h"
#include "numbers/testing_options.h"

// What the populations are made of.

// The GMP state of one population, from which significands and patterns come. Starts
// util::GetRandom again as well.
struct RandomState {
  explicit RandomState(int seed);
  ~RandomState() { gmp_randclear(state); }
  RandomState(const RandomState&) = delete;
  RandomState& operator=(const RandomState&) = delete;
  gmp_randstate_t state;
};

// The files of a unit while they are written. Ends the run with one line, and leaves none of them,
// if one cannot be written.
class VectorFiles {
 public:
  // One response file for the unit.
  explicit VectorFiles(const std::string& name);
  // One response file for each output port, as split outputs have it.
  VectorFiles(const std::string& name, const TestingOptions& options);

  // Whether all rows so far have been written; to be asked every thousand rows.
  void check();
  void close();

  FILE* in = nullptr;
  FILE* out = nullptr;  // the first of `outs`
  std::vector<FILE*> outs;

 private:
  [[noreturn]] void fail();

  std::string name;
  std::vector<std::string> paths;
};

// The three evaluations of one vector and what they need; storage is kept from row to row.
struct Evaluations {
  // The precisions and roundings of the outputs; a roundType outside 0 to 3 ends the run.
  Evaluations(const PortSpecList& outPorts, const TestingOptions& options);
  // Evaluates down, up and in the user's rounding; where a rounding is not proven, down and up are
  // the least and the greatest that it may give.
  void evaluate(CFuncUnitFunctionInterface& unit, const std::vector<NumValue>& inputs,
                bool subnormals);

  std::vector<mpfr_rnd_t> roundUp, roundDown, roundUser;
  std::vector<unsigned> precisions;
  std::vector<NumValue> down, up, nearest;

 private:
  std::vector<bool> isUndecided;
  std::vector<NumValue> low, high;  // storage only
};

// Rows from one drawing of the progress bar to the next in a run of `total` rows.
int progressStep(int total);

// The enable of row `row`. With `-enable` a unit stalls in 20 of 101 rows, but in none of the first
// `latency` + 1, in which it fills.
bool enableOfRow(int row, int latency, const TestingOptions& options);

// Brings the three results to their ports, finds the legal values and writes one row to each file.
void filterAndOutToFile(const PortSpecList& outPorts, std::vector<NumValue>& down,
                        std::vector<NumValue>& up, std::vector<NumValue>& nearest,
                        const std::vector<unsigned>& precisions, const PortSpecList& inPorts,
                        const std::vector<NumValue>& stimulus, const TestingOptions& options,
                        FILE* xIn, FILE* xOut, int channel);

// Draws the state of a job of `total` steps on standard output, every `every` steps.
void progressBar(int current, int total, int every);
