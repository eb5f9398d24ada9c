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
};
AddOperands prepareAddition(Builder& b, const Unpacked& x, const Unpacked& y,
                            const FloatFormat& out);

// The operands by magnitude, or one of two equal ones.
struct Ordered {
  Signal swapped;  // y is the greater one
  Signal sign, exponent, greater, lesser;
  Signal distance;  // of the exponents, unsigned unless the lesser one is a zero
};
Ordered orderByMagnitude(Builder& b, const AddOperands& x);

// Where the error of the adders comes from.
struct AlignmentPlan {
  int guardBits = 2;       // below the greater operand's last place
  bool sticky = true;      // and a sticky bit below them
  int nearBits = 0;        // lowest aligned bits that are served only at a distance of 0 or 1
  bool farBorrows = true;  // false: far subtractions leave out the ones' complement's carry in
  RoundingRule rounding;
};
// The cheapest plan whose budget keeps the promise of `options`.
AlignmentPlan planAlignment(const FloatAdderOptions& options, int fractionBits);

// Significands have `fractionBits` + 1 bits; the result has guard and sticky bits below, and one
// bit above: its weight is twice that of the greater operand's top bit.
struct Aligned {
  Signal greater, lesser;  // of equal width
  Signal borrow;           // carry in of the subtraction
};
Aligned alignOperands(Builder& b, const Ordered& x, const AlignmentPlan& plan);

// Normalises a sum or difference of aligned operands by a leading-zero count and rounds it.
struct NormalisedSum {
  Signal exponent, significand, isZero;
};
NormalisedSum normaliseSum(Builder& b, Signal sum, Signal exponent, int exactBits,
                           const FloatFormat& out);

}  // namespace arithmetic
