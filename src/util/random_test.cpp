#include "util/random.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

namespace util {
namespace {

TEST(Random, IsUniformInItsRangeAndRepeats) {
  for (const int n : {1, 2, 3, 100, INT_MAX}) {
    restartRandom();
    std::vector<int> drawn;
    double sum = 0;
    for (int i = 0; i < 20000; ++i) {
      drawn.push_back(GetRandom(n));
      ASSERT_TRUE(drawn.back() >= 0 && drawn.back() < n);
      sum += drawn.back();
    }
    EXPECT_NEAR(sum / 20000 / n, (n - 1.0) / (2.0 * n), 0.02);
    restartRandom();
    for (const int value : drawn) ASSERT_EQ(GetRandom(n), value);
  }
}

TEST(Random, ReachesBothEndsOfAnInclusiveRange) {
  int low = 0, high = 0;
  for (int i = 0; i < 1000; ++i) {
    const int value = GetRandomInRangeIncInc(-2, 2);
    ASSERT_TRUE(value >= -2 && value <= 2);
    low += value == -2;
    high += value == 2;
  }
  EXPECT_GT(low, 100);
  EXPECT_GT(high, 100);
  EXPECT_EQ(GetRandomInRangeIncInc(INT_MAX, INT_MAX), INT_MAX);
  for (int i = 0; i < 100; ++i) GetRandomInRangeIncInc(INT_MIN, INT_MAX);
}

}  // namespace
}  // namespace util
