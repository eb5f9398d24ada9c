#pragma once

#include <vector>

#include "numbers/component_type.h"
#include "numbers/ports.h"
#include "util/mpz.h"

// Everything that a run wants of its test vectors. A range is in force only while its upper bound
// is not below its lower one.
struct TestingOptions {
  int testCount = 0;  // random vectors; also the seed of the random state
  bool specialCaseTests = false;
  bool cancellationTests = false;
  bool nearInfinityTests = false;
  bool nearZeroTests = false;
  bool handTesting = false;
  bool randomTests = false;
  bool exhaustiveTests = false;
  bool faithfulRounding = false;
  bool subnormals = false;
  int expRangeMin = 1;  // of the unbiased exponent
  int expRangeMax = 0;
  bool positiveStimuli = false;
  bool negativeStimuli = false;
  bool genZeros = true;
  bool genInfs = true;
  bool genNaNs = true;
  bool noChanValid = false;
  bool quietNaN = false;
  bool useExecuteModel = false;
  bool generateCSimulationModel = false;
  std::vector<float> errorBounds;  // ulps, one for each output port
  int piTestMultiples = 0;
  int piTestInterval = 1;
  OutputNumberType testOutputType = OutputNumberType::BINARY;
  bool enable = false;
  int roundType = 0;  // 0 nearest even, 1 down, 2 up, 3 toward zero
  // Outputs with a bound of 0.5 ulp are rounded as some number is that lies very near the exact
  // one.
  bool unprovenRounding = false;
  util::MPZ valRangeMin = 1;  // of the bit pattern on a fixed-point port
  util::MPZ valRangeMax = 0;
  std::vector<int> outLatency;  // cycles, one for each output port, with split outputs only
  std::vector<Real> injectedVector;
  bool injectTestVector = false;
  int verbosity = 0;
  int precision = 200;  // bits of working precision on fixed-point ports
  ::componentType componentType = 0;

  bool hasSplitOutputPorts() const { return !outLatency.empty(); }
};

// Columns of one output port in a response row: the accepted results for an error bound of `bound`
// ulps; none for a bound below 1 that is not exactly 0.5.
inline int responseColumns(float bound, bool unprovenRounding) {
  if (bound == 0.5f) return unprovenRounding ? 2 : 1;
  return bound < 1 ? 0 : 2 * static_cast<int>(bound);
}
