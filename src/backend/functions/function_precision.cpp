#include "backend/functions/function_precision.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "backend/functions/float_unit.h"

namespace functions {

namespace {

constexpr int kMostPlaces = 118;
constexpr int kManyPlaces = 72;  // beyond, high degrees are worth their search

}  // namespace

FunctionPrecision functionPrecision(double ulps, const std::optional<RoundingGap>& gap,
                                    bool isNearest) {
  if (ulps >= 1) return {.extraBits = 0, .units = ulps};
  // One bit more: a result may come out in the binade above the exact one's.
  const int bits = gap ? (isNearest ? gap->nearest : gap->directed) : kUnknownGap;
  return {.extraBits = std::max(bits, 2) + 1, .units = 1, .isProven = gap.has_value()};
}

std::optional<std::string> refuseFunction(const Request& request, int further) {
  if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
  if (auto reason = refuseMixedWidths(request)) return reason;
  // Gaps are known of small formats only, which no approximation fails for.
  const auto precision = functionPrecision(ulpsOf(request, 0), std::nullopt, true);
  const int wF = outputFormat(request, 0).fractionBits;
  const int most = kMostPlaces - precision.extraBits - further;
  if (wF <= most) return std::nullopt;
  return fmt::format("wF {} is out of range 1 to {}{}", wF, most,
                     precision.isRounded() ? "" : " for correct rounding");
}

int mostDegree(int places) { return places > kManyPlaces ? 8 : 6; }

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

void stateFinalRounding(const FunctionPrecision& precision, bool isNearest,
                        arithmetic::ErrorBudgets* stated) {
  if (precision.isProven) return arithmetic::stateRounding(stated, isNearest);
  arithmetic::ErrorBudget budget((isNearest ? 0.5 : 1) + std::ldexp(1.0, -kUnknownGap));
  budget.add("before rounding", 1, kUnknownGap);
  budget.add("rounding", 1, isNearest ? 1 : 0);
  budget.assertKept(stated);
}

}  // namespace functions
