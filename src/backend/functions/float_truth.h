#pragma once

// What ports of floating-point units may carry, by MPFR: made of decoded numbers and MPFR's own
// operations, with nothing of the units' references or circuits.

#include <mpfr.h>

#include <algorithm>
#include <string>
#include <vector>

#include "backend/functions/unit_circuit.h"

namespace functions::testing {

using kiln::FixedPoint;
using kiln::FloatingPoint;
using kiln::fpLib;
using kiln::ieee;
using util::MPZ;

struct Port {
  kiln::FloatingPoint format;
  bool subnormals = false;
  bool quietNaN = false;
  mpfr_exp_t half() const { return mpfr_exp_t{1} << (format.exp - 1); }
  mpfr_exp_t lowestNormal() const { return (format.is_fp_lib ? 2 : 3) - half(); }
  mpfr_exp_t largest() const { return half() + (format.is_fp_lib ? 1 : 0); }
  bool gradual() const { return subnormals && !format.is_fp_lib; }
  mpfr_prec_t precision() const { return format.frac + 1; }
};

inline MPZ field(const MPZ& pattern, int low, int width) {
  return (pattern >> low).lowBits(static_cast<unsigned long>(width));
}

// The number on a port, exactly.
inline Real decode(const MPZ& pattern, const Port& port) {
  const int wE = port.format.exp, wF = port.format.frac;
  const MPZ fraction = field(pattern, 0, wF);
  const long exponent = static_cast<long>(field(pattern, wF, wE).toUint64());
  const bool negative = pattern.bit(static_cast<unsigned long>(wE + wF));
  const int sign = negative ? -1 : 1;
  Real result(port.precision());
  long kind = 1;  // 0 zero, 1 regular, 2 infinity, 3 NaN
  if (port.format.is_fp_lib) {
    kind = static_cast<long>(field(pattern, wE + wF + 1, 2).toUint64());
  } else if (exponent == (1L << wE) - 1) {
    kind = fraction.isZero() ? 2 : 3;
  } else if (exponent == 0) {
    kind = port.subnormals && !fraction.isZero() ? 1 : 0;
  }
  if (kind == 0) mpfr_set_zero(result.get(), sign);
  if (kind == 2) mpfr_set_inf(result.get(), sign);
  if (kind != 1) return result;
  const bool hidden = port.format.is_fp_lib || exponent != 0;
  const MPZ significand = hidden ? fraction + MPZ::powerOfTwo(wF) : fraction;
  const long biased = hidden ? exponent : 1;
  mpfr_set_z_2exp(result.get(), significand.get(), biased - (port.half() - 1) - wF, MPFR_RNDN);
  if (negative) mpfr_neg(result.get(), result.get(), MPFR_RNDN);
  return result;
}

// The pattern of a number after the port's range filter.
inline MPZ encode(mpfr_srcptr x, const Port& port) {
  const int wE = port.format.exp, wF = port.format.frac;
  const MPZ allOnes = MPZ::allOnes(wE);
  MPZ kind = 1, exponent, fraction, sign = mpfr_signbit(x) ? 1 : 0;
  const mpfr_exp_t e = mpfr_regular_p(x) ? mpfr_get_exp(x) : 0;
  const mpfr_exp_t lowest = port.lowestNormal() - (port.gradual() ? wF : 0);
  if (mpfr_nan_p(x)) {
    kind = 3, sign = 0, exponent = allOnes, fraction = port.quietNaN ? MPZ::powerOfTwo(wF - 1) : 1;
  } else if (mpfr_inf_p(x) || (mpfr_regular_p(x) && e > port.largest())) {
    kind = 2, exponent = allOnes;
  } else if (mpfr_zero_p(x) || e < lowest) {
    kind = 0;
  } else {
    const bool normal = e >= port.lowestNormal();
    exponent = normal ? MPZ(static_cast<long>(e - 1 + port.half() - 1)) : MPZ(0);
    Real scaled(port.precision());
    mpfr_abs(scaled.get(), x, MPFR_RNDN);
    mpfr_mul_2si(scaled.get(), scaled.get(), wF + 1 - (normal ? e : port.lowestNormal()),
                 MPFR_RNDN);
    mpfr_get_z(fraction.get(), scaled.get(), MPFR_RNDZ);
    fraction = fraction.lowBits(wF);
  }
  MPZ pattern = port.format.is_fp_lib ? kind : MPZ(0);
  pattern = (pattern << 1) | sign;
  pattern = (pattern << wE) | exponent;
  return (pattern << wF) | fraction;
}

// MPFR has no nearest number away from zero: ties are told apart by whoever asks.
inline mpfr_rnd_t directionOf(RoundMode mode) {
  static const std::map<RoundMode, mpfr_rnd_t> kDirections = {{RoundMode::kNearestEven, MPFR_RNDN},
                                                              {RoundMode::kDown, MPFR_RNDD},
                                                              {RoundMode::kUp, MPFR_RNDU},
                                                              {RoundMode::kTowardZero, MPFR_RNDZ},
                                                              {RoundMode::kNearestAway, MPFR_RNDN}};
  return kDirections.at(mode);
}

// An operation on decoded inputs, rounded by MPFR; returns MPFR's ternary value.
using Operation = int (*)(mpfr_ptr, const std::vector<Real>&, mpfr_rnd_t);

template <auto f>
int ofFirst(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return f(r, in[0].get(), direction);
}
template <auto f>
int ofTwo(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return f(r, in[0].get(), in[1].get(), direction);
}

template <auto f>
int ofThree(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return f(r, in[0].get(), in[1].get(), in[2].get(), direction);
}

// The modes of a rounding port, by number.
constexpr RoundMode kModes[] = {RoundMode::kNearestEven, RoundMode::kDown, RoundMode::kUp,
                                RoundMode::kTowardZero};

// What one output may carry for one set of inputs.
class Truth {
 public:
  Truth(Operation operation, const std::vector<Real>& inputs, const Port& port)
      : operation(operation), inputs(inputs), port(port) {}

  Real rounded(mpfr_rnd_t direction) const {
    Real result(port.precision());
    const mpfr_exp_t emin = mpfr_get_emin();
    if (port.gradual()) mpfr_set_emin(port.lowestNormal() - port.format.frac);
    const int ternary = operation(result.get(), inputs, direction);
    if (port.gradual()) mpfr_subnormalize(result.get(), ternary, direction);
    mpfr_set_emin(emin);
    return result;
  }

  Real nearestAway() const {
    Real low = rounded(MPFR_RNDD), high = rounded(MPFR_RNDU);
    if (!mpfr_number_p(low.get()) || mpfr_equal_p(low.get(), high.get())) return rounded(MPFR_RNDN);
    Real middle(port.precision() + 2), exact(port.precision() + 4);
    mpfr_add(middle.get(), low.get(), high.get(), MPFR_RNDN);
    mpfr_div_2ui(middle.get(), middle.get(), 1, MPFR_RNDN);
    operation(exact.get(), inputs, MPFR_RNDZ);
    // The middle has few bits, so truncation keeps the order of the magnitudes.
    const bool up = mpfr_cmpabs(exact.get(), middle.get()) >= 0;
    const bool negative = mpfr_signbit(exact.get()) != 0;
    return up != negative ? high : low;
  }

  Real inMode(RoundMode mode) const {
    return mode == RoundMode::kNearestAway ? nearestAway() : rounded(directionOf(mode));
  }

  // The patterns within `steps` of the exact result: both neighbours, then outward.
  std::vector<MPZ> within(int steps) const {
    Real low = rounded(MPFR_RNDD), high = rounded(MPFR_RNDU);
    if (mpfr_zero_p(low.get()) && mpfr_zero_p(high.get())) {
      mpfr_set_zero(low.get(), -1);
      mpfr_set_zero(high.get(), 1);
    }
    std::vector<MPZ> patterns;
    for (int i = 0; i < steps; ++i) {
      if (i > 0) step(low.get(), -1), step(high.get(), 1);
      patterns.push_back(encode(low.get(), port));
      patterns.push_back(encode(high.get(), port));
    }
    return patterns;
  }

 private:
  void step(mpfr_ptr x, int direction) const {
    if (mpfr_zero_p(x) && (mpfr_signbit(x) != 0) != (direction < 0)) {
      mpfr_set_zero(x, direction);
    } else if (mpfr_regular_p(x)) {
      const bool small = port.gradual() && mpfr_get_exp(x) < port.lowestNormal();
      if (small || (port.gradual() && mpfr_get_exp(x) == port.lowestNormal())) {
        Real quantum(2);
        mpfr_set_si_2exp(quantum.get(), direction, port.lowestNormal() - 1 - port.format.frac,
                         MPFR_RNDN);
        mpfr_add(x, x, quantum.get(), MPFR_RNDN);
      } else if (direction < 0) {
        mpfr_nextbelow(x);
      } else {
        mpfr_nextabove(x);
      }
    }
  }

  Operation operation;
  const std::vector<Real>& inputs;
  const Port& port;
};

}  // namespace functions::testing
