#include "backend/arithmetic/error_budget.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace arithmetic
