#include "stimuli/exhaustive.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "stimuli/stimuli_test.h"

namespace {

struct Exhaustive : StimuliTest {
  int count() { return getExhaustiveTestCount(in, t); }
  void make(int index) { generateExhaustiveStimuli(values, in, t, index); }
  unsigned long pattern(std::size_t port) const { return values[port].pattern.toUint64(); }
};

// What the fields of a number say, by the definition of the formats.
double decoded(int negative, int exponent, int fraction, const kiln::FloatingPoint& fp,
               bool subnormals) {
  const double sign = negative ? -1.0 : 1.0;
  const int bias = (1 << (fp.exp - 1)) - 1;
  if (exponent == (1 << fp.exp) - 1) return fraction ? NAN : sign * INFINITY;
  if (exponent > 0) return sign * std::ldexp((1 << fp.frac) + fraction, exponent - bias - fp.frac);
  return subnormals ? sign * std::ldexp(fraction, 1 - bias - fp.frac) : sign * 0.0;
}

TEST_F(Exhaustive, MeetsEveryPairOfNumbersOnceTheFirstPortFastest) {
  for (const kiln::FloatingPoint& fp : {kiln::ieee(2, 1), kiln::ieee(3, 2), kiln::ieee(4, 3)}) {
    for (const bool subnormals : {false, true}) {
      t.subnormals = subnormals;
      ports({fp, fp});
      std::vector<double> numbers;  // by pattern
      for (int sign = 0; sign < 2; ++sign)
        for (int e = 0; e < 1 << fp.exp; ++e)
          for (int f = 0; f < 1 << fp.frac; ++f)
            numbers.push_back(decoded(sign, e, f, fp, subnormals));
      ASSERT_EQ(count(), static_cast<int>(numbers.size() * numbers.size()));
      int index = 0;
      for (std::size_t b = 0; b < numbers.size(); ++b) {
        for (std::size_t a = 0; a < numbers.size(); ++a, ++index) {
          make(index);
          ASSERT_EQ(pattern(0), a);
          ASSERT_EQ(pattern(1), b);
          expectNumber(0, numbers[a]);
          expectNumber(1, numbers[b]);
          ASSERT_TRUE(values[0].raw && values[1].raw);
        }
      }
    }
  }
}

TEST_F(Exhaustive, ReadsExceptionBitsOfFPLibPatternsAndHasNoSubnormalsThere) {
  const kiln::FloatingPoint fp = kiln::fpLib(3, 2);
  for (const bool subnormals : {false, true}) {
    t.subnormals = subnormals;
    ports({fp});
    EXPECT_EQ(count(), 64);
    for (int p = 0; p < 256; ++p) {
      make(p);
      EXPECT_EQ(pattern(0), static_cast<unsigned long>(p));
      const double sign = p >> 5 & 1 ? -1 : 1;
      const double regular = std::ldexp(4 + p % 4, (p >> 2) % 8 - 3 - 2);
      const double byException[] = {0.0, regular, INFINITY, NAN};
      expectNumber(0, sign * byException[p >> 6]);
    }
  }
  ports({fp, fp});
  EXPECT_EQ(count(), 64 * 64);  // few of 256 * 256
  make(4095);
  EXPECT_EQ(pattern(0), 255u);
  EXPECT_EQ(pattern(1), 15u);
}

TEST_F(Exhaustive, TakesAValueRangeAsPatternsOfAllPortsTogether) {
  t.valRangeMin = 700;
  t.valRangeMax = 2400;
  const kiln::FloatingPoint fp = kiln::ieee(3, 2);
  ports({fp, fp});
  ASSERT_EQ(count(), 1701);
  for (int i = 0; i < 1701; ++i) {
    make(i);
    const int first = (700 + i) % 64;
    EXPECT_EQ(pattern(0), static_cast<unsigned long>(first));
    expectNumber(0, decoded(first >> 5, first >> 2 & 7, first & 3, fp, false));
    EXPECT_EQ(pattern(1), 700u >> 6);
  }
  ports({kiln::FixedPoint(4, 0, false), fp});
  EXPECT_EQ(count(), 1701);
  ports({fp, kiln::FixedPoint(12, 0, false)});
  EXPECT_EQ(count(), 1701 * 1701);
  make(1701 * 2 + 3);
  EXPECT_EQ(number(1), 702);
}

TEST_F(Exhaustive, CountsAFixedPortsRangeOrAllItsPatterns) {
  ports({kiln::FixedPoint(3, 1, false), kiln::FixedPoint(2, 0, true)});
  ASSERT_EQ(count(), 32);
  const double asSigned[] = {0, 1, -2, -1};
  for (int i = 0; i < 32; ++i) {
    make(i);
    EXPECT_EQ(number(0), i % 8 / 2.0);
    EXPECT_EQ(number(1), asSigned[i / 8]);
    EXPECT_FALSE(values[0].raw);
    EXPECT_EQ(mpfr_get_prec(values[0].real.get()), 4);
  }
  t.valRangeMin = 3;
  t.valRangeMax = 5;
  ASSERT_EQ(count(), 9);
  const double wrapped[] = {-1, 0, 1};  // patterns 3, 4 and 5 on two bits
  for (int i = 0; i < 9; ++i) {
    make(i);
    EXPECT_EQ(number(0), (3 + i % 3) / 2.0);
    EXPECT_EQ(number(1), wrapped[i / 3]);
  }
  t.valRangeMin = -2;
  t.valRangeMax = 9;
  for (int i = 0; i < 12; ++i) {
    make(i);
    EXPECT_EQ(number(0), std::clamp(i - 2, 0, 7) / 2.0);
  }
}

TEST_F(Exhaustive, ForcesSignsOnNumbersAndLeavesPatternsWithoutThem) {
  ports({kiln::ieee(2, 1)});
  t.negativeStimuli = true;
  ASSERT_EQ(count(), 8);
  for (int i = 0; i < 8; ++i) {
    make(i);
    EXPECT_EQ(pattern(0), static_cast<unsigned long>(i));
    expectNumber(0, decoded(1, i >> 1, i & 1, kiln::ieee(2, 1), false));
  }
  t.positiveStimuli = true;  // both: no restriction
  EXPECT_EQ(count(), 16);
  t.negativeStimuli = false;
  ports({kiln::ieee(2, 1), kiln::ieee(2, 1)});
  ASSERT_EQ(count(), 64);
  make(63);
  EXPECT_EQ(pattern(0), 15u);
  EXPECT_EQ(pattern(1), 3u);
  expectNumber(1, decoded(0, 1, 1, kiln::ieee(2, 1), false));
}

TEST_F(Exhaustive, CutsBiasedExponentsFromZeroOnOutOfAnExponentRange) {
  t.expRangeMin = -1;
  t.expRangeMax = 1;
  t.subnormals = true;
  const kiln::FloatingPoint fp = kiln::ieee(3, 2);
  ports({fp});
  ASSERT_EQ(count(), 2 * 3 * 4);
  for (int i = 0; i < 24; ++i) {
    make(i);
    EXPECT_EQ(pattern(0), static_cast<unsigned long>(i));
    const int e = i / 4 % 3, f = i % 4;
    double expected = std::ldexp(4 + f, std::max(e, 1) - 3 - 2);  // the hidden bit in every number
    if (e == 0 && f == 0) expected = 0;
    expectNumber(0, i < 12 ? expected : -expected);
  }
}

TEST_F(Exhaustive, KeepsWideFormatsExact) {
  ports({kiln::ieee(11, 52), kiln::FixedPoint(100, 0, false)});
  t.valRangeMin = util::MPZ::powerOfTwo(62) + util::MPZ(5);  // the pattern of 2.0 and five ulps
  t.valRangeMax = t.valRangeMin + util::MPZ(1);
  ASSERT_EQ(count(), 4);
  make(3);
  EXPECT_EQ(values[0].pattern, util::MPZ::powerOfTwo(62) + util::MPZ(6));
  EXPECT_EQ(number(0), 2.0 + 6 * 0x1p-51);
  EXPECT_EQ(mpfr_cmp_z(values[1].real.get(), t.valRangeMax.get()), 0);
}

TEST_F(Exhaustive, CutsPatternsOfMoreThanAWord) {
  ports({kiln::ieee(15, 112), kiln::ieee(15, 112)});
  const util::MPZ two = util::MPZ::powerOfTwo(126), negative = util::MPZ::powerOfTwo(127);
  t.valRangeMin = negative + two + util::MPZ(5);
  t.valRangeMax = t.valRangeMin + util::MPZ(1);
  ASSERT_EQ(count(), 2);
  make(1);
  EXPECT_EQ(values[0].pattern, negative + two + util::MPZ(6));
  Real expected(113);  // -2 less six ulps
  mpfr_set_si_2exp(expected.get(), -6, -111, MPFR_RNDN);
  mpfr_sub_ui(expected.get(), expected.get(), 2, MPFR_RNDN);
  EXPECT_TRUE(mpfr_equal_p(values[0].real.get(), expected.get()));
  EXPECT_TRUE(values[1].pattern.isZero());
  t.valRangeMin = t.valRangeMax = 3;  // a subnormal pattern
  make(0);
  EXPECT_TRUE(mpfr_zero_p(values[0].real.get()));
  t.subnormals = true;
  make(0);
  EXPECT_EQ(mpfr_cmp_ui_2exp(values[0].real.get(), 3, -16382 - 112), 0);
}

TEST_F(Exhaustive, RefusesMoreVectorsThanAnIndexCounts) {
  ports({kiln::FixedPoint(16, 0, false), kiln::FixedPoint(15, 0, true)});
  EXPECT_EXIT(count(), testing::ExitedWithCode(255),
              "^-exhaustiveTests: 2\\^31 vectors or more, where 2147483647 are the most");
  t.valRangeMax = 32766;
  t.valRangeMin = 0;
  EXPECT_EQ(count(), 32767 * 32767);
  ports({kiln::ieee(15, 112), kiln::ieee(15, 112)});
  t.valRangeMax = util::MPZ::powerOfTwo(31);
  EXPECT_EXIT(count(), testing::ExitedWithCode(255), "2\\^31 vectors");
  EXPECT_EQ(getExhaustiveTestCount({}, t), 0);
}

TEST_F(Exhaustive, TellsItsSteps) {
  ports({kiln::ieee(2, 1)});
  t.verbosity = 20;
  testing::internal::CaptureStdout();
  make(11);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "======== Test index 11======== \n\tinput 0\n\t\tFP(2,1)\n\t\tvMin=1 vMax=0\n"
            "\t\t valRange=16\n\t\tfpValPre=11\n\t\tfpVal=11\n\t\tfracRange=2\n\t\texpRange=4\n"
            "\t\tsignRange=2\n\t\texcRange=1\n\t\t(integer) s=1, e=1, f=1\n"
            "\t\tx=-1.500000e+00\n");
}

}  // namespace
