#include "backend/arithmetic/digit_recurrence.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "backend/arithmetic/reciprocal_divider.h"
#include "backend/graph/evaluator.h"

namespace arithmetic {
namespace {

using util::MPZ;

// floor(sqrt(x)) and whether there is more.
std::pair<MPZ, bool> rootOf(const MPZ& x) {
  MPZ root, rest;
  mpz_sqrtrem(root.get(), rest.get(), x.get());
  return {root, !rest.isZero()};
}
std::pair<MPZ, bool> quotientOf(const MPZ& x, const MPZ& y) {
  MPZ quotient, rest;
  mpz_fdiv_qr(quotient.get(), rest.get(), x.get(), y.get());
  return {quotient, !rest.isZero()};
}

TEST(DigitRecurrence, RootsOfAllRadicands) {
  for (int fraction = 1; fraction <= 9; ++fraction)
    for (int digits : {1, 2, fraction / 2 + 1, fraction, fraction + 2}) {
      if (2 * (digits - 1) < fraction && digits > 2) continue;
      SCOPED_TRACE(fmt::format("{} digits of {} bits", digits, fraction));
      graph::Graph circuit;
      Builder b(circuit);
      const auto result = rootByDigits(b, b.input("x", fraction + 2), exactRootPlan(digits));
      b.output("root", result.bits);
      b.output("inexact", result.inexact);
      graph::Evaluator evaluate(circuit);
      for (long x = 1L << fraction; x < 4L << fraction; ++x) {
        const int shift = 2 * digits - fraction;
        const MPZ scaled = shift >= 0 ? MPZ(x) << static_cast<unsigned long>(shift)
                                      : MPZ(x) >> static_cast<unsigned long>(-shift);
        auto [root, more] = rootOf(scaled);
        if (shift < 0 && MPZ(x).lowBits(static_cast<unsigned long>(-shift)) != MPZ(0)) more = true;
        EXPECT_EQ(evaluate(std::vector<MPZ>{MPZ(x)}), (std::vector<MPZ>{root, MPZ(more ? 1 : 0)}))
            << x;
      }
    }
}

// Between the root cut off and the root with the plan's error cut off, or all ones.
TEST(DigitRecurrence, RootsOfRowsThatDropPlaces) {
  for (const int fraction : {6, 9, 12}) {
    const RowPlan plan = truncatedRootPlan(fraction, fraction, 1);
    EXPECT_FALSE(plan.isExact());
    graph::Graph circuit;
    Builder b(circuit);
    b.output("root", rootByDigits(b, b.input("x", fraction + 2), plan).bits);
    graph::Evaluator evaluate(circuit);
    int above = 0;
    for (long x = 1L << fraction; x < 4L << fraction; ++x) {
      const MPZ got = evaluate(std::vector<MPZ>{MPZ(x)})[0];
      const auto [root, more] = rootOf(MPZ(x) << static_cast<unsigned long>(fraction));
      EXPECT_TRUE(got == root || (more && got == root + MPZ(1))) << x;
      above += got != root ? 1 : 0;
    }
    EXPECT_GT(above, 0);
  }
}

// Each residual stays within 2/3 of the divisor: at the end digits that add up to the quotient
// within 2/3 of the last place, for all pairs.
TEST(DigitRecurrence, QuotientsOfAllPairs) {
  for (const int width : {2, 3, 5, 7})
    for (const int digits : {width / 2 + 1, width}) {
      graph::Graph circuit;
      Builder b(circuit);
      const Signal x = b.input("x", width), y = b.input("y", width);
      const auto exact = quotientByDigits(b, x, y, digits);
      b.output("quotient", exact.bits);
      b.output("inexact", exact.inexact);
      b.output("near", nearQuotient(b, x, y, {digits, digits, 0, 0}, false));
      b.output("raised", nearQuotient(b, x, y, {digits, digits, 0, 0}, true));
      graph::Evaluator evaluate(circuit);
      for (long i = 1L << (width - 1); i < 1L << width; ++i)
        for (long j = 1L << (width - 1); j < 1L << width; ++j) {
          const auto out = evaluate(std::vector<MPZ>{MPZ(i), MPZ(j)});
          const auto places = static_cast<unsigned long>(2 * digits);
          const auto [quotient, more] = quotientOf(MPZ(i) << (places + 1), MPZ(j));
          EXPECT_EQ(out[0], quotient);
          EXPECT_EQ(out[1], MPZ(more ? 1 : 0));
          EXPECT_EQ(out[3], out[2] + MPZ(1));
          MPZ error = (out[2] * MPZ(j) - (MPZ(i) << places)) * MPZ(3);
          if (error.sign() < 0) error = -error;
          EXPECT_LE(error, MPZ(2 * j)) << i << " / " << j;
        }
    }
}

MPZ drawn(std::mt19937_64& random, int width) {
  MPZ x = 1;
  for (int i = 1; i < width; ++i) x = (x << 1) + MPZ(static_cast<long>(random() & 1));
  return x;
}

// Rows that drop places err by no more than their plan says beside the last digit's 2/3.
TEST(DigitRecurrence, QuotientsOfRowsThatDropPlaces) {
  std::mt19937_64 random(1);
  for (const auto& [width, digits, units] :
       {std::tuple{8, 4, 0.3}, {11, 6, 1.0}, {24, 12, 0.33}, {24, 13, 1.3}, {53, 27, 0.33}}) {
    SCOPED_TRACE(fmt::format("{} digits of {} bits, {}", digits, width, units));
    const RowPlan plan = truncatedQuotientPlan(digits, width, units);
    EXPECT_FALSE(plan.isExact());
    graph::Graph circuit;
    Builder b(circuit);
    const Signal dividend = b.input("x", width), divisor = b.input("y", width);
    b.output("near", nearQuotient(b, dividend, divisor, plan, false));
    graph::Evaluator evaluate(circuit);
    for (int i = 0; i < 3000; ++i) {
      const MPZ x = drawn(random, width);
      const MPZ y = i % 2 == 0 ? drawn(random, width)
                               : MPZ::powerOfTwo(static_cast<unsigned long>(width - 1)) +
                                     MPZ(static_cast<long>(random() % 64));
      MPZ error =
          evaluate(std::vector<MPZ>{x, y})[0] * y - (x << static_cast<unsigned long>(2 * digits));
      if (error.sign() < 0) error = -error;
      // 3 2^s error < y (2 2^s + 3 plan.error)
      const auto scale = static_cast<unsigned long>(plan.errorScale);
      EXPECT_LE((error * MPZ(3)) << scale, y * ((MPZ(2) << scale) + plan.error * MPZ(3)))
          << x.toText(16) << " / " << y.toText(16);
    }
  }
}

// Candidates keep to their side by less than the room, by polynomials and by Newton's steps.
TEST(ReciprocalDivider, CandidatesKeepToTheirSide) {
  std::mt19937_64 random(2);
  for (const int width : {11, 24, 53})
    for (const QuotientGoal& goal :
         {QuotientGoal{width + 1, 1, true}, QuotientGoal{width, 1, false},
          QuotientGoal{width, 2, false}}) {
      graph::Graph circuit;
      Builder b(circuit);
      const Signal x = b.input("x", width), y = b.input("y", width);
      std::vector<Signal> candidates;
      EvaluationPrices prices;
      prices.product.lutPerDsp = prices.product.lutPerFurtherDsp = 1;
      if (width < 53) {
        const auto plan = planReciprocal(width, goal, prices, 1e9);
        ASSERT_TRUE(plan);
        candidates.push_back(quotientByReciprocal(b, x, y, *plan, goal).bits);
      }
      if (width > 11) candidates.push_back(quotientByNewton(b, x, y, goal, prices).bits);
      for (const Signal candidate : candidates) b.output("near", candidate);
      if (goal.notAbove) {
        const auto checked = checkedQuotient(b, candidates[0], y);
        b.output("checked", checked.bits);
        b.output("inexact", checked.inexact);
      }
      graph::Evaluator evaluate(circuit);
      for (int i = 0; i < 1000; ++i) {
        const MPZ dividend = drawn(random, width);
        const MPZ divisor = i % 8 == 0   ? MPZ::allOnes(static_cast<unsigned long>(width))
                            : i % 8 == 1 ? dividend
                                         : drawn(random, width);
        const auto out = evaluate(std::vector<MPZ>{dividend, divisor});
        const auto [quotient, more] =
            quotientOf(dividend << static_cast<unsigned long>(goal.fractionBits), divisor);
        for (std::size_t k = 0; k < candidates.size(); ++k) {
          const MPZ difference = out[k] - quotient;
          if (goal.notAbove) {
            EXPECT_TRUE(difference == MPZ(0) || difference == MPZ(-1)) << difference.toText(10);
          } else {
            EXPECT_GE(difference, MPZ(0));
            EXPECT_LE(difference, MPZ(more ? goal.room : goal.room - 1));
          }
        }
        if (!goal.notAbove) continue;
        EXPECT_EQ(out[candidates.size()], quotient);
        EXPECT_EQ(out[candidates.size() + 1], MPZ(more ? 1 : 0));
      }
    }
}

}  // namespace
}  // namespace arithmetic
