#pragma once

#include <string>

#include "backend/approximation/piecewise_polynomial.h"
#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/horner_plan.h"

namespace arithmetic {

// bits * 2^lsb, two's complement where low is negative; the value lies in [low, high] * 2^lsb.
struct FixedSignal {
  Signal bits;
  int lsb = 0;
  util::MPZ low, high;
  bool isSigned() const { return low.sign() < 0; }
};

struct EvaluatedFunction {
  FixedSignal result;
  ErrorBudget budget;  // of the result beside the function, in units of its last place
};

// The circuit of a piecewise polynomial of degree 1 or more: coefficients from tables by the
// segment of x, then Horner's scheme in t, the distance from the segment's centre, as `plan` says.
//   x     unsigned, p.argument.bits wide: the argument is x * 2^p.argument.lsb
//   plan  of p; the last step's lsb is the result's
// Constants in the coefficients' tables centre every cut, the final one included, which so is a
// rounding to nearest (ties upwards). The budget holds every cut's exact bound beside the
// polynomial's own, and keeps `promise`, in units of the result's last place, or the run ends.
EvaluatedFunction evaluatePolynomial(Builder& b, Signal x,
                                     const approximation::PiecewisePolynomial& p,
                                     const HornerPlan& plan, double promise,
                                     const EvaluationPrices& prices);

}  // namespace arithmetic
