#include "backend/functions/float_logarithm.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "backend/arithmetic/constant_multiplier.h"
#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/function_circuit.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/shifter.h"
#include "backend/arithmetic/truncated_product.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/function_precision.h"
#include "backend/functions/real_function.h"
#include "util/failure.h"

// With x = 2^E (1 + z) and z in [-1/4, 1/2), log x = E log 2 + z g(z), where g(z) = log(1 + z) / z
// is near 1 / ln b. For E = 0 nothing but the product is left, and z is normalised before it; else
// the sum does not cancel, for |z g(z)| is less than half of log 2 or a little more. Both are
// summed with the sign of the result taken out, so that the sum is positive.
namespace functions {

using arithmetic::FixedSignal;
using arithmetic::FloatFormat;
using arithmetic::Unpacked;
using graph::Builder;
using graph::HeapTerm;
using graph::Signal;
using util::MPZ;

namespace {

struct Base {
  std::string_view unit;
  RealFunction logarithm;
  int base;  // 0 stands for e
  const char* quotient;
  // No sum is below 2^leastExponent: log(5/4), the least z g(z) for z of 1/4 or more, and
  // log(4/3), the least for another E.
  int leastExponent;
};

constexpr Base kBases[] = {
    {"DMFloatLoge", ofFirst<mpfr_log>, 0, "log(1 + x)/x", -3},
    {"DMFloatLog2", ofFirst<mpfr_log2>, 2, "log2(1 + x)/x", -2},
    {"DMFloatLog10", ofFirst<mpfr_log10>, 10, "log10(1 + x)/x", -4},
};

// What a request for a logarithm comes to.
struct Setting {
  const Base& base;
  FloatFormat in, out;
  double ulps;
  bool isNearest;
  FunctionPrecision precision;
  int snappedBits = 0;  // numbers 1 + z with |z| below 2^snappedBits last places of z are snapped
  // The sum's last place: that of the least result with the precision's extra bits.
  int lsb() const { return base.leastExponent - out.fractionBits - precision.extraBits; }
  // The greatest |E|, and |log x|.
  int greatestExponent() const {
    return std::max(in.maxExponent() + 1 - in.bias(),
                    in.bias() - in.minExponent() + (in.gradual ? in.fractionBits : 0));
  }
  int integerBits() const {
    const double log2 = base.base == 0 ? 0.6932 : 1 / std::log2(base.base);
    return std::bit_width(static_cast<unsigned>(log2 * greatestExponent() + 1));
  }
};

// Very near 1 results lie next to where a rounding changes, nearer than any approximation tells:
// with u = 2^-(wF + 1) and |z| = q u, 2^L <= q < 2^(L + 1), |log(1 + z)| is q u -+ q^2 u^2 / 2 and
// less than q^3 u^3 / 2 more. An ulp is 2^L u^2 at least, so that the first two terms are a
// multiple of 2^-(L + 1) ulp, and the rest is below 2^(2L + 1 - wF). For L up to 17 and (wF - 20) /
// 2 a sum of 2^-21 ulp units, off by one at most, is from 1 unit below to 5 above a multiple of 8:
// raised by 2 and cut to that it is the first two terms, and a sticky bit stands for the rest.
constexpr int kSnapReach = 18, kMostSnapped = 18, kSnapCut = 3;

Setting settingOf(const Request& request, const Base& base) {
  const double ulps = ulpsOf(request, 0);
  const RoundMode mode = request.rounding.fixed;
  const bool isNearest = mode == RoundMode::kNearestEven || mode == RoundMode::kNearestAway;
  std::optional<RoundingGap> gap;
  if (ulps < 1)
    gap = roundingGap(base.unit, base.logarithm, inputFloat(request.signature, 0),
                      outputFloat(request.signature, 0), request.subnormals);
  Setting s{base,
            inputFormat(request, 0),
            outputFormat(request, 0),
            ulps,
            isNearest,
            functionPrecision(ulps, gap, isNearest)};
  if (ulps < 1 && !gap && base.base == 0)
    s.snappedBits = std::clamp((s.out.fractionBits - kSnapReach) / 2, 0, kMostSnapped);
  // The sum stays above 2^leastExponent, of which the least one is at least 5/4.
  s.precision.units = std::min(s.precision.units, 1 + std::ldexp(1.0, s.out.fractionBits - 2));
  return s;
}

// x = 2^exponent (1 + z) for a positive x, less the sign of log x.
struct Split {
  Signal isBelowOne, isOne;
  Signal magnitude;  // |exponent|
  Signal isNear;     // exponent = 0
  Signal argument;   // z + 1/4, in units of 2^-(wF + 1), wF + 1 bits
  Signal isSnapped;  // z is so small that the sum is snapped; no signal where none is
  Signal z;          // in the same units, negated for x below 1, wF + 1 bits in two's complement
};

Split split(Builder& b, const Setting& s, const Unpacked& x) {
  const auto scope = b.scope("split");
  const int wF = s.in.fractionBits;
  Signal significand = x.significand;
  const int width = arithmetic::signedWidth(-s.greatestExponent() - 1, s.greatestExponent() + 1);
  const int sumWidth = std::max(width, x.exponent.width + 1);
  Signal exponent = b.add(b.zeroExtend(x.exponent, sumWidth), b.literal(-s.in.bias(), sumWidth));
  if (s.in.gradual) {
    const auto normalised = arithmetic::normalise(b, significand);
    significand = normalised.bits;
    exponent = b.subtract(exponent, b.zeroExtend(normalised.count, sumWidth));
  }
  exponent = b.slice(exponent, 0, width);
  const Signal fraction = b.slice(significand, 0, wF);
  // From 3/2 on half of the significand, with the next exponent.
  const Signal isHalved = b.topBit(fraction);
  const Signal low = b.select(isHalved, fraction, b.shiftedUp(b.slice(fraction, 0, wF - 1), 1));
  Split parts;
  parts.isBelowOne = b.topBit(exponent);
  parts.isOne = b.bitAnd(b.isZero(exponent), b.isZero(fraction));
  // -(e + h) = ~e + (1 - h) for h = isHalved.
  parts.magnitude = b.addCarry(b.bitXor(exponent, b.replicate(parts.isBelowOne, width)),
                               b.zeros(width), b.bitXor(parts.isBelowOne, isHalved));
  parts.magnitude = b.slice(parts.magnitude, 0, width - 1);
  parts.isNear = b.isZero(parts.magnitude);
  const Signal top = b.topBit(low);
  parts.argument =
      b.concat({b.bitAnd(top, b.bitNot(isHalved)), b.bitNot(top), b.slice(low, 0, wF - 1)});
  const Signal z = b.concat({isHalved, low});
  parts.z = b.addCarry(b.bitXor(z, b.replicate(parts.isBelowOne, wF + 1)), b.zeros(wF + 1),
                       parts.isBelowOne);
  if (s.snappedBits > 0)
    parts.isSnapped =
        b.bitAnd(parts.isNear, b.isZero(b.slice(parts.z, s.snappedBits, wF + 1 - s.snappedBits)));
  return parts;
}

// z shifted left, where the exponent is 0, until it is 1/4 or more.
struct NormalisedZ {
  Signal bits, count;
};
NormalisedZ normaliseNear(Builder& b, const Split& parts) {
  const auto scope = b.scope("normalise");
  const Signal low = b.slice(parts.z, 0, parts.z.width - 1);
  const Signal all = arithmetic::countLeadingZeros(b, low).count;
  const Signal count = b.bitAnd(all, b.replicate(parts.isNear, all.width));
  return {b.concat({b.topBit(parts.z), arithmetic::shiftLeft(b, low, count, low.width - 1)}),
          count};
}

constexpr int kExponentBits = 4;  // of E log 2 behind the sum's last place
constexpr int kConstantBits = 6;  // of what the constant adds to that product's error
constexpr int kRoomBits = 4;      // products are left out below 2^-kRoomBits of the last place
constexpr int kQuotientBits = 1;  // of g behind the sum's last place

// log 2 to the base, to within 2^-fraction.
arithmetic::Dyadic logOfTwo(const Base& base, int fraction) {
  const FullExponentRange range;
  Real log(fraction + 8), divisor(fraction + 8);
  mpfr_set_ui(log.get(), 2, MPFR_RNDN);
  if (base.base == 0) {
    mpfr_log(log.get(), log.get(), MPFR_RNDN);
  } else {
    mpfr_set_ui(divisor.get(), static_cast<unsigned long>(base.base), MPFR_RNDN);
    mpfr_log2(divisor.get(), divisor.get(), MPFR_RNDN);
    mpfr_ui_div(log.get(), 1, divisor.get(), MPFR_RNDN);
  }
  mpfr_mul_2si(log.get(), log.get(), fraction, MPFR_RNDN);
  MPZ mantissa;
  mpfr_get_z(mantissa.get(), log.get(), MPFR_RNDN);
  return arithmetic::dyadic(std::move(mantissa), -fraction);
}

// The errors of the sum, in units of its last place.
//
// A sum that is at least the exact one, by less than a unit, is cut off within a unit; with a wider
// bound it may be as much less as that allows. A constant lifts it there. Of its errors the
// quotient's, of which less than half goes in, and the exponent's product's are to both sides; what
// the product leaves out is above.
constexpr double kSlack = 0x1p-6;  // of the lift's grid, and to keep from the bound itself
double unitsOfQuotient(double units) {
  const double toBothSides = std::ldexp(1 + std::ldexp(1.0, -kConstantBits), -kExponentBits);
  const double room = 2 * units - 1 - 2 * toBothSides - std::ldexp(1.0, -kRoomBits) - kSlack;
  return room * (1 << kQuotientBits);
}

arithmetic::PolynomialRequest quotientRequest(const Setting& s, const Prices& prices) {
  const int wF = s.in.fractionBits;
  return {.function = s.base.quotient,
          .argument = {wF + 1, -(wF + 1), -MPZ::powerOfTwo(static_cast<unsigned long>(wF - 1))},
          .resultLsb = s.lsb() - kQuotientBits,
          .promise = unitsOfQuotient(s.precision.units),
          .prices = evaluationPrices(prices),
          .mostDegree = mostDegree(-s.lsb())};
}

// What is added to a sum whose error is at most `toBothSides`, in units of 2^-below.
MPZ liftOf(const Setting& s, const arithmetic::ErrorBudget& toBothSides, int below) {
  const double lift = std::ldexp(toBothSides.sum() - (s.precision.units - 1), below);
  MPZ result;
  mpz_set_d(result.get(), std::ceil(std::max(0.0, lift)));
  return result;
}

void stateSumErrors(const Setting& s, const arithmetic::ErrorBudget& toBothSides, const MPZ& lift,
                    const MPZ& excess, int below, arithmetic::ErrorBudgets* stated) {
  arithmetic::ErrorBudget above = toBothSides, under(s.precision.units);
  above.add("product left out", excess, below);
  above.add("lift", lift, below);
  MPZ left;
  mpz_set_d(left.get(), std::ceil(std::ldexp(toBothSides.sum(), below)));
  under.add("sum", std::max(MPZ(0), left - lift), below);
  under.add("cut", 1);
  stateErrors(s.precision, s.ulps, above, stated, "error above");
  stateErrors(s.precision, s.ulps, under, stated, "error below");
  if (!s.precision.isRounded()) stateFinalRounding(s.precision, s.isNearest, stated);
}

// |log x| * 2^z.count, cut off below 2^s.lsb().
Signal sumUp(Builder& b, const Request& request, const Setting& s, const Split& parts,
             const NormalisedZ& z) {
  const auto wanted = quotientRequest(s, request.prices);
  const auto plan = arithmetic::planFunction(wanted);
  if (!plan) util::exitWith(plan.failure());
  const auto g = arithmetic::evaluateFunction(b, parts.argument, *plan, wanted);
  const auto scope = b.scope("sum");

  // All terms are whole in units of 2^fine.
  const int productLsb = -(s.in.fractionBits + 1) + g.result.lsb;
  const int exponentLsb = s.lsb() - kExponentBits;
  const int fine = std::min(productLsb, exponentLsb - 3);
  const int below = s.lsb() - fine, width = s.integerBits() - fine;
  const int roomBits = s.lsb() - kRoomBits - productLsb;
  const MPZ room = roomBits > 0 ? MPZ::allOnes(static_cast<unsigned long>(roomBits)) : MPZ(0);
  // z g = (z + 1/2) g - g / 2: an unsigned product.
  const Signal raised = b.bitXor(
      z.bits,
      b.literal(MPZ::powerOfTwo(static_cast<unsigned long>(z.bits.width - 1)), z.bits.width));
  const auto product = arithmetic::truncatedProduct(b, {raised, false}, {g.result.bits, false},
                                                    width - (productLsb - fine), room,
                                                    productPrices(request.prices));
  // What is known before the product adds up beside it.
  std::vector<HeapTerm> terms, early;
  for (const HeapTerm& term : product.terms)
    (b.isLiteral(term.bits) ? early : terms).push_back({term.bits, term.shift + productLsb - fine});

  const arithmetic::Dyadic log =
      logOfTwo(s.base, parts.magnitude.width + kConstantBits - exponentLsb);
  const auto whole = arithmetic::multiplyByConstant(
      b, parts.magnitude, false, {log.mantissa, log.exponent - exponentLsb},
      {.goal = {.kind = arithmetic::ProductGoal::kWithin}, .lutInputs = request.prices.lutInputs});
  early.push_back({whole.bits, exponentLsb - fine});

  arithmetic::ErrorBudget toBothSides(s.precision.units);
  for (const auto& term : g.budget.terms())
    toBothSides.add("log(1 + z)/z: " + term.name, term.numerator,
                    term.log2Denominator + kQuotientBits + 1);
  toBothSides.add("exponent's product", MPZ((1L << kConstantBits) + 1),
                  kExponentBits + kConstantBits);
  const MPZ lift = liftOf(s, toBothSides, below);
  early.push_back({b.literal(lift, width), 0});
  if (parts.isSnapped) early.push_back({parts.isSnapped, below + 1});
  const Signal half = b.shiftedUp(g.result.bits, g.result.lsb - 1 - fine);
  terms.push_back({b.subtract(b.heap(early, width), b.zeroExtend(half, width)), 0});
  stateSumErrors(s, toBothSides, lift,
                 product.excess << static_cast<unsigned long>(productLsb - fine), below,
                 request.budgets);
  return b.slice(b.heap(terms, width), below, width - below);
}

Signal decomposeLogarithm(Builder& b, const Request& request, const Base& base, Signal input) {
  const auto scope = b.scope("logarithm");
  const Setting s = settingOf(request, base);
  const Unpacked x = arithmetic::unpack(b, input, s.in, arithmetic::ZeroFields::kAsTheyAre);
  const Split parts = split(b, s, x);
  const NormalisedZ z = normaliseNear(b, parts);
  Signal sum = sumUp(b, request, s, parts, z);
  if (parts.isSnapped)
    sum = b.bitAnd(sum, b.concat({b.ones(sum.width - kSnapCut),
                                  b.replicate(b.bitNot(parts.isSnapped), kSnapCut)}));

  // The sum's highest 1 has a weight from 2^leastExponent to 2^(integerBits - 1).
  const int wF = s.out.fractionBits, counted = s.integerBits() - base.leastExponent;
  const Signal count =
      arithmetic::countLeadingZeros(b, b.slice(sum, sum.width - counted, counted)).count;
  const Signal normal = arithmetic::shiftLeft(b, sum, count, counted - 1);
  const int highest = s.out.bias() + s.integerBits() - 1;
  const int lowest = s.out.bias() + base.leastExponent - (wF - 1);
  const int width = arithmetic::signedWidth(std::min(lowest, s.out.minExponent()),
                                            std::max(highest, s.out.maxExponent()) + 1);
  const Signal unscaled = b.subtract(b.literal(highest, width), b.zeroExtend(z.count, width));
  arithmetic::Unrounded result{
      .sign = b.bitOr(x.isZero, b.bitAnd(parts.isBelowOne, b.bitNot(x.isInf))),
      .exponent = b.subtract(unscaled, b.zeroExtend(count, width)),
      .significand = normal,
      .sticky = parts.isSnapped ? parts.isSnapped : b.bit(false),
      .isZero = parts.isOne,
      .isInf = b.bitOr(x.isInf, x.isZero),
      .isNan = b.bitOr(x.isNan, b.bitAnd(x.sign, b.bitNot(x.isZero))),
      .canOverflow = highest > s.out.maxExponent()};
  const bool isRounded = s.precision.isRounded(), canUnderflow = lowest < s.out.minExponent();
  FloatFormat out = s.out;
  out.gradual = out.gradual && canUnderflow;
  arithmetic::RoundingRule rule = roundingOf(request, false, {});
  if (isRounded) {
    result.significand = b.slice(normal, normal.width - (wF + 1), wF + 1);
    rule = {.mode = RoundMode::kTowardZero};
    const Signal never = b.bit(false);
    if (!canUnderflow && !result.canOverflow)
      result.range = arithmetic::ExponentRange{never, never, never, never, never};
  }
  if (!out.gradual) return roundAndPack(b, result, out, rule, request.quietNaN);
  // Half a unit more to a subnormal's error, which has half its unit at most by then.
  if (isRounded) {
    result.significand = b.shiftedUp(result.significand, 1);
    rule = {.mode = RoundMode::kNearestAway};
  }
  return roundAndPack(b, denormalise(b, result, out, !isRounded), out, rule, request.quietNaN);
}

template <std::size_t place>
std::vector<Signal> decomposeBase(Builder& b, const Request& request,
                                  std::span<const Signal> inputs) {
  return {decomposeLogarithm(b, request, kBases[place], inputs[0])};
}

template <std::size_t place>
std::optional<std::string> refuseBase(const Request& request) {
  return refuseFunction(request, -kBases[place].leastExponent);
}

template <std::size_t place>
constexpr UnitRow rowOf() {
  return {kBases[place].unit, evaluateReal<kBases[place].logarithm>, decomposeBase<place>,
          refuseBase<place>};
}
constexpr UnitRow kRows[] = {rowOf<0>(), rowOf<1>(), rowOf<2>()};

}  // namespace

std::span<const UnitRow> floatLogarithmUnits() { return kRows; }

}  // namespace functions
