#pragma once

#include <mpfr.h>

#include <string>

#include "util/mpz.h"

// Functions for tests: as a text, and as MPFR has them.
namespace approximation {

struct SampleFunction {
  const char* text;
  void (*evaluate)(mpfr_ptr y, mpfr_srcptr x);
};

inline constexpr SampleFunction kSampleFunctions[] = {
    {"2^x - 1",
     [](mpfr_ptr y, mpfr_srcptr x) {
       mpfr_exp2(y, x, MPFR_RNDN);
       mpfr_sub_ui(y, y, 1, MPFR_RNDN);
     }},
    {"log2(1 + x)",
     [](mpfr_ptr y, mpfr_srcptr x) {
       mpfr_add_ui(y, x, 1, MPFR_RNDN);
       mpfr_log2(y, y, MPFR_RNDN);
     }},
    {"1 / (1 + x)",
     [](mpfr_ptr y, mpfr_srcptr x) {
       mpfr_add_ui(y, x, 1, MPFR_RNDN);
       mpfr_ui_div(y, 1, y, MPFR_RNDN);
     }},
    {"sqrt(1 + x)",
     [](mpfr_ptr y, mpfr_srcptr x) {
       mpfr_add_ui(y, x, 1, MPFR_RNDN);
       mpfr_sqrt(y, y, MPFR_RNDN);
     }},
    {"sin(pi * x / 2)",
     [](mpfr_ptr y, mpfr_srcptr x) {
       mpfr_t pi;
       mpfr_init2(pi, mpfr_get_prec(y));
       mpfr_const_pi(pi, MPFR_RNDN);
       mpfr_mul(y, pi, x, MPFR_RNDN);
       mpfr_div_2ui(y, y, 1, MPFR_RNDN);
       mpfr_sin(y, y, MPFR_RNDN);
       mpfr_clear(pi);
     }},
    {"x < 0.5 ? sqrt(1 + 2 * x) : sqrt(4 * x)",
     [](mpfr_ptr y, mpfr_srcptr x) {
       const bool isBelow = mpfr_cmp_d(x, 0.5) < 0;
       mpfr_mul_ui(y, x, isBelow ? 2 : 4, MPFR_RNDN);
       if (isBelow) mpfr_add_ui(y, y, 1, MPFR_RNDN);
       mpfr_sqrt(y, y, MPFR_RNDN);
     }},
    {"log(1 + x) / x",
     [](mpfr_ptr y, mpfr_srcptr x) {
       if (mpfr_zero_p(x)) {
         mpfr_set_ui(y, 1, MPFR_RNDN);
         return;
       }
       mpfr_log1p(y, x, MPFR_RNDN);
       mpfr_div(y, y, x, MPFR_RNDN);
     }},
    // 2 sin(pi (1 + x) / 4), and at 1 the next unit's function.
    {"2^(floor(x) + 1) * sin(pi * (1 + x - floor(x)) / 2^(floor(x) + 2))",
     [](mpfr_ptr y, mpfr_srcptr x) {
       const long unit = mpfr_get_si(x, MPFR_RNDD);
       mpfr_t pi;
       mpfr_init2(pi, mpfr_get_prec(y));
       mpfr_const_pi(pi, MPFR_RNDN);
       mpfr_add_si(y, x, 1 - unit, MPFR_RNDN);
       mpfr_mul(y, pi, y, MPFR_RNDN);
       mpfr_div_2si(y, y, unit + 2, MPFR_RNDN);
       mpfr_sin(y, y, MPFR_RNDN);
       mpfr_mul_2si(y, y, unit + 1, MPFR_RNDN);
       mpfr_clear(pi);
     }},
};

// round(f(numerator * 2^exponent) * 2^fraction), within one unit.
inline util::MPZ sampleValue(const SampleFunction& f, const util::MPZ& numerator, long exponent,
                             long fraction) {
  constexpr mpfr_prec_t kPrecision = 256;
  mpfr_t x, y;
  mpfr_inits2(kPrecision, x, y, static_cast<mpfr_ptr>(nullptr));
  mpfr_set_z_2exp(x, numerator.get(), exponent, MPFR_RNDN);
  f.evaluate(y, x);
  mpfr_mul_2si(y, y, fraction, MPFR_RNDN);
  util::MPZ result;
  mpfr_get_z(result.get(), y, MPFR_RNDN);
  mpfr_clears(x, y, static_cast<mpfr_ptr>(nullptr));
  return result;
}

}  // namespace approximation
