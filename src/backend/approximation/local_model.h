#pragma once

#include <optional>
#include <span>
#include <vector>

#include "backend/approximation/function.h"

namespace approximation {

// The reals centre + s * 2^logHalf for s in [-1, 1], where centre = centreNumerator * 2^centreLsb.
struct Span {
  util::MPZ centreNumerator;
  int centreLsb = 0;
  int logHalf = 0;
};

// f(centre + s 2^logHalf) = the sum of a[j] s^j + r with |r| <= radius for every s in [-1, 1]; all
// numbers are multiples of 2^-fraction.
//
// A Taylor model: coefficients about the centre from interval arithmetic, whose widths go to the
// radius, and Lagrange's remainder, whose coefficient is enclosed over the whole span.
struct LocalModel {
  std::vector<util::MPZ> a;
  util::MPZ radius;
  int fraction = 0;
};

// The shortest model of at least `leastDegree` whose radius is at most 2^logTolerance; nothing
// where f has none of a degree up to 56 (it is no smooth function on the span, or too hard for it).
// It is found soonest where `firstOrder` is its degree and a little more, and is the same for all.
std::optional<LocalModel> localModel(const Function& f, const Span& span, int leastDegree,
                                     int logTolerance, int firstOrder = 0);

// Bounds of a polynomial on [-1, 1], in its coefficients' units.
struct Bounds {
  util::MPZ low, high;
  // The greater magnitude of both.
  util::MPZ magnitude() const;
  bool operator==(const Bounds&) const = default;
};

// Contains all values of the sum of d[j] s^j for s in [-1, 1], and each end exceeds an attained
// value by less than 1/128 of the greatest magnitude, or by rounding.
//
// Bernstein's form: its coefficients enclose the values, its first and last are attained; halving
// the range sharpens it (Lane and Riesenfeld, "Bounds on a polynomial", 1981). Exact integers.
Bounds polynomialBounds(std::span<const util::MPZ> d);

// p(s) - f for the polynomial with coefficients c[j] * 2^lsb[j] of t^j, where t = s 2^logHalf:
// bounds for every s in [-1, 1], in units of 2^-model.fraction.
Bounds approximationError(const LocalModel& model, const Span& span, std::span<const util::MPZ> c,
                          std::span<const int> lsb);

// Coefficients c[j] on the grids 2^lsb[j] for which the error of approximationError() is nearly the
// least: minimax polynomials (Remez), of which the highest coefficient is rounded, and then
// the rest is fitted again to what is left. Deterministic.
std::vector<util::MPZ> fitOnGrid(const LocalModel& model, const Span& span,
                                 std::span<const int> lsb);

// The error of the minimax polynomial of `degree` with real coefficients, about, in units of 1.
double minimaxError(const LocalModel& model, int degree);

}  // namespace approximation
