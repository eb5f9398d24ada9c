#include "backend/arithmetic/truncated_product.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "backend/graph/evaluator.h"

namespace arithmetic {
namespace {

using util::MPZ;

// Blocks so small and dear that corners of narrow products pay.
ProductPrices smallBlocks() {
  return {.lutPerDsp = 30, .lutPerFurtherDsp = 30, .dspWide = 3, .dspNarrow = 2};
}

MPZ valueOf(unsigned long pattern, int width, bool isSigned) {
  const MPZ bits(pattern);
  return isSigned ? bits.asSigned(static_cast<unsigned long>(width)) : bits;
}

// All inputs: the terms exceed the product by 0 to `excess`, which lies within the room and is
// attained, and the sum of two unsigned factors never passes their greatest product.
void checkAll(int width, int height, bool xSigned, bool ySigned, const MPZ& room, bool* leftOut) {
  SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height) + (xSigned ? " signed" : "") +
               (ySigned ? ", signed" : "") + " room " + room.toText(10));
  graph::Graph graph;
  Builder b(graph);
  const ProductFactor x{b.input("x", width), xSigned}, y{b.input("y", height), ySigned};
  const int sumWidth = width + height + 3;
  const TruncatedProduct product = truncatedProduct(b, x, y, sumWidth, room, smallBlocks());
  b.output("s", b.heap(product.terms, sumWidth));
  ASSERT_LE(product.excess, room);
  *leftOut = *leftOut || !product.excess.isZero();
  graph::Evaluator evaluate(graph);
  MPZ most;
  bool first = true;
  const MPZ greatest = MPZ::allOnes(width) * MPZ::allOnes(height);
  for (unsigned long i = 0; i < 1ul << width; ++i)
    for (unsigned long j = 0; j < 1ul << height; ++j) {
      const MPZ sum =
          evaluate(std::array{MPZ(i), MPZ(j)})[0].asSigned(static_cast<unsigned long>(sumWidth));
      const MPZ exact = valueOf(i, width, xSigned) * valueOf(j, height, ySigned);
      const MPZ error = sum - exact;
      ASSERT_GE(error, MPZ(0)) << i << " " << j;
      ASSERT_LE(error, product.excess) << i << " " << j;
      if (!xSigned && !ySigned) {
        ASSERT_LE(sum, greatest);
      }
      if (first || error > most) most = error;
      first = false;
    }
  EXPECT_EQ(most, product.excess);
}

TEST(TruncatedProduct, ExceedsTheProductByNoMoreThanItSays) {
  bool leftOut = false;
  for (const bool xSigned : {false, true})
    for (const bool ySigned : {false, true})
      for (const auto& [width, height] : {std::pair{1, 1}, {1, 5}, {4, 3}, {5, 5}, {6, 4}})
        for (const unsigned long room : {0ul, 1ul, 5ul, 8ul, 31ul, 100ul, 255ul, 4000ul})
          checkAll(width, height, xSigned, ySigned, MPZ(room), &leftOut);
  EXPECT_TRUE(leftOut);
}

TEST(TruncatedProduct, LeavesOutWhatTheRoomHolds) {
  const ProductPrices prices;
  for (const bool isSigned : {false, true})
    for (const int width : {16, 24, 32, 53, 64, 113})
      for (const int droppedBits : {width / 2, width, 2 * width - 2}) {
        const ProductShape shape{width, width, isSigned, isSigned};
        const MPZ room = MPZ::allOnes(static_cast<unsigned long>(droppedBits));
        const LeftOut leftOut = planLeftOut(shape, room, prices);
        EXPECT_LE(leftOut.most(), room);
        int x = 0, y = width + 1;
        for (const LeftOut::Corner& corner : leftOut.corners) {
          EXPECT_GT(corner.x, x);
          EXPECT_LT(corner.y, y);
          x = corner.x, y = corner.y;
          EXPECT_LT(std::max(corner.x, corner.y), width + (isSigned ? 0 : 1));
        }
        // Half of a product that takes several blocks need not be built.
        if (width >= 24 && droppedBits == width) {
          EXPECT_GT(leftOut.corners.size(), 0u) << width;
        }
      }
}

}  // namespace
}  // namespace arithmetic
