#include "backend/approximation/interval.h"

#include <algorithm>
#include <utility>

namespace approximation {

using util::MPZ;

namespace {

mpfr_prec_t widest(const Interval& a, const Interval& b) {
  return std::max(a.precision(), b.precision());
}

Interval unbounded(mpfr_prec_t precision) { return Interval(precision); }

// Both ends through a function that grows.
template <typename Fn>
Interval growing(const Interval& a, Fn fn) {
  Interval result(a.precision());
  if (!a.isBounded()) return result;
  fn(result.low(), a.low(), MPFR_RNDD);
  fn(result.high(), a.high(), MPFR_RNDU);
  return result;
}

}  // namespace

Interval::Interval(mpfr_prec_t precision) {
  for (auto& bound : bounds) mpfr_init2(bound, precision);
}
Interval::Interval(long value, mpfr_prec_t precision) : Interval(precision) {
  mpfr_set_si(bounds[0], value, MPFR_RNDD);
  mpfr_set_si(bounds[1], value, MPFR_RNDU);
}
Interval::Interval(const MPZ& numerator, long exponent, mpfr_prec_t precision)
    : Interval(precision) {
  mpfr_set_z_2exp(bounds[0], numerator.get(), exponent, MPFR_RNDD);
  mpfr_set_z_2exp(bounds[1], numerator.get(), exponent, MPFR_RNDU);
}
Interval::Interval(const Interval& other) : Interval(other.precision()) {
  for (int i : {0, 1}) mpfr_set(bounds[i], other.bounds[i], MPFR_RNDN);
}
Interval::Interval(Interval&& other) noexcept {
  for (int i : {0, 1}) bounds[i][0] = other.bounds[i][0];
  hasBounds = std::exchange(other.hasBounds, false);
}
Interval& Interval::operator=(const Interval& other) { return *this = Interval(other); }
Interval& Interval::operator=(Interval&& other) noexcept {
  for (int i : {0, 1}) std::swap(bounds[i][0], other.bounds[i][0]);
  std::swap(hasBounds, other.hasBounds);
  return *this;
}
Interval::~Interval() {
  if (!hasBounds) return;
  for (auto& bound : bounds) mpfr_clear(bound);
}

namespace {
MPZ fixed(mpfr_srcptr value, int fraction, mpfr_rnd_t rounding) {
  MPZ result;
  if (mpfr_zero_p(value)) return result;
  const mpfr_exp_t exponent = mpfr_get_z_2exp(result.get(), value) + fraction;
  if (exponent >= 0) return result << static_cast<unsigned long>(exponent);
  const auto shift = static_cast<mp_bitcnt_t>(-exponent);
  if (rounding == MPFR_RNDD)
    mpz_fdiv_q_2exp(result.get(), result.get(), shift);
  else
    mpz_cdiv_q_2exp(result.get(), result.get(), shift);
  return result;
}
}  // namespace

MPZ Interval::lowFixed(int fraction) const { return fixed(bounds[0], fraction, MPFR_RNDD); }
MPZ Interval::highFixed(int fraction) const { return fixed(bounds[1], fraction, MPFR_RNDU); }

Interval& Interval::operator+=(const Interval& other) {
  mpfr_add(low(), low(), other.low(), MPFR_RNDD);
  mpfr_add(high(), high(), other.high(), MPFR_RNDU);
  return *this;
}

Interval operator+(const Interval& a, const Interval& b) {
  Interval sum(widest(a, b));
  mpfr_add(sum.low(), a.low(), b.low(), MPFR_RNDD);
  mpfr_add(sum.high(), a.high(), b.high(), MPFR_RNDU);
  return sum;
}
Interval operator-(const Interval& a, const Interval& b) {
  Interval difference(widest(a, b));
  mpfr_sub(difference.low(), a.low(), b.high(), MPFR_RNDD);
  mpfr_sub(difference.high(), a.high(), b.low(), MPFR_RNDU);
  return difference;
}
Interval operator-(const Interval& a) {
  Interval result(a.precision());
  mpfr_neg(result.low(), a.high(), MPFR_RNDD);
  mpfr_neg(result.high(), a.low(), MPFR_RNDU);
  return result;
}

Interval operator*(const Interval& a, const Interval& b) {
  Interval product(widest(a, b));
  if (!a.isBounded() || !b.isBounded()) return product;
  // The ends that meet in the least and the greatest product, by the factors' signs.
  const auto put = [&](mpfr_srcptr lowA, mpfr_srcptr lowB, mpfr_srcptr highA, mpfr_srcptr highB) {
    mpfr_mul(product.low(), lowA, lowB, MPFR_RNDD);
    mpfr_mul(product.high(), highA, highB, MPFR_RNDU);
  };
  const bool aPositive = mpfr_sgn(a.low()) >= 0, aNegative = mpfr_sgn(a.high()) <= 0;
  const bool bPositive = mpfr_sgn(b.low()) >= 0, bNegative = mpfr_sgn(b.high()) <= 0;
  if (aPositive) {
    put(bPositive ? a.low() : a.high(), b.low(), bNegative ? a.low() : a.high(), b.high());
  } else if (aNegative) {
    put(bNegative ? a.high() : a.low(), b.high(), bPositive ? a.high() : a.low(), b.low());
  } else if (bPositive) {
    put(a.low(), b.high(), a.high(), b.high());
  } else if (bNegative) {
    put(a.high(), b.low(), a.low(), b.low());
  } else {
    put(a.low(), b.high(), a.low(), b.low());
    Interval other(product.precision());
    mpfr_mul(other.low(), a.high(), b.low(), MPFR_RNDD);
    mpfr_mul(other.high(), a.high(), b.high(), MPFR_RNDU);
    return hull(product, other);
  }
  return product;
}

Interval operator/(const Interval& a, const Interval& b) {
  if (!b.isBounded() || b.containsZero()) return unbounded(widest(a, b));
  Interval inverse(widest(a, b));
  mpfr_ui_div(inverse.low(), 1, b.high(), MPFR_RNDD);
  mpfr_ui_div(inverse.high(), 1, b.low(), MPFR_RNDU);
  return a * inverse;
}

Interval hull(const Interval& a, const Interval& b) {
  Interval result(widest(a, b));
  if (!a.isBounded() || !b.isBounded()) return result;
  mpfr_min(result.low(), a.low(), b.low(), MPFR_RNDD);
  mpfr_max(result.high(), a.high(), b.high(), MPFR_RNDU);
  return result;
}

Interval dividedBy(const Interval& a, unsigned long divisor) {
  Interval result(a.precision());
  mpfr_div_ui(result.low(), a.low(), divisor, MPFR_RNDD);
  mpfr_div_ui(result.high(), a.high(), divisor, MPFR_RNDU);
  return result;
}
Interval times(const Interval& a, unsigned long factor) {
  Interval result(a.precision());
  mpfr_mul_ui(result.low(), a.low(), factor, MPFR_RNDD);
  mpfr_mul_ui(result.high(), a.high(), factor, MPFR_RNDU);
  return result;
}

Interval pi(mpfr_prec_t precision) {
  Interval result(precision);
  mpfr_const_pi(result.low(), MPFR_RNDD);
  mpfr_const_pi(result.high(), MPFR_RNDU);
  return result;
}

Interval exp(const Interval& a) { return growing(a, mpfr_exp); }
Interval atan(const Interval& a) { return growing(a, mpfr_atan); }
Interval asin(const Interval& a) { return growing(a, mpfr_asin); }
Interval sqrt(const Interval& a) { return growing(a, mpfr_sqrt); }
Interval log(const Interval& a) {
  if (a.isBounded() && mpfr_sgn(a.low()) <= 0) return unbounded(a.precision());
  return growing(a, mpfr_log);
}

namespace {
// The hull of both ends, with -1 or 1 where the slope, which is monotone between zeros less than a
// period apart, changes its sign inside.
Interval wave(const Interval& a, int (*fn)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t),
              int (*slope)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t)) {
  const mpfr_prec_t precision = a.precision();
  Interval result(precision);
  if (!a.isBounded()) return result;
  Interval width = a - a;
  if (mpfr_cmp_d(width.high(), 1.5) > 0) {
    mpfr_set_si(result.low(), -1, MPFR_RNDD);
    mpfr_set_si(result.high(), 1, MPFR_RNDU);
    return result;
  }
  Interval first(precision), last(precision);
  fn(first.low(), a.low(), MPFR_RNDD), fn(first.high(), a.low(), MPFR_RNDU);
  fn(last.low(), a.high(), MPFR_RNDD), fn(last.high(), a.high(), MPFR_RNDU);
  result = hull(first, last);
  // Rounded toward zero the slope keeps its sign; ends less than half a period apart see at most
  // one of its zeros between them.
  Interval slopes(precision);
  slope(slopes.low(), a.low(), MPFR_RNDZ), slope(slopes.high(), a.high(), MPFR_RNDZ);
  if (mpfr_sgn(slopes.low()) * mpfr_sgn(slopes.high()) <= 0 && !a.isPoint()) {
    if (mpfr_sgn(first.high()) > 0) mpfr_set_si(result.high(), 1, MPFR_RNDU);
    if (mpfr_sgn(first.low()) < 0) mpfr_set_si(result.low(), -1, MPFR_RNDD);
  }
  return result;
}
}  // namespace

Interval sin(const Interval& a) { return wave(a, mpfr_sin, mpfr_cos); }
Interval cos(const Interval& a) { return wave(a, mpfr_cos, mpfr_sin); }

Interval floor(const Interval& a) {
  if (!a.isBounded()) return unbounded(a.precision());
  Interval next(a.precision());
  mpfr_floor(next.low(), a.low());
  mpfr_add_ui(next.high(), next.low(), 1, MPFR_RNDD);
  if (mpfr_less_p(next.high(), a.high())) return unbounded(a.precision());
  mpfr_set(next.high(), next.low(), MPFR_RNDN);
  return next;
}

}  // namespace approximation
