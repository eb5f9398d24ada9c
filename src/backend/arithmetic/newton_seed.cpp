#include "backend/arithmetic/newton_seed.h"

#include <algorithm>

#include "backend/approximation/interval.h"

namespace arithmetic {

using approximation::Interval;
using util::MPZ;

namespace {

constexpr mpfr_prec_t kPrecision = 2 * NewtonSeed::kErrorBits;

// 1/s, or 1/sqrt(s * 2^parity).
Interval valueAt(SeedOf function, int parity, const Interval& s) {
  const Interval one(1, kPrecision);
  if (function == SeedOf::kReciprocal) return one / s;
  return sqrt(one / (s * Interval(MPZ(1), parity, kPrecision)));
}

// The magnitude of its derivative by s, from its value f.
Interval slopeAt(SeedOf function, const Interval& s, const Interval& f) {
  return function == SeedOf::kReciprocal ? f * f : dividedBy(f / s, 2);
}

MPZ magnitude(const MPZ& x) { return x.sign() < 0 ? -x : x; }

}  // namespace

NewtonSeed newtonSeed(SeedOf function, int indexBits, int bits) {
  constexpr int kFraction = NewtonSeed::kErrorBits;
  // The slope's rounding counts as little as a quarter of the curvature.
  NewtonSeed seed{.indexBits = indexBits, .bits = bits, .slopeBits = indexBits + 3};
  const bool isRoot = function == SeedOf::kReciprocalRoot;
  const int segmentBits = isRoot ? indexBits - 1 : indexBits;
  for (int index = 0; index < 1 << indexBits; ++index) {
    const int parity = isRoot ? index >> segmentBits : 0;
    const long segment = index & ((1L << segmentBits) - 1);
    const auto point = [&](long halves) {  // in halves of a segment
      return Interval(MPZ((2L << segmentBits) + 2 * segment + halves), -segmentBits - 1,
                      kPrecision);
    };
    const Interval middle = point(1);
    const Interval atMiddle = valueAt(function, parity, middle);
    const Interval steepness = slopeAt(function, middle, atMiddle);
    // To the nearest multiple of 2^-slopeBits.
    const MPZ slope = (steepness.lowFixed(seed.slopeBits + 1) + MPZ(1)) >> 1;
    const Interval line(slope, -seed.slopeBits, kPrecision);
    const auto sumAt = [&](long halves) {
      const Interval s = point(halves);
      return valueAt(function, parity, s) + line * s;
    };
    const MPZ high = std::max(sumAt(0).highFixed(kFraction), sumAt(2).highFixed(kFraction));
    const Interval tilt = steepness - line;
    const MPZ steepest =
        std::max(magnitude(tilt.lowFixed(kFraction)), magnitude(tilt.highFixed(kFraction)));
    const MPZ low = sumAt(1).lowFixed(kFraction) - (steepest >> (segmentBits + 1)) - MPZ(1);
    // What the floor leaves out adds up to a unit.
    const MPZ unit = MPZ(1) << (kFraction - bits);
    const MPZ offset = (high + low) >> (kFraction - bits + 1);
    const MPZ error = std::max(high - offset * unit, offset * unit + unit - low);
    // Relative to the least value, at the far end, which is at least 1/2.
    const MPZ least = valueAt(function, parity, point(2)).lowFixed(kFraction);
    MPZ relative;
    mpz_cdiv_q(relative.get(), (error << kFraction).get(), least.get());
    seed.relativeError = std::max(seed.relativeError, relative);
    seed.offsets.push_back(offset);
    seed.slopes.push_back(slope);
  }
  return seed;
}

}  // namespace arithmetic
