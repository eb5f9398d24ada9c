#include "backend/arithmetic/floating_point.h"

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "backend/arithmetic/shifter.h"
#include "util/failure.h"

namespace arithmetic {

using util::MPZ;

namespace {

Signal allOf(Builder& b, std::initializer_list<Signal> bits) { return b.reduceAnd(b.concat(bits)); }
Signal anyOf(Builder& b, std::initializer_list<Signal> bits) { return b.reduceOr(b.concat(bits)); }

Signal masked(Builder& b, Signal x, Signal keep) { return b.bitAnd(x, b.replicate(keep, x.width)); }
Signal forced(Builder& b, Signal x, Signal ones) { return b.bitOr(x, b.replicate(ones, x.width)); }

// A number modulo 2^width.
Signal resized(Builder& b, Signal x, int width) {
  return b.zeroExtend(b.slice(x, 0, std::min(x.width, width)), width);
}

// 1 when an overflow stops at the largest finite number, as the rounding port says.
Signal saturates(Builder& b, const RoundingRule& rule, Signal sign) {
  return b.pick(rule.port, std::array{b.bit(false), b.bitNot(sign), sign, b.bit(true)});
}

// 1 when a subnormal significand stands one place below 1.0 and, rounded to as many bits as a
// regular one has, becomes 1.0: it is then not tiny.
Signal roundsUpToNormal(Builder& b, const Unrounded& x, const FloatFormat& format,
                        const RoundingRule& rule) {
  const int wF = format.fractionBits, below = x.significand.width - (wF + 1);
  LOAM_ASSERT(below >= 2, "a half bit and one behind it");
  const Signal rest = b.slice(x.significand, 0, below - 2);
  const Signal beyond = rest.width > 0 ? b.bitOr(x.sticky, b.reduceOr(rest)) : x.sticky;
  const Remainder remainder{.half = b.bitOf(x.significand, below - 2), .beyond = beyond};
  const Signal allOnes = b.reduceAnd(b.slice(x.significand, below - 1, wF + 1));
  return b.bitAnd(allOnes, raises(b, rule, x.sign, b.bit(true), remainder));
}

// 1 for a subnormal number that is tiny after rounding and not exact.
Signal losesGradually(Builder& b, const Unrounded& x, Signal hidden, const FloatFormat& format,
                      const RoundingRule& rule) {
  if (x.tinyIsExact) return b.bit(false);
  const int below = x.significand.width - (format.fractionBits + 1);
  const Signal inexact =
      b.bitOr(x.sticky, b.reduceOr(b.slice(x.significand, 0, std::max(0, below))));
  return allOf(b, {b.bitNot(hidden), inexact, b.bitNot(roundsUpToNormal(b, x, format, rule))});
}

}  // namespace

FloatFormat formatOf(const kiln::FloatingPoint& port, bool subnormals) {
  return {port.exp, port.frac, port.is_fp_lib, subnormals && !port.is_fp_lib};
}

int signedWidth(long low, long high) {
  const auto magnitude = static_cast<unsigned long>(std::max(high, -low - 1));
  return 1 + static_cast<int>(std::bit_width(magnitude));
}

Unpacked unpack(Builder& b, Signal port, const FloatFormat& format, ZeroFields zeros) {
  LOAM_ASSERT(port.width == format.width(), "a port of its format's width");
  const auto scope = b.scope("unpack");
  const int wE = format.exponentBits, wF = format.fractionBits;
  const Signal fraction = b.slice(port, 0, wF), field = b.slice(port, wF, wE);
  Unpacked x;
  x.format = format;
  x.sign = b.bitOf(port, wE + wF);
  Signal hidden;
  if (format.fpLib) {
    const Signal low = b.bitOf(port, wE + wF + 1), high = b.bitOf(port, wE + wF + 2);
    x.isZero = b.bitNot(b.bitOr(high, low));
    x.isInf = b.bitAnd(high, b.bitNot(low));
    x.isNan = b.bitAnd(high, low);
    hidden = b.bitNot(x.isZero);
    x.exponent = zeros == ZeroFields::kCleared ? masked(b, field, hidden) : field;
  } else {
    const Signal isTop = b.reduceAnd(field), hasFraction = b.reduceOr(fraction);
    hidden = b.reduceOr(field);
    x.isInf = b.bitAnd(isTop, b.bitNot(hasFraction));
    x.isNan = b.bitAnd(isTop, hasFraction);
    x.isZero = format.gradual ? b.bitNot(b.bitOr(hidden, hasFraction)) : b.bitNot(hidden);
    x.exponent =
        format.gradual
            ? b.concat({b.slice(field, 1, wE - 1), b.bitOr(b.bitOf(field, 0), b.bitNot(hidden))})
            : field;
  }
  const bool clears = !format.gradual && zeros == ZeroFields::kCleared;
  const bool isRegular = !format.gradual && zeros == ZeroFields::kLikeRegular;
  x.significand =
      b.concat({isRegular ? b.bit(true) : hidden, clears ? masked(b, fraction, hidden) : fraction});
  return x;
}

Unrounded settled(Builder& b, Unrounded x) {
  if (x.leftShift) {
    x.significand = shiftLeft(b, x.significand, x.leftShift, (1 << x.leftShift.width) - 1);
    x.leftShift = {};
  }
  if (x.exponentAddend) {
    x.exponent = b.add(x.exponent, resized(b, x.exponentAddend, x.exponent.width));
    x.exponentAddend = {};
  }
  return x;
}

Signal roundsDown(Builder& b, const RoundingRule& rule) {
  return rule.port ? b.equal(rule.port, b.literal(1, 2)) : b.bit(rule.mode == RoundMode::kDown);
}

Signal raises(Builder& b, const RoundingRule& rule, Signal sign, Signal last, Remainder rest) {
  const Signal inexact = b.bitOr(rest.half, rest.beyond);
  const Signal nearestEven = b.bitAnd(rest.half, b.bitOr(last, rest.beyond));
  const Signal down = b.bitAnd(sign, inexact);
  const Signal up = b.bitAnd(b.bitNot(sign), inexact);
  if (rule.port) return b.pick(rule.port, std::array{nearestEven, down, up, b.bit(false)});
  switch (rule.mode) {
    case RoundMode::kNearestEven:
      return nearestEven;
    case RoundMode::kDown:
      return down;
    case RoundMode::kUp:
      return up;
    case RoundMode::kTowardZero:
      return b.bit(false);
    case RoundMode::kNearestAway:
      return rest.half;
  }
  LOAM_ASSERT(false, "a rounding mode");
}

namespace {

// Whether one of the lowest `count` bits of `x` shifted left by `shift`, if there is one, is 1.
struct AnyBelow {
  Signal always;   // of those that count whatever the shift, gathered before it is known
  Signal shifted;  // of the others
};
AnyBelow anyBelow(Builder& b, Signal x, int count, Signal shift) {
  const auto anyOfLowest = [&](int low, int bits) {
    return bits > 0 ? b.reduceOr(b.slice(x, low, bits)) : b.bit(false);
  };
  if (!shift) return {anyOfLowest(0, count), b.bit(false)};
  const int most = (1 << shift.width) - 1;
  const int always = std::max(0, count - most);
  std::vector<Signal> further;
  for (int places = 0; places <= most; ++places)
    further.push_back(anyOfLowest(always, count - places - always));
  const Signal shifted = b.pick(shift, further);
  return {anyOfLowest(0, always), shifted};
}

// raises() by the port of `rule` of a remainder `beyond` in two parts, in one table: none of them
// waits for the other.
Signal raisesByTable(Builder& b, const RoundingRule& rule, Signal sign, Signal last, Signal half,
                     const AnyBelow& beyond) {
  const Signal isNearest = b.isZero(rule.port);
  const Signal isAway =
      b.pick(rule.port, std::array{b.bit(false), sign, b.bitNot(sign), b.bit(false)});
  MPZ contents;
  for (unsigned i = 0; i < 1U << 6; ++i) {
    const auto bit = [&](int place) { return (i >> place & 1U) != 0; };
    const bool anyBeyond = bit(0) || bit(1), atHalf = bit(2);
    if ((bit(5) && atHalf && (bit(3) || anyBeyond)) || (bit(4) && (atHalf || anyBeyond)))
      contents += MPZ::powerOfTwo(i);
  }
  return b.lut(b.concat({isNearest, isAway, last, half, beyond.always, beyond.shifted}), contents,
               1);
}

}  // namespace

namespace {

// The rounding of a significand that has half of the last place of a number below 2 already, of
// which `below` bits and the top one are no fraction. A number of 2 or more needs as much again,
// which carries where both bits at the half are 1; one below 2 that has become 2 has zeros there.
// Where it was half way the bits below are zero, and the last bit of the sum becomes the even one.
RoundingStep halfAddedStep(Builder& b, Signal significand, int below, Signal leftShift,
                           const RoundingRule& rule) {
  LOAM_ASSERT(leftShift.width == 1 && below >= 2 && rule.isNearest(), "a half that was added");
  const int wF = significand.width - below - 1;
  const auto bit = [&](int place) { return b.bitOf(significand, place); };
  const Signal isBelowTwo = leftShift, lower = bit(below - 2);
  const Signal both = b.bitAnd(bit(below - 1), lower);
  const Signal rest = b.slice(significand, 0, below - 2);
  const Signal isZero = rest.width > 0 ? b.isZero(rest) : b.bit(true);
  const Signal halfBits = b.select(isBelowTwo, b.bitNot(lower), both);
  // Of a wide zero test and the carry that chooses, joined in one stage, tools make one late table.
  constexpr int kTwoLevels = 36;
  const Signal isHalfWay =
      rest.width > kTwoLevels ? b.concat({isZero, halfBits}) : b.bitAnd(isZero, halfBits);
  return {.hidden = b.bit(true),
          .fraction =
              b.slice(shiftLeft(b, b.slice(significand, below - 1, wF + 1), leftShift, 1), 1, wF),
          .raise = b.bitAnd(b.bitNot(isBelowTwo), both),
          .clearsLast = rule.mode == RoundMode::kNearestEven ? isHalfWay : b.bit(false)};
}

}  // namespace

RoundingStep roundingStep(Builder& b, const Unrounded& x, const FloatFormat& format,
                          const RoundingRule& rule) {
  const int wF = format.fractionBits;
  const int missing = std::max(0, wF + 1 - x.significand.width);
  const Signal unshifted = b.shiftedUp(x.significand, missing);
  const int below = unshifted.width - (wF + 1);
  LOAM_ASSERT(!x.leftShift || (!x.oneMore && !format.gradual), "a shift that the rounding does");
  // The bits from `low` up, shifted. Those of the fraction and those that decide on the rounding
  // are chosen apart, so that the rounding addition takes in the choice of the former.
  const auto shifted = [&](int low, int width) {
    if (!x.leftShift) return b.slice(unshifted, low, width);
    const int most = (1 << x.leftShift.width) - 1, from = std::max(0, low - most);
    const Signal part = b.slice(unshifted, from, low + width - from);
    return b.slice(shiftLeft(b, part, x.leftShift, most), low - from, width);
  };
  if (x.halfAdded) return halfAddedStep(b, unshifted, below, x.leftShift, rule);
  const Signal fraction = shifted(below, wF);
  const Signal half = below > 0 ? shifted(below - 1, 1) : b.bit(false);
  const AnyBelow beyond = anyBelow(b, unshifted, below - 1, x.leftShift);
  // Tools join the shift, which may be late, to a wide test in any order.
  constexpr int kTwoLevels = 36;
  if (rule.port && x.leftShift && !x.oneMore && below > kTwoLevels && b.isLiteral(x.sticky))
    return {shifted(below + wF, 1), fraction,
            raisesByTable(b, rule, x.sign, shifted(below, 1), half, beyond), b.bit(false)};
  Remainder remainder{.half = half,
                      .beyond = b.bitOr(x.sticky, b.bitOr(beyond.always, beyond.shifted))};
  Signal oneMore = x.oneMore ? x.oneMore : b.bit(false);
  LOAM_ASSERT(!x.oneMore || (missing == 0 && below <= 1), "a unit of the last place or its half");
  if (below > 0) {
    // Two halves are a whole, beyond which there is nothing.
    remainder.half = b.bitXor(half, oneMore);
    oneMore = b.bitAnd(half, oneMore);
  }
  const Signal raise = raises(b, rule, x.sign, shifted(below, 1), remainder);
  return {shifted(below + wF, 1), fraction, b.bitOr(oneMore, raise), b.bit(false)};
}

namespace {

// A bit, or 0 where all bits of `clears`, 1 or 2, are 1; in one step.
Signal keptUnless(Builder& b, Signal x, Signal clears) {
  if (clears.width == 1) return b.bitAnd(x, b.bitNot(clears));
  constexpr unsigned long kKeeping = 0b00101010;  // by the two bits and x
  return b.lut(b.concat({clears, x}), MPZ(kKeeping), 1);
}

struct OutOfRange {
  Signal overflow, underflow;
};

OutOfRange outOfRange(Builder& b, const ExponentRange& range, bool canOverflow) {
  const auto& [above, atTop, below, atBottom, raised] = range;
  return {.overflow = canOverflow ? b.bitOr(above, b.bitAnd(atTop, raised)) : b.bit(false),
          .underflow = b.bitOr(below, b.bitAnd(atBottom, b.bitNot(raised)))};
}

// Judged by the exponent and fraction after rounding.
OutOfRange outOfRange(Builder& b, Signal sum, const FloatFormat& format, bool canOverflow) {
  const int wE = format.exponentBits, wF = format.fractionBits;
  OutOfRange out{b.bit(false), b.bit(false)};
  const Signal negative = b.topBit(sum);
  const Signal high = b.slice(sum, wF + wE, sum.width - 1 - wF - wE);
  Signal tooHigh = high.width > 0 ? b.reduceOr(high) : b.bit(false);
  if (!format.fpLib) tooHigh = b.bitOr(tooHigh, b.reduceAnd(b.slice(sum, wF, wE)));
  if (canOverflow) out.overflow = b.bitAnd(b.bitNot(negative), tooHigh);
  if (format.gradual) return out;
  out.underflow =
      format.fpLib ? negative : b.bitOr(negative, b.isZero(b.slice(sum, wF, sum.width - 1 - wF)));
  return out;
}

// What a number is packed as.
struct Outcome {
  OutOfRange range;
  Signal isZero;
  Signal top;  // an infinity, a NaN, or the largest number in place of an infinity
  Signal regular;
};
Outcome outcomeOf(Builder& b, const Unrounded& x, const OutOfRange& range) {
  const Signal isZero = b.bitOr(x.isZero, range.underflow);
  const Signal isInf = b.bitOr(x.isInf, b.bitAnd(range.overflow, b.bitNot(x.isZero)));
  const Signal top = b.bitOr(isInf, x.isNan);
  return {range, isZero, top, b.bitNot(b.bitOr(isZero, top))};
}

// The outcome where the number is raised or not: known before `raised` is.
Outcome outcomeIf(Builder& b, const Unrounded& x, bool isRaised) {
  ExponentRange range = *x.range;
  range.raised = b.bit(isRaised);
  return outcomeOf(b, x, outOfRange(b, range, x.canOverflow));
}

// An exponent field, zeros unless `keeps`, or the ones of infinities and NaNs where `top`.
Signal patternOf(Builder& b, Signal field, Signal keeps, Signal top) {
  return forced(b, masked(b, field, keeps), top);
}

// `x` with its kind and range in three bits, so that little waits for what decides last, `raised`,
// and little is left to do behind it. A zero by underflow counts as one from the start, unless
// `keepsRange`: there a zero where not raised is one of the range.
Unrounded withKindInThreeBits(Builder& b, const Unrounded& x, bool keepsRange) {
  const ExponentRange& range = *x.range;
  const Signal above = x.canOverflow ? range.above : b.bit(false);
  const Signal atTop = x.canOverflow ? range.atTop : b.bit(false);
  // Regular 0, infinite where raised 1, zero 2, zero unless raised 3, infinite 4, too large 5, NaN
  // 6 or 7.
  const Signal isRegular = b.bitNot(anyOf(b, {x.isNan, x.isInf, x.isZero}));
  const Signal kind2 = anyOf(b, {x.isNan, x.isInf, b.bitAnd(above, b.bitNot(x.isZero))});
  const Signal kind1 = b.bitOr(
      x.isNan, b.bitAnd(b.bitNot(x.isInf), anyOf(b, {x.isZero, range.below, range.atBottom})));
  const Signal kind0 = b.bitAnd(isRegular, anyOf(b, {above, atTop, range.atBottom}));

  Unrounded result = x;
  const auto bit = [&](bool isOne, Signal kind) { return isOne ? kind : b.bitNot(kind); };
  const auto isKind = [&](bool two, bool one, bool zero) {
    return allOf(b, {bit(two, kind2), bit(one, kind1), bit(zero, kind0)});
  };
  const Signal none = b.bit(false);
  result.isNan = b.bitAnd(kind2, kind1);
  result.isInf = isKind(true, false, false);
  result.isZero = keepsRange
                      ? isKind(false, true, false)
                      : allOf(b, {b.bitNot(kind2), kind1, b.bitNot(b.bitAnd(kind0, range.raised))});
  result.range = ExponentRange{.above = isKind(true, false, true),
                               .atTop = isKind(false, false, true),
                               .below = none,
                               .atBottom = keepsRange ? isKind(false, true, true) : none,
                               .raised = range.raised};
  return result;
}

Signal nanFraction(Builder& b, Signal isNan, int wF, bool isQuiet) {
  return masked(b, b.literal(isQuiet ? MPZ::powerOfTwo(wF - 1) : MPZ(1), wF), isNan);
}

// Rounds and packs, and fills `flags` where they are wanted.
Signal pack(Builder& b, const Unrounded& unrounded, const FloatFormat& format,
            const RoundingRule& rule, bool quietNaN, Flagged* flags) {
  // A pattern that is known before the sum goes through it, in the tables that add. Without a
  // choice in the fraction's tables, tools put all that it depends on behind the late `raised`.
  const bool isKnown =
      unrounded.range && !flags && !rule.port &&
      (!unrounded.exponentAddend || (unrounded.halfAdded && unrounded.exponentAddend.width == 1));
  const Unrounded x = unrounded.range && !flags && (!isKnown || unrounded.codesKind)
                          ? withKindInThreeBits(b, unrounded, /*keepsRange=*/isKnown)
                          : unrounded;
  const auto scope = b.scope("round");
  const int wE = format.exponentBits, wF = format.fractionBits;
  const auto [hidden, fraction, raise, clearsLast] = roundingStep(b, x, format, rule);

  // A carry out of the fraction enters the exponent, and makes 1.0 of the largest subnormal. Where
  // the range is known the field itself is enough.
  const int width = x.range ? wE : std::max(x.exponent.width, wE + 1);
  LOAM_ASSERT(!x.exponentAddend || !format.gradual, "an addend without gradual underflow");
  const Signal exponent = x.range ? b.slice(x.exponent, 0, wE) : b.signExtend(x.exponent, width);
  const Signal addend = x.exponentAddend ? resized(b, x.exponentAddend, width) : b.zeros(width);
  Outcome outcome;
  Signal sum;
  if (isKnown) {
    const Outcome high = outcomeIf(b, x, true), low = outcomeIf(b, x, false);
    const auto chosen = [&](Signal whenHigh, Signal whenLow) {
      return b.select(x.range->raised, whenHigh, whenLow);
    };
    outcome = {.range = {},
               .isZero = chosen(high.isZero, low.isZero),
               .top = chosen(high.top, low.top),
               .regular = chosen(high.regular, low.regular)};
    // Each mask is made in the table that reads it.
    const Signal last = x.halfAdded
                            ? b.bitAnd(raise, high.regular)
                            : chosen(b.bitAnd(raise, high.regular), b.bitAnd(raise, low.regular));
    const Signal field = patternOf(b, exponent, outcome.regular, outcome.top);
    const Signal keptFraction = masked(b, fraction, outcome.regular);
    if (x.exponentAddend) {
      const Signal carry = b.bitAnd(x.exponentAddend, high.regular);
      sum = b.concat(
          {b.addCarry(field, b.zeros(wE), carry), b.addCarry(keptFraction, b.zeros(wF), last)});
    } else {
      sum = b.addCarry(b.concat({field, keptFraction}), b.zeros(wE + wF), last);
    }
  } else {
    const Signal field = format.gradual ? masked(b, exponent, hidden) : exponent;
    sum = b.addCarry(b.concat({field, fraction}), b.shiftedUp(addend, wF), raise);
    outcome = outcomeOf(b, x,
                        x.range ? outOfRange(b, *x.range, x.canOverflow)
                                : outOfRange(b, sum, format, x.canOverflow));
  }
  const auto& [range, isZero, top, regular] = outcome;
  Signal outField = b.slice(sum, wF, wE);
  Signal outFraction =
      b.concat({b.slice(sum, 1, wF - 1), keptUnless(b, b.bitOf(sum, 0), clearsLast)});
  if (!isKnown) {
    outField = patternOf(b, outField, b.bitNot(isZero), top);
    outFraction = masked(b, outFraction, regular);
  }
  const Signal stopsShort =
      rule.port ? b.bitAnd(range.overflow, saturates(b, rule, x.sign)) : b.bit(false);

  // The largest finite number, where an overflow stops at it, is put in last.
  const Signal stops =
      allOf(b, {stopsShort, b.bitNot(x.isInf), b.bitNot(x.isZero), b.bitNot(x.isNan)});
  outFraction = forced(b, b.bitOr(outFraction, nanFraction(b, x.isNan, wF, quietNaN)), stops);
  if (rule.port) outField = b.select(stops, b.literal(format.maxExponent(), wE), outField);
  const Signal sign = b.bitAnd(x.sign, b.bitNot(x.isNan));
  Signal exception;
  if (format.fpLib) {
    const Signal high2 = b.bitAnd(top, b.bitNot(stops));
    exception = b.concat({high2, anyOf(b, {x.isNan, stops, regular})});
  }
  if (flags) {
    const Signal finite = b.bitNot(anyOf(b, {x.isNan, x.isInf, x.isZero}));
    const Signal lost =
        format.gradual ? losesGradually(b, x, hidden, format, rule) : range.underflow;
    Signal becomesZero = isZero;
    if (format.gradual) becomesZero = b.bitOr(isZero, b.isZero(b.slice(sum, 0, wF + wE)));
    flags->overflow = b.bitAnd(range.overflow, finite);
    flags->underflow = b.bitAnd(lost, finite);
    flags->isNan = x.isNan;
    flags->isNegative = sign;
    flags->isZero = b.bitAnd(becomesZero, b.bitNot(top));
  }
  return b.concat({exception, sign, outField, outFraction});
}

}  // namespace

Signal roundAndPack(Builder& b, const Unrounded& x, const FloatFormat& format,
                    const RoundingRule& rule, bool quietNaN) {
  return pack(b, x, format, rule, quietNaN, nullptr);
}

Flagged roundAndPackFlagged(Builder& b, const Unrounded& x, const FloatFormat& format,
                            const RoundingRule& rule, bool quietNaN) {
  LOAM_ASSERT(!x.oneMore, "flags of a number without one unit more");
  Flagged result;
  result.packed = pack(b, x, format, rule, quietNaN, &result);
  return result;
}

Signal withNanPattern(Builder& b, Signal sign, Signal fieldAndFraction, Signal isNan,
                      const FloatFormat& format, bool quietNaN) {
  const int wE = format.exponentBits, wF = format.fractionBits;
  LOAM_ASSERT(!format.fpLib && fieldAndFraction.width == wE + wF, "a field and a fraction");
  return b.concat({b.bitAnd(sign, b.bitNot(isNan)), b.slice(fieldAndFraction, wF, wE),
                   b.bitOr(b.slice(fieldAndFraction, 0, wF), nanFraction(b, isNan, wF, quietNaN))});
}

Signal packExact(Builder& b, const Unpacked& x, const FloatFormat& format, bool quietNaN) {
  LOAM_ASSERT(x.format.fpLib == format.fpLib && x.exponent.width == format.exponentBits &&
                  x.format.fractionBits == format.fractionBits,
              "one format");
  const int wF = format.fractionBits;
  if (!format.fpLib) {
    // All patterns but those of NaNs and cleared subnormals stand as they are.
    const Signal isOther = format.gradual ? x.isNan : b.bitOr(x.isZero, x.isNan);
    const Signal field =
        format.gradual ? masked(b, x.exponent, b.topBit(x.significand)) : x.exponent;
    const Signal fraction = masked(b, b.slice(x.significand, 0, wF), b.bitNot(isOther));
    return withNanPattern(b, x.sign, b.concat({field, fraction}), x.isNan, format, quietNaN);
  }
  // Without a rounding bit below the fraction the rounding folds away.
  return roundAndPack(b,
                      {.sign = x.sign,
                       .exponent = b.zeroExtend(x.exponent, format.exponentBits + 2),
                       .significand = x.significand,
                       .sticky = b.bit(false),
                       .isZero = x.isZero,
                       .isInf = x.isInf,
                       .isNan = x.isNan,
                       .canOverflow = false},
                      format, {}, quietNaN);
}

Unrounded denormalise(Builder& b, Unrounded x, const FloatFormat& format, bool needsSticky) {
  const auto scope = b.scope("denormalise");
  const int width = x.exponent.width;
  const Signal lowest = b.literal(format.minExponent(), width);
  const Signal isBelow = b.lessSigned(x.exponent, lowest);
  const Signal difference =
      b.subtract(b.zeroExtend(lowest, width + 1), b.signExtend(x.exponent, width + 1));
  const Signal distance = masked(b, b.slice(difference, 0, width), isBelow);
  if (needsSticky) {
    const ShiftedRight moved = shiftRightSticky(b, x.significand, distance);
    x.significand = moved.bits;
    x.sticky = b.bitOr(x.sticky, moved.sticky);
  } else {
    x.significand = shiftRight(b, x.significand, distance);
  }
  x.exponent = b.select(isBelow, lowest, x.exponent);
  return x;
}

}  // namespace arithmetic
