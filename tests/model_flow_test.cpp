// The flow of the word -kiln as a person meets it; it makes the circuit of the classic flow.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>

#include "program.h"

namespace {

using program::Folder;
using program::Outcome;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// The valid rows of a vector file without their channel, whose numbers the latency shifts.
std::vector<std::string> validRows(const std::string& text) {
  std::vector<std::string> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream columns(line);
    std::string valid, channel, rest;
    columns >> valid >> channel;
    std::getline(columns, rest);
    if (valid == "1") rows.push_back(rest);
  }
  return rows;
}

TEST(ModelFlow, BuildsAUnitAndItsVectorsFromAnyPlaceOfItsWord) {
  for (const char* line : {"-kiln FPFusedAddSub 5 10 -frequency 300 -testbench 50 -randomTests",
                           "-testbench 50 -frequency 300 FPFusedAddSub 5 10 -randomTests -kiln"}) {
    const Folder folder;
    const Outcome outcome = program::run(folder, line);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out,
                testing::StartsWith("Detected component FPFusedAddSub with param list: 5 10 \n"));
    EXPECT_THAT(outcome.out,
                ContainsRegex("The pipeline depth of the block is [1-9][0-9]* cycle\\(s\\)\n"));
    EXPECT_THAT(outcome.out, testing::EndsWith("Should have generated 50 tests \n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("@@start")));
    const auto files = folder.files();
    for (const char* name : {"somefile.xml", "topModel/topModel.vhd", "topModel/topModel_atb.vhd",
                             "topModel/topModel_xIn.stm", "topModel/topModel_xOut.stm"})
      EXPECT_TRUE(files.contains(name)) << name;
    EXPECT_EQ(validRows(files.at("topModel/topModel_xIn.stm")).size(), 50U);
  }
}

TEST(ModelFlow, WithoutACountWritesNoVector) {
  const Folder folder;
  const Outcome outcome = program::run(folder, "-kiln FPMul 5 10 -randomTests");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, testing::EndsWith("Should have generated 0 tests \n"));
  EXPECT_THAT(validRows(folder.files().at("topModel/topModel_xIn.stm")), IsEmpty());
}

TEST(ModelFlow, RefusesInOneLineAndWritesNothing) {
  struct Case {
    const char* line;
    const char* message;
  };
  const char* kLookup = "Assertion \"opCount==1 || exception\" failed: cmdGauge:";
  for (const auto& [line, message] :
       {Case{"-kiln", kLookup}, Case{"-kiln FPAdd 8 23 FPMul", kLookup},
        Case{"-kiln FPSinCosPiX 8 23", kLookup}, Case{"-kiln LongAdd 8", kLookup},
        Case{"-kiln FPCompare 8 23 4", "Compare type unsupported. check help for details"},
        Case{"-kiln FPDiv 8 23 2", "Architecture type for div is one of 0 or 1. check help"},
        Case{"-kiln FPAbs 8", "FPAbs: wF 0 of port a is out of range 1 to 112"},
        Case{"-kiln FPMulExpert 8 23 8 23 8", "FPMulExpert: wF 0 of port q is out of range"},
        Case{"-kiln FPToFXP 8 23 201 0 1 0", "FPToFXP: w 201 of port q is out of range 1 to 200"},
        Case{"-kiln FPAdd 2147483647 2147483647", "FPAdd: wE 2147483647 of port a is out of"},
        Case{"-kiln FPAdd 8 23 -testbench", "testbench count needs a positive integer"},
        Case{"-kiln FPAdd 8 23 -frequency 0", "frequency (in MHz) needs a positive integer"},
        Case{"-kiln FPAdd 8 23 -pipelining 3", "Code should be unreachable"},
        Case{"-kiln FPAdd 8 23 -error 0.4", "error needs a value >= 0.5"},
        Case{"-kiln FPAdd 8 23 -expRange 4", "-expRange: the line ends before eMax"},
        Case{"-kiln FPAdd 8 23 -expRange 500 600", "range 500 to 600 is out of range -126 to 127"},
        Case{"-kiln FPAdd 8 23 -exhaustiveTests", "-exhaustiveTests: 2^64 vectors or more"},
        Case{"-kiln FPAdd 8 23 -target Foo", "Unknown device family 'Foo'"},
        Case{"-kiln FPAdd 8 23 -speedgrade", "Unknown speed grade ''"}})
    program::expectRefusal(line, HasSubstr(message));
}

TEST(ModelFlow, IsNotSelectedByItsWordInAnotherCase) {
  const Folder folder;
  const Outcome outcome = program::run(folder, "-KILN FPAdd 8 23");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("    Enabling the KILN flow from cmdGauge (Prototype) \n"));
}

// The files of a unit but for the word that chose the flow, and the valid rows of its vectors.
std::map<std::string, std::string> unitFiles(const Folder& folder) {
  std::map<std::string, std::string> files;
  for (const auto& [name, text] : folder.files()) {
    if (name.ends_with(".stm")) files[name] = fmt::format("{}", fmt::join(validRows(text), "\n"));
    if (!name.ends_with(".vhd") && !name.ends_with(".json")) continue;
    std::string same = text;
    for (std::size_t at; (at = same.find("-kiln ")) != std::string::npos;) same.erase(at, 6);
    files[name] = same;
  }
  return files;
}

class TwoFlows : public testing::TestWithParam<std::tuple<const char*, const char*>> {};

TEST_P(TwoFlows, MakeOneCircuit) {
  const auto& [word, options] = GetParam();
  for (const auto& [wE, wF] : {std::pair{8, 23}, std::pair{5, 10}, std::pair{11, 52}}) {
    const std::string format = fmt::format("{} {}", wE, wF);
    std::string parameters = format;
    // Every choice of the expert forms that changes the circuit.
    if (word == std::string("FPAddExpert")) parameters += wE == 5 ? " 0 1 1" : " 1 1 0";
    if (word == std::string("FPMulExpert"))
      parameters += " " + format + (wE == 8 ? " 11 52 1" : wE == 5 ? " 8 23 0" : " 11 52 0");
    const std::string line = fmt::format("-frequency 300 -testbench 60 -randomTests {} {} {}",
                                         options, word, parameters);
    const Folder classic, model;
    const Outcome expected = program::run(classic, line);
    const Outcome seen = program::run(model, "-kiln " + line);
    ASSERT_EQ(expected.status, 0) << line << expected.err;
    ASSERT_EQ(seen.status, 0) << line << seen.err;
    EXPECT_EQ(seen.err, expected.err) << line;
    EXPECT_EQ(unitFiles(model), unitFiles(classic)) << line;
    EXPECT_TRUE(program::simulates(model)) << line;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Units, TwoFlows,
    testing::Combine(testing::Values("FPAdd", "FPMul", "FPAddExpert", "FPMulExpert"),
                     testing::Values("-correctRounding -expRange -3 3", "-error 2", "-subnormals 1",
                                     "-pipelining 0", "-enableHardFP 1",
                                     "-correctRounding -subnormals 1 -target Halvard10")));

}  // namespace
