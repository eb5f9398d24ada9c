#pragma once

#include <vector>

#include "util/mpz.h"

namespace arithmetic {

// First approximations of 1/s and 1/sqrt(z) for Newton-Raphson iterations.
//
// s in [1, 2) is a significand; z = s or 2s, by parity. Each of 2^indexBits (reciprocal) or 2 *
// 2^(indexBits - 1) (root, the parity above the index) equal segments of [1, 2) has a line
//   r = offset * 2^-bits - floor(slope * s * 2^(bits - slopeBits)) * 2^-bits
// with a slope that is a multiple of 2^-slopeBits, near the derivative in the segment's middle; the
// offset centres the error.
struct NewtonSeed {
  int indexBits = 0, bits = 0, slopeBits = 0;
  std::vector<util::MPZ> offsets{}, slopes{};  // by index; not negative
  // The relative error of r is at most relativeError / 2^kErrorBits in magnitude.
  util::MPZ relativeError{};
  static constexpr int kErrorBits = 96;
};

enum class SeedOf { kReciprocal, kReciprocalRoot };

// Bounds in interval arithmetic: the functions are convex, so that on a segment f(s) + slope * s is
// not above its larger end value and not below the tangent in the middle.
//   indexBits 2 to 14, bits 3 to 40
NewtonSeed newtonSeed(SeedOf function, int indexBits, int bits);

}  // namespace arithmetic
