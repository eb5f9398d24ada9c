#include "backend/functions/float_flags.h"

#include "backend/functions/conversion_test_support.h"

namespace functions::testing {
namespace {

int operate(bool multiplies, bool subtracts, mpfr_ptr r, const std::vector<Real>& in,
            mpfr_rnd_t direction) {
  if (multiplies) return mpfr_mul(r, in[0].get(), in[1].get(), direction);
  return subtracts ? mpfr_sub(r, in[0].get(), in[1].get(), direction)
                   : mpfr_add(r, in[0].get(), in[1].get(), direction);
}

// A unit with flags against MPFR in the port's own exponent range.
class FlagBench : public Conversion {
 public:
  // `direction`: a number of kModes, or -1 for a rounding port.
  FlagBench(bool multiplies, int wE, int wF, int direction, bool subnormals)
      : Conversion(multiplies ? "DMFPMult" : "DMFPALU",
                   signatureOf(multiplies, ieee(wE, wF), direction < 0, subnormals), subnormals,
                   kModes[std::max(direction, 0)]),
        multiplies(multiplies),
        direction(direction),
        port{ieee(wE, wF), subnormals, subnormals} {}

  bool check(const std::vector<MPZ>& patterns) {
    const std::vector<Real> values{valueOf(patterns[0], 0), valueOf(patterns[1], 1)};
    const bool subtracts = !multiplies && patterns[2] != MPZ(0);
    const mpfr_rnd_t rounding =
        directionOf(kModes[direction < 0 ? patterns.back().toUint64() : unsigned(direction)]);
    // A prescribed rounding does not follow the caller's.
    return Conversion::check(patterns, expected(values, subtracts, rounding),
                             direction < 0 ? MPFR_RNDU : rounding);
  }

 private:
  static Signature signatureOf(bool multiplies, const FloatingPoint& format, bool hasPort,
                               bool subnormals) {
    Signature signature{{format, format}, {format, FixedPoint(5, 0, false)}, {}};
    if (!multiplies) signature.in.emplace_back(FixedPoint(1, 0, false));
    if (hasPort) signature.in.emplace_back(FixedPoint(2, 0, false));
    signature.variant.numbers = {format.exp, format.frac, 1, hasPort, subnormals};
    return signature;
  }

  std::vector<MPZ> expected(const std::vector<Real>& values, bool subtracts,
                            mpfr_rnd_t rounding) const {
    // Once with an unbounded exponent, once in the range of the port.
    Real unbounded(port.precision()), bounded(port.precision());
    operate(multiplies, subtracts, unbounded.get(), values, rounding);
    const mpfr_exp_t emin = mpfr_get_emin(), emax = mpfr_get_emax();
    mpfr_set_emin(port.lowestNormal() - (port.gradual() ? port.format.frac : 0));
    mpfr_set_emax(port.largest());
    mpfr_clear_flags();
    int ternary = operate(multiplies, subtracts, bounded.get(), values, rounding);
    const bool overflow = mpfr_overflow_p() != 0;
    if (port.gradual()) ternary = mpfr_subnormalize(bounded.get(), ternary, rounding);
    mpfr_set_emin(emin);
    mpfr_set_emax(emax);
    // A fixed rounding overflows to infinity in every direction.
    if (overflow && direction >= 0)
      mpfr_set_inf(bounded.get(), mpfr_signbit(unbounded.get()) ? -1 : 1);
    const bool tiny =
        mpfr_regular_p(unbounded.get()) && mpfr_get_exp(unbounded.get()) < port.lowestNormal();
    // Without subnormals all that is tiny is flushed.
    if (tiny && !port.gradual())
      mpfr_set_zero(bounded.get(), mpfr_signbit(unbounded.get()) ? -1 : 1);
    const bool isNan = mpfr_nan_p(bounded.get()) != 0;
    unsigned flags = overflow ? 16 : 0;
    if (tiny && (!port.gradual() || ternary != 0)) flags |= 8;
    if (isNan) flags |= 4;
    if (!isNan && mpfr_signbit(bounded.get())) flags |= 2;
    if (mpfr_zero_p(bounded.get())) flags |= 1;
    return {encode(bounded.get(), port), MPZ(static_cast<unsigned long>(flags))};
  }

  bool multiplies;
  int direction;
  Port port;
};

TEST(FloatFlags, AllPairsInEveryRounding) {
  for (const bool multiplies : {true, false})
    for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}})
      for (const bool subnormals : {false, true})
        for (int direction = -1; direction < 4; ++direction) {
          FlagBench bench(multiplies, wE, wF, direction, subnormals);
          forAllRows(bench.in(), [&](const auto& patterns) { return bench.check(patterns); });
        }
}

TEST(FloatFlags, DrawnPairsOfLargeFormats) {
  unsigned seed = 1;
  for (const bool multiplies : {true, false})
    for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 23}, {11, 52}, {15, 112}})
      for (const bool subnormals : {false, true})
        for (const int direction : {-1, 0}) {
          FlagBench bench(multiplies, wE, wF, direction, subnormals);
          Draws draws(seed++);
          checkEach(4000, [&](int) { return bench.check(draws.row(bench.in())); });
        }
}

// Products and differences within a few units of the smallest normal number and of the largest
// finite one, where one rounding more or less decides the flags.
TEST(FloatFlags, ResultsBesideBothEndsOfTheRange) {
  unsigned seed = 100;
  for (const bool multiplies : {true, false})
    for (const auto& [wE, wF] : {std::pair{8, 23}, {11, 52}})
      for (const bool subnormals : {false, true}) {
        FlagBench bench(multiplies, wE, wF, -1, subnormals);
        const Port port{ieee(wE, wF), subnormals};
        Draws draws(seed++);
        checkEach(6000, [&](int i) {
          std::vector<MPZ> row = draws.row(bench.in());
          Real end(port.precision()), other(port.precision());
          mpfr_set_si_2exp(end.get(), 1, i % 2 ? port.lowestNormal() - 1 : port.largest(),
                           MPFR_RNDN);
          if (multiplies)
            mpfr_div(other.get(), end.get(), decode(row[0], port).get(), MPFR_RNDN);
          else
            mpfr_sub(other.get(), end.get(), decode(row[0], port).get(), MPFR_RNDN);
          const MPZ near = encode(other.get(), port) + MPZ(draws.below(5) - 2);
          if (near >= MPZ(0)) row[1] = near.lowBits(wE + wF + 1);
          return bench.check(row);
        });
      }
}

}  // namespace
}  // namespace functions::testing
