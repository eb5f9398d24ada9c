#include "util/constant_product.h"

#include <algorithm>

#include "util/mpz.h"

namespace util {

namespace {

// The least I with -2^I <= n * 2^exponent < 2^I; n is not 0.
long integerBits(const MPZ& n, long exponent) {
  const MPZ magnitude = n.sign() < 0 ? -n - MPZ(1) : n;
  return static_cast<long>(magnitude.bitLength()) + exponent;
}

}  // namespace

void roundConstant(mpfr_ptr constant, int significantBits) {
  if (significantBits < 1 || significantBits >= mpfr_get_prec(constant)) return;
  mpfr_prec_round(constant, significantBits, MPFR_RNDN);
}

void constantMultiplierOutputType(mpfr_srcptr constant, int width, int fraction, bool isSigned,
                                  int outputWidth, int* resultWidth, int* resultFraction,
                                  bool* resultSign, int constantBits, bool cropped) {
  *resultWidth = width;
  *resultFraction = fraction;
  *resultSign = isSigned;
  if (cropped) return;

  mpfr_t rounded;
  mpfr_init2(rounded, mpfr_get_prec(constant));
  mpfr_set(rounded, constant, MPFR_RNDN);
  roundConstant(rounded, constantBits);
  long integer = 0;
  if (mpfr_regular_p(rounded)) {
    MPZ mantissa;
    const long exponent = mpfr_get_z_2exp(mantissa.get(), rounded) - fraction;
    const MPZ highest = MPZ::allOnes(static_cast<unsigned long>(isSigned ? width - 1 : width));
    const MPZ lowest = isSigned ? -highest - MPZ(1) : MPZ(0);
    bool first = true;
    for (const MPZ& end : {lowest * mantissa, highest * mantissa}) {
      if (end.isZero()) continue;
      const long bits = integerBits(end, exponent);
      integer = first ? bits : std::max(integer, bits);
      first = false;
    }
  }
  *resultSign = isSigned || (mpfr_regular_p(rounded) && mpfr_signbit(rounded));
  *resultWidth = outputWidth;
  *resultFraction = static_cast<int>(outputWidth - (*resultSign ? 1 : 0) - integer);
  mpfr_clear(rounded);
}

}  // namespace util
