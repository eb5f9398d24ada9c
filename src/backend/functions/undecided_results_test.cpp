#include "backend/functions/undecided_results.h"

#include <gtest/gtest.h>

#include <cmath>

namespace functions {
namespace {

// e^x is 1 + x + x^2 / 2 + ..., so that x = 2^-k + 2^-53 has a result 2^(51 - 2k) ulp above the
// middle of two numbers, and as far above a number without the last place.
TEST(UndecidedResults, AreBothNeighboursVeryNearAMiddleOnly) {
  struct Case {
    double x;
    mpfr_rnd_t rounding;
    double low, high;
  };
  constexpr double kUlp = 0x1p-52, a = 0x1p-36, b = 0x1p-35;
  const Case kCases[] = {
      {a + kUlp / 2, MPFR_RNDN, 1 + a, 1 + a + kUlp},
      {b + kUlp / 2, MPFR_RNDN, 1 + b + kUlp, 1 + b + kUlp},
      {a, MPFR_RNDN, 1 + a, 1 + a},
      {a, MPFR_RNDD, 1 + a - kUlp, 1 + a},
      {a, MPFR_RNDU, 1 + a, 1 + a + kUlp},
      {b, MPFR_RNDD, 1 + b, 1 + b},
      {0, MPFR_RNDD, 1, 1},
      {-INFINITY, MPFR_RNDU, 0, 0},
  };
  const Signature signature{{kiln::ieee(11, 52)}, {kiln::ieee(11, 52)}, {}};
  std::vector<NumValue> low, high, x(1);
  for (const Case& row : kCases) {
    mpfr_set_d(x[0].real.prepare(53), row.x, MPFR_RNDN);
    evaluateUndecided(*findUnit("DMFloatExpE"), signature, low, high, x, {53}, {row.rounding},
                      false);
    EXPECT_EQ(mpfr_get_d(low[0].real.get(), MPFR_RNDN), row.low) << row.x;
    EXPECT_EQ(mpfr_get_d(high[0].real.get(), MPFR_RNDN), row.high) << row.x;
  }
}

// sin(pi / 6) is 1 / 2, the middle of two integers.
TEST(UndecidedResults, OfFixedPointAreOnTheGridOfThePort) {
  struct Case {
    double angle;
    int fraction;
    double low, high;
  };
  const Case kCases[] = {{std::floor(0x1p38 / 6) / 0x1p38, 0, 0, 1},
                         {std::floor(0x1p16 / 6) / 0x1p16, 0, 0, 0},
                         {std::floor(0x1p38 / 6) / 0x1p38, 4, 0.5, 0.5},
                         {-0.5, 4, -1, -1}};
  std::vector<NumValue> low, high, angle(1);
  for (const Case& row : kCases) {
    const Signature signature{{kiln::FixedPoint(40, 38, true)},
                              {kiln::FixedPoint(row.fraction + 2, row.fraction, true)},
                              {}};
    mpfr_set_d(angle[0].real.prepare(53), row.angle, MPFR_RNDN);
    evaluateUndecided(*findUnit("DMFxPSinCosPiX"), signature, low, high, angle, {200}, {MPFR_RNDN},
                      false);
    EXPECT_EQ(mpfr_get_d(low[0].real.get(), MPFR_RNDN), row.low) << row.angle;
    EXPECT_EQ(mpfr_get_d(high[0].real.get(), MPFR_RNDN), row.high) << row.angle;
  }
}

}  // namespace
}  // namespace functions
