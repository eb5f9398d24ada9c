#pragma once

#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/polynomial_evaluator.h"

namespace arithmetic {

// How near multiples of pi the nonzero numbers of a format come: all are 2^-(bits + 1) half turns
// (pi 2^-(bits + 1)) or more away from them, but for those near 0.
//
// A number is M 2^s, M < 2^(wF + 1) an integer; in half turns it is M C with C = 2^s / pi. For each
// exponent s the M that brings M C nearest to an integer is a denominator of a convergent of C's
// continued fraction (Lagrange's theorem on best approximations; see separation()), which is worked
// out for C cut off so late that M times what is cut off does not matter. (Payne and Hanek, "Radian
// reduction for trigonometric functions", 1983; Kahan's search for the worst case.)
struct NearestMultiple {
  int bits = 0;
  util::MPZ distance;  // a lower bound, in units of 2^-places half turns
  int places = 0;
};
const NearestMultiple& nearestMultipleOfPi(const FloatFormat& format);

// A reduction of radians to half turns, modulo 2, as precise as an angle's significand of
// angleBits behind its leading 1 asks for.
struct RadianPlan {
  FloatFormat format;
  int angleBits = 0;
  int mostZeros = 0;     // of a reduced angle behind the point
  int fractionBits = 0;  // of the fixed-point angle
  int windowBits = 0;    // of 1 / pi for each exponent, below the point of the product
  int fineBits = 0;      // low bits of the exponent that shift a window, the rest chooses one
};
RadianPlan planRadians(const FloatFormat& format, int angleBits, const EvaluationPrices& prices);

// The angle y = m 2^-zeros in (0, 1/2) half turns, where x = +-(y + n) pi or +-(n - y) pi, n odd or
// not.
//   significand  of m in [1/2, 1), angleBits + 1 bits; m exceeds it by more than -1/8 and less than
//                9/8 of its last place
struct ReducedRadians {
  Signal significand, zeros, isOdd;
};
// Of a number that is no zero or special; of these, anything.
//
// Bits of 1 / pi whose product with x is even are left out, and so are those too low to matter: a
// window of them by the exponent times the significand is x / pi modulo 2 (Payne and Hanek). Below
// 1 the window is that of 1 and the exponent counts as zeros, so that small numbers keep their
// precision.
ReducedRadians reduceRadians(Builder& b, const Unpacked& x, const RadianPlan& plan,
                             const ProductPrices& prices);

}  // namespace arithmetic
