#include "backend/functions/sequencers/folded_plan.h"

#include <algorithm>
#include <string>

namespace functions {

using arithmetic::ErrorBudget;
using arithmetic::NewtonSeed;
using arithmetic::SeedOf;
using util::MPZ;

namespace {

constexpr int kLeastIndex = 3, kMostIndex = 14;
constexpr int kScale = 2 * NewtonSeed::kErrorBits;  // of squares of errors

// What reaches a result of 1/2 to 1 before it is rounded, or a candidate, in its last places.
//   iteration  times d^2 / 8, as a relative error
//   cuts       times 2^-fraction
struct Source {
  const char* name;
  SeedOf seed;
  int iteration, cuts;
};
// t and 2 - t are short of one unit each at the most, r2 as a factor of another one, and x is below
// 2. A quotient in [1, 2) has twice the place, but a candidate not twice the grid.
constexpr Source kRounded[] = {
    {"reciprocal", SeedOf::kReciprocal, 8, 2},
    {"quotient", SeedOf::kReciprocal, 8, 4},
    // 3/2 + d/2 is at most 13/8 for d up to 1/4; r1^2, t and (3 - t) / 2 are cut.
    {"reciprocal root", SeedOf::kReciprocalRoot, 13, 2},
    {"root", SeedOf::kReciprocalRoot, 13, 4},
};
constexpr Source kCandidates[] = {
    {"reciprocal", SeedOf::kReciprocal, 8, 2},
    {"quotient", SeedOf::kReciprocal, 16, 6},
    {"reciprocal root", SeedOf::kReciprocalRoot, 13, 2},
    {"root", SeedOf::kReciprocalRoot, 13, 4},
};

const NewtonSeed& seedOf(const FoldedPlan& plan, SeedOf function) {
  return function == SeedOf::kReciprocal ? plan.reciprocal : plan.root;
}

ErrorBudget budgetOf(const FoldedPlan& plan, const Source& source) {
  const MPZ& d = seedOf(plan, source.seed).relativeError;
  const int p = plan.significandBits;
  // In ulps of 2^-p; candidates must be within an eighth of that.
  ErrorBudget budget(plan.checked ? 0.125 : 0.875,
                     std::string(source.name) + (plan.checked ? ", candidate" : ""));
  budget.add("iteration", MPZ(source.iteration) * d * d, kScale + 3 - p);
  budget.add("cut factors", MPZ(source.cuts), plan.fraction - p);
  if (!plan.checked) budget.add("rounding", MPZ(1), 1);
  return budget;
}

bool isAccurate(const FoldedPlan& plan) {
  const MPZ quarter = MPZ::powerOfTwo(NewtonSeed::kErrorBits - 2);
  if (plan.reciprocal.relativeError > quarter || plan.root.relativeError > quarter) return false;
  // What a factor has to hold.
  if (plan.fraction < std::max(plan.significandBits + 3, plan.root.bits)) return false;
  return std::ranges::all_of(plan.checked ? kCandidates : kRounded, [&](const Source& source) {
    const ErrorBudget budget = budgetOf(plan, source);
    return budget.sum() <= budget.promise();
  });
}

int ceilDivide(int a, int b) { return (a + b - 1) / b; }

}  // namespace

std::vector<FoldedPass> foldedPasses(FoldedOp op, bool checked) {
  using enum FoldedA;
  using B = FoldedB;
  std::vector<FoldedPass> passes;
  switch (op) {
    case kReciprocal:
    case kQuotient: {
      const FoldedA divisor = op == kReciprocal ? kX : kY;
      passes = {
          {2, divisor, B::kSlope}, {kSeedCycle, divisor, B::kNewSeed}, {8, kSeed, B::kTwoLess}};
      if (op == kQuotient) passes.push_back({11, kX, B::kLast});
      if (checked) passes.push_back({passes.back().cycle + 3, divisor, B::kCandidate});
      return passes;
    }
    case kReciprocalRoot:
    case kRoot:
      passes = {{2, kX, B::kSlope},
                {kSeedCycle, kNewSeed, B::kNewSeed},
                {8, kX, B::kLast},
                {11, kSeed, B::kThreeLess}};
      if (op == kRoot) passes.push_back({14, kX, checked ? B::kHalfLast : B::kLast});
      if (checked) passes.push_back({passes.back().cycle + 3, kHalfCandidate, B::kCandidate});
      if (checked && op == kReciprocalRoot) passes.push_back({17, kX, B::kSquare});
      return passes;
    case kProduct:
      return {{1, kX, B::kY}};
  }
  return passes;
}

std::optional<FoldedPlan> planFolded(int fractionBits, bool checked, const Prices& prices,
                                     arithmetic::ErrorBudgets* budgets) {
  const int p = fractionBits + 1;
  const int narrow = std::max(prices.dsp.depth, 8);
  for (int blocks = ceilDivide(p + 4, narrow); blocks * narrow <= 2 * p + 4 * narrow; ++blocks) {
    FoldedPlan plan{.significandBits = p, .checked = checked};
    plan.fraction = blocks * narrow - 1;
    for (int index = kLeastIndex; index <= std::min(kMostIndex, fractionBits); ++index) {
      const int bits = 2 * index + 5;
      plan.reciprocal = newtonSeed(SeedOf::kReciprocal, index, bits);
      plan.root = newtonSeed(SeedOf::kReciprocalRoot, index, bits);
      plan.aBits = std::max(p, bits + 1);
      if (!isAccurate(plan)) continue;
      while (isAccurate(plan)) --plan.fraction;
      ++plan.fraction;
      plan.bBits = plan.productB = plan.fraction + 1;
      if (checked) {
        plan.bBits = std::max(plan.bBits, 2 * p + 2);
        plan.productB = std::min(plan.bBits, ceilDivide(plan.fraction + 1, narrow) * narrow);
      }
      for (const Source& source : checked ? kCandidates : kRounded)
        budgetOf(plan, source).assertKept(budgets);
      if (checked) arithmetic::stateRounding(budgets, /*toNearest=*/false);
      return plan;
    }
  }
  return std::nullopt;
}

}  // namespace functions
