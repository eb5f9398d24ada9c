#include "backend/functions/float_sine.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "backend/arithmetic/angle_reduction.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/shifter.h"
#include "backend/arithmetic/sine_circuit.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/rounding_gap.h"

namespace functions {

using arithmetic::FloatFormat;
using arithmetic::SineRequest;
using arithmetic::Unpacked;
using graph::Builder;
using graph::Signal;

namespace {

// One of the functions here: what a rounding of it needs to be known by.
struct SineFunction {
  std::string_view name;
  RealFunction f;
  bool isTangentAtZero;  // sin x, which is x - x^3 / 6 or nearer to x
};

constexpr SineFunction kSinePi{"DMFloatSinPiX", ofFirst<mpfr_sinpi>, false};
constexpr SineFunction kSine{"DMFloatSinX", ofFirst<mpfr_sin>, true};

// sin x of |x| < 2^-tinyBits rounds as a number just below x in magnitude: x^2 / 6 is less than
// 2^-(wF + 2), a quarter of an ulp, half of one where x is a power of two.
int tinyBits(int fractionBits) { return (fractionBits + 1) / 2; }
// The exponent field that the normal ones of these are below; nothing where none is normal.
std::optional<int> tinyExponent(const kiln::FloatingPoint& format) {
  const int exponent = (1 << (format.exp - 1)) - 1 - tinyBits(format.frac);
  return exponent > 1 ? std::optional(exponent) : std::nullopt;
}

// Where nothing is known of the hardest results, a rounding of an approximation this near is right
// but within 2^-20 ulp of where it changes.
// An error that is to stay below one unit of a place does.
constexpr double kBelowOne = 1 - 0x1p-12;

// What the angle of a float, reduced to [0, 1/2], comes as: y = m 2^-zeros.
struct Angle {
  Signal sign;         // of the sine of what is not a zero
  Signal zeros;        // unsigned, 0 for y = 1/2 alone
  Signal significand;  // of m
  Signal isZero;
};

// How accurate P = 2^zeros sin(pi y) in [1, pi] has to be. A faithful one is one of the neighbours
// of the exact P on the grid of the results below 2; cut off to a coarser grid, that of a P of 2 or
// more or of a subnormal, it stays one. With u ulps it is at most u - 1 units farther, which no
// coarser grid makes more. For a correct rounding P is told with so many guard bits that nothing
// where the rounding changes lies between it and the exact one, and something follows it.
struct SineAccuracy {
  bool isCorrect = false, isKnown = false;
  int guardBits = 0;
  double promise = 1;  // in units of the guard bits' last place
};
SineAccuracy accuracyOf(const Request& request, const SineFunction& function) {
  const double ulps = ulpsOf(request, 0);
  if (ulps >= 1) return {.promise = ulps * kBelowOne};
  const kiln::FloatingPoint& in = inputFloat(request.signature, 0);
  const auto gap = roundingGap(
      function.name, function.f, in, outputFloat(request.signature, 0), request.subnormals,
      function.isTangentAtZero && tinyExponent(in) ? -tinyBits(in.frac) : kEveryInput);
  if (!gap) return {true, false, kUnknownGap, kBelowOne};
  const bool isNearest = request.rounding.fixed == RoundMode::kNearestEven ||
                         request.rounding.fixed == RoundMode::kNearestAway;
  return {true, true, isNearest ? gap->nearest : gap->directed, kBelowOne};
}

SineRequest sineRequest(const Request& request, const SineAccuracy& accuracy, int angleBits,
                        double angleError) {
  return {.angleBits = angleBits,
          .angleError = angleError,
          .resultLsb = -outputFormat(request, 0).fractionBits - accuracy.guardBits,
          .promise = accuracy.promise,
          .prices = evaluationPrices(request.prices)};
}

// Of a faithful result the last place of a P of 2 or more is cut off, which adds half a unit to
// half the error of the finer grid.
void stateBudget(const Request& request, const SineAccuracy& accuracy,
                 const arithmetic::ErrorBudget& ofSine) {
  const double ulps = ulpsOf(request, 0);
  const bool isNearest = arithmetic::RoundingRule{request.rounding.fixed}.isNearest();
  const auto state = [&](double promise, const std::string& name, int log2Divisor,
                         const char* rounding, int log2Rounding) {
    arithmetic::ErrorBudget budget(promise, name);
    for (const auto& term : ofSine.terms())
      budget.add(term.name, term.numerator, term.log2Denominator + log2Divisor);
    if (*rounding) budget.add(rounding, 1, log2Rounding);
    budget.assertKept(request.budgets);
  };
  if (accuracy.isKnown) {
    state(std::ldexp(1.0, -accuracy.guardBits), "error before a rounding that does not see it",
          accuracy.guardBits, "", 0);
    return arithmetic::stateRounding(request.budgets, isNearest);
  }
  if (accuracy.isCorrect)
    return state((isNearest ? 0.5 : 1) + std::ldexp(1.0, -kUnknownGap), "error", accuracy.guardBits,
                 "rounding", isNearest ? 1 : 0);
  if (ulps > 1) return state(ulps, "error", 0, "", 0);
  state(ulps, "error above", 0, "", 0);
  state(ulps, "error below", 1, "cut", 1);
  if (outputFormat(request, 0).gradual)
    arithmetic::stateSubnormal(request.budgets, ofSine, /*toNearest=*/false);
}

// The sine of `angle`, rounded and packed.
Signal sineOf(Builder& b, const Request& request, std::span<const Signal> inputs, const Unpacked& x,
              const Angle& angle, const SineAccuracy& accuracy, const SineRequest& wanted) {
  const FloatFormat format = outputFormat(request, 0);
  const auto plan = arithmetic::planSine(wanted);
  LOAM_ASSERT(plan, "a sine that was planned before");
  const auto sine = arithmetic::evaluateSine(b, angle.zeros, angle.significand, *plan, wanted);
  stateBudget(request, accuracy, sine.budget);

  Signal p = sine.result.bits;
  Signal isOne = b.bit(false);
  if (ulpsOf(request, 0) != 1) {
    // 1 is exact, as no other sine but zeros, and those next to it stay below it.
    isOne = b.isZero(angle.zeros);
    const Signal isAbove =
        b.bitAnd(b.topBit(p), b.equal(angle.zeros, b.literal(1, angle.zeros.width)));
    const Signal low = b.bitOr(b.slice(p, 0, p.width - 1), b.replicate(isAbove, p.width - 1));
    const Signal high = b.bitAnd(b.topBit(p), b.bitNot(isAbove));
    const auto one = util::MPZ::powerOfTwo(static_cast<unsigned long>(-wanted.resultLsb));
    p = b.select(isOne, b.literal(one, p.width), b.concat({high, low}));
  }
  const Signal isTwoOrMore = b.topBit(p);
  const int least = -(1 << format.exponentBits) - x.format.bias() - x.format.fractionBits;
  const int width = std::max({arithmetic::signedWidth(least, format.maxExponent() + 1),
                              angle.zeros.width + 1, format.exponentBits + 2});
  // bias - zeros
  const Signal exponent = b.addCarry(b.literal(format.bias(), width),
                                     b.bitNot(b.zeroExtend(angle.zeros, width)), b.bit(true));
  arithmetic::Unrounded result{.sign = angle.sign,
                               .exponent = exponent,
                               .significand = p,
                               .sticky = b.bit(false),
                               .isZero = angle.isZero,
                               .isInf = b.bit(false),
                               .isNan = b.bitOr(x.isNan, x.isInf),
                               .canOverflow = false,
                               .leftShift = b.bitNot(isTwoOrMore),
                               .exponentAddend = b.zeroExtend(isTwoOrMore, width)};
  arithmetic::RoundingRule rule{.mode = RoundMode::kTowardZero};
  if (accuracy.isCorrect) {
    rule = roundingOf(request, /*tiesAway=*/false, inputs);
    result.sticky = b.bitNot(isOne);
  }
  if (!format.gradual) return roundAndPack(b, result, format, rule, request.quietNaN);
  result = arithmetic::settled(b, result);
  return roundAndPack(b, denormalise(b, result, format, accuracy.isCorrect), format, rule,
                      request.quietNaN);
}

// Exact: |a| modulo 2 in fixed point, but for |a| < 1/2, which is its own angle.
Angle reduceHalfTurns(Builder& b, const Unpacked& x) {
  const auto scope = b.scope("reduce");
  const FloatFormat& format = x.format;
  const int wF = format.fractionBits, width = format.exponentBits + 2;
  // |a| = significand 2^(places - 1 - wF), 1/2 or more where `places` is not negative.
  const int half = format.bias() - 1;
  const Signal exponent = b.zeroExtend(x.exponent, width);
  const Signal places = b.subtract(exponent, b.literal(half, width));
  const Signal isSmall = b.topBit(places), isReduced = b.bitNot(isSmall);

  const int mostPlaces = wF + 1, amountBits = std::bit_width(static_cast<unsigned>(mostPlaces));
  const Signal amount = b.zeroExtend(b.slice(places, 0, width - 1), amountBits);
  const Signal moved =
      arithmetic::shiftLeft(b, b.zeroExtend(x.significand, wF + 2),
                            b.bitAnd(amount, b.replicate(isReduced, amountBits)), mostPlaces);
  const int compared = std::max(width - 1, amountBits + 1);
  const Signal isInteger =
      b.bitAnd(isReduced, b.less(b.literal(mostPlaces, compared),
                                 b.zeroExtend(b.slice(places, 0, width - 1), compared)));
  const Signal isOdd = b.topBit(moved);
  // In (1/2, 1) the distance to 1 counts; of 1/2 it is the same.
  const Signal mirrors = b.bitAnd(b.bitOf(moved, wF), isReduced);
  const Signal fraction = b.slice(moved, 0, wF + 1);
  const Signal y =
      b.addCarry(b.bitXor(fraction, b.replicate(mirrors, wF + 1)), b.zeros(wF + 1), mirrors);
  const arithmetic::Normalised m = arithmetic::normalise(b, y);
  const Signal isZero = b.bitOr(isInteger, m.allZero);

  // The distance of a small angle's exponent from that of 1/2.
  const Signal distance =
      b.bitAnd(b.subtract(b.literal(half, width), exponent), b.replicate(isSmall, width));
  const int zerosWidth = std::max(width, m.count.width + 1);
  const Signal zeros = b.add(b.zeroExtend(distance, zerosWidth), b.zeroExtend(m.count, zerosWidth));
  return {b.bitXor(x.sign, b.bitAnd(isOdd, b.bitNot(isZero))), zeros, m.bits, isZero};
}

std::vector<Signal> decomposeSinPi(Builder& b, const Request& request,
                                   std::span<const Signal> inputs) {
  const Unpacked x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const SineAccuracy accuracy = accuracyOf(request, kSinePi);
  const SineRequest wanted = sineRequest(request, accuracy, x.format.fractionBits, 0);
  return {sineOf(b, request, inputs, x, reduceHalfTurns(b, x), accuracy, wanted)};
}

std::optional<std::string> refuseSine(const SineRequest& wanted) {
  const auto plan = arithmetic::planSine(wanted);
  if (plan) return std::nullopt;
  return fmt::format("no polynomials are known for a sine of {} bits", -wanted.resultLsb);
}

std::optional<std::string> refuseSinPi(const Request& request) {
  if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
  if (auto reason = refuseMixedForms(request)) return reason;
  return refuseSine(
      sineRequest(request, accuracyOf(request, kSinePi), inputFormat(request, 0).fractionBits, 0));
}

// Of radians the angle is told as precisely as an eighth of the bound's last place asks for.
constexpr int kAngleGuard = 3;
constexpr double kRadianError = 0.625;

struct RadianSine {
  SineAccuracy accuracy;
  SineRequest wanted;
};
RadianSine radianSine(const Request& request) {
  const SineAccuracy accuracy = accuracyOf(request, kSine);
  const int looser = std::max(0, std::ilogb(accuracy.promise));
  const int angleBits = outputFormat(request, 0).fractionBits + accuracy.guardBits + kAngleGuard;
  return {accuracy, sineRequest(request, accuracy, std::max(1, angleBits - looser), kRadianError)};
}

// A sine that is just below x in magnitude, rounded: the number's pattern or the one before it.
Signal roundedBelow(Builder& b, const Request& request, Signal port, const Unpacked& x) {
  const FloatFormat& format = x.format;
  const int bits = format.exponentBits + format.fractionBits;
  const arithmetic::RoundingRule rule{.mode = request.rounding.fixed};
  const Signal isAway = arithmetic::raises(
      b, rule, x.sign, b.bit(false), {rule.isNearest() ? b.bit(true) : b.bit(false), b.bit(true)});
  const Signal magnitude = b.slice(port, 0, bits);
  const Signal rounded = b.add(magnitude, b.replicate(b.bitNot(isAway), bits));
  if (format.gradual) return b.concat({x.sign, rounded});
  const Signal isNormal = b.reduceOr(b.slice(rounded, format.fractionBits, format.exponentBits));
  return b.concat({x.sign, b.bitAnd(rounded, b.replicate(isNormal, bits))});
}

std::vector<Signal> decomposeSin(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  const auto [accuracy, wanted] = radianSine(request);
  const Unpacked x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const arithmetic::RadianPlan plan =
      arithmetic::planRadians(x.format, wanted.angleBits, wanted.prices);
  const auto [m, zeros, isOdd] = arithmetic::reduceRadians(b, x, plan, wanted.prices.product);
  const Angle angle{b.bitXor(x.sign, b.bitAnd(isOdd, b.bitNot(x.isZero))), zeros, m, x.isZero};
  const Signal sine = sineOf(b, request, inputs, x, angle, accuracy, wanted);
  if (!accuracy.isCorrect) return {sine};
  const auto most = tinyExponent(inputFloat(request.signature, 0));
  if (!most) return {sine};
  const int width = x.format.exponentBits;
  const Signal isTiny = b.bitAnd(b.less(x.exponent, b.literal(*most, width)), b.bitNot(x.isZero));
  return {b.select(isTiny, roundedBelow(b, request, inputs[0], x), sine)};
}

enum Number { kNoReduction = 3 };  // place in the variant

std::optional<std::string> refuseSin(const Request& request) {
  if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
  if (request.signature.variant[kNoReduction] != 0)
    return "a sine without range reduction is not built";
  if (auto reason = refuseMixedForms(request)) return reason;
  if (inputFloat(request.signature, 0).is_fp_lib) return "its ports are IEEE-style ones";
  return refuseSine(radianSine(request).wanted);
}

constexpr UnitRow kRows[] = {
    {"DMFloatSinPiX", evaluateReal<kSinePi.f>, decomposeSinPi, refuseSinPi},
    {"DMFloatSinX", evaluateReal<kSine.f>, decomposeSin, refuseSin},
};

}  // namespace

std::span<const UnitRow> floatSineUnits() { return kRows; }

}  // namespace functions
