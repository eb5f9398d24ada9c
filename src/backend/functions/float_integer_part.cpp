#include "backend/functions/float_integer_part.h"

#include "backend/arithmetic/leading_zeros.h"
#include "backend/arithmetic/shifter.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"
#include "util/failure.h"

namespace functions {

using arithmetic::FloatFormat;
using arithmetic::Unpacked;
using graph::Builder;
using graph::Signal;
using util::MPZ;

namespace {

enum class Part { kFloor, kCeil, kTrunc, kRound, kRint, kFrac };

// Exact: an integer has no more bits than the number it is near.
void takePart(Part part, mpfr_ptr result, mpfr_srcptr x) {
  switch (part) {
    case Part::kFloor:
      mpfr_floor(result, x);
      break;
    case Part::kCeil:
      mpfr_ceil(result, x);
      break;
    case Part::kTrunc:
      mpfr_trunc(result, x);
      break;
    case Part::kRound:
      mpfr_round(result, x);
      break;
    case Part::kRint:
      mpfr_roundeven(result, x);
      break;
    case Part::kFrac:
      mpfr_frac(result, x, MPFR_RNDZ);
      break;
  }
  if (mpfr_zero_p(result)) mpfr_set_zero(result, mpfr_signbit(x) ? -1 : 1);
}

template <Part part>
void evaluate(const Signature& signature, std::vector<NumValue>& results,
              const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
              const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x, exact;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    takePart(part, exact.prepare(mpfr_get_prec(x.get())), x.get());
    deliverOdd(results[0], exact.get(),
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

// Where the integer bits of a number end.
struct Split {
  Signal belowOne;      // |x| < 1: there are none
  Signal fractionMask;  // of the fraction's bits, 1 below the units; all ones when belowOne
};
Split splitAtUnits(Builder& b, const Unpacked& x) {
  // The bias is one less than a power of two: from the exponent after it on, the top exponent bit
  // is 1 and the others count the integer places beyond the first.
  const int wE = x.format.exponentBits, wF = x.format.fractionBits;
  const Signal twoOrMore = b.topBit(x.exponent), places = b.slice(x.exponent, 0, wE - 1);
  const Signal mask = arithmetic::shiftRight(b, b.literal(MPZ::allOnes(wF - 1), wF), places);
  return {.belowOne = b.bitNot(b.bitOr(twoOrMore, b.reduceAnd(places))),
          .fractionMask = b.bitOr(mask, b.replicate(b.bitNot(twoOrMore), wF))};
}

// 1 where the magnitude of the integer part grows by one.
Signal raises(Builder& b, Part part, const Unpacked& x, const Split& split) {
  if (part == Part::kTrunc) return b.bit(false);
  const int wF = x.format.fractionBits;
  const Signal mask = split.fractionMask;
  const Signal fraction = b.slice(x.significand, 0, wF);
  const Signal finite = b.bitNot(b.bitOr(x.isInf, x.isNan));
  if (part == Part::kFloor || part == Part::kCeil) {
    const Signal rest = b.reduceOr(b.bitAnd(fraction, mask));
    const Signal inexact = b.bitOr(rest, b.bitAnd(split.belowOne, b.bitNot(x.isZero)));
    const Signal awayFromZero = part == Part::kFloor ? x.sign : b.bitNot(x.sign);
    return b.bitAnd(b.bitAnd(inexact, awayFromZero), finite);
  }
  // The half stands at the mask's top bit, the units before it; below 1 only in the binade from
  // 1/2 on, where the half is the hidden bit. A zero has no such exponent or no hidden bit.
  const Signal belowHalf = b.concat({b.zeros(1), b.slice(mask, 1, wF - 1)});
  const Signal halfPlace = b.bitAnd(mask, b.bitNot(belowHalf));
  const Signal fromHalf =
      b.equal(x.exponent, b.literal(x.format.bias() - 1, x.format.exponentBits));
  const Signal hidden = b.topBit(x.significand);
  const Signal half = b.select(split.belowOne, b.bitAnd(fromHalf, hidden),
                               b.reduceOr(b.bitAnd(fraction, halfPlace)));
  if (part == Part::kRound) return b.bitAnd(half, finite);
  LOAM_ASSERT(part == Part::kRint, "a rounding to nearest");
  const Signal below = b.select(split.belowOne, mask, belowHalf);
  const Signal rest = b.reduceOr(b.bitAnd(fraction, below));
  // Units stand one place above the half: that of the hidden bit where all fraction bits are
  // masked.
  const Signal unitsPlace =
      b.bitAnd(b.concat({mask, b.bit(true)}), b.bitNot(b.concat({b.zeros(1), mask})));
  const Signal units = b.reduceOr(b.bitAnd(x.significand, unitsPlace));
  const Signal odd = b.bitAnd(units, b.bitNot(split.belowOne));
  return b.bitAnd(b.bitAnd(half, b.bitOr(rest, odd)), finite);
}

Signal buildInteger(Builder& b, Part part, const Unpacked& x, const FloatFormat& format,
                    bool quietNaN) {
  const int wF = format.fractionBits, width = format.exponentBits + 2;
  const Split split = splitAtUnits(b, x);
  const Signal raise = raises(b, part, x, split);
  const auto all = [&](Signal condition) { return b.replicate(condition, wF); };
  // All ones below the units carry a raise up to them; from 1/2 on, and from all numbers below it,
  // they carry it to 1.
  const Signal kept = b.bitAnd(b.slice(x.significand, 0, wF), b.bitNot(split.fractionMask));
  const Signal fraction = b.bitOr(kept, b.bitAnd(split.fractionMask, all(raise)));
  const Signal exponent = b.select(split.belowOne, b.literal(format.bias() - 1, width),
                                   b.zeroExtend(x.exponent, width));
  arithmetic::Unrounded result{
      .sign = x.sign,
      .exponent = exponent,
      .significand = b.concat({b.bitOr(b.topBit(x.significand), split.belowOne), fraction}),
      .sticky = b.bit(false),
      .isZero = b.bitOr(x.isZero, b.bitAnd(split.belowOne, b.bitNot(raise))),
      .isInf = x.isInf,
      .isNan = x.isNan,
      .canOverflow = format.maxExponent() - format.bias() < wF,
      .oneMore = raise};
  // An integer is at least 1: where the fraction ends before the exponents do, all are in range. In
  // formats whose lowest binade begins there subnormals share its exponent, and are told by the
  // hidden bit.
  if (result.canOverflow || (format.gradual && format.bias() <= format.minExponent()))
    return roundAndPack(b, result, format, {}, quietNaN);
  const Signal no = b.bit(false);
  result.range = arithmetic::ExponentRange{
      .above = no, .atTop = no, .below = no, .atBottom = no, .raised = no};
  if (!format.fpLib) {
    // Zeros have no bits to be cleared late: below 1 none is kept.
    const Signal hasExponent = b.bitOr(b.bitNot(split.belowOne), raise);
    result.exponent = b.bitAnd(exponent, b.replicate(hasExponent, width));
    result.isZero = no;
  }
  return roundAndPack(b, result, format, {}, quietNaN);
}

Signal buildFrac(Builder& b, const Unpacked& x, const FloatFormat& format, const Request& request) {
  const int wF = format.fractionBits;
  const Split split = splitAtUnits(b, x);
  const Signal fraction = b.bitAnd(b.slice(x.significand, 0, wF), split.fractionMask);
  const Signal hidden = b.bitAnd(b.topBit(x.significand), split.belowOne);
  // A number below 1 stands as it is, a subnormal too.
  const arithmetic::LeadingZeros zeros =
      arithmetic::countLeadingZeros(b, b.concat({split.belowOne, fraction}), request.firstOne);
  Signal count = zeros.count;
  const int width = arithmetic::signedWidth(-wF, format.maxExponent() + 1L);
  Signal exponent = b.zeroExtend(x.exponent, width);
  // Fractions of numbers from 1 on may be subnormal where the exponent reaches less far down than
  // the fraction.
  if (format.gradual && format.bias() - wF < format.minExponent())
    count =
        arithmetic::smaller(b, count, b.subtract(exponent, b.literal(format.minExponent(), width)));
  exponent = b.subtract(exponent, b.zeroExtend(count, width));
  return roundAndPack(
      b,
      {.sign = x.sign,
       .exponent = exponent,
       .significand = arithmetic::shiftLeft(b, b.concat({hidden, fraction}), count, wF),
       .sticky = b.bit(false),
       .isZero = b.bitOr(b.bitOr(x.isZero, zeros.allZero), x.isInf),
       .isInf = b.bit(false),
       .isNan = x.isNan,
       .canOverflow = false},
      format, {}, request.quietNaN);
}

template <Part part>
std::vector<Signal> decompose(Builder& b, const Request& request, std::span<const Signal> inputs) {
  const auto scope = b.scope(part == Part::kFrac ? "frac" : "integer_part");
  const Unpacked x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  const FloatFormat format = outputFormat(request, 0);
  if (part == Part::kFrac) return {buildFrac(b, x, format, request)};
  return {buildInteger(b, part, x, format, request.quietNaN)};
}

std::optional<std::string> refuse(const Request& request) {
  if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
  return refuseMixedForms(request);
}

template <Part part>
constexpr UnitRow row(std::string_view name) {
  UnitRow result{name, evaluate<part>, decompose<part>, refuse};
  if (part == Part::kFrac) result.otherFirstOne = arithmetic::FirstOne::kOwnGates;
  return result;
}

constexpr UnitRow kRows[] = {
    row<Part::kFloor>("DMFloatFloor"), row<Part::kCeil>("DMFloatCeil"),
    row<Part::kRound>("DMFloatRound"), row<Part::kRint>("DMFloatRint"),
    row<Part::kTrunc>("DMFloatTrunc"), row<Part::kFrac>("DMFloatFrac"),
};

}  // namespace

std::span<const UnitRow> floatIntegerPartUnits() { return kRows; }

}  // namespace functions
