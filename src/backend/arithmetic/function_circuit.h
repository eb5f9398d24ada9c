#pragma once

#include <variant>

#include "backend/arithmetic/multipartite_circuit.h"
#include "backend/arithmetic/polynomial_circuit.h"

namespace arithmetic {

// The cheapest circuit for a function: one table, a sum of tables, or piecewise polynomials.
struct PlannedFunction {
  std::variant<PlannedPolynomial, PlannedTable> method;
  double price = 0;                 // in look-up tables, estimated
  std::string description() const;  // "64 polynomials of degree 2", "bipartite table"
};

// Tables compete for arguments of up to kMostCompetingBits bits. Fails as the plans of both do.
inline constexpr int kMostCompetingBits = 14;
util::Result<PlannedFunction> planFunction(const PolynomialRequest& request);

// The circuit for x, unsigned, request.argument.bits wide. A plan comes from the same request.
EvaluatedFunction evaluateFunction(Builder& b, Signal x, const PlannedFunction& plan,
                                   const PolynomialRequest& request);

}  // namespace arithmetic
