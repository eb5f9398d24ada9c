#pragma once

#include <mpfr.h>

// MPFR's exponent range, as wide as it goes while this lives and then the caller's again. A
// caller's narrower range would turn values of a wide format into zeros and infinities.
class FullExponentRange {
 public:
  FullExponentRange() : emin(mpfr_get_emin()), emax(mpfr_get_emax()) {
    mpfr_set_emin(mpfr_get_emin_min());
    mpfr_set_emax(mpfr_get_emax_max());
  }
  ~FullExponentRange() {
    mpfr_set_emin(emin);
    mpfr_set_emax(emax);
  }
  FullExponentRange(const FullExponentRange&) = delete;
  FullExponentRange& operator=(const FullExponentRange&) = delete;

 private:
  mpfr_exp_t emin, emax;
};
