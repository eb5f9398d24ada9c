#pragma once

// Conversions against exact integers: numbers are sign, magnitude and a power of two, rounded by
// shifts and comparisons, with nothing of the units' references, of their circuits or of MPFR.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "backend/functions/float_test_support.h"

namespace functions::testing {

constexpr unsigned kOverflows = 16, kUnderflows = 8, kIsNaN = 4, kIsNegative = 2, kIsZero = 1;

// A number (-1)^negative * magnitude * 2^exponent, or a special.
struct Exact {
  enum Kind { kFinite, kInfinite, kNaN } kind = kFinite;
  bool negative = false;
  MPZ magnitude = {};
  long exponent = 0;
};

inline Exact exactOf(const MPZ& pattern, const Port& port) {
  const int wE = port.format.exp, wF = port.format.frac;
  const long field = static_cast<long>(testing::field(pattern, wF, wE).toUint64());
  const MPZ fraction = testing::field(pattern, 0, wF);
  Exact x{.negative = pattern.bit(static_cast<unsigned long>(wE + wF))};
  if (field == (1L << wE) - 1) {
    x.kind = fraction.isZero() ? Exact::kInfinite : Exact::kNaN;
  } else if (field > 0) {
    x.magnitude = fraction + MPZ::powerOfTwo(static_cast<unsigned long>(wF));
  } else if (port.subnormals) {
    x.magnitude = fraction;
  }
  x.exponent = std::max(field, 1L) - ((1L << (wE - 1)) - 1) - wF;
  return x;
}

inline Exact exactOf(const MPZ& pattern, const kiln::FixedPoint& port) {
  const MPZ n = port.sign() ? pattern.asSigned(static_cast<unsigned long>(port.width())) : pattern;
  return {
      .negative = n.sign() < 0, .magnitude = n.sign() < 0 ? -n : n, .exponent = -port.fraction()};
}

// The magnitude of x in units of 2^last, rounded to an integer; up to 2^6000 it is exact.
inline MPZ roundedMagnitude(const Exact& x, long last, RoundMode mode) {
  const long shift = x.exponent - last;
  if (shift >= 0) return x.magnitude << static_cast<unsigned long>(std::min(shift, 6000L));
  // What lies far below the last place is less than its half, however far.
  const auto drop =
      static_cast<unsigned long>(std::min(-shift, static_cast<long>(x.magnitude.bitLength()) + 2));
  const MPZ floor = x.magnitude >> drop, rest = x.magnitude - (floor << drop);
  const auto against = (rest << 1) <=> MPZ::powerOfTwo(drop);
  bool raise = false;
  switch (mode) {
    case RoundMode::kNearestEven:
      raise = against > 0 || (against == 0 && floor.bit(0));
      break;
    case RoundMode::kNearestAway:
      raise = against >= 0;
      break;
    case RoundMode::kUp:
      raise = !rest.isZero() && !x.negative;
      break;
    case RoundMode::kDown:
      raise = !rest.isZero() && x.negative;
      break;
    case RoundMode::kTowardZero:
      break;
  }
  return raise ? floor + MPZ(1) : floor;
}

// What a port and its flags owe.
struct Owed {
  MPZ pattern, flags;
};

inline Owed owedFixed(const Exact& x, const kiln::FixedPoint& port, RoundMode mode) {
  const auto width = static_cast<unsigned long>(port.width());
  const MPZ high = MPZ::allOnes(width - (port.sign() ? 1 : 0));
  const MPZ low = port.sign() ? -MPZ::powerOfTwo(width - 1) : MPZ(0);
  MPZ n = high;
  unsigned flags = 0;
  if (x.kind == Exact::kNaN) {
    flags = kIsNaN;
  } else {
    n = roundedMagnitude(x, -port.fraction(), mode);
    if (x.negative) n = -n;
    if (x.kind == Exact::kInfinite || n < low || n > high) {
      flags = kOverflows;
      n = x.negative ? low : high;
    } else if (n.isZero() && !x.magnitude.isZero()) {
      flags = kUnderflows;
    }
  }
  if (n.sign() < 0) flags |= kIsNegative;
  if (n.isZero()) flags |= kIsZero;
  return {n.lowBits(width), MPZ(flags)};
}

// `stopsShort`: an overflow is the largest finite number where `mode` does not lead to infinity.
inline Owed owedFloat(const Exact& x, const Port& port, RoundMode mode, bool stopsShort) {
  const int wE = port.format.exp, wF = port.format.frac;
  const long least = 2 - (1L << (wE - 1)), greatest = (1L << (wE - 1)) - 1;  // binades
  const MPZ hidden = MPZ::powerOfTwo(static_cast<unsigned long>(wF));
  const MPZ infinity = MPZ::allOnes(wE) << static_cast<unsigned long>(wF);
  const MPZ sign = x.negative ? MPZ::powerOfTwo(static_cast<unsigned long>(wE + wF)) : MPZ(0);
  const unsigned negative = x.negative ? kIsNegative : 0;
  if (x.kind == Exact::kNaN)
    return {infinity + (port.quietNaN ? hidden >> 1 : MPZ(1)), MPZ(unsigned{kIsNaN})};
  if (x.kind == Exact::kInfinite) return {sign + infinity, MPZ(negative)};
  if (x.magnitude.isZero()) return {sign, MPZ(negative | kIsZero)};

  // Once with an unbounded exponent, once as the port has its digits.
  const long binade = x.exponent + static_cast<long>(x.magnitude.bitLength()) - 1;
  const MPZ unbounded = roundedMagnitude(x, binade - wF, mode);
  const long reached = binade + (unbounded > (hidden << 1) - MPZ(1) ? 1 : 0);
  if (reached > greatest) {
    const bool toInfinity = mode == RoundMode::kNearestEven || mode == RoundMode::kNearestAway ||
                            mode == (x.negative ? RoundMode::kDown : RoundMode::kUp);
    const MPZ end = stopsShort && !toInfinity ? infinity - MPZ(1) : infinity;
    return {sign + end, MPZ(negative | kOverflows)};
  }
  const bool tiny = reached < least;
  if (!port.subnormals) {
    if (tiny) return {sign, MPZ(negative | kUnderflows | kIsZero)};
  }
  const long last = std::max(binade, port.subnormals ? least : reached) - wF;
  const MPZ digits = roundedMagnitude(x, last, mode);
  const bool inexact =
      roundedMagnitude(x, last, RoundMode::kUp) != roundedMagnitude(x, last, RoundMode::kDown);
  // A carry out of the fraction enters the exponent by itself.
  const MPZ pattern = (MPZ(last + wF - least) << static_cast<unsigned long>(wF)) + digits;
  unsigned flags = negative;
  if (tiny && inexact) flags |= kUnderflows;
  if (pattern.isZero()) flags |= kIsZero;
  return {sign + pattern, MPZ(flags)};
}

// One unit: its circuit and its reference from patterns to patterns.
class Conversion {
 public:
  Conversion(const std::string& unit, const Signature& signature, bool subnormals,
             RoundMode rounding = RoundMode::kNearestEven)
      : request(requestOf(signature, subnormals, rounding)),
        circuit(unit, request),
        label(fmt::format("{}, subnormals {}", unit, subnormals)) {
    for (const std::int64_t number : signature.variant.numbers) label += fmt::format(" {}", number);
    for (const kiln::Type& type : signature.out)
      precisions.push_back(static_cast<unsigned>(type.as_floating_point()
                                                     ? type.as_floating_point()->frac + 1
                                                     : std::max(200, type.width() + 1)));
  }

  const graph::Graph& graph() const { return circuit.graph; }
  const std::vector<kiln::Type>& in() const { return request.signature.in; }
  Port port(const kiln::Type& type) const {
    return {*type.as_floating_point(), request.subnormals, request.quietNaN};
  }

  // The number that a pattern stands for on an input.
  Real valueOf(const MPZ& pattern, std::size_t input) const {
    if (in()[input].as_floating_point()) return decode(pattern, port(in()[input]));
    const kiln::FixedPoint& format = *in()[input].as_fixed_point();
    const Exact x = exactOf(pattern, format);
    Real value(format.width() + 1);
    mpfr_set_z_2exp(value.get(), x.magnitude.get(), x.exponent, MPFR_RNDN);
    if (x.negative) mpfr_neg(value.get(), value.get(), MPFR_RNDN);
    return value;
  }

  // Circuit and reference owe the same; the reference in whatever direction is asked, unless
  // `direction` is told.
  bool check(const std::vector<MPZ>& patterns, const std::vector<MPZ>& owed,
             std::optional<mpfr_rnd_t> direction = {}) {
    const std::vector<MPZ> built = circuit(patterns);
    constexpr mpfr_rnd_t kAsked[] = {MPFR_RNDN, MPFR_RNDU, MPFR_RNDD};
    bool right = built == owed;
    const mpfr_rnd_t asked = direction.value_or(kAsked[turn++ % 3]);
    const std::vector<MPZ> referred = reference(patterns, asked);
    right = right && referred == owed;
    EXPECT_TRUE(right) << label << ", inputs" << join(patterns) << ": owed" << join(owed)
                       << ", circuit" << join(built) << ", reference" << join(referred);
    return right;
  }

 private:
  static Request requestOf(const Signature& signature, bool subnormals, RoundMode rounding) {
    Request request;
    request.signature = signature;
    request.accuracy.resize(signature.out.size());
    request.rounding.fixed = rounding;
    request.subnormals = request.quietNaN = subnormals;
    return request;
  }

  std::vector<MPZ> reference(const std::vector<MPZ>& patterns, mpfr_rnd_t direction) {
    const Signature& signature = request.signature;
    stimulus.resize(patterns.size());
    for (std::size_t i = 0; i < patterns.size(); ++i) stimulus[i].real = valueOf(patterns[i], i);
    circuit.row.evaluate(signature, results, stimulus, precisions,
                         std::vector<mpfr_rnd_t>(signature.out.size(), direction),
                         request.subnormals);
    std::vector<MPZ> given;
    for (std::size_t k = 0; k < results.size(); ++k)
      given.push_back(patternOf(results[k].real.get(), signature.out[k]));
    return given;
  }

  MPZ patternOf(mpfr_srcptr value, const kiln::Type& type) const {
    if (type.as_floating_point()) return encode(value, port(type));
    const kiln::FixedPoint& fixed = *type.as_fixed_point();
    EXPECT_FALSE(mpfr_zero_p(value) && mpfr_signbit(value)) << label << ": a fixed-point -0";
    Real scaled(mpfr_get_prec(value));
    mpfr_mul_2si(scaled.get(), value, fixed.fraction(), MPFR_RNDN);
    EXPECT_TRUE(mpfr_integer_p(scaled.get())) << label;
    MPZ n;
    mpfr_get_z(n.get(), scaled.get(), MPFR_RNDN);
    return n.lowBits(static_cast<unsigned long>(fixed.width()));
  }

  static std::string join(const std::vector<MPZ>& patterns) {
    std::string text;
    for (const MPZ& pattern : patterns) text += fmt::format(" {}", pattern.toText(2));
    return text;
  }

  Request request;
  UnitCircuit circuit;
  std::string label;
  std::vector<unsigned> precisions;
  std::vector<NumValue> stimulus, results;
  unsigned turn = 0;
};

// `check(pattern)` for every pattern of `width` bits, until five are wrong.
inline void forAllPatterns(int width, const std::function<bool(const MPZ&)>& check) {
  checkEach(1 << width, [&](int i) { return check(MPZ(i)); });
}

}  // namespace functions::testing
