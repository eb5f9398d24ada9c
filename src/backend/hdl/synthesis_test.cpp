#include "backend/hdl/replay_test.h"

namespace hdl {
namespace {

std::size_t countOf(const std::string& text, std::string_view word) {
  std::size_t count = 0;
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
    ++count;
  return count;
}

TEST(Verilog, HasNoLintWarning) {
  for (const int latency : {0, 1, 4}) {
    ReplayedUnit operations("operations");
    if (latency > 0) operations.addChannelAndValid();
    graph::buildEveryOperation(operations.builder, {1, 2, 31, 33, 64, 65, 200});
    operations.scheduleBy(latency);
    EXPECT_THAT(operations.lint(), IsEmpty()) << latency;
    std::mt19937_64 random(latency);
    ReplayedUnit drawn("drawn");
    graph::buildDrawn(drawn.builder, random, 300, 40);
    drawn.dontCareOnReset = latency == 4;
    drawn.scheduleBy(latency);
    EXPECT_THAT(drawn.lint(), IsEmpty()) << latency;
  }
}

TEST(Verilog, SynthesisesToTheRegistersThatTheScheduleAsksFor) {
  ReplayedUnit unit("operations");
  unit.addChannelAndValid();
  graph::buildEveryOperation(unit.builder, {1, 2, 13});
  unit.scheduleBy(3);
  const Outcome outcome = unit.yosys(
      "synth -top operations; check -assert; select -assert-none t:$_DLATCH_*; "
      "select -assert-count 27 t:$_SDFF_PP0_ w:xIn_*_r* %ci1 %i");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_THAT(outcome.output, Not(HasSubstr("Warning")));
}

TEST(Vhdl, Synthesises) {
  for (const int latency : {0, 3}) {
    ReplayedUnit unit("operations");
    graph::buildEveryOperation(unit.builder, {1, 2, 13, 70});
    unit.scheduleBy(latency);
    EXPECT_EQ(unit.vhdlComplaints(), "") << latency;
  }
}

TEST(Reset, DataRegistersMayLoseItAndControlRegistersKeepIt) {
  for (const LANGUAGE language : {LANGUAGE_VHDL, LANGUAGE_VERILOG}) {
    ReplayedUnit unit("small");
    unit.addChannelAndValid();
    const graph::Signal x = unit.builder.input("a", 8), y = unit.builder.input("b", 8);
    unit.builder.output("r", unit.builder.bitNot(unit.builder.add(x, y)));
    unit.scheduleBy(2);
    const char* written = language == LANGUAGE_VHDL ? "_r1 <= (others => '0');" : "'b0;\n";
    const std::size_t all = countOf(designText(unit.design(), language), written);
    unit.dontCareOnReset = true;
    const std::string text = designText(unit.design(), language);
    // First stage: valid, channel and two operands; in Verilog also three of the second stage.
    EXPECT_EQ(all, language == LANGUAGE_VHDL ? 4u : 7u);
    EXPECT_EQ(countOf(text, written), language == LANGUAGE_VHDL ? 2u : 4u);
    EXPECT_THAT(text, HasSubstr("xIn_c_r2 <= "));
  }
}

// Else tools would let it read a shift register, which is as slow to leave as two look-up tables.
// The whole word is read by an addition, a part of it on the way by a comparison.
TEST(Reset, StaysWhereLogicReadsBehindSeveralRegisters) {
  ReplayedUnit unit("delays");
  graph::Builder& b = unit.builder;
  const graph::Signal x = b.input("a", 24), y = b.input("b", 24);
  const graph::Signal early = b.equal(b.slice(x, 2, 8), b.slice(y, 2, 8));
  b.output("sum", b.add(b.concat({b.slice(x, 12, 12), b.slice(x, 0, 12)}), y));
  b.output("early", early);
  unit.scheduleBy(8);
  for (std::uint32_t i = 0; i < unit.graph.size(); ++i) {
    const graph::Op op = unit.graph.nodes()[i].op;
    unit.schedule.cycleByNode[i] = op == graph::Op::kInput ? 0 : op == graph::Op::kEqual ? 4 : 7;
    if (graph::traitsOf(op).wiring && unit.graph.nodes()[i].width == 8)
      unit.schedule.cycleByNode[i] = 0;
  }
  unit.schedule.cycleByOutput = {8, 5};
  unit.dontCareOnReset = true;
  const Outcome outcome = unit.yosys(
      "synth_xilinx -top delays -noiopad -noclkbuf; select -assert-min 48 t:SRL16E; "
      "select -assert-none t:SRL16E %co2 t:LUT* t:CARRY4 %u %i");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
}

// Each output at a cycle of its own: a stage that feeds both a port and registers.
TEST(SplitOutputs, EachShowsItsResultInItsCycle) {
  ReplayedUnit unit("split");
  const graph::Signal x = unit.builder.input("a", 20), y = unit.builder.input("b", 20);
  const graph::Signal sum = unit.builder.add(x, y), product = unit.builder.multiply(sum, x);
  unit.builder.output("early", sum);
  unit.builder.output("late", product);
  unit.builder.output("direct", x);
  unit.scheduleBy(2);
  unit.schedule.cycleByOutput = {1, 2, 0};
  unit.drawVectors(30, 3);
  // Each response moves up to the cycle in which its port shows it.
  const auto results = unit.responses;
  for (std::size_t row = 2; row < results.size(); ++row) {
    unit.responses[row - 1][0] = results[row][0];
    unit.responses[row - 2][2] = results[row][2];
  }
  unit.responses.back()[0].assign(20, '-');
  for (std::size_t row = results.size() - 2; row < results.size(); ++row)
    unit.responses[row][2].assign(20, '-');
  EXPECT_EQ(unit.comparedRows(), 30);
  for (const LANGUAGE language : {LANGUAGE_VHDL, LANGUAGE_VERILOG}) unit.expectReplay(language);
  EXPECT_THAT(unit.lint(), IsEmpty());
}

TEST(Names, AreLegalAndUniqueInBothLanguages) {
  ReplayedUnit unit("process");
  graph::Builder& b = unit.builder;
  const graph::Signal x = b.input("begin", 9), y = b.input("2__nd", 9), z = b.input("Clk", 1);
  const graph::Signal sum = b.name(b.addCarry(x, y, z), "unsigned");
  const graph::Signal less = b.name(b.less(sum, y), "Q");
  const graph::Signal same = b.name(b.equal(b.replicate(less, 9), x), "_flag");
  b.output("q", b.select(less, b.lut(b.slice(sum, 0, 3), 0xfac688, 3), b.slice(sum, 4, 3)));
  b.output("X", b.name(b.concat({same, b.reduceXor(sum)}), "process atb"));
  b.output("x", b.replicate(z, 2));
  b.output("process", b.bitXor(sum, b.replicate(same, 9)));
  b.output("logic", sum);
  unit.scheduleBy(2);
  unit.drawVectors(40, 5);
  for (const LANGUAGE language : {LANGUAGE_VHDL, LANGUAGE_VERILOG}) unit.expectReplay(language);
  EXPECT_THAT(unit.lint(), IsEmpty());
}

TEST(Text, IsTheSameEachTime) {
  const auto textsOf = [](LANGUAGE language) {
    std::mt19937_64 random(9);
    ReplayedUnit unit("drawn");
    graph::buildDrawn(unit.builder, random, 200, 40);
    unit.scheduleBy(3);
    return designText(unit.design(), language) + benchText(unit.design(), unit.settings, language);
  };
  for (const LANGUAGE language : {LANGUAGE_VHDL, LANGUAGE_VERILOG})
    EXPECT_EQ(textsOf(language), textsOf(language));
}

TEST(Header, StaysACommentWhateverItHolds) {
  ReplayedUnit unit("small");
  unit.builder.output("r", unit.builder.bitNot(unit.builder.input("a", 4)));
  unit.scheduleBy(0);
  Design design = unit.design();
  design.header = {"first\nsecond", "", "third"};
  EXPECT_THAT(designText(design, LANGUAGE_VHDL),
              testing::StartsWith("-- first second\n--\n-- third\n\n"));
  EXPECT_THAT(designText(design, LANGUAGE_VERILOG),
              testing::StartsWith("// first second\n//\n// third\n\n"));
}

}  // namespace
}  // namespace hdl
