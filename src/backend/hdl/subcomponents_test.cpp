#include "backend/hdl/subcomponents.h"

#include <regex>
#include <set>

#include "backend/graph/random_graph.h"
#include "backend/hdl/replay_test.h"

namespace hdl {
namespace {

std::vector<std::string> matchesOf(const std::string& text, const std::string& pattern) {
  const std::regex wanted(pattern);
  std::vector<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), wanted), end; at != end; ++at)
    found.push_back((*at)[1]);
  return found;
}

// In a VHDL print only registers are signals of this type.
long registerBitsOf(const std::string& vhdl) {
  long bits = 0;
  for (const std::string& high : matchesOf(vhdl, R"(\n  signal \w+ : unsigned\((\d+) downto 0\))"))
    bits += std::stol(high) + 1;
  return bits;
}

// Replays the design taken apart.
Outcome replayed(ReplayedUnit& unit, LANGUAGE language) {
  unit.writeVectors();
  unit.writeTexts(language);
  unit.write(unit.name + (language == LANGUAGE_VHDL ? ".vhd" : ".v"),
             subcomponentsText(unit.design(), language));
  return unit.simulate();
}

class SubcomponentsIn : public LanguageTest {};
INSTANTIATE_TEST_SUITE_P(Both, SubcomponentsIn, kBothLanguages, languageName);

// Every operation, seven scopes that read each other in all directions, states among them.
TEST_P(SubcomponentsIn, AnswerAsOneEntityWould) {
  std::size_t entities = 0;
  for (std::uint32_t seed = 1; seed <= 12; ++seed) {
    ReplayedUnit unit("parted");
    graph::RandomGraph draw(seed);
    unit.graph = draw.make({.nodes = 120, .states = seed % 3 == 0 ? 5 : 0});
    unit.hasEnable = seed % 4 == 0;
    unit.dontCareOnReset = seed % 5 == 0;
    unit.scheduleFor(seed % 4 == 1 ? 0 : 1500 + 500 * static_cast<int>(seed % 5));
    unit.drawDelayedVectors(60, seed);
    const Outcome outcome = replayed(unit, GetParam());
    EXPECT_THAT(outcome.output, HasSubstr(unit.verdict() + "\n")) << seed;
    const std::string text = subcomponentsText(unit.design(), LANGUAGE_VHDL);
    EXPECT_EQ(registerBitsOf(text), registerBitsOf(designText(unit.design(), LANGUAGE_VHDL)))
        << seed;
    entities += matchesOf(text, R"(\nentity (\w+) is)").size();
  }
  EXPECT_GE(entities, 12 * 7U);
}

// Scopes of one name, of a name that no language allows and of a port's name; nested ones stay with
// the outermost.
void buildNamed(graph::Builder& b) {
  const graph::Signal x = b.input("a", 8), y = b.input("unit_shift", 8);
  graph::Signal value = b.add(x, y);
  for (const char* name : {"shift", "Shift", "entity", "a b"}) {
    const auto scope = b.scope(name);
    value = b.bitXor(b.add(value, y), b.replicate(b.reduceOr(value), 8));
    const auto inner = b.scope("inner");
    value = b.add(value, b.bitNot(x));
  }
  b.output("r", value);
  b.output("same", b.slice(value, 2, 3));
  b.output("through", y);
  b.output("constant", b.literal(5, 4));
}

TEST(Subcomponents, HaveNamesOfTheirOwn) {
  ReplayedUnit unit("unit");
  buildNamed(unit.builder);
  unit.scheduleFor(2500);
  const std::string vhdl = subcomponentsText(unit.design(), LANGUAGE_VHDL);
  EXPECT_THAT(matchesOf(vhdl, R"(\nentity (\w+) is)"),
              testing::ElementsAre("unit_unit", "unit_shift_2", "unit_Shift_3", "unit_entity",
                                   "unit_a_b", "unit"));
  const std::string verilog = subcomponentsText(unit.design(), LANGUAGE_VERILOG);
  EXPECT_EQ(matchesOf(verilog, R"(\nmodule (\w+) )"), matchesOf(vhdl, R"(\nentity (\w+) is)"));
  EXPECT_THAT(verilog, Not(HasSubstr("inner (")));
  for (const std::string& name : matchesOf(vhdl, R"(: entity work\.(\w+)\n)"))
    EXPECT_THAT(verilog, HasSubstr("\n  " + name + " part_"));
  EXPECT_EQ(subcomponentsText(unit.design(), LANGUAGE_VHDL), vhdl);
  unit.drawVectors(40, 1);
  for (const LANGUAGE language : {LANGUAGE_VHDL, LANGUAGE_VERILOG})
    EXPECT_THAT(replayed(unit, language).output, HasSubstr(unit.verdict() + "\n"));
}

TEST(Subcomponents, PassTheToolsWithoutAWarning) {
  for (const int period : {0, 2500}) {
    ReplayedUnit unit("unit");
    unit.addChannelAndValid();
    buildNamed(unit.builder);
    unit.scheduleFor(period);
    unit.write("unit.v", subcomponentsText(unit.design(), LANGUAGE_VERILOG));
    unit.write("unit.vhd", subcomponentsText(unit.design(), LANGUAGE_VHDL));
    EXPECT_THAT(unit.inFolder("verilator --lint-only -Wall --top-module unit unit.v").output,
                IsEmpty());
    for (const char* flags : {"-top unit", "-flatten -top unit"}) {
      const Outcome outcome =
          unit.inFolder(fmt::format("yosys -q -p 'read_verilog unit.v; synth {}; check -assert; "
                                    "select -assert-none t:$_DLATCH_*'",
                                    flags));
      EXPECT_EQ(outcome.status, 0) << outcome.output;
      EXPECT_THAT(outcome.output, Not(HasSubstr("Warning")));
    }
    const Outcome outcome =
        unit.inFolder("ghdl -a --std=08 unit.vhd && ghdl --synth --std=08 unit");
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output, Not(HasSubstr("warning")));
  }
}

TEST(Subcomponents, AreNoneWithoutScopes) {
  ReplayedUnit unit("plain");
  unit.builder.output("r",
                      unit.builder.add(unit.builder.input("a", 8), unit.builder.input("b", 8)));
  unit.scheduleFor(2500);
  for (const LANGUAGE language : {LANGUAGE_VHDL, LANGUAGE_VERILOG})
    EXPECT_EQ(subcomponentsText(unit.design(), language), designText(unit.design(), language));
}

}  // namespace
}  // namespace hdl
