// From the command line over a simulator back to the command line: -vsimToFile records what the
// unit does, -evaluateAccuracy judges it.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cmath>
#include <fstream>
#include <regex>
#include <sstream>

#include "program.h"

namespace {

using program::Folder;
using program::Outcome;
using testing::HasSubstr;

constexpr const char* kStimuli = "topModel/topModel_xIn.stm";
constexpr const char* kResults = "topModel/topModel_xOut.stm.sim";

class RecordedRun : public testing::Test {
 protected:
  void simulate(const std::string& line) {
    words = line;
    const Outcome outcome = program::run(folder, "-testbench 400 -randomTests -vsimToFile " + line);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    ASSERT_TRUE(program::simulates(folder)) << line;
  }
  Outcome evaluate() const {
    return program::run(folder, fmt::format("{} -noFileGenerate -evaluateAccuracy ./{} ./{}", words,
                                            kStimuli, kResults));
  }
  std::string contents(const char* path) const { return folder.files().at(path); }
  void write(const char* path, const std::string& text) const {
    std::ofstream(folder.path() / path) << text;
  }
  // The second number of a figure, in units of the last place.
  static double inUlps(const std::string& text, const std::string& figure) {
    std::smatch match;
    const std::regex pattern("@" + figure + " out 0 [^ ]+ ([^@]+)@");
    EXPECT_TRUE(std::regex_search(text, match, pattern)) << text;
    return match.empty() ? NAN : std::stod(match[1]);
  }

  Folder folder;
  std::string words;
};

std::string failures(int port, int values, int specials) {
  return fmt::format("@out {0} #failedValues {1} times@\n@out {0} #failedSpecial {2} times@\n",
                     port, values, specials);
}

TEST_F(RecordedRun, CorrectlyRoundedUnitsHaveNoError) {
  for (const char* unit :
       {"FPAdd 8 23", "FPAdd 5 10", "FPMul 8 23", "-lang verilog FPMul 5 10", "FPAddSub 8 23",
        "FPAddSub 5 10", "FPFusedAddSub 8 23", "-subnormals 1 FPAdd 5 10",
        "-roundType 3 FPMul 5 10", "-noChanValid FPAdd 5 10", "FPAddInFPLibXOutFPLib 5 10"}) {
    simulate(std::string("-frequency 300 -correctRounding ") + unit);
    const Outcome outcome = evaluate();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "") << unit;
    EXPECT_THAT(outcome.out, HasSubstr("cycle(s)\n@@start\n@mpre out 0 0.000000e+00 0.000@\n"))
        << unit;
    EXPECT_THAT(outcome.out, HasSubstr(failures(0, 0, 0))) << unit;
    if (std::string(unit).find("Fused") != std::string::npos) {
      EXPECT_THAT(outcome.out, HasSubstr(failures(1, 0, 0) + "@@end\n"));
    }
  }
}

TEST_F(RecordedRun, FaithfulUnitsStayWithinOneUlp) {
  simulate("-frequency 300 FPAdd 8 23");
  const Outcome outcome = evaluate();
  EXPECT_THAT(outcome.out, HasSubstr(failures(0, 0, 0)));
  EXPECT_LT(inUlps(outcome.out, "mpre"), 1);
  EXPECT_GT(inUlps(outcome.out, "mnre"), -1);
  EXPECT_GT(inUlps(outcome.out, "avgre"), 0);
}

TEST_F(RecordedRun, OneWrongBitIsOneFailedValueAtItsPort) {
  simulate("-frequency 300 -correctRounding FPFusedAddSub 8 23");
  // The top fraction bit of the second port, in a row with ordinary results on it.
  std::istringstream rows(contents(kResults));
  std::string text;
  bool flipped = false;
  for (std::string row; std::getline(rows, row);) {
    const std::size_t second = row.find_last_not_of(' ') - 31;
    const std::string exponent = row.substr(second + 1, 8);
    if (!flipped && exponent != "00000000" && exponent != "11111111") {
      char& bit = row[second + 9];
      bit = bit == '0' ? '1' : '0';
      flipped = true;
    }
    text += row + "\n";
  }
  ASSERT_TRUE(flipped);
  write(kResults, text);
  EXPECT_THAT(evaluate().out, HasSubstr(failures(0, 0, 0) + failures(1, 1, 0) + "@@end\n"));
}

TEST_F(RecordedRun, AMistakeInAFileIsOneLine) {
  simulate("-frequency 300 FPAdd 5 10");
  const std::string results = contents(kResults);
  const auto expectLine = [&](const std::string& text, const std::string& message) {
    write(kResults, text);
    const Outcome outcome = evaluate();
    EXPECT_EQ(outcome.status, 255);
    EXPECT_THAT(outcome.err, HasSubstr(message));
    EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
  };
  expectLine(results.substr(0, results.size() - 8), "topModel_xOut.stm.sim: row 4");
  expectLine("garbage\n" + results, "topModel_xOut.stm.sim: row 1: 1 columns, expected 3");
  std::filesystem::remove(folder.path() / kResults);
  const Outcome outcome = evaluate();
  EXPECT_EQ(outcome.status, 255);
  EXPECT_THAT(outcome.out, testing::EndsWith("Error: failed to open one of the files\n"));
  EXPECT_THAT(outcome.err, HasSubstr("./" + std::string(kResults) + ": No such file"));
}

TEST_F(RecordedRun, ResultsOfSplitOutputsAreRefused) {
  const Outcome outcome = program::run(
      folder, "-splitOutputPorts FPFusedAddSub 8 23 -evaluateAccuracy in.stm out.stm.sim");
  EXPECT_EQ(outcome.status, 255);
  EXPECT_THAT(outcome.err, testing::StartsWith("-evaluateAccuracy: reads one result file; "));
  EXPECT_TRUE(folder.files().empty());
}

}  // namespace
