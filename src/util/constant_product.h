#pragma once

#include <mpfr.h>

namespace util {

// Rounds a constant in place to `significantBits` bits, ties to even; 0 and below leave it as it
// is.
void roundConstant(mpfr_ptr constant, int significantBits);

// The fixed-point format in which every product a * C is kept with as many leading bits as there is
// room for, a any number of the input's format. A number of `fraction` bits behind the point is an
// integer times 2^-fraction; fractions may be negative.
//   constant             C, after rounding to `constantBits` bits as roundConstant() does
//   width, fraction, isSigned  the input's format
//   outputWidth          the bits asked of the output, at least 1
//   resultWidth, resultFraction, resultSign  the output's format:
//     width outputWidth; signed if the input is or C < 0; fraction outputWidth - sign - I for the
//     least I, which may be negative, with -2^I <= a * C < 2^I for every a. C = 0, and a constant
//     that is no number, count as I = 0.
//   cropped              true: the result takes the input's format and nothing else is read
void constantMultiplierOutputType(mpfr_srcptr constant, int width, int fraction, bool isSigned,
                                  int outputWidth, int* resultWidth, int* resultFraction,
                                  bool* resultSign, int constantBits, bool cropped);

}  // namespace util
