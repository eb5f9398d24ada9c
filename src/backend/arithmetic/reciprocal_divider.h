#pragma once

#include <optional>

#include "backend/arithmetic/function_circuit.h"

// Quotients of normalised significands by an approximate reciprocal of the divisor.
namespace arithmetic {

// What is wanted of an approximate quotient v of x / y: with `fractionBits` bits of fraction,
// before it is cut off to them, it is off to one side by less than `room` of their last place.
struct QuotientGoal {
  int fractionBits = 0;
  int room = 1;           // 1 or 2
  bool notAbove = false;  // v <= x / y; else v >= x / y
};

// v, cut off, with one bit before the fraction, and the bound of its error.
struct NearQuotient {
  Signal bits;
  ErrorBudget budget;  // in units of the last place
};

// The reciprocal by piecewise polynomials or tables, times the dividend.
struct ReciprocalPlan {
  PolynomialRequest request;
  PlannedFunction function;
  double price = 0;  // in look-up tables, the product's included
};
// The cheapest plan for significands of `width` bits; nothing where there is none, or none that
// costs less than `mostPrice`.
std::optional<ReciprocalPlan> planReciprocal(int width, const QuotientGoal& goal,
                                             const EvaluationPrices& prices, double mostPrice);
NearQuotient quotientByReciprocal(Builder& b, Signal x, Signal y, const ReciprocalPlan& plan,
                                  const QuotientGoal& goal);

// A reciprocal of a quarter of the bits as a seed, a Newton-Raphson step for half of them, and one
// for the quotient, on the dividend instead of 1 (Karp and Markstein, "High-precision division and
// square root", 1997). Every product and every step is cut off where the goal allows.
//   x, y  of one width, at least 16 bits
NearQuotient quotientByNewton(Builder& b, Signal x, Signal y, const QuotientGoal& goal,
                              const EvaluationPrices& prices);

// floor(x 2^f / y), f = width + 1, by the sign of what one of its two candidates leaves, for v as
// of a goal of f bits, a room of 1 and not above.
struct CheckedQuotient {
  Signal bits;     // f + 1
  Signal inexact;  // 1 bit
};
CheckedQuotient checkedQuotient(Builder& b, Signal near, Signal y);
double priceOfCheck(int width, const EvaluationPrices& prices);

}  // namespace arithmetic
