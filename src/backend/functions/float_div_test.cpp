#include "backend/functions/float_div.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

// What blocks cost decides between digits and reciprocals; version 1 is Newton-Raphson's at 11 52.
enum Method { kDigits, kReciprocal, kNewton };

std::vector<Config> dividers(const Ports& ports, bool subnormals, Method method) {
  std::vector<Config> configs;
  const auto add = [&](const Precision& precision) {
    Config config = configOf("DMFloatDiv", ports, precision, 0, method == kNewton, subnormals,
                             {ofTwo<mpfr_div>});
    config.label += fmt::format(" {}, method {}", precision.accuracy.ulps, int{method});
    config.request.signature.variant.numbers = {0, 0, 0, method == kNewton, 0};
    config.request.prices = {};
    config.request.prices.lutPerDsp = method == kReciprocal ? 0.01 : 1e6;
    config.request.prices.lutPerFurtherDsp = config.request.prices.lutPerDsp;
    if (method == kReciprocal) config.request.prices.lutPerMemory = 0.01;
    configs.push_back(config);
  };
  for (const Precision& precision : kPrecisions)
    if (!precision.tiesAway && !precision.degrade) add(precision);
  for (const double ulps : {1.0, 5.0})
    add({"faithful", RoundMode::kNearestEven, {Accuracy::kWithin, ulps}});
  return configs;
}

TEST(FloatDiv, AllPairsOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}, {2, 3}})
    for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)})
      for (const bool subnormals : {false, true}) {
        const Ports ports{"small", {format, format}, {format}};
        auto configs = dividers(ports, subnormals, kDigits);
        append(configs, dividers(ports, subnormals, kReciprocal));
        checkAll(configs);
      }
  checkAll(dividers({"4 3", {ieee(4, 3), ieee(4, 3)}, {ieee(4, 3)}}, true, kReciprocal));
}

// Dividends that are the nearest ones to a divisor times a number half way between two neighbours,
// or to a number itself: where a bound that is a little too wide gives a wrong bit.
void checkHard(Bench& bench, const FloatingPoint& format, int count, unsigned seed) {
  SCOPED_TRACE(fmt::format("seed {}", seed));
  Draws draws(seed);
  const int wF = format.frac;
  const MPZ bias = MPZ::allOnes(static_cast<unsigned long>(format.exp - 1));
  const auto pattern = [&](const MPZ& significand, const MPZ& exponent) {
    const MPZ kind = format.is_fp_lib ? MPZ::powerOfTwo(format.exp + wF + 1) : MPZ(0);
    return kind + (exponent << wF) + significand.lowBits(wF);
  };
  for (int i = 0; i < count; ++i) {
    const MPZ y = MPZ::powerOfTwo(wF) + draws.bits(wF);
    const MPZ middle = MPZ::powerOfTwo(wF + 1) + draws.bits(wF + 1);
    const MPZ product = middle * y;
    const auto excess =
        static_cast<unsigned long>(product.bitLength()) - static_cast<unsigned long>(wF + 1);
    const MPZ x = (product >> excess) + MPZ(draws.below(3) - 1);
    // Toward the lowest exponents, so that results are subnormal where there are such.
    const MPZ low = MPZ(draws.below(2) == 0 ? 0 : draws.below(wF + 3));
    const MPZ exponent = draws.below(2) == 0 ? bias : std::max(MPZ(1), bias - low);
    const MPZ divisor = draws.below(2) == 0 ? bias : bias + bias - low;
    if (!bench.check({pattern(x, exponent), pattern(y, divisor)})) return;
  }
}

TEST(FloatDiv, DrawnAndHardPairsOfLargeFormats) {
  struct Row {
    FloatingPoint format;
    int count;
    std::vector<Method> methods;
  };
  const std::vector<Row> rows = {{ieee(5, 10), 3000, {kDigits, kReciprocal}},
                                 {ieee(6, 9), 1000, {kDigits, kReciprocal}},
                                 {ieee(8, 7), 1000, {kDigits}},
                                 {ieee(8, 23), 3000, {kDigits, kReciprocal}},
                                 {fpLib(8, 23), 500, {kDigits, kReciprocal}},
                                 {ieee(11, 52), 1500, {kDigits, kNewton}},
                                 {fpLib(11, 52), 500, {kNewton}},
                                 {ieee(15, 64), 300, {kDigits}},
                                 {ieee(2, 112), 300, {kDigits}}};
  unsigned seed = 1;
  for (const auto& [format, count, methods] : rows)
    for (const Method method : methods)
      for (const bool subnormals : {false, true}) {
        const Ports ports{"same", {format, format}, {format}};
        Bench bench(dividers(ports, subnormals, method));
        checkDrawn(bench, ports.in, count / 2, seed++);
        checkHard(bench, format, count / 2, seed++);
      }
}

// Each ulp more saves, and so does a faithful result; dear blocks are not taken, free ones are.
TEST(FloatDiv, BoundsAndPricesBuyArea) {
  const Ports ports{"8 23", {ieee(8, 23), ieee(8, 23)}, {ieee(8, 23)}};
  Config config = configOf("DMFloatDiv", ports, kPrecisions[0], 0, 0, false, {ofTwo<mpfr_div>});
  const auto multiplies = [&](double lutPerDsp) {
    config.request.prices = {};
    config.request.prices.lutPerDsp = config.request.prices.lutPerFurtherDsp = lutPerDsp;
    const graph::Graph circuit = UnitCircuit("DMFloatDiv", config.request).graph;
    return std::ranges::count(circuit.nodes(), graph::Op::kMultiply, &graph::Node::op) > 0;
  };
  EXPECT_TRUE(multiplies(1));
  EXPECT_FALSE(multiplies(120));
  multiplies(1000);
  expectBoundsToPay(config, {0.5, 1, 2, 8});
  const std::vector<int> bits = logicBitsAt(config, {0.5, 1});
  EXPECT_LT(bits[1], bits[0] * 9 / 10);
}

}  // namespace
}  // namespace functions::testing
