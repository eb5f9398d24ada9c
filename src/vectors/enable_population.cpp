#include "vectors/enable_population.h"

#include <cstdio>
#include <utility>
#include <vector>

#include "accuracy/accepted_values.h"
#include "numbers/pipeline.h"
#include "stimuli/exhaustive.h"
#include "stimuli/random.h"
#include "util/failure.h"
#include "vectors/population_parts.h"
#include "vectors/reference.h"
#include "vectors/stm_writer.h"

namespace {

// Which tests a run has: how long it goes on, and the stimulus of each cycle.
class Tests {
 public:
  Tests(const PortSpecList& inPorts, const TestingOptions& options)
      : inPorts(inPorts), options(options), random(options.testCount) {
    if (options.exhaustiveTests) exhaustiveCount = getExhaustiveTestCount(inPorts, options);
  }

  void announce() const {
    std::printf("EN_OR_SPLITOUT : RandomTestCount = %d\n", options.testCount);
    if (!options.exhaustiveTests) return;
    std::printf("EN_OR_SPLITOUT : Should generate at least %d exhaustive test vectors \n",
                exhaustiveCount);
  }

  // Whether cycle `count` takes place; draws the progress if so.
  bool goOn(int count, bool draining) const {
    const bool moreExhaustive = options.exhaustiveTests && count < exhaustiveCount;
    const bool moreRandom = options.randomTests && count < options.testCount;
    if (!moreRandom && !moreExhaustive && !draining) return false;
    if (!options.randomTests && !options.exhaustiveTests) {
      loam_assert_handler("false", "cmdGauge", __LINE__, __func__, "Code should be unreachable");
    }
    const int total = options.randomTests ? options.testCount : exhaustiveCount;
    progressBar(count, total, progressStep(total));
    return true;
  }

  int validOf(int count) const {
    return !(options.randomTests && count >= options.testCount) &&
           !(options.exhaustiveTests && count >= exhaustiveCount);
  }

  void generate(std::vector<NumValue>& stimulus, int count) {
    if (options.randomTests) {
      generateRandomStimuli(stimulus, random.state, inPorts, options);
    } else {
      generateExhaustiveStimuli(stimulus, inPorts, options, count);
    }
  }

 private:
  const PortSpecList& inPorts;
  const TestingOptions& options;
  RandomState random;
  int exhaustiveCount = 0;
};

void requireEqualFormats(const PortSpecList& outPorts) {
  const auto* first = outPorts.empty() ? nullptr : outPorts[0].type.as_floating_point();
  if (!first) return;
  for (const PortSpec& port : outPorts) {
    const auto* fp = port.type.as_floating_point();
    if (!fp || (fp->exp == first->exp && fp->frac == first->frac)) continue;
    loam_assert_handler(
        "wE == (int)outFormats[i].getFloatingPoint().exp() && wF == "
        "(int)outFormats[i].getFloatingPoint().frac()",
        "cmdGauge", __LINE__, __func__,
        "All floating-point output formats must match for the subnormals with flat enable "
        "testbench infrastructure to work");
  }
}

// The delay of a unit whose outputs share a latency. It carries the inputs, so that the reference
// sees those of the cycle that leaves the unit and a stall needs no special case.
class SharedDelay {
 public:
  SharedDelay(const PortSpecList& inPorts, int latency, const TestingOptions& options)
      : pipeline(static_cast<int>(inPorts.size()), latency, !options.noChanValid, options.enable) {}

  void advance(const PipelineStage& cycle, CFuncUnitFunctionInterface& unit, Evaluations& e,
               bool subnormals) {
    working = cycle;
    left = &pipeline.advance(working);
    e.evaluate(unit, left->values, subnormals);
  }
  void write(const VectorFiles& files, const std::vector<std::vector<NumValue>>& candidates,
             const PortSpecList& outPorts, const TestingOptions& options) const {
    printToStimuliFileVV(files.out, candidates, outPorts, left->channel, left->valid, options);
  }
  bool holdsResults() const { return pipeline.holdsResults(); }

 private:
  Pipeline pipeline;
  PipelineStage working;
  const PipelineStage* left = nullptr;
};

// A result that no column shows.
void setUnused(NumValue& value) {
  mpfr_set_zero(value.real.prepare(2), 1);
  value.type = NumType::kDontCare;
}

// The delays of outputs with latencies of their own, which carry the results. A port with one
// column or none has its result in the user's rounding, another one the results down and up.
class SplitDelay {
 public:
  SplitDelay(const PortSpecList& outPorts, const TestingOptions& options)
      : working(outPorts.size()), left(outPorts.size()) {
    LOAM_ASSERT(options.outLatency.size() == outPorts.size(), "one latency for each output port");
    for (std::size_t j = 0; j < outPorts.size(); ++j) {
      showsPair.push_back(alternativesOf(options, j) > 1);
      pipelines.emplace_back(showsPair[j] ? 2 : 1, options.outLatency[j], !options.noChanValid,
                             options.enable);
    }
  }

  void advance(const PipelineStage& cycle, CFuncUnitFunctionInterface& unit, Evaluations& e,
               bool subnormals) {
    e.evaluate(unit, cycle.values, subnormals);
    for (std::size_t j = 0; j < pipelines.size(); ++j) {
      PipelineStage& stage = working[j];
      stage.valid = cycle.valid;
      stage.channel = cycle.channel;
      stage.enable = cycle.enable;
      stage.values.resize(showsPair[j] ? 2 : 1);
      if (showsPair[j]) {
        stage.values[0] = std::move(e.down[j]);
        stage.values[1] = std::move(e.up[j]);
      } else {
        stage.values[0] = std::move(e.nearest[j]);
      }
      left[j] = &pipelines[j].advance(stage);
      takeBack(e, j);
    }
  }
  void write(const VectorFiles& files, const std::vector<std::vector<NumValue>>& candidates,
             const PortSpecList& outPorts, const TestingOptions& options) const {
    printToStimuliFileVVOS(files.outs, candidates, outPorts, left, options);
  }
  bool holdsResults() const {
    for (const Pipeline& pipeline : pipelines) {
      if (pipeline.holdsResults()) return true;
    }
    return false;
  }

 private:
  // Results are copied: a stage that shows again in a stalled cycle keeps its own.
  void takeBack(Evaluations& e, std::size_t j) const {
    const std::vector<NumValue>& values = left[j]->values;
    if (showsPair[j]) {
      e.down[j] = values[0];
      e.up[j] = values[1];
      setUnused(e.nearest[j]);
    } else {
      e.nearest[j] = values[0];
      setUnused(e.down[j]);
      setUnused(e.up[j]);
    }
  }

  ComplexPipeline pipelines;
  std::vector<bool> showsPair;
  std::vector<PipelineStage> working;  // one for each output
  std::vector<const PipelineStage*> left;
};

template <typename Delay>
int writeCycles(CFuncUnitFunctionInterface& unit, const PortSpecList& inPorts,
                const PortSpecList& outPorts, int latency, const TestingOptions& options,
                Tests& tests, Evaluations& e, Delay delay, VectorFiles& files) {
  PipelineStage cycle;
  cycle.values.resize(inPorts.size());
  std::vector<std::vector<NumValue>> candidates;
  int count = 0;
  while (tests.goOn(count, delay.holdsResults() && count > 0)) {
    if (count % 1000 == 0) files.check();
    cycle.enable = enableOfRow(count, latency, options);
    tests.generate(cycle.values, count);
    cycle.valid = tests.validOf(count);
    delay.advance(cycle, unit, e, options.subnormals);
    filterFixedPointOutputs(outPorts, e.down, e.up, e.nearest, options);
    filterFloatingPointOutputs(outPorts, e.down, e.up, e.nearest, options);
    generateOutputsForBeyondFaithfulTesting(candidates, outPorts, e.down, e.up, e.nearest,
                                            e.precisions, options);
    printToStimuliFile(files.in, cycle.values, inPorts, cycle.valid, cycle.channel, options,
                       cycle.enable);
    delay.write(files, candidates, outPorts, options);
    ++count;
    cycle.channel = (cycle.channel + 1) & 255;
  }
  return count;
}

}  // namespace

int populateStmFiles_EnableOrSplitOutputs(CFuncUnitFunctionInterface* unit,
                                          const std::string& baseName, const PortSpecList& inPorts,
                                          const PortSpecList& outPorts, int latency,
                                          const TestingOptions& options) {
  const bool split = options.hasSplitOutputPorts();
  if (!options.enable && !split) {
    loam_assert_handler("testOptions.enable || testOptions.hasSplitOutputPorts()", "cmdGauge",
                        __LINE__, __func__, "");
  }
  Evaluations e(outPorts, options);
  Tests tests(inPorts, options);
  VectorFiles files = split ? VectorFiles(baseName, options) : VectorFiles(baseName);
  tests.announce();
  if (options.subnormals) requireEqualFormats(outPorts);
  const int count = split ? writeCycles(*unit, inPorts, outPorts, latency, options, tests, e,
                                        SplitDelay(outPorts, options), files)
                          : writeCycles(*unit, inPorts, outPorts, latency, options, tests, e,
                                        SharedDelay(inPorts, latency, options), files);
  files.close();
  return count;
}
