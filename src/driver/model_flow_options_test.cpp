#include "driver/model_flow_options.h"

#include <gmock/gmock.h>

#include <sstream>
#include <string>

#include "util/features.h"

namespace driver {
namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;

struct Reading {
  ModelFlowSettings settings;
  std::string printed;
};

// Reads a line of words parted by blanks.
Reading read(const std::string& line) {
  std::istringstream text(line);
  std::vector<std::string> words;
  for (std::string word; text >> word;) words.push_back(word);
  std::vector<const char*> pointers;
  for (const std::string& word : words) pointers.push_back(word.c_str());
  testing::internal::CaptureStdout();
  ModelFlowSettings settings =
      readModelFlowOptions({pointers.data(), pointers.data() + pointers.size()});
  return {settings, testing::internal::GetCapturedStdout()};
}

TEST(ModelFlowOptions, HaveTheirDefaults) {
  // Options of the classic flow and other spellings mean nothing here.
  for (const char* line : {"-kiln FPAdd 8 23",
                           "-kiln -Target X -FREQUENCY 3 -lang verilog -name n -qnan -roundType 9 "
                           "-testBench 0 -genNaN 0 -nonsense FPAdd 8 23"}) {
    const auto [settings, printed] = read(line);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(settings.testing.testCount, 0);
    EXPECT_TRUE(settings.testing.faithfulRounding);
    EXPECT_THAT(settings.testing.errorBounds, ElementsAre(1.0F));
    EXPECT_FALSE(settings.testing.randomTests || settings.testing.exhaustiveTests);
    EXPECT_FALSE(settings.testing.positiveStimuli || settings.testing.negativeStimuli);
    EXPECT_FALSE(settings.testing.subnormals || settings.testing.quietNaN);
    EXPECT_TRUE(settings.testing.genNaNs);
    EXPECT_GT(settings.testing.expRangeMin, settings.testing.expRangeMax);
    EXPECT_EQ(settings.device.family, "Merrow 10");
    EXPECT_EQ(settings.device.speedGrade, "1");
    EXPECT_EQ(settings.device.part, "AUTO");
    EXPECT_EQ(settings.frequencyMHz, 50);
    EXPECT_FALSE(settings.combinatorial || settings.hardFP);
  }
}

TEST(ModelFlowOptions, AreReadInTheirOwnOrderWhereverTheyStand) {
  const auto [settings, printed] = read(
      "FPAdd 8 23 -pipelining 0 -frequency 300 -speedgrade -6 -enableHardFP 2 -target TarnV "
      "-negativeStimuli -positiveStimuli -expRange -5 7x -subnormals 1 -exhaustiveTests "
      "-randomTests -testbench 12abc -testbench 99 -kiln");
  EXPECT_EQ(printed,
            "        Exponent range eMin=-5 eMax=7\n"
            "\t The target FPGA is : TarnV \n"
            "    HardFP is enabled enabling set to true \n"
            "    Combinatorial design (debugging) \n");
  EXPECT_EQ(settings.testing.testCount, 12);
  EXPECT_TRUE(settings.testing.randomTests && settings.testing.exhaustiveTests);
  EXPECT_TRUE(settings.testing.positiveStimuli && settings.testing.negativeStimuli);
  EXPECT_TRUE(settings.testing.subnormals);
  EXPECT_EQ(settings.testing.expRangeMin, -5);
  EXPECT_EQ(settings.testing.expRangeMax, 7);
  EXPECT_EQ(settings.device.family, "TarnV");
  EXPECT_EQ(settings.device.speedGrade, "-6");
  EXPECT_EQ(settings.frequencyMHz, 300);
  EXPECT_TRUE(settings.combinatorial && settings.hardFP);
  EXPECT_EQ(util::GetFeatureInteger("SchedulerMethod"), 0);
}

TEST(ModelFlowOptions, SwitchesGoOffAtZeroAndBelow) {
  const auto [settings, printed] = read("-kiln -enableHardFP -1 -subnormals 0 FPAdd 8 23");
  EXPECT_FALSE(settings.hardFP || settings.testing.subnormals);
  EXPECT_EQ(printed, "    HardFP is enabled enabling set to false \n");
}

TEST(ModelFlowOptions, TheLaterRoundingInTheirOrderWins) {
  struct Case {
    const char* line;
    bool faithful;
    float bound;
  };
  for (const auto& [line, faithful, bound] :
       {Case{"-correctRounding", false, 0.5F}, Case{"-faithfulRounding -correctRounding", true, 1},
        Case{"-error 2.5 -correctRounding", true, 2.5F}, Case{"-error 0.5", true, 0.5F},
        Case{"-error 1.5e1x -faithfulRounding", true, 15}}) {
    const ModelFlowSettings settings = read(line).settings;
    EXPECT_EQ(settings.testing.faithfulRounding, faithful) << line;
    EXPECT_THAT(settings.testing.errorBounds, ElementsAre(bound)) << line;
  }
}

TEST(ModelFlowOptions, RefuseValuesThatTheyCannotHave) {
  struct Case {
    const char* line;
    const char* message;
  };
  const std::string head = "^Assertion \"false\" failed: cmdGauge:[0-9]+, .*: ";
  const char* kCount = "testbench count needs a positive integer\n$";
  const char* kClock = "frequency \\(in MHz\\) needs a positive integer\n$";
  const char* kStages = "Code should be unreachable\n$";
  const char* kBound = "error needs a value >= 0.5\n$";
  for (const auto& [line, message] :
       {Case{"-testbench 0", kCount}, Case{"-testbench x", kCount}, Case{"-testbench", kCount},
        Case{"-frequency -3", kClock}, Case{"-frequency", kClock}, Case{"-pipelining 1", kStages},
        Case{"-pipelining -1", kStages}, Case{"-error 0.49", kBound}, Case{"-error nan", kBound},
        Case{"-error", kBound},
        // The first in the order of reading speaks.
        Case{"-error 0 -testbench 0", kCount}})
    EXPECT_EXIT(read(line), ExitedWithCode(255), head + message) << line;
  for (const char* value : {"inf", "65537", "1e300"})
    EXPECT_EXIT(read(std::string("-error ") + value), ExitedWithCode(255),
                std::string("^-error: ") + value + " is out of range 0.5 to 65536\n$");
}

TEST(ModelFlowOptions, ALineThatEndsInAnOptionReadsNothingOrSaysSo) {
  const auto [settings, printed] = read("-kiln -target");
  EXPECT_EQ(settings.device.family, "");
  EXPECT_EQ(printed, "\t The target FPGA is :  \n");
  EXPECT_FALSE(read("-subnormals").settings.testing.subnormals);
  EXPECT_EXIT(read("-kiln -expRange -5"), ExitedWithCode(255),
              "^-expRange: the line ends before eMax \\(usage: -expRange eMin eMax\\)\n$");
  EXPECT_EXIT(read("-expRange"), ExitedWithCode(255), "^-expRange: the line ends before eMin eMax");
}

}  // namespace
}  // namespace driver
