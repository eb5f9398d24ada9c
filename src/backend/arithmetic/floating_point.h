#pragma once

#include <optional>

#include "backend/arithmetic/rounding.h"
#include "backend/graph/builder.h"
#include "numbers/ports.h"

namespace arithmetic {

using graph::Builder;
using graph::Signal;

// A floating-point port as the circuits see it. Exponents are biased throughout: the number with
// exponent E and significand 1.f is 1.f * 2^(E - bias()).
struct FloatFormat {
  int exponentBits = 0;
  int fractionBits = 0;
  bool fpLib = false;
  bool gradual = false;  // has subnormals; never in FPLib form

  int bias() const { return (1 << (exponentBits - 1)) - 1; }
  // Exponents of the regular numbers.
  int minExponent() const { return fpLib ? 0 : 1; }
  int maxExponent() const { return (1 << exponentBits) - (fpLib ? 1 : 2); }
  int width() const { return 1 + exponentBits + fractionBits + (fpLib ? 2 : 0); }
};
// `subnormals` says whether IEEE-style ports have them.
FloatFormat formatOf(const kiln::FloatingPoint& port, bool subnormals);

// The fields of a port, specials told apart. What the pattern holds besides is irrelevant to a
// special: the significand of an infinity or NaN is undefined.
struct Unpacked {
  FloatFormat format;
  Signal sign;
  Signal exponent;     // unsigned; that of the lowest regular number for a subnormal
  Signal significand;  // fractionBits + 1 bits, the top one 0 only for a subnormal, mostly a zero
  Signal isZero, isInf, isNan;
};

// What a zero's significand and exponent are: zeros; below the top bit, for a reader that looks at
// that, whatever the pattern has there; or, for one that looks at isZero, with a 1 on top as well.
enum class ZeroFields { kCleared, kAsTheyAre, kLikeRegular };

// Reads a port. Without gradual underflow every IEEE-style number with exponent field 0 is a zero;
// an FPLib number with exponent field 0 is a regular one.
Unpacked unpack(Builder& b, Signal port, const FloatFormat& format,
                ZeroFields zeros = ZeroFields::kCleared);

// How a result is rounded: as fixed when the circuit is built, or at run time as `port` says (2
// bits: 0 nearest even, 1 down, 2 up, 3 toward zero), when that is a signal.
struct RoundingRule {
  RoundMode mode = RoundMode::kNearestEven;
  Signal port{};
  bool isNearest() const {
    return !port && (mode == RoundMode::kNearestEven || mode == RoundMode::kNearestAway);
  }
};
// 1 when results are rounded down, the direction in which an exact zero sum is negative.
Signal roundsDown(Builder& b, const RoundingRule& rule);

// What stands below the last place of a magnitude.
struct Remainder {
  Signal half;    // the first bit
  Signal beyond;  // 1 when anything follows it
};
// 1 when a magnitude whose lowest bit is `last` is to be raised by one unit of its last place.
Signal raises(Builder& b, const RoundingRule& rule, Signal sign, Signal last, Remainder rest);

// Where the exponent of a result ends, told before its last bit is known: it is one of two
// neighbours, the higher one where `raised`. Together at most one of the others is 1.
struct ExponentRange {
  Signal above;     // both overflow
  Signal atTop;     // the higher one overflows
  Signal below;     // both underflow
  Signal atBottom;  // the lower one underflows
  Signal raised;
};

// A result before rounding: (-1)^sign * significand * 2^(exponent - bias), the top bit of the
// significand with weight 1 and everything below it, as far as it is known, in `sticky`.
struct Unrounded {
  Signal sign;
  Signal exponent;     // signed, biased as in the format packed to; exponent + 1 does not wrap
  Signal significand;  // top bit 1, or with gradual underflow the exponent is minExponent()
  Signal sticky;       // 1 bit
  Signal isZero, isInf, isNan;  // NaN goes before infinity, infinity before zero
  bool canOverflow = true;      // false: rounded, the exponent is at most maxExponent()
  bool tinyIsExact = false;     // true: with gradual underflow no subnormal needs rounding
  // Where there is one and it is 1, the number is one unit of the significand's last place larger
  // and `sticky` is 0. The significand then has the fraction's bits and at most one more; all its
  // bits may be 1.
  Signal oneMore{};
  // What a rounding addition does on the way, for the price of none: `leftShift` (1 or 2 bits) are
  // places that the significand is still to be shifted left to be as told above, with zeros coming
  // in; `exponentAddend`, as wide as the exponent, or 1 bit that is `raised` of the range (then no
  // rounding carries out of the fraction), is still to be added to `exponent`, modulo 2^(the
  // exponent's width), which holds the format's exponents and a sign. No signal: nothing. The shift
  // does not change the exponent. Neither with gradual underflow, and no shift with `oneMore`.
  Signal leftShift{};
  Signal exponentAddend{};
  // Half of the last place of a number that `leftShift` of one bit, which there must be, moves is
  // in the significand already: what a product can add for nothing. For rounding to nearest.
  bool halfAdded = false;
  // For a number that the rounding does not carry into a higher binade; not with gradual underflow.
  // Of `exponent` the format's bits alone count then.
  std::optional<ExponentRange> range{};
  // Of a number with such a range, what it is packed as is gathered in three bits before `raised`
  // is known, so that little waits for that bit and all of it may be done behind a register. Which
  // form is better depends on where registers fall.
  bool codesKind = false;
};
// The same number with nothing left to be shifted and added.
Unrounded settled(Builder& b, Unrounded x);

// What a rounding to the fraction of `format` adds up: `raise` units of the last place; where
// all bits of `clearsLast` are 1 the last bit of the sum is then 0.
struct RoundingStep {
  Signal hidden, fraction;
  Signal raise;       // 1 bit
  Signal clearsLast;  // 1 or 2 bits
};
RoundingStep roundingStep(Builder& b, const Unrounded& x, const FloatFormat& format,
                          const RoundingRule& rule);

// Rounds to the fraction of `format` once and packs.
//
// Overflow is judged after rounding and gives an infinity in every direction; with a rounding port
// it gives the largest finite number where the direction does not lead to infinity. Without gradual
// underflow a number that is below the smallest regular one after rounding is a signed zero. NaN
// has sign 0, exponent ones and fraction 1, or the top fraction bit alone with `quietNaN`.
Signal roundAndPack(Builder& b, const Unrounded& x, const FloatFormat& format,
                    const RoundingRule& rule, bool quietNaN);

// The same, and what became of the number, of 1 bit each:
//   overflow   the number was finite, its rounded magnitude exceeds the largest finite number
//   underflow  the number, rounded with an unbounded exponent, is not 0 and below the smallest
//              regular one, and what was packed differs from it
//   isNan, isNegative (never of a NaN), isZero  of what was packed
// With gradual underflow, unless `tinyIsExact`, the significand has two bits or more below the
// fraction. There is no `oneMore`.
struct Flagged {
  Signal packed;
  Signal overflow, underflow, isNan, isNegative, isZero;
};
Flagged roundAndPackFlagged(Builder& b, const Unrounded& x, const FloatFormat& format,
                            const RoundingRule& rule, bool quietNaN);

// The pattern of a number of the same form and widths as `format`: what it held and no more, a
// special in the one pattern that packing gives it.
Signal packExact(Builder& b, const Unpacked& x, const FloatFormat& format, bool quietNaN);

// A sign, and an exponent field and fraction that are packed already, with the pattern that packing
// gives a NaN put in: of one the field has to be all ones and the fraction zero. IEEE-style only.
Signal withNanPattern(Builder& b, Signal sign, Signal fieldAndFraction, Signal isNan,
                      const FloatFormat& format, bool quietNaN);

// Shifts a normalised number whose exponent is below minExponent() right until it has that one, as
// gradual underflow asks before rounding. What is shifted out is lost without `needsSticky`.
Unrounded denormalise(Builder& b, Unrounded x, const FloatFormat& format, bool needsSticky);

// Bits of a two's-complement number that holds all of [low, high].
int signedWidth(long low, long high);

}  // namespace arithmetic
