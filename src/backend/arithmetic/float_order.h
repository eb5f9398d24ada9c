#pragma once

#include "backend/arithmetic/floating_point.h"

namespace arithmetic {

// Order of two numbers of one format, each question one comparison of the patterns. Shared by
// minimum, maximum and the comparisons.

// Exponent and significand in one unsigned number that grows with the magnitude up to infinity, 0
// for a zero only; undefined for a NaN.
Signal magnitudeKey(Builder& b, const Unpacked& x);

// 1: x goes before y, 0: y before x, with -0 before +0. The same number: 0. Two zeros of one sign
// whose fields are not cleared, or a NaN: undefined.
Signal precedes(Builder& b, const Unpacked& x, const Unpacked& y);
// The same by magnitudes; numbers of one magnitude as precedes() has them. Two zeros whose fields
// are not cleared, whatever their signs: undefined.
Signal precedesInMagnitude(Builder& b, const Unpacked& x, const Unpacked& y);

// 1 where y is the minimum, or where `greatest` the maximum, of both. `xPrecedes` is one of the
// orders above. A number is taken before a NaN.
Signal extremeIsSecond(Builder& b, const Unpacked& x, const Unpacked& y, Signal xPrecedes,
                       Signal greatest);

// All fields by one condition; both operands have one format.
Unpacked choose(Builder& b, Signal condition, const Unpacked& ifOne, const Unpacked& ifZero);

enum class Comparison { kLess, kLessEqual, kEqual, kGreaterEqual, kGreater, kNotEqual };
// The truth of a comparison as IEEE 754 has it: -0 equals +0, and with a NaN only kNotEqual holds.
// kEqual and kNotEqual are one comparison of the patterns, kLess and kGreaterEqual another; the
// others take both.
Signal holds(Builder& b, Comparison comparison, const Unpacked& x, const Unpacked& y);
// How operands are read that are only put in order: where a zero has an exponent of 0, it comes
// before all other magnitudes whatever its fraction.
inline ZeroFields zeroFieldsForOrder(const FloatFormat& format) {
  return format.fpLib ? ZeroFields::kCleared : ZeroFields::kAsTheyAre;
}
// 1 when either is a NaN.
Signal isUnordered(Builder& b, const Unpacked& x, const Unpacked& y);

}  // namespace arithmetic
