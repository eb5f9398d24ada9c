#pragma once

#include <optional>
#include <string>

#include "backend/functions/unit.h"
#include "util/mpz.h"

namespace functions {

// MPFR's full exponent range for as long as the object lives, then the caller's again.
class FullExponentRange {
 public:
  FullExponentRange() : least(mpfr_get_emin()), greatest(mpfr_get_emax()) {
    mpfr_set_emin(mpfr_get_emin_min());
    mpfr_set_emax(mpfr_get_emax_max());
  }
  ~FullExponentRange() {
    mpfr_set_emin(least);
    mpfr_set_emax(greatest);
  }
  FullExponentRange(const FullExponentRange&) = delete;

 private:
  mpfr_exp_t least, greatest;
};

// The fixed-point format of a port that has one.
const kiln::FixedPoint& fixedPoint(const kiln::Type& type);

// `value` becomes the integer n of an input that stands for n * 2^-fraction; what lies between two
// integers is cut toward zero, as packing does.
void readInteger(util::MPZ& value, const NumValue& input, const kiln::FixedPoint& format);

// `result` becomes n * 2^-fraction, rounded once to `precision` bits; zero is +0.
void writeInteger(NumValue& result, const util::MPZ& n, const kiln::FixedPoint& format,
                  unsigned precision, mpfr_rnd_t rounding);

// `value` modulo 2^width, in the range of the format.
void wrapInto(util::MPZ& value, const kiln::FixedPoint& format);

// The end of a refusal ("width 0 is out of range 1 to 64") when `value` lies outside.
std::optional<std::string> outOfRange(std::string_view what, long value, long least, long greatest);

// The same for the width of each input port in turn.
std::optional<std::string> inputWidthOutOfRange(const Signature& signature, long greatest);

}  // namespace functions
