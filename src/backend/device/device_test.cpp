#include "backend/device/device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "backend/device/families.h"
#include "backend/graph/builder.h"

namespace device {
namespace {

using graph::Builder;
using graph::Graph;
using graph::Signal;
using ::testing::AllOf;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;

Device* device(const std::string& family, const std::string& grade = "fast") {
  return deviceFactory.GetDevice(family, "", grade, "AUTO", "");
}

TEST(DeviceFactory, FindsFamiliesWithoutCaseAndBlanks) {
  struct Row {
    const char* asked;
    const char* found;
  };
  for (const Row& row :
       {Row{"Merrow 10", "Merrow10"}, Row{"merrow10", "Merrow10"}, Row{"Tarn V", "TarnV"},
        Row{"TARNIVGX", "TarnIVGX"}, Row{"Halvard10", "Halvard10"}, Row{"MerrowV", "MerrowV"},
        Row{"halvard IV", "HalvardIV"}})
    EXPECT_EQ(device(row.asked)->familyName(), row.found) << row.asked;
}

TEST(DeviceFactory, KnowsSpeedGradesByAlias) {
  EXPECT_EQ(device("TarnV", "1")->speedGradeName(), "fast");
  EXPECT_EQ(device("TarnV", "-6")->speedGradeName(), "fast");
  EXPECT_EQ(device("TarnV", "Mid")->speedGradeName(), "mid");
  EXPECT_EQ(device("TarnV", "-8")->speedGradeName(), "slow");
  EXPECT_LT(device("TarnV", "fast")->setup(), device("TarnV", "slow")->setup());
}

TEST(DeviceFactory, RefusesUnknownNamesInOneLineThatListsTheKnown) {
  EXPECT_EXIT(device("Marrow"), ExitedWithCode(255),
              AllOf(HasSubstr("'Marrow'"), HasSubstr("Merrow10"), HasSubstr("HalvardIV")));
  EXPECT_EXIT(device("TarnV", "99"), ExitedWithCode(255),
              AllOf(HasSubstr("'99'"), HasSubstr("fast"), HasSubstr("-6")));
}

TEST(DeviceFactory, KeepsDevicesApart) {
  Device* first = device("TarnV");
  Device* second = device("TarnV");
  first->SetSystemSettings(400, -1, -1, -1);
  second->SetSystemSettings(100, -1, -1, -1);
  EXPECT_EQ(first->period(), Picoseconds{2500});
  EXPECT_EQ(second->period(), Picoseconds{10000});
}

TEST(Families, OnlyTheYardstickIsCalibratedAndFeaturesAreWhereTheyBelong) {
  for (const Family& family : families()) {
    const std::string_view name = family.name;
    EXPECT_EQ(family.calibrated, name == "TarnV") << name;
    EXPECT_EQ(family.hardFloat, name == "Merrow10" || name == "Halvard10") << name;
    EXPECT_EQ(Device(family, "fast", 1).SupportsHyperRegisters(), name == "Halvard10") << name;
  }
}

TEST(Languages, AreNamedWithoutCase) {
  EXPECT_EQ(GetLanguageFromName("vhdl"), LANGUAGE_VHDL);
  EXPECT_EQ(GetLanguageFromName("VHDL"), LANGUAGE_VHDL);
  EXPECT_EQ(GetLanguageFromName("Verilog"), LANGUAGE_VERILOG);
  EXPECT_EQ(GetLanguageFromName("ada"), LANGUAGE_UNKNOWN);
  EXPECT_EQ(GetLanguageFromName(""), LANGUAGE_UNKNOWN);
}

// Nanoseconds of single operations as synthesis of the yardstick measures them, at most 15 % below
// the model.
TEST(Yardstick, CoversMeasuredDelays) {
  Graph graph;
  Builder b(graph);
  const auto in = [&](const char* name, int width) { return b.input(name, width); };
  const Signal a = in("a", 32), c = in("c", 32), d = in("d", 32), index = in("i", 2);
  const Signal wideA = in("wa", 64), wideC = in("wc", 64);
  struct Row {
    const char* name;
    Signal signal;
    int measured;
  };
  const Row rows[] = {
      {"add 32", b.add(a, c), 1800},
      {"add 64", b.add(wideA, wideC), 2700},
      {"add three", b.addThree(a, c, d, b.bit(false)), 2200},
      {"less", b.less(a, c), 1600},
      {"pick of 4", b.pick(index, std::vector{a, c, d, b.bitNot(a)}), 600},
  };
  for (const Row& row : rows) {
    const int modelled = device("TarnV")->delayOf(graph, row.signal.node).value;
    EXPECT_GE(modelled, row.measured) << row.name;
    EXPECT_LE(modelled, row.measured * 115 / 100) << row.name;
  }
}

TEST(Yardstick, CountsTablesAndBlocksAsSynthesisDoes) {
  Graph graph;
  Builder b(graph);
  const Signal a = b.input("a", 32), c = b.input("c", 32), d = b.input("d", 32);
  const Signal x = b.input("x", 24), y = b.input("y", 17), z = b.input("z", 18);
  const Device& tarn = *device("TarnV");
  const auto luts = [&](Signal s) { return tarn.costOf(graph, s.node).luts; };
  const auto dsps = [&](Signal s) { return tarn.costOf(graph, s.node).dsps; };
  EXPECT_EQ(luts(b.add(a, c)), 32);
  EXPECT_EQ(luts(b.addThree(a, c, d, b.bit(false))), 64);
  EXPECT_EQ(luts(b.add(a, b.literal(1, 32))), 1);
  EXPECT_EQ(luts(b.slice(a, 3, 7)), 0);
  EXPECT_EQ(dsps(b.multiply(x, y)), 1);
  EXPECT_EQ(dsps(b.multiply(x, z)), 2);
  EXPECT_EQ(dsps(b.multiplySigned(x, z)), 1);
  EXPECT_EQ(dsps(b.multiply(b.slice(x, 0, 4), b.slice(y, 0, 4))), 0);
}

TEST(Device, WidestAdderIsTheWidestThatFits) {
  for (const Family& family : families()) {
    for (const SpeedGrade& grade : speedGrades()) {
      const Device some(family, "", grade.factor);
      for (const int period : {2500, 3333, 10000}) {
        const int widest = some.widestAdder({period});
        Graph graph;
        Builder b(graph);
        const auto stage = [&](int width) {
          const Signal sum = b.add(b.input("a", width), b.input("b", width));
          return some.clockToOutput() + some.delayOf(graph, sum.node) + some.setup();
        };
        EXPECT_LE(stage(widest).value, period) << family.name;
        EXPECT_GT(stage(widest + 1).value, period - 1) << family.name;
      }
    }
  }
  EXPECT_EQ(device("TarnV")->widestAdder({100}), 1);
}

// A register inside a product's block shortens the stage before it and lengthens the one behind.
TEST(Device, SplitsProductAtItsInnerRegister) {
  Graph graph;
  Builder b(graph);
  const Signal product = b.multiply(b.input("a", 17), b.input("b", 17));
  const Signal sum = b.add(b.input("c", 17), b.input("d", 17));
  for (const Family& family : families()) {
    const Device some(family, "fast", 1);
    EXPECT_LT(some.delayToRegister(graph, product.node), some.delayOf(graph, product.node));
    EXPECT_GT(some.clockToOutput(graph, product.node, 1),
              some.clockToOutput(graph, product.node, 2));
    EXPECT_EQ(some.delayToRegister(graph, sum.node), some.delayOf(graph, sum.node));
    EXPECT_EQ(some.clockToOutput(graph, sum.node, 1), some.clockToOutput());
  }
}

}  // namespace
}  // namespace device
