#pragma once

#include "backend/arithmetic/float_adder.h"

// What the single-path, the two-path and the fused adder share.
namespace arithmetic {

// Significands of both operands at one common width, and the sum's specials.
struct AddOperands {
  Unpacked a, b;         // exponents of equal width; significands of equal width
  int fractionBits = 0;  // of the significands: one more than the port's when binades differ
  Signal subtracts;      // the signs differ
  Signal isInf, isNan;   // of the sum
  Signal infSign;        // of an infinite sum
  // The fields of zeros are as they are: where an operand that has no subnormals has top bit 0, it
  // is a zero whatever stands below.
  bool zerosHaveFields = false;
};
AddOperands prepareAddition(Builder& b, const Unpacked& a, const Unpacked& addend,
                            const FloatFormat& out, ZeroFields zeros = ZeroFields::kCleared);

// The operands by magnitude; of two equal ones the first counts as the greater.
struct Ordered {
  Signal swapped;  // the second operand is the greater
  Signal sign, exponent, greater, lesser;
  Signal distance;        // of the exponents, unsigned
  Signal lesserCounts{};  // when it is a signal and 0, the lesser operand is 0 whatever it holds
};
Ordered orderByMagnitude(Builder& b, const AddOperands& x);

// Where the error of the adders comes from.
struct AlignmentPlan {
  int guardBits = 2;        // below the greater operand's last place
  bool sticky = true;       // and a sticky bit below them
  int nearBits = 0;         // lowest aligned bits that are served only at a distance of 0 or 1
  bool looseGuard = false;  // the one bit of nearBits may be wrong at other distances
  bool farBorrows = true;   // false: far subtractions leave out the ones' complement's carry in
  RoundingRule rounding;
  BlockShape products{};  // that align, where there are any
};
// The cheapest plan whose budget keeps the promise of `options`. With a close path the alignment
// serves no difference that cancels more than one place at a distance below 2.
AlignmentPlan planAlignment(const FloatAdderOptions& options, int fractionBits, bool hasClosePath);

// Significands have `fractionBits` + 1 bits; the result has guard and sticky bits below, and one
// bit above: its weight is twice that of the greater operand's top bit.
struct Aligned {
  Signal greater, lesser;  // of equal width
  Signal borrow;           // carry in of the subtraction
};
Aligned alignOperands(Builder& b, const Ordered& x, const AlignmentPlan& plan);

// greater + lesser, or with `subtracts` greater - lesser.
Signal addAligned(Builder& b, const Aligned& x, Signal subtracts);

// A sum of aligned operands shifted until its top bit is 1, as far as it is not left to the
// rounding (see Unrounded). With gradual underflow the exponent does not fall below the lowest one.
struct NormalisedSum {
  Signal exponent, significand, isZero;
  Signal leftShift{}, exponentAddend{};
};
NormalisedSum normaliseSum(Builder& b, Signal sum, Signal exponent, int fractionBits,
                           const FloatFormat& out);

}  // namespace arithmetic
