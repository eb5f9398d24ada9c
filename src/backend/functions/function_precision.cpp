#include "backend/functions/function_precision.h"

#include <algorithm>
#include <cmath>

namespace functions {

namespace {

constexpr int kUnknownGap = 20;

}  // namespace

FunctionPrecision functionPrecision(double ulps, const std::optional<RoundingGap>& gap,
                                    bool isNearest) {
  if (ulps >= 1) return {.extraBits = 0, .units = ulps};
  // One bit more: a result may come out in the binade above the exact one's.
  const int bits = gap ? (isNearest ? gap->nearest : gap->directed) : kUnknownGap;
  return {.extraBits = std::max(bits, 2) + 1, .units = 1};
}

void stateErrors(const FunctionPrecision& precision, double ulps,
                 const arithmetic::ErrorBudget& errors, arithmetic::ErrorBudgets* stated,
                 const std::string& name) {
  const int extra = precision.extraBits;
  arithmetic::ErrorBudget budget(precision.isRounded() ? ulps : std::ldexp(1.0, -extra),
                                 precision.isRounded() ? name : name + " before rounding");
  for (const auto& term : errors.terms())
    budget.add(term.name, term.numerator, term.log2Denominator + extra);
  budget.assertKept(stated);
}

}  // namespace functions
