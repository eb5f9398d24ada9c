#include "numbers/draws.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "numbers/filters.h"
#include "numbers/packing.h"
#include "util/random.h"

namespace {

struct State {
  explicit State(unsigned long seed = 7) {
    gmp_randinit_mt(state);
    gmp_randseed_ui(state, seed);
    util::restartRandom();
  }
  ~State() { gmp_randclear(state); }
  gmp_randstate_t state;
};

NumValue valueOf(double x, int precision = 53) {
  NumValue v;
  mpfr_set_d(v.real.prepare(precision), x, MPFR_RNDN);
  return v;
}

TEST(RangeFilter, RoundsThenFlushesOrOverflows) {
  struct Case {
    double x, plain, gradual, fpLib;
  };
  const double ulp = std::ldexp(1, -3);  // of 1 with wE 4, wF 3; H = 8
  const double top = std::ldexp(2 - ulp, 7), least = std::ldexp(1, -6);
  const double inf = INFINITY;
  for (const Case& c : {
           Case{1 + ulp / 2, 1, 1, 1},  // a tie, to even
           {-(1 + 3 * ulp / 2), -(1 + 2 * ulp), -(1 + 2 * ulp), -(1 + 2 * ulp)},
           {top, top, top, top},
           {top + std::ldexp(ulp, 6), inf, inf, 256},  // half an ulp above: the carry decides
           {-600, -inf, -inf, -inf},
           {488, inf, inf, 480},
           {least, least, least, least},
           {-least / 2, -0.0, -least / 2, -least / 2},
           {least / 8, 0, least / 8, 0},
           {-least / 16, -0.0, -0.0, -0.0},
       }) {
    const auto filtered = [&](const kiln::FloatingPoint& fp, bool subnormals) {
      return mpfr_get_d(fpRangeFilter(valueOf(c.x), fp, subnormals).real.get(), MPFR_RNDN);
    };
    EXPECT_EQ(filtered(kiln::ieee(4, 3), false), c.plain) << c.x;
    EXPECT_EQ(filtered(kiln::ieee(4, 3), true), c.gradual) << c.x;
    EXPECT_EQ(filtered(kiln::fpLib(4, 3), false), c.fpLib) << c.x;
    EXPECT_EQ(std::signbit(filtered(kiln::ieee(4, 3), false)), std::signbit(c.x)) << c.x;
  }
}

TEST(RangeFilter, HoldsFixedPointWithinItsLimits) {
  struct Case {
    double x, isSigned, isUnsigned;
  };
  constexpr Case kCases[] = {{3.74, 3.74, 3.74}, {4, 3.75, 4},      {8, 3.75, 7.75},
                             {-4, -4, 0},        {-4.01, -4, 0},    {INFINITY, 3.75, 7.75},
                             {-INFINITY, -4, 0}, {NAN, 3.75, 7.75}, {7.8, 3.75, 7.75}};
  for (const Case& c : kCases) {
    for (const int precision : {53, 200}) {
      const auto filtered = [&](bool sign) {
        return mpfr_get_d(
            fxpRangeFilter(valueOf(c.x), kiln::FixedPoint(5, 2, sign), precision).real.get(),
            MPFR_RNDN);
      };
      EXPECT_EQ(filtered(true), c.isSigned) << c.x;
      EXPECT_EQ(filtered(false), c.isUnsigned) << c.x;
    }
  }
  // limits wider than the value's and the working precision
  const NumValue top = fxpRangeFilter(valueOf(INFINITY, 2), kiln::FixedPoint(300, 0, true), 100);
  EXPECT_EQ(packFixedPointToMPZ(top.real.get(), {300, 0, true}, 100), util::MPZ::allOnes(299));
}

TEST(RangeFilter, PassesRawPatternsUntouched) {
  NumValue v;
  v.pattern = util::MPZ(77);
  v.raw = true;
  const NumValue filtered = fpRangeFilter(v, kiln::ieee(4, 3), false);
  EXPECT_TRUE(filtered.raw && !filtered.real);
  EXPECT_EQ(filtered.pattern, util::MPZ(77));
}

TEST(Draws, CoverEveryPatternOfASmallFormat) {
  for (const bool subnormals : {false, true}) {
    for (const auto& fp : {kiln::ieee(3, 2), kiln::fpLib(3, 2)}) {
      if (fp.is_fp_lib && subnormals) continue;
      State state;
      TestingOptions t;
      t.subnormals = subnormals;
      std::map<unsigned long, int> seen;
      for (int i = 0; i < 20000; ++i) {
        Real x = genRandFP(state.state, fp, t);
        ++seen[packFloatingPointToMPZ(x.get(), fp, t).toUint64()];
        if (!mpfr_regular_p(x.get())) continue;
        // on the port's grid, so that packing loses nothing
        EXPECT_LE(mpfr_min_prec(x.get()), 3);
        mpfr_mul_2si(x.get(), x.get(), fp.is_fp_lib ? 5 : 4, MPFR_RNDN);
        EXPECT_TRUE(mpfr_integer_p(x.get()));
      }
      // both signs of every finite number, of zero and infinity, and one NaN
      const std::size_t regular = fp.is_fp_lib ? 64 : subnormals ? 2 * (24 + 3) : 2 * 24;
      EXPECT_EQ(seen.size(), regular + 5);
    }
  }
}

TEST(Draws, KeepToTheOptions) {
  State state;
  TestingOptions t;
  t.genInfs = t.genNaNs = false;
  t.negativeStimuli = true;
  t.expRangeMin = t.expRangeMax = -3;
  int zeros = 0;
  for (int i = 0; i < 5000; ++i) {
    const Real x = genRandFP(state.state, kiln::ieee(8, 23), t);
    ASSERT_FALSE(mpfr_nan_p(x.get()) || mpfr_inf_p(x.get()));
    ASSERT_TRUE(mpfr_signbit(x.get()));
    if (mpfr_zero_p(x.get())) {
      ++zeros;
    } else {
      ASSERT_EQ(mpfr_get_exp(x.get()), -2);
    }
  }
  EXPECT_GT(zeros, 25);
  EXPECT_LT(zeros, 90);
}

TEST(Draws, OfFixedPointStayInTheValueRange) {
  struct Case {
    int width;
    bool sign;
    long first, last;        // the range's patterns; none when last < first
    double least, greatest;  // values met
  };
  // An unsigned port holds what is outside at its limits.
  constexpr Case kCases[] = {
      {1, true, 1, 0, -1, 0},  {1, false, 1, 0, 0, 1},  {4, true, 1, 0, -8, 7},
      {4, false, 1, 0, 0, 15}, {4, false, 3, 9, 3, 9},  {4, true, 6, 9, -8, 7},
      {4, true, -3, 2, -3, 2}, {4, false, -2, 3, 0, 3}, {4, false, 12, 20, 12, 15}};
  for (const Case& c : kCases) {
    State state;
    TestingOptions t;
    t.valRangeMin = util::MPZ(c.first);
    t.valRangeMax = util::MPZ(c.last);
    double least = 99, greatest = -99;
    for (int i = 0; i < 2000; ++i) {
      const Real x = genRandFXP(state.state, kiln::FixedPoint(c.width, 2, c.sign), t);
      const double value = 4 * mpfr_get_d(x.get(), MPFR_RNDN);
      least = std::min(least, value);
      greatest = std::max(greatest, value);
    }
    EXPECT_EQ(least, c.least) << c.width << c.first;
    EXPECT_EQ(greatest, c.greatest) << c.width << c.first;
  }
}

TEST(Draws, OfWideRangesAreNotCutToAWord) {
  State state;
  TestingOptions t;
  t.valRangeMin = util::MPZ::powerOfTwo(200);
  t.valRangeMax = util::MPZ::powerOfTwo(201);
  for (int i = 0; i < 100; ++i) {
    const Real x = genRandFXP(state.state, kiln::FixedPoint(1024, 0, false), t);
    EXPECT_GE(mpfr_cmp_z(x.get(), t.valRangeMin.get()), 0);
    EXPECT_LE(mpfr_cmp_z(x.get(), t.valRangeMax.get()), 0);
  }
}

}  // namespace
