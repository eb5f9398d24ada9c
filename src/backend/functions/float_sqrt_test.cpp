#include "backend/functions/float_sqrt.h"

#include "backend/functions/float_test_support.h"

// The square root and the two inverses, which share a circuit.
namespace functions::testing {
namespace {

int inverse(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_ui_div(r, 1, in[0].get(), direction);
}
// 1 / -0 is the negative infinity here, other than in MPFR.
int inverseSqrt(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_zero_p(in[0].get()) ? mpfr_ui_div(r, 1, in[0].get(), direction)
                                  : mpfr_rec_sqrt(r, in[0].get(), direction);
}

const std::map<std::string, Operation> kUnits = {{"DMFloatSqrt", ofFirst<mpfr_sqrt>},
                                                 {"DMFloatInverse", inverse},
                                                 {"DMFloatInverseSqrt", inverseSqrt}};

Config rootConfig(const std::string& unit, const Ports& ports, const Precision& precision,
                  bool subnormals) {
  Config config = configOf(unit, ports, precision, 0, 0, subnormals, {kUnits.at(unit)});
  config.request.prices = {};
  return config;
}

std::vector<Config> roots(const std::string& unit, const Ports& ports, bool subnormals) {
  // Polynomials for many bits take their time to be found.
  const bool isSmall = ports.in[0].width() < 32;
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions)
    if (precision.tiesAway == 0 && (precision.degrade == 0 || precision.accuracy.ulps == 1) &&
        (isSmall || (precision.mode == RoundMode::kNearestEven && precision.accuracy.ulps < 2)))
      configs.push_back(rootConfig(unit, ports, precision, subnormals));
  return configs;
}

TEST(FloatRoots, AllNumbersOfSmallFormats) {
  for (const auto& [unit, operation] : kUnits)
    for (const bool subnormals : {false, true})
      for (const auto& [wE, wF] : {std::pair{2, 1}, {2, 5}, {3, 4}, {4, 3}, {3, 7}, {5, 4}})
        for (const auto& result : {ieee(wE, wF), fpLib(wE, wF)})
          checkAll(roots(unit, {"", {ieee(wE, wF)}, {result}}, subnormals));
}

// A number whose root is a drawn number of wF + 2 bits, or as close to it as a number comes: half
// of these lie between two results; and numbers beside it.
MPZ nearDecision(Draws& draws, const std::string& unit, const Port& port) {
  const int wF = port.format.frac;
  Real root(wF + 2), x(port.precision());
  MPZ significand = draws.bits(wF + 1) + MPZ::powerOfTwo(wF + 1);
  if (draws.below(4) == 0) significand = MPZ::powerOfTwo(wF + 1) + draws.bits(2);
  if (draws.below(4) == 0) significand = MPZ::powerOfTwo(wF + 2) - MPZ(1) - draws.bits(2);
  const int binades = static_cast<int>(port.half());
  mpfr_set_z_2exp(root.get(), significand.get(), draws.below(binades) - binades / 2 - wF - 1,
                  MPFR_RNDN);
  if (unit != "DMFloatInverse") mpfr_sqr(x.get(), root.get(), MPFR_RNDN);
  if (unit == "DMFloatInverse") mpfr_set(x.get(), root.get(), MPFR_RNDN);
  if (unit != "DMFloatSqrt") {
    Real exact(4 * wF + 16);
    mpfr_sqr(exact.get(), root.get(), MPFR_RNDN);
    mpfr_ui_div(x.get(), 1, unit == "DMFloatInverse" ? root.get() : exact.get(), MPFR_RNDN);
  }
  const MPZ pattern = encode(x.get(), port);
  return (pattern + MPZ(draws.below(3)) - MPZ(1))
      .lowBits(static_cast<unsigned long>(port.format.exp + wF + 1));
}

TEST(FloatRoots, DrawnAndHardNumbersOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [unit, operation] : kUnits)
    for (const auto& [wE, wF] : {std::pair{8, 23}, {11, 40}, {5, 10}, {7, 16}, {2, 14}})
      for (const bool subnormals : {false, true}) {
        const Ports ports{"", {ieee(wE, wF)}, {wF == 16 ? fpLib(wE, wF) : ieee(wE, wF)}};
        Bench bench(roots(unit, ports, subnormals));
        SCOPED_TRACE(fmt::format("{} {}, seed {}", wE, wF, seed));
        checkDrawn(bench, ports.in, 200, seed);
        Draws draws(seed++);
        checkEach(300, [&](int) {
          return bench.check({nearDecision(draws, unit, {ieee(wE, wF), subnormals})});
        });
      }
}

// Not among the tests for its time: every number of the formats of 16 bits.
TEST(FloatRoots, DISABLED_AllNumbersOfHalfFormats) {
  for (const auto& [unit, operation] : kUnits)
    for (const bool subnormals : {false, true})
      for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 7}, {6, 9}, {3, 12}})
        checkAll(roots(unit, {"", {ieee(wE, wF)}, {ieee(wE, wF)}}, subnormals));
}

TEST(FloatRoots, WiderBoundsBuySmallerCircuits) {
  const Ports ports{"", {ieee(8, 23)}, {ieee(8, 23)}};
  for (const auto& [unit, operation] : kUnits)
    expectBoundsToPay(rootConfig(unit, ports, kPrecisions[0], false), {0.5, 1, 64}, 21);
}

}  // namespace
}  // namespace functions::testing
