#include "vectors/population.h"

#include <fmt/format.h>
#include <gmp.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <optional>

#include "accuracy/accepted_values.h"
#include "numbers/draws.h"
#include "numbers/exponent_range.h"
#include "stimuli/exhaustive.h"
#include "stimuli/hand_built.h"
#include "stimuli/injected.h"
#include "stimuli/pi_regions.h"
#include "stimuli/random.h"
#include "stimuli/special_cases.h"
#include "util/failure.h"
#include "vectors/barrett_population.h"
#include "vectors/directed_sweeps.h"
#include "vectors/enable_population.h"
#include "vectors/folded_population.h"
#include "vectors/mac_population.h"
#include "vectors/population_parts.h"
#include "vectors/reference.h"
#include "vectors/stm_writer.h"

namespace {

// Bounds beyond this would make rows of millions of columns.
constexpr float kLargestBound = 1 << 16;

// One kind of tests: whether an option selects it, how many there are, and what makes the stimulus
// of test i.
struct Category {
  bool selected;
  int count;
  std::function<void(std::vector<NumValue>& stimulus, int i)> generate;
};

// The operators with a periodic function, as bits from FPSinX on.
bool isPeriodic(componentType type) {
  constexpr int kFirst = 57, kMask = 0b11010011;
  return type >= kFirst && type < kFirst + 8 && (kMask >> (type - kFirst) & 1);
}

int piTestCount(const TestingOptions& options) {
  const std::int64_t count = std::int64_t{options.piTestMultiples} * options.piTestInterval;
  constexpr int kMost = std::numeric_limits<int>::max();
  if (count > kMost) {
    util::exitWith({fmt::format("-piTesting: {} vectors, where {} are the most", count, kMost)});
  }
  return static_cast<int>(std::max<std::int64_t>(count, 0));
}

std::vector<Category> categoriesOf(const PortSpecList& inPorts, const TestingOptions& options,
                                   gmp_randstate_t& state) {
  using Row = std::vector<NumValue>;
  const bool piTests = options.piTestMultiples > 0 && isPeriodic(options.componentType);
  const int exhaustive = options.exhaustiveTests ? getExhaustiveTestCount(inPorts, options) : 0;
  const int special = getSpecialCasesCount(inPorts, options);
  return {
      {options.randomTests, options.testCount,
       [&](Row& row, int) { generateRandomStimuli(row, state, inPorts, options); }},
      {options.exhaustiveTests, exhaustive,
       [&](Row& row, int i) { generateExhaustiveStimuli(row, inPorts, options, i); }},
      {piTests, piTests ? piTestCount(options) : 0,
       [&](Row& row, int i) { generatePiOverTwoRegionStimuli(row, inPorts, options, i); }},
      {options.handTesting, getHandTestStimuliCount(options.componentType),
       [&](Row& row, int i) { generateHandTestStimuli(row, inPorts, options, i); }},
      {options.specialCaseTests, special,
       [&, special](Row& row, int i) {
         generateSpecialCasesStimuli(row, inPorts, options, i, special);
       }},
      {options.injectTestVector, 1,
       [&](Row& row, int i) { generateInjectedTestVectorStimuli(row, inPorts, options, i, 1); }},
  };
}

// A reason why no vectors can be made, found before any file is.
std::optional<std::string> refusal(const PortSpecList& inPorts, const PortSpecList& outPorts,
                                   const TestingOptions& options) {
  if (options.injectTestVector) {
    if (auto reason = injectionRefused(inPorts, options)) return reason;
  }
  const bool draws = options.randomTests || sweepsDrawNumbers(inPorts, outPorts, options);
  for (const PortSpec& port : inPorts) {
    const auto* fp = port.type.as_floating_point();
    if (!fp || !draws) continue;
    const DrawnExponents drawn = drawnExponents(*fp, options);
    if (drawn.first <= drawn.last) continue;
    TestingOptions all;
    const DrawnExponents whole = drawnExponents(*fp, all);
    return fmt::format("-expRange {} {}: outside the exponents {} to {} of input {}",
                       options.expRangeMin, options.expRangeMax, whole.first, whole.last,
                       port.name);
  }
  for (std::size_t j = 0; j < outPorts.size(); ++j) {
    const float bound = errorBoundOf(options, j);
    if (!(bound >= 0 && bound <= kLargestBound)) {
      return fmt::format("-error {}: the bound of output {} is out of range 0 to {}", bound,
                         outPorts[j].name, kLargestBound);
    }
  }
  return std::nullopt;
}

int populateGeneric(CFuncUnitFunctionInterface& unit, const std::string& baseName,
                    const PortSpecList& inPorts, const PortSpecList& outPorts, int latency,
                    const TestingOptions& options) {
  if (const auto reason = refusal(inPorts, outPorts, options)) util::exitWith({*reason});
  RandomState random(options.testCount);
  const std::vector<Category> categories = categoriesOf(inPorts, options, random.state);
  if (options.specialCaseTests && specialCasesOverflow(inPorts, options)) {
    std::fprintf(stderr,
                 "Warning: -specialCaseTests: the combinations of all ports are too many to "
                 "count, some are left out\n");
  }
  Evaluations e(outPorts, options);
  VectorFiles files(baseName);
  std::printf("RandomTestCount = %d\n", options.testCount);
  if (options.exhaustiveTests) {
    std::printf("\n Should generate at least %d test vectors \n",
                getExhaustiveTestCount(inPorts, options));
  }
  initialOutputPipelineFill(files.out, outPorts, latency, options);

  std::vector<NumValue> stimulus(inPorts.size());
  int testCaseCount = runDirectedSweeps(unit, inPorts, outPorts, options, random.state,
                                        {files.in, files.out, [&files] { files.check(); }});
  for (const Category& category : categories) {
    if (!category.selected) continue;
    int channel = 0;
    for (int i = 0; i < category.count; ++i) {
      if (i % 1000 == 0) {
        progressBar(i, category.count, 1);
        files.check();
      }
      category.generate(stimulus, i);
      if (options.useExecuteModel) {
        loam_assert_handler("!options.useExecuteModel", "cmdGauge", __LINE__, __func__,
                            "Code should be unreachable");
      }
      e.evaluate(unit, stimulus, options.subnormals);
      filterAndOutToFile(outPorts, e.down, e.up, e.nearest, e.precisions, inPorts, stimulus,
                         options, files.in, files.out, channel);
      ++testCaseCount;
      channel = (channel + 1) & 255;
    }
    progressBar(category.count, category.count, 1);
    std::printf("\n");
  }
  drainRows(files.in, inPorts, latency, options);
  progressBar(options.testCount, options.testCount, 1);
  files.close();
  return testCaseCount;
}

}  // namespace

bool hasOneResponseFile(componentType type) {
  return type == FPMULTACC || type == FPFOLDEDALU || type == MODULAR_MULT_BARRETT;
}

int populateStmFilesFP(CFuncUnitFunctionInterface* unit, const std::string& baseName,
                       const PortSpecList& inPorts, const PortSpecList& outPorts, int latency,
                       const TestingOptions& options) {
  const FullExponentRange guard;
  if (const auto reason = refusal(inPorts, outPorts, options)) util::exitWith({*reason});
  switch (options.componentType) {
    case FPMULTACC:
      return populateStmFiles_FPMultAcc(unit, baseName, inPorts, outPorts, latency, options);
    case FPFOLDEDALU:
      return populateStmFiles_FPFoldedALU(unit, baseName, inPorts, outPorts, latency, options);
    case MODULAR_MULT_BARRETT:
      return populateStmFiles_ModularMultBarrett(unit, baseName, inPorts, outPorts, latency,
                                                 options);
  }
  if (options.enable || options.hasSplitOutputPorts()) {
    return populateStmFiles_EnableOrSplitOutputs(unit, baseName, inPorts, outPorts, latency,
                                                 options);
  }
  return populateGeneric(*unit, baseName, inPorts, outPorts, latency, options);
}
