#include "backend/functions/sequencers/float_acc.h"

#include <fmt/format.h>

#include <algorithm>

#include "backend/arithmetic/block_accumulator.h"
#include "backend/arithmetic/fixed_to_float.h"
#include "backend/arithmetic/shifter.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using graph::Builder;
using graph::Signal;

namespace {

constexpr long kMaxWidth = 4096;
enum Output { kSum, kTooLarge, kTooSmall, kOutOfRange };

// Weights of bits, as powers of two.
struct Range {
  long lowest, sign, highestOfTerm;
  explicit Range(const Signature& signature)
      : lowest(signature.variant[0]),
        sign(signature.variant[1]),
        highestOfTerm(signature.variant[2]) {}
};

void setDontCare(NumValue& result, unsigned precision) {
  result.type = NumType::kDontCare;
  result.raw = false;
  mpfr_set_zero(result.real.prepare(precision), 1);
}

void setFlag(NumValue& result, bool value, unsigned precision) {
  result.type = NumType::kValue;
  result.raw = false;
  mpfr_set_ui(result.real.prepare(precision), value ? 1 : 0, MPFR_RNDN);
}

// |x| >= 2^exponent.
bool reaches(mpfr_srcptr x, long exponent) {
  return mpfr_inf_p(x) || (mpfr_regular_p(x) && mpfr_get_exp(x) > exponent);
}

void evaluateAcc(const Signature& signature, std::vector<NumValue>& results,
                 const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                 const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(4);
  const Range range(signature);
  {
    const FullExponentRange exponents;
    thread_local Real x, term;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    const bool tooLarge = mpfr_nan_p(x.get()) || reaches(x.get(), range.highestOfTerm + 1);
    setFlag(results[kTooLarge], tooLarge, precisions[kTooLarge]);
    setFlag(results[kTooSmall], mpfr_regular_p(x.get()) && !reaches(x.get(), range.lowest),
            precisions[kTooSmall]);
    if (tooLarge || !readBit(inputs[1])) {
      setDontCare(results[kSum], precisions[kSum]);
      setDontCare(results[kOutOfRange], precisions[kOutOfRange]);
      return fitToCallersRange(results, roundings);
    }
    // A multiple of 2^lsbA with no more bits than x.
    mpfr_ptr t = term.prepare(mpfr_get_prec(x.get()) + 2);
    mpfr_mul_2si(t, x.get(), -range.lowest, MPFR_RNDZ);
    mpfr_trunc(t, t);
    mpfr_mul_2si(t, t, range.lowest, MPFR_RNDZ);
    if (mpfr_zero_p(t)) mpfr_set_zero(t, 1);
    // -2^msbA itself is in range.
    const bool isLowest = mpfr_signbit(t) != 0 && mpfr_cmp_si_2exp(t, -1, range.sign) == 0;
    const bool outOfRange = reaches(t, range.sign) && !isLowest;
    setFlag(results[kOutOfRange], outOfRange, precisions[kOutOfRange]);
    if (outOfRange)
      setDontCare(results[kSum], precisions[kSum]);
    else
      deliverOdd(results[kSum], t,
                 {.port = outputFloat(signature, 0),
                  .precision = precisions[kSum],
                  .rounding = roundings[kSum],
                  .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

// |x| on the accumulator's grid, and what does not fit.
struct Term {
  Signal magnitude;  // in units of 2^lsbA, up to weight 2^maxMSBX
  Signal tooLarge, tooSmall;
};
Term placeTerm(Builder& b, const arithmetic::Unpacked& x, const Range& range) {
  const auto scope = b.scope("place");
  const long bias = x.format.bias();
  // Subnormals stand in the lowest binade, which the highest weight may lie below.
  const long top = x.format.gradual ? std::max(range.highestOfTerm, x.format.minExponent() - bias)
                                    : range.highestOfTerm;
  const int width = arithmetic::signedWidth(top + bias - ((1L << x.format.exponentBits) - 1),
                                            std::max(top + bias, (1L << x.format.exponentBits)));
  const Signal distance = b.subtract(b.literal(top + bias, width), b.zeroExtend(x.exponent, width));
  const auto moved = arithmetic::shiftDownFromTop(b, x.significand, b.slice(distance, 0, width - 1),
                                                  static_cast<int>(top - range.lowest + 1));
  const int kept = static_cast<int>(range.highestOfTerm - range.lowest + 1);
  const Signal above = b.slice(moved.bits, kept, moved.bits.width - kept);
  const Signal exceeds = b.bitAnd(b.topBit(distance), b.bitNot(x.isZero));
  const Signal isSpecial = b.bitOr(x.isInf, x.isNan);
  const Signal magnitude = b.slice(moved.bits, 0, kept);
  const Signal tooLarge = b.reduceOr(b.concat({exceeds, above, isSpecial}));
  const Signal vanishes = b.bitAnd(b.isZero(moved.bits), b.bitNot(exceeds));
  return {magnitude, tooLarge,
          b.reduceAnd(b.concat({vanishes, b.bitNot(isSpecial), b.bitNot(x.isZero)}))};
}

// A two's-complement number with the accumulator's sign bit as a floating-point one, rounded once.
Signal convertSum(Builder& b, const Request& request, Signal sum, const Range& range,
                  std::span<const Signal> inputs) {
  const auto scope = b.scope("convert");
  const bool rounds = ulpsOf(request, 0) < 1;
  const auto rule = rounds ? roundingOf(request, /*tiesAway=*/false, inputs)
                           : arithmetic::RoundingRule{.mode = RoundMode::kTowardZero};
  arithmetic::stateRounding(request.budgets, rule.isNearest());
  const Signal sign = b.topBit(sum);
  const Signal magnitude =
      b.addCarry(b.bitXor(sum, b.replicate(sign, sum.width)), b.zeros(sum.width), sign);
  const auto [number, format] = arithmetic::fixedToFloat(
      b, sign, magnitude, range.sign, outputFormat(request, 0), /*below=*/rounds ? 1 : 0);
  return arithmetic::roundAndPack(b, number, format, rule, request.quietNaN);
}

// 1 when the bits from `low` up are not all alike.
Signal bitsDiffer(Builder& b, Signal x, int low) {
  const Signal high = b.slice(x, low, x.width - low);
  return b.bitAnd(b.reduceOr(high), b.bitNot(b.reduceAnd(high)));
}

std::vector<Signal> decomposeAcc(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  const Range range(request.signature);
  const auto x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const Term term = placeTerm(b, x, range);

  // A step that does not count adds 0.
  const Signal valid = request.valid ? request.valid : b.bit(true);
  const Signal restarts = b.bitAnd(inputs[1], valid);
  const Signal counts = b.bitAnd(valid, b.bitNot(term.tooLarge));
  const Signal magnitude = b.bitAnd(term.magnitude, b.replicate(counts, term.magnitude.width));
  const Signal negative = b.bitAnd(x.sign, counts);
  // One place more than a sum in range and a term need: the step that leaves the range shows.
  const long top = std::max(range.sign, range.highestOfTerm + 1) + 1;
  const int width = static_cast<int>(top - range.lowest + 1);
  const Signal addend = b.bitXor(b.zeroExtend(magnitude, width), b.replicate(negative, width));
  const Signal sum = arithmetic::accumulate(b, addend, negative, restarts);

  const int inRange = static_cast<int>(range.sign - range.lowest);
  const Signal left = b.state(1);
  const Signal outOfRange =
      b.bitOr(bitsDiffer(b, sum, inRange), b.bitAnd(left, b.bitNot(restarts)));
  b.setNext(left, outOfRange);
  return {convertSum(b, request, b.slice(sum, 0, inRange + 1), range, inputs), term.tooLarge,
          term.tooSmall, outOfRange};
}

std::optional<std::string> refuseAcc(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  const auto isBit = [](const kiln::Type& type) {
    return type.as_fixed_point() && type.width() == 1;
  };
  if (in.size() != 2 || !in[0].as_floating_point() || !isBit(in[1]) || out.size() != 4 ||
      !out[0].as_floating_point() || !std::all_of(out.begin() + 1, out.end(), isBit))
    return "its ports are a number and a bit, and a number and three flags";
  if (auto reason = refuseFormats(request)) return reason;
  if (auto reason = refuseMixedWidths(request)) return reason;
  const Range range(request.signature);
  // With gradual underflow words reach up to the lowest binade.
  const arithmetic::FloatFormat format = inputFormat(request, 0);
  const long least =
      (format.gradual ? format.minExponent() - format.bias() : range.lowest) - (kMaxWidth - 1);
  if (range.lowest < least) return fmt::format("lsbA {} is below {}", range.lowest, least);
  if (range.sign <= range.lowest || range.sign - range.lowest >= kMaxWidth)
    return fmt::format("msbA {} is out of range {} to {} for lsbA {}", range.sign, range.lowest + 1,
                       range.lowest + kMaxWidth - 1, range.lowest);
  if (range.highestOfTerm < range.lowest || range.highestOfTerm > range.sign)
    return fmt::format("maxMSBX {} is out of range {} to {}, lsbA to msbA", range.highestOfTerm,
                       range.lowest, range.sign);
  return std::nullopt;
}

constexpr UnitRow kRows[] = {
    {"CFloatAcc", evaluateAcc, decomposeAcc, refuseAcc, Protocol::kAccumulate}};

}  // namespace

std::span<const UnitRow> floatAccUnits() { return kRows; }

}  // namespace functions
