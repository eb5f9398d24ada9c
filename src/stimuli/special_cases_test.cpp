#include "stimuli/special_cases.h"

#include <fmt/format.h>

#include <cfloat>
#include <cmath>

#include "stimuli/stimuli_test.h"

namespace {

struct SpecialCases : StimuliTest {
  int count() { return getSpecialCasesCount(in, t); }
  void make(int index) { generateSpecialCasesStimuli(values, in, t, index, count()); }
};

TEST_F(SpecialCases, CrossesTheTableOfSinglePrecision) {
  const double table[] = {0.0,
                          -0.0,
                          3.141592f,
                          -3.141592f,
                          INFINITY,
                          -INFINITY,
                          NAN,
                          1.0,
                          -1.0,
                          0x1p122,
                          -0x1p122,
                          std::nextafter(2.0f, 0.0f),
                          1 + FLT_EPSILON,
                          FLT_TRUE_MIN,
                          -FLT_TRUE_MIN};
  ports({kiln::ieee(8, 23), kiln::ieee(8, 23)});
  for (const bool subnormals : {false, true}) {
    t.subnormals = subnormals;
    const int rows = subnormals ? 15 : 13;
    ASSERT_EQ(count(), rows * rows);
    for (int i = 0; i < count(); ++i) {
      SCOPED_TRACE(i);
      make(i);
      expectNumber(0, table[i / rows]);
      expectNumber(1, table[i % rows]);
    }
  }
}

TEST_F(SpecialCases, BringsEveryValueToItsPort) {
  // numbers of 2 1 lie from 1 to 3, of its FPLib form from 1/2 to 6
  const double ieee[] = {0, -0.0, 3, -3, INFINITY, -INFINITY, NAN, 1, -1, 0, -0.0, 1.5, 1.5};
  ports({kiln::ieee(2, 1)});
  ASSERT_EQ(count(), 13);
  for (int i = 0; i < 13; ++i) {
    make(i);
    expectNumber(0, ieee[i]);
  }
  t.subnormals = true;
  make(13);
  expectNumber(0, 0.5);
  ports({kiln::fpLib(2, 1)});
  make(14);
  expectNumber(0, -0.5);
  make(9);
  expectNumber(0, 0);
}

TEST_F(SpecialCases, CutsMixedListsWithTheRadixOfThePortOpposite) {
  t.subnormals = true;
  ports({kiln::FixedPoint(3, 1, true), kiln::ieee(8, 23)});
  ASSERT_EQ(count(), 120);
  for (int i = 0; i < 120; ++i) {
    SCOPED_TRACE(i);
    make(i);
    // the digit of radix 8 goes to the floating port, that of radix 15 to the integer one
    const int first = i % 8, second = (i - first) / 15 % 15;
    const double signedHalves = second >= 4 ? std::min(second - 8, 3) / 2.0 : second / 2.0;
    EXPECT_EQ(number(0), signedHalves);
    const double table[] = {0, -0.0, 3.141592f, -3.141592f, INFINITY, -INFINITY, NAN, 1};
    expectNumber(1, table[first]);
  }
}

TEST_F(SpecialCases, GivesANaNBeyondTheTableAndTheSmallestNumbersAtItsEnd) {
  ports({kiln::FixedPoint(5, 0, false), kiln::ieee(8, 23)});
  ASSERT_EQ(count(), 32 * 13);
  make(13);
  expectNumber(1, FLT_MIN);
  make(14);
  expectNumber(1, -FLT_MIN);
  make(15);
  expectNumber(1, NAN);
}

TEST_F(SpecialCases, CountsIn32BitsWithWidthsModulo32) {
  EXPECT_EQ(count(), 0);
  const auto fixed = [](int width) { return kiln::FixedPoint(width, 0, false); };
  struct Case {
    std::vector<kiln::Type> types;
    int count;
    bool overflow;
  };
  for (const Case& c : {Case{{fixed(30)}, 1 << 30, false},
                        {{fixed(16), fixed(16)}, 0, true},
                        {{fixed(32), fixed(32)}, 0, true},
                        {{fixed(33), fixed(3)}, 16, true},
                        {{kiln::ieee(2, 1), fixed(1)}, 26, false}}) {
    ports(c.types);
    EXPECT_EQ(count(), c.count);
    EXPECT_EQ(specialCasesOverflow(in, t), c.overflow);
  }
}

}  // namespace
