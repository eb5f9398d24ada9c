#include "backend/arithmetic/float_root.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/shifter.h"

namespace arithmetic {

using util::MPZ;

namespace {

// A candidate is nearer than one unit, so that a root that has the form of one is its own.
constexpr double kLessThanOne = 1 - 0x1p-20;

enum class Manner {
  kDirect,   // the candidate is the result
  kNearest,  // the candidate has one bit more, and is right where that is 0
  kFloor,    // the candidate is one less: the result is that or the next one
  kCeiling,  // the result is the candidate or the next one
  kBySign,   // kFloor, and one more for one of the signs
};

Manner mannerOf(const FloatRoot& how) {
  if (how.ulps >= 1) return Manner::kDirect;
  switch (how.rounding) {
    case RoundMode::kNearestEven:
    case RoundMode::kNearestAway:
      return Manner::kNearest;
    case RoundMode::kTowardZero:
      return Manner::kFloor;
    case RoundMode::kDown:
      return how.root == Root::kReciprocal ? Manner::kBySign : Manner::kFloor;
    case RoundMode::kUp:
      return how.root == Root::kReciprocal ? Manner::kBySign : Manner::kCeiling;
  }
  LOAM_ASSERT(false, "a rounding mode");
}

// The exponent of a result in [1, 2) for an operand of exponent `e`, both biased. The bias is odd,
// so an odd exponent is an even power of two.
long exponentOf(const FloatRoot& how, long e) {
  const long bias = how.in.bias(), half = (e >> 1) + (e & 1) + (bias - 1) / 2;
  switch (how.root) {
    case Root::kReciprocal:
      return 2 * bias - 1 - e;
    case Root::kSquareRoot:
      return half;
    case Root::kReciprocalSquareRoot:
      return 2 * bias - 1 - half;
  }
  return 0;
}

// What is settled before anything is built.
struct RootPlan {
  Manner manner = Manner::kDirect;
  RootRequest request;
  PlannedFunction function;
  RootComparison comparison;
  long lowest = 0, highest = 0;  // exponents of results in [1, 2)
  int places = 0;                // most places by which a subnormal result is cut

  int pointPlace() const { return -request.resultLsb; }
};

RootComparison comparisonOf(const FloatRoot& how, const RootPlan& plan) {
  const int wF = how.in.fractionBits, point = plan.pointPlace();
  // The candidate, its lowest s bits cut, is less than 2^s away from the root in units of its last
  // place, and neither exceeds 2 = 2^(point + 1) units.
  RootComparison comparison{
      .root = how.root,
      .plusOne = plan.manner == Manner::kFloor || plan.manner == Manner::kBySign,
      .prices = how.prices.product};
  switch (how.root) {
    case Root::kReciprocal:
      // T m < 2^(point + 1), and m < 2^(wF + 1) units.
      comparison.scale = point + wF + 1;
      comparison.logDifference = wF + 1 + plan.places;
      break;
    case Root::kSquareRoot:
      // T^2 < 2^(2 point) u; |T^2 - r^2| = |T - r| (T + r).
      comparison.scale = 2 * point - wF;
      comparison.logDifference = point + 2 + plan.places;
      break;
    case Root::kReciprocalSquareRoot:
      // T^2 u < 2^(2 point + 2). With the root r and |T - r| < d <= 2^point, (T + r) u is at most
      // (2 r + d) u = 2^point 4 sqrt(u) + d u <= 12 * 2^point.
      comparison.scale = 2 * point + 2 + wF;
      comparison.logDifference = point + wF + 4 + plan.places;
      break;
  }
  return comparison;
}

util::Result<RootPlan> planOf(const FloatRoot& how) {
  RootPlan plan;
  const int wF = how.in.fractionBits;
  plan.manner = mannerOf(how);
  const long least = how.in.minExponent() - (how.in.gradual ? wF : 0);
  const auto [low, high] =
      std::minmax({exponentOf(how, least), exponentOf(how, how.in.maxExponent())});
  plan.lowest = low, plan.highest = high;
  if (how.out.gradual)
    plan.places = static_cast<int>(std::max(0L, how.out.minExponent() - plan.lowest));

  plan.request = {.root = how.root,
                  .fractionBits = wF,
                  .resultLsb = -wF,
                  .promise = kLessThanOne,
                  .lowered = plan.manner == Manner::kFloor || plan.manner == Manner::kBySign,
                  .prices = how.prices};
  if (plan.manner == Manner::kNearest) plan.request.resultLsb = -(wF + 1);
  if (plan.manner == Manner::kDirect) {
    // A larger bound makes the candidate's last place coarser.
    const int coarser = std::min(std::ilogb(how.ulps), wF - 1);
    plan.request.resultLsb += coarser;
    plan.request.promise *= std::ldexp(how.ulps, -coarser);
  }
  plan.comparison = comparisonOf(how, plan);
  auto function = planFunction(polynomialOf(plan.request));
  if (plan.manner == Manner::kNearest && plan.places == 0 && wF + 1 <= kMostCompetingBits) {
    // A table within half an ulp has the nearest number, for no root is halfway between two.
    RootPlan direct = plan;
    direct.manner = Manner::kDirect;
    direct.request.resultLsb = -wF;
    direct.request.promise = 0.5;
    auto table = planFunction(polynomialOf(direct.request));
    const double compared = priceOf(plan.comparison, wF + 2, wF + 2);
    if (table && (!function || table->price < function->price + compared)) {
      direct.function = std::move(*table);
      return direct;
    }
  }
  if (!function) return function.failure();
  plan.function = std::move(*function);
  return plan;
}

class Circuit {
 public:
  Circuit(Builder& b, const Unpacked& x, const FloatRoot& how)
      : b(b), x(x), how(how), plan(*planOf(how)), wF(how.in.fractionBits) {}

  Signal build() {
    const auto scope = b.scope("root");
    readOperand();
    Signal c = candidate();
    exponent = resultExponent();
    Signal t = c;
    if (plan.places > 0) {
      // A subnormal result has as many places less; its field is that of the lowest binade less
      // one, to which the bit that a normal one has adds one.
      const Signal lowest = b.literal(how.out.minExponent() - 1, exponent.width);
      const Signal isBelow = b.lessSigned(exponent, lowest);
      const int bits = bitsFor(plan.places);
      const Signal distance =
          b.bitAnd(b.slice(b.subtract(lowest, exponent), 0, bits), b.replicate(isBelow, bits));
      c = shiftRight(b, c, distance);
      const Signal keeps = shiftLeft(b, b.ones(plan.places), distance, plan.places);
      const Signal low = b.slice(t, 0, plan.places);
      t = b.concat(
          {b.slice(t, plan.places, t.width - plan.places),
           plan.comparison.plusOne ? b.bitOr(low, b.bitNot(keeps)) : b.bitAnd(low, keeps)});
      exponent = b.select(isBelow, lowest, exponent);
    }
    return packed(c, isRaised(c, t));
  }

 private:
  static int bitsFor(int value) {
    int bits = 1;
    while (value >> bits > 0) ++bits;
    return bits;
  }

  void readOperand() {
    const long least = how.in.minExponent() - (how.in.gradual ? wF : 0);
    const int width = signedWidth(std::min(0L, least), how.in.maxExponent());
    operandExponent = b.zeroExtend(x.exponent, width);
    significand = b.concat({b.bit(true), b.slice(x.significand, 0, wF)});
    if (how.in.gradual) {
      const Normalised moved = normalise(b, x.significand);
      significand = b.concat({b.bit(true), b.slice(moved.bits, 0, wF)});
      operandExponent = b.subtract(operandExponent, b.zeroExtend(moved.count, width));
    }
    isOdd = b.bitNot(b.bitOf(operandExponent, 0));
  }

  // In [1, 2], or one unit less, with two bits before the point.
  Signal candidate() {
    const Signal argument = rootArgument(b, plan.request, b.slice(significand, 0, wF), isOdd);
    const EvaluatedFunction f =
        evaluateFunction(b, argument, plan.function, polynomialOf(plan.request));
    const int bits = plan.pointPlace() + 2;
    const Signal c =
        f.result.isSigned() ? b.signExtend(f.result.bits, bits) : b.zeroExtend(f.result.bits, bits);
    if (how.ulps < 1) {
      stateRounding(how.budgets, how.rounding == RoundMode::kNearestEven ||
                                     how.rounding == RoundMode::kNearestAway);
      return c;
    }
    const int coarser = wF - plan.pointPlace();
    ErrorBudget budget(how.ulps);
    for (const ErrorBudget::Term& term : f.budget.terms())
      budget.add(term.name, term.numerator << static_cast<unsigned long>(coarser),
                 term.log2Denominator);
    budget.assertKept(how.budgets);
    if (plan.places > 0) stateSubnormal(how.budgets, budget, /*toNearest=*/false);
    return b.shiftedUp(c, coarser);
  }

  // Of a result below 1, one less than exponentOf(); the candidate's bits before the point are
  // still to be added.
  Signal resultExponent() {
    const int width = signedWidth(std::min(-2L, plan.lowest - 2),
                                  std::max<long>(plan.highest + 2, how.out.maxExponent() + 1));
    const Signal odd = b.bitOf(operandExponent, 0);
    const Signal half = b.signExtend(b.slice(operandExponent, 1, operandExponent.width - 1), width);
    const auto constant = [&](long value) { return b.literal(value, width); };
    switch (how.root) {
      case Root::kReciprocal:
        return b.addCarry(b.bitNot(b.signExtend(operandExponent, width)),
                          constant(exponentOf(how, 0) - 1), b.bit(true));
      case Root::kSquareRoot:
        return b.addCarry(half, constant(exponentOf(how, 0) - 1), odd);
      case Root::kReciprocalSquareRoot:
        return b.addCarry(b.bitNot(half), constant(exponentOf(how, 0) - 1), b.bitNot(odd));
    }
    return {};
  }

  bool roundsAwayIfNegative() const { return how.rounding == RoundMode::kDown; }

  // 1 when the rounded result is one unit more than what the candidate says.
  Signal isRaised(Signal c, Signal t) {
    if (plan.manner == Manner::kDirect) return b.bit(false);
    Signal orEqual = b.bit(plan.comparison.plusOne);
    if (plan.manner == Manner::kBySign) orEqual = b.bitNot(roundsAway());
    if (plan.manner == Manner::kNearest && plan.places == 0)
      t = b.concat({b.slice(t, 1, t.width - 1), b.bit(true)});  // an even one is not asked
    const Signal operand =
        how.root == Root::kReciprocal
            ? significand
            : b.select(isOdd, b.shiftedUp(significand, 1), b.zeroExtend(significand, wF + 2));
    const Signal isBelow = isBelowRoot(b, t, operand, orEqual, plan.comparison);
    return plan.manner == Manner::kNearest ? b.bitAnd(b.bitOf(c, 0), isBelow) : isBelow;
  }
  Signal roundsAway() const { return roundsAwayIfNegative() ? x.sign : b.bitNot(x.sign); }

  Signal packed(Signal c, Signal oneMore) {
    if (plan.manner == Manner::kNearest) c = b.slice(c, 1, c.width - 1);
    if (plan.manner == Manner::kBySign) c = b.add(c, b.zeroExtend(roundsAway(), c.width));
    const bool isReciprocal = how.root == Root::kReciprocal;
    const bool isRoot = how.root == Root::kSquareRoot;
    const Signal none = b.bit(false);
    const Signal isNegative = isReciprocal ? none : b.bitAnd(x.sign, b.bitNot(x.isZero));
    const Signal isInf = b.bitAnd(x.isInf, b.bitNot(isNegative));
    Unrounded result{.sign = x.sign,
                     .exponent = exponent,
                     .significand = b.concat({b.bit(true), b.slice(c, 0, wF)}),
                     .sticky = none,
                     .isZero = isRoot ? x.isZero : isInf,
                     .isInf = isRoot ? isInf : x.isZero,
                     .isNan = b.bitOr(x.isNan, isNegative),
                     .canOverflow = plan.highest + 1 > how.out.maxExponent(),
                     .oneMore = oneMore};
    FloatFormat format = how.out;
    format.gradual = plan.places > 0;
    result.exponentAddend = b.zeroExtend(b.slice(c, wF, 2), exponent.width);
    if (format.gradual) result = settled(b, result);
    if (!result.canOverflow && plan.lowest >= how.out.minExponent())
      result.range = ExponentRange{none, none, none, none, none};
    return roundAndPack(b, result, format, {.mode = RoundMode::kTowardZero}, how.quietNaN);
  }

  Builder& b;
  const Unpacked& x;
  const FloatRoot& how;
  const RootPlan plan;
  const int wF;
  Signal operandExponent, significand, isOdd, exponent;
};

}  // namespace

std::optional<std::string> refuseFloatRoot(const FloatRoot& how) {
  const auto plan = planOf(how);
  if (plan) return std::nullopt;
  return fmt::format("wF {} is more than its approximations serve: {}", how.in.fractionBits,
                     plan.failure().message);
}

Signal rootOfFloat(Builder& b, const Unpacked& x, const FloatRoot& how) {
  return Circuit(b, x, how).build();
}

}  // namespace arithmetic
