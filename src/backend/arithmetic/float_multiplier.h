#pragma once

#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/product_plan.h"

namespace arithmetic {

struct FloatMultiplierOptions {
  FloatFormat out;
  RoundingRule rounding;
  // Below 1: rounded as `rounding` says. From 1 on: the error stays below so many ulps.
  double ulps = 0.5;
  bool quietNaN = false;
  bool codesKind = false;  // as Unrounded has it
  ProductPrices prices;
  ErrorBudgets* budgets = nullptr;
};

// a * b, packed; every port has a format of its own.
//
// Subnormal factors are normalised first, so that the product lies in [1, 4); a result below the
// lowest binade is shifted back before it is rounded. From 1 ulp on the product is truncated,
// without sticky bit and rounding addition, and a corner of partial products below the last place
// is left out where that saves tiles; a constant in its place keeps exact products exact (Schulte
// and Swartzlander, "Truncated multiplication with correction constant", 1993).
Signal multiplyFloats(Builder& b, const Unpacked& a, const Unpacked& factor,
                      const FloatMultiplierOptions& options);

// The same before the rounding; `rounding` says which one it needs.
struct UnroundedProduct {
  Unrounded value;
  RoundingRule rounding;
};
UnroundedProduct multiplyFloatsUnrounded(Builder& b, const Unpacked& a, const Unpacked& factor,
                                         const FloatMultiplierOptions& options);

// A number whose significand has its top bit set unless it is a zero, with gradual underflow as
// well: shifted there. The exponent, `exponentWidth` bits, is then signed.
Unpacked normalised(Builder& b, Unpacked x, int exponentWidth);

// Where the exponent `sum` + rebias of a result, one more where `raised`, ends in the format. The
// sum is unsigned.
ExponentRange exponentRange(Builder& b, Signal sum, long rebias, Signal raised,
                            const FloatFormat& out);

// The corner of a product of aWidth by bWidth bits that is left out: the low `a` bits of the one
// factor times the low `b` bits of the other. `correction` is added in its place.
struct TruncationPlan {
  int a = 0, b = 0;
  util::MPZ correction;
};
struct TruncationGoal {
  int droppedBits = 0;  // product bits below the result's last place, the product as in [1, 2)
  double ulps = 1;      // bound of the error, at least 1
  // Results are not below the truncated exact product, so that a subnormal one keeps off zero.
  bool keepsUp = false;
  ErrorBudgets* budgets = nullptr;
};
// The plan that saves most; an empty corner where none pays.
TruncationPlan planTruncation(int aWidth, int bWidth, const TruncationGoal& goal,
                              const ProductPrices& prices);

}  // namespace arithmetic
