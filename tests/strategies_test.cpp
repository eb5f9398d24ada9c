// Pipelining as a person asks for it: strategies, exact latencies, split outputs, and the lines
// that refuse or warn.

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <regex>

#include "program.h"

namespace {

using program::Folder;
using program::Outcome;
using testing::Each;
using testing::HasSubstr;
using testing::MatchesRegex;

// What a run's record says of its pipeline.
struct Pipeline {
  std::vector<int> latencies;  // of each output
  long registerBits = 0;       // outside the device's blocks
};

std::string matched(const std::string& text, const std::string& pattern) {
  std::smatch match;
  return std::regex_search(text, match, std::regex(pattern)) ? match[1].str() : "";
}

Pipeline pipelineOf(const std::string& line) {
  const Folder folder;
  const Outcome outcome = program::run(folder, line);
  EXPECT_EQ(outcome.status, 0) << line << "\n" << outcome.err;
  const auto files = folder.files();
  Pipeline found;
  const std::string& record = files.at("topModel/topModel.json");
  const std::string cycles = matched(record, R"("latency": \[([^\]]*)\])");
  const std::regex number("[0-9]+");
  for (std::sregex_iterator at(cycles.begin(), cycles.end(), number), end; at != end; ++at)
    found.latencies.push_back(std::stoi(at->str()));
  found.registerBits = std::stol(matched(record, R"("register_bits": (\d+))"));
  return found;
}

int latencyOf(const Pipeline& pipeline) { return std::ranges::max(pipeline.latencies); }

class Units : public testing::TestWithParam<const char*> {};

TEST_P(Units, NeedTheFewestRegisterBitsByDefault) {
  for (const int clock : {100, 200, 300, 450, 600}) {
    const auto run = [&](const std::string& settings) {
      return pipelineOf(
          fmt::format("-target TarnV -frequency {} {} {}", clock, settings, GetParam()));
    };
    const Pipeline best = run("");
    for (const int strategy : {1, 2, 3}) {
      SCOPED_TRACE(fmt::format("{} at {} MHz, strategy {}", GetParam(), clock, strategy));
      const Pipeline other = run(fmt::format("-pipelining {}", strategy));
      const int latency = latencyOf(other);
      EXPECT_TRUE(strategy == 3 ? latency >= latencyOf(best) : latency == latencyOf(best));
      const Pipeline same = run(fmt::format("-constrainLatency {}", latency));
      EXPECT_LE(same.registerBits, other.registerBits);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, Units,
                         testing::Values("FPAdd 8 23", "FPAdd 11 52", "FPMul 8 23", "FPMul 11 52",
                                         "FPMultAdd 8 23", "FPAcc 8 23 -20 20 15", "LongAdd 64",
                                         "LongAdd 256", "MultSchoolbook 32", "MultSchoolbook 64",
                                         "FPAddN 8 23 4", "FPToFXP 8 23 32 16 1"),
                         [](const auto& info) {
                           std::string name = info.param;
                           std::erase_if(name, [](char c) { return !std::isalnum(c); });
                           return name;
                         });

void expectRefusal(const std::string& line, const std::string& pattern) {
  program::expectRefusal(line, MatchesRegex(pattern + "\n"));
}

// Each latency from the shortest to 40 is met exactly, one more costs at most what the ports carry,
// and one less than the shortest is refused.
TEST(ConstrainedLatency, IsExactFromTheShortestUp) {
  struct Row {
    const char* line;
    long portBits;  // of the side with fewer bits
  };
  for (const Row& row : {Row{"-frequency 300 FPAdd 8 23", 32 + 9},
                         Row{"-frequency 450 -target TarnV FPMul 8 23", 32 + 9},
                         Row{"-frequency 400 LongAdd 256 -noChanValid", 256},
                         Row{"-frequency 300 -wrapper FPToFXP 8 23 64 16 1", 32 + 9},
                         Row{"-frequency 300 -pipelining 1 FPSub 5 10", 16 + 9},
                         Row{"-frequency 300 -pipelining 2 FPSub 5 10", 0},
                         Row{"-frequency 300 -pipelining 3 FPSub 5 10", 16 + 9},
                         Row{"-frequency 300 -enableHardFP 1 FPMul 8 23", 0},
                         Row{"-pipelining 0 -frequency 300 FPSub 5 10", 16 + 9}}) {
    const Pipeline shortest = pipelineOf(row.line);
    const int latency = latencyOf(shortest);
    long bits = shortest.registerBits;
    for (int asked = latency; asked <= 40; ++asked) {
      const Pipeline found = pipelineOf(fmt::format("-constrainLatency {} {}", asked, row.line));
      EXPECT_THAT(found.latencies, Each(asked)) << row.line;
      EXPECT_TRUE(row.portBits == 0 || found.registerBits <= bits + row.portBits)
          << row.line << " at " << asked;
      bits = found.registerBits;
    }
    if (latency > 0)
      expectRefusal(fmt::format("{} -constrainLatency {}", row.line, latency - 1),
                    fmt::format(".*atency {} asked.* {} is the shortest.*", latency - 1, latency));
  }
}

TEST(ConstrainedLatency, LeavesEveryResultAsItWas) {
  for (const char* language : {"VHDL", "Verilog"}) {
    for (const char* line :
         {"-frequency 400 -constrainLatency 7 FPAdd 8 23",
          "-frequency 200 -constrainLatency 13 -dontcareonreset FPMul 8 23",
          "-frequency 300 -constrainLatency 40 -enable FPAcc 8 23 -20 20 15",
          "-frequency 300 -constrainLatency 9 -pipelining 3 -noChanValid FPToFXP 5 10 16 8 1",
          "-frequency 400 -constrainLatency 12 -splitOutputPorts FPMultFlagsDynRnd 5 10",
          "-frequency 400 -splitOutputPorts FPMultFlagsDynRnd 5 10"}) {
      const Folder folder;
      const Outcome outcome = program::run(
          folder, fmt::format("-testbench 150 -randomTests -lang {} {}", language, line));
      ASSERT_EQ(outcome.status, 0) << line << "\n" << outcome.err;
      EXPECT_TRUE(program::simulates(folder)) << language << " " << line;
    }
  }
}

TEST(SplitOutputs, AreEachAsEarlyAsTheyCanUnlessALatencyIsAsked) {
  int apart = 0;
  for (const char* unit : {"FPMultFlagsDynRnd 11 52", "FPToFXPFlagsDynRnd 11 52 64 16 1"}) {
    for (const int clock : {100, 150, 200, 250, 300}) {
      const std::string line = fmt::format("-frequency {} {}", clock, unit);
      const Pipeline whole = pipelineOf(line), split = pipelineOf("-splitOutputPorts " + line);
      const int latency = whole.latencies[0];
      EXPECT_THAT(whole.latencies, Each(latency));
      EXPECT_EQ(latencyOf(split), latency) << line;
      apart += split.latencies[0] != split.latencies[1];
      const std::string constrained = "-splitOutputPorts " + line + " -constrainLatency ";
      EXPECT_THAT(pipelineOf(constrained + std::to_string(latency + 2)).latencies,
                  Each(latency + 2));
      if (latency > 0)
        expectRefusal(constrained + std::to_string(latency - 1), "Latency.* is the shortest.*");
    }
  }
  EXPECT_GT(apart, 1);
}

TEST(ConstrainedLatency, BelowTheShortestIsRefusedInALineThatNamesItAndTheClock) {
  expectRefusal("-frequency 2000 -constrainLatency 3 FPAdd 8 23",
                "Latency 3 asked, but [0-9]+ is the shortest at [0-9.]+ MHz, the highest clock as "
                "[a-z-]+ [0-9]+ takes [0-9]+ ps between registers; ask for more cycles or a lower "
                "frequency");
  expectRefusal("-pipelining 0 -frequency 70 -wrapper -constrainLatency 1 FPAdd 8 23",
                "Latency 1 asked, but 2 is the shortest at 70.0 MHz; .*");
  expectRefusal("-enableHardFP 1 -frequency 300 -constrainLatency 1 FPAdd 8 23",
                "FPAdd: latency 1 asked, but 3 is the shortest at 300.0 MHz; ask for more cycles");
}

TEST(AClockThatNoStageMeets, IsLoweredWithALineThatNamesTheStep) {
  for (const auto& [line, pattern] :
       {std::pair{"-frequency 2000 FPAdd 8 23",
                  "Warning: 2000.0 MHz asked, but [a-z-]+ [0-9]+ takes ([0-9]+) ps between "
                  "registers; built for ([0-9.]+) MHz, the highest clock\n"},
        std::pair{"-frequency 1500 FPAcc 8 23 -20 20 15",
                  "Warning: 1500.0 MHz asked, but the loop of [a-z0-9 ,-]+ takes ([0-9]+) ps "
                  "between registers; built for ([0-9.]+) MHz, the highest clock\n"}}) {
    const Folder folder;
    const Outcome outcome = program::run(folder, line);
    EXPECT_EQ(outcome.status, 0) << line;
    std::smatch match;
    ASSERT_TRUE(std::regex_match(outcome.err, match, std::regex(pattern))) << outcome.err;
    // The period is the step's own; the clock is not rounded up.
    const double period = std::stod(match[1]), clock = std::stod(match[2]);
    EXPECT_LE(clock, 1e6 / period);
    EXPECT_GT(clock, 1e6 / period - 0.2);
    EXPECT_THAT(folder.files().at("topModel/topModel.json"),
                HasSubstr(fmt::format("\"period_ps\": {},", match[1].str())));
  }
}

}  // namespace
