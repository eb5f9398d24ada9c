#include "backend/functions/int_product.h"

#include "backend/functions/integer_unit_test.h"

namespace functions {
namespace {

using util::MPZ;

const UnitRow& row() { return integerProductUnits()[0]; }

Signature product(int widthX, bool signX, int widthY, bool signY) {
  return {.in = {integers(widthX, signX), integers(widthY, signY)},
          .out = {integers(widthX + widthY, signX || signY)},
          .variant = {{2}}};
}

Signature square(int width) {
  return {.in = {integers(width, false)}, .out = {integers(2 * width, false)}, .variant = {{19}}};
}

MPZ times(const std::vector<MPZ>& values) { return values.front() * values.back(); }

TEST(IntegerProduct, IsExactForAllInputsOfSmallWidths) {
  for (const bool signX : {false, true})
    for (const bool signY : {false, true})
      for (int widthX = 1; widthX <= 5; ++widthX)
        for (int widthY = 1; widthY <= 5; ++widthY)
          IntegerUnit(row(), product(widthX, signX, widthY, signY)).checkAll(times);
  for (int width = 1; width <= 8; ++width) IntegerUnit(row(), square(width)).checkAll(times);
}

TEST(IntegerProduct, IsExactForCornersAndDrawsOfWideFactors) {
  for (const int width : {33, 64, 65, 128, 256, 521, 1024}) {
    for (const bool signX : {false, true})
      for (const bool signY : {false, true})
        IntegerUnit(row(), product(width, signX, width / 2 + 1, signY))
            .checkCornersAndDraws(times, 20);
    IntegerUnit(row(), square(width)).checkCornersAndDraws(times, 20);
  }
}

// 68 bits are four limbs of 17: ten tiles where a product has sixteen of them.
TEST(IntegerProduct, FoldsASquare) {
  const IntegerUnit unit(row(), square(68));
  int tiles = 0;
  for (const graph::Node& node : unit.graph().nodes()) {
    if (node.op != graph::Op::kMultiply) continue;
    ++tiles;
    EXPECT_LE(node.width, 24 + 17);
  }
  EXPECT_EQ(tiles, 10);
}

TEST(IntegerProduct, RefusesWhatItCannotBuild) {
  EXPECT_EQ(refusal(row(), product(1025, false, 8, false)), "width 1025 is out of range 1 to 1024");
  EXPECT_EQ(refusal(row(), product(8, false, 0, true)), "width 0 is out of range 1 to 1024");
  EXPECT_EQ(refusal(row(), square(-1)), "width -1 is out of range 1 to 1024");
}

}  // namespace
}  // namespace functions
