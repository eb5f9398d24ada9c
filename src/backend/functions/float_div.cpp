#include "backend/functions/float_div.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "backend/arithmetic/digit_recurrence.h"
#include "backend/arithmetic/float_multiplier.h"
#include "backend/arithmetic/reciprocal_divider.h"
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

// What a result needs of the division.
struct Division {
  Signal x, y;
  bool gradual;      // a result may be shifted and cut off once more
  bool needsSticky;  // to be rounded it takes more than the bit behind its last place
};

// Bits of the quotient's fraction that a result below 1 needs: its own and one more.
int neededBits(const Division& division) { return division.x.width; }

// As above 2/3, in 2^-16.
constexpr int kTwoThirds = 43691, kThirdScale = 16;

// A faithful quotient: with g bits more than a result below 1 has, the recurrence errs by 2/3 of
// the last one at the end and by what rows drop, and cutting off those g bits by 1 - 2^-g. Cut off
// as a subnormal once more it must not be below the quotient, but may be up to an ulp above: it is
// then raised by a unit, of at least one bit more.
RowPlan faithfulPlan(const Request& request, const Division& division) {
  const double ulps = ulpsOf(request, 0);
  const int needed = neededBits(division);
  const int coarser = static_cast<int>(std::log2(std::min(ulps, 1e6)));
  const int least = division.gradual ? needed + 1 : needed - coarser;
  const int digits = std::max(1, (least + 1) / 2), spare = 2 * digits - needed;
  const double unit = std::ldexp(1.0, -spare);  // of a digit's last bit, in ulps
  const double twoThirds = std::ldexp(kTwoThirds, -kThirdScale);
  const double cut = spare > 0 ? 1 - unit : 0;
  const double room = division.gradual ? 1 - twoThirds : (ulps - cut) / unit - twoThirds;
  return arithmetic::truncatedQuotientPlan(digits, division.x.width, std::clamp(room, 0.0, 1.33));
}

Significand faithfulDigits(Builder& b, const Request& request, const Division& division,
                           const RowPlan& plan) {
  const int spare = 2 * plan.digits - neededBits(division);
  const int down = std::max(0, spare);
  const auto up = static_cast<unsigned long>(std::max(0, -spare));
  arithmetic::ErrorBudget budget(ulpsOf(request, 0));
  budget.add("last digit", MPZ(kTwoThirds) << up, kThirdScale + down);
  budget.add("rows' low places", plan.error << up, plan.errorScale + down);
  if (division.gradual) {
    budget.add("raised by a unit", 1, down);
  } else if (spare > 0) {
    budget.add("cut off", MPZ::allOnes(static_cast<unsigned long>(spare)), spare);
  }
  budget.assertKept(request.budgets);
  // A sum of few digits may be 2, which no quotient is: then the greatest one is nearer.
  const Signal near = arithmetic::nearQuotient(b, division.x, division.y, plan, division.gradual);
  const Signal low = b.slice(near, 0, near.width - 1);
  if (spare >= 0) return {low, b.bit(false)};
  const Signal padded = b.shiftedUp(low, -spare), isTwo = b.topBit(near);
  return {b.bitOr(padded, b.replicate(isTwo, padded.width)), b.bit(false)};
}

// Rows of digits, or an approximate reciprocal in blocks where the device has them to spare.
Significand faithfulQuotient(Builder& b, const Request& request, const Division& division,
                             bool newton) {
  const double ulps = ulpsOf(request, 0);
  const auto prices = evaluationPrices(request.prices);
  const arithmetic::QuotientGoal goal{neededBits(division), ulps >= 2 ? 2 : 1, false};
  const RowPlan rows = faithfulPlan(request, division);
  const double price = arithmetic::priceOfQuotient(division.x.width, rows);
  const auto plan =
      newton ? std::nullopt : arithmetic::planReciprocal(division.x.width, goal, prices, price);
  if (!newton && !plan) return faithfulDigits(b, request, division, rows);
  arithmetic::ErrorBudget below(ulps, "below");
  below.add("cut off", 1);
  below.assertKept(request.budgets);
  const auto near = newton
                        ? arithmetic::quotientByNewton(b, division.x, division.y, goal, prices)
                        : arithmetic::quotientByReciprocal(b, division.x, division.y, *plan, goal);
  near.budget.assertKept(request.budgets);
  return {near.bits, b.bit(false)};
}

// At least one bit of fraction more than a result below 1 has, and whether there is more.
Significand exactQuotient(Builder& b, const Request& request, const Division& division,
                          bool newton) {
  const int width = division.x.width, digits = (neededBits(division) + 1) / 2;
  const auto prices = evaluationPrices(request.prices);
  const arithmetic::QuotientGoal goal{neededBits(division) + 1, 1, true};
  const double rows = arithmetic::priceOfQuotient(width, {digits, digits, 0, 0});
  const auto plan = newton
                        ? std::nullopt
                        : arithmetic::planReciprocal(
                              width, goal, prices, rows - arithmetic::priceOfCheck(width, prices));
  const auto stickyOf = [&](Signal inexact) {
    return division.needsSticky ? inexact : b.bit(true);
  };
  if (!newton && !plan) {
    const auto result = arithmetic::quotientByDigits(b, division.x, division.y, digits);
    return {result.bits, stickyOf(result.inexact)};
  }
  const auto near = newton
                        ? arithmetic::quotientByNewton(b, division.x, division.y, goal, prices)
                        : arithmetic::quotientByReciprocal(b, division.x, division.y, *plan, goal);
  near.budget.assertKept(request.budgets);
  const auto result = arithmetic::checkedQuotient(b, near.bits, division.y);
  return {result.bits, stickyOf(result.inexact)};
}

// The version with Newton-Raphson steps is for one format.
bool takesNewton(const Request& request) {
  constexpr std::size_t kVersion = 3;  // place in the variant
  const kiln::FloatingPoint& format = inputFloat(request.signature, 0);
  return request.signature.variant[kVersion] == 1 && format.exp == 11 && format.frac == 52;
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
  const Division division{.x = x.significand,
                          .y = y.significand,
                          .gradual = gradual,
                          .needsSticky = gradual || !rounding.isNearest()};
  if (!faithful) arithmetic::stateRounding(request.budgets, rounding.isNearest());
  const bool newton = takesNewton(request);
  const Significand q = faithful ? faithfulQuotient(b, request, division, newton)
                                 : exactQuotient(b, request, division, newton);
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
