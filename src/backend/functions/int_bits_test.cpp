#include "backend/functions/int_bits.h"

#include "backend/functions/integer_unit_test.h"

namespace functions {
namespace {

const UnitRow& counter() { return bitUnits()[0]; }
const UnitRow& shifter() { return bitUnits()[1]; }

Signature count(int width) {
  return {.in = {integers(width, false)}, .out = {integers(width, false)}, .variant = {}};
}

MPZ ones(const std::vector<MPZ>& values) {
  return MPZ(static_cast<unsigned long>(mpz_popcount(values[0].get())));
}

Signature shift(int width, long most, bool isSigned) {
  const int bits = static_cast<int>(MPZ(width).bitLength());
  return {.in = {integers(width, isSigned), integers(bits, false)},
          .out = {integers(width, isSigned)},
          .variant = {{most}}};
}

IntegerUnit::Function shiftedBy(long most) {
  return [most](const std::vector<MPZ>& values) {
    const long count = std::min(most, static_cast<long>(values[1].toUint64()));
    MPZ quotient;
    mpz_fdiv_q(quotient.get(), values[0].get(), MPZ::powerOfTwo(count).get());
    return quotient;
  };
}

TEST(PopulationCount, IsExact) {
  for (int width = 1; width <= 13; ++width) IntegerUnit(counter(), count(width)).checkAll(ones);
  for (const int width : {33, 64, 65, 128, 256, 521, 4096})
    IntegerUnit(counter(), count(width)).checkCornersAndDraws(ones, 40);
}

TEST(RightShift, IsExactForAllInputsOfSmallWidths) {
  for (const bool isSigned : {false, true})
    for (int width = 1; width <= 8; ++width)
      for (const long most : {0, 1, 2, 3, 4, 5, 7, 8, 15, 16, 1000})
        IntegerUnit(shifter(), shift(width, most, isSigned)).checkAll(shiftedBy(most));
}

TEST(RightShift, IsExactForCornersAndDrawsOfWideInputs) {
  for (const bool isSigned : {false, true})
    for (const int width : {33, 64, 65, 256, 521})
      for (const long most : {5, 31, 64, 127, 150, 521})
        IntegerUnit(shifter(), shift(width, most, isSigned))
            .checkCornersAndDraws(shiftedBy(most), 100);
}

// 31 shifts of a 32-bit word: two levels of four ways, and one for the last bit and the limit.
TEST(RightShift, TakesTwoBitsOfTheShiftALevel) {
  const IntegerUnit unit(shifter(), shift(32, 31, false));
  int picks = 0, selects = 0;
  for (const graph::Node& node : unit.graph().nodes()) {
    picks += node.op == graph::Op::kPick;
    selects += node.op == graph::Op::kSelect;
  }
  EXPECT_EQ(picks, 3);
  EXPECT_EQ(selects, 0);
}

}  // namespace
}  // namespace functions
