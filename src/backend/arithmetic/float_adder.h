#pragma once

#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/shifter.h"

namespace arithmetic {

// How a sum is computed and delivered.
struct FloatAdderOptions {
  FloatFormat out;
  RoundingRule rounding;
  // Below 1: rounded as `rounding` says. From 1 on: the error stays below so many ulps in any
  // direction, an exactly representable sum of small magnitude is still exact.
  double ulps = 0.5;
  // From 2 ulps on subtract by the ones' complement where the operands are far apart.
  bool onesComplement = false;
  bool quietNaN = false;
  ErrorBudgets* budgets = nullptr;
  // Where DSP blocks are to align the lesser operand: the shape of their products.
  BlockShape alignment{};
};

// True when the adders take operands unpacked with their zeros' fields as they are, which costs
// less: no port has subnormals.
bool mayKeepZeroFields(const FloatFormat& a, const FloatFormat& other, const FloatFormat& out);

// a + b, packed; subtract by flipping the sign of b. All three formats have the same exponent and
// fraction widths, and agree on gradual underflow where they are IEEE-style.
//
// Single path: the operands are ordered by magnitude, the smaller one is aligned, one addition, one
// leading-zero count and shift, one rounding. Gradual underflow costs a limit on that shift.
//
// From 1 ulp on neither sticky bit nor rounding addition is built. Sums are then floor(a + b) in
// magnitude; differences are rounded up by the alignment, at a guard bit not coarser than the
// result's last place, and down by the packing, so they are one of the two neighbours. Every
// doubling of the bound frees one more of the lowest columns from all but the first alignment
// level.
//   zeros  how both operands were unpacked
Signal addSinglePath(Builder& b, const Unpacked& a, const Unpacked& addend,
                     const FloatAdderOptions& options, ZeroFields zeros = ZeroFields::kCleared);
// The same before the rounding, for a correctly rounded result.
Unrounded addSinglePathUnrounded(Builder& b, const Unpacked& a, const Unpacked& addend,
                                 const FloatAdderOptions& options,
                                 ZeroFields zeros = ZeroFields::kCleared);

// a - subtrahend where that is positive, else +0, packed; NaN for a NaN only. Otherwise as
// addSinglePath().
Signal positiveDifference(Builder& b, const Unpacked& a, Unpacked subtrahend,
                          const FloatAdderOptions& options);

// How the two-path adder takes zeros of `format` beside an operand of `other`, where
// mayKeepZeroFields(): the exponents are compared together with the hidden bits when one number is
// FPLib, and that of an IEEE-style one is late where its exponent has more bits than a table takes.
ZeroFields zeroFieldsInDualPath(const FloatFormat& format, const FloatFormat& other);

// a + b by two paths (Farmwald, 1981), for a short way through: subtraction of operands
// whose exponents differ by at most 1 needs no alignment beyond one place and, when bits cancel, no
// rounding; everything else needs no normalisation beyond one place.
//   zeros  how both operands were unpacked; where kAsTheyAre, each as zeroFieldsInDualPath() tells
Signal addDualPath(Builder& b, const Unpacked& a, const Unpacked& addend,
                   const FloatAdderOptions& options, ZeroFields zeros = ZeroFields::kCleared);

// a + b and a - b, packed, for the price of one alignment and two additions: of the two results one
// adds magnitudes and the other subtracts them, and which is which is settled behind the rounding.
// Ties, infinities and signs are those of two separate adders.
struct SumAndDifference {
  Signal sum, difference;
};
SumAndDifference addAndSubtract(Builder& b, const Unpacked& a, const Unpacked& other,
                                const FloatAdderOptions& options);

}  // namespace arithmetic
