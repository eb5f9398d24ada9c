#include "backend/arithmetic/float_adder.h"
#include "backend/arithmetic/float_adder_parts.h"

namespace arithmetic {

SumAndDifference addAndSubtract(Builder& b, const Unpacked& a, const Unpacked& other,
                                const FloatAdderOptions& options) {
  const auto scope = b.scope("add_and_subtract");
  const AddOperands operands = prepareAddition(b, a, other, options.out);
  const AlignmentPlan plan = planAlignment(options, operands.fractionBits, /*hasClosePath=*/false);
  const Ordered ordered = orderByMagnitude(b, operands);
  const Aligned aligned = alignOperands(b, ordered, plan);

  // Where magnitudes are added the second operand counts with the sign of the first, where they are
  // subtracted with the opposite one. The sum adds unless the signs differ.
  const auto rounded = [&](bool subtracts, Signal sign, Signal zeroSign, Signal infSign,
                           Signal isNan) {
    const NormalisedSum normal = normaliseSum(b, addAligned(b, aligned, b.bit(subtracts)),
                                              ordered.exponent, operands.fractionBits, options.out);
    return roundAndPack(
        b,
        {.sign = b.select(operands.isInf, infSign, b.select(normal.isZero, zeroSign, sign)),
         .exponent = normal.exponent,
         .significand = normal.significand,
         .sticky = b.bit(false),
         .isZero = normal.isZero,
         .isInf = operands.isInf,
         .isNan = isNan,
         .leftShift = normal.leftShift,
         .exponentAddend = normal.exponentAddend},
        options.out, plan.rounding, options.quietNaN);
  };
  const Signal anyNan = b.bitOr(a.isNan, other.isNan);
  const Signal added = rounded(false, a.sign, a.sign, a.sign, anyNan);
  const Signal subtracted =
      rounded(true, b.bitXor(a.sign, ordered.swapped), roundsDown(b, plan.rounding),
              b.bitXor(a.sign, b.bitNot(a.isInf)), b.bitOr(anyNan, b.bitAnd(a.isInf, other.isInf)));
  const Signal differ = operands.subtracts;
  return {.sum = b.select(differ, subtracted, added),
          .difference = b.select(differ, added, subtracted)};
}

}  // namespace arithmetic
