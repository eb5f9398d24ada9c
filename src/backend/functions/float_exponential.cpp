#include "backend/functions/float_exponential.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "backend/arithmetic/constant_multiplier.h"
#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/function_circuit.h"
#include "backend/arithmetic/shifter.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/function_precision.h"
#include "backend/functions/real_function.h"
#include "util/failure.h"

// b^x = 2^k 2^f for x log2 b = k + f with 0 <= f < 1: the significand times log2 b, shifted to a
// fixed-point number, gives both, and 2^f needs no normalisation. For negative x all bits of the
// shifted product are inverted; read as the middles of its steps, products then are symmetric.
namespace functions {

using arithmetic::FloatFormat;
using arithmetic::Unpacked;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

struct Base {
  std::string_view unit;
  RealFunction power;
  int base;          // 0 stands for e
  double log2Below;  // log2 of it, or less
  int leastBits;     // |x| log2 b is below 2^-(wF + 2) for |x| below 2^-(wF + leastBits)
};

constexpr Base kBases[] = {
    {"DMFloatExpE", ofFirst<mpfr_exp>, 0, 1.4426, 3},
    {"DMFloatExp2", ofFirst<mpfr_exp2>, 2, 1, 3},
};

// log2 of the base, below or above by less than 2^-fraction.
arithmetic::Dyadic log2Of(const Base& base, int fraction) {
  const FullExponentRange range;
  Real log(fraction + 8);
  mpfr_set_ui(log.get(), base.base == 0 ? 1 : static_cast<unsigned long>(base.base), MPFR_RNDN);
  if (base.base == 0) mpfr_exp(log.get(), log.get(), MPFR_RNDN);
  mpfr_log2(log.get(), log.get(), MPFR_RNDN);
  mpfr_mul_2si(log.get(), log.get(), fraction, MPFR_RNDN);
  MPZ mantissa;
  mpfr_get_z(mantissa.get(), log.get(), MPFR_RNDN);
  return arithmetic::dyadic(std::move(mantissa), -fraction);
}

// What a request for b^x comes to.
struct Setting {
  const Base& base;
  FloatFormat in, out;
  double ulps;
  bool isNearest;
  FunctionPrecision precision;
};

Setting settingOf(const Request& request, const Base& base) {
  const FloatFormat out = outputFormat(request, 0);
  const double ulps = ulpsOf(request, 0);
  const RoundMode mode = request.rounding.fixed;
  const bool isNearest = mode == RoundMode::kNearestEven || mode == RoundMode::kNearestAway;
  std::optional<RoundingGap> gap;
  if (ulps < 1)
    gap = roundingGap(base.unit, base.power, inputFloat(request.signature, 0),
                      outputFloat(request.signature, 0), request.subnormals,
                      -(out.fractionBits + base.leastBits));
  return {
      base, inputFormat(request, 0), out, ulps, isNearest, functionPrecision(ulps, gap, isNearest)};
}

// 2^exponent is the greatest power of two in an x whose b^x may be in range.
int greatestExponent(const Setting& s) {
  // Results beyond are infinite, or below half of the smallest subnormal.
  const double range = s.out.maxExponent() + s.out.fractionBits + 2;
  int exponent = 0;
  while (std::ldexp(s.base.log2Below, exponent + 1) < range) ++exponent;
  return exponent;
}

constexpr int kArgumentBits = 2;  // of the argument of 2^f behind the result's last place
constexpr int kProductBits = 2;   // of the product behind the argument's
constexpr int kConstantBits = 6;  // of what the constant adds to the product's error

// The magnitude of x log2 b, cut off below 2^-fraction.
struct Scaled {
  Signal bits;
  int fraction;
  Signal isFar;    // it does not fit, and b^x is far out of range
  Signal isWhole;  // x log2 b is an integer, exactly; no signal where only 0 is
  // How far bits + 1/2 are off: numerator / 2^log2Denominator of the last place.
  long error;
  int log2Denominator;
};

Scaled scaleArgument(Builder& b, const Setting& s, const Unpacked& x, int lutInputs) {
  const auto scope = b.scope("scale");
  const int wF = s.in.fractionBits, most = greatestExponent(s);
  const int fraction = s.out.fractionBits + s.precision.extraBits + kArgumentBits;
  // x.significand * 2^shift at the greatest exponent, in units of the product's last place.
  const int shift = most - wF + fraction + kProductBits;
  const bool isTwo = s.base.base == 2;
  Signal product;
  if (isTwo) {
    product = b.shiftedUp(x.significand, shift);
  } else {
    const arithmetic::Dyadic log = log2Of(s.base, shift + wF + 1 + kConstantBits);
    product = arithmetic::multiplyByConstant(
                  b, x.significand, false, {log.mantissa, log.exponent + shift},
                  {.goal = {.kind = arithmetic::ProductGoal::kWithin},
                   .architecture = arithmetic::ConstantArchitecture::kTables,
                   .lutInputs = lutInputs})
                  .bits;
  }
  // Numbers of exponent `top` are not shifted.
  const int top = most + s.in.bias(), width = std::bit_width(static_cast<unsigned>(top));
  const int amountBits = std::max(x.exponent.width, width);
  const Signal exponent = b.zeroExtend(x.exponent, amountBits);
  const Signal amount = b.subtract(b.literal(top, amountBits), exponent);
  const Signal present = b.bitNot(x.isZero);
  Scaled y{
      .bits = {},
      .fraction = fraction,
      .isFar = b.less(b.literal(top, amountBits), exponent),
      .isWhole = {},
      // The cut below is half a unit to each side; the product and its constant add theirs.
      .error = (1L << (kProductBits + kConstantBits - 1)) + (isTwo ? 0 : (1L << kConstantBits) + 1),
      .log2Denominator = kProductBits + kConstantBits};
  Signal shifted, rest;
  if (isTwo && !s.precision.isRounded()) {
    const auto moved = arithmetic::shiftRightSticky(b, product, amount, present);
    shifted = moved.bits;
    rest = b.bitOr(moved.sticky, b.reduceOr(b.slice(shifted, 0, kProductBits)));
  } else {
    shifted = arithmetic::shiftRight(b, product, amount, 0, present);
  }
  y.bits = b.slice(shifted, kProductBits, shifted.width - kProductBits);
  if (rest) y.isWhole = b.bitNot(b.bitOr(rest, b.reduceOr(b.slice(y.bits, 0, fraction))));
  return y;
}

// A result so near to 1 that its rounding tells only on which side it is: from 2^-(wF + 3) on the
// approximation is sure of that.
Signal keptOffOne(Builder& b, const Setting& s, const Scaled& y, Signal isZero) {
  const int high = y.fraction - (s.out.fractionBits + 2);
  const Signal isTiny =
      b.bitAnd(b.isZero(b.slice(y.bits, high, y.bits.width - high)), b.bitNot(isZero));
  return b.concat({b.slice(y.bits, high, y.bits.width - high),
                   b.bitOr(b.bitOf(y.bits, high - 1), isTiny), b.slice(y.bits, 0, high - 1)});
}

// 2^f for f = (x + 1/2) 2^-fraction, in units of an ulp or, with extra bits, of the last one.
arithmetic::PolynomialRequest powerOfTwo(const Setting& s, int fraction, double units,
                                         const Prices& prices) {
  return {.function = fmt::format("2^(x + 1/2^{})", fraction + 1),
          .argument = {fraction, -fraction},
          .resultLsb = -(s.out.fractionBits + s.precision.extraBits),
          .promise = units,
          .prices = evaluationPrices(prices),
          .mostDegree = mostDegree(s.out.fractionBits + s.precision.extraBits)};
}

// An upper bound of the argument's error in units of the result, numerator / 2^log2Denominator: the
// slope of 2^f is at most 2 ln 2 < 1421 / 1024.
struct ArgumentError {
  MPZ numerator;
  int log2Denominator;
  double units() const { return std::ldexp(mpz_get_d(numerator.get()), -log2Denominator); }
};
ArgumentError argumentError(const Scaled& y) {
  return {MPZ(y.error) * MPZ(1421), y.log2Denominator + kArgumentBits + 10};
}

// Where a result ends whose exponent is `power`, signed and unbiased, or, where `raised`, one more.
// `width` holds `power` and the limits of the format.
arithmetic::ExponentRange rangeAbout(Builder& b, const FloatFormat& out, Signal power, int width,
                                     Signal raised) {
  const Signal x = b.signExtend(power, width);
  const Signal highest = b.literal(out.maxExponent() - out.bias(), width),
               lowest = b.literal(out.minExponent() - 1 - out.bias(), width);
  return {.above = b.lessSigned(highest, x),
          .atTop = b.equal(x, highest),
          .below = b.lessSigned(x, lowest),
          .atBottom = b.equal(x, lowest),
          .raised = raised};
}

Signal decomposePower(Builder& b, const Request& request, const Base& base, Signal input) {
  const auto scope = b.scope("exponential");
  const Setting s = settingOf(request, base);
  const Unpacked x = arithmetic::unpack(b, input, s.in, arithmetic::ZeroFields::kLikeRegular);
  const Scaled y = scaleArgument(b, s, x, request.prices.lutInputs);
  const bool isRounded = s.precision.isRounded(), isDirected = !isRounded && !s.isNearest;
  const Signal magnitude = isDirected ? keptOffOne(b, s, y, x.isZero) : y.bits;
  const Signal both = b.bitXor(magnitude, b.replicate(x.sign, magnitude.width));
  const Signal f = b.slice(both, 0, y.fraction);
  const Signal k = b.concat({x.sign, b.slice(both, y.fraction, both.width - y.fraction)});

  const ArgumentError error = argumentError(y);
  const auto wanted = powerOfTwo(s, y.fraction, s.precision.units - error.units(), request.prices);
  const auto plan = arithmetic::planFunction(wanted);
  if (!plan) util::exitWith(plan.failure());
  auto power = arithmetic::evaluateFunction(b, f, *plan, wanted);
  power.budget.add("argument", error.numerator, error.log2Denominator);
  stateErrors(s.precision, s.ulps, power.budget, request.budgets);
  if (!isRounded)
    stateFinalRounding(s.precision, s.isNearest, request.budgets);
  else if (s.out.gradual)
    arithmetic::stateSubnormal(request.budgets, power.budget, true);

  // 2^f is about 1 to 2. Beside them by its error it is the neighbour in the next binade, as near
  // or nearer, and its bits stay: ones below 1, and zeros, but for the last ones, above 2.
  const int places = s.out.fractionBits + s.precision.extraBits;
  const Signal bits =
      b.zeroExtend(power.result.bits, std::max(power.result.bits.width, places + 2));
  Signal whole = b.slice(bits, places, 2), fraction = b.slice(bits, 0, places);
  Signal isExact = y.isWhole;
  if (!isExact && isDirected) isExact = x.isZero;
  if (isExact) {
    whole = b.select(isExact, b.concat({x.sign, b.bitNot(x.sign)}), whole);
    fraction = b.bitAnd(fraction, b.replicate(b.bitNot(isExact), places));
  }

  const int bias = s.out.bias(), wF = s.out.fractionBits;
  const int lowest = s.out.minExponent() - wF - 3;
  const int width = std::max(
      arithmetic::signedWidth(-(1L << (k.width - 1)) + bias, (1L << (k.width - 1)) + bias + 2),
      arithmetic::signedWidth(lowest, s.out.maxExponent()));
  const Signal biased = b.add(b.signExtend(k, width), b.literal(bias, width));
  arithmetic::Unrounded result{
      .sign = b.bit(false),
      .exponent = {},
      .significand = b.concat({b.bit(true), fraction}),
      .sticky = b.bit(false),
      .isZero = b.bitAnd(x.isInf, x.sign),
      .isInf = b.bitAnd(b.bitOr(x.isInf, b.bitAnd(y.isFar, b.bitNot(x.isZero))), b.bitNot(x.sign)),
      .isNan = x.isNan};
  const Signal isFarBelow = b.bitAnd(y.isFar, b.bitAnd(x.sign, b.bitNot(x.isZero)));
  if (!s.out.gradual) result.isZero = b.bitOr(result.isZero, isFarBelow);
  const bool canBeBelowOne = power.result.low < MPZ::powerOfTwo(static_cast<unsigned long>(places));
  if (isRounded && !s.out.gradual) {
    // At most an ulp off: it is 1 at least. With a wider bound 1 is as good as what is below.
    if (canBeBelowOne && s.ulps > 1)
      result.significand =
          b.concat({b.bit(true), b.bitAnd(fraction, b.replicate(b.reduceOr(whole), places))});
    result.range = rangeAbout(b, s.out, k, width, b.topBit(whole));
    const Signal field = b.slice(biased, 0, s.out.exponentBits);
    const Signal next = b.add(field, b.literal(1, field.width));
    result.exponent = b.select(b.topBit(whole), next, field);
    return roundAndPack(b, result, s.out, {.mode = RoundMode::kTowardZero}, request.quietNaN);
  }
  result.exponent = b.add(biased, b.zeroExtend(b.topBit(whole), width));
  if (canBeBelowOne && !(isRounded && s.ulps <= 1))
    result.exponent = b.subtract(result.exponent, b.zeroExtend(b.isZero(whole), width));
  if (!s.out.gradual)
    return roundAndPack(b, result, s.out, roundingOf(request, false, {}), request.quietNaN);
  // Half a unit more to a subnormal's error, which has half its unit at most by then.
  if (isRounded) result.significand = b.shiftedUp(result.significand, 1);
  result.exponent = b.select(isFarBelow, b.literal(lowest, width), result.exponent);
  if (!isRounded) result.sticky = isFarBelow;
  return roundAndPack(b, denormalise(b, result, s.out, !isRounded), s.out,
                      isRounded ? arithmetic::RoundingRule{.mode = RoundMode::kNearestAway}
                                : roundingOf(request, false, {}),
                      request.quietNaN);
}

template <std::size_t place>
std::vector<Signal> decomposeBase(Builder& b, const Request& request,
                                  std::span<const Signal> inputs) {
  return {decomposePower(b, request, kBases[place], inputs[0])};
}

std::optional<std::string> refusePower(const Request& request) {
  return refuseFunction(request, 0);
}

template <std::size_t place>
constexpr UnitRow rowOf() {
  return {kBases[place].unit, evaluateReal<kBases[place].power>, decomposeBase<place>, refusePower};
}
constexpr UnitRow kRows[] = {rowOf<0>(), rowOf<1>()};

}  // namespace

std::span<const UnitRow> floatExponentialUnits() { return kRows; }

}  // namespace functions
