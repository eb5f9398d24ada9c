#pragma once

#include "backend/arithmetic/function_circuit.h"

namespace arithmetic {

// Sines of pi y for angles y = m 2^-zeros in (0, 1/2], m in [1/2, 1), as P = 2^zeros sin(pi y) in
// [1, pi]: what y has of relative precision the sine has as well.
struct SineRequest {
  int angleBits = 0;  // of m, behind its leading 1
  // m is half a unit of its last place above what it is given as, but for y = 1/2, give or take so
  // many units; 0: it is what it is given as.
  double angleError = 0;
  int resultLsb = 0;
  double promise = 1;  // of P, in units of 2^resultLsb, as PolynomialRequest has it
  EvaluationPrices prices;
};

struct PlannedSine {
  PolynomialRequest request;
  PlannedFunction plan;
  int zeroBits = 0;  // numbers of zeros beyond 2^zeroBits - 1 share a function
  // What evaluation does not see, in units of the result's last place.
  double smallAngles = 0, angles = 0;
};

// The cheapest circuit. One function of (zeros, m) is approximated, in floating-point manner: for
// each number of zeros P is smooth in m, and nearly pi m where there are many,
//   0 <= pi m - P < pi (pi y)^2 / 6,  which with y < 2^-Z is below 5.17 * 2^-2Z.
// So neither a product by y nor a wide fixed-point angle is needed. Fails as planFunction() does.
util::Result<PlannedSine> planSine(const SineRequest& request);

// The circuit.
//   zeros        unsigned, any width; 0 for y = 1/2 alone
//   significand  of m, angleBits + 1 bits, the top one not looked at
// P is unsigned, with the top bit of weight 2, and 1 within the error for y = 1/2.
EvaluatedFunction evaluateSine(Builder& b, Signal zeros, Signal significand,
                               const PlannedSine& planned, const SineRequest& request);

}  // namespace arithmetic
