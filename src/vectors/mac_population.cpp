#include "vectors/mac_population.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>
#include <vector>

#include "accuracy/accepted_values.h"
#include "numbers/pipeline.h"
#include "stimuli/exhaustive.h"
#include "stimuli/random.h"
#include "util/failure.h"
#include "vectors/population_parts.h"
#include "vectors/stm_writer.h"

namespace {

// The running sum as the reference sees it.
struct Accumulator {
  static constexpr mpfr_prec_t kPrecision = 24;

  Accumulator() {
    mpfr_set_zero(sum.real.prepare(kPrecision), 1);
    sum.type = NumType::kDontCare;
  }
  // An ordinary result becomes the sum.
  void take(const NumValue& result) {
    if (result.type != NumType::kValue) return;
    mpfr_set(sum.real.get(), result.real.get(), MPFR_RNDN);
    sum.type = NumType::kValue;
  }
  NumValue sum;
};

// As many combinations of inputs as an int can count.
int leastExhaustiveCount(const PortSpecList& inPorts, const TestingOptions& options) {
  int bits = 0;
  for (const PortSpec& port : inPorts) bits += port.type.width();
  return bits < 31 ? getExhaustiveTestCount(inPorts, options) : std::numeric_limits<int>::max();
}

void announce(const PortSpecList& inPorts, const TestingOptions& options) {
  std::printf("FPMULTACC : Using function-specific testbench generation\n");
  std::printf("FPMULTACC : RandomTestCount = %d\n", options.testCount);
  if (!options.exhaustiveTests) return;
  std::printf("\n Should generate at least %d test vectors \n",
              leastExhaustiveCount(inPorts, options));
  std::printf(
      "\n However, exhaustive tests are not supported for FloatMultAcc, therefore no exahustive "
      "tests will be generated. \n");
}

void requireMultAcc(const PortSpecList& inPorts, const TestingOptions& options) {
  if (options.componentType != FPMULTACC) {
    loam_assert_handler("testOptions.componentType == FPMULTACC", "cmdGauge", __LINE__, __func__,
                        "");
  }
  if (inPorts.size() != 3) {
    loam_assert_handler("inFormats.size() == 3", "cmdGauge", __LINE__, __func__, "");
  }
}

}  // namespace

int populateStmFiles_FPMultAcc(CFuncUnitFunctionInterface* unit, const std::string& baseName,
                               const PortSpecList& inPorts, const PortSpecList& outPorts,
                               int latency, const TestingOptions& options) {
  requireMultAcc(inPorts, options);
  const int ports = static_cast<int>(inPorts.size());
  const bool chanValid = !options.noChanValid;
  Evaluations e(outPorts, options);
  VectorFiles files(baseName);
  RandomState random(options.testCount);
  announce(inPorts, options);
  Pipeline inputDelay(ports, latency - 1, chanValid, options.enable);
  Pipeline resultDelay(ports, /*latency=*/1, chanValid, options.enable);
  Accumulator accumulator;

  PipelineStage cycle, results;
  std::vector<NumValue> stimulus(3), referenceInputs(4), down(1), up(1), nearest(1);
  std::vector<std::vector<NumValue>> candidates;
  int count = 0, channel = 0;
  while ((options.randomTests && count < options.testCount) ||
         (count > 0 && inputDelay.holdsResults())) {
    if (count % 1000 == 0) files.check();
    progressBar(count, options.testCount, progressStep(options.testCount));
    generateRandomStimuli(stimulus, random.state, inPorts, options);
    cycle.enable = enableOfRow(count, latency, options);
    const int valid = !options.randomTests || count < options.testCount;
    const int enable = cycle.enable;
    cycle.valid = valid;
    cycle.channel = channel;
    cycle.values = stimulus;
    const PipelineStage& arriving = inputDelay.advance(cycle);

    std::ranges::copy(arriving.values, referenceInputs.begin());
    referenceInputs[3] = accumulator.sum;
    e.evaluate(*unit, referenceInputs, options.subnormals);
    results.valid = arriving.valid;
    results.channel = arriving.channel;
    results.enable = enable;
    accumulator.take(e.nearest[0]);
    results.values.resize(3);
    results.values[0] = std::move(e.down[0]);
    results.values[1] = std::move(e.up[0]);
    results.values[2] = std::move(e.nearest[0]);
    const PipelineStage& shown = resultDelay.advance(results);
    down[0] = shown.values[0];
    up[0] = shown.values[1];
    nearest[0] = shown.values[2];
    generateOutputsForBeyondFaithfulTesting(candidates, outPorts, down, up, nearest, e.precisions,
                                            options);
    printToStimuliFile(files.in, stimulus, inPorts, valid, channel, options, enable);
    printToStimuliFileVV(files.out, candidates, outPorts, shown.channel, shown.valid, options);
    ++count;
    channel = (channel + 1) & 255;
  }
  progressBar(1, 1, 1);
  files.close();
  return count;
}
