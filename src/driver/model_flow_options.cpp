#include "driver/model_flow_options.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <source_location>
#include <stdexcept>
#include <string>
#include <vector>

#include "util/failure.h"
#include "util/features.h"
#include "util/words.h"

namespace driver {

namespace {

using Arguments = std::vector<std::string>;

// A row of vectors has two columns for each ulp of a bound.
constexpr int kLargestBound = 1 << 16;

[[noreturn]] void fail(const char* message,
                       const std::source_location& place = std::source_location::current()) {
  loam_assert_handler("false", "cmdGauge", static_cast<int>(place.line()), place.function_name(),
                      message);
}

int numberOf(const Arguments& words, std::size_t index = 0) {
  return util::integerOf(words[index].c_str());
}

template <bool TestingOptions::*Flag>
void raise(ModelFlowSettings& settings, const Arguments&) {
  settings.testing.*Flag = true;
}

void setTestbench(ModelFlowSettings& settings, const Arguments& words) {
  settings.testing.testCount = numberOf(words);
  if (settings.testing.testCount <= 0) fail("testbench count needs a positive integer");
}

void setSubnormals(ModelFlowSettings& settings, const Arguments& words) {
  settings.testing.subnormals = numberOf(words) > 0;
}

void setExponentRange(ModelFlowSettings& settings, const Arguments& words) {
  settings.testing.expRangeMin = numberOf(words, 0);
  settings.testing.expRangeMax = numberOf(words, 1);
  std::printf("        Exponent range eMin=%d eMax=%d\n", settings.testing.expRangeMin,
              settings.testing.expRangeMax);
}

void setTarget(ModelFlowSettings& settings, const Arguments& words) {
  settings.device.family = words[0];
  std::printf("\t The target FPGA is : %s \n", words[0].c_str());
}

void setHardFP(ModelFlowSettings& settings, const Arguments& words) {
  settings.hardFP = numberOf(words) > 0;
  std::printf("    HardFP is enabled enabling set to %s \n", settings.hardFP ? "true" : "false");
}

void setSpeedGrade(ModelFlowSettings& settings, const Arguments& words) {
  settings.device.speedGrade = words[0];
}

void setFrequency(ModelFlowSettings& settings, const Arguments& words) {
  settings.frequencyMHz = numberOf(words);
  if (settings.frequencyMHz <= 0) fail("frequency (in MHz) needs a positive integer");
}

void setPipelining(ModelFlowSettings& settings, const Arguments& words) {
  if (numberOf(words) != 0) fail("Code should be unreachable");
  util::SetFeatureInteger("SchedulerMethod", 0);
  settings.combinatorial = true;
  std::printf("    Combinatorial design (debugging) \n");
}

void setCorrectRounding(ModelFlowSettings& settings, const Arguments&) {
  settings.testing.faithfulRounding = false;
  settings.testing.errorBounds[0] = 0.5F;
}

void setFaithfulRounding(ModelFlowSettings& settings, const Arguments&) {
  settings.testing.faithfulRounding = true;
  settings.testing.errorBounds[0] = 1.0F;
}

void setError(ModelFlowSettings& settings, const Arguments& words) {
  const double ulps = std::strtod(words[0].c_str(), nullptr);
  if (!(ulps >= 0.5)) fail("error needs a value >= 0.5");
  if (ulps > kLargestBound)
    util::exitWith({fmt::format("-error: {} is out of range 0.5 to {}", words[0], kLargestBound)});
  settings.testing.errorBounds[0] = static_cast<float>(ulps);
  settings.testing.faithfulRounding = true;
}

struct ModelFlowOption {
  const char* name;
  const char* parameters;  // names of the words behind it
  void (*action)(ModelFlowSettings& settings, const Arguments& words);
};

// The later of two options that contradict each other wins.
constexpr ModelFlowOption kOptions[] = {
    {"-testbench", "n", setTestbench},
    {"-randomTests", "", raise<&TestingOptions::randomTests>},
    {"-exhaustiveTests", "", raise<&TestingOptions::exhaustiveTests>},
    {"-subnormals", "n", setSubnormals},
    {"-expRange", "eMin eMax", setExponentRange},
    {"-positiveStimuli", "", raise<&TestingOptions::positiveStimuli>},
    {"-negativeStimuli", "", raise<&TestingOptions::negativeStimuli>},
    {"-target", "family", setTarget},
    {"-enableHardFP", "n", setHardFP},
    {"-speedgrade", "grade", setSpeedGrade},
    {"-frequency", "MHz", setFrequency},
    {"-pipelining", "n", setPipelining},
    {"-correctRounding", "", setCorrectRounding},
    {"-faithfulRounding", "", setFaithfulRounding},
    {"-error", "ulps", setError},
};

// The words behind an option that stands on the line.
Arguments wordsOf(const ModelFlowOption& option, const Options& options) {
  const int count = util::countNames(option.parameters);
  if (count == 1) return {options.getArg(option.name, "")};
  try {
    return options.getArgs(option.name, count, "");
  } catch (const std::logic_error&) {
    const util::Words behind(options.end - options.wordsBehind(option.name), options.end);
    util::exitWith(*util::missingWords(option.name, option.parameters, behind));
  }
}

}  // namespace

ModelFlowSettings readModelFlowOptions(const Options& options) {
  ModelFlowSettings settings;
  settings.testing.faithfulRounding = true;
  settings.testing.errorBounds = {1.0F};
  for (const ModelFlowOption& option : kOptions)
    if (options.has(option.name)) option.action(settings, wordsOf(option, options));
  return settings;
}

}  // namespace driver
