#include "driver/option_table.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <functional>
#include <set>
#include <string>

#include "driver/usage_text.h"
#include "util/features.h"

namespace driver {
namespace {

using testing::ElementsAre;

// Applies options, as the walk does, and returns what they print.
std::string apply(RunState& run, const std::vector<const char*>& line) {
  testing::internal::CaptureStdout();
  util::Words words(line);
  while (!words.empty()) {
    const OptionRow* row = findOption(words[0]);
    if (!row) {
      ADD_FAILURE() << words[0];
      break;
    }
    words = words.subspan(1 + applyOption(*row, run, words.subspan(1)));
  }
  return testing::internal::GetCapturedStdout();
}

int label(const RunState& run, const OptionLabel& label) {
  return run.modelOptions.getOptionValue(label);
}

TEST(OptionTable, HoldsEveryOptionOnce) {
  std::set<std::string_view> names;
  for (const OptionRow& row : optionRows()) {
    EXPECT_TRUE(row.name.starts_with('-'));
    names.insert(row.name);
  }
  EXPECT_EQ(optionRows().size(), 68U);
  EXPECT_EQ(names.size(), 68U);
  EXPECT_EQ(optionRows().front().name, "-target");
  EXPECT_EQ(optionRows().back().name, "-setLUTMULTRatio");
}

TEST(OptionTable, ComparesNamesWholeAndWithoutCase) {
  EXPECT_EQ(findOption("-TARGET")->name, "-target");
  EXPECT_EQ(findOption("-error")->name, "-error");
  EXPECT_EQ(findOption("-errors")->name, "-errors");
  EXPECT_FALSE(findOption("-err"));
  EXPECT_FALSE(findOption("-submormals"));
}

// The usage leaves some options out on purpose; all others it shows, behind 4 or 8 blanks.
TEST(OptionTable, IsWhatTheUsageShows) {
  const std::set<std::string_view> kUnlisted = {"-part",
                                                "-setIntegerTESSELFeature",
                                                "-setStringTESSELFeature",
                                                "-debug",
                                                "-label",
                                                "-base2stimuli",
                                                "-intStimuli",
                                                "-hardFPAddLatency",
                                                "-hardFPMultLatency",
                                                "-hardFPMultAddLatency",
                                                "-subnormals",
                                                "-verbose",
                                                "-setLUTMULTRatio",
                                                "-lang"};
  const std::string usage(kUsageOptions);
  for (const OptionRow& row : optionRows()) {
    const std::string name =
        row.name == "-dontCareOnReset" ? "-dontcareonreset" : std::string(row.name);
    bool found = false;
    for (const char* ending : {"\n", " "})
      found = found || usage.find("    " + name + ending) != std::string::npos;
    EXPECT_EQ(found, !kUnlisted.contains(row.name)) << row.name;
  }
}

TEST(Usage, BeginsWithTheBannerAndHoldsTheGroupsInOrder) {
  const std::string usage = std::string(kUsageComponents) + std::string(kUsageOptions);
  EXPECT_TRUE(usage.starts_with(
      " -- Command-line HDL generation tool based on TESSEL -- \n -- version 2.03.11 -- \n"));
  std::size_t place = 0;
  for (const char* heading :
       {"\n Supported components: \n", "\n    Floating-Point: \n", "\n    Fixed-Point:\n",
        "\n    Monster math:\n", "\n    Conversion:\n", "\n Supported options: \n", "\n    -kiln\n",
        "\n    -subcomponents\n", "\n    Arithmetic: \n", "\n    Deployment: \n",
        "\n    Testing: \n"}) {
    place = usage.find(heading, place);
    ASSERT_NE(place, std::string::npos) << heading;
  }
  EXPECT_TRUE(usage.ends_with("\n"));
}

struct OptionCase {
  const char* name;
  std::vector<const char*> words;
  const char* printed;
  std::function<bool(const RunState&)> holds;
};

const OptionCase kCases[] = {
    {"Target", {"-target", "TarnV"}, "", [](auto& r) { return r.targetFamily == "TarnV"; }},
    {"SpeedGrade", {"-speedgrade", "-6"}, "", [](auto& r) { return r.speedGrade == "-6"; }},
    {"Part", {"-part", "P"}, "", [](auto& r) { return r.partName == "P"; }},
    {"Frequency",
     {"-frequency", "300"},
     "    Frequency 300MHz \n",
     [](auto& r) { return r.frequencyMHz == 300; }},
    {"Combinational",
     {"-pipelining", "0"},
     "    Combinatorial design (debugging) \n",
     [](auto& r) {
       return util::GetFeatureInteger("SchedulerMethod") == 0 &&
              label(r, synthOption::forceCombinational) == 1;
     }},
    {"LargeGranularity",
     {"-pipelining", "3"},
     "    Large granularity pipelining enabled (old way)! \n",
     [](auto& r) {
       return util::GetFeatureInteger("SchedulerMethod") == 0 &&
              label(r, synthOption::forceCombinational) == 0;
     }},
    {"Greedy",
     {"-pipelining", "1"},
     "    Subcycle pipelining DAG-based enabled! \n",
     [](auto&) { return util::GetFeatureInteger("SchedulerMethod") == 1; }},
    {"Timed",
     {"-pipelining", "2"},
     "    Subcycle pipelining DAG-based enabled gen2! \n",
     [](auto&) { return util::GetFeatureInteger("SchedulerMethod") == 2; }},
    {"Combined",
     {"-pipelining", "4"},
     "    Combined min-area delay balancing + subcycle pipelining [Leiserson and Saxe 1991] \n",
     [](auto&) { return util::GetFeatureInteger("SchedulerMethod") == 3; }},
    {"Latency", {"-constrainLatency", "0"}, "", [](auto& r) { return r.latencyConstraint == 0; }},
    {"ForceRegisters",
     {"-forceRegisters", "7"},
     "",
     [](auto& r) { return label(r, floatOption::overrideHardFPRegisters) == 7; }},
    {"AccuracyFiles",
     {"-evaluateAccuracy", "in.stm", "out.sim"},
     "    The stimuli file is in.stm and the hardware responses are in in.stm \n",
     [](auto& r) {
       return r.evaluateAccuracy && r.stimuliFile == "in.stm" && r.responseFile == "out.sim";
     }},
    {"Name",
     {"-name", "adder"},
     "    The new component name is adder\n",
     [](auto& r) { return r.topName == "adder" && r.testName == "adderTest"; }},
    {"Enable",
     {"-enable"},
     "",
     [](auto& r) { return r.testing.enable && label(r, synthOption::genGlobalEnableInput) == 1; }},
    {"DontCareOnReset", {"-dontcareonreset"}, "", [](auto& r) { return r.dontCareOnReset; }},
    {"SplitOutputs",
     {"-splitOutputPorts"},
     "",
     [](auto& r) { return label(r, CSynthSingleEntity::optionSplitOutputPorts) == 1; }},
    {"DspForAlignment",
     {"-useDSPForAlignment"},
     "",
     [](auto& r) { return label(r, synthOption::useDSPForAlignment) == 1; }},
    {"NoFiles", {"-noFileGenerate"}, "", [](auto& r) { return !r.generateFiles; }},
    {"MachineReadable",
     {"-printMachineReadable"},
     "",
     [](auto& r) { return r.printMachineReadable; }},
    {"Wrapper", {"-wrapper"}, "", [](auto& r) { return r.wrapperType == 3; }},
    {"WrapperIn", {"-wrapperIn"}, "", [](auto& r) { return r.wrapperType == 1; }},
    {"WrapperOut", {"-wrapperOut"}, "", [](auto& r) { return r.wrapperType == 2; }},
    {"IntegerFeature",
     {"-setIntegerTESSELFeature", "F", "5"},
     "\t feature name = F \n\t feature value = 5 \n",
     [](auto&) { return util::GetFeatureInteger("F") == 5; }},
    {"StringFeature",
     {"-setStringTESSELFeature", "F", "x"},
     "\t feature name = F \n\t feature value = x \n",
     [](auto&) { return util::GetFeatureString("F") == "x"; }},
    {"Debug",
     {"-debug"},
     "    Debug pipelining enabled! \n",
     [](auto&) {
       return util::GetFeature(Features::REPORT_DEBUG_MESSAGES) &&
              util::GetFeatureString("DebugMessagesFile") == "log.txt" &&
              util::GetFeatureBoolean("DumpDotty") == true;
     }},
    {"Label", {"-label", "x", "-enable"}, "", [](auto& r) { return r.testing.enable; }},
    {"IntStimuli", {"-intStimuli"}, "", [](auto& r) { return !r.modelOptions.base2Stimuli; }},
    {"Base2Stimuli",
     {"-intStimuli", "-base2stimuli"},
     "",
     [](auto& r) { return r.modelOptions.base2Stimuli; }},
    {"CorrectRounding",
     {"-correctRounding"},
     "    Correct rounding constraint detected \n",
     [](auto& r) {
       return !r.testing.faithfulRounding && label(r, floatOption::faithfulRes) == 0 &&
              r.testing.errorBounds.empty();
     }},
    {"Subcomponents",
     {"-subcomponents"},
     "    Subcomponents will be used for basic operations.\n",
     [](auto& r) { return label(r, synthOption::subcomponents) == 1; }},
    {"FaithfulRounding",
     {"-faithfulRounding"},
     "    Faithful rounding constraint detected \n",
     [](auto& r) { return r.testing.faithfulRounding && label(r, floatOption::faithfulRes) == 1; }},
    {"ErrorIsAnInteger",
     {"-error", "0.5"},
     "    Faithful rounding constraint detected \n",
     [](auto& r) { return r.testing.errorBounds == std::vector<float>{0}; }},
    {"ErrorsAreReal",
     {"-errors", "2", "0.75", "1.5"},
     "    Faithful rounding constraint detected \n",
     [](auto& r) {
       const std::vector<float> bounds{0.75F, 1.5F};
       return r.testing.errorBounds == bounds && r.modelOptions.outputErrors == bounds;
     }},
    {"RoundType",
     {"-roundType", "3"},
     "    Explicit rounding mode detected 3\n",
     [](auto& r) { return r.testing.roundType == 3; }},
    {"KilnInOtherCase",
     {"-KILN"},
     "    Enabling the KILN flow from cmdGauge (Prototype) \n",
     [](auto& r) { return !r.modelOptions.synthesisOnly; }},
    {"HardLatencies",
     {"-hardFPAddLatency", "3", "-hardFPMultLatency", "4", "-hardFPMultAddLatency", "5"},
     "    Hard FP Adder/Subtracter Latency set to 3 cycles\n"
     "    Hard FP Multiplier Latency set to 4 cycles\n"
     "    Hard FP MultAdd Latency set to 5 cycles\n",
     [](auto& r) { return label(r, floatOption::hardFPMultLatency) == 4; }},
    {"Testbench",
     {"-testbench", "100"},
     "    Generating test-bench with 100 test-cases\n",
     [](auto& r) {
       return r.testCaseCount == 100 && r.testing.testCount == 100 && !r.modelOptions.synthesisOnly;
     }},
    {"VsimToFile",
     {"-vsimToFile"},
     "    Will generate the code for vsim to output the results to file\n",
     [](auto& r) {
       return r.modelOptions.vsimToFile && !r.gpioMismatchIsError && !r.channelMismatchIsError;
     }},
    {"SimulateHardFP",
     {"-simulateHardFP"},
     "    HardFP Simulation (not good for performance) is enabled \n",
     [](auto& r) { return label(r, floatOption::simulateHardFP) == 1; }},
    {"EnableHardFP",
     {"-enableHardFP", "2", "-enableHardFP", "0"},
     "    HardFP is enabled enabling set to true \n    HardFP is enabled enabling set to false \n",
     [](auto& r) { return label(r, floatOption::enableHardFP) == 0; }},
    {"FuseCoefTables",
     {"-fuseCoefTables"},
     "    Enables width stitching of polyonmial approx. coeff tables; \n",
     [](auto& r) { return label(r, DMFxPTableGenerator::optionFuseCoefTables) == 1; }},
    {"ExponentRange",
     {"-expRange", "-3", "4"},
     "        Exponent range eMin=-3 eMax=4\n",
     [](auto& r) { return r.testing.expRangeMin == -3 && r.testing.expRangeMax == 4; }},
    {"BinaryRange",
     {"-valRangeB", "101", "1000"},
     "vMin=5 vMax=8 \n",
     [](auto& r) { return r.testing.valRangeMin == 5 && r.valHighText == "1000"; }},
    {"DecimalRange",
     {"-valRange", "5", "340282366920938463463374607431768211456"},
     "",
     [](auto& r) { return r.testing.valRangeMax == util::MPZ::powerOfTwo(128); }},
    {"InjectedVector",
     {"-injectTestVector", "2", "1.5", "-0.1"},
     "",
     [](auto& r) {
       return r.testing.injectTestVector && r.testing.injectedVector.size() == 2 &&
              mpfr_cmp_d(r.testing.injectedVector[0].get(), 1.5) == 0 &&
              mpfr_get_prec(r.testing.injectedVector[1].get()) == 100;
     }},
    {"Specials",
     {"-genNaN", "-1", "-genInf", "0"},
     "        Generate NaNs is =0\n        Generate Infs is =0\n",
     [](auto& r) { return !r.testing.genNaNs && !r.testing.genInfs; }},
    {"Subnormals",
     {"-subnormals", "1"},
     "        Generate Subnormals is =1\n",
     [](auto& r) { return r.testing.subnormals && label(r, floatOption::subnormals) == 1; }},
    {"PiTesting",
     {"-piTesting", "4", "8"},
     "        Will generate test vectors around 4 multiples of pi/2, with each interval size 8\n"
     ", centered",
     [](auto& r) { return r.testing.piTestMultiples == 4 && r.testing.piTestInterval == 8; }},
    {"QuietNaN",
     {"-qnan"},
     "        Will generate quiet NaN signals \n",
     [](auto& r) { return r.testing.quietNaN && r.modelOptions.quietNaN; }},
    {"NoTruncMult",
     {"-noTruncMult"},
     "        Will disable truncated multipliers\n",
     [](auto& r) { return label(r, CFxPTruncMult::optionNoTruncMult) == 1; }},
    {"AllTestsTakeTheCountOfTheMoment",
     {"-allTests", "-testbench", "100"},
     "        Will generate all possible test vectors \n"
     "    Generating test-bench with 100 test-cases\n",
     [](auto& r) { return r.testing.piTestMultiples == 0; }},
    {"AllTests",
     {"-positiveStimuli", "-testbench", "100", "-allTests"},
     "        Positive stimuli detected\n    Generating test-bench with 100 test-cases\n"
     "        Will generate all possible test vectors \n",
     [](auto& r) {
       const TestingOptions& t = r.testing;
       return t.cancellationTests && t.handTesting && t.nearZeroTests && t.nearInfinityTests &&
              t.randomTests && !t.positiveStimuli && !t.specialCaseTests && !t.exhaustiveTests &&
              t.piTestMultiples == 100 && t.expRangeMin == -1 && t.expRangeMax == 0;
     }},
    {"OutputType",
     {"-testOutputType", "7"},
     "        Will generate the corresponding output test type\n",
     [](auto& r) { return r.testing.testOutputType == OutputNumberType::BINARY; }},
    {"Models",
     {"-useExecuteModel", "-generateCSimulationModel"},
     "",
     [](auto& r) { return r.testing.useExecuteModel && r.testing.generateCSimulationModel; }},
    {"Language", {"-lang", "verilog"}, "", [](auto& r) { return r.language == LANGUAGE_VERILOG; }},
    {"UnknownLanguage",
     {"-lang", "French", "-enable"},
     "",
     [](auto& r) { return r.language == LANGUAGE_UNKNOWN && r.testing.enable; }},
    {"Project",
     {"-generateFathomProject"},
     "        Will generate a Fathom project\n",
     [](auto& r) { return r.generateProject; }},
    {"Verbose",
     {"-verbose", "10"},
     "        Verbosity set to 10\n",
     [](auto& r) { return r.testing.verbosity == 10 && label(r, synthOption::verbosity) == 10; }},
    {"EntityName",
     {"-preserveEntityName"},
     "        Will not shorten top-level entity name\n",
     [](auto&) { return util::GetFeature(Features::PRESERVE_TOP_LEVEL_ENTITY_NAME); }},
    {"LutMultRatio",
     {"-setLUTMULTRatio", "80"},
     "        LUT to MULT ratio set to 80\n",
     [](auto& r) { return r.modelOptions.lutMultRatio == 80; }},
    {"TestKinds",
     {"-negativeStimuli", "-specialCaseTests", "-cancellationTests", "-nearInfinityTests",
      "-nearZeroTests", "-handTesting", "-randomTests", "-exhaustiveTests", "-noChanValid"},
     "        Negative stimuli detected\n"
     "        Will generate test vectors which have floating-point special values\n"
     "        Will generate test vectors produce cancellations \n"
     "        Will generate test vectors which test the regions around largest FP, +infinity \n"
     "        Will generate test vectors which test the regions around smallest FP, -infinity \n"
     "        Will generate test vectors hand selected \n"
     "        Will generate random test vectors \n"
     "        Will generate exhaustive test vectors \n"
     "        Will not generate valid and channel signals \n",
     [](auto& r) {
       const TestingOptions& t = r.testing;
       return t.negativeStimuli && t.specialCaseTests && t.cancellationTests &&
              t.nearInfinityTests && t.nearZeroTests && t.handTesting && t.randomTests &&
              t.exhaustiveTests && t.noChanValid;
     }},
};

class AnOption : public testing::TestWithParam<OptionCase> {};

TEST_P(AnOption, SetsAndPrints) {
  RunState run;
  run.modelOptions.synthesisOnly = true;
  EXPECT_EQ(apply(run, GetParam().words), GetParam().printed);
  EXPECT_TRUE(GetParam().holds(run));
}

INSTANTIATE_TEST_SUITE_P(All, AnOption, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(OptionTable, EveryOptionHasACase) {
  std::set<std::string_view> met;
  for (const OptionCase& one : kCases)
    for (const char* word : one.words)
      if (const OptionRow* row = findOption(word)) met.insert(row->name);
  for (const OptionRow& row : optionRows()) EXPECT_TRUE(met.contains(row.name)) << row.name;
}

struct BadCase {
  std::vector<const char*> words;
  const char* message;
};

TEST(OptionTable, WordsThatMakeNoSenseEndTheRunWithOneLine) {
  const BadCase cases[] = {
      {{"-frequency", "0"}, "^-frequency: 0 is out of range 1 to 2147483647 MHz\n$"},
      {{"-frequency", "fast"}, "^-frequency: fast is out of range"},
      {{"-errors", "3", "1", "2"}, "^-errors: the line ends before u3"},
      {{"-errors", "1", "nan"}, "^-error: nan ulps is out of range"},
      {{"-error", "-1"}, "^-error: -1 ulps is out of range"},
      {{"-injectTestVector", "0"}, "Error in injectTestVector n >= 1\n$"},
      {{"-injectTestVector", "1", "x"}, "^-injectTestVector: x is not a decimal number\n$"},
      {{"-valRange", "1", "0x10"}, "^-valRange: 0x10 is not an integer in base 10\n$"},
      {{"-valRangeB", "1", "12"}, "^-valRangeB: 12 is not an integer in base 2\n$"},
  };
  for (const BadCase& bad : cases) {
    EXPECT_EXIT(
        {
          RunState run;
          util::Words words(bad.words);
          applyOption(*findOption(words[0]), run, words.subspan(1));
          std::exit(0);
        },
        testing::ExitedWithCode(255), bad.message)
        << bad.words[0];
  }
}

TEST(OptionTable, EveryOptionWithTooFewWordsNamesWhatIsMissing) {
  for (const OptionRow& row : optionRows()) {
    if (row.parameters.empty()) continue;
    EXPECT_EXIT(
        {
          RunState run;
          applyOption(row, run, {});
          std::exit(0);
        },
        testing::ExitedWithCode(255),
        fmt::format("^{}: the line ends before {} ", row.name, row.parameters))
        << row.name;
  }
}

}  // namespace
}  // namespace driver
