#include <array>

#include "backend/arithmetic/carry_logic.h"
#include "backend/arithmetic/float_adder.h"
#include "backend/arithmetic/float_adder_parts.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/shifter.h"

namespace arithmetic {

namespace {

// Of an operand of `x`: it may be a zero that only its hidden bit tells.
bool mayBeZeroWithFields(const AddOperands& x, const Unpacked& operand) {
  const FloatFormat& other = &operand == &x.a ? x.b.format : x.a.format;
  return x.zerosHaveFields && zeroFieldsInDualPath(operand.format, other) == ZeroFields::kAsTheyAre;
}

// The operands by exponent alone, which is all that the far path needs: with equal exponents it
// only adds. Both differences are made at once, so that the distance waits for no comparison.
Ordered orderByExponent(Builder& b, const AddOperands& x) {
  // Beside FPLib numbers a zero with fields is the lesser one by its hidden bit.
  const bool tellsZeros = x.zerosHaveFields && (x.a.format.fpLib || x.b.format.fpLib);
  const auto key = [&](const Unpacked& operand) {
    if (!tellsZeros) return b.concat({b.zeros(1), operand.exponent});
    const Signal hidden =
        mayBeZeroWithFields(x, operand) ? b.topBit(operand.significand) : b.bit(true);
    return b.concat({b.zeros(1), hidden, operand.exponent});
  };
  const Signal aMinusB = b.subtract(key(x.a), key(x.b)), bMinusA = b.subtract(key(x.b), key(x.a));
  const Signal swap = b.topBit(aMinusB);
  Ordered result{.swapped = swap,
                 .sign = b.select(swap, x.b.sign, x.a.sign),
                 .exponent = b.select(swap, x.b.exponent, x.a.exponent),
                 .greater = b.select(swap, x.b.significand, x.a.significand),
                 .lesser = b.select(swap, x.a.significand, x.b.significand),
                 .distance = b.slice(b.select(swap, bMinusA, aMinusB), 0, x.a.exponent.width)};
  if (x.zerosHaveFields) result.lesserCounts = b.topBit(result.lesser);
  return result;
}

Unrounded farSum(Builder& b, const AddOperands& operands, const Ordered& ordered,
                 const AlignmentPlan& plan, const FloatFormat& out) {
  const auto scope = b.scope("far_path");
  const Signal sum = addAligned(b, alignOperands(b, ordered, plan), operands.subtracts);
  // One place down after a carry; one up after a borrow, which only a subtraction makes. A sum of
  // subnormals stays where it is, unless the result has none: then it is a regular number of the
  // binade below or less than any.
  const Signal carry = b.topBit(sum), hidden = b.bitOf(sum, sum.width - 2);
  const Signal below = b.bitNot(b.bitOr(carry, hidden));
  const bool losesSubnormals =
      out.fpLib && (operands.a.format.gradual || operands.b.format.gradual);
  const Signal borrowed = losesSubnormals ? below : b.bitAnd(operands.subtracts, below);
  const Signal isZero = losesSubnormals ? b.bitAnd(below, b.bitNot(b.bitOf(sum, sum.width - 3)))
                                        : b.bitAnd(operands.a.isZero, operands.b.isZero);
  const Signal significand = b.pick(
      b.concat({carry, borrowed}), std::array{b.shiftedUp(b.slice(sum, 0, sum.width - 1), 1),
                                              b.shiftedUp(b.slice(sum, 0, sum.width - 2), 2), sum});
  const int width = out.exponentBits + 2;
  // Of zeros with fields the close path knows nothing.
  Signal sign = ordered.sign;
  if (operands.zerosHaveFields)
    sign = b.select(b.bitAnd(isZero, operands.subtracts), roundsDown(b, plan.rounding), sign);
  return {.sign = b.select(operands.isInf, operands.infSign, sign),
          .exponent = b.addCarry(b.zeroExtend(ordered.exponent, width),
                                 b.replicate(borrowed, width), carry),
          .significand = significand,
          .sticky = b.bit(false),
          .isZero = isZero,
          .isInf = operands.isInf,
          .isNan = operands.isNan};
}

struct CloseDifference {
  Unrounded value;
  Signal cancels;  // its top bit is 0: normalised, nothing is left below the significand
};

// a - b for exponents that differ by at most 1; anything otherwise. Their two lowest bits tell
// which one is greater. Both differences are made at once and the one that is not negative is
// taken.
CloseDifference closeDifference(Builder& b, const AddOperands& x, const FloatFormat& out,
                                const RoundingRule& rounding) {
  const auto scope = b.scope("close_path");
  const Signal apart = b.subtract(b.slice(x.a.exponent, 0, 2), b.slice(x.b.exponent, 0, 2));
  const Signal aIsGreater = b.equal(apart, b.literal(1, 2));
  const Signal bIsGreater = b.equal(apart, b.literal(3, 2));
  const auto aligned = [&](Signal significand, Signal down) {
    const Signal zero = b.zeros(1);
    const Signal at = b.select(down, b.concat({zero, significand}), b.concat({significand, zero}));
    return b.concat({zero, at});
  };
  const Signal aAligned = aligned(x.a.significand, bIsGreater);
  const Signal bAligned = aligned(x.b.significand, aIsGreater);
  const Signal aMinusB = b.subtract(aAligned, bAligned), bMinusA = b.subtract(bAligned, aAligned);
  const Signal negative = b.topBit(aMinusB);
  const int width = aMinusB.width - 1;
  const Signal difference = b.slice(b.select(negative, bMinusA, aMinusB), 0, width);

  const Signal exponent = b.select(bIsGreater, x.b.exponent, x.a.exponent);
  const LeadingZeros zeros = countLeadingZeros(b, difference);
  Signal count = zeros.count;
  if (out.gradual)
    count = smaller(b, count, b.add(exponent, b.ones(exponent.width)));  // down to exponent 1
  const int exponentWidth = signedWidth(-width, (1L << exponent.width) + 1);
  Signal significand = shiftLeft(b, difference, count, width - 1);
  // Unless the significands were widened, the lowest bit is 0 whenever this path counts.
  if (x.fractionBits == out.fractionBits) significand = b.slice(significand, 1, width - 1);
  const Signal sign =
      b.select(zeros.allZero, roundsDown(b, rounding), b.select(negative, x.b.sign, x.a.sign));
  const bool narrows = !out.fpLib && (x.a.format.fpLib || x.b.format.fpLib);
  return {.value = {.sign = sign,
                    .exponent = b.subtract(b.zeroExtend(exponent, exponentWidth),
                                           b.zeroExtend(count, exponentWidth)),
                    .significand = significand,
                    .sticky = b.bit(false),
                    .isZero = zeros.allZero,
                    .isInf = b.bit(false),
                    .isNan = b.bit(false),
                    .canOverflow = narrows},
          .cancels = b.bitNot(b.topBit(difference))};
}

}  // namespace

ZeroFields zeroFieldsInDualPath(const FloatFormat& format, const FloatFormat& other) {
  const bool isHiddenLate = !format.fpLib && format.exponentBits > kTableInputs;
  return other.fpLib && isHiddenLate ? ZeroFields::kCleared : ZeroFields::kAsTheyAre;
}

Signal addDualPath(Builder& b, const Unpacked& a, const Unpacked& addend,
                   const FloatAdderOptions& options, ZeroFields zeros) {
  const auto scope = b.scope("dual_path_adder");
  const AddOperands operands = prepareAddition(b, a, addend, options.out, zeros);
  const AlignmentPlan plan = planAlignment(options, operands.fractionBits, /*hasClosePath=*/true);
  const Ordered ordered = orderByExponent(b, operands);
  const Unrounded far = farSum(b, operands, ordered, plan, options.out);
  const CloseDifference close = closeDifference(b, operands, options.out, plan.rounding);

  // A difference at distance 1 that does not cancel has a bit to round: the far path has it.
  const Signal distance = ordered.distance;
  const Signal isNear = b.isZero(b.slice(distance, 1, distance.width - 1));
  const Signal isExact = b.bitOr(b.bitNot(b.bitOf(distance, 0)), close.cancels);
  Signal isSpecial = b.bitOr(operands.isInf, operands.isNan);
  for (const Unpacked* operand : {&operands.a, &operands.b})
    if (mayBeZeroWithFields(operands, *operand)) isSpecial = b.bitOr(isSpecial, operand->isZero);
  const Signal takesClose =
      b.reduceAnd(b.concat({operands.subtracts, isNear, isExact, b.bitNot(isSpecial)}));
  return b.select(takesClose,
                  roundAndPack(b, close.value, options.out, plan.rounding, options.quietNaN),
                  roundAndPack(b, far, options.out, plan.rounding, options.quietNaN));
}

}  // namespace arithmetic
