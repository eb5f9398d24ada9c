#pragma once

#include <optional>

#include "backend/arithmetic/adder_graph.h"
#include "backend/graph/builder.h"

namespace arithmetic {

using graph::Builder;
using graph::Signal;

// mantissa * 2^exponent; the mantissa is odd, or both are 0.
struct Dyadic {
  util::MPZ mantissa;
  long exponent = 0;
};
Dyadic dyadic(util::MPZ mantissa, long exponent);

// What a product p = x * K is to become, in units of the result's last place.
struct ProductGoal {
  enum Kind {
    kWhole,        // every bit, down to a last place of its own
    kNearestAway,  // the nearest integer, ties away from zero
    kTowardZero,   // the integer part
    kWithin,       // an integer in (p - below, p + above)
  } kind = kWhole;
  int below = 1, above = 1;  // at least 1, so that an integer p is its own result where both are 1
};

enum class ConstantArchitecture { kAuto, kTables, kShiftAndAdd };

struct ConstantProductOptions {
  ProductGoal goal = {};
  ConstantArchitecture architecture = ConstantArchitecture::kAuto;
  int lutInputs = 6;              // of the device's look-up tables, at most 6
  std::optional<int> width = {};  // the result is wanted modulo 2^width only
};

// `bits` * 2^lsb, two's complement where low is negative; the value lies in [low, high] * 2^lsb,
// and modulo 2^width where that was asked. lsb is 0 but for kWhole.
struct ConstantProduct {
  Signal bits;
  int lsb = 0;
  util::MPZ low, high;
};

// x * K for a constant K and an integer x (two's complement if `isSigned`).
//
// kNearestAway and kTowardZero are exact. kWhole gives an exact product, or one that lies between
// the same two multiples of 1/2 as the exact one, and on one only where that does: what any
// rounding to integers or coarser needs. Where the fraction of K is long the product with a shorter
// constant does, which the separation of x * K from those multiples proves.
//
// Two architectures. Tables of one digit of x each, as wide as a look-up table has inputs, hold its
// products with K, rounded to a few guard bits for kWithin, and one heap sums them (Chapman, "Fast
// integer multipliers fit in FPGAs", EDN 1994). Or shifted copies of x are added as an adder graph
// says, for kWithin with the constant that costs least among those that keep the bound. Automatic
// takes the one that asks for fewer look-up tables: one for each bit of a table and one for each
// bit added.
ConstantProduct multiplyByConstant(Builder& b, Signal x, bool isSigned, const Dyadic& constant,
                                   const ConstantProductOptions& options);

// The distance of the multiples 1 * K, ..., most * K to the closest integers: the least one, as a
// numerator over 2^-K.exponent; 0 where one is an integer. K has a fraction: K.exponent < 0.
//
// The closest multiple belongs to the last convergent of K's continued fraction whose denominator
// does not exceed `most` (Lagrange; Khinchin, "Continued fractions", theorem 17).
util::MPZ separation(const Dyadic& constant, const util::MPZ& most);

}  // namespace arithmetic
