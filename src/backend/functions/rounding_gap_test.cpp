#include "backend/functions/rounding_gap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

namespace functions {
namespace {

using kiln::fpLib;
using kiln::ieee;

template <auto f>
int unary(mpfr_ptr result, std::span<const Real> x, mpfr_rnd_t direction) {
  return f(result, x[0].get(), direction);
}

const std::map<std::string_view, RealFunction> kFunctions = {
    {"DMFloatExpE", unary<mpfr_exp>},     {"DMFloatExp2", unary<mpfr_exp2>},
    {"DMFloatLoge", unary<mpfr_log>},     {"DMFloatLog2", unary<mpfr_log2>},
    {"DMFloatLog10", unary<mpfr_log10>},  {"DMFloatSinX", unary<mpfr_sin>},
    {"DMFloatCosX", unary<mpfr_cos>},     {"DMFloatSinPiX", unary<mpfr_sinpi>},
    {"DMFloatCosPiX", unary<mpfr_cospi>},
};

// Distances of exp(x) and log2(x) for 4 fraction bits and regular x, by long doubles alone: the
// results are far enough from all places for these.
TEST(RoundingGap, SmallFormatIsRunThrough) {
  const int wE = 4, wF = 4;
  for (const bool isLog : {false, true}) {
    long double least[2] = {1, 1};  // to numbers, to midpoints
    for (int sign : {1, -1})
      for (int e = -6; e <= 7; ++e)
        for (int fraction = 0; fraction < 1 << wF; ++fraction) {
          const long double x = sign * std::ldexp(1 + std::ldexp((long double)fraction, -wF), e);
          if (isLog && x < 0) continue;
          const long double y = std::fabs(isLog ? std::log2(x) : std::exp(x));
          if (y == 0 || y >= 256 || y < std::ldexp(1.0L, -7)) continue;
          int exponent = 0;
          const long double halves = std::ldexp(std::frexp(y, &exponent), wF + 2);
          const long double place = std::nearbyint(halves), off = std::fabs(halves - place) / 2;
          if (off == 0) continue;
          long double& kept = least[std::fmod(place, 2.0L) != 0];
          kept = std::min(kept, off);
        }
    const auto gap = roundingGap(isLog ? "log" : "exp", isLog ? unary<mpfr_log2> : unary<mpfr_exp>,
                                 ieee(wE, wF), ieee(wE, wF), false);
    ASSERT_TRUE(gap);
    EXPECT_LE(std::ldexp(1.0L, -gap->nearest), least[1]);
    EXPECT_LE(std::ldexp(1.0L, -gap->directed), least[0]);
    EXPECT_GT(std::ldexp(1.0L, 2 - gap->nearest), least[1]);
    EXPECT_GT(std::ldexp(1.0L, 2 - gap->directed), least[0]);
  }
}

// exp(2^-132) is nearer to 1 than any budget; without such inputs the gap is moderate.
TEST(RoundingGap, InputsCanBeLeftOut) {
  const auto format = ieee(8, 7);
  const auto all = roundingGap("e", unary<mpfr_exp>, format, format, true);
  const auto most = roundingGap("e", unary<mpfr_exp>, format, format, true, -10);
  ASSERT_TRUE(all && most);
  EXPECT_GE(all->directed, 133 - 8);
  EXPECT_LT(most->directed, 30);
  EXPECT_LE(most->nearest, all->nearest);
}

// Subnormal results have a coarser grid: 2^-5 is half of the smallest subnormal of 3 exponent and 2
// fraction bits, exactly a midpoint; a number without subnormals.
TEST(RoundingGap, GridsOfSubnormals) {
  std::vector<Real> x(1);
  x[0].prepare(8);
  mpfr_set_d(x[0].get(), std::log2(0x1.04p-5), MPFR_RNDN);
  const auto gradual = nearnessOf(unary<mpfr_exp2>, x, gridOf(ieee(3, 2), true));
  ASSERT_TRUE(gradual);
  EXPECT_TRUE(gradual->isMidpoint);
  EXPECT_FALSE(nearnessOf(unary<mpfr_exp2>, x, gridOf(ieee(3, 2), false)));
  mpfr_set_si(x[0].get(), -5, MPFR_RNDN);
  EXPECT_FALSE(nearnessOf(unary<mpfr_exp2>, x, gridOf(ieee(3, 2), true)));
}

TEST(RoundingGap, UnknownForLargeFormats) {
  EXPECT_FALSE(roundingGap("DMFloatExpE", unary<mpfr_exp>, ieee(11, 52), ieee(11, 52), false));
  EXPECT_FALSE(roundingGap("unknown", unary<mpfr_exp>, ieee(8, 23), ieee(8, 23), false));
}

// The kept inputs come as near as their row says, by 300 bits of MPFR.
TEST(RoundingGap, KeptInputsAreAsNearAsKept) {
  for (const KeptGap& row : keptGaps()) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(kFunctions.contains(row.name));
    const RealFunction f = kFunctions.at(row.name);
    int most[2] = {1, 1};
    for (const double input : row.hardest) {
      std::vector<Real> x(1);
      x[0].prepare(row.fractionBits + 1);
      Real y(300), halves(300), place(300);
      ASSERT_EQ(mpfr_set_d(x[0].get(), input, MPFR_RNDN), 0);
      f(y.get(), x, MPFR_RNDN);
      const mpfr_exp_t normal = 3 - (mpfr_exp_t{1} << (row.exponentBits - 1));
      const mpfr_exp_t own = mpfr_get_exp(y.get()) - row.fractionBits - 1;
      for (const mpfr_exp_t ulp : {own, std::max(own, normal - row.fractionBits - 1)}) {
        mpfr_mul_2si(halves.get(), y.get(), 1 - ulp, MPFR_RNDN);
        mpfr_rint(place.get(), halves.get(), MPFR_RNDN);
        const bool isMidpoint = mpfr_get_si(place.get(), MPFR_RNDN) % 2 != 0;
        mpfr_sub(halves.get(), halves.get(), place.get(), MPFR_RNDN);
        const int bits = static_cast<int>(own - ulp - mpfr_get_exp(halves.get()) + 2);
        most[isMidpoint] = std::max(most[isMidpoint], bits);
      }
    }
    EXPECT_EQ(most[1], row.gap.nearest);
    EXPECT_EQ(most[0], row.gap.directed);
  }
}

}  // namespace
}  // namespace functions
