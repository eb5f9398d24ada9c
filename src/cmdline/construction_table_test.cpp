// What a unit is told: its variant and its options, in order.

#include "cmdline/construction_table.h"

#include <gmock/gmock.h>

#include <iterator>
#include <sstream>

#include "cmdline/test_system.h"

namespace cmdline {
namespace {

using ::testing::ExitedWithCode;

using Words = std::vector<std::string>;

TEST(ConstructionTable, HasARowForEachOperatorOfTheFlowAndNoOther) {
  int rows = 0;
  for (int component = 0; component < 200; ++component)
    rows += findConstruction(component) != nullptr;
  EXPECT_EQ(rows, 69);
  EXPECT_EQ(findConstruction(13), nullptr);
}

struct Case {
  componentType component;
  const char* parameters;
  kiln::Type output;
  const char* variant;
  const char* options;  // as pairs of a kind and the numbers of its value
};

// Without the options that follow from the settings of the tests.
std::string optionsOf(const Options& options) {
  std::string text;
  for (const auto& option : options) {
    text += fmt::format("({}", option->kind);
    for (const int number : option->numbers()) text += fmt::format(", {}", number);
    text += ")";
  }
  return text;
}

TEST(ConstructionTable, ChoosesVariantAndOptions) {
  const kiln::Type single = kiln::ieee(8, 23), half = kiln::ieee(5, 10);
  const kiln::Type fixed = kiln::FixedPoint(32, 16, true), bit = kiln::FixedPoint(1, 0, false);
  const Case kCases[] = {
      {10, "8 0 1 11 52", kiln::ieee(11, 52), "8 23 1 0 0 0", "(9, 11, 52)"},
      {11, "8 23 32 16 1 0", fixed, "8 23 32 16 1 0 0 0 0", "(10, 32, 16, 1)(16, 0)(17, 0)"},
      {11, "8 23 32 16 2 -2", fixed, "8 23 32 16 0 0 6 0 0", "(10, 32, 16, 1)(16, 0)(17, -2)"},
      {11, "8 23 32 16 1 2", fixed, "8 23 32 16 1 0 5 0 0", "(10, 32, 16, 1)(16, 0)(17, 2)"},
      {11, "8 23 32 16 1 4", fixed, "8 23 32 16 1 0 2 0 0", "(10, 32, 16, 1)(16, 0)(17, 4)"},
      {12, "8 23 32 16 1 -1", fixed, "8 23 32 16 1 1 3 0 0", "(10, 32, 16, 1)(16, 1)(17, 2)"},
      {15, "", single, "0 0 0 0", "(20, 0)"},
      {16, "8 23 0 1 0", single, "0 1 1 0", "(20, 1)"},
      {16, "8 23 1 5 1", single, "0 1 0 1", "(18)(20, 1)(19)"},
      {16, "8 23 1 0 2", single, "0 0 0 0", "(18)(20, 0)"},
      {17, "", half, "0 0 0", "(9, 5, 10)"},
      {18, "8 23 8 23 5 10 0", half, "0 0 1", "(9, 5, 10)"},
      {18, "8 23 8 23 8 23 1", single, "0 0 0", "(9, 8, 23)"},
      {20, "", single, "8 23 0 0 0", ""},
      {21, "", single, "8 23 0 1 0", "(7)"},
      {44, "", single, "8 23 1 0 0", "(13)"},
      {46, "", single, "8 23 1 1 0", "(12)(13)"},
      {50, "", bit, "8 23 -2 0 1", "(3, 0)"},
      {55, "", bit, "8 23 3 0 1", "(3, 5)"},
      {60, "", single, "8 23 0 1 0", "(4)"},
      {82, "", single, "8 23 1 8 0", ""},
      {101, "", single, "8 23 0", ""},
  };
  for (const Case& row : kCases) {
    SCOPED_TRACE(fmt::format("{} {}", row.component, row.parameters));
    std::istringstream words(row.parameters);
    TestSystem system(row.component, Words(std::istream_iterator<std::string>(words), {}));
    system.spec.outputs = TestSystem::ports({"q"}, row.output);
    const ConstructionRow& found = *findConstruction(row.component);
    Options options;
    pushFormatOptions(options, system.spec);
    pushRowOptions(options, found, system.spec);
    EXPECT_EQ(optionsOf(options), row.options);
    EXPECT_EQ(fmt::format("{}", fmt::join(variantOf(found, system.spec), " ")), row.variant);
  }
}

TEST(ConstructionTable, NeedsItsWords) {
  TestSystem system(16, {"8", "23", "1"});
  EXPECT_THROW(variantOf(*findConstruction(16), system.spec), std::out_of_range);
}

TEST(SingleUnit, IsToldRoundingAndSubnormalsLast) {
  TestSystem system(46);
  system.spec.inputs = TestSystem::ports({"a", "b"});
  system.spec.outputs = TestSystem::ports({"q"});
  system.tests.faithfulRounding = false;
  system.tests.subnormals = true;
  system.setUp();
  EXPECT_EQ(system.block("FPMaxAbs")[kiln::A_UNIT_OPTIONS].get_ptr()->text(),
            "((12), (13), (0), (1))");
}

TEST(SingleUnit, EndsTheRunWhereItCannotBeMade) {
  const auto setUp = [](componentType component, const kiln::Type& output, int designStyle = 1) {
    TestSystem system(component, Words(7, "1"));
    system.options.designStyle = designStyle;
    system.spec.inputs = TestSystem::ports({"a", "b"});
    system.spec.outputs = TestSystem::ports({"q"}, output);
    system.setUp();
  };
  const kiln::Type single = kiln::ieee(8, 23), bit = kiln::FixedPoint(1, 0, false);
  EXPECT_EXIT(setUp(13, single), ExitedWithCode(255),
              "Assertion \"m_testModel!=nullptr && dUnit!=nullptr\" failed: cmdGauge");
  EXPECT_EXIT(setUp(17, bit), ExitedWithCode(255), "\"fpOutType!=nullptr\" failed: cmdGauge");
  EXPECT_EXIT(setUp(11, single), ExitedWithCode(255), "\"fxpOutType!=nullptr\" failed: cmdGauge");
  EXPECT_EXIT(setUp(15, single, 2), ExitedWithCode(255), "Code should be unreachable");
  TestSystem styles;
  styles.spec.enableStyle = 3;  // asks for an enable that no wire carries
  styles.spec.inputs = TestSystem::ports({"a", "b"});
  styles.spec.outputs = TestSystem::ports({"q"});
  EXPECT_EXIT(styles.setUp(), ExitedWithCode(255), "\"eiw!=nullptr\" failed: cmdGauge");
}

// Units may still be missing; what is there must not be refused by name.
TEST(SingleUnit, NamesTheOperatorThatHasNoUnit) {
  for (int component = 10; component <= 101; ++component) {
    const ConstructionRow* row = findConstruction(component);
    if (!row || functions::findUnit(row->unit)) continue;
    TestSystem system(component, Words(7, "1"));
    system.spec.outputs = TestSystem::ports({"q"}, component == 11 || component == 12
                                                       ? kiln::Type(kiln::FixedPoint(8, 0, false))
                                                       : kiln::Type(kiln::ieee(8, 23)));
    system.spec.inputs = TestSystem::ports({"a", "b"});
    EXPECT_EXIT(system.setUp(), ExitedWithCode(255), std::string(row->word) + ": no unit yet");
  }
}

}  // namespace
}  // namespace cmdline
