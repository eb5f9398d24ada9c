#include "backend/arithmetic/running_sum.h"

#include <algorithm>

#include "util/failure.h"

namespace arithmetic {

namespace {

// Above the exponent stand: NaN, infinity, not zero, sign. The hidden bit is held where an exponent
// does not imply it.
int heldSignificand(const FloatFormat& format) {
  return format.fractionBits + (format.gradual ? 1 : 0);
}

Signal masked(Builder& b, Signal x, Signal keep) { return b.bitAnd(x, b.replicate(keep, x.width)); }

}  // namespace

int heldWidth(const FloatFormat& format) {
  return 4 + format.exponentBits + heldSignificand(format);
}

Signal roundHeld(Builder& b, const Unrounded& sum, const FloatFormat& format, RoundMode mode) {
  LOAM_ASSERT(!format.fpLib, "an accumulator holds IEEE-style numbers");
  const auto scope = b.scope("round");
  const int wE = format.exponentBits, wF = format.fractionBits;
  const Unrounded x = settled(b, sum);
  const auto [hidden, fraction, raise, clearsLast] = roundingStep(b, x, format, {.mode = mode});
  const int width = std::max(x.exponent.width, wE + 1);
  const Signal exponent = b.signExtend(x.exponent, width);
  const Signal rounded =
      b.addCarry(b.concat({b.slice(exponent, 0, wE), fraction}), b.zeros(wE + wF), raise);
  // Exponents are judged before the rounding, and whether it carries out of the fraction beside it.
  const Signal carries = b.reduceAnd(b.concat({fraction, raise}));
  const auto isAt = [&](long value) { return b.equal(exponent, b.literal(value, width)); };
  const long highest = format.maxExponent();
  const Signal overflow =
      b.bitOr(b.lessSigned(b.literal(highest, width), exponent), b.bitAnd(isAt(highest), carries));
  Signal nonZero = b.bitNot(x.isZero);
  Signal roundedExponent = b.slice(rounded, wF, wE), significand = b.slice(rounded, 0, wF);
  if (format.gradual) {
    // A subnormal has the lowest exponent, whether or not it is raised to the smallest regular
    // number.
    const Signal raised = b.bitOr(hidden, carries);
    roundedExponent = b.select(hidden, roundedExponent, b.literal(format.minExponent(), wE));
    significand = b.concat({raised, significand});
    // Told before the rounding, which never carries out of all bits.
    nonZero = b.bitAnd(nonZero, b.reduceOr(b.concat({hidden, fraction, raise})));
  } else {
    const Signal stays = b.bitOr(b.lessSigned(b.literal(format.minExponent() - 1, width), exponent),
                                 b.bitAnd(isAt(format.minExponent() - 1), carries));
    nonZero = b.bitAnd(nonZero, stays);
  }
  const Signal isInf = b.bitOr(x.isInf, b.bitAnd(overflow, b.bitNot(x.isZero)));
  return b.concat({x.isNan, isInf, nonZero, x.sign, roundedExponent, significand});
}

Unpacked readHeld(Builder& b, Signal held, const FloatFormat& format) {
  LOAM_ASSERT(held.width == heldWidth(format), "a number as it is held");
  const auto scope = b.scope("read");
  const int wE = format.exponentBits, bits = heldSignificand(format);
  const Signal nonZero = b.bitOf(held, bits + wE + 1);
  const Signal significand = b.slice(held, 0, bits);
  const Signal isNan = b.bitOf(held, bits + wE + 3);
  // A zero that was an underflow still has the fields of one.
  return {.format = format,
          .sign = b.bitOf(held, bits + wE),
          .exponent = masked(b, b.slice(held, bits, wE), nonZero),
          .significand = masked(
              b, format.gradual ? significand : b.concat({b.bit(true), significand}), nonZero),
          .isZero = b.bitNot(nonZero),
          .isInf = b.bitAnd(b.bitOf(held, bits + wE + 2), b.bitNot(isNan)),
          .isNan = isNan};
}

Signal pack(Builder& b, const Unpacked& x, bool quietNaN) {
  const auto scope = b.scope("pack");
  const int wE = x.format.exponentBits, wF = x.format.fractionBits;
  LOAM_ASSERT(!x.format.fpLib, "an IEEE-style number");
  const Signal top = b.bitOr(x.isInf, x.isNan);
  const Signal finite = b.bitNot(top);
  const Signal exponent = masked(b, x.exponent, b.topBit(x.significand));
  const Signal field = b.bitOr(exponent, b.replicate(top, wE));
  const Signal nan = b.literal(quietNaN ? util::MPZ::powerOfTwo(wF - 1) : util::MPZ(1), wF);
  const Signal fraction =
      b.bitOr(masked(b, b.slice(x.significand, 0, wF), finite), masked(b, nan, x.isNan));
  return b.concat({b.bitAnd(x.sign, b.bitNot(x.isNan)), field, fraction});
}

}  // namespace arithmetic
