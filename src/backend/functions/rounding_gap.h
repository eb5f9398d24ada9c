#pragma once

#include <climits>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "backend/functions/real_function.h"

namespace functions {

// How near the exact results of a function come to where a rounding changes, in bits below the last
// place of the result: unless it is such a place itself, each result with the output's full
// precision is at least 2^-nearest ulp away from the midpoints between two neighbours, and
// 2^-directed ulp from the numbers. An approximation with an error below that, its exact cases
// apart, rounds as the exact result does.
//
// Where a result is subnormal the neighbours are those of its coarser grid, and an ulp is still
// that of full precision at the result's magnitude. Results that overflow or are flushed by a wide
// margin do not count.
struct RoundingGap {
  int nearest = 0;
  int directed = 0;
  bool operator==(const RoundingGap&) const = default;
};

inline constexpr int kEveryInput = INT_MIN;
// Bits below the last place at which a rounding is decided where no gap is known: that of a number
// within 2^-20 ulp of the exact result (undecided_results.h).
inline constexpr int kUnknownGap = 20;

// The gap of `f` over all inputs of a format: found by running through them where there are at most
// 2^16, from kept data for the functions and formats named there; nothing where it is not known.
//   name           the key of the kept data, the unit's name in the table of units
//   leastExponent  inputs of magnitudes below 2^leastExponent are left out: those where the caller
//                  knows the result's rounding otherwise, as that of 1 + x or x - x^3 / 6
std::optional<RoundingGap> roundingGap(std::string_view name, RealFunction f,
                                       const kiln::FloatingPoint& input,
                                       const kiln::FloatingPoint& output, bool subnormals,
                                       int leastExponent = kEveryInput);

// The numbers that a result is rounded to. Exponents are MPFR's: 0.1... * 2^exponent.
struct ResultGrid {
  int precision;
  mpfr_exp_t least, greatest;  // exponents of the results that count
  mpfr_exp_t leastUlp;         // the exponent of no last place is below
};
ResultGrid gridOf(const kiln::FloatingPoint& output, bool subnormals);

// The closest place of a result: at least 2^-bits ulp away, less than 2^(2 - bits).
struct Nearness {
  bool isMidpoint;
  int bits;
};
// Nothing for results that are such places or do not count.
std::optional<Nearness> nearnessOf(RealFunction f, std::span<const Real> inputs,
                                   const ResultGrid& grid);

// Kept data, made by bench/hardest_cases.
struct KeptGap {
  std::string_view name;
  int exponentBits, fractionBits;
  int leastExponent;  // of the inputs searched
  RoundingGap gap;    // of FPLib ports and IEEE-style ones, with subnormals and without
  std::vector<double> hardest;
};
std::span<const KeptGap> keptGaps();

}  // namespace functions
