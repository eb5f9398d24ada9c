#include "backend/arithmetic/fixed_to_float.h"

#include <algorithm>

namespace arithmetic {

namespace {

// The significand of a magnitude that is subnormal or below, `zeros` places under the lowest
// regular number: wiring only.
Unrounded placeSubnormal(Builder& b, Signal magnitude, long zeros, const FloatFormat& format,
                         int kept) {
  const int above = static_cast<int>(std::min<long>(zeros, kept));
  const int taken = std::min(magnitude.width, kept - above);
  const Signal rest = b.slice(magnitude, 0, magnitude.width - taken);
  Unrounded x;
  x.exponent = b.literal(format.minExponent(), signedWidth(0, format.minExponent() + 1));
  x.significand = b.concat(
      {b.zeros(above), b.slice(magnitude, rest.width, taken), b.zeros(kept - above - taken)});
  x.sticky = rest.width > 0 ? b.reduceOr(rest) : b.bit(false);
  x.isZero = b.isZero(magnitude);
  return x;
}

// The same for one whose top bit may be that of a regular number, of exponent `topExponent`.
Unrounded placeNormal(Builder& b, Signal magnitude, long topExponent, bool gradually,
                      const FloatFormat& format, int kept, FirstOne form) {
  const long most = topExponent - format.minExponent();
  const NormalisedSticky normal =
      gradually
          ? normaliseUpToSticky(b, magnitude, b.literal(most, signedWidth(0, most)), kept, form)
          : normaliseSticky(b, magnitude, kept, form);
  const int width =
      std::max(signedWidth(topExponent - magnitude.width, topExponent + 1), normal.count.width + 1);
  Unrounded x;
  x.exponent = b.subtract(b.literal(topExponent, width), b.zeroExtend(normal.count, width));
  x.significand = b.shiftedUp(normal.bits, kept - normal.bits.width);
  x.sticky = normal.sticky;
  x.isZero = normal.allZero;
  return x;
}

}  // namespace

Converted fixedToFloat(Builder& b, Signal sign, Signal magnitude, long topWeight,
                       const FloatFormat& format, int below, FirstOne firstOne) {
  const auto scope = b.scope("normalise");
  const int kept = format.fractionBits + 1 + below;
  const long topExponent = topWeight + format.bias();
  const long lastExponent = topExponent - (magnitude.width - 1);
  const bool underflows = lastExponent < format.minExponent();
  const bool gradually = underflows && format.gradual;
  const long zeros = format.minExponent() - topExponent;

  Converted result{
      .number = gradually && zeros >= 0
                    ? placeSubnormal(b, magnitude, zeros, format, kept)
                    : placeNormal(b, magnitude, topExponent, gradually, format, kept, firstOne),
      .format = format};
  Unrounded& x = result.number;
  x.sign = sign;
  x.isInf = x.isNan = b.bit(false);
  const bool rounds = magnitude.width > format.fractionBits + 1;
  x.canOverflow = topExponent + (rounds ? 1 : 0) > format.maxExponent();
  x.tinyIsExact = lastExponent >= format.minExponent() - format.fractionBits;
  if (!underflows && !format.fpLib) result.format.gradual = true;
  return result;
}

}  // namespace arithmetic
