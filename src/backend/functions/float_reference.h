#pragma once

#include <mpfr.h>

#include <vector>

#include "backend/functions/unit.h"
#include "numbers/exponent_range.h"

namespace functions {

// Sets `value` to the number that a floating port carries for `input`: rounded to the port's
// precision, zero below its smallest number, infinite above its largest, a subnormal cut to its
// grid. An FPLib port reads a smaller number as its pattern stands for it, in the lowest binade.
void readFloat(Real& value, const NumValue& input, const kiln::FloatingPoint& port,
               bool subnormals);

// The value of a 1-bit control port; a number never set is 0.
bool readBit(const NumValue& input);
// The value of an unsigned control port of `width` bits, cut toward zero and held within the port's
// limits; a number never set is 0.
unsigned readSelect(const NumValue& input, int width);

// Where one result goes and how it is rounded.
struct Delivery {
  const kiln::FloatingPoint& port;
  unsigned precision;
  mpfr_rnd_t rounding;
  bool tiesAway = false;  // of a rounding to nearest
  bool subnormals = false;
};

// Precision for an intermediate value that deliverOdd() can round: enough for any rounding of
// `precision` bits to be unaffected.
inline mpfr_prec_t oddPrecision(unsigned precision) { return precision + 3; }
// Makes a value rounded toward zero, with the ternary value of that rounding, odd when it is
// inexact: later roundings to at least two bits fewer are then those of the exact value.
void roundToOdd(mpfr_ptr value, int ternary);

// Rounds an odd value once into `result`: to the precision, not below the last place of the
// smallest subnormal, and for an FPLib port with subnormals asked to that port's range. Zeros,
// infinities and NaN are taken as they are.
void deliverOdd(NumValue& result, mpfr_srcptr odd, const Delivery& delivery);

// After the caller's exponent range is back: brings a result that is outside into it.
void fitToCallersRange(std::vector<NumValue>& results, const std::vector<mpfr_rnd_t>& roundings);

// True when an input is a do-not-care; every output is then made one, of value +0.
bool spreadsDontCare(std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                     const std::vector<unsigned>& precisions);

}  // namespace functions
