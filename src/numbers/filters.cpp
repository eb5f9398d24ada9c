#include "numbers/filters.h"

#include <algorithm>

#include "numbers/packing.h"

namespace {

// The magnitude's exponent places it, with its sign, inside or outside of the port's limits
// without a comparison; only numbers in the top binade or of the wrong sign need one.
bool surelyWithin(mpfr_srcptr x, const kiln::FixedPoint& fx) {
  if (mpfr_zero_p(x)) return true;
  if (!mpfr_regular_p(x) || (mpfr_signbit(x) && !fx.sign())) return false;
  const int integerBits = fx.width() - fx.fraction() - (fx.sign() ? 1 : 0);
  return mpfr_get_exp(x) < integerBits;
}

void clampTo(mpfr_ptr x, const kiln::FixedPoint& fx, mpfr_prec_t precision) {
  const int integerBits = fx.width() - fx.fraction() - (fx.sign() ? 1 : 0);
  Real limit(precision);
  if (!mpfr_nan_p(x) && mpfr_sgn(x) < 0) {
    if (fx.sign()) {
      mpfr_set_si_2exp(limit.get(), -1, integerBits, MPFR_RNDN);
    } else {
      mpfr_set_zero(limit.get(), 1);
    }
    if (mpfr_less_p(x, limit.get())) mpfr_set(x, limit.get(), MPFR_RNDN);
    return;
  }
  Real step(2);
  mpfr_set_ui_2exp(limit.get(), 1, integerBits, MPFR_RNDN);
  mpfr_set_ui_2exp(step.get(), 1, -fx.fraction(), MPFR_RNDN);
  mpfr_sub(limit.get(), limit.get(), step.get(), MPFR_RNDN);
  if (mpfr_nan_p(x) || mpfr_greater_p(x, limit.get())) {
    // the argument's own precision may be too small for the limit
    mpfr_set_prec(x, std::max(mpfr_get_prec(x), precision));
    mpfr_set(x, limit.get(), MPFR_RNDN);
  }
}

// Prepares `result` to take v's number at `precision` bits; false when v has none.
bool begin(NumValue& result, const NumValue& v) {
  result.type = v.type;
  if (!v.real) {
    result.real.drop();
    result.pattern = v.pattern;
    result.raw = v.raw;
    return false;
  }
  mpz_set_ui(result.pattern.get(), 0);
  result.raw = false;
  return true;
}

}  // namespace

void fpRangeFilter(NumValue& result, const NumValue& v, const kiln::FloatingPoint& fp,
                   bool subnormals) {
  if (!begin(result, v)) return;
  mpfr_ptr x = result.real.prepare(fp.frac + 1);
  mpfr_set(x, v.real.get(), MPFR_RNDN);
  if (!mpfr_regular_p(x)) return;
  const ExponentLimits limits = exponentLimits(fp, subnormals);
  const mpfr_exp_t e = mpfr_get_exp(x);
  const int sign = mpfr_signbit(x) ? -1 : 1;
  if (e < limits.smallestAccepted) {
    mpfr_set_zero(x, sign);
  } else if (e > limits.largest) {
    mpfr_set_inf(x, sign);
  }
}

NumValue fpRangeFilter(const NumValue& v, const kiln::FloatingPoint& fp, bool subnormals) {
  NumValue result;
  fpRangeFilter(result, v, fp, subnormals);
  return result;
}

void fxpRangeFilter(NumValue& result, const NumValue& v, const kiln::FixedPoint& fx,
                    int precision) {
  if (!begin(result, v)) return;
  mpfr_ptr x = result.real.prepare(mpfr_get_prec(v.real.get()));
  mpfr_set(x, v.real.get(), MPFR_RNDN);
  if (!surelyWithin(x, fx)) clampTo(x, fx, std::max(precision, fx.width()));
}

NumValue fxpRangeFilter(const NumValue& v, const kiln::FixedPoint& fx, int precision) {
  NumValue result;
  fxpRangeFilter(result, v, fx, precision);
  return result;
}
