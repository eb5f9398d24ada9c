#include "backend/arithmetic/error_budget.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "util/failure.h"

namespace arithmetic {

using util::MPZ;

namespace {

// The sum of the terms times 2^scale, scale the largest denominator.
struct Scaled {
  MPZ sum;
  int scale = 0;
};
Scaled scaledSum(const std::vector<ErrorBudget::Term>& terms) {
  Scaled result;
  for (const auto& term : terms) result.scale = std::max(result.scale, term.log2Denominator);
  for (const auto& term : terms)
    result.sum += term.numerator << (result.scale - term.log2Denominator);
  return result;
}

// value / 2^scale as a double that is not below it.
double roundedUp(const MPZ& value, int scale) {
  if (value.isZero()) return 0;
  long exponent = 0;
  double mantissa = mpz_get_d_2exp(&exponent, value.get());
  constexpr std::size_t kMantissa = std::numeric_limits<double>::digits;
  if (mpz_sizeinbase(value.get(), 2) - mpz_scan1(value.get(), 0) > kMantissa)
    mantissa = std::nextafter(mantissa, 2.0);
  return std::ldexp(mantissa, static_cast<int>(exponent) - scale);
}

}  // namespace

double ErrorBudget::Term::ulps() const { return roundedUp(numerator, log2Denominator); }

void ErrorBudget::add(const std::string& name, const MPZ& numerator, int log2Denominator) {
  LOAM_ASSERT(numerator.sign() >= 0 && log2Denominator >= 0, "a bound of an error");
  rows.push_back({name, numerator, log2Denominator});
}

double ErrorBudget::sum() const {
  const Scaled total = scaledSum(rows);
  return roundedUp(total.sum, total.scale);
}

void ErrorBudget::assertKept(ErrorBudgets* stated) const {
  const Scaled total = scaledSum(rows);
  // promised * 2^scale is exact in a double that is scaled by a power of two.
  if (mpz_cmp_d(total.sum.get(), std::ldexp(promised, total.scale)) <= 0) {
    if (stated && std::ranges::find(*stated, *this) == stated->end()) stated->push_back(*this);
    return;
  }
  std::string parts;
  for (const Term& term : rows)
    parts += fmt::format(" {} {}/2^{}", term.name, term.numerator.toText(10), term.log2Denominator);
  LOAM_ASSERT(false, fmt::format("errors of{} ulp keep the promise of {} ulp", parts, promised));
}

void stateRounding(ErrorBudgets* stated, bool toNearest) {
  ErrorBudget budget(toNearest ? 0.5 : 1);
  budget.add("rounding", 1, toNearest ? 1 : 0);
  budget.assertKept(stated);
}

void stateSubnormal(ErrorBudgets* stated, const ErrorBudget& normal, bool toNearest) {
  if (normal.sum() > 1) return;
  ErrorBudget budget(1, "error of a subnormal");
  if (toNearest)
    for (const ErrorBudget::Term& term : normal.terms())
      budget.add(term.name, term.numerator, term.log2Denominator + 1);
  budget.add(toNearest ? "rounding" : "cut", 1, toNearest ? 1 : 0);
  budget.assertKept(stated);
}

}  // namespace arithmetic
