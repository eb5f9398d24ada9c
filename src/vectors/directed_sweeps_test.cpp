#include "vectors/directed_sweeps.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <bit>
#include <cfenv>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "numbers/draws.h"
#include "numbers/exponent_range.h"
#include "numbers/packing.h"
#include "util/random.h"

namespace {

// The sum or the product of two single-precision ports, with MPFR's special cases.
struct Operation final : CFuncUnitFunctionInterface {
  void evaluate(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                const std::vector<unsigned>& precisions, const std::vector<mpfr_rnd_t>& roundings,
                bool subnormals) override {
    results.resize(1);
    mpfr_ptr q = results[0].real.prepare(precisions[0]);
    results[0].type = NumType::kValue;
    if (!product) {
      mpfr_add(q, inputs[0].real.get(), inputs[1].real.get(), roundings[0]);
      return;
    }
    Real exact(2 * precisions[0]);
    mpfr_mul(exact.get(), inputs[0].real.get(), inputs[1].real.get(), MPFR_RNDN);
    if (subnormals && mpfr_cmpabs(exact.get(), smallestNormal.get()) < 0) {
      mpfr_mul_2ui(exact.get(), exact.get(), 149, MPFR_RNDN);
      mpfr_rint(exact.get(), exact.get(), roundings[0]);
      mpfr_div_2ui(exact.get(), exact.get(), 149, MPFR_RNDN);
    }
    mpfr_set(q, exact.get(), roundings[0]);
  }
  const Real smallestNormal = smallestFP(8, 23, false, false);
  bool product = false;
};

struct Row {
  std::string channel;
  float x, y;
  std::vector<std::string> results;
};

std::string bitsOf(float x) {
  if (std::isnan(x)) return fmt::format("{:032b}", 0x7f800001u);
  return fmt::format("{:032b}", std::bit_cast<std::uint32_t>(x));
}

float onPort(float x, bool subnormals) {
  return !subnormals && std::fabs(x) < FLT_MIN ? std::copysign(0.0f, x) : x;
}

struct DirectedSweeps : testing::Test {
  DirectedSweeps() {
    in.push_back("a", kiln::ieee(8, 23));
    in.push_back("b", kiln::ieee(8, 23));
    out.push_back("q", kiln::ieee(8, 23));
    t.componentType = FPADD;
    t.testCount = 20;
  }

  std::vector<Row> run() {
    char* text[2];
    std::size_t size[2];
    FILE* files[2];
    for (int k = 0; k < 2; ++k) files[k] = open_memstream(&text[k], &size[k]);
    gmp_randstate_t state;
    gmp_randinit_mt(state);
    gmp_randseed_ui(state, static_cast<unsigned long>(t.testCount));
    util::restartRandom();
    count = runDirectedSweeps(operation, in, out, t, state, {files[0], files[1], [] {}});
    gmp_randclear(state);
    std::istringstream rows[2];
    for (int k = 0; k < 2; ++k) {
      std::fclose(files[k]);
      rows[k].str(text[k]);
      std::free(text[k]);
    }
    return parse(rows[0], rows[1]);
  }

  std::vector<Row> parse(std::istream& stimuli, std::istream& responses) {
    std::vector<Row> rows;
    const auto number = [](const std::string& bits) {
      return std::bit_cast<float>(static_cast<std::uint32_t>(std::stoul(bits, nullptr, 2)));
    };
    for (std::string line; std::getline(stimuli, line);) {
      std::istringstream columns(line);
      std::string valid, channel, x, y, other, result;
      columns >> valid >> channel >> x >> y;
      EXPECT_EQ(valid, "1");
      Row row{channel, number(x), number(y), {}};
      std::getline(responses, line);
      std::istringstream answers(line);
      answers >> valid >> other;
      EXPECT_EQ(valid + other, "1" + channel);
      while (answers >> result) row.results.push_back(result);
      rows.push_back(row);
    }
    EXPECT_FALSE(std::getline(responses, *std::make_unique<std::string>()));
    EXPECT_EQ(rows.size(), static_cast<std::size_t>(count));
    return rows;
  }

  // The row's results are those of the hardware, to nearest or down and up.
  void expectResults(const Row& row) {
    std::vector<std::string> expected;
    for (const int direction : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD}) {
      if ((direction != FE_TONEAREST) != t.faithfulRounding) continue;
      std::fesetround(direction);
      volatile float x = row.x, y = row.y;
      volatile float q = operation.product ? x * y : x + y;
      std::fesetround(FE_TONEAREST);
      const double exact = operation.product ? double{x} * y : double{x} + y;
      if (std::fabs(exact) >= 0x1p128) q = static_cast<float>(std::copysign(INFINITY, exact));
      expected.push_back(bitsOf(onPort(q, t.subnormals)));
    }
    EXPECT_EQ(row.results, expected) << row.x << " " << row.y;
  }
  static std::string channelOf(int number) { return fmt::format("{:08b}", number % 256); }

  const FullExponentRange guard;
  Operation operation;
  PortSpecList in, out;
  TestingOptions t;
  int count = 0;
};

TEST_F(DirectedSweeps, CancellationStepsAroundTheNegatedDraw) {
  t.cancellationTests = true;
  t.genNaNs = t.genInfs = false;
  for (const bool subnormals : {false, true}) {
    t.subnormals = t.faithfulRounding = subnormals;
    const std::vector<Row> rows = run();
    ASSERT_EQ(rows.size(), 2000u);
    gmp_randstate_t state;
    gmp_randinit_mt(state);
    gmp_randseed_ui(state, 20);
    util::restartRandom();
    std::size_t k = 0;
    for (int trial = 0; trial < 2; ++trial) {
      const Real drawn = genRandFP(state, kiln::ieee(8, 23), t);
      const float x = mpfr_get_flt(drawn.get(), MPFR_RNDN);
      for (const float direction : {INFINITY, -INFINITY}) {
        float y = -x;
        for (int i = 0; i < 500; ++i, ++k) {
          if (i > 0) y = std::nextafter(y, direction);
          EXPECT_EQ(rows[k].x, x);
          EXPECT_EQ(rows[k].y, y);
          EXPECT_EQ(rows[k].channel, channelOf(static_cast<int>(k)));
          expectResults(rows[k]);
        }
      }
    }
    gmp_randclear(state);
  }
}

TEST_F(DirectedSweeps, SumsWalkDownFromTheOverflowThreshold) {
  t.nearInfinityTests = true;
  t.testCount = 50;
  const std::vector<Row> rows = run();
  const double ulp = 0x1p104;
  util::restartRandom();
  std::size_t k = 0;
  for (int trial = 0; trial < 5; ++trial) {
    const int length = util::GetRandom(1000);
    for (int i = 0; i < length; ++i, ++k) {
      ASSERT_LT(k, rows.size());
      EXPECT_EQ(rows[k].x, FLT_MAX - length * ulp);
      EXPECT_EQ(rows[k].y, (length + 1 - i) * ulp);
      EXPECT_EQ(rows[k].channel, channelOf(static_cast<int>(k) + 1));
      expectResults(rows[k]);
    }
  }
  EXPECT_EQ(k, rows.size());
  EXPECT_GT(k, 500u);
}

TEST_F(DirectedSweeps, SumsLeaveZeroAndCrossTheSubnormalBorder) {
  t.nearZeroTests = true;
  for (const bool subnormals : {false, true}) {
    t.subnormals = subnormals;
    t.faithfulRounding = !subnormals;
    const std::vector<Row> rows = run();
    util::restartRandom();
    std::size_t k = 0;
    for (int trial = 0; trial < 2; ++trial) {
      const int length = util::GetRandom(1000);
      const float x = FLT_MIN + static_cast<float>(length) * FLT_TRUE_MIN;
      for (int i = 0; i < 2 * length; ++i, ++k) {
        ASSERT_LT(k, rows.size());
        EXPECT_EQ(rows[k].x, x);
        float y = -x - static_cast<float>(i) * FLT_TRUE_MIN;
        if (i == length) y = -2 * x + FLT_TRUE_MIN;
        if (i > length) y = std::nextafter(rows[k - 1].y, -INFINITY);
        EXPECT_EQ(rows[k].y, y);
        expectResults(rows[k]);
      }
    }
    EXPECT_EQ(k, rows.size());
  }
}

TEST_F(DirectedSweeps, ProductsCrossTheSubnormalBorder) {
  t.componentType = FPMUL;
  operation.product = true;
  t.nearZeroTests = t.cancellationTests = t.nearInfinityTests = true;
  t.testCount = 30;
  t.subnormals = true;
  const std::vector<Row> rows = run();
  util::restartRandom();
  std::size_t k = 0;
  for (int trial = 1; trial <= 3; ++trial) {
    const int length = util::GetRandom(1000);
    float x = FLT_MIN * static_cast<float>(trial);
    float y = static_cast<float>(1 + 4.7683715820312e-7) / static_cast<float>(trial);
    for (int half = 0; half < 2; ++half) {
      for (int i = 0; i < length; ++i, ++k) {
        ASSERT_LT(k, rows.size());
        EXPECT_EQ(rows[k].x, x);
        EXPECT_EQ(rows[k].y, y);
        EXPECT_EQ(rows[k].channel, channelOf(static_cast<int>(k) + 1));
        expectResults(rows[k]);
        y = std::nextafter(y, 0.0f);
      }
      x = static_cast<float>(x * 6170.396201344) * static_cast<float>(trial);
      y = FLT_MIN / x;
    }
  }
  EXPECT_EQ(k, rows.size());
}

TEST_F(DirectedSweeps, RunOnlyForSumsAndProductsWithFloatingOutputs) {
  t.cancellationTests = t.nearInfinityTests = t.nearZeroTests = true;
  t.testCount = 9;
  EXPECT_TRUE(run().empty());
  t.testCount = 10;
  EXPECT_GE(run().size(), 1000u);
  t.componentType = FPMUL;
  t.nearZeroTests = false;
  EXPECT_TRUE(run().empty());
  t.nearZeroTests = true;
  t.componentType = 24;
  EXPECT_TRUE(run().empty());
  t.componentType = FPADD;
  out.push_back("flag", kiln::FixedPoint(1, 0, false));
  EXPECT_TRUE(run().empty());
}

TEST_F(DirectedSweeps, BringOperandsIntoNarrowFormats) {
  in[0] = {"a", kiln::ieee(2, 1)};
  in[1] = {"b", kiln::ieee(2, 1)};
  out[0] = {"q", kiln::ieee(2, 1)};
  t.cancellationTests = t.nearInfinityTests = t.nearZeroTests = true;
  const std::vector<Row> rows = run();
  EXPECT_GT(rows.size(), 2000u);
  for (const Row& row : rows) EXPECT_EQ(row.results.at(0).size(), 4u);
}

}  // namespace
