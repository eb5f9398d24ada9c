#include <gtest/gtest.h>

#include <bit>
#include <functional>

#include "backend/arithmetic/carry_logic.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/shifter.h"
#include "backend/graph/evaluator.h"

namespace arithmetic {
namespace {

using graph::Builder;
using graph::Signal;
using util::MPZ;

// Runs a construction of two inputs on all their values.
void forAll(
    int xWidth, int yWidth,
    const std::function<std::vector<Signal>(Builder&, Signal, Signal)>& build,
    const std::function<void(std::uint64_t, std::uint64_t, const std::vector<MPZ>&)>& check) {
  graph::Graph circuit;
  Builder b(circuit);
  const Signal x = b.input("x", xWidth), y = b.input("y", yWidth);
  for (const Signal result : build(b, x, y)) b.output("q", result);
  graph::Evaluator evaluator(circuit);
  for (std::uint64_t i = 0; i < 1ull << xWidth; ++i)
    for (std::uint64_t j = 0; j < 1ull << yWidth; ++j)
      check(i, j, evaluator(std::vector<MPZ>{MPZ(i), MPZ(j)}));
}

TEST(Shifter, ShiftsByEveryAmount) {
  for (const int width : {1, 2, 3, 7, 8, 9})
    for (const int amountWidth : {1, 2, 4, 5})
      forAll(
          width, amountWidth,
          [&](Builder& b, Signal x, Signal amount) {
            const ShiftedRight right = shiftRightSticky(b, x, amount);
            return std::vector{right.bits, right.sticky, shiftRight(b, x, amount),
                               shiftRight(b, x, amount, 3), shiftLeft(b, x, amount, width)};
          },
          [&](std::uint64_t x, std::uint64_t amount, const std::vector<MPZ>& got) {
            const std::uint64_t right = x >> amount, mask = (1ull << width) - 1;
            EXPECT_EQ(got[0], MPZ(right));
            EXPECT_EQ(got[1], MPZ((right << amount) != x ? 1 : 0));
            EXPECT_EQ(got[2], MPZ(right));
            const std::uint64_t nearMask = (1ull << std::min(3, width - 1)) - 1;
            EXPECT_EQ(got[3], MPZ(amount > 1 ? right & ~nearMask : right));
            if (amount > static_cast<std::uint64_t>(width)) return;
            EXPECT_EQ(got[4], MPZ((x << amount) & mask));
          });
}

// As the shifter of choices does it, for pieces and powers of all kinds.
TEST(Shifter, ShiftsByProductsAsByChoices) {
  for (const int width : {1, 2, 5, 8})
    for (const int amountWidth : {1, 2, 4, 5})
      for (const BlockShape& shape :
           {BlockShape{24, 17}, BlockShape{8, 2}, BlockShape{3, 4}, BlockShape{2, 9}})
        for (const int below : {0, 1, 3})
          forAll(
              width, amountWidth,
              [&](Builder& b, Signal x, Signal amount) {
                EXPECT_TRUE(canShiftByProducts(width, shape));
                const ShiftedRight plain = shiftRightByProducts(b, x, below, amount, shape);
                const Signal present = b.reduceOr(x);
                const ShiftedRight counted =
                    shiftRightByProducts(b, x, below, amount, shape, present);
                return std::vector{plain.bits, plain.sticky, counted.bits, counted.sticky};
              },
              [&](std::uint64_t x, std::uint64_t amount, const std::vector<MPZ>& got) {
                const std::uint64_t whole = x << below, right = whole >> amount;
                EXPECT_EQ(got[0], MPZ(right));
                EXPECT_EQ(got[1], MPZ((right << amount) != whole ? 1 : 0));
                EXPECT_EQ(got[2], got[0]);
                EXPECT_EQ(got[3], got[1]);
              });
  EXPECT_FALSE(canShiftByProducts(8, {}));
  EXPECT_FALSE(canShiftByProducts(9, {2, 9}));
}

TEST(CarryLogic, TellsAnyAndAllBitsOfEveryWord) {
  for (const int width : {1, 2, 6, 7, 12, 13})
    forAll(
        width, 1,
        [](Builder& b, Signal x, Signal gate) {
          return std::vector{anyByCarry(b, x, 3), anyByCarry(b, x), anyByCarry(b, x, 2, gate),
                             allByCarry(b, x)};
        },
        [&](std::uint64_t x, std::uint64_t gate, const std::vector<MPZ>& got) {
          EXPECT_EQ(got[0], MPZ(x != 0 ? 1 : 0));
          EXPECT_EQ(got[1], MPZ(x != 0 ? 1 : 0));
          EXPECT_EQ(got[2], MPZ(x != 0 && gate != 0 ? 1 : 0));
          EXPECT_EQ(got[3], MPZ(x + 1 == 1ull << width ? 1 : 0));
        });
}

TEST(CarryLogic, TellsNaNsOfEveryPattern) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 8}, {6, 6}, {7, 7}}) {
    const FloatFormat format{.exponentBits = wE, .fractionBits = wF};
    const std::uint64_t infinity = ((1ull << wE) - 1) << wF, magnitudes = (1ull << (wE + wF)) - 1;
    forAll(
        format.width(), 1,
        [&](Builder& b, Signal x, Signal) { return std::vector{isNanByCarry(b, x, format)}; },
        [&](std::uint64_t x, std::uint64_t, const std::vector<MPZ>& got) {
          EXPECT_EQ(got[0], MPZ((x & magnitudes) > infinity ? 1 : 0));
        });
  }
}

TEST(LeadingZeros, CountsAndNormalisesEveryWord) {
  for (const int width : {1, 2, 3, 4, 5, 8, 11, 13})
    forAll(
        width, 3,
        [](Builder& b, Signal x, Signal limit) {
          const Normalised all = normalise(b, x), some = normaliseUpTo(b, x, limit);
          const LeadingZeros tabled = countLeadingZeros(b, x, FirstOne::kTable);
          const LeadingZeros own = countLeadingZeros(b, x, FirstOne::kOwnGates);
          return std::vector{all.bits,   all.count,    all.allZero, some.bits,
                             some.count, tabled.count, own.count};
        },
        [&](std::uint64_t x, std::uint64_t limit, const std::vector<MPZ>& got) {
          EXPECT_EQ(got[2], MPZ(x == 0 ? 1 : 0));
          if (x == 0) return;
          const std::uint64_t zeros = std::countl_zero(x) - (64 - width);
          EXPECT_EQ(got[5], MPZ(zeros));
          EXPECT_EQ(got[6], MPZ(zeros));
          EXPECT_EQ(got[0], MPZ(x << zeros));
          EXPECT_EQ(got[1], MPZ(zeros));
          EXPECT_EQ(got[3], MPZ(x << std::min(zeros, limit)));
          EXPECT_EQ(got[4], MPZ(std::min(zeros, limit)));
        });
}

TEST(LeadingZeros, WideWords) {
  graph::Graph circuit;
  Builder b(circuit);
  const LeadingZeros zeros = countLeadingZeros(b, b.input("x", 227));
  b.output("count", zeros.count);
  graph::Evaluator evaluator(circuit);
  for (int top = 0; top < 227; ++top) {
    const MPZ word = MPZ::powerOfTwo(top) + (MPZ::powerOfTwo(top) >> 2);
    EXPECT_EQ(evaluator(std::vector{word})[0], MPZ(226 - top));
  }
}

}  // namespace
}  // namespace arithmetic
