#pragma once

#include "backend/arithmetic/polynomial_evaluator.h"

namespace arithmetic {

// A function of (argument.first + x) * 2^argument.lsb wanted within `promise` units of 2^resultLsb,
// the rounding of the result to that unit included: 1 is faithful. At least 9/16.
struct PolynomialRequest {
  std::string function;  // as approximation::Function reads it
  approximation::ArgumentFormat argument;
  int resultLsb = 0;
  double promise = 1;
  EvaluationPrices prices;
  int mostDegree = 6;
  int mostRowBits = 12;
  bool hierarchical = true;
};

struct PlannedPolynomial {
  approximation::PiecewisePolynomial polynomial;
  HornerPlan plan;
  double price() const { return plan.price(); }
};

// The cheapest polynomials with their steps, by approximation::searchPolynomial. Found once in a
// run for each request. Fails where the text is no function, or no segmentation suffices.
util::Result<PlannedPolynomial> planPolynomial(const PolynomialRequest& request);

}  // namespace arithmetic
