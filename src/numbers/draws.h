#pragma once

#include <gmp.h>

#include "numbers/ports.h"
#include "numbers/testing_options.h"

// The unbiased exponents from which a draw for a floating-point port takes its own; empty when
// `first` is above `last`, which no draw may meet.
struct DrawnExponents {
  int first, last;
};
DrawnExponents drawnExponents(const kiln::FloatingPoint& fp, const TestingOptions& t);

// A random number on the port's grid: exponent uniform over the drawn exponents, significand
// uniform, sign as the options say; one in 100 each is a zero, an infinity and a NaN where the
// options allow it. A subnormal has as many significand bits as its exponent leaves. Significands
// come from `state`, all else from util::GetRandom. Works in MPFR's full exponent range, which the
// caller sets. The forms with `result` first reuse its storage.
void genRandFP(Real& result, gmp_randstate_t& state, const kiln::FloatingPoint& fp,
               const TestingOptions& t);
Real genRandFP(gmp_randstate_t& state, const kiln::FloatingPoint& fp, const TestingOptions& t);

// A random number on the port's grid: a uniform pattern shifted right by a uniform count, so that
// small magnitudes are as frequent as large ones, or a uniform pattern of the value range, whose
// bounds are patterns. Two's complement on a signed port.
void genRandFXP(Real& result, gmp_randstate_t& state, const kiln::FixedPoint& fx,
                const TestingOptions& t);
Real genRandFXP(gmp_randstate_t& state, const kiln::FixedPoint& fx, const TestingOptions& t);
