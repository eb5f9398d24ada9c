#include "backend/functions/float_sqrt_logic.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

// A root has no ties.
std::vector<Config> roots(const FloatingPoint& format, bool subnormals) {
  const Ports ports{"same", {format}, {format}};
  std::vector<Config> configs;
  const auto add = [&](const Precision& precision) {
    configs.push_back(
        configOf("DMFloatSqrt", ports, precision, 0, 0, subnormals, {ofFirst<mpfr_sqrt>}));
    configs.back().label += fmt::format(" {}", precision.accuracy.ulps);
    configs.back().request.signature.variant.numbers = {0, 0, 0, 0, 1};
  };
  for (const Precision& precision : kPrecisions)
    if (!precision.tiesAway && !precision.degrade) add(precision);
  for (const double ulps : {1.0, 5.0})
    add({"faithful", RoundMode::kNearestEven, {Accuracy::kWithin, ulps}});
  return configs;
}

// Those with more fraction bits than exponents have roots below the lowest regular number.
TEST(FloatSqrtLogic, AllPatternsOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {2, 2}, {2, 6}, {3, 2}, {2, 3}, {4, 3}, {3, 8}})
    for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)})
      for (const bool subnormals : {false, true}) checkAll(roots(format, subnormals));
}

TEST(FloatSqrtLogic, DISABLED_AllPatternsOfSixteenBits) {
  for (const auto& format : {ieee(5, 10), ieee(8, 7)})
    for (const bool subnormals : {false, true}) checkAll(roots(format, subnormals));
}

// Squares of numbers of as many bits and of those half way between them, and their neighbours.
TEST(FloatSqrtLogic, DrawnAndHardNumbersOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [format, count] : {std::pair{ieee(5, 10), 1000},
                                      {ieee(6, 9), 500},
                                      {ieee(8, 23), 2000},
                                      {fpLib(8, 23), 500},
                                      {ieee(9, 30), 500},
                                      {ieee(11, 52), 1000},
                                      {ieee(15, 64), 300},
                                      {ieee(2, 112), 100}})
    for (const bool subnormals : {false, true}) {
      Bench bench(roots(format, subnormals));
      checkDrawn(bench, {format}, count / 2, seed);
      Draws draws(seed++);
      const int wF = format.frac;
      const MPZ kind = format.is_fp_lib ? MPZ::powerOfTwo(format.exp + wF + 1) : MPZ(0);
      for (int i = 0; i < count / 2; ++i) {
        const MPZ root = MPZ::powerOfTwo(wF + 1) + draws.bits(wF + 1);
        const int bits = 1 + draws.below(wF);  // an exact root now and then
        const MPZ few = draws.below(4) == 0 ? (root >> bits) << bits : root;
        const MPZ square = few * few;
        const auto excess =
            static_cast<unsigned long>(square.bitLength()) - static_cast<unsigned long>(wF + 1);
        const MPZ x = (square >> excess) + MPZ(draws.below(3) - 1);
        const MPZ odd(excess % 2 == 1 ? 0 : 1);
        const MPZ exponent = MPZ::powerOfTwo(format.exp - 1) - MPZ(2) + odd;
        if (!bench.check({kind + (exponent << wF) + x.lowBits(wF)})) break;
      }
    }
}

TEST(FloatSqrtLogic, BoundsBuyArea) {
  const Config config = roots(ieee(8, 23), false)[0];
  expectBoundsToPay(config, {0.5, 1, 2, 5});
  const std::vector<int> bits = logicBitsAt(config, {0.5, 1});
  EXPECT_LT(bits[1], bits[0] * 9 / 10);
}

}  // namespace
}  // namespace functions::testing
