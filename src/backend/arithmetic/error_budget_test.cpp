#include "backend/arithmetic/error_budget.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace arithmetic {
namespace {

TEST(ErrorBudget, AddsExactlyAndStopsABrokenPromise) {
  ErrorBudget budget(1);
  budget.add("approximation", 1, 1);
  budget.add("truncation", 3, 3);
  budget.add("rounding", (util::MPZ::powerOfTwo(197)) - 1, 200);
  budget.assertKept();
  EXPECT_DOUBLE_EQ(budget.sum(), 1.0);  // exactly 2^-200 less
  budget.add("one too many", 1, 199);
  EXPECT_EXIT(budget.assertKept(), ::testing::ExitedWithCode(255), "one too many");
}

TEST(ErrorBudget, IsStatedOnceAndNeverBelowItsTerms) {
  ErrorBudgets stated;
  ErrorBudget budget(2, "below");
  // 1 + 2^-60 and a third of a unit, cut behind 200 bits: no doubles.
  util::MPZ third;
  for (int bit = 0; bit < 200; bit += 2) third += util::MPZ::powerOfTwo(bit);
  budget.add("table", util::MPZ::powerOfTwo(60) + 1, 60);
  budget.add("third", third, 200);
  budget.assertKept(&stated);
  budget.assertKept(&stated);
  stateRounding(&stated, /*toNearest=*/true);
  stateRounding(&stated, /*toNearest=*/false);
  stateRounding(nullptr, /*toNearest=*/true);
  ASSERT_EQ(stated.size(), 3U);
  EXPECT_EQ(stated[0].name(), "below");
  EXPECT_EQ(stated[0].terms()[0].ulps(), 1 + std::numeric_limits<double>::epsilon());
  EXPECT_EQ(stated[0].terms()[1].ulps(), std::nextafter(1.0 / 3, 1.0));
  EXPECT_GT(stated[0].sum(), 4.0 / 3);
  EXPECT_EQ(stated[1].sum(), 0.5);
  EXPECT_EQ(stated[2].sum(), 1);
}

}  // namespace
}  // namespace arithmetic
