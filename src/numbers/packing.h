#pragma once

#include <mpfr.h>

#include <cstdint>

#include "numbers/ports.h"
#include "numbers/testing_options.h"
#include "util/mpz.h"

// From a real number to the bits that a port carries, and back. Exponents here are MPFR's: a
// regular number is 0.1xxx times 2^e. Packing drops what lies beyond the format and never rounds;
// bringing a value into range is the filters' work (filters.h). H stands for 2^(wE-1).

// The exponents of a format.
struct ExponentLimits {
  std::int64_t smallestNormal;    // 3-H, for FPLib 2-H
  std::int64_t smallestAccepted;  // less wF with subnormals
  std::int64_t largest;           // H, for FPLib H+1
};
ExponentLimits exponentLimits(const kiln::FloatingPoint& fp, bool subnormals);

// The pattern of x, at any width; exact but for the digits beyond the format. A NaN has sign 0 and
// fraction 1, or only its top bit with `quietNaN`. An x out of range ends the run with an
// assertion. The first form reuses the storage of `pattern`.
void packFloatingPointToMPZ(util::MPZ& pattern, mpfr_srcptr x, const kiln::FloatingPoint& fp,
                            const TestingOptions& t);
util::MPZ packFloatingPointToMPZ(mpfr_srcptr x, const kiln::FloatingPoint& fp,
                                 const TestingOptions& t);
util::MPZ packFPLibToMPZ(mpfr_srcptr x, const kiln::FloatingPoint& fp, const TestingOptions& t);

// x * 2^fraction truncated toward zero, as the port's pattern of `width` bits; a NaN gives 0. A
// negative value gives 0 on an unsigned port; one above 2^width - 1 is clamped to that; one below
// -2^width ends the run with an assertion. Exact for every x: digits are never cut to `precision`.
void packFixedPointToMPZ(util::MPZ& pattern, mpfr_srcptr x, const kiln::FixedPoint& fx,
                         int precision);
util::MPZ packFixedPointToMPZ(mpfr_srcptr x, const kiln::FixedPoint& fx, int precision);

// The forms for patterns of up to 64 bits, which a software model takes. They differ from the
// wide ones on purpose: no subnormals; a significand that passes through a double, so that
// fractions above 52 bits lose their low bits; FPLib patterns of regular numbers have exception
// bits 0. An IEEE-style value out of range ends the run with an assertion; an FPLib one becomes
// zero or infinity.
std::uint64_t packFloatingPointToUINT(mpfr_srcptr x, int wE, int wF, bool fpLib, bool qnan);
std::uint64_t packIEEEToUINT(mpfr_srcptr x, int wE, int wF, bool qnan);
std::uint64_t packIEEEToUINT(mpfr_srcptr x, const kiln::FloatingPoint& fp, bool qnan);
std::uint64_t packFPLibToUINT(mpfr_srcptr x, int wE, int wF, bool qnan);
std::uint64_t packFPLibToUINT(mpfr_srcptr x, const kiln::FloatingPoint& fp, bool qnan);
// Truncates at 100 bits of precision; a negative value has 2^width added whatever `sign` says.
std::uint64_t packFixedPointToUINT(mpfr_srcptr x, int width, int fraction, int sign);
std::uint64_t packFixedPointToUINT(mpfr_srcptr x, const kiln::FixedPoint& fx);

// The number of 65 bits that the low wE + wF + 1 bits stand for. The hidden bit is always assumed:
// a pattern with exponent field 0 and a fraction reads as a number one binade below the normal
// ones.
Real packSINTtoIEEE(std::int64_t bits, int wE, int wF);

// The value of v's bit pattern. Floating: IEEE-style patterns only; exponent field 0 is a signed
// zero whatever the fraction. A type of neither kind gives a value without a number.
NumValue decodeMPZAsFPIEEEToMPFR(const NumValue& v, const kiln::FloatingPoint& fp);
NumValue decodeMPZAsFXPToMPFR(const NumValue& v, const kiln::FixedPoint& fx);
NumValue decodeMPZToMPFR(const NumValue& v, const kiln::Type& type);

// The smallest and the largest positive number of a format, at wF + 1 bits.
Real smallestFP(int wE, int wF, bool fpLib, bool subnormals);
Real largestFP(int wE, int wF, bool fpLib);
