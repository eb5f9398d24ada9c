#include "backend/functions/float_sqrt_logic.h"

#include <algorithm>
#include <bit>

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

int squareRoot(mpfr_ptr result, std::span<const Real> inputs, mpfr_rnd_t direction) {
  return mpfr_sqrt(result, inputs[0].get(), direction);
}

// Rows for a faithful root: u ulps are u whole units of fewer bits, of which cutting off takes one,
// and on the other side as many for what rows drop.
RowPlan faithfulPlan(const Request& request, int fractionBits, bool mayUnderflow) {
  const double ulps = ulpsOf(request, 0);
  const int spare =
      static_cast<int>(std::bit_width(static_cast<unsigned>(std::min(ulps, 1e6)))) - 1;
  const int digits = std::max(1, fractionBits - spare);
  // A subnormal result is cut off once more, so that it must not exceed the root.
  const RowPlan plan = mayUnderflow ? arithmetic::exactRootPlan(digits)
                                    : arithmetic::truncatedRootPlan(digits, fractionBits, 1);
  const auto unit = static_cast<unsigned long>(fractionBits - digits);
  arithmetic::ErrorBudget below(ulps, "below"), above(ulps, "above");
  below.add("digits cut off", MPZ::powerOfTwo(unit));
  below.assertKept(request.budgets);
  above.add("rows' low places", plan.error << unit, plan.errorScale);
  above.assertKept(request.budgets);
  return plan;
}

std::optional<std::string> refuseSqrtLogic(const Request& request) {
  if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
  return refuseMixedForms(request);
}

}  // namespace

// The exponent of the root is half of that of the number less, where it is odd, one, by which the
// radicand, in [1, 4), is moved up: floor((E + bias) / 2), biased. The bias is odd.
//
// No root is half way between two neighbours m 2^k and (m + 1) 2^k, of precision p or subnormal:
// (2 m + 1)^2 4^(k - 1) would have an odd last digit below every number of the format. So to
// nearest the bit behind the last place decides alone.
std::vector<Signal> decomposeSqrtLogic(Builder& b, const Request& request,
                                       std::span<const Signal> inputs) {
  const FloatFormat in = inputFormat(request, 0), out = outputFormat(request, 0);
  const int wE = in.exponentBits, wF = in.fractionBits;
  const bool faithful = ulpsOf(request, 0) >= 1;
  const auto rounding = roundingOf(request, /*tiesAway=*/false, inputs);

  const int width = wE + 2 + (in.gradual ? std::bit_width(static_cast<unsigned>(wF)) : 0);
  const Unpacked x = arithmetic::normalised(
      b, arithmetic::unpack(b, inputs[0], in, arithmetic::ZeroFields::kLikeRegular), width);
  const Signal isOdd = b.bitNot(b.bitOf(x.exponent, 0));
  const Signal wide = b.zeroExtend(x.significand, wF + 2);
  const Signal radicand = b.select(isOdd, b.shiftedUp(x.significand, 1), wide);

  // The lowest root is that of the lowest number.
  const long lowest = in.minExponent() - (in.gradual ? wF : 0);
  const bool mayUnderflow = (lowest + in.bias()) >> 1 < out.minExponent();
  const RowPlan plan =
      faithful ? faithfulPlan(request, wF, mayUnderflow) : arithmetic::exactRootPlan(wF + 1);
  if (!faithful) arithmetic::stateRounding(request.budgets, rounding.isNearest());
  const auto root = arithmetic::rootByDigits(b, radicand, plan);

  // floor((E + bias) / 2) = floor(E / 2) + floor(bias / 2) + (1 for an odd E).
  const MPZ half(static_cast<long>(in.bias() >> 1));
  const Signal addend = b.select(isOdd, b.literal(half, width), b.literal(half + MPZ(1), width));
  const Signal floored = b.slice(x.exponent, 1, width - 1);
  const Signal negative = b.bitAnd(x.sign, b.bitNot(x.isZero));
  Unrounded result{
      .sign = x.sign,
      .exponent = in.gradual ? b.signExtend(floored, width) : b.zeroExtend(floored, width),
      .significand = root.bits,
      .sticky = faithful               ? b.bit(false)
                : rounding.isNearest() ? b.bit(true)
                                       : root.inexact,
      .isZero = x.isZero,
      .isInf = x.isInf,
      .isNan = b.bitOr(x.isNan, negative),
      .canOverflow = false,
      .exponentAddend = addend};
  if (mayUnderflow) {
    result = arithmetic::denormalise(b, arithmetic::settled(b, result), out, !faithful);
  } else {
    if (out.gradual) result = arithmetic::settled(b, result);
    const Signal never = b.bit(false);
    result.range = {never, never, never, never, never};
  }
  const arithmetic::RoundingRule truncation{.mode = RoundMode::kTowardZero};
  return {
      arithmetic::roundAndPack(b, result, out, faithful ? truncation : rounding, request.quietNaN)};
}

namespace {

constexpr UnitRow kRows[] = {
    {"DMFloatSqrt", evaluateReal<squareRoot>, decomposeSqrtLogic, refuseSqrtLogic}};

}  // namespace

std::span<const UnitRow> floatSqrtLogicUnits() { return kRows; }

}  // namespace functions
