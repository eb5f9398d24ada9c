#include "vectors/enable_population.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>

#include "vectors/population.h"
#include "vectors/population_test_folder.h"

namespace {

using kiln::FixedPoint;

// q0 = a + b and q1 = a - b on integer ports, by MPFR.
void sumAndDifference(mpfr_ptr q, const std::vector<NumValue>& inputs, mpfr_rnd_t rounding,
                      std::size_t j) {
  (j == 0 ? mpfr_add : mpfr_sub)(q, inputs[0].real.get(), inputs[1].real.get(), rounding);
}

// What a port shows of an integer: the column of a bound of 0.5, or the two of a bound of 1, which
// are the integer and the next one away from zero.
std::string columnsOf(int value, int width, float bound) {
  const unsigned mask = (1u << width) - 1;
  const auto text = [&](int v) { return fmt::format(" {:0{}b} ", unsigned(v) & mask, width); };
  return bound == 0.5f ? text(value) : text(value) + text(value < 0 ? value - 1 : value + 1);
}

std::string openColumns(int width, float bound) {
  const std::string one = fmt::format(" {:-<{}} ", "", width);
  return bound == 0.5f ? one : one + one;
}

// One cycle as a stimulus file tells it.
struct Cycle {
  int valid = 1, channel = 0, enable = 1;
  int a = 0, b = 0;
};

int signedOf(const std::string& bits) {
  const int value = std::stoi(bits, nullptr, 2);
  return bits.front() == '1' ? value - (1 << bits.size()) : value;
}

class EnablePopulation : public PopulationFolder {
 protected:
  EnablePopulation() {
    for (const char* name : {"a", "b"}) in.push_back(name, FixedPoint(kIn, 0, true));
    for (const char* name : {"q0", "q1"}) out.push_back(name, FixedPoint(kOut, 0, true));
    t.errorBounds = {0.5f, 0.5f};
    t.randomTests = true;
    t.testCount = 400;
    t.enable = true;
  }

  int populate(int latency) { return PopulationFolder::populate(unit, latency); }

  // The stimulus file, each row checked for its form.
  std::vector<Cycle> cycles() const {
    std::vector<Cycle> list;
    for (const std::string& row : rowsOf("unit/unit_xIn.stm")) {
      std::vector<std::string> columns = columnsIn(row);
      Cycle cycle{.channel = static_cast<int>(list.size()) & 255};
      std::size_t first = 0;
      if (!t.noChanValid) {
        cycle.valid = std::stoi(columns.at(0));
        EXPECT_EQ(columns.at(1), fmt::format("{:08b}", cycle.channel));
        first = 2;
      }
      cycle.a = signedOf(columns.at(first));
      cycle.b = signedOf(columns.at(first + 1));
      if (t.enable) cycle.enable = std::stoi(columns.at(first + 2));
      EXPECT_EQ(columns.size(), first + 2 + (t.enable ? 1 : 0));
      list.push_back(cycle);
    }
    return list;
  }

  // The first cycles carry tests, the last ones drain, and no stage is left behind.
  void expectDrained(const std::vector<Cycle>& list, int longest) const {
    int accepted = 0, lastTest = -1;
    for (std::size_t i = 0; i < list.size(); ++i) {
      if (!t.noChanValid) {
        EXPECT_EQ(list[i].valid, i < static_cast<std::size_t>(t.testCount));
      }
      if (!list[i].enable) continue;
      if (i < static_cast<std::size_t>(t.testCount)) lastTest = accepted;
      ++accepted;
    }
    // The last test's result has left in the last cycle, and not before.
    EXPECT_EQ(accepted, lastTest + 1 + longest);
    if (longest > 0) {
      EXPECT_EQ(list.back().enable, 1);
    }
  }

  // The rows of a file of outputs with `latency` registers behind the stimuli: a register takes a
  // new value only while the enable is high.
  void expectRows(const char* file, const std::vector<Cycle>& list, int latency,
                  const std::vector<int>& ports) const {
    std::string open = t.noChanValid ? "" : " 0  00000000 ";
    for (const int port : ports) open += openColumns(kOut, t.errorBounds[port]);
    std::deque<std::string> registers(static_cast<std::size_t>(latency), open);
    std::vector<std::string> shown;
    for (const Cycle& c : list) {
      std::string row = t.noChanValid ? "" : fmt::format(" {}  {:08b} ", c.valid, c.channel);
      for (const int port : ports)
        row += columnsOf(port == 0 ? c.a + c.b : c.a - c.b, kOut, t.errorBounds[port]);
      registers.push_back(row);
      shown.push_back(registers.front());
      c.enable ? registers.pop_front() : registers.pop_back();
    }
    EXPECT_EQ(rowsOf(file), shown) << file << " " << latency << t.noChanValid << t.enable;
  }

  static constexpr int kIn = 9, kOut = 12;
  TestUnit unit{sumAndDifference};
};

TEST_F(EnablePopulation, RowsAreThoseOfRegistersThatStall) {
  for (const int latency : {0, 1, 5}) {
    for (const bool noChanValid : {false, true}) {
      for (const float bound : {0.5f, 1.0f}) {
        t.noChanValid = noChanValid;
        t.errorBounds = {bound, 0.5f};
        const int count = populate(latency);
        const std::vector<Cycle> list = cycles();
        EXPECT_EQ(count, static_cast<int>(list.size()));
        if (!noChanValid) expectDrained(list, latency);
        expectRows("unit/unit_xOut.stm", list, latency, {0, 1});
      }
    }
  }
}

TEST_F(EnablePopulation, WithoutValidTheRunEndsWhenTheStartStagesAndTheTestsHaveLeft) {
  t.noChanValid = true;
  t.testCount = 3;
  EXPECT_GE(populate(5), 5 + 3);
  t.enable = false;
  t.outLatency = {5, 2};
  EXPECT_EQ(populate(5), 5 + 3);
  t.testCount = 0;
  EXPECT_EQ(populate(5), 0);
}

TEST_F(EnablePopulation, StallsOneCycleInFiveOnceTheUnitIsFull) {
  t.testCount = 20000;
  const int latency = 30;
  populate(latency);
  int low = 0, cycle = 0;
  for (const Cycle& c : cycles()) {
    if (cycle++ <= latency) {
      EXPECT_EQ(c.enable, 1);
    }
    low += !c.enable;
  }
  const double p = 20.0 / 101, n = cycle - latency - 1;
  EXPECT_NEAR(low, n * p, 5 * std::sqrt(n * p * (1 - p)));
}

TEST_F(EnablePopulation, SplitOutputsHaveFilesAndDelaysOfTheirOwn) {
  fs::create_directory("unit");
  for (const bool enable : {false, true}) {
    for (const bool noChanValid : {false, true}) {
      t.enable = enable;
      t.noChanValid = noChanValid;
      t.outLatency = {3, 0};
      t.errorBounds = {1, 0.5f};
      populate(/*latency=*/7);
      const std::vector<Cycle> list = cycles();
      if (!noChanValid) expectDrained(list, 3);
      expectRows("unit/unit_xOut0.stm", list, 3, {0});
      expectRows("unit/unit_xOut1.stm", list, 0, {1});
      EXPECT_FALSE(fs::exists("unit/unit_xOut.stm"));
    }
  }
}

TEST_F(EnablePopulation, FloatingOutputsTakeBothColumnsThroughTheDelay) {
  // The same run with and without split outputs.
  in = {};
  out = {};
  for (const char* name : {"a", "b"}) in.push_back(name, kiln::ieee(5, 10));
  out.push_back("q0", kiln::ieee(5, 10));
  out.push_back("q1", kiln::ieee(5, 10));
  t.errorBounds = {2, 0.5f};
  populate(4);
  std::vector<std::string> joined = rowsOf("unit/unit_xOut.stm");
  t.outLatency = {4, 4};
  populate(4);
  const auto first = rowsOf("unit/unit_xOut0.stm"), second = rowsOf("unit/unit_xOut1.stm");
  ASSERT_EQ(first.size(), joined.size());
  for (std::size_t i = 0; i < joined.size(); ++i) {
    EXPECT_EQ(first[i] + second[i].substr(std::string(" 1  00000000 ").size()), joined[i]);
  }
}

TEST_F(EnablePopulation, ExhaustiveTestsMeetEveryPairAndGoOnWhileTheUnitDrains) {
  in = {};
  for (const char* name : {"a", "b"}) in.push_back(name, FixedPoint(4, 0, true));
  t.randomTests = false;
  t.exhaustiveTests = true;
  for (const bool enable : {false, true}) {
    t.enable = enable;
    t.outLatency = enable ? std::vector<int>{} : std::vector<int>{3, 3};
    fs::create_directories("unit");
    const int count = populate(3);
    EXPECT_NE(console.find("EN_OR_SPLITOUT : RandomTestCount = 400\nEN_OR_SPLITOUT : Should "
                           "generate at least 256 exhaustive test vectors \n0% ["),
              std::string::npos);
    const std::vector<Cycle> list = cycles();
    EXPECT_EQ(count, static_cast<int>(list.size()));
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(list[i].valid, i < 256);
      EXPECT_EQ(list[i].a & 15, i % 16);
      EXPECT_EQ(list[i].b & 15, i / 16 % 16);
    }
    if (enable) {
      expectRows("unit/unit_xOut.stm", list, 3, {0, 1});
    } else {
      EXPECT_EQ(count, 256 + 3);
      expectRows("unit/unit_xOut0.stm", list, 3, {0});
    }
  }
  // With random tests beside them all stimuli are drawn, and the longer count ends the run.
  t.randomTests = true;
  t.testCount = 10;
  EXPECT_EQ(populate(3), 256);
  EXPECT_EQ(cycles()[10].valid, 0);
}

TEST_F(EnablePopulation, SplitFixedOutputsEndAtTheirRange) {
  fs::create_directory("unit");
  out = {};
  out.push_back("q0", FixedPoint(kIn, 0, true));  // a bit less than sums may have
  t.enable = false;
  t.outLatency = {0};
  t.errorBounds = {1};
  t.testCount = 2000;
  populate(0);
  const auto rows = rowsOf("unit/unit_xOut0.stm");
  int clamped = 0;
  std::size_t i = 0;
  for (const Cycle& c : cycles()) {
    const int sum = c.a + c.b, low = -(1 << (kIn - 1)), high = -low - 1;
    const auto text = [&](int v) { return columnsOf(std::clamp(v, low, high), kIn, 0.5f); };
    EXPECT_EQ(rows.at(i),
              fmt::format(" 1  {:08b} ", i & 255) + text(sum) + text(sum < 0 ? sum - 1 : sum + 1));
    clamped += sum < low || sum > high;
    ++i;
  }
  EXPECT_GT(clamped, 20);
}

TEST_F(EnablePopulation, TellsItsTestsAndItsProgress) {
  t.testCount = 2;
  t.enable = false;
  t.outLatency = {0, 0};
  fs::create_directory("unit");
  populate(0);
  EXPECT_EQ(console, "EN_OR_SPLITOUT : RandomTestCount = 2\n0% [" + std::string(40, ' ') +
                         "]\r50% [" + std::string(20, '=') + std::string(20, ' ') + "]\r");
}

TEST_F(EnablePopulation, AssertsWhatItNeeds) {
  TestingOptions plain;
  EXPECT_EXIT(populateStmFiles_EnableOrSplitOutputs(&unit, "unit", in, out, 3, plain),
              testing::ExitedWithCode(255),
              "testOptions.enable \\|\\| testOptions.hasSplitOutputPorts\\(\\)");
  out = {};
  out.push_back("q0", kiln::ieee(8, 23));
  out.push_back("q1", kiln::ieee(5, 10));
  t.subnormals = true;
  expectExit(unit,
             "All floating-point output formats must match for the subnormals with flat enable "
             "testbench infrastructure to work");
  t.subnormals = false;
  t.outLatency = {1, 1};
  EXPECT_EXIT(populateStmFilesFP(&unit, "nowhere", in, out, 3, t), testing::ExitedWithCode(255),
              "^./nowhere/nowhere_xIn.stm: .*: Could not open stimuli or output files\n$");
}

TEST_F(EnablePopulation, TooManyCombinationsAreRefusedBeforeAnyFile) {
  in.push_back("c", FixedPoint(40, 0, false));
  t.exhaustiveTests = true;
  expectExit(unit, "^[^\n]*-exhaustiveTests[^\n]*\n$");
  EXPECT_FALSE(fs::exists("unit"));
}

TEST_F(EnablePopulation, LeavesNoFileBehindWhereOneOfThemCannotBeMade) {
  t.outLatency = {1, 1};
  fs::create_directories("unit/unit_xOut1.stm");
  expectExit(unit, "^./unit/unit_xOut1.stm: ");
  EXPECT_FALSE(fs::exists("unit/unit_xIn.stm"));
  EXPECT_FALSE(fs::exists("unit/unit_xOut0.stm"));
}

TEST_F(EnablePopulation, NeedsNoMoreMemoryForMoreRows) {
  fs::create_directory("unit");
  for (const bool split : {false, true}) {
    t.outLatency = split ? std::vector<int>{20, 3} : std::vector<int>{};
    const auto allocated = [&](int rows) {
      t.testCount = rows;
      populate(20);  // fills the storage that is kept
      const AllocationCount count;
      populate(20);
      return count.soFar();
    };
    const long few = allocated(1000), many = allocated(20000);
    EXPECT_GT(few, 0);
    EXPECT_LE(many, few + 10) << split;
  }
}

}  // namespace
