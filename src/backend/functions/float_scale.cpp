#include "backend/functions/float_scale.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstdint>

#include "backend/arithmetic/carry_logic.h"
#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using arithmetic::FloatFormat;
using arithmetic::Unpacked;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

constexpr int kLogBits = 32;

// The integer on a port, held within the port's limits; beyond +-2^40, where every scaling
// overflows or underflows, the nearest of these.
long readScale(const NumValue& input, const kiln::FixedPoint& port) {
  if (!input.real || mpfr_nan_p(input.real.get())) return 0;
  constexpr int kEnough = 40;
  const int bits = std::min(port.width() - (port.sign() ? 1 : 0), kEnough);
  const long highest = (1L << bits) - 1, lowest = port.sign() ? -(1L << bits) : 0;
  if (mpfr_cmp_si(input.real.get(), highest) >= 0) return highest;
  if (mpfr_cmp_si(input.real.get(), lowest) <= 0) return lowest;
  return mpfr_get_si(input.real.get(), MPFR_RNDZ);
}

void evaluateLdExp(const Signature& signature, std::vector<NumValue>& results,
                   const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                   const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    const long scale = readScale(inputs[1], *signature.in[1].as_fixed_point());
    mpfr_mul_2si(x.get(), x.get(), scale, MPFR_RNDN);
    deliverOdd(results[0], x.get(),
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

void evaluateILogB(const Signature& signature, std::vector<NumValue>& results,
                   const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                   const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  results[0].type = NumType::kValue;
  results[0].raw = false;
  {
    const FullExponentRange range;
    thread_local Real x;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    long exponent = INT32_MAX;
    if (mpfr_zero_p(x.get())) exponent = INT32_MIN;
    if (mpfr_regular_p(x.get())) exponent = mpfr_get_exp(x.get()) - 1;
    mpfr_set_si(results[0].real.prepare(precisions[0]), exponent, roundings[0]);
  }
  fitToCallersRange(results, roundings);
}

// A signed number held within +-2^bits, in bits + 1 bits.
Signal heldWithin(Builder& b, Signal x, int bits) {
  if (x.width <= bits + 1) return b.signExtend(x, bits + 1);
  const Signal sign = b.topBit(x), high = b.slice(x, bits, x.width - bits);
  const Signal fits = b.bitNot(b.bitOr(b.bitAnd(b.bitNot(sign), b.reduceOr(high)),
                                       b.bitAnd(sign, b.bitNot(b.reduceAnd(high)))));
  return b.concat({sign, b.select(fits, b.slice(x, 0, bits), b.replicate(b.bitNot(sign), bits))});
}

// How a result that may be subnormal is rounded, and whether what it loses matters for that.
struct Delivered {
  arithmetic::RoundingRule rule;
  bool needsSticky;
};
Delivered deliveryOf(const Request& request, std::span<const Signal> inputs) {
  const double ulps = ulpsOf(request, 0);
  if (ulps < 1) return {roundingOf(request, /*tiesAway=*/false, inputs), true};
  arithmetic::ErrorBudget budget(ulps);
  budget.add("truncation of a subnormal", 1);
  budget.assertKept();
  return {{.mode = RoundMode::kTowardZero}, false};
}

std::vector<Signal> decomposeLdExp(Builder& b, const Request& request,
                                   std::span<const Signal> inputs) {
  const auto scope = b.scope("ldexp");
  const Unpacked x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const FloatFormat format = outputFormat(request, 0);
  const bool isSigned = request.signature.in[1].as_fixed_point()->sign();
  const Signal integer = isSigned ? inputs[1] : b.concat({b.zeros(1), inputs[1]});
  // 2^bits takes any number across the whole range, subnormals included.
  const int span = (1 << format.exponentBits) + format.fractionBits + 2;
  const int bits = std::bit_width(static_cast<unsigned>(span));
  const Signal scale = heldWithin(b, integer, bits);
  const int width = arithmetic::signedWidth(-(1L << bits) - format.fractionBits,
                                            (1L << bits) + (1L << format.exponentBits));
  arithmetic::Unrounded result{
      .sign = x.sign,
      .exponent = b.add(b.zeroExtend(x.exponent, width), b.signExtend(scale, width)),
      .significand = x.significand,
      .sticky = b.bit(false),
      .isZero = x.isZero,
      .isInf = x.isInf,
      .isNan = x.isNan};
  if (x.format.gradual) {
    // A subnormal moves up as far as it grows; to a form without subnormals, wholly.
    const Signal growth =
        b.bitAnd(b.slice(scale, 0, bits), b.replicate(b.bitNot(b.topBit(scale)), bits));
    const auto moved = format.gradual ? arithmetic::normaliseUpTo(b, x.significand, growth)
                                      : arithmetic::normalise(b, x.significand);
    result.significand = moved.bits;
    result.exponent = b.subtract(result.exponent, b.zeroExtend(moved.count, width));
  }
  // Exact but for subnormals.
  if (!format.gradual) return {roundAndPack(b, result, format, {}, request.quietNaN)};
  const auto [rule, needsSticky] = deliveryOf(request, inputs);
  result.significand = b.shiftedUp(result.significand, needsSticky ? 1 : 0);
  return {
      roundAndPack(b, denormalise(b, result, format, needsSticky), format, rule, request.quietNaN)};
}

std::vector<Signal> decomposeILogB(Builder& b, const Request& request,
                                   std::span<const Signal> inputs) {
  const auto scope = b.scope("ilogb");
  const Unpacked x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const FloatFormat& format = x.format;
  const int width = arithmetic::signedWidth(-format.bias() - format.fractionBits,
                                            format.maxExponent() - format.bias());
  Signal log = b.add(b.zeroExtend(x.exponent, width), b.literal(-format.bias(), width));
  if (format.gradual)
    log =
        b.subtract(log, b.zeroExtend(arithmetic::countLeadingZeros(b, x.significand).count, width));
  const Signal lowest = b.literal(MPZ::powerOfTwo(kLogBits - 1), kLogBits);
  Signal isZero = x.isZero, isInfOrNan = b.bitOr(x.isInf, x.isNan);
  if (!format.fpLib) {
    // All bits of the result wait for them.
    const int wE = format.exponentBits, wF = format.fractionBits;
    const Signal field = b.slice(inputs[0], wF, wE);
    isInfOrNan = arithmetic::allByCarry(b, field);
    isZero = b.bitNot(
        arithmetic::anyByCarry(b, format.gradual ? b.slice(inputs[0], 0, wE + wF) : field));
  }
  const Signal special = b.select(isZero, lowest, b.bitNot(lowest));
  const Signal isSpecial = b.bitOr(isZero, isInfOrNan);
  return {b.select(isSpecial, special, b.signExtend(log, kLogBits))};
}

std::optional<std::string> refuseLdExp(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  if (in.size() != 2 || out.size() != 1)
    return fmt::format("{} inputs and {} outputs are not the 2 and 1 of this unit", in.size(),
                       out.size());
  if (!in[0].as_floating_point() || !out[0].as_floating_point())
    return "its number and its result are floating-point ports";
  const kiln::FixedPoint* scale = in[1].as_fixed_point();
  if (!scale || scale->fraction() != 0) return "input 1 is not an integer port";
  if (scale->width() < 1 || scale->width() > 4096)
    return fmt::format("wI {} is out of range 1 to 4096", scale->width());
  if (auto reason = refuseFormats(request)) return reason;
  return refuseMixedWidths(request);
}

std::optional<std::string> refuseILogB(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  if (in.size() != 1 || out.size() != 1 || !in[0].as_floating_point())
    return "it has one floating-point input and one output";
  const kiln::FixedPoint* result = out[0].as_fixed_point();
  if (!result || result->width() != kLogBits || result->fraction() != 0 || !result->sign())
    return fmt::format("its output is not a signed integer port of {} bits", kLogBits);
  return refuseFormats(request);
}

constexpr UnitRow kRows[] = {
    {"DMFloatLdExp", evaluateLdExp, decomposeLdExp, refuseLdExp},
    {"DMFloatILogB", evaluateILogB, decomposeILogB, refuseILogB},
};

}  // namespace

std::span<const UnitRow> floatScaleUnits() { return kRows; }

}  // namespace functions
