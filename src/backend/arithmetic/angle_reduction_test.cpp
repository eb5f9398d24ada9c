#include "backend/arithmetic/angle_reduction.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <mpfr.h>

#include <algorithm>

namespace arithmetic {
namespace {

// The distance of M 2^(exponent - wF) / pi to the nearest integer, in units of 2^-places.
util::MPZ distanceOf(unsigned long m, int exponent, const FloatFormat& format, int places) {
  mpfr_t pi, turns, whole;
  mpfr_inits2(places + exponent + 64, pi, turns, whole, static_cast<mpfr_ptr>(nullptr));
  mpfr_const_pi(pi, MPFR_RNDN);
  mpfr_ui_div(turns, m, pi, MPFR_RNDN);
  mpfr_mul_2si(turns, turns, exponent - format.fractionBits, MPFR_RNDN);
  mpfr_rint(whole, turns, MPFR_RNDN);
  mpfr_sub(turns, turns, whole, MPFR_RNDN);
  mpfr_abs(turns, turns, MPFR_RNDN);
  mpfr_mul_2si(turns, turns, places, MPFR_RNDN);
  util::MPZ result;
  mpfr_get_z(result.get(), turns, MPFR_RNDD);
  mpfr_clears(pi, turns, whole, static_cast<mpfr_ptr>(nullptr));
  return result;
}

// Every number of 1 or more is looked at; those below 1 come near 0 alone.
TEST(AngleReduction, NearestMultipleOfPiAgreesWithAllNumbers) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 4}, {4, 3}, {5, 4}, {5, 10}, {8, 7}, {6, 9}}) {
    SCOPED_TRACE(fmt::format("{} {}", wE, wF));
    const FloatFormat format{wE, wF};
    const NearestMultiple& nearest = nearestMultipleOfPi(format);
    util::MPZ least = util::MPZ::powerOfTwo(static_cast<unsigned long>(nearest.places));
    for (int exponent = 0; exponent <= format.maxExponent() - format.bias(); ++exponent)
      for (unsigned long m = 1ul << wF; m < 2ul << wF; ++m)
        least = std::min(least, distanceOf(m, exponent, format, nearest.places));
    EXPECT_LE(nearest.distance, least);
    EXPECT_LE(util::MPZ::powerOfTwo(static_cast<unsigned long>(nearest.places - nearest.bits - 1)),
              nearest.distance);
    // It is attained, but where a number below 1 is nearer to 0.
    const util::MPZ belowOne = distanceOf(1, 0, format, nearest.places);
    const util::MPZ slack = util::MPZ::powerOfTwo(static_cast<unsigned long>(wF + 2));
    EXPECT_GE(nearest.distance + slack, std::min(least, belowOne));
  }
}

// The window of a number's exponent covers all that its product with the significand may need.
TEST(AngleReduction, WindowsGrowWithTheZeros) {
  const RadianPlan plan = planRadians({11, 52}, 55, {});
  EXPECT_EQ(plan.mostZeros, nearestMultipleOfPi({11, 52}).bits);
  EXPECT_EQ(plan.fractionBits, plan.mostZeros + 56);
  EXPECT_GE(plan.windowBits, plan.fractionBits + 53);
}

}  // namespace
}  // namespace arithmetic
