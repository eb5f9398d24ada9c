#pragma once

#include "backend/functions/conversion_test_support.h"

// Units whose results are exact, so that one pattern is right for each set of inputs.
namespace functions::testing {

class ExactBench : public Conversion {
 public:
  ExactBench(const std::string& unit, const Signature& signature, bool subnormals)
      : Conversion(unit, signature, subnormals) {}
  // The reference rounds down, which an exact result does not feel.
  bool check(const std::vector<MPZ>& patterns, const std::vector<MPZ>& owed) {
    return Conversion::check(patterns, owed, MPFR_RNDD);
  }
};

// Checks every combination of patterns, or `count` drawn rows; `owed` tells the results. Ends at
// five wrong ones.
template <typename Owed>
void checkAllExact(ExactBench& bench, Owed owed) {
  int wrong = 0;
  forAllRows(bench.in(), [&](const std::vector<MPZ>& patterns) {
    if (!bench.check(patterns, owed(patterns))) ++wrong;
    return wrong < 5;
  });
}
template <typename Owed>
void checkDrawnExact(ExactBench& bench, int count, unsigned seed, Owed owed) {
  SCOPED_TRACE(fmt::format("seed {}", seed));
  Draws draws(seed);
  checkEach(count, [&](int i) {
    std::vector<MPZ> patterns = draws.row(bench.in());
    const auto* format = bench.in()[0].as_floating_point();
    // Equal operands, and those that differ in the sign alone.
    if (format && patterns.size() > 1 && bench.in()[1].as_floating_point() && i % 8 < 2)
      patterns[1] = patterns[0] ^ MPZ(MPZ(i % 8) << (format->exp + format->frac));
    return bench.check(patterns, owed(patterns));
  });
}

// MPFR's minimum and maximum take a number before a NaN, and -0 before +0.
inline Real extreme(const Real& x, const Real& y, bool wantsLeast) {
  Real r(mpfr_get_prec(x.get()));
  (wantsLeast ? mpfr_min : mpfr_max)(r.get(), x.get(), y.get(), MPFR_RNDN);
  return r;
}
inline Real extremeMagnitude(const Real& x, const Real& y, bool wantsLeast) {
  if (mpfr_nan_p(x.get()) || mpfr_nan_p(y.get())) return extreme(x, y, wantsLeast);
  const int order = mpfr_cmpabs(x.get(), y.get());
  if (order == 0) return extreme(x, y, wantsLeast);
  return (order < 0) == wantsLeast ? x : y;
}

}  // namespace functions::testing
