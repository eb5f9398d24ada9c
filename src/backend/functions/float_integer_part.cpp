#include "backend/functions/float_integer_part.h"

#include <algorithm>
#include <bit>
#include <vector>

#include "backend/arithmetic/carry_logic.h"
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
  Signal twoOrMore;  // the top exponent bit: the bias is one less than a power of two
  Signal fromOne;    // 1 <= |x| < 2: the exponent is the bias
  Signal belowOne;   // there are no integer bits
  Signal places;     // the other exponent bits: from 2 on, the integer places beyond the first
};
Split splitAtUnits(Builder& b, const Unpacked& x) {
  const int wE = x.format.exponentBits;
  Split split;
  split.twoOrMore = b.topBit(x.exponent);
  split.places = b.slice(x.exponent, 0, wE - 1);
  split.fromOne = b.bitAnd(b.bitNot(split.twoOrMore), b.reduceAnd(split.places));
  split.belowOne = b.bitNot(b.bitOr(split.twoOrMore, split.fromOne));
  return split;
}

// Of the fraction's bits, 1 below the units of a number from 2 on that has as many places.
Signal maskAt(Builder& b, Signal places, int wF) {
  return arithmetic::shiftRight(b, b.literal(MPZ::allOnes(wF - 1), wF), places);
}

// The same for all numbers; all ones below 2.
Signal maskBelowUnits(Builder& b, const Split& split, int wF) {
  return b.bitOr(maskAt(b, split.places, wF), b.replicate(b.bitNot(split.twoOrMore), wF));
}

// What rounding to an integer does: the bits of the fraction below the units, all of them below 2,
// and 1 where the magnitude grows by one, which never is that of an infinity or a NaN.
struct IntegerStep {
  Signal mask, raise;
};

// 1 where any bit of a word is 1 that is a number's bits and a mask: a table takes three of both.
constexpr int kMaskedPerTable = 3;
Signal anyMasked(Builder& b, Signal masked) {
  return arithmetic::anyByCarry(b, masked, kMaskedPerTable);
}

// `byCarry`: the raise, for which all bits wait, is a carry, which is made once. Otherwise tools
// may make its last gates in each bit.
IntegerStep awayFromZero(Builder& b, const Unpacked& x, const Split& split, Signal isAway,
                         bool byCarry) {
  const int wF = x.format.fractionBits;
  const Signal mask = maskBelowUnits(b, split, wF);
  const Signal masked = b.bitAnd(b.slice(x.significand, 0, wF), mask);
  if (!byCarry) {
    const Signal rest = anyMasked(b, masked);
    return {mask, b.bitAnd(b.select(split.belowOne, b.bitNot(x.isZero), rest), isAway)};
  }
  const Signal hidden = b.bitAnd(split.belowOne, b.topBit(x.significand));
  return {mask, arithmetic::anyByCarry(b, b.concat({hidden, masked}), kMaskedPerTable,
                                       b.bitAnd(isAway, b.bitNot(x.isZero)))};
}

// True for formats in which subnormals have the exponent of 1 and are told by the hidden bit alone.
bool sharesOneWithSubnormals(const FloatFormat& format) {
  return format.gradual && format.bias() <= format.minExponent();
}

// To the nearest integer, in a tie to the even one or else away from zero.
IntegerStep toNearest(Builder& b, const Unpacked& x, const Split& split, bool tiesToEven,
                      bool byCarry) {
  const int wF = x.format.fractionBits;
  const Signal fraction = b.slice(x.significand, 0, wF);
  // As many bits of the places as tell apart all that leave a fraction, and whether more are 1.
  const int width =
      std::min(split.places.width, static_cast<int>(std::bit_width(static_cast<unsigned>(wF))));
  const Signal near = b.slice(split.places, 0, width);
  const Signal high = b.slice(split.places, width, split.places.width - width);
  const Signal isNear = high.width > 0 ? b.isZero(high) : b.bit(true);
  const auto bitBelowUnits = [&](int below) {
    std::vector<Signal> choices;
    for (int place = 0; place < 1 << width; ++place) {
      const int at = wF - 1 - place - below;
      choices.push_back(at < 0 ? b.bit(false) : b.bitOf(x.significand, at));
    }
    return b.pick(near, choices);
  };
  // Below 1 there is a half only in the binade from 1/2 on, where it is the hidden bit. A zero has
  // no such exponent or no hidden bit.
  Signal half = bitBelowUnits(1);
  Signal fromHalf =
      b.bitAnd(b.equal(x.exponent, b.literal(x.format.bias() - 1, x.format.exponentBits)),
               b.topBit(x.significand));
  Signal fromOne = b.topBit(fraction);
  const Signal mask = maskAt(b, near, wF);
  if (tiesToEven) {
    // 1 is odd, 0 even. Where the lowest binade begins at 1, subnormals have its exponent.
    if (sharesOneWithSubnormals(x.format))
      fromOne = b.bitAnd(
          fromOne, b.reduceOr(b.concat({b.topBit(x.significand), b.slice(fraction, 0, wF - 1)})));
    const Signal belowHalf = b.concat({b.zeros(1), b.slice(mask, 1, wF - 1)});
    const Signal rest = anyMasked(b, b.bitAnd(fraction, belowHalf));
    half = b.bitAnd(half, b.bitOr(rest, bitBelowUnits(0)));
    fromHalf = b.bitAnd(fromHalf, b.reduceOr(fraction));
  }
  const Signal below = b.select(split.twoOrMore, b.bitAnd(mask, b.replicate(isNear, wF)),
                                b.literal(MPZ::allOnes(wF), wF));
  half = b.bitAnd(half, isNear);
  if (!byCarry)
    return {below, b.select(split.twoOrMore, half, b.select(split.fromOne, fromOne, fromHalf))};
  const Signal ways =
      b.concat({b.bitAnd(split.twoOrMore, half), b.bitAnd(b.bitNot(split.twoOrMore), fromHalf),
                b.bitAnd(split.fromOne, fromOne)});
  return {below, arithmetic::anyByCarry(b, ways, /*perTable=*/1)};
}

IntegerStep integerStep(Builder& b, Part part, const Unpacked& x, const Split& split,
                        bool byCarry) {
  const int wF = x.format.fractionBits;
  IntegerStep result;
  switch (part) {
    case Part::kFloor:
      result = awayFromZero(b, x, split, x.sign, byCarry);
      break;
    case Part::kCeil:
      result = awayFromZero(b, x, split, b.bitNot(x.sign), byCarry);
      break;
    case Part::kTrunc:
      return awayFromZero(b, x, split, b.bit(false), /*byCarry=*/false);
    case Part::kRound:
      result = toNearest(b, x, split, /*tiesToEven=*/false, byCarry);
      break;
    case Part::kRint:
      result = toNearest(b, x, split, /*tiesToEven=*/true, byCarry);
      break;
    case Part::kFrac:
      LOAM_ASSERT(false, "a rounding");
  }
  // Where all exponents of IEEE-style numbers reach past fractions, that of infinities and NaNs is
  // past them, too.
  const bool isPast = !x.format.fpLib && x.format.maxExponent() - x.format.bias() >= wF;
  if (!isPast) result.raise = b.bitAnd(result.raise, b.bitNot(b.bitOr(x.isInf, x.isNan)));
  return result;
}

Signal buildInteger(Builder& b, Part part, const Unpacked& x, const Request& request) {
  const FloatFormat& format = x.format;
  const int wE = format.exponentBits, wF = format.fractionBits;
  const Split split = splitAtUnits(b, x);
  const auto [mask, raise] = integerStep(b, part, x, split, request.form.raisesByCarry);
  const auto all = [&](Signal condition, int width) { return b.replicate(condition, width); };
  // All ones below the units carry a raise up to them; from 1/2 on, and from all numbers below it,
  // they carry it to 1.
  const Signal kept = b.bitAnd(b.slice(x.significand, 0, wF), b.bitNot(mask));
  const Signal raised = b.bitAnd(mask, all(raise, wF));
  const Signal belowOneExponent = b.literal(format.bias() - 1, wE);
  const bool canOverflow = format.maxExponent() - format.bias() < wF;
  // An integer is at least 1: where the fraction ends before the exponents do, all are in range.
  const bool isInRange = !canOverflow && !sharesOneWithSubnormals(format);
  if (isInRange && !format.fpLib) {
    // Exponents of infinities and NaNs stand as they are.
    const Signal isSpecial = b.bitOr(x.isInf, x.isNan);
    const Signal fraction = b.bitOr(b.bitAnd(kept, b.bitNot(all(isSpecial, wF))), raised);
    const Signal field =
        b.select(split.belowOne, b.bitAnd(belowOneExponent, all(raise, wE)), x.exponent);
    const Signal sum = b.addCarry(b.concat({field, fraction}), b.zeros(wE + wF), raise);
    return withNanPattern(b, x.sign, sum, x.isNan, format, request.quietNaN);
  }
  arithmetic::Unrounded result{
      .sign = x.sign,
      .exponent = b.zeroExtend(b.select(split.belowOne, belowOneExponent, x.exponent), wE + 2),
      .significand =
          b.concat({b.bitOr(b.topBit(x.significand), split.belowOne), b.bitOr(kept, raised)}),
      .sticky = b.bit(false),
      .isZero = b.bitOr(x.isZero, b.bitAnd(split.belowOne, b.bitNot(raise))),
      .isInf = x.isInf,
      .isNan = x.isNan,
      .canOverflow = canOverflow,
      .oneMore = raise};
  const Signal no = b.bit(false);
  if (isInRange)
    result.range = arithmetic::ExponentRange{
        .above = no, .atTop = no, .below = no, .atBottom = no, .raised = no};
  return roundAndPack(b, result, format, {}, request.quietNaN);
}

Signal buildFrac(Builder& b, const Unpacked& x, const FloatFormat& format, const Request& request) {
  const int wF = format.fractionBits;
  const Split split = splitAtUnits(b, x);
  const Signal mask = maskBelowUnits(b, split, wF);
  const Signal fraction = b.bitAnd(b.slice(x.significand, 0, wF), mask);
  const Signal hidden = b.bitAnd(b.topBit(x.significand), split.belowOne);
  // A number below 1 stands as it is, a subnormal too.
  const arithmetic::LeadingZeros zeros =
      arithmetic::countLeadingZeros(b, b.concat({split.belowOne, fraction}), request.form.firstOne);
  Signal count = zeros.count;
  const int width = arithmetic::signedWidth(-wF, format.maxExponent() + 1L);
  Signal exponent = b.zeroExtend(x.exponent, width);
  // Fractions of numbers from 1 on may be subnormal where the exponent reaches less far down than
  // the fraction.
  if (format.gradual && format.bias() - wF < format.minExponent())
    count =
        arithmetic::smaller(b, count, b.subtract(exponent, b.literal(format.minExponent(), width)));
  exponent = b.subtract(exponent, b.zeroExtend(count, width));
  // All bits of the result wait for it: told by a carry where the fraction has more bits than two
  // tables behind each other take.
  constexpr int kBitsOfTwoTables = 36;
  const Signal isInteger =
      wF <= kBitsOfTwoTables ? zeros.allZero
                             : b.bitAnd(b.bitNot(split.belowOne), b.bitNot(anyMasked(b, fraction)));
  return roundAndPack(
      b,
      {.sign = x.sign,
       .exponent = exponent,
       .significand = arithmetic::shiftLeft(b, b.concat({hidden, fraction}), count, wF),
       .sticky = b.bit(false),
       .isZero = b.bitOr(b.bitOr(x.isZero, isInteger), x.isInf),
       .isInf = b.bit(false),
       .isNan = x.isNan,
       .canOverflow = false},
      format, {}, request.quietNaN);
}

template <Part part>
std::vector<Signal> decompose(Builder& b, const Request& request, std::span<const Signal> inputs) {
  const auto scope = b.scope(part == Part::kFrac ? "frac" : "integer_part");
  const FloatFormat format = inputFormat(request, 0);
  if (part == Part::kFrac)
    return {buildFrac(b, arithmetic::unpack(b, inputs[0], format), format, request)};
  // Bits of a zero are below the units, and those of an FPLib zero in any place.
  const auto zeros =
      format.fpLib ? arithmetic::ZeroFields::kCleared : arithmetic::ZeroFields::kAsTheyAre;
  return {buildInteger(b, part, arithmetic::unpack(b, inputs[0], format, zeros), request)};
}

std::optional<std::string> refuse(const Request& request) {
  if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
  return refuseMixedForms(request);
}

template <Part part>
constexpr UnitRow row(std::string_view name) {
  UnitRow result{name, evaluate<part>, decompose<part>, refuse};
  if (part == Part::kFrac)
    result.otherForm = Form{.firstOne = arithmetic::FirstOne::kOwnGates};
  else if (part != Part::kTrunc)
    result.otherForm = Form{.raisesByCarry = true};
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
