#include "backend/functions/int_product.h"

#include "backend/functions/integer_unit_test.h"

namespace functions {
namespace {

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

// Mapping recognises a square by its equal operands.
TEST(IntegerProduct, LeavesASquareToBeFolded) {
  const IntegerUnit unit(row(), square(68));
  const graph::Node& node = unit.graph().node(unit.graph().outputs()[0].signal.node);
  ASSERT_EQ(node.op, graph::Op::kMultiply);
  EXPECT_EQ(unit.graph().operands(node)[0], unit.graph().operands(node)[1]);
}

}  // namespace
}  // namespace functions
