// The program as a person meets it: words of a line, and what it prints, writes and returns.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <regex>

#include "driver/option_table.h"
#include "driver/usage_text.h"
#include "operators/operator_row.h"
#include "program.h"

namespace {

using program::Folder;
using program::Outcome;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

Outcome run(const std::string& line) {
  const Folder folder;
  return program::run(folder, line);
}

void expectRefusal(const std::string& line, const std::string& message) {
  program::expectRefusal(line, HasSubstr(message));
}

std::string startUpLines(int words) {
  return fmt::format("starting execution ... \nbuild model options ... \nargc={}\n", words);
}

std::string usage() {
  return std::string(driver::kUsageComponents) + std::string(driver::kUsageOptions);
}

std::string lastLines(const std::string& text, const std::string& from) {
  const std::size_t place = text.find(from);
  return place == std::string::npos ? "" : text.substr(place);
}

TEST(ALine, WithoutWordsShowsTheUsageAndBuildsNothing) {
  const Outcome outcome = run("");
  EXPECT_EQ(outcome.status, 255);
  EXPECT_EQ(outcome.out,
            startUpLines(1) + usage() + "Generation context:\nError: did not generate unit\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(ALine, WithOptionsOnlyBuildsNothing) {
  const Outcome outcome = run("-frequency 300 -randomTests");
  EXPECT_EQ(outcome.status, 255);
  EXPECT_EQ(outcome.out, startUpLines(4) +
                             "Generation context:\n    Frequency 300MHz \n"
                             "        Will generate random test vectors \n"
                             "Error: did not generate unit\n");
}

TEST(ALine, WithAnUnknownOptionShowsTheUsage) {
  const Outcome outcome = run("FPAdd 8 23 -submormals 1");
  EXPECT_EQ(outcome.status, 255);
  EXPECT_THAT(outcome.out, HasSubstr("    Unknown option '-submormals'\n" + usage()));
}

TEST(ALine, WithAnUnknownOperatorRepeatsForEver) {
  const Folder folder;
  const Outcome outcome = program::run(folder, "FPAddd 8 23", 0.5);
  EXPECT_EQ(outcome.status, -1);
  EXPECT_THAT(outcome.out, HasSubstr("    Deployment FPGA Merrow10 \n"
                                     "    Deployment FPGA Merrow10 \n"
                                     "    Deployment FPGA Merrow10 \n"));
  // Behind an operator the walk stays at the word without a line more.
  const Outcome behind = program::run(folder, "FPAdd 8 23 24", 0.5);
  EXPECT_EQ(behind.status, -1);
  EXPECT_THAT(behind.out, testing::EndsWith(":\n    Deployment FPGA Merrow10 \n"));
}

TEST(ALine, WithAWordInAnotherCaseThanItMustHaveRepeatsForEver) {
  const Folder folder;
  EXPECT_EQ(program::run(folder, "fpsqrtdynrnd 8 23", 0.5).status, -1);
}

TEST(ALine, WithAnOperatorThatHasNoUnitSaysSo) {
  const auto rows = operators::operatorRows();
  const auto row = std::ranges::find_if(rows, [](const operators::OperatorRow& row) {
    return row.parameters.size() == 2 && row.parameters[1].name == "wF" &&
           !functions::findUnit(row.unit);
  });
  if (row == rows.end()) GTEST_SKIP() << "every unit is there";
  expectRefusal(fmt::format("{} 8 23 -testbench 10", row->word),
                fmt::format("{}: no unit yet", row->word));
}

TEST(Report, TellsWhatWasBuilt) {
  const Outcome outcome =
      run("-frequency 300 -testbench 100 -randomTests -expRange -5 5 -printMachineReadable "
          "FPAdd 8 23");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out,
              StartsWith(startUpLines(13) + "Generation context:\n    Frequency 300MHz \n"
                                            "    Generating test-bench with 100 test-cases\n"
                                            "        Will generate random test vectors \n"
                                            "        Exponent range eMin=-5 eMax=5\n"
                                            "    Deployment FPGA Merrow10 \n"));
  EXPECT_THAT(
      lastLines(outcome.out, "Estimated"),
      ContainsRegex("^Estimated resources LUTs [0-9]+, DSPs 0, RAMBits 0, RAMBlocks 0 \n"
                    "The pipeline depth of the block is [1-9][0-9]* cycle\\(s\\)\n"
                    "@@start\n@name FPAdd@\n@latency [1-9][0-9]*@\n@LUT [1-9][0-9]*@\n@DSP 0@\n"
                    "@RAMBits 0@\n@RAMBlockUsage 0@\n@enable 0@\n@subnormals 0@\n@error 1.00@\n"
                    "@rounding NA@\n@method single path@\n@inPort 0 fpieee 8 23@\n"
                    "@inPort 1 fpieee 8 23@\n@outPort 0 fpieee 8 23@\n@test random 100@\n"
                    "@exprange -5 5@\n@nochanvalid 0@\n@@end\n"));
  EXPECT_THAT(outcome.out,
              testing::EndsWith("\n Finished generating testbench having 100 test cases \n"));
}

struct FieldCase {
  const char* name;
  const char* line;
  std::vector<const char*> present;
  std::vector<const char*> absent;
};

const FieldCase kFieldCases[] = {
    {"CorrectRounding",
     "-correctRounding FPMul 8 23",
     {"@error 0.50@\n@rounding RNE@\n@method default@\n"},
     {"@test"}},
    {"RoundingTowardZero", "-roundType 3 -correctRounding FPMul 8 23", {"@rounding RZ@\n"}, {}},
    {"AnErrorBoundIsFaithful",
     "-correctRounding -error 2 FPMul 8 23",
     {"@error 2.00@\n@rounding NA@\n"},
     {}},
    {"LibPorts",
     "FPAddInFPLibXOutFPLib 8 23",
     {"@inPort 0 fplib 8 23@\n@inPort 1 fpieee 8 23@\n@outPort 0 fplib 8 23@\n"},
     {}},
    {"FixedPorts",
     "MultSchoolbookExpert 8 0 5 1",
     {"@name SchoolbookMult@\n", "@inPort 0 fxp 8 0 0@\n@inPort 1 fxp 5 0 1@\n",
      "@outPort 0 fxp 13 0 1@\n"},
     {}},
    {"NoTestsWithoutABench",
     "-testbench 0 -randomTests -exhaustiveTests -valRange 5 5 LongAdd 8",
     {"@nochanvalid 0@\n"},
     {"@test", "@valrange", "@exprange"}},
    {"ValueRangeAsItWasWritten",
     "-valRangeB 0101 0101 -testbench 3 -randomTests LongAdd 8",
     {"vMin=5 vMax=5 \n", "isSigned = 0 isMultiOperand=0 isExpert=0 hasBitGrowth=0\n",
      "@test random 3@\n@valrange 0101 0101@\n"},
     {"@exprange"}},
    {"Flags", "FPAdd 8 23 -enable -noChanValid", {"@enable 1@\n", "@nochanvalid 1@\n"}, {}},
    {"FlaggedProduct",
     "-subnormals 1 fpmultflagsdynrnd 8 23 -testbench 10 -randomTests",
     {"@name FPMultFlagsDynRnd@\n", "@method default@\n@inPort 0 fpieee 8 23@\n",
      "@inPort 2 fxp 2 0 0@\n@outPort 0 fpieee 8 23@\n@outPort 1 fxp 5 0 0@\n@test random 10@\n"},
     {}},
    {"IntegerMultifunction",
     "FXPFusedMultiFunction 16 -noChanValid",
     {"@inPort 2 fxp 16 0 1@\n@inPort 3 fxp 2 0 0@\n@inPort 4 fxp 5 0 0@\n@outPort 0 fxp 16 0 1@\n"
      "@outPort 1 fxp 1 0 0@\n@nochanvalid 1@\n"},
     {}},
    {"TreeOfAdders",
     "FPAddN 5 10 3 -noChanValid",
     {"@name FPAddTree@\n", "@inPort 2 fpieee 5 10@\n@outPort 0 fpieee 5 10@\n@nochanvalid 1@\n"},
     {"@inPort 3"}},
    {"SplitOutputs",
     "-frequency 300 -splitOutputPorts FPFusedAddSub 8 23",
     {"Enhanced latency reporting mechanism: ", " latency port 0 is ", "\n latency port 1 is "},
     {"The pipeline depth"}},
    {"TheLastOfSeveralOperators",
     "FPAdd 8 23 -correctRounding FPSub 5 10",
     {"@name FPSub@\n", "@rounding RNE@\n", "@inPort 1 fpieee 5 10@\n@outPort 0 fpieee 5 10@\n"},
     {"Warning", "@inPort 2"}},
};

class ReportFields : public testing::TestWithParam<FieldCase> {};

TEST_P(ReportFields, FollowTheLine) {
  const Outcome outcome = run(std::string("-printMachineReadable ") + GetParam().line);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  for (const char* text : GetParam().present) EXPECT_THAT(outcome.out, HasSubstr(text));
  for (const char* text : GetParam().absent) EXPECT_THAT(outcome.out, Not(HasSubstr(text)));
}

INSTANTIATE_TEST_SUITE_P(All, ReportFields, testing::ValuesIn(kFieldCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(WordOrder, TheClockCountsInFrontOfTheOperatorOnly) {
  const std::string fast = run("-frequency 400 FPAdd 8 23").out;
  const Outcome late = run("FPAdd 8 23 -frequency 400");
  EXPECT_THAT(fast, Not(HasSubstr("block is 0 cycle(s)")));
  EXPECT_EQ(lastLines(late.out, "Estimated"), lastLines(run("FPAdd 8 23").out, "Estimated"));
  EXPECT_EQ(late.status, 0);
  EXPECT_EQ(late.err,
            "Warning: -frequency stands behind the operator and does not change the unit\n");
}

TEST(CorrectRounding, SaysWhereItIsNotProven) {
  EXPECT_EQ(run("-correctRounding FPExp 7 16").err,
            "Warning: FPExp: correct rounding is not proven in this format; results are within "
            "0.5000010 ulp\n");
  for (const char* line :
       {"FPExp 7 16", "-correctRounding FPExp 8 23", "-correctRounding FPSqrt 7 16"})
    EXPECT_EQ(run(line).err, "") << line;
}

TEST(WordOrder, LateOptionsChangeReportAndVectorsButNotTheUnit) {
  const Folder early, late;
  const std::string rest = " -noChanValid -printMachineReadable";
  EXPECT_EQ(program::run(early, "FPAdd 8 23" + rest).err, "");
  const Outcome outcome = program::run(
      late, "FPAdd 8 23 -subnormals 1 -roundType 3 -correctRounding -pipelining 0" + rest);
  EXPECT_THAT(outcome.out, HasSubstr("@subnormals 1@\n@error 0.50@\n@rounding RZ@\n"));
  EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 4) << outcome.err;
  // The same design below the comment that tells the command line.
  const auto body = [](const Folder& folder) {
    const std::string text = folder.files().at("topModel/topModel.vhd");
    return text.substr(text.find("\nlibrary"));
  };
  EXPECT_EQ(body(early), body(late));
}

TEST(WordOrder, OptionsOfTheRunCountOnEitherSide) {
  for (const char* line : {"-testbench 20 -randomTests FPAdd 5 10 -qnan -lang verilog",
                           "FPAdd 5 10 -lang VERILOG -qnan -randomTests -TestBench 20"}) {
    const Folder folder;
    const Outcome outcome = program::run(folder, line);
    EXPECT_EQ(outcome.status, 0) << line;
    EXPECT_EQ(outcome.err, "") << line;
    EXPECT_THAT(outcome.out, HasSubstr("having 20 test cases"));
    EXPECT_TRUE(folder.files().contains("topModel/topModel.v")) << line;
  }
}

TEST(Refusals, EveryOptionWithoutItsWordsNamesThem) {
  for (const driver::OptionRow& row : driver::optionRows())
    if (!row.parameters.empty())
      expectRefusal(std::string(row.name),
                    fmt::format("{}: the line ends before {} ", row.name, row.parameters));
  expectRefusal("-errors 3 1 2", "-errors: the line ends before u3 (3 values were announced)");
  expectRefusal("-injectTestVector 2 1", "-injectTestVector: the line ends before v2");
}

TEST(Refusals, EveryOperatorWithAWordTooFewNamesIt) {
  for (const operators::OperatorRow& row : operators::operatorRows()) {
    std::string line(row.word);
    for (std::size_t k = 0; k + 1 < row.parameters.size(); ++k) line += " 5";
    expectRefusal(
        line, fmt::format("{}: the line ends before {} ", row.word, row.parameters.back().name));
  }
}

TEST(Refusals, AFormatWithoutCircuitsNamesOperatorValueAndRange) {
  for (const char* value : {"0", "-1", "x", "4000000000", "99999999999999999999"}) {
    expectRefusal(fmt::format("FPAdd {} 23", value),
                  fmt::format("FPAdd: wE {} is out of range 2 to 15", value));
    expectRefusal(fmt::format("FPMul 8 {}", value),
                  fmt::format("FPMul: wF {} is out of range 1 to 112", value));
    expectRefusal(fmt::format("LongAddMulti {} 3", value),
                  fmt::format("LongAddMulti: w {} is out of range 1 to 4096", value));
    expectRefusal(fmt::format("MultSchoolbookExpert 8 0 {} 0", value),
                  fmt::format("MultSchoolbookExpert: wY {} is out of range 1 to 1024", value));
  }
}

TEST(Refusals, SettingsThatNoUnitHasAreToldInOneLine) {
  expectRefusal("-frequency 0 FPAdd 8 23", "-frequency: 0 is out of range");
  expectRefusal("-target Foo FPAdd 8 23", "'Foo'; known families: Merrow10");
  expectRefusal("-speedgrade zz FPAdd 8 23", "'zz'; known speed grades: fast");
  expectRefusal("-expRange 500 600 FPAdd 8 23",
                "FPAdd: the exponent range 500 to 600 is out of range -126 to 127 of a");
  expectRefusal("-expRange -200 -127 FPAddInFPLib 8 23 -expRange -300 -128",
                "FPAddInFPLib: the exponent range -300 to -128 is out of range -127 to 128 of a");
  expectRefusal("-injectTestVector 1 2.5 FPAdd 8 23",
                "-injectTestVector: 1 values for the 2 inputs of FPAdd");
  expectRefusal("-testbench 10 -injectTestVector 2 2.5 1e39 FPAdd 8 23",
                "-injectTestVector: 1e+39 is out of the range of input b");
  expectRefusal("-testbench 10 -exhaustiveTests FPAdd 8 23",
                "-exhaustiveTests: 2^64 vectors or more, where 2147483647 are the most");
  expectRefusal("-constrainLatency 1 -frequency 400 FPAdd 8 23", "Latency 1 asked");
  for (const char* name : {"a/b", "..", "9x", "a__b", "a_", "_a", "a-b", "Entity", "module"})
    expectRefusal(fmt::format("-name {} FPAdd 8 23", name),
                  fmt::format("-name: '{}' is not", name));
  const Folder folder;
  EXPECT_THAT(program::runWords(folder, {"-name", "", "FPAdd", "8", "23"}).err,
              StartsWith("-name: '' is not"));
}

TEST(Refusals, OfValuesOutOfAFixedListSayWhatIsPossible) {
  const Outcome rounding = run("-roundType 4 FPAdd 8 23");
  EXPECT_EQ(rounding.status, 255);
  EXPECT_THAT(rounding.out, testing::EndsWith("Rounding mode is an option in the range 0-3\n"));
  const Outcome pipelining = run("-pipelining 5 FPAdd 8 23");
  EXPECT_EQ(pipelining.status, 255);
  EXPECT_THAT(pipelining.out, testing::EndsWith(usage()));
}

TEST(Refusals, AFolderThatCannotBeMadeEndsTheRun) {
  const Folder folder;
  std::ofstream(folder.path() / "topModel") << "in the way";
  const Outcome outcome = program::run(folder, "FPAdd 5 10 -testbench 10 -randomTests");
  EXPECT_EQ(outcome.status, 255);
  EXPECT_THAT(outcome.err, HasSubstr("topModel"));
  EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
  EXPECT_EQ(folder.files().size(), 1U);
}

TEST(Files, TwoRunsOfOneLineWriteTheSameBytes) {
  const std::string line =
      "-frequency 300 -testbench 200 -randomTests -generateCSimulationModel -name adder "
      "FPAddSub 8 23";
  const Folder first, second;
  const Outcome one = program::run(first, line);
  const Outcome two = program::run(second, line);
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_EQ(one.out, two.out);
  EXPECT_GE(first.files().size(), 8U);
  EXPECT_EQ(first.files(), second.files());
}

TEST(Files, OfSubcomponentsDifferInTheDesignAlone) {
  const std::string rest =
      "-frequency 300 -lang Verilog -testbench 40 -randomTests -generateCSimulationModel FPAdd 8 "
      "23";
  const Folder whole, parted;
  const std::string report = program::run(whole, rest).out;
  std::string partedReport = program::run(parted, "-subcomponents " + rest).out;
  EXPECT_EQ(lastLines(partedReport, "Estimated"), lastLines(report, "Estimated"));
  // Below the lines that quote the command line.
  const auto body = [](const std::string& text) {
    return text.substr(text.find('\n', std::min(text.find("FPAdd 8 23"), text.size() - 1)));
  };
  auto files = parted.files();
  for (const auto& [path, text] : whole.files())
    EXPECT_EQ(body(files[path]) == body(text), path != "topModel/topModel.v") << path;
  for (const char* name : {"topModel_unit", "topModel_unpack", "topModel_unpack_2",
                           "topModel_single_path_adder", "topModel_round"}) {
    EXPECT_THAT(files["topModel/topModel.v"], HasSubstr(fmt::format("\nmodule {} (", name)));
    EXPECT_THAT(files["topModel/topModel.v"], HasSubstr(fmt::format("\n  {} part_", name)));
  }
}

TEST(Alignment, MovesFromTablesToDspBlocksOnRequest) {
  const std::regex resources("resources LUTs ([0-9]+), DSPs ([0-9]+)");
  for (const auto& [line, blocks] :
       {std::pair{"-frequency 300 -target TarnV FPAdd 8 23", 1},
        {"-frequency 300 -target TarnV -correctRounding FPSub 11 52", 3}}) {
    std::smatch plain, moved;
    const std::string before = run(line).out,
                      after = run(std::string("-useDSPForAlignment ") + line).out;
    ASSERT_TRUE(std::regex_search(before, plain, resources));
    ASSERT_TRUE(std::regex_search(after, moved, resources));
    EXPECT_LT(std::stoi(moved[1]), std::stoi(plain[1])) << line;
    EXPECT_EQ(std::stoi(plain[2]), 0) << line;
    EXPECT_EQ(std::stoi(moved[2]), blocks) << line;
  }
}

// Its line and the report stand there indented by four.
TEST(Readme, ShowsWhatItsExamplePrints) {
  std::ifstream file(CMDGAUGE_SOURCE "/README.md");
  std::string line, words, shown;
  while (std::getline(file, line)) {
    const std::string text = line.starts_with("    ") ? line.substr(4) : "";
    if (words.empty() && text.starts_with("$ cmdGauge ")) words = text.substr(11);
    if (text.starts_with("Estimated") || !shown.empty()) shown += text + "\n";
    if (text == "@@end") break;
  }
  ASSERT_THAT(words, HasSubstr("-printMachineReadable"));
  EXPECT_THAT(run(words).out, HasSubstr(shown));
}

TEST(Files, AreLeftOutOnRequest) {
  const Folder folder;
  EXPECT_EQ(program::run(folder, "FPAdd 5 10 -noFileGenerate").status, 0);
  EXPECT_THAT(folder.files(), IsEmpty());
}

TEST(Files, ControlCharactersOfTheLineStayInsideItsComment) {
  const Folder folder;
  const Outcome outcome = program::runWords(folder, {"-label", "x\nentity y", "FPAdd", "5", "10"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(folder.files().at("topModel/topModel.vhd"), HasSubstr("-label x?entity y FPAdd"));
}

}  // namespace
