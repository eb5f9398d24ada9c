#include "backend/hdl/replay_test.h"

namespace hdl {
namespace {

using graph::Signal;

// Memory blocks read with an index that is an input or computed, behind them wiring, logic, another
// memory block and ports.
struct TabledUnit : ReplayedUnit {
  struct Shape {
    int period = 20000;
    bool hasEnable = false, hasChannelValid = true;
  };
  explicit TabledUnit(const Shape& shape) : ReplayedUnit("tabled") {
    graph::Builder& b = builder;
    if (shape.hasChannelValid) addChannelAndValid();
    const Signal x = b.input("x", 9), y = b.input("y", 9);
    std::mt19937_64 random(5);
    const auto read = [&](Signal index, int width) {
      std::vector<util::MPZ> rows;
      for (unsigned long row = 0; row < 1ul << index.width; ++row)
        rows.push_back(util::MPZ(static_cast<unsigned long>(random())).lowBits(width));
      return b.memory(index, rows, width);
    };
    const Signal first = b.name(read(x, 24), "first"), second = read(b.add(x, y), 20);
    b.output("whole", first);
    b.output("sum", b.add(b.slice(first, 0, 9), y));
    b.output("join", b.concat({b.slice(second, 4, 4), y, b.bitNot(second)}));
    b.output("chain", read(b.concat({b.slice(second, 6, 8), b.slice(first, 3, 1)}), 30));
    hasEnable = shape.hasEnable;
    scheduleFor(shape.period);
  }
};

class MemoryIn : public LanguageTest {};
INSTANTIATE_TEST_SUITE_P(Languages, MemoryIn, kBothLanguages, languageName);

// At 2600 ps no logic stands behind the first register of a block, at 20000 behind no second one.
TEST_P(MemoryIn, ReplaysBehindOneRegisterAndTwo) {
  for (const int period : {20000, 2600}) {
    for (const bool hasEnable : {false, true}) {
      for (const bool hasChannelValid : {false, true}) {
        TabledUnit unit(
            {.period = period, .hasEnable = hasEnable, .hasChannelValid = hasChannelValid});
        EXPECT_EQ(unit.settings.latency, period == 20000 ? 2 : 3);
        unit.dontCareOnReset = hasEnable == hasChannelValid;
        unit.drawDelayedVectors(600, 3);
        SCOPED_TRACE(fmt::format("{} {} {}", period, hasEnable, hasChannelValid));
        unit.expectReplay(GetParam());
        EXPECT_THAT(unit.lint(), IsEmpty());
      }
    }
  }
}

// How many memory blocks of which kind tools make of a unit's text.
Outcome blocksOf(ReplayedUnit& unit, LANGUAGE language, int small) {
  unit.writeTexts(language);
  const std::string toVerilog =
      language == LANGUAGE_VHDL
          ? fmt::format("ghdl --synth --std=08 --out=verilog {0}.vhd -e {0} >{0}.v && ", unit.name)
          : "";
  return unit.inFolder(
      fmt::format("{0} yosys -q -p 'read_verilog {1}.v; synth_xilinx -top {1} -run begin:map_luts; "
                  "select -assert-count {2} t:RAMB18E1; select -assert-none t:RAMB36E1'",
                  toVerilog, unit.name, small));
}

TEST_P(MemoryIn, SynthesisesToBlocksAndTablesToLogic) {
  for (const bool hasEnable : {false, true}) {
    TabledUnit unit({.period = 2600, .hasEnable = hasEnable});
    const Outcome outcome = blocksOf(unit, GetParam(), 3);
    EXPECT_EQ(outcome.status, 0) << hasEnable << outcome.output;
  }
  // Between registers that a memory could take in.
  ReplayedUnit logic("gates");
  std::mt19937_64 random(5);
  const Signal x = logic.builder.input("x", 9), y = logic.builder.input("y", 9);
  const Signal word =
      logic.builder.table(logic.builder.bitXor(x, y), graph::drawRows(random, 9, 6), 6);
  logic.builder.output("r", logic.builder.reduceXor(word));
  logic.scheduleBy(3);
  logic.dontCareOnReset = true;
  const Outcome outcome = blocksOf(logic, GetParam(), 0);
  EXPECT_EQ(outcome.status, 0) << outcome.output;
}

}  // namespace
}  // namespace hdl
