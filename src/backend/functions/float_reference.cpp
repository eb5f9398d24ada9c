#include "backend/functions/float_reference.h"

#include <algorithm>

#include "util/failure.h"

namespace functions {

namespace {

// MPFR exponents of a port: a number is 0.1... * 2^exponent.
struct PortRange {
  mpfr_exp_t lowestNormal, largest;
  explicit PortRange(const kiln::FloatingPoint& port) {
    const mpfr_exp_t half = mpfr_exp_t{1} << (port.exp - 1);
    lowestNormal = (port.is_fp_lib ? 2 : 3) - half;
    largest = half + (port.is_fp_lib ? 1 : 0);
  }
};

void setZeroLike(mpfr_ptr value) { mpfr_set_zero(value, mpfr_signbit(value) ? -1 : 1); }
void setInfLike(mpfr_ptr value) { mpfr_set_inf(value, mpfr_signbit(value) ? -1 : 1); }

// 2^(exponent - 1), the smallest number with that MPFR exponent, with the sign of `like`.
void setPower(mpfr_ptr value, mpfr_exp_t exponent, mpfr_srcptr like) {
  mpfr_set_si_2exp(value, mpfr_signbit(like) ? -1 : 1, exponent - 1, MPFR_RNDN);
}

// Rounds `x` to `precision` >= 1 bits.
void roundToPrecision(mpfr_ptr result, mpfr_srcptr x, mpfr_prec_t precision,
                      const Delivery& delivery) {
  thread_local Real scratch;
  mpfr_rnd_t rounding = delivery.rounding;
  if (rounding == MPFR_RNDN && delivery.tiesAway) {
    // A tie has exactly one bit too many.
    const bool isTie = static_cast<mpfr_prec_t>(mpfr_min_prec(x)) == precision + 1;
    if (isTie) rounding = MPFR_RNDA;
  }
  mpfr_set(scratch.prepare(precision), x, rounding);
  mpfr_set(result, scratch.get(), MPFR_RNDN);
}

// Rounds `x`, below half of the port's smallest subnormal or up to it, to 0 or that number.
void roundBelowSmallest(mpfr_ptr result, mpfr_srcptr x, mpfr_exp_t smallest,
                        const Delivery& delivery) {
  // Half of the smallest subnormal has the exponent before it.
  const bool atLeastHalf = mpfr_get_exp(x) == smallest - 1;
  const bool aboveHalf = atLeastHalf && mpfr_min_prec(x) > 1;
  const bool negative = mpfr_signbit(x) != 0;
  bool away = false;
  switch (delivery.rounding) {
    case MPFR_RNDN:
      away = delivery.tiesAway ? atLeastHalf : aboveHalf;
      break;
    case MPFR_RNDU:
      away = !negative;
      break;
    case MPFR_RNDD:
      away = negative;
      break;
    case MPFR_RNDA:
      away = true;
      break;
    default:
      break;
  }
  if (away)
    setPower(result, smallest, x);
  else
    mpfr_set_zero(result, negative ? -1 : 1);
}

}  // namespace

void readFloat(Real& value, const NumValue& input, const kiln::FloatingPoint& port,
               bool subnormals) {
  mpfr_ptr x = value.prepare(port.frac + 1);
  if (!input.real) return;  // a NaN
  mpfr_set(x, input.real.get(), MPFR_RNDN);
  if (!mpfr_regular_p(x)) return;
  const PortRange range(port);
  const mpfr_exp_t exponent = mpfr_get_exp(x);
  if (exponent > range.largest) return setInfLike(x);
  if (exponent >= range.lowestNormal) return;
  const mpfr_exp_t below = range.lowestNormal - exponent;
  if (!subnormals || below > port.frac) return setZeroLike(x);
  mpfr_prec_round(x, port.frac + 1 - below, MPFR_RNDZ);
  mpfr_prec_round(x, port.frac + 1, MPFR_RNDN);
  if (port.is_fp_lib) {
    // Field 0 carries a hidden bit: (1 + F / 2^wF) * 2^(lowestNormal - 1).
    const bool negative = mpfr_signbit(x) != 0;
    mpfr_abs(x, x, MPFR_RNDN);
    thread_local Real hidden(MPFR_PREC_MIN);
    mpfr_set_ui_2exp(hidden.get(), 1, range.lowestNormal - 1, MPFR_RNDN);
    mpfr_add(x, x, hidden.get(), MPFR_RNDN);
    if (negative) mpfr_neg(x, x, MPFR_RNDN);
  }
}

bool readBit(const NumValue& input) {
  return input.real && !mpfr_nan_p(input.real.get()) && mpfr_cmp_ui(input.real.get(), 1) >= 0;
}

unsigned readSelect(const NumValue& input, int width) {
  if (!input.real || mpfr_nan_p(input.real.get()) || mpfr_signbit(input.real.get())) return 0;
  const unsigned long highest = (1ul << width) - 1;
  if (mpfr_cmp_ui(input.real.get(), highest) >= 0) return static_cast<unsigned>(highest);
  return static_cast<unsigned>(mpfr_get_ui(input.real.get(), MPFR_RNDZ));
}

void roundToOdd(mpfr_ptr value, int ternary) {
  if (ternary == 0 || !mpfr_regular_p(value)) return;
  if (static_cast<mpfr_prec_t>(mpfr_min_prec(value)) == mpfr_get_prec(value)) return;
  if (mpfr_signbit(value))
    mpfr_nextbelow(value);
  else
    mpfr_nextabove(value);
}

void deliverOdd(NumValue& result, mpfr_srcptr odd, const Delivery& delivery) {
  result.type = NumType::kValue;
  result.raw = false;
  mpfr_ptr r = result.real.prepare(delivery.precision);
  if (!mpfr_regular_p(odd)) {
    mpfr_set(r, odd, MPFR_RNDN);
    return;
  }
  const PortRange range(delivery.port);
  const bool gradual = delivery.subnormals && !delivery.port.is_fp_lib;
  mpfr_prec_t precision = delivery.precision;
  if (gradual) {
    const mpfr_exp_t smallest = range.lowestNormal - delivery.port.frac;
    precision = std::min<mpfr_prec_t>(precision, mpfr_get_exp(odd) - smallest + 1);
    if (precision < 1) return roundBelowSmallest(r, odd, smallest, delivery);
  }
  roundToPrecision(r, odd, precision, delivery);
  if (delivery.subnormals && delivery.port.is_fp_lib) {
    if (mpfr_get_exp(r) < range.lowestNormal)
      setZeroLike(r);
    else if (mpfr_get_exp(r) > range.largest)
      setInfLike(r);
  }
}

void fitToCallersRange(std::vector<NumValue>& results, const std::vector<mpfr_rnd_t>& roundings) {
  for (std::size_t i = 0; i < results.size(); ++i)
    if (results[i].real) mpfr_check_range(results[i].real.get(), 0, roundings[i]);
}

bool spreadsDontCare(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                     const std::vector<unsigned>& precisions) {
  if (std::ranges::none_of(inputs,
                           [](const NumValue& input) { return input.type == NumType::kDontCare; }))
    return false;
  results.resize(precisions.size());
  for (std::size_t i = 0; i < results.size(); ++i) {
    results[i].type = NumType::kDontCare;
    results[i].raw = false;
    mpfr_set_zero(results[i].real.prepare(precisions[i]), 1);
  }
  return true;
}

}  // namespace functions
