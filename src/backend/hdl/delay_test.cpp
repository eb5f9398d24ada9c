#include "backend/graph/sample_states.h"
#include "backend/hdl/replay_test.h"

namespace hdl {
namespace {

void flipLast(std::string& bits) { flip(bits, bits.size() - 1); }

// Periods in picoseconds: combinational, a few cycles, many.
constexpr int kPeriods[] = {0, 20000, 2000};

// The states of buildStates() with all that a row may have beside its data.
struct StatefulUnit : ReplayedUnit {
  struct Shape {
    int period = 2000;
    bool hasEnable = false, isSplit = false, hasChannelValid = true;
    std::optional<int> latency = {};
  };
  explicit StatefulUnit(const Shape& shape) : ReplayedUnit("stateful") {
    if (shape.hasChannelValid) addChannelAndValid(shape.isSplit ? 4 : 0);
    graph::buildStates(builder, shape.hasChannelValid ? valid : builder.input("go", 1));
    hasEnable = shape.hasEnable;
    scheduleFor(shape.period, shape.isSplit, shape.latency);
  }
};

class DelayIn : public LanguageTest {};
INSTANTIATE_TEST_SUITE_P(Languages, DelayIn, kBothLanguages, languageName);

TEST_P(DelayIn, StatesFollowEvaluationOverALongRun) {
  for (const int period : kPeriods) {
    StatefulUnit unit({.period = period});
    unit.dontCareOnReset = period == 2000;
    unit.drawDelayedVectors(3000, 1);
    unit.expectReplay(GetParam());
  }
}

TEST_P(DelayIn, StallsHoldWhatComesOut) {
  for (const std::optional<int> latency : {std::optional(0), {1}, {}, {14}}) {
    for (const bool hasChannelValid : {true, false}) {
      StatefulUnit unit({.period = latency == 0   ? 0
                                   : latency == 1 ? 20000
                                                  : 2000,
                         .hasEnable = true,
                         .hasChannelValid = hasChannelValid,
                         .latency = latency});
      ASSERT_EQ(unit.settings.latency, latency.value_or(unit.settings.latency));
      unit.dontCareOnReset = hasChannelValid;
      unit.drawDelayedVectors(400, 2);
      unit.expectReplay(GetParam());
      if (!hasChannelValid && latency) continue;
      // A stall that the unit does not see, and one that it alone sees.
      for (const char* from : {"0", "1"}) {
        const auto row =
            std::ranges::find_if(unit.stimuli.begin() + 100, unit.stimuli.end(),
                                 [&](const auto& r) { return r[0] == "1" && r.back() == from; });
        flip(row->back(), 0);
        EXPECT_EQ(unit.replay(GetParam()).status, 1) << unit.settings.latency << from;
        flip(row->back(), 0);
      }
    }
  }
}

TEST_P(DelayIn, AMissingEnableColumnAdvances) {
  StatefulUnit unit({.hasEnable = true});
  unit.drawDelayedVectors(100, 3);
  for (auto& row : unit.stimuli)
    if (row.back() == "1") row.pop_back();
  unit.expectReplay(GetParam());
  for (const char* wrong : {"-", "x", "00", "2"}) {
    unit.stimuli[50].resize(5);
    unit.stimuli[50][4] = wrong;
    const Outcome outcome = unit.replay(GetParam());
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("row 51: stateful_xIn.stm has a column that is no bit"));
  }
  unit.stimuli[50].resize(6, "1");
  EXPECT_THAT(unit.replay(GetParam()).output, HasSubstr("row 51: stateful_xIn.stm has"));
}

TEST_P(DelayIn, EachSplitOutputHasAFileAndADelay) {
  for (const bool hasEnable : {false, true}) {
    for (const bool hasChannelValid : {true, false}) {
      StatefulUnit unit(
          {.hasEnable = hasEnable, .isSplit = true, .hasChannelValid = hasChannelValid});
      EXPECT_EQ(unit.settings.splitLatencies[3], 0);
      EXPECT_LT(0, unit.settings.splitLatencies[0]);
      EXPECT_LT(unit.settings.splitLatencies[0], unit.settings.splitLatencies[1]);
      unit.settings.resultsToFile = hasChannelValid;
      unit.drawDelayedVectors(200, 4);
      unit.expectReplay(GetParam());
      // Rows that are not valid hold what the registers hold.
      for (std::size_t i = 0; hasChannelValid && i < 4; ++i) {
        const std::string file = fmt::format("stateful_xOut{}.stm", i);
        std::istringstream shown(unit.read(file + ".sim")), wanted(unit.read(file));
        std::string left, right;
        while (std::getline(wanted, right)) {
          ASSERT_TRUE(std::getline(shown, left));
          EXPECT_TRUE(!right.starts_with(" 1") || left == right) << left << right;
        }
        EXPECT_FALSE(std::getline(shown, left));
      }
      if (hasEnable != hasChannelValid) continue;
      for (std::size_t i = 0; i < 4; ++i) {
        const std::string file = fmt::format("stateful_xOut{}.stm", i);
        for (std::size_t column = 0; column < unit.splitResponses[i][0].size(); ++column) {
          std::size_t row = 100;
          while (hasChannelValid && unit.splitResponses[i][row][0] == "0") ++row;
          flipLast(unit.splitResponses[i][row][column]);
          const Outcome outcome = unit.replay(GetParam());
          EXPECT_EQ(outcome.status, 1);
          EXPECT_EQ(outcome.lastLine, unit.verdict(1)) << outcome.output;
          const auto& port = unit.graph.outputs()[column + 1 < unit.splitResponses[i][0].size()
                                                      ? 2 * i + column
                                                      : (hasChannelValid ? 8 : 0) + i];
          EXPECT_THAT(outcome.output, HasSubstr(fmt::format("row {}: {} is", row + 1, port.name)));
          flipLast(unit.splitResponses[i][row][column]);
        }
        const auto whole = unit.splitResponses[i];
        unit.splitResponses[i].pop_back();
        EXPECT_THAT(unit.replay(GetParam()).output, HasSubstr(file + " has ended, "));
        unit.splitResponses[i] = whole;
      }
      unit.stimuli.pop_back();
      EXPECT_EQ(unit.replay(GetParam()).status, 1);
      std::filesystem::remove(unit.folder / "stateful_xOut2.stm");
      const Outcome missing = unit.simulate();
      EXPECT_EQ(missing.status, 1);
      EXPECT_THAT(missing.output, HasSubstr("stateful_xOut2.stm\n0 rows compared"));
    }
  }
}

// One file has the alternatives of its own port only.
TEST_P(DelayIn, SplitOutputsAcceptAlternatives) {
  StatefulUnit unit({.isSplit = true});
  unit.settings.alternatives = {1, 4, 0, 2};
  unit.drawDelayedVectors(60, 5);
  for (auto& row : unit.splitResponses[1])
    row.insert(row.begin() + 2, 3, std::string(row[2].size(), '1'));
  for (auto& row : unit.splitResponses[2]) row.pop_back();
  for (auto& row : unit.splitResponses[3]) row.insert(row.begin() + 2, row[2]), flipLast(row[2]);
  EXPECT_EQ(unit.replay(GetParam()).output,
            "wide is not checked: it has no accepted values\n" + unit.verdict() + "\n");
  unit.splitResponses[3][50].pop_back();
  EXPECT_EQ(unit.replay(GetParam()).lastLine,
            unit.verdict(unit.splitResponses[3][50][0] == "1" ? 1 : 0));
}

TEST(Verilog, StatesAndEnableHaveNoLintWarningAndSynthesise) {
  for (const int period : kPeriods) {
    for (const bool isSplit : {false, true}) {
      StatefulUnit unit({.period = period, .hasEnable = true, .isSplit = isSplit});
      unit.dontCareOnReset = true;
      EXPECT_THAT(unit.lint(), IsEmpty());
      if (isSplit) continue;
      // No register is without enable, and the reset comes first.
      const Outcome made = unit.yosys(
          "synth -top stateful; check -assert; "
          "select -assert-none t:$_DLATCH_* t:$_DFF_* t:$_SDFF_* t:$_SDFFCE_*; "
          "select -assert-min 97 t:$_SDFFE_PP?P_");
      EXPECT_EQ(made.status, 0) << made.output;
      EXPECT_THAT(made.output, Not(HasSubstr("Warning")));
    }
  }
}

// Where nothing is registered the port is there all the same.
TEST(Verilog, AnUnusedEnableHasNoLintWarning) {
  ReplayedUnit unit("still");
  unit.builder.output("r", unit.builder.bitNot(unit.builder.input("a", 4)));
  unit.hasEnable = true;
  unit.scheduleBy(0);
  unit.drawDelayedVectors(20, 6);
  for (const LANGUAGE language : {LANGUAGE_VHDL, LANGUAGE_VERILOG}) unit.expectReplay(language);
  EXPECT_THAT(unit.lint(), IsEmpty());
}

TEST(Vhdl, StatesAndEnableSynthesise) {
  EXPECT_EQ(StatefulUnit({.hasEnable = true}).vhdlComplaints(), "");
}

}  // namespace
}  // namespace hdl
