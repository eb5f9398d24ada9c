#include "backend/arithmetic/error_budget.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

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

}  // namespace

void ErrorBudget::add(const std::string& name, const MPZ& numerator, int log2Denominator) {
  LOAM_ASSERT(numerator.sign() >= 0 && log2Denominator >= 0, "a bound of an error");
  rows.push_back({name, numerator, log2Denominator});
}

double ErrorBudget::sum() const {
  const Scaled total = scaledSum(rows);
  long exponent = 0;
  const double mantissa = mpz_get_d_2exp(&exponent, total.sum.get());
  return std::ldexp(mantissa, static_cast<int>(exponent) - total.scale);
}

void ErrorBudget::assertKept() const {
  const Scaled total = scaledSum(rows);
  // promised * 2^scale is exact in a double that is scaled by a power of two.
  if (mpz_cmp_d(total.sum.get(), std::ldexp(promised, total.scale)) <= 0) return;
  std::string parts;
  for (const Term& term : rows)
    parts += fmt::format(" {} {}/2^{}", term.name, term.numerator.toText(10), term.log2Denominator);
  LOAM_ASSERT(false, fmt::format("errors of{} ulp keep the promise of {} ulp", parts, promised));
}

}  // namespace arithmetic
