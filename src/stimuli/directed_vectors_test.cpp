
#include <cmath>

#include "stimuli/hand_built.h"
#include "stimuli/injected.h"
#include "stimuli/pi_regions.h"
#include "stimuli/stimuli_test.h"

namespace {

struct DirectedVectors : StimuliTest {
  void inject(std::vector<const char*> numbers) {
    t.injectedVector.clear();
    for (const char* number : numbers) {
      mpfr_set_str(t.injectedVector.emplace_back(100).get(), number, 10, MPFR_RNDN);
    }
  }
};

TEST_F(DirectedVectors, HandBuiltOnesAreNaNsAsManyAsTheOperatorHas) {
  int total = 0, operators = 0;
  for (int type = 0; type < 200; ++type) {
    total += getHandTestStimuliCount(type);
    operators += getHandTestStimuliCount(type) > 0;
  }
  EXPECT_EQ(operators, 35);
  EXPECT_EQ(total, 5 + 1 + 9 + 6 + 9 + 1 + 1 + 3 + 5 + 1 + 10 + 4 * 36 + 1 + 5 * 3 + 18 + 1 +
                       2 * 12 + 1 + 36 + 6 + 8 + 1 + 13 + 23 + 3 + 9 + 1);
  EXPECT_EQ(getHandTestStimuliCount(98), 23);
  EXPECT_EQ(getHandTestStimuliCount(75), 3);
  ports({kiln::ieee(8, 23), kiln::FixedPoint(1, 0, false)});
  generateHandTestStimuli(values, in, t, 4);
  EXPECT_TRUE(std::isnan(number(0)));
  EXPECT_EQ(mpfr_get_prec(values[0].real.get()), 24);
  EXPECT_EQ(number(1), 0);
}

TEST_F(DirectedVectors, PiRegionsStepAroundEachMultiple) {
  // pi/2, pi and 3 pi/2 in double precision; a float is nearest to each of these doubles too
  const double multiples[] = {0x1.921fb54442d18p0, 0x1.921fb54442d18p1, 0x1.2d97c7f3321d2p2};
  ports({kiln::ieee(11, 52), kiln::ieee(8, 23), kiln::FixedPoint(20, 10, false)});
  struct Case {
    int multiples, interval;
  };
  for (const auto& [count, interval] : {Case{2, 4}, {3, 1}, {3, 7}}) {
    t.piTestMultiples = count;
    t.piTestInterval = interval;
    for (int i = 0; i < count * interval; ++i) {
      generatePiOverTwoRegionStimuli(values, in, t, i);
      double wide = multiples[i / interval];
      auto narrow = static_cast<float>(wide);
      const int steps = i % interval - interval / 2;
      for (int k = 0; k < std::abs(steps); ++k) {
        wide = std::nextafter(wide, steps < 0 ? 0 : INFINITY);
        narrow = std::nextafter(narrow, steps < 0 ? 0.0f : INFINITY);
      }
      EXPECT_EQ(number(0), wide);
      EXPECT_EQ(number(1), narrow);
      const int places = 19 - i / interval;  // of the 20 bits of the third port
      const double ulps = std::rint(std::ldexp(multiples[i / interval], places));
      EXPECT_EQ(number(2), std::ldexp(ulps + steps, -places));
    }
  }
}

TEST_F(DirectedVectors, PiRegionsFlushBelowTheSmallestNormalNumber) {
  ports({kiln::ieee(2, 1)});
  t.piTestMultiples = 1;
  t.piTestInterval = 10;
  t.subnormals = true;
  // 1.5 is next to pi/2; five steps below it are 3/8, less than the smallest normal number
  generatePiOverTwoRegionStimuli(values, in, t, 0);
  EXPECT_EQ(number(0), 0);
  generatePiOverTwoRegionStimuli(values, in, t, 4);
  EXPECT_EQ(number(0), 1);
}

TEST_F(DirectedVectors, InjectedNumbersRoundToTheirPorts) {
  ports({kiln::ieee(8, 23), kiln::FixedPoint(4, 1, true), kiln::ieee(8, 23)});
  inject({"0.1", "-3.5", "-0"});
  EXPECT_EQ(injectionRefused(in, t), std::nullopt);
  generateInjectedTestVectorStimuli(values, in, t, 0, 1);
  EXPECT_EQ(number(0), 0.1f);
  EXPECT_EQ(number(1), -3.5);
  EXPECT_TRUE(std::signbit(number(2)));
}

TEST_F(DirectedVectors, InjectedNumbersThatAPortCannotCarryAreNamed) {
  struct Case {
    kiln::Type type;
    const char* number;
    bool subnormals, refused;
  };
  for (const Case& c : {Case{kiln::ieee(8, 23), "3.5e38", false, true},
                        {kiln::ieee(8, 23), "3.4e38", false, false},
                        {kiln::ieee(8, 23), "1e-40", false, true},
                        {kiln::ieee(8, 23), "1e-40", true, false},
                        {kiln::ieee(8, 23), "nan", false, false},
                        {kiln::ieee(8, 23), "-inf", false, false},
                        {kiln::fpLib(2, 1), "0.4", true, true},
                        {kiln::FixedPoint(8, 0, false), "255", false, false},
                        {kiln::FixedPoint(8, 0, false), "-1", false, true},
                        {kiln::FixedPoint(8, 0, true), "128", false, true},
                        {kiln::FixedPoint(8, 0, true), "nan", false, true}}) {
    SCOPED_TRACE(c.number);
    ports({c.type});
    t.subnormals = c.subnormals;
    inject({c.number});
    EXPECT_EQ(injectionRefused(in, t).has_value(), c.refused);
  }
  inject({"128"});
  EXPECT_EQ(injectionRefused(in, t), "-injectTestVector: 128 is out of the range of input p");
  in.push_back("q", kiln::ieee(8, 23));
  EXPECT_EQ(injectionRefused(in, t), "-injectTestVector: 1 values for 2 inputs");
}

}  // namespace
