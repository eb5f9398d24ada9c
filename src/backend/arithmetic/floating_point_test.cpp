#include "backend/arithmetic/floating_point.h"

#include <gtest/gtest.h>

#include <array>

#include "backend/graph/evaluator.h"

namespace arithmetic {
namespace {

using util::MPZ;

constexpr int kExponentWidth = 6, kSignificandWidth = 5;

// A result before rounding, as integers: (-1)^negative * (significand + sticky / 2) * 2^(exponent -
// bias - 4), where a sticky bit of 1 stands for anything between 0 and 1.
struct Input {
  bool negative;
  int exponent;
  unsigned significand;
  bool sticky;
};

// The pattern that 3 exponent and 2 fraction bits give: the magnitude in quarters of the last place
// is shifted to the place where it is rounded, by integers only.
unsigned expectedPattern(const Input& x, const FloatFormat& format, int mode) {
  const bool gradual = format.gradual;
  int exponent = x.exponent;
  unsigned long quarters = (x.significand << 1 | (x.sticky ? 1 : 0))
                           << 1;  // 4 bits below the place
  unsigned long lost = 0;
  if (gradual)
    for (; exponent < format.minExponent(); ++exponent) lost |= quarters & 1, quarters >>= 1;
  unsigned long kept = quarters >> 4;
  const unsigned long rest = (quarters & 15) << 1 | lost, half = 16;
  const bool inexact = rest != 0;
  const bool up = mode == 0   ? rest > half || (rest == half && (kept & 1) != 0)
                  : mode == 1 ? inexact && x.negative
                  : mode == 2 ? inexact && !x.negative
                              : false;
  kept += up ? 1 : 0;
  if (kept == 8) kept = 4, ++exponent;
  const bool awayFromInfinity =
      mode == 3 || (mode == 1 && !x.negative) || (mode == 2 && x.negative);
  const int width = format.exponentBits + format.fractionBits;
  unsigned kind = 1, magnitude = 0;
  if (exponent > format.maxExponent()) {
    kind = awayFromInfinity ? 1 : 2;
    magnitude = awayFromInfinity ? static_cast<unsigned>(format.maxExponent()) << 2 | 3 : 7u << 2;
  } else if (kept < 4) {
    magnitude = static_cast<unsigned>(kept);
  } else if (exponent >= format.minExponent()) {
    magnitude = static_cast<unsigned>(exponent) << 2 | static_cast<unsigned>(kept & 3);
  } else {
    kind = 0;
  }
  const unsigned signBit = x.negative ? 1u << width : 0;
  return (format.fpLib ? kind << (width + 1) : 0) | signBit | magnitude;
}

TEST(RoundAndPack, FollowsItsRoundingPortOverTheWholeRange) {
  for (const FloatFormat& format :
       std::array{FloatFormat{3, 2}, FloatFormat{3, 2, false, true}, FloatFormat{3, 2, true}}) {
    graph::Graph circuit;
    Builder b(circuit);
    const Signal zero = b.bit(false);
    Unrounded x{.sign = b.input("sign", 1),
                .exponent = b.input("exponent", kExponentWidth),
                .significand = b.input("significand", kSignificandWidth),
                .sticky = b.input("sticky", 1),
                .isZero = zero,
                .isInf = zero,
                .isNan = zero};
    const Signal port = b.input("rounding", 2);
    if (format.gradual) x = denormalise(b, x, format, /*needsSticky=*/true);
    b.output("q", roundAndPack(b, x, format, {.port = port}, false));
    graph::Evaluator evaluator(circuit);
    for (const bool negative : {false, true})
      for (int exponent = -14; exponent < 14; ++exponent)
        for (unsigned significand = 16; significand < 32; ++significand)
          for (const bool sticky : {false, true})
            for (int mode = 0; mode < 4; ++mode) {
              const auto got =
                  evaluator(std::vector<MPZ>{MPZ(negative), MPZ(exponent).lowBits(kExponentWidth),
                                             MPZ(significand), MPZ(sticky), MPZ(mode)});
              EXPECT_EQ(got[0].toUint64(),
                        expectedPattern({negative, exponent, significand, sticky}, format, mode))
                  << negative << " " << exponent << " " << significand << " " << sticky << " "
                  << mode << " " << format.fpLib << format.gradual;
            }
  }
}

TEST(RoundAndPack, SpecialsHavePackingsPatterns) {
  const auto pattern = [](const FloatFormat& format, int special, bool quietNaN) {
    graph::Graph circuit;
    Builder b(circuit);
    const Unrounded x{.sign = b.bit(true),
                      .exponent = b.literal(3, 6),
                      .significand = b.literal(0b10110, 5),
                      .sticky = b.bit(true),
                      .isZero = b.bit(special == 0),
                      .isInf = b.bit(special == 1),
                      .isNan = b.bit(special == 2)};
    return b.valueOf(roundAndPack(b, x, format, {}, quietNaN)).toText(2);
  };
  const FloatFormat single{3, 2}, lib{3, 2, true};
  EXPECT_EQ(pattern(single, 0, false), "100000");
  EXPECT_EQ(pattern(single, 1, false), "111100");
  EXPECT_EQ(pattern(single, 2, false), "11101");
  EXPECT_EQ(pattern(single, 2, true), "11110");
  EXPECT_EQ(pattern(lib, 0, false), "100000");
  EXPECT_EQ(pattern(lib, 1, false), "10111100");
  EXPECT_EQ(pattern(lib, 2, false), "11011101");
}

}  // namespace
}  // namespace arithmetic
