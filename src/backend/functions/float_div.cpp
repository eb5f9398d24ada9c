#include "backend/functions/float_div.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "backend/arithmetic/digit_recurrence.h"
#include "backend/arithmetic/float_multiplier.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/real_function.h"

namespace functions {

using arithmetic::FloatFormat;
using arithmetic::RowPlan;
using arithmetic::Unpacked;
using arithmetic::Unrounded;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

int quotient(mpfr_ptr result, std::span<const Real> inputs, mpfr_rnd_t direction) {
  return mpfr_div(result, inputs[0].get(), inputs[1].get(), direction);
}

// What a way to divide significands gives: a quotient with one bit before the fraction.
struct Significand {
  Signal bits;
  Signal sticky;
};

// Bits of the quotient's fraction that a result below 1 needs: its own and one more.
int neededBits(int fractionBits) { return fractionBits + 1; }

// As above 2/3, in 2^-16.
constexpr int kTwoThirds = 43691, kThirdScale = 16;

// A faithful quotient: with g bits more than a result below 1 has, the recurrence errs by 2/3 of
// the last one at the end and by what rows drop, and cutting off those g bits by 1 - 2^-g.
Significand faithfulDigits(Builder& b, const Request& request, Signal x, Signal y, bool gradual) {
  const double ulps = ulpsOf(request, 0);
  const int needed = neededBits(x.width - 1);
  // Cut off as a subnormal a result must not be below the quotient, but may be up to an ulp above:
  // a unit more, of at least two bits more.
  const int least =
      gradual ? needed + 1 : needed - static_cast<int>(std::log2(std::min(ulps, 1e6)));
  const int digits = std::max(1, (least + 1) / 2);
  const int spare = 2 * digits - needed;
  const double scale = std::ldexp(1.0, spare);
  const double third = 1 - std::ldexp(kTwoThirds, -kThirdScale);
  const double room = gradual      ? third
                      : spare >= 0 ? (ulps - 1) * scale + third
                                   : ulps * scale - 1 + third;
  const RowPlan plan =
      arithmetic::truncatedQuotientPlan(digits, x.width, std::clamp(room, 0.0, 1.0));

  arithmetic::ErrorBudget budget(ulps);
  const int up = std::max(0, -spare), down = std::max(0, spare);
  budget.add("last digit", MPZ(kTwoThirds) << static_cast<unsigned long>(up), kThirdScale + down);
  budget.add("rows' low places", plan.error << static_cast<unsigned long>(up),
             plan.errorScale + down);
  if (gradual) {
    budget.add("raised by a unit", 1, down);
  } else if (spare > 0) {
    budget.add("cut off", MPZ::allOnes(static_cast<unsigned long>(spare)), spare);
  }
  budget.assertKept(request.budgets);
  // A sum of few digits may be 2, which no quotient is: then the greatest one is nearer.
  const Signal near = arithmetic::nearQuotient(b, x, y, plan, gradual);
  const Signal low = b.slice(near, 0, near.width - 1);
  if (spare >= 0) return {low, b.bit(false)};
  const Signal padded = b.shiftedUp(low, -spare), isTwo = b.topBit(near);
  return {b.bitOr(padded, b.replicate(isTwo, padded.width)), b.bit(false)};
}

// 2 k + 1 bits of fraction, one more than a result below 1 has.
Significand exactDigits(Builder& b, const Request& request, Signal x, Signal y,
                        const arithmetic::RoundingRule& rounding, bool gradual) {
  arithmetic::stateRounding(request.budgets, rounding.isNearest());
  const auto result = arithmetic::quotientByDigits(b, x, y, (neededBits(x.width - 1) + 1) / 2);
  return {result.bits, rounding.isNearest() && !gradual ? b.bit(true) : result.inexact};
}

// A quotient of significands of p bits that ends has p bits at most, since the odd part of the
// divisor divides the dividend. So no quotient in the normal range is half way between two
// neighbours, and to nearest the bit behind the last place decides alone; a subnormal result may be
// half way. Nor does rounding reach the next binade: x / y <= 2 - 2^-wF, which is a number of the
// format, and if x < y, x / y <= 1 - 2^-wF / y < 1 - 2^(-wF-1), which is one as well.
std::vector<Signal> decomposeDiv(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  const FloatFormat in = inputFormat(request, 0), out = outputFormat(request, 0);
  const int wE = in.exponentBits, wF = in.fractionBits;
  const bool faithful = ulpsOf(request, 0) >= 1;
  auto rounding = roundingOf(request, /*tiesAway=*/false, inputs);
  const bool gradual = in.gradual || out.gradual;

  const auto zeros = arithmetic::ZeroFields::kLikeRegular;
  // Normalised exponents lie above -wF.
  const int width =
      gradual ? arithmetic::signedWidth(-(2L << wE) - 2 * wF, (2L << wE) + 2 * wF) : wE + 2;
  const Unpacked x = arithmetic::normalised(b, arithmetic::unpack(b, inputs[0], in, zeros), width);
  const Unpacked y = arithmetic::normalised(b, arithmetic::unpack(b, inputs[1], in, zeros), width);
  const Significand q =
      faithful ? faithfulDigits(b, request, x.significand, y.significand, gradual)
               : exactDigits(b, request, x.significand, y.significand, rounding, gradual);
  if (faithful) rounding = {.mode = RoundMode::kTowardZero};

  // The complement of a regular exponent is 2^wE - 1 less it: a sum that is not negative.
  const long offset = in.bias() - ((1L << wE) - 1);
  const Signal isOneOrMore = b.topBit(q.bits);
  const Signal difference =
      gradual ? b.addCarry(x.exponent, b.bitNot(y.exponent), b.bit(false))
              : b.add(x.exponent, b.zeroExtend(b.bitNot(b.slice(y.exponent, 0, wE)), width));
  // In the gradual case the complement is -1 less the exponent.
  const long rebias = gradual ? in.bias() + 1 : offset;
  const auto bits = static_cast<unsigned long>(width);
  const MPZ offsets = (MPZ(rebias).lowBits(bits) << bits) | MPZ(rebias - 1).lowBits(bits);
  Unrounded result{.sign = b.bitXor(x.sign, y.sign),
                   .exponent = difference,
                   .significand = q.bits,
                   .sticky = q.sticky,
                   .isZero = b.bitOr(x.isZero, y.isInf),
                   .isInf = b.bitOr(x.isInf, y.isZero),
                   .isNan = b.bitOr(b.bitOr(x.isNan, y.isNan), b.bitOr(b.bitAnd(x.isZero, y.isZero),
                                                                       b.bitAnd(x.isInf, y.isInf))),
                   .leftShift = b.bitNot(isOneOrMore),
                   .exponentAddend = b.lut(isOneOrMore, offsets, width)};
  if (gradual) {
    result = arithmetic::denormalise(b, arithmetic::settled(b, result), out, !faithful);
  } else {
    result.range =
        arithmetic::exponentRange(b, b.slice(difference, 0, wE + 1), rebias - 1, isOneOrMore, out);
  }
  return {arithmetic::roundAndPack(b, result, out, rounding, request.quietNaN)};
}

std::optional<std::string> refuseDiv(const Request& request) {
  if (auto reason = refusePorts(request, 2, 0, 1)) return reason;
  return refuseMixedForms(request);
}

constexpr UnitRow kRows[] = {{"DMFloatDiv", evaluateReal<quotient>, decomposeDiv, refuseDiv}};

}  // namespace

std::span<const UnitRow> floatDivUnits() { return kRows; }

}  // namespace functions
