#include "vectors/population.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cfenv>
#include <cfloat>
#include <cmath>
#include <csignal>
#include <fstream>
#include <sstream>

#include "numbers/draws.h"
#include "util/random.h"
#include "vectors/population_test_folder.h"

namespace {

// With MPFR's special cases, which are those of IEEE 754.
void addition(mpfr_ptr q, const std::vector<NumValue>& inputs, mpfr_rnd_t rounding, std::size_t) {
  mpfr_add(q, inputs[0].real.get(), inputs[1].real.get(), rounding);
}

// What a port without subnormals shows of the sum of two floats, by the hardware's own directed
// additions. In double the first rounding leaves the second its direction, and tells a sum beyond
// the floats, which is an infinity in every direction.
float sumOnPort(float a, float b, int direction) {
  std::fesetround(direction);
  volatile double wide = a, other = b;
  wide = wide + other;
  volatile float sum = static_cast<float>(wide);
  std::fesetround(FE_TONEAREST);
  if (std::fabs(wide) >= 0x1p128) return std::copysign(INFINITY, static_cast<float>(wide));
  if (std::fabs(sum) < FLT_MIN) return std::copysign(0.0f, sum);
  return sum;
}

class Population : public PopulationFolder {
 protected:
  Population() {
    for (const char* name : {"a", "b"}) in.push_back(name, kiln::ieee(8, 23));
    out.push_back("q", kiln::ieee(8, 23));
    t.errorBounds = {1};
  }
  int populate(int latency = 3) { return PopulationFolder::populate(unit, latency); }
  void randomTests(int count) {
    t.randomTests = true;
    t.testCount = count;
  }
  static std::string contents(const char* path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  static std::string stimuli() { return contents("unit/unit_xIn.stm"); }
  static std::string responses() { return contents("unit/unit_xOut.stm"); }

  TestUnit unit{addition};
};

TEST_F(Population, WritesEveryByteAsToldWithSumsFromTheHardware) {
  constexpr int kRows = 300, kLatency = 2;
  randomTests(kRows);
  EXPECT_EQ(populate(kLatency), kRows);

  gmp_randstate_t state;
  gmp_randinit_mt(state);
  gmp_randseed_ui(state, kRows);
  util::restartRandom();
  const std::string zeros(32, '0');
  std::string expectedIn, expectedOut;
  for (int i = 0; i < kLatency; ++i) {
    expectedOut += fmt::format(" 0  00000000  {0}  {0} \n", zeros);
  }
  for (int i = 0; i < kRows; ++i) {
    float operands[2];
    for (float& x : operands) {
      x = mpfr_get_flt(genRandFP(state, kiln::ieee(8, 23), t).get(), MPFR_RNDN);
    }
    const auto [a, b] = operands;
    float down = sumOnPort(a, b, FE_DOWNWARD), up = sumOnPort(a, b, FE_UPWARD);
    if (a + b == 0 && down == 0 && up == 0) down = -0.0f, up = 0.0f;
    const std::string flow = fmt::format(" 1  {:08b} ", i % 256);
    expectedIn += fmt::format("{} {}  {} \n", flow, bitsOf(a), bitsOf(b));
    expectedOut += fmt::format("{} {}  {} \n", flow, bitsOf(down), bitsOf(up));
  }
  for (int i = 0; i < kLatency; ++i) {
    expectedIn += fmt::format(" 0  00000001  {0}  {0} \n", zeros);
  }
  gmp_randclear(state);
  EXPECT_EQ(stimuli(), expectedIn);
  EXPECT_EQ(responses(), expectedOut);
  EXPECT_EQ(errors, "Directory Created: ./unit/unit_xIn.stm\n");
  EXPECT_EQ(console,
            "input  file = ./unit/unit_xIn.stm\noutput file = ./unit/unit_xOut.stm\n"
            "RandomTestCount = 300\n0% [" +
                std::string(40, ' ') + "]\r100% [" + std::string(40, '=') + "]\r\n100% [" +
                std::string(40, '=') + "]\r");
}

TEST_F(Population, WithoutTestsFillsAndDrainsOnly) {
  EXPECT_EQ(populate(1), 0);
  EXPECT_EQ(std::ranges::count(stimuli(), '\n'), 1);
  EXPECT_EQ(std::ranges::count(responses(), '\n'), 1);
  randomTests(0);
  EXPECT_EQ(populate(0), 0);
  EXPECT_EQ(stimuli() + responses(), "");
}

TEST_F(Population, RepeatsByTheByteAndChangesWithTheCount) {
  randomTests(50);
  populate();
  const std::string first = stimuli() + responses();
  populate();
  EXPECT_EQ(stimuli() + responses(), first);
  randomTests(51);
  populate();
  EXPECT_NE(stimuli().substr(0, 78), first.substr(0, 78));
}

TEST_F(Population, RunsTheKindsOfTestsInOrderEachWithChannelsFromZero) {
  in[0] = {"a", kiln::ieee(2, 1)};
  in[1] = {"b", kiln::ieee(2, 1)};
  randomTests(3);
  t.exhaustiveTests = t.handTesting = t.specialCaseTests = t.injectTestVector = true;
  t.componentType = 57;  // a sine
  t.piTestMultiples = 2;
  t.piTestInterval = 3;
  for (const double x : {1.5, -2.0}) {
    mpfr_set_d(t.injectedVector.emplace_back(100).get(), x, MPFR_RNDN);
  }
  EXPECT_EQ(populate(1), 3 + 256 + 6 + 36 + 169 + 1);
  std::istringstream rows(stimuli());
  std::string valid, channel, a, b;
  for (const int count : {3, 256, 6, 36, 169, 1}) {
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(rows >> valid >> channel >> a >> b);
      EXPECT_EQ(valid + channel, fmt::format("1{:08b}", i % 256));
      const std::string expected = count == 256  ? fmt::format("{:08b}", i)
                                   : count == 6  ? b + b
                                   : count == 36 ? "01110111"
                                                 : b + a;
      EXPECT_EQ(b + a, expected);
    }
  }
  EXPECT_EQ(a + b, "00111100");
  rows >> valid;
  EXPECT_EQ(valid, "0");
  EXPECT_NE(
      console.find("RandomTestCount = 3\n\n Should generate at least 256 test vectors \n0% ["),
      std::string::npos);
  EXPECT_EQ(std::ranges::count(console, '\n'), 2 + 1 + 2 + 6);
  t.componentType = 59;  // not periodic, no hand tests
  EXPECT_EQ(populate(1), 3 + 256 + 169 + 1);
}

TEST_F(Population, BeginsWithDirectedSweepsWhereASumOrProductWantsThem) {
  t.cancellationTests = t.nearInfinityTests = t.nearZeroTests = true;
  t.componentType = FPADD;
  randomTests(20);
  const int rows = populate(2);
  EXPECT_GE(rows, 2 * 1000 + 20);
  EXPECT_EQ(std::ranges::count(stimuli(), '\n'), rows + 2);
  EXPECT_EQ(std::ranges::count(responses(), '\n'), rows + 2);
  const std::string first = stimuli() + responses();
  populate(2);
  EXPECT_EQ(stimuli() + responses(), first);
  t.componentType = 24;
  EXPECT_EQ(populate(2), 20);
}

TEST_F(Population, WarnsOfSpecialCasesThatItCannotCount) {
  t.specialCaseTests = true;
  in.push_back("c", kiln::FixedPoint(28, 0, false));
  populate();
  EXPECT_NE(errors.find("Warning: -specialCaseTests: "), std::string::npos);
  in[2] = {"c", kiln::FixedPoint(1, 0, false)};
  EXPECT_EQ(populate(), 338);
  EXPECT_EQ(errors.find("Warning"), std::string::npos);
}

TEST_F(Population, PrintsTheUsersRoundingAtABoundOfHalf) {
  randomTests(200);
  t.genNaNs = false;
  const auto lastColumns = [&](float bound, int roundType) {
    t.errorBounds = {bound};
    t.roundType = roundType;
    populate();
    return responses();
  };
  const std::string pairs = lastColumns(1, 2);
  EXPECT_EQ(lastColumns(1, 1), pairs);
  const std::string up = lastColumns(0.5f, 2), down = lastColumns(0.5f, 1);
  std::istringstream pairRows(pairs), upRows(up), downRows(down);
  std::string valid, channel, low, high, x, y;
  int compared = 0;
  while (pairRows >> valid >> channel >> low >> high) {
    upRows >> valid >> channel >> x;
    downRows >> valid >> channel >> y;
    if (low.find('1', 1) == std::string::npos) continue;  // zeros take both signs in a pair
    EXPECT_EQ(x, high);
    EXPECT_EQ(y, low);
    ++compared;
  }
  EXPECT_GT(compared, 150);
}

TEST_F(Population, LeavesTheExponentRangeAsItWas) {
  mpfr_set_emin(-50);
  mpfr_set_emax(50);
  randomTests(1000);
  populate();
  EXPECT_EQ(mpfr_get_emin(), -50);
  EXPECT_EQ(mpfr_get_emax(), 50);
  const std::string narrow = stimuli() + responses();
  mpfr_set_emin(mpfr_get_emin_min());
  mpfr_set_emax(mpfr_get_emax_max());
  populate();
  EXPECT_EQ(stimuli() + responses(), narrow);
}

TEST_F(Population, RefusesTheUsersMistakesBeforeAnyFile) {
  struct Case {
    std::function<void(TestingOptions&)> set;
    const char* line;
  };
  for (const Case& c : {
           Case{[](auto& o) { o.roundType = 4; },
                "^Rounding mode is an option in the range 0-3\n$"},
           {[](auto& o) { o.expRangeMin = 200, o.expRangeMax = 300; },
            "^-expRange 200 300: outside the exponents -126 to 127 of input a\n$"},
           {[](auto& o) {
              o.expRangeMin = 128, o.expRangeMax = 128;
              o.randomTests = false, o.cancellationTests = true, o.componentType = FPADD;
            },
            "^-expRange 128 128: outside"},
           {[](auto& o) { o.exhaustiveTests = true; }, "^-exhaustiveTests: 2.64 vectors or more"},
           {[](auto& o) { o.injectTestVector = true; },
            "^-injectTestVector: 0 values for 2 inputs"},
           {[](auto& o) {
              o.piTestMultiples = 1 << 20, o.piTestInterval = 1 << 11, o.componentType = 57;
            },
            "^-piTesting: 2147483648 vectors, where 2147483647 are the most\n$"},
           {[](auto& o) { o.errorBounds = {1e12f}; }, "^-error 1000000000000: .*output q"},
           {[](auto& o) { o.errorBounds = {NAN}; }, "^-error nan"},
       }) {
    TestingOptions options = t;
    options.randomTests = true;
    options.testCount = 10;
    c.set(options);
    EXPECT_EXIT(populateStmFilesFP(&unit, "unit", in, out, 3, options),
                testing::ExitedWithCode(255), c.line);
    EXPECT_FALSE(fs::exists("unit"));
  }
}

TEST_F(Population, EndsWithOneLineWhereTheFolderCannotBeWritten) {
  randomTests(10);
  std::ofstream("unit") << "in the way";
  expectExit(unit, "^./unit/unit_xIn.stm: .*: Could not open stimuli or output files\n$");
  fs::remove("unit");
  fs::create_directories("unit/unit_xOut.stm");
  expectExit(unit, "^./unit/unit_xOut.stm: .*: Could not open stimuli or output files\n$");
  EXPECT_FALSE(fs::exists("unit/unit_xIn.stm"));
}

TEST_F(Population, LeavesNoHalfOfAFileOnAFullDisk) {
  randomTests(20000);
  const auto onFullDisk = [&] {
    rlimit limit{1 << 20, 1 << 20};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, SIG_IGN);
    populateStmFilesFP(&unit, "unit", in, out, 3, t);
  };
  EXPECT_EXIT(onFullDisk(), testing::ExitedWithCode(255),
              "./unit: .*the vectors cannot be written");
  EXPECT_TRUE(fs::is_empty("unit"));
}

TEST_F(Population, RefusesTheModelAtTheFirstTest) {
  randomTests(10);
  t.useExecuteModel = true;
  expectExit(unit, "Code should be unreachable");
}

TEST_F(Population, NeedsNoMoreMemoryForMoreRows) {
  const PortSpecList floating = in;
  in.push_back("c", kiln::FixedPoint(100, 3, true));
  t.errorBounds = {3};
  const auto expectNoGrowth = [&](auto prepare) {
    prepare(2000);
    populate();
    const auto allocated = [&](int size) {
      prepare(size);
      const AllocationCount count;
      populate();
      return count.soFar();
    };
    const long few = allocated(1000), many = allocated(20000);
    EXPECT_GT(few, 0);
    EXPECT_LE(many, few + 10);
  };
  expectNoGrowth([&](int rows) { randomTests(rows); });
  rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  randomTests(60000);
  populate();
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 2048);

  in = floating;
  t.randomTests = false;
  t.exhaustiveTests = true;
  t.valRangeMin = util::MPZ::powerOfTwo(40);
  expectNoGrowth([&](int rows) { t.valRangeMax = t.valRangeMin + util::MPZ(rows); });
  t.exhaustiveTests = false;
  t.cancellationTests = t.nearZeroTests = true;
  t.componentType = FPADD;
  expectNoGrowth([&](int rows) { t.testCount = rows / 100; });
  t.componentType = 57;
  expectNoGrowth([&](int rows) { t.piTestMultiples = rows; });
}

}  // namespace
