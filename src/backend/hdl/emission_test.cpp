#include "backend/hdl/emission.h"

#include <fmt/ranges.h>

#include "backend/hdl/replay_test.h"

namespace hdl {
namespace {

class EveryPlace : public testing::TestWithParam<std::tuple<LANGUAGE, int>> {
 protected:
  const LANGUAGE language = std::get<0>(GetParam());
  const int latency = std::get<1>(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Emission, EveryPlace,
                         testing::Combine(kBothLanguages, testing::Values(0, 1, 3)));

TEST_P(EveryPlace, EveryOperationReplays) {
  ReplayedUnit unit("operations");
  unit.addChannelAndValid();
  graph::buildEveryOperation(unit.builder, {1, 2, 31, 32, 33, 64, 65, 200});
  unit.scheduleBy(latency);
  if (latency == 3)  // every second select as gates
    for (std::uint32_t i = 0; i < unit.graph.size(); i += 2)
      if (unit.graph.node({i}).op == graph::Op::kSelect) unit.schedule.lateClears.push_back({i});
  unit.drawVectors(100, 1);
  EXPECT_EQ(unit.comparedRows(), 100);
  unit.expectReplay(language);
}

TEST_P(EveryPlace, DrawnGraphsReplay) {
  for (const unsigned seed : {1u, 2u}) {
    std::mt19937_64 random(seed);
    ReplayedUnit unit("drawn");
    graph::buildDrawn(unit.builder, random, 250, 40);
    unit.dontCareOnReset = true;
    unit.scheduleBy(2 * latency);
    unit.drawVectors(200, seed);
    EXPECT_EQ(unit.comparedRows(), 200);
    unit.expectReplay(language);
  }
}

TEST_P(EveryPlace, RowsThatNeverChangeReplay) {
  ReplayedUnit unit("still");
  const auto x = unit.builder.input("a", 9), y = unit.builder.input("b", 9);
  unit.builder.output("r", unit.builder.select(unit.builder.less(x, y), x, unit.builder.bitNot(y)));
  unit.builder.output("constant", unit.builder.literal(19, 70));
  unit.scheduleBy(latency);
  unit.drawVectors(0, 0);
  for (int row = 0; row < 5; ++row) {
    unit.stimuli.push_back({"000000000", "000000000"});
    unit.responses.push_back({"111111111", std::string(65, '0') + "10011"});
  }
  EXPECT_EQ(unit.replay(language).output, "5 rows compared, 0 mismatches\n");
}

// A small unit of three cycles with a name in each language's way.
struct SmallUnit : ReplayedUnit {
  explicit SmallUnit(bool hasChannelValid = true) : ReplayedUnit("small") {
    if (hasChannelValid) addChannelAndValid();
    const auto x = builder.input("a", 12), y = builder.input("b", 12);
    const auto sum = builder.name(builder.add(x, y), "sum");
    const auto product = builder.multiply(sum, y);
    builder.output("r", builder.bitXor(product, builder.signExtend(sum, 24)));
    builder.output("f", builder.reduceOr(builder.slice(product, 3, 9)));
    scheduleBy(3);
    drawVectors(40, 7);
  }
  std::string& column(int row, int index) { return responses[row][index]; }
};

class EveryLanguage : public LanguageTest {};
INSTANTIATE_TEST_SUITE_P(Emission, EveryLanguage, kBothLanguages, languageName);

// What a bench must not let pass: the fault, and what it says of it.
struct Fault {
  const char* name;
  void (*spoil)(SmallUnit&);
  const char* said;
  const char* lastLine = "40 rows compared, 1 mismatches";
};
const Fault kFaults[] = {
    {"a flipped result bit", [](SmallUnit& u) { flip(u.column(20, 2), 23); }, "row 21: r is "},
    {"a flipped one-bit result", [](SmallUnit& u) { flip(u.column(42, 3), 0); }, "row 43: f is "},
    {"a result in the first valid row", [](SmallUnit& u) { flip(u.column(3, 2), 0); },
     "row 4: r is "},
    {"a channel", [](SmallUnit& u) { flip(u.column(9, 1), 7); }, "row 10: xOut_c is 00000110"},
    {"a lost valid bit", [](SmallUnit& u) { u.column(9, 0) = "0"; },
     "row 10: xOut_v is 1, expected 0", "39 rows compared, 1 mismatches"},
    {"a valid bit before its time", [](SmallUnit& u) { u.column(2, 0) = "1"; },
     "row 3: xOut_v is 0, expected 1", "41 rows compared"},
    {"a latency that the unit has not", [](SmallUnit& u) { u.settings.latency = 2; },
     "is not the valid bit that went in 2 rows before", "40 rows compared, 2 mismatches"},
    {"a missing response", [](SmallUnit& u) { u.responses.pop_back(); },
     "_xOut.stm has ended, small_xIn.stm has not", "39 rows compared, 1 mismatches"},
    {"a missing stimulus", [](SmallUnit& u) { u.stimuli.pop_back(); },
     "_xIn.stm has ended, small_xOut.stm has not", "39 rows compared, 1 mismatches"},
    {"a column too few", [](SmallUnit& u) { u.responses[10].pop_back(); },
     "_xOut.stm has 3 columns, expected 4", "7 rows compared, 1 mismatches"},
    {"a column too many", [](SmallUnit& u) { u.responses[10].push_back("1"); },
     "_xOut.stm has 5 columns, expected 4", "7 rows compared, 1 mismatches"},
    {"a result of another width", [](SmallUnit& u) { u.column(10, 2).insert(0, "0"); },
     "row 11: r is "},
    {"a stimulus of another width", [](SmallUnit& u) { u.stimuli[4][2] += '0'; },
     "no bit string of its port's width", "1 rows compared, 1 mismatches"},
    {"a stimulus that is no bit string", [](SmallUnit& u) { u.stimuli[4][3][5] = 'X'; },
     "no bit string of its port's width", "1 rows compared, 1 mismatches"},
    {"a stimulus with an unknown bit", [](SmallUnit& u) { u.stimuli[4][3][5] = 'x'; },
     "no bit string of its port's width", "1 rows compared, 1 mismatches"},
    {"another base", [](SmallUnit& u) { u.column(10, 2) = "7f"; }, "row 11: r is "},
};

TEST_P(EveryLanguage, FaultsFailTheBench) {
  for (const Fault& fault : kFaults) {
    SmallUnit unit;
    fault.spoil(unit);
    const Outcome outcome = unit.replay(GetParam());
    EXPECT_EQ(outcome.status, 1) << fault.name << "\n" << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr(fault.said)) << fault.name;
    EXPECT_THAT(outcome.lastLine, HasSubstr(fault.lastLine)) << fault.name;
  }
}

TEST_P(EveryLanguage, UnknownBitsInAValidRowFailEvenWhereEveryResultIsAccepted) {
  SmallUnit unit;
  unit.dontCareOnReset = true;
  for (auto& row : unit.responses) row[2].assign(24, '-'), row[3] = "-";
  EXPECT_EQ(unit.replay(GetParam()).lastLine, "40 rows compared, 0 mismatches");
  // The register of the sum is never written.
  const std::string file = GetParam() == LANGUAGE_VHDL ? "small.vhd" : "small.v";
  std::string text = unit.read(file);
  const std::size_t start = text.find(" <= sum;");
  ASSERT_NE(start, std::string::npos);
  const std::size_t line = text.rfind('\n', start);
  unit.write(file, text.erase(line, text.find('\n', start) - line));
  const Outcome outcome = unit.simulate();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output, HasSubstr("row 4: r is "));
  EXPECT_THAT(outcome.output, HasSubstr("further mismatches are only counted"));
  EXPECT_EQ(outcome.lastLine, "40 rows compared, 80 mismatches");
}

TEST_P(EveryLanguage, AnyAcceptedValuePassesAndNoOther) {
  SmallUnit unit;
  unit.settings.alternatives = {2, 1};
  for (std::size_t row = 0; row < unit.responses.size(); ++row) {
    std::string other = unit.responses[row][2];
    flip(other, row % 24);
    const bool first = row % 3 == 0;
    if (row % 5 == 4) other.assign(24, '-'), unit.responses[row][2] = other;
    unit.responses[row].insert(unit.responses[row].begin() + (first ? 2 : 3), other);
    // Some rows hold two values for each port.
    if (row % 2 == 0) unit.responses[row].push_back(row % 4 == 0 ? "0" : "1");
    if (row % 4 == 0) unit.responses[row][4] = "1";
  }
  EXPECT_EQ(unit.replay(GetParam()).output, "40 rows compared, 0 mismatches\n");
  flip(unit.responses[17][2], 0);
  flip(unit.responses[17][3], 0);
  EXPECT_EQ(unit.replay(GetParam()).lastLine, "40 rows compared, 1 mismatches");
}

TEST_P(EveryLanguage, APortWithoutAcceptedValuesIsToldOf) {
  SmallUnit unit;
  unit.settings.alternatives = {1, 0};
  for (auto& row : unit.responses)
    if (row[0] == "1") row.pop_back();
  const Outcome outcome = unit.replay(GetParam());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output,
            "f is not checked: it has no accepted values\n40 rows compared, 0 mismatches\n");
}

TEST_P(EveryLanguage, WithoutChannelAndValidTheFirstRowsAreSkipped) {
  SmallUnit unit(/*hasChannelValid=*/false);
  unit.responses[2][0] = std::string(24, '1');
  EXPECT_EQ(unit.replay(GetParam()).output, "40 rows compared, 0 mismatches\n");
  flip(unit.responses[3][0], 0);
  EXPECT_EQ(unit.replay(GetParam()).lastLine, "40 rows compared, 1 mismatches");
}

TEST_P(EveryLanguage, ResultsGoToAFileAndMismatchesOnlyWarn) {
  SmallUnit unit;
  unit.settings.mismatchIsError = false;
  unit.settings.resultsToFile = true;
  const auto truth = unit.responses;
  flip(unit.responses[14][2], 5);
  const Outcome outcome = unit.replay(GetParam());
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_THAT(outcome.output, HasSubstr("warning: row 15: r is "));
  EXPECT_THAT(outcome.output, HasSubstr("mismatches only warn"));
  EXPECT_EQ(outcome.lastLine, "40 rows compared, 1 mismatches");
  // The same columns as the response file, one value a port.
  std::istringstream results(unit.read("small_xOut.stm.sim"));
  std::string line;
  for (std::size_t row = 0; row < truth.size(); ++row) {
    ASSERT_TRUE(std::getline(results, line));
    if (truth[row][0] == "1")
      EXPECT_EQ(line, fmt::format(" {} ", fmt::join(truth[row], "  ")));
    else
      EXPECT_THAT(line, testing::StartsWith(" 0  00000000  "));
  }
  EXPECT_FALSE(std::getline(results, line));
}

TEST_P(EveryLanguage, TheScriptLeavesNothingBehindAndSaysWhatIsMissing) {
  SmallUnit unit;
  EXPECT_EQ(unit.replay(GetParam()).status, 0);
  const auto count = std::distance(std::filesystem::directory_iterator(unit.folder), {});
  EXPECT_EQ(count, 5);  // two texts, two vector files, the script
  const std::string script = fmt::format("/bin/sh '{}/simulate.sh'", unit.folder.string());
  const std::string tools = unit.folder.string() + "/tools";
  const Outcome missing = runCommand(fmt::format(
      "mkdir '{0}' && ln -s $(command -v dirname) '{0}' && PATH='{0}' {1}", tools, script));
  EXPECT_EQ(missing.status, 127);
  EXPECT_THAT(missing.output, HasSubstr("is not installed"));
  std::filesystem::remove(unit.folder / "small_xOut.stm");
  const Outcome noFile = unit.simulate();
  EXPECT_EQ(noFile.status, 1);
  EXPECT_THAT(noFile.output, HasSubstr("cannot open "));
  unit.write(GetParam() == LANGUAGE_VHDL ? "small.vhd" : "small.v", "no design\n");
  EXPECT_NE(unit.simulate().status, 0);
}

}  // namespace
}  // namespace hdl
