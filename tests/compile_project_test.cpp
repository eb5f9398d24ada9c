// The compile project of -generateFathomProject: its files, and the figures that yosys leaves.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <regex>

#include "program.h"

namespace {

using program::Folder;
using testing::HasSubstr;

struct Cells {
  int estimate = -1, synthesised = -1;
};

Cells cellsOf(const std::string& figures, const std::string& kind) {
  std::smatch match;
  if (!std::regex_search(
          figures, match,
          std::regex("(?:^|\n)" + kind + " (?:estimate=([0-9]+) )?yosys=([0-9]+) objects")))
    return {};
  return {match[1].matched ? std::stoi(match[1]) : -1, std::stoi(match[2])};
}

struct ProjectCase {
  const char* label;
  const char* line;
  const char* name;
  const char* source;
  int dsps;
  int bits;           // of all virtual pins
  const char* clock;  // period in ns
  bool isHardBlock = false;
};

const ProjectCase kCases[] = {
    {"Vhdl", "-frequency 300 FPAdd 5 10", "topModel", ".vhd", 0, 1 + 2 * 9 + 3 * 16, "3.333"},
    {"Dsps",
     "-lang Verilog -target TarnV -frequency 250 -enable -part X12 -correctRounding FPMul 8 23",
     "topModel", ".v", 2, 2 + 2 * 9 + 3 * 32, "4.000"},
    {"HardFloat", "-enableHardFP 1 -frequency 200 FPMultAdd 8 23", "topModel", ".vhd", 1,
     1 + 2 * 9 + 4 * 32, "5.000", true},
    {"LongName", "-noChanValid -name a_unit_with_a_name_beyond_the_usual_limit LongAdd 20",
     "a_unit_with_a_name_beyond_the_usual_limit", ".vhd", 0, 1 + 3 * 20, "20.000"},
    // No stage holds the sum of this clock: the unit is built for a longer period.
    {"SlowerThanAsked", "-frequency 900 FPAcc 8 23 -20 20 15", "topModel", ".vhd", 0,
     9 + 9 + 1 + 1 + 32 + 32 + 3, nullptr},
};

class Project : public testing::TestWithParam<ProjectCase> {};

TEST_P(Project, IsSynthesisedAsItStands) {
  const ProjectCase& given = GetParam();
  const Folder folder;
  const auto outcome = program::run(folder, std::string("-generateFathomProject ") + given.line);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("        Will generate a Fathom project\n"));

  const std::string base = fmt::format("{0}/{0}", given.name);
  const std::string command = fmt::format("cd '{}/{}' && yosys -q synthesize.ys >log 2>&1",
                                          folder.path().string(), given.name);
  const int status = std::system(command.c_str());
  auto files = folder.files();
  EXPECT_EQ(status, 0) << files[std::string(given.name) + "/log"];
  for (const char* ending : {".sdc", ".fathom", given.source, ".v"}) {
    EXPECT_TRUE(files.contains(base + ending)) << ending;
    EXPECT_THAT(files[base + ".json"], HasSubstr(fmt::format("\"{}{}\"", given.name, ending)));
  }

  const std::string& figures = files[std::string(given.name) + "/synthesis.txt"];
  EXPECT_EQ(cellsOf(figures, "DSP").synthesised, given.dsps) << figures;
  EXPECT_EQ(cellsOf(figures, "DSP").estimate, given.dsps);
  EXPECT_EQ(cellsOf(figures, "RAM").synthesised, 0);
  EXPECT_GE(cellsOf(figures, "LUT").synthesised, given.isHardBlock ? 0 : 20);
  EXPECT_GE(cellsOf(figures, "CARRY").synthesised, given.isHardBlock ? 0 : 3);
  // The tool doubles a few registers of many readers.
  const Cells registers = cellsOf(figures, "FF");
  EXPECT_GE(1.1 * registers.estimate, registers.synthesised + cellsOf(figures, "SRL").synthesised);
  EXPECT_EQ(registers.synthesised > 0, std::string(given.label) != "LongName") << figures;
  EXPECT_THAT(figures, HasSubstr(given.isHardBlock ? "STA pass" : "Latest arrival time in"));

  const std::string& settings = files[base + ".fathom"];
  EXPECT_THAT(settings, HasSubstr(fmt::format("\nsource {}{}\n", given.name, given.source)));
  int bits = 0;
  const std::regex pin("\nvirtual_pin [A-Za-z0-9_]+ (?:in|out) ([0-9]+)(?=\n)");
  for (std::sregex_iterator at(settings.begin(), settings.end(), pin), end; at != end; ++at)
    bits += std::stoi((*at)[1]);
  EXPECT_EQ(bits, given.bits) << settings;
  EXPECT_THAT(settings, HasSubstr(given.dsps == 2 ? "\npart X12\n" : "\npart Auto\n"));

  const std::string& constraints = files[base + ".sdc"];
  if (given.clock) {
    EXPECT_THAT(constraints, HasSubstr(fmt::format("\ncreate_clock -name clk -period {} [get_ports "
                                                   "{{clk}}]\n",
                                                   given.clock)));
    EXPECT_THAT(settings, HasSubstr(fmt::format("\nclock clk {}\n", given.clock)));
  } else {
    EXPECT_THAT(constraints, HasSubstr("\n# 1.111 ns were asked for"));
    EXPECT_THAT(constraints, testing::Not(HasSubstr("-period 1.111")));
  }
}

INSTANTIATE_TEST_SUITE_P(All, Project, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.label); });

TEST(ProjectFiles, AreWrittenOnlyWithTheUnit) {
  const Folder folder;
  EXPECT_EQ(program::run(folder, "-generateFathomProject -noFileGenerate FPAdd 5 10").status, 0);
  EXPECT_THAT(folder.files(), testing::IsEmpty());
}

}  // namespace
