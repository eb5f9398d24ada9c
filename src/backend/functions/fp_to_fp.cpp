#include "backend/functions/fp_to_fp.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "backend/arithmetic/fixed_to_float.h"
#include "backend/arithmetic/leading_zeros.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/integer_values.h"

namespace functions {

using arithmetic::FloatFormat;
using graph::Builder;
using graph::Signal;

namespace {

constexpr std::size_t kRounding = 4;  // place in the variant of DMFPIEEEToFPIEEE
constexpr int kClassBits = 3;
enum ClassBit : unsigned { kIsZero = 1, kIsInf = 2, kIsNan = 4 };

RoundMode modeOf(const Signature& signature) {
  const auto number = signature.variant[kRounding];
  if (number == 1) return RoundMode::kNearestEven;
  return number == 2 ? RoundMode::kTowardZero : RoundMode::kNearestAway;
}

// The references. Their inputs have few enough bits to be delivered as they stand.

void evaluateConversion(const Signature& signature, std::vector<NumValue>& results,
                        const std::vector<NumValue>& inputs,
                        const std::vector<unsigned>& precisions, const std::vector<mpfr_rnd_t>&,
                        bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  const RoundMode mode = modeOf(signature);
  const mpfr_rnd_t direction = mode == RoundMode::kTowardZero ? MPFR_RNDZ : MPFR_RNDN;
  {
    const FullExponentRange range;
    thread_local Real x;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    deliverOdd(results[0], x.get(),
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = direction,
                .tiesAway = mode == RoundMode::kNearestAway,
                .subnormals = subnormals});
  }
  fitToCallersRange(results, {direction});
}

void evaluateWiden(const Signature& signature, std::vector<NumValue>& results,
                   const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                   const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(2);
  {
    const FullExponentRange range;
    thread_local Real x;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    deliverOdd(results[0], x.get(),
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
    unsigned kind = 0;
    if (mpfr_nan_p(x.get())) kind = kIsNan;
    if (mpfr_inf_p(x.get())) kind = kIsInf;
    if (mpfr_zero_p(x.get())) kind = kIsZero;
    writeInteger(results[1], util::MPZ(kind), fixedPoint(signature.out[1]), precisions[1],
                 roundings[1]);
  }
  fitToCallersRange(results, roundings);
}

void evaluateNarrow(const Signature& signature, std::vector<NumValue>& results,
                    const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                    const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    const unsigned kind = readSelect(inputs[1], kClassBits);
    const int sign = mpfr_signbit(x.get()) && !mpfr_nan_p(x.get()) ? -1 : 1;
    if (kind & kIsNan)
      mpfr_set_nan(x.get());
    else if (kind & kIsInf)
      mpfr_set_inf(x.get(), sign);
    else if (kind & kIsZero)
      mpfr_set_zero(x.get(), sign);
    deliverOdd(results[0], x.get(),
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

// The circuits.

// A subnormal with the exponent that its digits have, as far as the wider range `out` goes.
void normaliseInto(Builder& b, arithmetic::Unrounded& x, long least, const FloatFormat& out) {
  const auto scope = b.scope("normalise");
  const long distance = least - out.minExponent();
  const int width = x.significand.width;
  const auto limit = static_cast<unsigned long>(distance);
  const auto normal =
      distance >= width - 1
          ? arithmetic::normalise(b, x.significand)
          : arithmetic::normaliseUpTo(b, x.significand,
                                      b.literal(distance, static_cast<int>(std::bit_width(limit))));
  x.significand = normal.bits;
  x.exponent = b.subtract(x.exponent, b.zeroExtend(normal.count, x.exponent.width));
}

// The number before rounding to `out`, exactly, and the format to pack it to.
arithmetic::Converted convert(Builder& b, const arithmetic::Unpacked& a, const FloatFormat& out) {
  const FloatFormat& in = a.format;
  const long shift = out.bias() - in.bias();
  // Exponents of the input's regular numbers, biased as in the output.
  const long least = in.minExponent() + shift, greatest = in.maxExponent() + shift;
  const int width = 1 + arithmetic::signedWidth(std::min(least - in.fractionBits - 1, 0L),
                                                std::max(greatest + 2, long{out.minExponent()}));
  arithmetic::Converted result{
      .number = {.sign = a.sign,
                 .exponent = b.add(b.zeroExtend(a.exponent, width), b.literal(shift, width)),
                 .significand = a.significand,
                 .sticky = b.bit(false),
                 .isZero = a.isZero,
                 .isInf = a.isInf,
                 .isNan = a.isNan},
      .format = out};
  arithmetic::Unrounded& x = result.number;
  if (in.gradual && least > out.minExponent()) normaliseInto(b, x, least, out);

  // One bit under the fraction, and whether anything follows it.
  const int kept = out.fractionBits + 2;
  const int rest = std::max(0, x.significand.width - kept);
  if (rest > 0) x.sticky = b.reduceOr(b.slice(x.significand, 0, rest));
  x.significand = b.slice(x.significand, rest, x.significand.width - rest);
  x.significand = b.shiftedUp(x.significand, kept - x.significand.width);
  if (out.gradual && least < out.minExponent())
    x = arithmetic::denormalise(b, x, out, /*needsSticky=*/true);

  x.canOverflow = greatest > out.maxExponent() ||
                  (greatest == out.maxExponent() && in.fractionBits > out.fractionBits);
  if (!in.gradual && least >= out.minExponent()) result.format.gradual = true;
  return result;
}

Signal pack(Builder& b, const Request& request, const arithmetic::Unpacked& a,
            const arithmetic::RoundingRule& rule) {
  const auto [number, format] = convert(b, a, outputFormat(request, 0));
  return arithmetic::roundAndPack(b, number, format, rule, request.quietNaN);
}

std::vector<Signal> decomposeConversion(Builder& b, const Request& request,
                                        std::span<const Signal> inputs) {
  const auto a = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  return {pack(b, request, a, {.mode = modeOf(request.signature)})};
}

std::vector<Signal> decomposeWiden(Builder& b, const Request& request,
                                   std::span<const Signal> inputs) {
  const auto a = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  return {pack(b, request, a, {.mode = RoundMode::kTowardZero}),
          b.concat({a.isNan, a.isInf, a.isZero})};
}

std::vector<Signal> decomposeNarrow(Builder& b, const Request& request,
                                    std::span<const Signal> inputs) {
  auto a = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  // A NaN goes before an infinity and that before a zero, so a class need only silence the higher.
  const Signal saysZero = b.bitOf(inputs[1], 0), saysInf = b.bitOf(inputs[1], 1);
  const Signal stands = b.isZero(inputs[1]);
  a.sign = b.bitAnd(a.sign, b.bitNot(a.isNan));
  a.isNan = b.bitOr(b.bitOf(inputs[1], 2), b.bitAnd(a.isNan, stands));
  a.isInf = b.bitOr(saysInf, b.bitAnd(a.isInf, stands));
  a.isZero = b.bitOr(saysZero, b.bitAnd(a.isZero, stands));
  return {pack(b, request, a, roundingOf(request, /*tiesAway=*/false, inputs))};
}

// Refuses unless the first ports are IEEE-style numbers.
std::optional<std::string> refuseNumbers(const Request& request, std::size_t inputs,
                                         std::size_t outputs) {
  const auto& [in, out, variant] = request.signature;
  if (in.size() != inputs || out.size() != outputs)
    return fmt::format("{} inputs and {} outputs are not the {} and {} of this unit", in.size(),
                       out.size(), inputs, outputs);
  for (const kiln::Type* type : {&in[0], &out[0]})
    if (!type->as_floating_point() || type->as_floating_point()->is_fp_lib)
      return "its operand and its result are IEEE-style";
  return refuseFormats(request);
}

std::optional<std::string> refuseConversion(const Request& request) {
  return refuseNumbers(request, 1, 1);
}

// Refuses unless `wide` has two exponent bits more than `narrow` and the same fraction.
std::optional<std::string> refuseCast(const kiln::FloatingPoint& narrow,
                                      const kiln::FloatingPoint& wide, const kiln::Type& kind) {
  if (wide.exp != narrow.exp + 2 || wide.frac != narrow.frac)
    return fmt::format("formats {} {} and {} {} are not two exponent bits apart", narrow.exp,
                       narrow.frac, wide.exp, wide.frac);
  if (!isControl(kind, kClassBits)) return "its class is not a port of 3 bits";
  return std::nullopt;
}

std::optional<std::string> refuseWiden(const Request& request) {
  if (auto reason = refuseNumbers(request, 1, 2)) return reason;
  const Signature& signature = request.signature;
  return refuseCast(inputFloat(signature, 0), outputFloat(signature, 0), signature.out[1]);
}

std::optional<std::string> refuseNarrow(const Request& request) {
  if (auto reason = refuseNumbers(request, 2, 1)) return reason;
  const Signature& signature = request.signature;
  return refuseCast(outputFloat(signature, 0), inputFloat(signature, 0), signature.in[1]);
}

constexpr UnitRow kRows[] = {
    {"DMFPIEEEToFPIEEE", evaluateConversion, decomposeConversion, refuseConversion},
    {"DMFloatCastIEEEtoFPC", evaluateWiden, decomposeWiden, refuseWiden},
    {"DMFloatCastFPCToIEEE", evaluateNarrow, decomposeNarrow, refuseNarrow}};

}  // namespace

std::span<const UnitRow> floatToFloatUnits() { return kRows; }

}  // namespace functions
