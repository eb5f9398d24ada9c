#pragma once

#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/leading_zeros.h"

namespace arithmetic {

// a * b, not rounded: significand * 2^(exponent - 2 * bias - 2 * fractionBits) with the format's
// bias, the exponent the sum of the factors' biased ones.
struct ExactProduct {
  FloatFormat format;  // of both factors
  Signal sign;
  Signal exponent;     // unsigned, one bit wider than a factor's
  Signal significand;  // 2 * (fractionBits + 1) bits; subnormal factors are not normalised
  Signal isZero, isInf, isNan;
};
// The factors' zeros are told by isZero: unpack them with ZeroFields::kLikeRegular.
ExactProduct multiplyExactly(Builder& b, const Unpacked& x, const Unpacked& y);

struct FusedAddOptions {
  RoundingRule rounding;
  // Below 1: rounded once as `rounding` says. From 1 on: the error stays below one ulp and an
  // exactly representable result is exact.
  double ulps = 0.5;
  bool quietNaN = false;
  ErrorBudgets* budgets = nullptr;
  FirstOne firstOne = FirstOne::kSharedGates;
  bool inLoop = false;  // all of it is one stage: nothing is gained by what comes later
};

// product + addend, packed in their common format, or before that rounding. Subtract by flipping
// the sign of the addend, an IEEE-style number of the same format.
//
// The addend is aligned to the product, beside the multiplication, in a window of some three
// significands; one addition, one leading-zero count and shift, one rounding (Hokenek, Montoye and
// Cook, 1990). The window's top is never below the lowest exponent, so that gradual underflow is no
// more than a limit on the last shift, and subnormal factors need no shift of their own.
//
// From 1 ulp on neither sticky bit nor rounding addition is built, and without gradual underflow
// the alignment ends where the addend's bits stay below the result's last place.
Signal addToProduct(Builder& b, const ExactProduct& product, const Unpacked& addend,
                    const FusedAddOptions& options);
Unrounded addToProductUnrounded(Builder& b, const ExactProduct& product, const Unpacked& addend,
                                const FusedAddOptions& options);

}  // namespace arithmetic
