// All ways from a command line to answers agree, row by row: the graph evaluated at once, the
// schedule executed cycle by cycle, the C++ model, VHDL in GHDL and Verilog in Icarus.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "backend/graph/evaluator.h"
#include "backend/software/execution.h"
#include "driver/run_state.h"
#include "driver/walk.h"
#include "program.h"
#include "util/features.h"

namespace {

using program::Folder;
using Columns = std::vector<std::string>;
using Rows = std::vector<Columns>;

constexpr int kRows = 60;

Rows rowsOf(const std::string& text) {
  Rows rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream columns(line);
    Columns row;
    for (std::string column; columns >> column;) row.push_back(column);
    rows.push_back(row);
  }
  return rows;
}

// Rows in which the valid output is high.
Rows validRows(Rows rows) {
  std::erase_if(rows, [](const Columns& row) { return row[0] != "1"; });
  return rows;
}

// Where two roads part: nothing, or the first row that differs.
std::string difference(const Rows& seen, const Rows& expected) {
  if (seen.size() != expected.size())
    return fmt::format("{} rows instead of {}", seen.size(), expected.size());
  for (std::size_t k = 0; k < seen.size(); ++k)
    if (seen[k] != expected[k])
      return fmt::format("row {}: {} instead of {}", k, fmt::join(seen[k], " "),
                         fmt::join(expected[k], " "));
  return "";
}

std::string bitsOf(const util::MPZ& pattern, int width) {
  const std::string digits = pattern.toText(2);
  return std::string(width - digits.size(), '0') + digits;
}

util::MPZ patternOf(const std::string& bits) { return *util::MPZ::fromText(bits, 2); }

// The columns of a row, output by output; empty while the unit's valid output is low.
Columns answerOf(const graph::Graph& circuit, const std::vector<util::MPZ>& outputs) {
  Columns row;
  if (outputs[0].isZero()) return row;
  for (std::size_t k = 0; k < outputs.size(); ++k)
    row.push_back(bitsOf(outputs[k], circuit.outputs()[k].signal.width));
  return row;
}

std::vector<util::MPZ> patternsOf(const Columns& row) {
  std::vector<util::MPZ> patterns;
  for (const std::string& column : row) patterns.push_back(patternOf(column));
  return patterns;
}

Rows evaluated(const graph::Graph& circuit, const Rows& stimuli) {
  graph::Evaluator evaluator(circuit);
  Rows rows;
  for (const Columns& stimulus : stimuli) {
    if (Columns row = answerOf(circuit, evaluator(patternsOf(stimulus))); !row.empty())
      rows.push_back(row);
    evaluator.clock();
  }
  return rows;
}

Rows executed(const graph::Graph& circuit, const schedule::Schedule& schedule,
              const Rows& stimuli) {
  software::Execution execution(circuit, schedule);
  execution.reset();
  Rows rows;
  for (const Columns& stimulus : stimuli)
    if (Columns row = answerOf(circuit, execution.step(patternsOf(stimulus))); !row.empty())
      rows.push_back(row);
  return rows;
}

std::string shellOutput(const Folder& folder, const std::string& command) {
  const std::string inFolder =
      fmt::format("cd {} && {} >shell.out 2>shell.err", folder.path().string(), command);
  EXPECT_EQ(std::system(inFolder.c_str()), 0) << command << folder.files()["shell.err"];
  return folder.files()["shell.out"];
}

const std::string kCompile =
    "g++ -std=c++20 -O1 -Wall -Wextra -Werror -ItopModel -include topModel_model.h " CMDGAUGE_SOURCE
    "/proofs/";

// A line, and for an accumulator the column of the port that begins a new sum, with the bit that
// does: drawn bits would end most sums after two steps.
struct Road {
  const char* line;
  std::size_t column = 0;
  char begins = '0';
};
void PrintTo(const Road& road, std::ostream* out) { *out << road.line; }

// Has a sum begin in the first and every 20th row, and nowhere else.
void makeSumsLong(const Folder& folder, const Road& road) {
  const std::string path = "topModel/topModel_xIn.stm";
  const Rows rows = rowsOf(folder.files()[path]);
  std::ofstream file(folder.path() / path);
  for (std::size_t k = 0; k < rows.size(); ++k) {
    Columns row = rows[k];
    row[road.column] = (k % 20 == 0) == (road.begins == '1') ? "1" : "0";
    file << fmt::format("{}\n", fmt::join(row, " "));
  }
}

// Generates the unit of a line in a language and returns what the simulator saw.
Rows simulated(const Folder& folder, const std::string& language, const Road& road) {
  const program::Outcome outcome = program::run(
      folder, fmt::format("-lang {} -generateCSimulationModel -vsimToFile -testbench {} "
                          "-randomTests {}",
                          language, kRows, road.line));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  if (road.column > 0) makeSumsLong(folder, road);
  shellOutput(folder, "topModel/simulate.sh");
  return validRows(rowsOf(folder.files()["topModel/topModel_xOut.stm.sim"]));
}

class Roads : public testing::TestWithParam<Road> {};

TEST_P(Roads, Agree) {
  const Road& road = GetParam();
  const Folder vhdl, verilog;
  const Rows seenInVhdl = simulated(vhdl, "VHDL", road);
  const Rows seenInVerilog = simulated(verilog, "Verilog", road);
  const std::string stimulusText = vhdl.files()["topModel/topModel_xIn.stm"];
  const Rows stimuli = rowsOf(stimulusText);

  util::SetFeatureInteger("SchedulerMethod", -1);  // what no option has set
  driver::RunState run;
  run.testing.faithfulRounding = true;  // as every run begins
  std::istringstream stream(road.line);
  Columns words;
  for (std::string word; stream >> word;) words.push_back(word);
  std::vector<const char*> pointers;
  for (const std::string& word : words) pointers.push_back(word.c_str());
  testing::internal::CaptureStdout();
  driver::walk(run, pointers);
  run.built.model->setTopUnit(run.built.unit);
  run.built.model->elaborate("");
  testing::internal::GetCapturedStdout();
  const graph::Graph& circuit = run.built.model->circuit();

  const Rows answers = evaluated(circuit, stimuli);
  ASSERT_GE(answers.size(), static_cast<std::size_t>(kRows));  // an instruction has several
  const Rows inTime = executed(circuit, run.built.model->timing().schedule, stimuli);
  // The files of FPMultAcc end a cycle before its last result.
  ASSERT_GE(inTime.size(), answers.size() - 1);
  const Rows expected(answers.begin(), answers.begin() + static_cast<long>(inTime.size()));
  EXPECT_EQ(difference(inTime, expected), "");
  EXPECT_EQ(difference(seenInVhdl, expected), "");
  EXPECT_EQ(difference(seenInVerilog, expected), "");

  shellOutput(vhdl, kCompile + "model_replay.cpp topModel/topModel_model.cpp -o replay");
  std::string replay = "./replay";
  for (const graph::Port& port : circuit.outputs()) replay += fmt::format(" {}", port.signal.width);
  EXPECT_EQ(difference(rowsOf(shellOutput(vhdl, replay + " <topModel/topModel_xIn.stm")), answers),
            "");
}

INSTANTIATE_TEST_SUITE_P(
    Words, Roads,
    testing::Values(
        Road{"-frequency 300 -correctRounding FPAdd 8 23"},
        Road{"-frequency 300 -enableHardFP 1 -wrapper FPAdd 8 23"},
        Road{"-enableHardFP 1 -hardFPMultAddLatency 5 FPMultSub 8 23"},
        Road{"-enableHardFP 1 -forceRegisters 2 FPMultAcc 8 23", 2, '0'},
        Road{"-frequency 500 -subnormals 1 FPFusedAddSub 5 10"},
        Road{"-frequency 50 -correctRounding -roundType 2 FPSubDualPathInFPLib 4 3"},
        Road{"-frequency 300 -error 2 -wrapper FPAddSub 11 52"},
        Road{"-frequency 400 -subnormals 1 -correctRounding FPMul 11 52"},
        Road{"-frequency 300 FPMulExpert 5 10 8 23 6 9 1"}, Road{"-pipelining 0 FPAbs 2 1"},
        Road{"-frequency 300 -correctRounding -subnormals 1 FPMultAdd 8 23"},
        Road{"-frequency 500 FPMultSub 5 10"},
        Road{"-frequency 300 -expRange 120 132 FPMultAcc 8 23", 2, '0'},
        Road{"-roundType 1 -correctRounding -subnormals 1 FPMultAcc 5 10", 2, '0'},
        Road{"-frequency 300 -expRange 12 18 FPAccHard 5 10", 2, '0'},
        Road{"-frequency 500 -expRange 107 137 FPAcc 8 23 -22 14 10", 3, '1'},
        Road{"-frequency 300 -wrapper FPAcc 5 10 -24 40 15", 3, '1'},
        Road{"-frequency 300 -correctRounding -subnormals 1 FPFoldedALUNR 8 23"},
        Road{"-subcomponents FPFoldedALUNR 5 10"},
        Road{"-frequency 500 LongAddSMultiBitGrowth 64 7"},
        Road{"-frequency 300 MultSchoolbookS 33"}, Road{"-frequency 400 ModularMultBarrett 65"},
        Road{"-frequency 500 Squarer 64"}, Road{"-frequency 500 IntCtPop 256 0"},
        Road{"-frequency 300 RightShiftNoSticky 64 20 1"},
        Road{"-useDSPForAlignment -frequency 300 -target TarnV -correctRounding FPAdd 8 23"},
        Road{"-subcomponents -frequency 400 -correctRounding FPAdd 8 23"},
        Road{"-subcomponents -frequency 300 -target TarnV -dontcareonreset FPMul 8 23"},
        Road{"-subcomponents -pipelining 0 FPMultAdd 5 10"},
        Road{"-subcomponents -frequency 500 -expRange 107 137 FPAcc 8 23 -22 14 10", 3, '1'},
        Road{"-subcomponents -frequency 400 ModularMultBarrett 65"}));

TEST(SimulationScript, FailsWhenOneBitOfOneAnswerIsWrong) {
  for (const char* language : {"VHDL", "Verilog"}) {
    const Folder folder;
    ASSERT_EQ(program::run(folder, fmt::format("-frequency 300 -correctRounding -lang {} "
                                               "-testbench 50 -randomTests FPAdd 8 23",
                                               language))
                  .status,
              0);
    EXPECT_TRUE(program::simulates(folder));
    const auto path = folder.path() / "topModel/topModel_xOut.stm";
    std::string responses = folder.files()["topModel/topModel_xOut.stm"];
    char& lastBit = responses[responses.size() / 2 - responses.size() / 2 % 47 + 44];
    ASSERT_TRUE(lastBit == '0' || lastBit == '1');
    lastBit ^= 1;
    std::ofstream(path) << responses;
    EXPECT_FALSE(program::simulates(folder)) << language;
  }
}

// The check of all inputs passes a faithful unit as that, and not as one that rounds to nearest.
TEST(ExhaustiveCheck, TellsTheNearestNumberFromItsNeighbour) {
  const Folder folder;
  ASSERT_EQ(program::run(folder, "-generateCSimulationModel FPExp 8 23").status, 0);
  shellOutput(folder, kCompile +
                          "function_shard.cpp topModel/topModel_model.cpp -lmpfr -lgmp "
                          "-o shard");
  shellOutput(folder, "./shard FPExp 0 1 1 1 1 16256 65536 1.json");
  shellOutput(folder, "! ./shard FPExp 0 0.5 1 1 1 16256 65536 2.json");
  shellOutput(folder, "! ./shard FPExp 0 1 0.5 0.5 1 16256 65536 3.json");
}

}  // namespace
