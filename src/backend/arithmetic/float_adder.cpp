#include "backend/arithmetic/float_adder.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/float_adder_parts.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/shifter.h"
#include "util/failure.h"

namespace arithmetic {

namespace {

// With gradual underflow the lowest FPLib binade lies below the last place of the IEEE-style
// subnormals. It is read as a subnormal with one more fraction bit, so that both kinds share one
// lowest exponent.
void widen(Builder& b, Unpacked& x) {
  const Signal zero = b.zeros(1);
  if (!x.format.fpLib) {
    x.significand = b.concat({x.significand, zero});
    return;
  }
  const Signal isLowest = b.isZero(x.exponent);
  x.significand =
      b.select(isLowest, b.concat({zero, x.significand}), b.concat({x.significand, zero}));
  const int width = x.exponent.width;
  x.exponent =
      b.concat({b.slice(x.exponent, 1, width - 1), b.bitOr(b.bitOf(x.exponent, 0), isLowest)});
}

bool isMixedGradual(const Unpacked& x, const Unpacked& y, const FloatFormat& out) {
  const bool anyGradual = x.format.gradual || y.format.gradual || out.gradual;
  return anyGradual && (x.format.fpLib || y.format.fpLib);
}

}  // namespace

bool mayKeepZeroFields(const FloatFormat& a, const FloatFormat& other, const FloatFormat& out) {
  return !a.gradual && !other.gradual && !out.gradual;
}

AddOperands prepareAddition(Builder& b, const Unpacked& a, const Unpacked& addend,
                            const FloatFormat& out, ZeroFields zeros) {
  for (const FloatFormat& format : {a.format, addend.format})
    LOAM_ASSERT(format.exponentBits == out.exponentBits && format.fractionBits == out.fractionBits,
                "the ports of an adder have equal widths");
  AddOperands result;
  result.a = a;
  result.b = addend;
  result.fractionBits = out.fractionBits;
  result.zerosHaveFields = zeros == ZeroFields::kAsTheyAre;
  LOAM_ASSERT(!result.zerosHaveFields || mayKeepZeroFields(a.format, addend.format, out),
              "formats whose zeros are told by their top bits");
  if (isMixedGradual(a, addend, out)) {
    widen(b, result.a);
    widen(b, result.b);
    ++result.fractionBits;
  }
  result.subtracts = b.bitXor(a.sign, addend.sign);
  const Signal opposed = b.bitAnd(b.bitAnd(a.isInf, addend.isInf), result.subtracts);
  result.isNan = b.bitOr(b.bitOr(a.isNan, addend.isNan), opposed);
  result.isInf = b.bitOr(a.isInf, addend.isInf);
  result.infSign = b.select(a.isInf, a.sign, addend.sign);
  return result;
}

Ordered orderByMagnitude(Builder& b, const AddOperands& x) {
  // The hidden bit counts: it tells a zero from an FPLib number with exponent and fraction 0. It
  // follows from the exponent where every 0 exponent is a zero.
  const bool fpLib = x.a.format.fpLib || x.b.format.fpLib;
  const auto key = [&](const Unpacked& operand) {
    const Signal fraction = b.slice(operand.significand, 0, operand.significand.width - 1);
    if (!fpLib && !operand.format.gradual) return b.concat({operand.exponent, fraction});
    if (x.zerosHaveFields)
      return b.concat({b.topBit(operand.significand), operand.exponent, fraction});
    return b.concat({operand.exponent, operand.significand});
  };
  Ordered result;
  const Signal swap = b.less(key(x.a), key(x.b));
  result.swapped = swap;
  result.sign = b.select(swap, x.b.sign, x.a.sign);
  result.exponent = b.select(swap, x.b.exponent, x.a.exponent);
  result.greater = b.select(swap, x.b.significand, x.a.significand);
  result.lesser = b.select(swap, x.a.significand, x.b.significand);
  // The lower exponent is the one of the two that the higher is not: no choice of its own, for a
  // bit of the subtraction looks at both.
  result.distance =
      b.subtract(result.exponent, b.bitXor(b.bitXor(x.a.exponent, x.b.exponent), result.exponent));
  if (x.zerosHaveFields) result.lesserCounts = b.topBit(result.lesser);
  return result;
}

AlignmentPlan planAlignment(const FloatAdderOptions& options, int fractionBits, bool hasClosePath) {
  AlignmentPlan plan{.rounding = options.rounding, .products = options.alignment};
  if (options.ulps < 1) {
    stateRounding(options.budgets, options.rounding.isNearest());
    return plan;
  }
  plan.guardBits = 1;
  plan.sticky = false;
  plan.rounding = {.mode = RoundMode::kTowardZero};
  // Beyond a distance of 1 the lesser operand loses its bits below 2^far units of the greater one's
  // last place. The result has lost one binade at most, so its ulp is at least half that unit.
  const int far = std::clamp(static_cast<int>(std::floor(std::log2(options.ulps))) - 1, -1,
                             options.out.fractionBits - 1);
  // A widened significand has one more bit below that place; all its inexact results are regular.
  plan.nearBits = far < 0 ? 0 : far + 1 + (fractionBits - options.out.fractionBits);
  // The guard bit then counts at distance 1 only, and there only if a bit cancels.
  if (far >= 0 && hasClosePath) --plan.guardBits, --plan.nearBits;

  // Truncations of the lesser operand and of the result pull a difference in opposite directions;
  // in a sum whatever the one leaves is on the grid of the other.
  ErrorBudget above(options.ulps, "above"), below(options.ulps, "below");
  above.add("alignment", util::MPZ::powerOfTwo(far + 1));
  above.assertKept(options.budgets);
  // A ones' complement is one unit of the last guard place too low, which an exact result feels.
  const int borrow = plan.guardBits > 0 ? 1 : 2;
  plan.farBorrows = !options.onesComplement || options.ulps < borrow + 1;
  if (!plan.farBorrows) below.add("ones' complement", borrow);
  // Wrong, the guard bit adds up to half a unit to what is subtracted, one ulp at most.
  plan.looseGuard = plan.guardBits == 1 && plan.nearBits == 1 && plan.farBorrows;
  if (plan.looseGuard) below.add("guard bit", 1);
  below.add("truncation", 1);
  below.assertKept(options.budgets);
  return plan;
}

namespace {

// The lesser operand where the greater one stands, with guard bits and perhaps a sticky bit below.
Signal alignedLesser(Builder& b, const Ordered& x, const AlignmentPlan& plan) {
  const Signal lesser = b.shiftedUp(x.lesser, plan.guardBits);
  const bool inBlocks = canShiftByProducts(x.lesser.width, plan.products);
  if (plan.looseGuard && !inBlocks) {
    const Signal guard = b.bitAnd(b.bitOf(x.lesser, 0), b.bitOf(x.distance, 0));
    return b.concat({shiftRight(b, x.lesser, x.distance, 0, x.lesserCounts), guard});
  }
  if (!plan.sticky && !inBlocks)
    return shiftRight(b, lesser, x.distance, plan.nearBits, x.lesserCounts);
  const ShiftedRight moved = inBlocks
                                 ? shiftRightByProducts(b, x.lesser, plan.guardBits, x.distance,
                                                        plan.products, x.lesserCounts)
                                 : shiftRightSticky(b, lesser, x.distance, x.lesserCounts);
  return plan.sticky ? b.concat({moved.bits, moved.sticky}) : moved.bits;
}

}  // namespace

Aligned alignOperands(Builder& b, const Ordered& x, const AlignmentPlan& plan) {
  const auto scope = b.scope("align");
  const int below = plan.guardBits + (plan.sticky ? 1 : 0);
  Aligned result;
  result.greater = b.concat({b.zeros(1), x.greater, b.zeros(below)});
  result.borrow = b.bit(true);
  result.lesser = b.concat({b.zeros(1), alignedLesser(b, x, plan)});
  if (!plan.farBorrows && x.distance.width > 1)
    result.borrow = b.isZero(b.slice(x.distance, 1, x.distance.width - 1));
  return result;
}

Signal addAligned(Builder& b, const Aligned& x, Signal subtracts) {
  // Each part by itself, so that it goes into the tables of the addition with what it is made of.
  const graph::Node lesser = b.built().node(x.lesser.node);
  std::vector<Signal> topFirst{x.lesser};
  if (lesser.op == graph::Op::kConcat) {
    topFirst.clear();
    for (const graph::NodeId part : b.built().operands(lesser))
      topFirst.push_back(b.built().signal(part));
  }
  for (Signal& part : topFirst) part = b.bitXor(part, b.replicate(subtracts, part.width));
  return b.addCarry(x.greater, b.concat(topFirst), b.bitAnd(subtracts, x.borrow));
}

namespace {

// 1 - count as a signed number of `width` bits: one table of a count of up to six bits, which an
// addition takes in.
Signal oneMinus(Builder& b, Signal count, int width) {
  if (count.width > 6) return b.subtract(b.literal(1, width), b.zeroExtend(count, width));
  util::MPZ table;
  for (unsigned long i = 0; i < 1ul << count.width; ++i)
    table = table | ((util::MPZ(1) - util::MPZ(i)).lowBits(width) << (i * width));
  return b.lut(count, table, width);
}

}  // namespace

NormalisedSum normaliseSum(Builder& b, Signal sum, Signal exponent, int fractionBits,
                           const FloatFormat& out) {
  const auto scope = b.scope("normalise");
  // Carry, significand and one guard bit. What stands below comes from far operands, whose sum
  // moves by one place at most.
  const int counted = fractionBits + 3;
  const int width = signedWidth(-counted, (1L << exponent.width) + 1);
  if (!out.gradual) {
    const NearlyNormalised normal = normaliseNearly(b, sum, std::min(counted, sum.width));
    return {.exponent = b.zeroExtend(exponent, width),
            .significand = normal.bits,
            .isZero = normal.allZero,
            .leftShift = normal.rest,
            .exponentAddend = oneMinus(b, normal.count, width)};
  }
  const LeadingZeros zeros = countLeadingZeros(b, b.slice(sum, sum.width - counted, counted));
  const Signal count = smaller(b, zeros.count, exponent);
  const Signal next = b.add(b.zeroExtend(exponent, width), b.literal(1, width));
  return {.exponent = b.subtract(next, b.zeroExtend(count, width)),
          .significand = shiftLeft(b, sum, count, counted - 1),
          .isZero = zeros.allZero};
}

Unrounded addSinglePathUnrounded(Builder& b, const Unpacked& a, const Unpacked& addend,
                                 const FloatAdderOptions& options, ZeroFields zeros) {
  const auto scope = b.scope("single_path_adder");
  const AddOperands operands = prepareAddition(b, a, addend, options.out, zeros);
  const AlignmentPlan plan = planAlignment(options, operands.fractionBits, /*hasClosePath=*/false);
  const Ordered ordered = orderByMagnitude(b, operands);
  const Aligned aligned = alignOperands(b, ordered, plan);
  const Signal subtracts = operands.subtracts;
  const Signal sum = addAligned(b, aligned, subtracts);
  const NormalisedSum normal =
      normaliseSum(b, sum, ordered.exponent, operands.fractionBits, options.out);
  const Signal isZero = operands.zerosHaveFields
                            ? b.bitOr(normal.isZero, b.bitNot(b.topBit(ordered.greater)))
                            : normal.isZero;
  // An exact zero from operands of both signs has a sign of its own.
  const Signal known = b.select(operands.isInf, operands.infSign, ordered.sign);
  const Signal isDifference = b.bitAnd(subtracts, b.bitNot(operands.isInf));
  const Signal sign = b.select(b.bitAnd(isZero, isDifference), roundsDown(b, plan.rounding), known);
  return {.sign = sign,
          .exponent = normal.exponent,
          .significand = normal.significand,
          .sticky = b.bit(false),
          .isZero = isZero,
          .isInf = operands.isInf,
          .isNan = operands.isNan,
          .tinyIsExact = true,
          .leftShift = normal.leftShift,
          .exponentAddend = normal.exponentAddend};
}

Signal addSinglePath(Builder& b, const Unpacked& a, const Unpacked& addend,
                     const FloatAdderOptions& options, ZeroFields zeros) {
  const AlignmentPlan plan =
      planAlignment(options, options.out.fractionBits, /*hasClosePath=*/false);
  return roundAndPack(b, addSinglePathUnrounded(b, a, addend, options, zeros), options.out,
                      plan.rounding, options.quietNaN);
}

Signal positiveDifference(Builder& b, const Unpacked& a, Unpacked subtrahend,
                          const FloatAdderOptions& options) {
  const Signal sameInfinity =
      b.bitAnd(b.bitAnd(a.isInf, subtrahend.isInf), b.bitNot(b.bitXor(a.sign, subtrahend.sign)));
  subtrahend.sign = b.bitNot(subtrahend.sign);
  const AlignmentPlan plan =
      planAlignment(options, options.out.fractionBits, /*hasClosePath=*/false);
  Unrounded x = addSinglePathUnrounded(b, a, subtrahend, options);
  const Signal notPositive = b.bitOr(x.sign, sameInfinity);
  x.isZero = b.bitOr(x.isZero, notPositive);
  x.isInf = b.bitAnd(x.isInf, b.bitNot(notPositive));
  x.isNan = b.bitOr(a.isNan, subtrahend.isNan);
  x.sign = b.bit(false);
  return roundAndPack(b, x, options.out, plan.rounding, options.quietNaN);
}

}  // namespace arithmetic
