#pragma once

#include <optional>
#include <string>

#include "backend/arithmetic/error_budget.h"
#include "backend/arithmetic/floating_point.h"
#include "backend/arithmetic/root_circuit.h"

namespace arithmetic {

// What 1 / x, sqrt(x) or 1 / sqrt(x) of a floating-point number is to become.
struct FloatRoot {
  Root root = Root::kSquareRoot;
  FloatFormat in, out;  // of the same widths
  RoundMode rounding = RoundMode::kNearestEven;
  double ulps = 1;  // below 1: rounded exactly, as `rounding` says
  bool quietNaN = false;
  EvaluationPrices prices;
  ErrorBudgets* budgets = nullptr;
};

// Why there is no circuit, as the end of a line that begins with the operator.
std::optional<std::string> refuseFloatRoot(const FloatRoot& how);

// The root of x, packed. Roots of negative numbers are NaN, sqrt(-0) is -0, 1 / +-0 and
// 1 / sqrt(+-0) are infinities of the zero's sign.
//
// Operands are normalised once. A candidate c of the significand, from tables and polynomials, is
// within one unit of its last place. A faithful result is c, cut where it is a subnormal: with s
// places cut the error is at most 1 - 2^-s units of the new last place and 2^-s of c's own.
//
// For a result that is rounded exactly, one comparison of c with the root settles which neighbour
// it is, in terms of the integer products that isBelowRoot() names; no product is needed in full,
// since c is close. With c to half an ulp, an even c is nearest to the root, and an odd one lies
// halfway between the two numbers around the root. No root is there: the square of an odd multiple
// of 2^-(wF + 1) has more places than the operand, 1 / x is a power of two or no number of finitely
// many bits, and 1 / sqrt(x) is a power of two or has a square of that kind. (Subnormal results
// with s places less are roundings of the same kind at another place; powers of two in them are
// numbers.) In the other directions c is to one ulp, and the comparison tells whether the root is
// beyond it.
Signal rootOfFloat(Builder& b, const Unpacked& x, const FloatRoot& how);

}  // namespace arithmetic
