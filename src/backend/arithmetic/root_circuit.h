#pragma once

#include "backend/arithmetic/function_circuit.h"

// Reciprocals and square roots: the function of a normalised operand, and the test by which an
// approximation of it is rounded exactly.
namespace arithmetic {

enum class Root { kReciprocal, kSquareRoot, kReciprocalSquareRoot };

// m in [1, 2) and, for roots, twice as much where the operand's exponent is odd: u in [1, 4). The
// result is one of 2 / m, sqrt(u) or 2 / sqrt(u), in [1, 2], and 2 only of a reciprocal of 1.
struct RootRequest {
  Root root = Root::kSquareRoot;
  int fractionBits = 0;  // of m
  int resultLsb = 0;
  double promise = 1;    // in units of 2^resultLsb, see PolynomialRequest
  bool lowered = false;  // the function is to be one unit less
  bool isEven = false;   // the exponent is even: u = m
  EvaluationPrices prices;
};
PolynomialRequest polynomialOf(const RootRequest& request);

// The argument of that polynomial: the fraction of m, for roots with `isOdd` on top.
Signal rootArgument(Builder& b, const RootRequest& request, Signal fraction, Signal isOdd);

// Whether T = t, or t + 1 where `plusOne`, is below a root of the positive integer a:
//   kReciprocal            T < 2^scale / a, as T a < 2^scale
//   kSquareRoot            T < sqrt(2^scale a), as T^2 < 2^scale a; with a negative scale as
//                          2^-scale T^2 < a
//   kReciprocalSquareRoot  T < sqrt(2^scale / a), as T^2 a < 2^scale
// The two sides of the latter form differ by less than 2^logDifference, which the caller proves
// from how close t is to the root; so the difference has its sign in bit logDifference, and neither
// side is computed beyond that.
struct RootComparison {
  Root root = Root::kSquareRoot;
  int scale = 0;
  int logDifference = 0;
  bool plusOne = false;
  ProductPrices prices;
};
// 1 when T is below the root, or when it is the root and `orEqual` is 1.
Signal isBelowRoot(Builder& b, Signal t, Signal a, Signal orEqual, const RootComparison& how);

// What the products of a comparison cost in look-up tables.
double priceOf(const RootComparison& how, int tBits, int aBits);

}  // namespace arithmetic
