#include "driver/option_actions.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "backend/hdl/names.h"
#include "driver/usage_text.h"
#include "util/failure.h"
#include "util/features.h"

namespace driver {

namespace {

// What each value of -pipelining means.
struct Pipelining {
  int schedulerMethod;
  bool combinational;
  const char* printed;
};
constexpr Pipelining kPipelinings[] = {
    {0, true, "    Combinatorial design (debugging) \n"},
    {1, false, "    Subcycle pipelining DAG-based enabled! \n"},
    {2, false, "    Subcycle pipelining DAG-based enabled gen2! \n"},
    {0, false, "    Large granularity pipelining enabled (old way)! \n"},
    {3, false,
     "    Combined min-area delay balancing + subcycle pipelining [Leiserson and Saxe 1991] \n"},
};

// What the option -injectTestVector keeps of each of its values.
constexpr int kInjectedBits = 100;

bool isPositive(const char* word) { return util::integerOf(word) > 0; }

const char* trueOrFalse(bool value) { return value ? "true" : "false"; }

// A bound of less than nothing has no meaning; one of less than half an ulp asks for correct
// rounding.
void addBound(RunState& run, const char* word, float ulps) {
  if (!(ulps >= 0) || std::isinf(ulps))
    util::exitWith({fmt::format("-error: {} ulps is out of range 0 and above", word)});
  run.testing.errorBounds.push_back(ulps);
}

void setHardLatency(RunState& run, const OptionLabel& label, const char* format, const char* word) {
  run.modelOptions.setOptionValue(label, util::integerOf(word));
  std::printf(format, run.modelOptions.getOptionValue(label));
}

void setValueRange(RunState& run, util::Words words, const char* option, int base) {
  const auto read = [&](const char* word) {
    auto value = util::MPZ::fromText(word, base);
    if (!value)
      util::exitWith({fmt::format("{}: {} is not an integer in base {}", option, word, base)});
    return *value;
  };
  run.testing.valRangeMin = read(words[0]);
  run.testing.valRangeMax = read(words[1]);
  run.valLowText = words[0];
  run.valHighText = words[1];
}

}  // namespace

void setFrequency(RunState& run, util::Words words) {
  run.frequencyMHz = util::integerOf(words[0]);
  if (run.frequencyMHz < 1)
    util::exitWith({fmt::format("-frequency: {} is out of range 1 to {} MHz", words[0],
                                std::numeric_limits<int>::max())});
  std::printf("    Frequency %dMHz \n", run.frequencyMHz);
}

void setPipelining(RunState& run, util::Words words) {
  const int type = util::integerOf(words[0]);
  if (type < 0 || type >= static_cast<int>(std::size(kPipelinings))) {
    printHelp();
    std::exit(util::kFailureStatus);
  }
  const auto& [method, combinational, printed] = kPipelinings[type];
  util::SetFeatureInteger("SchedulerMethod", method);
  if (combinational) run.modelOptions.setOptionValue(synthOption::forceCombinational, 1);
  std::fputs(printed, stdout);
}

void setAccuracyFiles(RunState& run, util::Words words) {
  run.stimuliFile = words[0];
  run.responseFile = words[1];
  run.evaluateAccuracy = true;
  // Scripts know this line with the first file in both places.
  std::printf("    The stimuli file is %s and the hardware responses are in %s \n", words[0],
              words[0]);
}

void setName(RunState& run, util::Words words) {
  // The name is a folder's and, in either language, an entity's.
  if (hdl::legalName(words[0]) != words[0] || hdl::isReserved(words[0]))
    util::exitWith(
        {fmt::format("-name: '{}' is not a letter followed by letters, digits and single "
                     "underscores, or is a keyword",
                     words[0])});
  run.topName = words[0];
  run.testName = run.topName + "Test";
  std::printf("    The new component name is %s\n", words[0]);
}

void setEnable(RunState& run, util::Words) {
  run.modelOptions.setOptionValue(synthOption::genGlobalEnableInput, 1);
  run.testing.enable = true;
}

void setIntegerFeature(RunState&, util::Words words) {
  const int value = util::integerOf(words[1]);
  util::SetFeatureInteger(words[0], value);
  std::printf("\t feature name = %s \n\t feature value = %d \n", words[0], value);
}

void setStringFeature(RunState&, util::Words words) {
  util::SetFeatureString(words[0], words[1]);
  std::printf("\t feature name = %s \n\t feature value = %s \n", words[0], words[1]);
}

void setDebug(RunState&, util::Words) {
  util::SetFeature(Features::REPORT_DEBUG_MESSAGES, true);
  util::SetFeatureString("DebugMessagesFile", "log.txt");
  for (const char* name : {"DumpDotty", "DottyShortFormat", "FIR_high_speed_adder_tree"})
    util::SetFeatureBoolean(name, true);
}

void setCorrectRounding(RunState& run, util::Words) {
  run.modelOptions.setOptionValue(floatOption::faithfulRes, 0);
  run.testing.faithfulRounding = false;
}

void setFaithfulRounding(RunState& run, util::Words) {
  run.modelOptions.setOptionValue(floatOption::faithfulRes, 1);
  run.testing.faithfulRounding = true;
}

void addErrorBound(RunState& run, util::Words words) {
  addBound(run, words[0], static_cast<float>(util::integerOf(words[0])));
  setFaithfulRounding(run, {});
}

void addErrorBounds(RunState& run, util::Words words) {
  for (const char* word : words.subspan(1)) {
    addBound(run, word, static_cast<float>(std::strtod(word, nullptr)));
    run.modelOptions.outputErrors.push_back(run.testing.errorBounds.back());
  }
  setFaithfulRounding(run, {});
}

void setRoundType(RunState& run, util::Words words) {
  const int type = util::integerOf(words[0]);
  if (type < 0 || type > 3) {
    std::printf("Rounding mode is an option in the range 0-3\n");
    std::exit(util::kFailureStatus);
  }
  run.testing.roundType = type;
  std::printf("    Explicit rounding mode detected %d\n", type);
}

void setKiln(RunState& run, util::Words) { run.modelOptions.synthesisOnly = false; }

void setHardFPAddLatency(RunState& run, util::Words words) {
  setHardLatency(run, floatOption::hardFPAddLatency,
                 "    Hard FP Adder/Subtracter Latency set to %d cycles\n", words[0]);
}

void setHardFPMultLatency(RunState& run, util::Words words) {
  setHardLatency(run, floatOption::hardFPMultLatency,
                 "    Hard FP Multiplier Latency set to %d cycles\n", words[0]);
}

void setHardFPMultAddLatency(RunState& run, util::Words words) {
  setHardLatency(run, floatOption::hardFPMultAddLatency,
                 "    Hard FP MultAdd Latency set to %d cycles\n", words[0]);
}

void setTestbench(RunState& run, util::Words words) {
  run.testCaseCount = run.testing.testCount = util::integerOf(words[0]);
  run.modelOptions.synthesisOnly = false;
  run.modelOptions.seed = run.testing.testCount;
  std::printf("    Generating test-bench with %d test-cases\n", run.testCaseCount);
}

void setVsimToFile(RunState& run, util::Words) {
  run.modelOptions.vsimToFile = true;
  run.modelOptions.synthesisOnly = false;
  run.gpioMismatchIsError = false;
  run.channelMismatchIsError = false;
}

void setEnableHardFP(RunState& run, util::Words words) {
  const bool enabled = isPositive(words[0]);
  run.modelOptions.setOptionValue(floatOption::enableHardFP, enabled);
  std::printf("    HardFP is enabled enabling set to %s \n", trueOrFalse(enabled));
}

void setExponentRange(RunState& run, util::Words words) {
  run.testing.expRangeMin = util::integerOf(words[0]);
  run.testing.expRangeMax = util::integerOf(words[1]);
  std::printf("        Exponent range eMin=%d eMax=%d\n", run.testing.expRangeMin,
              run.testing.expRangeMax);
}

void setDecimalRange(RunState& run, util::Words words) {
  setValueRange(run, words, "-valRange", 10);
}

void setBinaryRange(RunState& run, util::Words words) {
  setValueRange(run, words, "-valRangeB", 2);
  std::printf("vMin=%ld vMax=%ld \n", mpz_get_si(run.testing.valRangeMin.get()),
              mpz_get_si(run.testing.valRangeMax.get()));
}

void setInjectedVector(RunState& run, util::Words words) {
  if (words.size() < 2)
    loam_assert_handler("m>=1", "cmdGauge", __LINE__, __PRETTY_FUNCTION__,
                        "Error in injectTestVector n >= 1");
  run.testing.injectTestVector = true;
  for (const char* word : words.subspan(1)) {
    Real value;
    if (mpfr_set_str(value.prepare(kInjectedBits), word, 10, MPFR_RNDN) != 0)
      util::exitWith({fmt::format("-injectTestVector: {} is not a decimal number", word)});
    run.testing.injectedVector.push_back(std::move(value));
  }
}

void setGenNaN(RunState& run, util::Words words) {
  run.testing.genNaNs = isPositive(words[0]);
  std::printf("        Generate NaNs is =%d\n", run.testing.genNaNs);
}

void setGenInf(RunState& run, util::Words words) {
  run.testing.genInfs = isPositive(words[0]);
  std::printf("        Generate Infs is =%d\n", run.testing.genInfs);
}

void setSubnormals(RunState& run, util::Words words) {
  run.testing.subnormals = isPositive(words[0]);
  run.modelOptions.setOptionValue(floatOption::subnormals, run.testing.subnormals);
  std::printf("        Generate Subnormals is =%d\n", run.testing.subnormals);
}

void setPiTesting(RunState& run, util::Words words) {
  run.testing.piTestMultiples = util::integerOf(words[0]);
  run.testing.piTestInterval = util::integerOf(words[1]);
  std::printf(
      "        Will generate test vectors around %d multiples of pi/2, with each interval size "
      "%d\n, centered",
      run.testing.piTestMultiples, run.testing.piTestInterval);
}

void setQuietNaN(RunState& run, util::Words) {
  run.testing.quietNaN = true;
  run.modelOptions.quietNaN = true;
}

void setAllTests(RunState& run, util::Words) {
  TestingOptions& testing = run.testing;
  testing.cancellationTests = true;
  testing.expRangeMin = -1;
  testing.handTesting = true;
  testing.piTestMultiples = testing.testCount;
  testing.nearZeroTests = true;
  testing.nearInfinityTests = true;
  testing.positiveStimuli = false;
  testing.negativeStimuli = false;
  testing.randomTests = true;
}

void setTestOutputType(RunState& run, util::Words words) {
  const int type = util::integerOf(words[0]);
  run.testing.testOutputType = type == 1   ? OutputNumberType::HEX
                               : type == 2 ? OutputNumberType::SIGNED
                                           : OutputNumberType::BINARY;
}

void setLanguage(RunState& run, util::Words words) {
  run.language = GetLanguageFromName(words[0]);
  if (run.language == LANGUAGE_UNKNOWN)
    loam_error_printf(fmt::format("Unknown language '{}'", words[0]));
}

void setVerbosity(RunState& run, util::Words words) {
  run.testing.verbosity = util::integerOf(words[0]);
  run.modelOptions.setOptionValue(synthOption::verbosity, run.testing.verbosity);
  std::printf("        Verbosity set to %d\n", run.testing.verbosity);
}

void setPreserveEntityName(RunState&, util::Words) {
  util::SetFeature(Features::PRESERVE_TOP_LEVEL_ENTITY_NAME, true);
}

void setLutMultRatio(RunState& run, util::Words words) {
  run.modelOptions.lutMultRatio = util::integerOf(words[0]);
  std::printf("        LUT to MULT ratio set to %d\n", run.modelOptions.lutMultRatio);
}

}  // namespace driver
