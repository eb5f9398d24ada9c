#pragma once

#include <optional>
#include <string>

#include "backend/arithmetic/error_budget.h"
#include "backend/functions/rounding_gap.h"

namespace functions {

// What an approximated result owes before it is rounded.
//
// A bound of an ulp or more: its last place is that of the significand, and the approximation's own
// final rounding is the only one. Else `extraBits` more, and an error so small that the rounding is
// the exact result's; where the gap of the function is not known, within 2^-20 ulp.
struct FunctionPrecision {
  int extraBits = 0;
  double units = 1;  // the error in units of the last place, that of the final rounding included
  bool isProven = true;  // of a rounding that is to be correct: that it is, for every input
  bool isRounded() const { return extraBits == 0; }
};
FunctionPrecision functionPrecision(double ulps, const std::optional<RoundingGap>& gap,
                                    bool isNearest);

// Refuses ports other than one floating input and output of one width, and fractions with more bits
// than approximations reach: those of the result with its extra bits and `further` ones that the
// method takes.
std::optional<std::string> refuseFunction(const Request& request, int further);
// The most coefficients that pay for a result of so many bits are those of this degree.
int mostDegree(int places);

// Puts the budget of such a result, in units of its last place as above, with those of
// the circuit.
void stateErrors(const FunctionPrecision& precision, double ulps,
                 const arithmetic::ErrorBudget& errors, arithmetic::ErrorBudgets* stated,
                 const std::string& name = "error");
// Puts the budget of the final rounding of a result with extra bits, in its ulps.
void stateFinalRounding(const FunctionPrecision& precision, bool isNearest,
                        arithmetic::ErrorBudgets* stated);

}  // namespace functions
