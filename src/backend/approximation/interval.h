#pragma once

#include <mpfr.h>

#include "util/mpz.h"

namespace approximation {

// A closed interval of reals between two MPFR numbers; every operation rounds outwards, at the
// precision of its result, which is the greater one of its operands'. A result that no real number
// bounds (a quotient by an interval around 0, a root of negative numbers) has NaN bounds, which
// every later operation keeps: see isBounded().
class Interval {
 public:
  explicit Interval(mpfr_prec_t precision = 53);
  Interval(long value, mpfr_prec_t precision);
  // numerator * 2^exponent, within one unit in the last place where it is not exact.
  Interval(const util::MPZ& numerator, long exponent, mpfr_prec_t precision);
  Interval(const Interval& other);
  Interval(Interval&& other) noexcept;  // leaves what may only be assigned to or destroyed
  Interval& operator=(const Interval& other);
  Interval& operator=(Interval&& other) noexcept;
  ~Interval();

  mpfr_prec_t precision() const { return mpfr_get_prec(bounds[0]); }
  mpfr_srcptr low() const { return bounds[0]; }
  mpfr_srcptr high() const { return bounds[1]; }
  mpfr_ptr low() { return bounds[0]; }
  mpfr_ptr high() { return bounds[1]; }

  bool isBounded() const { return mpfr_number_p(bounds[0]) && mpfr_number_p(bounds[1]); }
  bool isPoint() const { return mpfr_equal_p(bounds[0], bounds[1]); }
  bool isZero() const { return mpfr_zero_p(bounds[0]) && mpfr_zero_p(bounds[1]); }
  bool containsZero() const { return mpfr_sgn(bounds[0]) <= 0 && mpfr_sgn(bounds[1]) >= 0; }
  // floor(low * 2^fraction), ceil(high * 2^fraction); the interval is bounded.
  util::MPZ lowFixed(int fraction) const;
  util::MPZ highFixed(int fraction) const;

  Interval& operator+=(const Interval& other);  // which is no more precise

 private:
  mpfr_t bounds[2];
  bool hasBounds = true;  // false once moved from
};

Interval operator+(const Interval& a, const Interval& b);
Interval operator-(const Interval& a, const Interval& b);
Interval operator-(const Interval& a);
Interval operator*(const Interval& a, const Interval& b);
Interval operator/(const Interval& a, const Interval& b);
Interval hull(const Interval& a, const Interval& b);
Interval dividedBy(const Interval& a, unsigned long divisor);
Interval times(const Interval& a, unsigned long factor);

Interval pi(mpfr_prec_t precision);
Interval exp(const Interval& a);
Interval log(const Interval& a);
Interval sqrt(const Interval& a);
Interval atan(const Interval& a);
Interval asin(const Interval& a);
// On any interval that is no wider than a quarter of a period, and else [-1, 1].
Interval sin(const Interval& a);
Interval cos(const Interval& a);
// The integer at or below the lower end; unbounded where the interval reaches beyond the next one.
Interval floor(const Interval& a);

}  // namespace approximation
