#pragma once

#include <span>
#include <string>
#include <vector>

#include "backend/approximation/local_model.h"

// The few commands of Sollya that are of use here. The library starts at the first call and stays
// until the program ends; it prints nothing. Not for calls from several threads at once.
namespace approximation::sollya {

// [low, high] = [lowNumerator, highNumerator] * 2^lsb.
struct Domain {
  util::MPZ low, high;
  int lsb = 0;
};

// Coefficients c[j] on the grids 2^lsb[j] of a polynomial in x that is close to `function` on the
// domain, by `fpminimax` with fixed-point formats and the absolute error. No bound: see supnorm().
util::Result<std::vector<util::MPZ>> fpminimax(const std::string& function, const Domain& domain,
                                               std::span<const int> lsb);

// An enclosure of the greatest |p - f| on the domain for the polynomial of the sum of c[j] 2^lsb[j]
// x^j, by the certified `supnorm`; its ends are at most 1/64 apart, in units of the lower one.
util::Result<Interval> supnorm(const std::string& function, const Domain& domain,
                               std::span<const util::MPZ> c, std::span<const int> lsb);

}  // namespace approximation::sollya
