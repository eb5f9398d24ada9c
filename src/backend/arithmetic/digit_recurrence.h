#pragma once

#include "backend/arithmetic/error_budget.h"
#include "backend/graph/builder.h"

// Square roots and quotients of normalised significands, digit by digit (Ercegovac and Lang,
// "Division and Square Root: Digit-Recurrence Algorithms and Implementations", 1994). The residuals
// are plain two's-complement numbers: a row is one carry chain, whose tables choose the multiple of
// the divisor or root as well.
//
// Single precision on TarnV at 300 MHz, to nearest, tables and (cycles + 1) ns of the whole unit by
// synthesis:
//   quotient  radix 4, digits -2 to 2: 563, 63   radix 2, digits -1 and 1: 750, 68
//   root      radix 2, digits -1 and 1: 387, 58
// Radix 4 halves the rows of a quotient; each costs five tables more, for its digit. A root of
// radix 4 would have to keep two forms of all bits found so far, a table a bit each in every row.
namespace arithmetic {

using graph::Builder;
using graph::Signal;

struct DigitResult {
  Signal bits;
  Signal inexact;  // 1 bit: something follows the bits; none where the rows were cut
};

// How many rows of a recurrence keep their residual whole, and what the others make of it.
struct RowPlan {
  int digits = 0;     // rows altogether
  int exactRows = 0;  // the first of them; each further one drops two places more
  util::MPZ error;    // error / 2^errorScale bounds what that costs, in units of the last digit
  int errorScale = 0;
  bool isExact() const { return exactRows == digits; }
};

// sqrt(radicand) cut off after n = plan.digits bits of fraction.
//   radicand  in [1, 4): 2 bits and a fraction; inexact is right if that has at most 2 (n - 1)
//   bits,
//             or n <= 2
// Returns 1 + n bits, the top one 1. With rows that drop places the result is the root
// plus an error from 0 to the plan's, cut off, or the greatest of its width if that is less.
//
// Radix 2 without restoring: row j adds the root so far, or its complement, to the residual's sum
// of j + 1 bits. The first two bits behind the 1 come with their residual from tables of six bits.
DigitResult rootByDigits(Builder& b, Signal radicand, const RowPlan& plan);
RowPlan exactRootPlan(int fractionBits);
// The plan with the fewest bits of rows whose error is below `units`, at most 1, of the last place.
//   radicandFraction  fraction bits of the radicand, at most twice those of the rows that are whole
RowPlan truncatedRootPlan(int fractionBits, int radicandFraction, double units);

// x / y cut off after 2 digits + 1 bits of fraction: that many bits and one before them.
//   x, y  of one width, at least 2, top bits 1, so that the quotient is in (1/2, 2)
// It is inexact if x / y has no finite binary fraction; 2 digits is at least the width of x, so
// that it holds every finite one.
//
// Radix 4, digits -2 to 2. |w| <= 2/3 y for every residual; the next digit is chosen by the six top
// bits of 4 w and three of y.
DigitResult quotientByDigits(Builder& b, Signal x, Signal y, int digits);

// The tables that quotientByDigits() and nearQuotient() take, about.
double priceOfQuotient(int width, const RowPlan& plan);

// x / y + e, |e| < 2/3 + the plan's error in units of 2^-(2 plan.digits), with 2 plan.digits bits
// of fraction and two before them. `up` adds one unit of the last place.
Signal nearQuotient(Builder& b, Signal x, Signal y, const RowPlan& plan, bool up);
// The plan with the fewest bits of rows whose error is below `units`, at most 4/3, of the last
// place.
RowPlan truncatedQuotientPlan(int digits, int width, double units);

}  // namespace arithmetic
