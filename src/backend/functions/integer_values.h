#pragma once

#include <optional>
#include <string>

#include "backend/functions/unit.h"
#include "numbers/exponent_range.h"
#include "util/mpz.h"

namespace functions {

// The fixed-point format of a port that has one.
const kiln::FixedPoint& fixedPoint(const kiln::Type& type);

// `value` becomes the integer n of an input that stands for n * 2^-fraction; what lies between two
// integers is cut toward zero, as packing does.
void readInteger(util::MPZ& value, const NumValue& input, const kiln::FixedPoint& format);

// The same for any input that a unit may meet: what no port carries is held within the limits of
// the format, and a number never set is 0.
void readFixed(util::MPZ& value, const NumValue& input, const kiln::FixedPoint& format);

// The limits of a format, as integers.
util::MPZ lowestOf(const kiln::FixedPoint& format);
util::MPZ highestOf(const kiln::FixedPoint& format);

// `result` becomes n * 2^-fraction, rounded once to `precision` bits; zero is +0.
void writeInteger(NumValue& result, const util::MPZ& n, const kiln::FixedPoint& format,
                  unsigned precision, mpfr_rnd_t rounding);

// `value` modulo 2^width, in the range of the format.
void wrapInto(util::MPZ& value, const kiln::FixedPoint& format);

// True for an unsigned integer port of `width` bits.
bool isControl(const kiln::Type& type, int width);

// The end of a refusal ("width 0 is out of range 1 to 64") when `value` lies outside.
std::optional<std::string> outOfRange(std::string_view what, long value, long least, long greatest);

// The same for a fixed-point operand or result of a conversion: widths of 1 to 4096, fractions of
// -65536 to 65536.
std::optional<std::string> refuseFixedPoint(const kiln::FixedPoint& format);

// The same for the width of each input port in turn.
std::optional<std::string> inputWidthOutOfRange(const Signature& signature, long greatest);

}  // namespace functions
