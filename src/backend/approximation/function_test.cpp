#include "backend/approximation/function.h"

#include <gtest/gtest.h>

#include "backend/approximation/sample_functions.h"

namespace approximation {
namespace {

using util::MPZ;

constexpr mpfr_prec_t kPrecision = 160;

// Whether both intervals have a point in common and are as narrow as the precision says.
void expectSame(const Interval& a, const Interval& b, const std::string& what) {
  SCOPED_TRACE(what);
  ASSERT_TRUE(a.isBounded() && b.isBounded());
  const Interval difference = a - b;
  EXPECT_TRUE(difference.containsZero());
  EXPECT_LT(mpfr_get_d((difference - difference).high(), MPFR_RNDU), 0x1p-120);
}

Function parsed(const std::string& text) {
  auto function = Function::parse(text);
  EXPECT_TRUE(function) << text;
  return *function;
}

// Between integers floor is the lower one, up to the end of an interval; across one it has none.
TEST(Function, FloorMakesUnitsOfTheirOwn) {
  const Function f = parsed("floor(x) + 10 * (x - floor(x))^2");
  const auto over = [](long low, long high) {
    return hull(Interval(MPZ(low), -1, kPrecision), Interval(MPZ(high), -1, kPrecision));
  };
  const auto whole = f.taylor(over(4, 6), 2);
  ASSERT_TRUE(whole);
  EXPECT_EQ((*whole)[0].highFixed(0), MPZ(12));
  EXPECT_EQ((*whole)[2].lowFixed(0), MPZ(10));
  EXPECT_EQ(f.value(over(6, 6))->highFixed(0), MPZ(3));
  EXPECT_EQ(f.value(over(-1, 0))->lowFixed(0), MPZ(1));
  EXPECT_FALSE(f.value(over(5, 7)));
}

TEST(Function, ValuesEncloseWhatMpfrHas) {
  for (const SampleFunction& sample : kSampleFunctions) {
    const Function f = parsed(sample.text);
    for (long x = 0; x <= 64; ++x) {
      const auto value = f.value(Interval(MPZ(x), -6, kPrecision));
      ASSERT_TRUE(value) << sample.text << " at " << x;
      const MPZ expected = sampleValue(sample, MPZ(x), -6, 100);
      EXPECT_LE(value->lowFixed(100), expected + MPZ(1));
      EXPECT_GE(value->highFixed(100), expected - MPZ(1));
      EXPECT_LE(value->highFixed(100) - value->lowFixed(100), MPZ(2)) << sample.text << " at " << x;
    }
  }
}

// Different ways to write a function have the same series, about points and over intervals.
TEST(Function, SeriesOfEqualExpressionsAgree) {
  constexpr const char* kEqual[][2] = {
      {"(1 + x)^3", "1 + 3 * x + 3 * x * x + x^3"},
      {"sqrt(1 + x)", "exp(log(1 + x) / 2)"},
      {"tan(x)", "sin(x) / cos(x)"},
      {"tanh(x)", "sinh(x) / cosh(x)"},
      {"asin(x)", "atan(x / sqrt(1 - x^2))"},
      {"acos(x) + asin(x)", "pi / 2"},
      {"2^(-x)", "1 / exp(x * log(2))"},
      {"log10(1 + x)", "log1p(x) * log2(2) / log(10)"},
      {"expm1(x) / x", "(exp(x) - 1) / x"},
      {"-0.25 * x^2", "-x * x / 4"},
      {"cos(2 * x)", "1 - 2 * sin(x)^2"},
  };
  constexpr int kOrder = 12;
  for (const auto& [left, right] : kEqual) {
    const auto a = parsed(left).taylor(Interval(MPZ(5), -4, kPrecision), kOrder);
    const auto b = parsed(right).taylor(Interval(MPZ(5), -4, kPrecision), kOrder);
    ASSERT_TRUE(a && b) << left;
    for (std::size_t n = 0; n <= kOrder; ++n)
      expectSame((*a)[n], (*b)[n], std::string(left) + " order " + std::to_string(n));
  }
}

TEST(Function, QuotientsByTheVariableGoOnThroughZero) {
  // The coefficients of (e^x - 1) / x about 0 are 1 / (n + 1)!.
  const auto series = parsed("(exp(x) - 1) / x").taylor(Interval(0, kPrecision), 8);
  ASSERT_TRUE(series);
  Interval expected(1, kPrecision);
  for (unsigned long n = 0; n <= 8; ++n) {
    expected = dividedBy(expected, n + 1);
    expectSame((*series)[n], expected, std::to_string(n));
  }
  const Interval around = hull(Interval(-1, kPrecision), Interval(1, kPrecision));
  const auto wide = parsed("((exp(x) - 1) / x - 1) / x").value(around);
  ASSERT_TRUE(wide);
  EXPECT_LE(mpfr_get_d(wide->low(), MPFR_RNDD), 0.37);   // 1 / e
  EXPECT_GE(mpfr_get_d(wide->high(), MPFR_RNDU), 0.71);  // e - 2
  EXPECT_FALSE(parsed("cos(x) / x").value(around));
  EXPECT_FALSE(parsed("1 / (x - 0.5)").value(around));
  EXPECT_FALSE(parsed("log(x)").value(around));
  EXPECT_FALSE(parsed("sqrt(x)").taylor(Interval(0, kPrecision), 1));
}

// Enclosures over an interval hold the values at points inside it.
TEST(Function, SeriesOverIntervalsHoldThoseOfPoints) {
  for (const SampleFunction& sample : kSampleFunctions) {
    const Function f = parsed(sample.text);
    const Interval whole = hull(Interval(MPZ(3), -5, kPrecision), Interval(MPZ(9), -5, kPrecision));
    const auto over = f.taylor(whole, 6);
    ASSERT_TRUE(over) << sample.text;
    for (long x = 6; x <= 18; ++x) {
      const auto at = f.taylor(Interval(MPZ(x), -6, kPrecision), 6);
      ASSERT_TRUE(at);
      for (std::size_t n = 0; n <= 6; ++n) {
        EXPECT_LE(mpfr_cmp((*over)[n].low(), (*at)[n].low()), 0) << sample.text << n;
        EXPECT_GE(mpfr_cmp((*over)[n].high(), (*at)[n].high()), 0) << sample.text << n;
      }
    }
  }
}

TEST(Function, ChoicesHaveOneSideOfTheirBorder) {
  const Function f = parsed("x < 0.5 ? x : 3 - x");
  const Interval left(MPZ(1), -2, kPrecision), border(MPZ(1), -1, kPrecision), right(1, kPrecision);
  const auto expectSlope = [&](const Interval& x, long slope) {
    const auto series = f.taylor(x, 1);
    ASSERT_TRUE(series);
    expectSame((*series)[1], Interval(slope, kPrecision), std::to_string(slope));
  };
  expectSlope(left, 1);
  expectSlope(hull(left, border), 1);
  expectSlope(border, -1);
  expectSlope(hull(border, right), -1);
  EXPECT_FALSE(f.value(hull(left, right)));
}

TEST(Function, MistakesAreNamedWithTheirPlace) {
  constexpr const char* kWrong[][2] = {
      {"2 +", "position 4"},     {"sin x", "position 5"},       {"(1 + x", "position 7"},
      {"gamma(x)", "\"gamma\""}, {"1 2", "position 3"},         {"", "position 1"},
      {".", "a digit"},          {"1 < 2 ? x : x", "x before"}, {"x < 1 ? x", "\":\""}};
  for (const auto& [text, part] : kWrong) {
    const auto function = Function::parse(text);
    ASSERT_FALSE(function) << text;
    EXPECT_NE(function.failure().message.find(part), std::string::npos)
        << function.failure().message;
  }
}

}  // namespace
}  // namespace approximation
