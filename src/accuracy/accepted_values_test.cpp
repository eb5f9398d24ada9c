#include "accuracy/accepted_values.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "numbers/filters.h"
#include "numbers/packing.h"

namespace {

using Values = std::vector<double>;

NumValue rounded(double x, int precision, mpfr_rnd_t direction) {
  NumValue v;
  mpfr_set_d(v.real.prepare(precision), x, direction);
  return v;
}

// The list for one output whose three results are given, each brought to its port.
Values listed(const kiln::Type& type, float bound, const TestingOptions& settings,
              const NumValue& down, const NumValue& up, const NumValue& nearest) {
  TestingOptions t = settings;
  t.errorBounds = {bound};
  PortSpecList ports;
  ports.push_back("q", type);
  std::vector<std::vector<NumValue>> candidates;
  generateOutputsForBeyondFaithfulTesting(candidates, ports, {down}, {up}, {nearest}, {}, t);
  EXPECT_EQ(static_cast<int>(candidates[0].size()), alternativesOf(t, 0));
  Values list;
  for (const NumValue& v : candidates[0]) {
    NumValue filtered;
    if (const auto* fp = type.as_floating_point()) {
      fpRangeFilter(filtered, v, *fp, t.subnormals);
    } else {
      fxpRangeFilter(filtered, v, *type.as_fixed_point(), t.precision);
    }
    list.push_back(mpfr_get_d(filtered.real.get(), MPFR_RNDN));
  }
  return list;
}

// The same bits, zeros told apart by their sign.
bool same(double a, double b) { return a == b && std::signbit(a) == std::signbit(b); }

// Every number of a format in ascending order, both zeros among them, made without MPFR. Without
// subnormals the grid goes on below the format, since flushing comes after the walk.
Values gridOf(const kiln::FloatingPoint& fp, bool subnormals) {
  const int h = 1 << (fp.exp - 1), places = 1 << fp.frac;
  const int lowest = (fp.is_fp_lib ? 1 : 2) - h, highest = h - (fp.is_fp_lib ? 0 : 1);
  Values grid;
  if (subnormals) {
    for (int f = 1; f < places; ++f) grid.push_back(std::ldexp(f, lowest - fp.frac));
  }
  for (int e = lowest - (subnormals ? 0 : 8); e <= highest; ++e) {
    for (int f = 0; f < places; ++f) grid.push_back(std::ldexp(places + f, e - fp.frac));
  }
  Values all;
  for (std::size_t i = grid.size(); i-- > 0;) all.push_back(-grid[i]);
  all.push_back(-0.0);
  all.push_back(0.0);
  all.insert(all.end(), grid.begin(), grid.end());
  return all;
}

// Compares the lists of `exact` with a search over all numbers of the format.
void meetsSearch(const kiln::FloatingPoint& fp, bool subnormals, double exact, const Values& grid) {
  const bool gradual = subnormals && !fp.is_fp_lib;
  const double least = std::ldexp(1, (fp.is_fp_lib ? 1 : 2) - (1 << (fp.exp - 1)));
  // grid positions of the largest number at most `exact` and the smallest at least that
  const auto position = [&](auto it) { return static_cast<int>(it - grid.begin()); };
  const int from = position(std::upper_bound(grid.begin(), grid.end(), exact)) - 1;
  const int to = position(std::lower_bound(grid.begin(), grid.end(), exact));
  const int minusZero = position(std::lower_bound(grid.begin(), grid.end(), 0.0));
  const double down = grid[exact == 0 ? minusZero : from];
  const double up = grid[exact == 0 ? minusZero + 1 : to];
  TestingOptions t;
  t.subnormals = subnormals;
  for (int n = 1; n <= 4; ++n) {
    Values expected;
    for (int k = 0; k < n; ++k) {
      const int walks[] = {exact == 0 ? minusZero : from, exact == 0 ? minusZero + 1 : to};
      for (const int side : {0, 1}) {
        int at = walks[side] + (side ? k : -k);
        // a walk ends at a zero: -0 downward, +0 upward
        if (side == 0 && walks[0] >= minusZero) at = std::max(at, minusZero);
        if (side == 1 && walks[1] <= minusZero + 1) at = std::min(at, minusZero + 1);
        double value = at < 0                                ? -INFINITY
                       : at >= static_cast<int>(grid.size()) ? INFINITY
                                                             : grid[static_cast<std::size_t>(at)];
        if (!gradual && std::fabs(value) < least) value = std::copysign(0.0, value);
        expected.push_back(value);
      }
    }
    const int p = fp.frac + 1;
    const Values list = listed(fp, static_cast<float>(n), t, rounded(down, p, MPFR_RNDN),
                               rounded(up, p, MPFR_RNDN), rounded(down, p, MPFR_RNDN));
    ASSERT_TRUE(std::ranges::equal(list, expected, same))
        << fp.exp << " " << fp.frac << " exact " << exact << " bound " << n;
  }
}

TEST(AcceptedValues, AreTheNearestNumbersOnEachSideInSmallFormats) {
  for (const auto& fp : {kiln::ieee(2, 1), kiln::ieee(3, 2), kiln::ieee(4, 3), kiln::fpLib(2, 1),
                         kiln::fpLib(3, 2)}) {
    for (const bool subnormals : {false, true}) {
      const Values grid = gridOf(fp, subnormals && !fp.is_fp_lib);
      const std::size_t margin = subnormals && !fp.is_fp_lib ? 0 : 8u << fp.frac;
      for (std::size_t i = 0; i + 1 < grid.size(); ++i) {
        // walks within the numbers far below the format are of no meaning
        const double least = std::fabs(grid[grid.size() / 2 + margin / 2]);
        if (margin && std::fabs(grid[i]) < least && grid[i] != 0) continue;
        meetsSearch(fp, subnormals, grid[i], grid);
        if (grid[i] != 0 && grid[i + 1] != 0) {
          meetsSearch(fp, subnormals, (grid[i] + grid[i + 1]) / 2, grid);
        }
      }
    }
  }
}

TEST(AcceptedValues, OfABoundOfHalfAreTheRoundedResult) {
  TestingOptions t;
  const NumValue down = rounded(1, 24, MPFR_RNDN), up = rounded(2, 24, MPFR_RNDN);
  const NumValue tiny = rounded(-std::ldexp(1, -140), 24, MPFR_RNDN);
  const kiln::FloatingPoint single = kiln::ieee(8, 23);
  EXPECT_EQ(listed(single, 0.5f, t, down, up, up), Values{2});
  EXPECT_TRUE(same(listed(single, 0.5f, t, tiny, tiny, tiny)[0], -0.0));
  EXPECT_EQ(listed(single, 0.75f, t, down, up, up), Values{});
  EXPECT_EQ(listed(single, 2.5f, t, down, up, up).size(), 4u);
  t.subnormals = true;
  EXPECT_EQ(listed(single, 0.5f, t, tiny, tiny, tiny), Values{-std::ldexp(1, -140)});
  EXPECT_TRUE(same(listed(kiln::fpLib(8, 23), 0.5f, {}, tiny, tiny, tiny)[0], -0.0));
}

TEST(AcceptedValues, RepeatWhatHasNoNeighbour) {
  const NumValue inf = rounded(INFINITY, 24, MPFR_RNDN), nan = rounded(NAN, 24, MPFR_RNDN);
  EXPECT_EQ(listed(kiln::ieee(8, 23), 2, {}, inf, inf, inf), Values(4, INFINITY));
  for (const double x : listed(kiln::ieee(8, 23), 3, {}, nan, nan, nan)) EXPECT_TRUE(std::isnan(x));
}

TEST(AcceptedValues, OfFixedPointLieTowardAndAwayFromZero) {
  for (const bool sign : {false, true}) {
    for (const int fraction : {-1, 0, 3}) {
      const kiln::FixedPoint fx(5, fraction, sign);
      const double lowest = sign ? -16 : 0, highest = sign ? 15 : 31;
      for (int quarters = sign ? -70 : 0; quarters <= 130; ++quarters) {
        const double units = quarters / 4.0, s = units < 0 ? -1 : 1;
        const NumValue exact = rounded(std::ldexp(units, -fraction), 200, MPFR_RNDN);
        for (const int n : {1, 2, 3}) {
          Values expected;
          double low = s * std::floor(std::fabs(units)), high = low + s;
          for (int k = 0; k < n; ++k) {
            for (const double x : {low, high}) {
              expected.push_back(std::ldexp(std::clamp(x, lowest, highest), -fraction));
            }
            low -= low < 0 ? -1 : 1;
            high += s;
          }
          EXPECT_EQ(listed(fx, static_cast<float>(n), {}, exact, exact, exact), expected) << units;
        }
      }
    }
  }
}

TEST(AcceptedValues, TakeAGridPointThatRoundingJustReached) {
  // the exact result lies between 1 - 2^-200 and 1, or between their negatives
  NumValue below = rounded(1, 200, MPFR_RNDN);
  const NumValue one = below;
  mpfr_nextbelow(below.real.get());
  EXPECT_EQ(listed(kiln::FixedPoint(5, 2, true), 1, {}, below, one, one), (Values{0.75, 1}));
  NumValue above = rounded(-1, 200, MPFR_RNDN);
  const NumValue minusOne = above;
  mpfr_nextabove(above.real.get());
  EXPECT_EQ(listed(kiln::FixedPoint(5, 2, true), 1, {}, minusOne, above, above),
            (Values{-0.75, -1}));
}

TEST(AcceptedValues, FollowTheirOwnBoundOnEachOutput) {
  TestingOptions t;
  EXPECT_EQ(alternativesOf(t, 3), 1);
  t.faithfulRounding = true;
  EXPECT_EQ(alternativesOf(t, 3), 2);
  t.errorBounds = {4, 0.5f};
  EXPECT_EQ(alternativesOf(t, 1), 1);
  EXPECT_EQ(alternativesOf(t, 2), 8);
  t.unprovenRounding = true;
  EXPECT_EQ(alternativesOf(t, 1), 2);
  EXPECT_EQ(alternativesOf(t, 2), 8);
}

}  // namespace
