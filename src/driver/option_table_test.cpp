#include "driver/option_table.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <set>
#include <string>

#include "driver/usage_text.h"
#include "util/features.h"

namespace driver {
namespace {

using testing::ElementsAre;

using WordList = std::vector<const char*>;

// The run as options leave it that print `printed`.
struct After : RunState {
  explicit After(const WordList& line, const std::string& printed = "") {
    modelOptions.synthesisOnly = true;
    testing::internal::CaptureStdout();
    for (util::Words words(line); !words.empty();) {
      const OptionRow* row = findOption(words[0]);
      if (!row) throw std::runtime_error(words[0]);
      met.insert(row->name);
      words = words.subspan(1 + applyOption(*row, *this, words.subspan(1)));
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printed) << line[0];
  }
  int label(const OptionLabel& label) const { return modelOptions.getOptionValue(label); }
  static inline std::set<std::string_view> met;  // names of the options so far
};

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

TEST(OptionTable, EachOptionSetsItsPartOfTheRunAndPrints) {
  EXPECT_EQ(After({"-target", "TarnV"}).targetFamily, "TarnV");
  EXPECT_EQ(After({"-speedgrade", "-6"}).speedGrade, "-6");
  EXPECT_EQ(After({"-part", "P"}).partName, "P");
  EXPECT_EQ(After({"-frequency", "300"}, "    Frequency 300MHz \n").frequencyMHz, 300);
  EXPECT_EQ(After({"-constrainLatency", "0"}).latencyConstraint, 0);
  EXPECT_EQ(After({"-forceRegisters", "7"}).label(floatOption::overrideHardFPRegisters), 7);
  struct Strategy {
    const char* number;
    int method, combinational;
    const char* printed;
  };
  for (const auto& [number, method, combinational, printed] :
       {Strategy{"0", 0, 1, "    Combinatorial design (debugging) \n"},
        {"3", 0, 0, "    Large granularity pipelining enabled (old way)! \n"},
        {"1", 1, 0, "    Subcycle pipelining DAG-based enabled! \n"},
        {"2", 2, 0, "    Subcycle pipelining DAG-based enabled gen2! \n"},
        {"4", 3, 0,
         "    Combined min-area delay balancing + subcycle pipelining [Leiserson and Saxe 1991] "
         "\n"}}) {
    EXPECT_EQ(After({"-pipelining", number}, printed).label(synthOption::forceCombinational),
              combinational);
    EXPECT_EQ(util::GetFeatureInteger("SchedulerMethod"), method);
  }
  const After accuracy(
      {"-evaluateAccuracy", "in.stm", "out.sim"},
      "    The stimuli file is in.stm and the hardware responses are in in.stm \n");
  EXPECT_TRUE(accuracy.evaluateAccuracy);
  EXPECT_EQ(accuracy.stimuliFile + accuracy.responseFile, "in.stmout.sim");
  const After named({"-name", "adder"}, "    The new component name is adder\n");
  EXPECT_EQ(named.topName + named.testName, "adderadderTest");
  EXPECT_TRUE(After({"-enable"}).testing.enable);
  EXPECT_EQ(After({"-enable"}).label(synthOption::genGlobalEnableInput), 1);
  EXPECT_TRUE(After({"-dontcareonreset"}).dontCareOnReset);
  EXPECT_EQ(After({"-splitOutputPorts"}).label(CSynthSingleEntity::optionSplitOutputPorts), 1);
  EXPECT_EQ(After({"-useDSPForAlignment"}).label(synthOption::useDSPForAlignment), 1);
  EXPECT_FALSE(After({"-noFileGenerate"}).generateFiles);
  EXPECT_TRUE(After({"-printMachineReadable"}).printMachineReadable);
  EXPECT_EQ(After({"-wrapper"}).wrapperType, 3);
  EXPECT_EQ(After({"-wrapperIn"}).wrapperType, 1);
  EXPECT_EQ(After({"-wrapperOut"}).wrapperType, 2);
  After({"-setIntegerTESSELFeature", "F", "5"}, "\t feature name = F \n\t feature value = 5 \n");
  EXPECT_EQ(util::GetFeatureInteger("F"), 5);
  After({"-setStringTESSELFeature", "F", "x"}, "\t feature name = F \n\t feature value = x \n");
  EXPECT_EQ(util::GetFeatureString("F"), "x");
  After({"-debug"}, "    Debug pipelining enabled! \n");
  EXPECT_TRUE(util::GetFeature(Features::REPORT_DEBUG_MESSAGES));
  EXPECT_EQ(util::GetFeatureString("DebugMessagesFile"), "log.txt");
  EXPECT_EQ(util::GetFeatureBoolean("DumpDotty"), true);
  EXPECT_TRUE(After({"-label", "x", "-enable"}).testing.enable);
  EXPECT_FALSE(After({"-intStimuli"}).modelOptions.base2Stimuli);
  EXPECT_TRUE(After({"-intStimuli", "-base2stimuli"}).modelOptions.base2Stimuli);
  EXPECT_EQ(After({"-subcomponents"}, "    Subcomponents will be used for basic operations.\n")
                .label(synthOption::subcomponents),
            1);

  const After correct({"-correctRounding"}, "    Correct rounding constraint detected \n");
  EXPECT_FALSE(correct.testing.faithfulRounding);
  EXPECT_EQ(correct.label(floatOption::faithfulRes), 0);
  EXPECT_THAT(correct.testing.errorBounds, ElementsAre());
  const std::string kFaithful = "    Faithful rounding constraint detected \n";
  const After faithful({"-faithfulRounding"}, kFaithful);
  EXPECT_TRUE(faithful.testing.faithfulRounding);
  EXPECT_EQ(faithful.label(floatOption::faithfulRes), 1);
  EXPECT_THAT(After({"-error", "0.5"}, kFaithful).testing.errorBounds,
              ElementsAre(0));  // an integer
  const After bounds({"-errors", "2", "0.75", "1.5"}, kFaithful);
  EXPECT_THAT(bounds.testing.errorBounds, ElementsAre(0.75F, 1.5F));
  EXPECT_THAT(bounds.modelOptions.outputErrors, ElementsAre(0.75F, 1.5F));
  EXPECT_EQ(After({"-roundType", "3"}, "    Explicit rounding mode detected 3\n").testing.roundType,
            3);

  const char* kKiln = "    Enabling the KILN flow from cmdGauge (Prototype) \n";
  EXPECT_FALSE(After({"-KILN"}, kKiln).modelOptions.synthesisOnly);
  EXPECT_EQ(
      After({"-hardFPAddLatency", "3", "-hardFPMultLatency", "4", "-hardFPMultAddLatency", "5"},
            "    Hard FP Adder/Subtracter Latency set to 3 cycles\n"
            "    Hard FP Multiplier Latency set to 4 cycles\n"
            "    Hard FP MultAdd Latency set to 5 cycles\n")
          .label(floatOption::hardFPMultLatency),
      4);
  const After bench({"-testbench", "100"}, "    Generating test-bench with 100 test-cases\n");
  EXPECT_EQ(bench.testCaseCount, 100);
  EXPECT_EQ(bench.testing.testCount, 100);
  EXPECT_FALSE(bench.modelOptions.synthesisOnly);
  const After toFile({"-vsimToFile"},
                     "    Will generate the code for vsim to output the results to file\n");
  EXPECT_TRUE(toFile.modelOptions.vsimToFile);
  EXPECT_FALSE(toFile.gpioMismatchIsError || toFile.channelMismatchIsError);
  EXPECT_EQ(
      After({"-simulateHardFP"}, "    HardFP Simulation (not good for performance) is enabled \n")
          .label(floatOption::simulateHardFP),
      1);
  EXPECT_EQ(After({"-enableHardFP", "2", "-enableHardFP", "0"},
                  "    HardFP is enabled enabling set to true \n"
                  "    HardFP is enabled enabling set to false \n")
                .label(floatOption::enableHardFP),
            0);
  EXPECT_EQ(After({"-fuseCoefTables"},
                  "    Enables width stitching of polyonmial approx. coeff tables; \n")
                .label(DMFxPTableGenerator::optionFuseCoefTables),
            1);
  EXPECT_EQ(After({"-noTruncMult"}, "        Will disable truncated multipliers\n")
                .label(CFxPTruncMult::optionNoTruncMult),
            1);

  const TestingOptions range =
      After({"-expRange", "-3", "4"}, "        Exponent range eMin=-3 eMax=4\n").testing;
  EXPECT_EQ(range.expRangeMin, -3);
  EXPECT_EQ(range.expRangeMax, 4);
  const After binary({"-valRangeB", "101", "1000"}, "vMin=5 vMax=8 \n");
  EXPECT_EQ(binary.testing.valRangeMin, 5);
  EXPECT_EQ(binary.valHighText, "1000");
  EXPECT_EQ(
      After({"-valRange", "5", "340282366920938463463374607431768211456"}).testing.valRangeMax,
      util::MPZ::powerOfTwo(128));
  const TestingOptions injected = After({"-injectTestVector", "2", "1.5", "-0.1"}).testing;
  EXPECT_TRUE(injected.injectTestVector);
  ASSERT_EQ(injected.injectedVector.size(), 2U);
  EXPECT_EQ(mpfr_cmp_d(injected.injectedVector[0].get(), 1.5), 0);
  EXPECT_EQ(mpfr_get_prec(injected.injectedVector[1].get()), 100);
  const TestingOptions specials =
      After({"-genNaN", "-1", "-genInf", "0"},
            "        Generate NaNs is =0\n        Generate Infs is =0\n")
          .testing;
  EXPECT_FALSE(specials.genNaNs || specials.genInfs);
  const After gradual({"-subnormals", "1"}, "        Generate Subnormals is =1\n");
  EXPECT_TRUE(gradual.testing.subnormals);
  EXPECT_EQ(gradual.label(floatOption::subnormals), 1);
  const TestingOptions pi = After({"-piTesting", "4", "8"},
                                  "        Will generate test vectors around 4 multiples of "
                                  "pi/2, with each interval size 8\n, centered")
                                .testing;
  EXPECT_EQ(pi.piTestMultiples, 4);
  EXPECT_EQ(pi.piTestInterval, 8);
  const After quiet({"-qnan"}, "        Will generate quiet NaN signals \n");
  EXPECT_TRUE(quiet.testing.quietNaN && quiet.modelOptions.quietNaN);
  EXPECT_EQ(
      After({"-testOutputType", "7"}, "        Will generate the corresponding output test type\n")
          .testing.testOutputType,
      OutputNumberType::BINARY);
  EXPECT_EQ(After({"-lang", "verilog"}).language, LANGUAGE_VERILOG);
  const After unknown({"-lang", "French", "-enable"});
  EXPECT_TRUE(unknown.language == LANGUAGE_UNKNOWN && unknown.testing.enable);
  EXPECT_TRUE(After({"-generateFathomProject"}, "        Will generate a Fathom project\n")
                  .generateProject);
  const After verbose({"-verbose", "10"}, "        Verbosity set to 10\n");
  EXPECT_EQ(verbose.testing.verbosity, 10);
  EXPECT_EQ(verbose.label(synthOption::verbosity), 10);
  After({"-preserveEntityName"}, "        Will not shorten top-level entity name\n");
  EXPECT_TRUE(util::GetFeature(Features::PRESERVE_TOP_LEVEL_ENTITY_NAME));
  const char* kRatio = "        LUT to MULT ratio set to 80\n";
  EXPECT_EQ(After({"-setLUTMULTRatio", "80"}, kRatio).modelOptions.lutMultRatio, 80);

  struct Kind {
    const char* option;
    bool TestingOptions::*raised;
    const char* printed;
  };
  using T = TestingOptions;
  const char* kRegions = "        Will generate test vectors which test the regions around ";
  for (const auto& [option, raised, printed] :
       {Kind{"-useExecuteModel", &T::useExecuteModel, ""},
        {"-generateCSimulationModel", &T::generateCSimulationModel, ""},
        {"-positiveStimuli", &T::positiveStimuli, "        Positive stimuli detected\n"},
        {"-negativeStimuli", &T::negativeStimuli, "        Negative stimuli detected\n"},
        {"-specialCaseTests", &T::specialCaseTests,
         "        Will generate test vectors which have floating-point special values\n"},
        {"-cancellationTests", &T::cancellationTests,
         "        Will generate test vectors produce cancellations \n"},
        {"-nearInfinityTests", &T::nearInfinityTests, "largest FP, +infinity \n"},
        {"-nearZeroTests", &T::nearZeroTests, "smallest FP, -infinity \n"},
        {"-handTesting", &T::handTesting, "        Will generate test vectors hand selected \n"},
        {"-randomTests", &T::randomTests, "        Will generate random test vectors \n"},
        {"-exhaustiveTests", &T::exhaustiveTests,
         "        Will generate exhaustive test vectors \n"},
        {"-noChanValid", &T::noChanValid,
         "        Will not generate valid and channel signals \n"}}) {
    const bool isRegion = std::string_view(option).starts_with("-near");
    EXPECT_TRUE(After({option}, ((isRegion ? kRegions : "") + std::string(printed))).testing.*
                raised)
        << option;
  }
  const char* kAll = "        Will generate all possible test vectors \n";
  const char* kBench = "    Generating test-bench with 100 test-cases\n";
  // Takes the count of the moment.
  EXPECT_EQ(After({"-allTests", "-testbench", "100"}, (kAll + std::string(kBench)))
                .testing.piTestMultiples,
            0);
  const TestingOptions all =
      After({"-positiveStimuli", "-testbench", "100", "-allTests"},
            (std::string("        Positive stimuli detected\n") + kBench + kAll))
          .testing;
  EXPECT_TRUE(all.cancellationTests && all.handTesting && all.nearZeroTests &&
              all.nearInfinityTests && all.randomTests);
  EXPECT_FALSE(all.positiveStimuli || all.specialCaseTests || all.exhaustiveTests);
  EXPECT_EQ(all.piTestMultiples, 100);
  EXPECT_EQ(all.expRangeMin, -1);
  EXPECT_EQ(all.expRangeMax, 0);
  for (const OptionRow& row : optionRows()) EXPECT_TRUE(After::met.contains(row.name)) << row.name;
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

}  // namespace
}  // namespace driver
