#include "backend/functions/float_add.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

using kiln::fpLib;
using kiln::ieee;

int sum(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_add(r, in[0].get(), in[1].get(), direction);
}
int difference(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_sub(r, in[0].get(), in[1].get(), direction);
}
int chosen(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_zero_p(in[2].get()) ? sum(r, in, direction) : difference(r, in, direction);
}

// Which inputs and outputs have the FPLib form.
std::vector<Ports> portForms(int wE, int wF) {
  const auto i = ieee(wE, wF), f = fpLib(wE, wF);
  return {{"IEEE", {i, i}, {i}},
          {"InFPLib", {f, f}, {i}},
          {"InFPLibX", {f, i}, {i}},
          {"InFPLibOutFPLib", {f, f}, {f}},
          {"InFPLibYOutFPLib", {i, f}, {f}},
          {"OutFPLib", {i, i}, {f}}};
}

// Both architectures, one as an adder and one as a subtracter.
std::vector<Config> adders(const Ports& ports, bool subnormals, bool dualSubtracts) {
  std::vector<Config> configs;
  for (const bool dualPath : {false, true}) {
    const bool subtract = dualPath == dualSubtracts;
    for (const Precision& precision : kPrecisions)
      configs.push_back(configOf("CFloatAdd", ports, precision, subtract, dualPath, subnormals,
                                 {subtract ? difference : sum}));
  }
  return configs;
}

TEST(FloatAdd, AllPairsOfSmallFormatsInEveryForm) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}})
    for (const Ports& ports : portForms(wE, wF))
      for (const bool subnormals : {false, true}) {
        Bench bench(adders(ports, subnormals, wF == 2));
        checkAll(bench, ports.in);
      }
}

TEST(FloatAdd, AllPairsOfAWiderFormat) {
  const Ports ports = portForms(4, 3)[0];
  for (const bool subnormals : {false, true}) {
    Bench bench(adders(ports, subnormals, subnormals));
    checkAll(bench, ports.in);
  }
}

TEST(FloatAdd, DrawnAndHardPairsOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [wE, wF] :
       {std::pair{5, 10}, {6, 9}, {8, 23}, {11, 52}, {15, 112}, {2, 112}, {15, 1}})
    for (const Ports& ports : portForms(wE, wF))
      for (const bool subnormals : {false, true}) {
        Bench bench(adders(ports, subnormals, subnormals));
        checkDrawn(bench, ports.in, 600, seed++);
      }
}

// Every form of adder once more with its alignment in blocks, of one piece and of several.
TEST(FloatAdd, AlignsInDspBlocks) {
  const auto inBlocks = [](std::vector<Config> configs, Shape block) {
    for (Config& config : configs) {
      config.request.alignsInDsps = true;
      config.request.prices.dsp = block;
    }
    return configs;
  };
  for (const auto& [wE, wF] : {std::pair{3, 2}, {4, 3}})
    for (const bool subnormals : {false, true}) {
      const Ports ports = portForms(wE, wF)[subnormals ? 4 : 0];
      Bench bench(inBlocks(adders(ports, subnormals, subnormals),
                           subnormals ? Shape{2, 5} : Shape{24, 17}));
      checkAll(bench, ports.in);
    }
  for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 23}, {11, 52}, {15, 112}, {15, 1}})
    for (const bool subnormals : {false, true}) {
      const Ports ports = portForms(wE, wF)[0];
      Bench bench(inBlocks(adders(ports, subnormals, subnormals), {24, 17}));
      checkDrawn(bench, ports.in, 400, static_cast<unsigned>(wF));
    }
}

TEST(FloatAdd, AddSubFollowsItsThirdInput) {
  const auto format = ieee(3, 2);
  const Ports ports{"AddSub", {format, format, kiln::FixedPoint(1, 0, false)}, {format}};
  for (const bool subnormals : {false, true}) {
    std::vector<Config> configs;
    for (const bool dualPath : {false, true})
      for (const Precision& precision : kPrecisions)
        configs.push_back(
            configOf("CFloatAddSub", ports, precision, 0, dualPath, subnormals, {chosen}));
    Bench bench(configs);
    checkAll(bench, ports.in);
  }
}

TEST(FloatAdd, FusedUnitGivesSumAndDifference) {
  unsigned seed = 1;
  for (const auto& format : {ieee(3, 2), fpLib(2, 1), ieee(8, 23)})
    for (const bool subnormals : {false, true}) {
      const Ports ports{"fused", {format, format}, {format, format}};
      std::vector<Config> configs;
      for (const Precision& precision : kPrecisions)
        configs.push_back(
            configOf("DMFloatFusedAddSub", ports, precision, 0, 0, subnormals, {sum, difference}));
      Bench bench(configs);
      if (format.exp < 8)
        checkAll(bench, ports.in);
      else
        checkDrawn(bench, ports.in, 2000, seed++);
    }
}

// Five inputs: (a + b) and (c + d) are added, then e, which moves up two levels.
template <bool kSubnormals>
int treeSum(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  const auto node = [](const Real& x, const Real& y) {
    const Port port{ieee(3, 2), kSubnormals};
    const std::vector<Real> operands{x, y};
    const Real rounded = Truth(sum, operands, port).rounded(MPFR_RNDN);
    return decode(encode(rounded.get(), port), port);
  };
  const Real four = node(node(in[0], in[1]), node(in[2], in[3]));
  return mpfr_add(r, four.get(), in[4].get(), direction);
}

TEST(FloatAdd, TreeRoundsInEveryNode) {
  const Ports ports{"tree", std::vector<kiln::Type>(5, ieee(3, 2)), {ieee(3, 2)}};
  for (const bool subnormals : {false, true}) {
    std::vector<Config> configs;
    for (const bool dualPath : {false, true})
      for (const Precision& precision : kPrecisions)
        configs.push_back(configOf("CFloatAdd", ports, precision, 0, dualPath, subnormals,
                                   {subnormals ? treeSum<true> : treeSum<false>}));
    Bench bench(configs);
    checkDrawn(bench, ports.in, 6000, 7);
  }
}

TEST(FloatDim, AllPairsOfSmallFormatsAndDrawnOnes) {
  const Operation positiveDifference = [](mpfr_ptr r, const std::vector<Real>& in,
                                          mpfr_rnd_t direction) {
    return mpfr_dim(r, in[0].get(), in[1].get(), direction);
  };
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}, {4, 3}, {6, 9}, {8, 23}, {11, 52}})
    for (const bool subnormals : {false, true})
      for (const Ports& ports : portForms(wE, wF)) {
        if (wF > 2 && ports.name != std::string_view("IEEE")) continue;
        std::vector<Config> configs;
        for (const Precision& precision : kPrecisions)
          if (precision.tiesAway == 0)
            configs.push_back(
                configOf("DMFloatDim", ports, precision, 0, 0, subnormals, {positiveDifference}));
        Bench bench(configs);
        if (wE < 6)
          checkAll(bench, ports.in);
        else
          checkDrawn(bench, ports.in, 4000, seed++);
      }
}

// A bound pays: what is promised less is built of fewer bits of logic.
TEST(FloatAdd, WiderBoundsBuySmallerCircuits) {
  const Ports ports = portForms(8, 23)[0];
  const auto bitsOf = [&](Accuracy accuracy, int dualPath) {
    return logicBits(configOf("CFloatAdd", ports, {"", RoundMode::kNearestEven, accuracy}, 0,
                              dualPath, false, {sum}));
  };
  for (const int dualPath : {0, 1}) {
    const int correct = bitsOf({Accuracy::kCorrect, 0.5}, dualPath);
    const int faithful = bitsOf({Accuracy::kWithin, 1}, dualPath);
    const int four = bitsOf({Accuracy::kWithin, 4}, dualPath);
    const int sixteen = bitsOf({Accuracy::kWithin, 16}, dualPath);
    EXPECT_LT(faithful, correct);
    EXPECT_LT(four, faithful);
    EXPECT_LT(sixteen, four);
  }
}

}  // namespace
}  // namespace functions::testing
