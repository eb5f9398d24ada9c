#include "backend/arithmetic/float_order.h"

#include "util/failure.h"

namespace arithmetic {

namespace {

void requireOneForm(const Unpacked& x, const Unpacked& y) {
  LOAM_ASSERT(x.format.fpLib == y.format.fpLib, "numbers of one form");
}

Signal bothZero(Builder& b, const Unpacked& x, const Unpacked& y) {
  return b.bitAnd(x.isZero, y.isZero);
}

// x = y, of numbers that are no NaN.
Signal sameNumber(Builder& b, const Unpacked& x, const Unpacked& y) {
  requireOneForm(x, y);
  const Signal sameSign = b.bitNot(b.bitXor(x.sign, y.sign));
  const Signal sameMagnitude = b.equal(magnitudeKey(b, x), magnitudeKey(b, y));
  return b.bitOr(b.bitAnd(sameMagnitude, sameSign), bothZero(b, x, y));
}

}  // namespace

Signal magnitudeKey(Builder& b, const Unpacked& x) {
  const int wF = x.format.fractionBits;
  if (!x.format.fpLib)
    // The hidden bit follows from the exponent where every exponent of 0 is a zero.
    return b.concat({x.exponent, b.slice(x.significand, 0, x.format.gradual ? wF + 1 : wF)});
  // An infinity's fields are arbitrary; the hidden bit tells the lowest binade from a zero.
  const Signal number = b.concat({x.exponent, x.significand});
  return b.concat({x.isInf, b.bitAnd(number, b.replicate(b.bitNot(x.isInf), number.width))});
}

Signal precedes(Builder& b, const Unpacked& x, const Unpacked& y) {
  requireOneForm(x, y);
  // Logic before the chain would slow it down, so the signs come behind it; as the lowest bit they
  // make it say of equal negative numbers that the first one is smaller, which negated is no.
  const Signal isSmaller =
      b.less(b.concat({magnitudeKey(b, x), b.bit(false)}), b.concat({magnitudeKey(b, y), x.sign}));
  return b.select(isSmaller, b.bitNot(y.sign), x.sign);
}

Signal precedesInMagnitude(Builder& b, const Unpacked& x, const Unpacked& y) {
  requireOneForm(x, y);
  return b.less(b.concat({magnitudeKey(b, x), b.bitNot(x.sign)}),
                b.concat({magnitudeKey(b, y), b.bitNot(y.sign)}));
}

Signal extremeIsSecond(Builder& b, const Unpacked& x, const Unpacked& y, Signal xPrecedes,
                       Signal greatest) {
  const Signal isSecond = b.bitNot(b.bitXor(xPrecedes, greatest));
  return b.bitAnd(b.bitNot(y.isNan), b.bitOr(x.isNan, isSecond));
}

Unpacked choose(Builder& b, Signal condition, const Unpacked& ifOne, const Unpacked& ifZero) {
  requireOneForm(ifOne, ifZero);
  Unpacked result = ifOne;
  for (Signal Unpacked::*field : {&Unpacked::sign, &Unpacked::exponent, &Unpacked::significand,
                                  &Unpacked::isZero, &Unpacked::isInf, &Unpacked::isNan})
    result.*field = b.select(condition, ifOne.*field, ifZero.*field);
  return result;
}

Signal holds(Builder& b, Comparison comparison, const Unpacked& x, const Unpacked& y) {
  const Signal isOrdered = b.bitNot(isUnordered(b, x, y));
  const auto less = [&] { return b.bitAnd(precedes(b, x, y), b.bitNot(bothZero(b, x, y))); };
  const auto lessEqual = [&] { return b.bitOr(less(), sameNumber(b, x, y)); };
  switch (comparison) {
    case Comparison::kLess:
      return b.bitAnd(isOrdered, less());
    case Comparison::kLessEqual:
      return b.bitAnd(isOrdered, lessEqual());
    case Comparison::kEqual:
      return b.bitAnd(isOrdered, sameNumber(b, x, y));
    case Comparison::kGreaterEqual:
      return b.bitAnd(isOrdered, b.bitNot(less()));
    case Comparison::kGreater:
      return b.bitAnd(isOrdered, b.bitNot(lessEqual()));
    case Comparison::kNotEqual:
      return b.bitNot(b.bitAnd(isOrdered, sameNumber(b, x, y)));
  }
  LOAM_ASSERT(false, "a comparison");
}

Signal isUnordered(Builder& b, const Unpacked& x, const Unpacked& y) {
  return b.bitOr(x.isNan, y.isNan);
}

}  // namespace arithmetic
