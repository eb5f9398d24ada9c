#include "backend/arithmetic/float_multiplier.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>

#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/leading_zeros.h"

namespace arithmetic {

using util::MPZ;

namespace {

double truncatedCost(int aWidth, int bWidth, const TruncationPlan& plan,
                     const ProductPrices& prices) {
  const ProductPlan high =
      planProduct({.x = aWidth - plan.a, .y = bWidth, .xSigned = false, .ySigned = false}, prices);
  if (plan.a == 0 || plan.b == 0) return priceOf(high, prices);
  const ProductPlan low = planProduct(
      {.x = plan.a, .y = bWidth - plan.b, .xSigned = false, .ySigned = false}, prices, high.blocks);
  // One more addition joins the two products, over all bits but the lowest of either.
  return high.luts + low.luts + prices.priceOf(high.blocks + low.blocks) + aWidth + bWidth -
         std::min(plan.a, plan.b);
}

// A number of product bits that may be left out, and the power of two that is put in their place.
struct Allowance {
  int bits = 0;
  MPZ correction;
};
// Leaving out less than 2^bits and adding a correction c errs by -2^bits + c to c, then the
// truncation by less than one ulp, 2^droppedBits. The correction must not carry beyond the product.
Allowance allowanceOf(int aWidth, int bWidth, const TruncationGoal& goal) {
  const auto whole = static_cast<unsigned>(std::min(goal.ulps, 1e6));
  const int room = std::min(aWidth, bWidth);
  // floor(log2(whole - 1)); for 1 ulp the bit below, since 0 < c - left out < 1 ulp is asked then.
  const int extra = static_cast<int>(std::bit_width(whole - 1)) - 1;
  const int full = goal.droppedBits + extra;
  if (whole == 1 || goal.keepsUp) {
    const int bits = std::min(full, room);
    return bits < 0 ? Allowance{} : Allowance{bits, MPZ::powerOfTwo(bits)};
  }
  const int centred = std::min(full + 1, room + 1);
  if (std::max(centred, full) < 1) return {};
  return centred > full ? Allowance{centred, MPZ::powerOfTwo(centred - 1)} : Allowance{full, {}};
}

// The result lies in (product - left out + correction - 1 ulp, product + correction]. At 1 ulp both
// sides stay below one place, so a product on the grid is its own result.
void assertBudget(const Allowance& allowance, const TruncationGoal& goal) {
  const int scale = std::max(0, goal.droppedBits), up = std::max(0, -goal.droppedBits);
  ErrorBudget below(goal.ulps, "below"), above(goal.ulps, "above");
  if (allowance.bits > 0)
    below.add("corner left out", (MPZ::powerOfTwo(allowance.bits) - allowance.correction) << up,
              scale);
  below.add("truncation", 1);
  below.assertKept(goal.budgets);
  if (allowance.correction.isZero()) return;
  above.add("correction", allowance.correction << up, scale);
  above.assertKept(goal.budgets);
}

Signal truncatedProduct(Builder& b, Signal x, Signal y, const TruncationGoal& goal,
                        const ProductPrices& prices) {
  const TruncationPlan plan = planTruncation(x.width, y.width, goal, prices);
  if (plan.a == 0 || plan.b == 0) return b.multiply(x, y);
  const auto scope = b.scope("truncated_product");
  const Signal high = b.multiply(b.slice(x, plan.a, x.width - plan.a), y);
  const Signal low = b.multiply(b.slice(x, 0, plan.a), b.slice(y, plan.b, y.width - plan.b));
  const int width = x.width + y.width;
  return b.heap(std::array{graph::HeapTerm{high, plan.a}, graph::HeapTerm{low, plan.b},
                           graph::HeapTerm{b.literal(plan.correction, width), 0}},
                width);
}

}  // namespace

TruncationPlan planTruncation(int aWidth, int bWidth, const TruncationGoal& goal,
                              const ProductPrices& prices) {
  const Allowance allowance = allowanceOf(aWidth, bWidth, goal);
  TruncationPlan best;
  double lowest = truncatedCost(aWidth, bWidth, best, prices);
  for (int a = 1; a < aWidth && a < allowance.bits; ++a) {
    const TruncationPlan plan{a, std::min(allowance.bits - a, bWidth - 1), allowance.correction};
    if (const double cost = truncatedCost(aWidth, bWidth, plan, prices); cost < lowest)
      lowest = cost, best = plan;
  }
  assertBudget(best.a > 0 ? allowance : Allowance{}, goal);
  return best;
}

namespace {

// x >= least, unsigned.
Signal atLeast(Builder& b, Signal x, long least) {
  if (least <= 0) return b.bit(true);
  if (least >= 1L << x.width) return b.bit(false);
  Signal result = b.bit(true);  // for no bits
  for (int i = 0; i < x.width; ++i)
    result = least >> i & 1 ? b.bitAnd(b.bitOf(x, i), result) : b.bitOr(b.bitOf(x, i), result);
  return result;
}

}  // namespace

Unpacked normalised(Builder& b, Unpacked x, int exponentWidth) {
  x.exponent = b.zeroExtend(x.exponent, exponentWidth);
  if (!x.format.gradual) return x;
  const Normalised significand = normalise(b, x.significand);
  x.significand = significand.bits;
  x.exponent = b.subtract(x.exponent, b.zeroExtend(significand.count, exponentWidth));
  return x;
}

ExponentRange exponentRange(Builder& b, Signal sum, long rebias, Signal raised,
                            const FloatFormat& out) {
  const long top = out.maxExponent() - rebias, bottom = out.minExponent() - 1 - rebias;
  const Signal toTop = atLeast(b, sum, top), aboveTop = atLeast(b, sum, top + 1);
  const Signal toBottom = atLeast(b, sum, bottom), aboveBottom = atLeast(b, sum, bottom + 1);
  return {.above = aboveTop,
          .atTop = b.bitAnd(toTop, b.bitNot(aboveTop)),
          .below = b.bitNot(toBottom),
          .atBottom = b.bitAnd(toBottom, b.bitNot(aboveBottom)),
          .raised = raised};
}

namespace {

// x y + half of the last place of a result below 2, which the product has room for. Nothing
// otherwise.
std::optional<Signal> productAndHalf(Builder& b, Signal x, Signal y, int half) {
  const int width = x.width + y.width;
  const MPZ most = MPZ::allOnes(x.width) * MPZ::allOnes(y.width);
  if (half < 0 || most + MPZ::powerOfTwo(half) >= MPZ::powerOfTwo(width)) return std::nullopt;
  return b.heap(std::array{graph::HeapTerm{b.multiply(x, y), 0},
                           graph::HeapTerm{b.literal(MPZ::powerOfTwo(half), width), 0}},
                width);
}

}  // namespace

UnroundedProduct multiplyFloatsUnrounded(Builder& b, const Unpacked& a, const Unpacked& factor,
                                         const FloatMultiplierOptions& options) {
  const auto scope = b.scope("multiplier");
  const FloatFormat& out = options.out;
  const auto highest = [](const FloatFormat& format) { return (1L << format.exponentBits) - 1; };
  // Exponents as the result's port has them.
  const long rebias = static_cast<long>(out.bias()) - a.format.bias() - factor.format.bias();
  const long least = rebias - a.format.fractionBits - factor.format.fractionBits;
  const long most = rebias + highest(a.format) + highest(factor.format);
  const int width =
      std::max({signedWidth(least - 1, most + 2), signedWidth(rebias, 0), out.exponentBits + 1,
                signedWidth(0, highest(a.format) + highest(factor.format))});
  const Unpacked x = normalised(b, a, width), y = normalised(b, factor, width);

  const bool truncates = options.ulps >= 1;
  if (!truncates) stateRounding(options.budgets, options.rounding.isNearest());
  TruncationGoal goal{a.format.fractionBits + factor.format.fractionBits - out.fractionBits,
                      options.ulps, out.gradual, options.budgets};
  // Beside subnormals an FPLib result is a zero or a regular number as the exact product says.
  if (out.fpLib && (a.format.gradual || factor.format.gradual)) goal.ulps = 1;
  const bool isGradual = a.format.gradual || factor.format.gradual || out.gradual;
  const auto withHalf = !truncates && !isGradual && options.rounding.isNearest()
                            ? productAndHalf(b, x.significand, y.significand, goal.droppedBits - 1)
                            : std::nullopt;
  const Signal full = withHalf ? *withHalf
                      : truncates
                          ? truncatedProduct(b, x.significand, y.significand, goal, options.prices)
                          : b.multiply(x.significand, y.significand);
  const Signal isTwoOrMore = b.topBit(full);
  const RoundingRule rounding =
      truncates ? RoundingRule{.mode = RoundMode::kTowardZero} : options.rounding;
  Unrounded result{
      .sign = b.bitXor(a.sign, factor.sign),
      .exponent = {},
      .significand = full,
      .sticky = b.bit(false),
      .isZero = b.bitOr(a.isZero, factor.isZero),
      .isInf = b.bitOr(a.isInf, factor.isInf),
      .isNan = b.bitOr(b.bitOr(a.isNan, factor.isNan),
                       b.bitOr(b.bitAnd(a.isZero, factor.isInf), b.bitAnd(a.isInf, factor.isZero))),
      .leftShift = b.bitNot(isTwoOrMore)};
  result.halfAdded = withHalf.has_value();
  result.codesKind = options.codesKind;
  const bool isKnown = !isGradual && (withHalf || truncates);
  const MPZ topOfField = MPZ::powerOfTwo(static_cast<unsigned long>(out.exponentBits - 1));
  const auto range = [&](long offset) {
    return exponentRange(b, b.slice(result.exponent, 0, width - 1), offset, isTwoOrMore, out);
  };
  if (isKnown &&
      MPZ(rebias - 1).lowBits(static_cast<unsigned long>(out.exponentBits)) == topOfField) {
    // With a carry in, one bit of the field is all that is left of the biases.
    result.exponent = b.addCarry(x.exponent, y.exponent, b.bit(true));
    result.range = range(rebias - 1);
    result.exponent = b.bitXor(result.exponent, b.literal(topOfField, width));
    result.exponentAddend = isTwoOrMore;
  } else {
    const auto bits = static_cast<unsigned long>(width);
    const MPZ offsets = (MPZ(rebias + 1).lowBits(bits) << bits) | MPZ(rebias).lowBits(bits);
    result.exponent = b.add(x.exponent, y.exponent);
    if (isKnown) result.range = range(rebias);
    result.exponentAddend = b.lut(isTwoOrMore, offsets, width);
  }
  if (out.gradual) result = denormalise(b, settled(b, result), out, /*needsSticky=*/!truncates);
  return {result, rounding};
}

Signal multiplyFloats(Builder& b, const Unpacked& a, const Unpacked& factor,
                      const FloatMultiplierOptions& options) {
  const auto product = multiplyFloatsUnrounded(b, a, factor, options);
  return roundAndPack(b, product.value, options.out, product.rounding, options.quietNaN);
}

}  // namespace arithmetic
