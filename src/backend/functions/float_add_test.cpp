#include "backend/functions/float_add.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

constexpr Operation sum = ofTwo<mpfr_add>, difference = ofTwo<mpfr_sub>;
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
    append(configs, configsOf("CFloatAdd", ports, subnormals, {subtract ? difference : sum}, isAny,
                              subtract, dualPath));
  }
  return configs;
}

TEST(FloatAdd, AllPairsOfSmallFormatsInEveryForm) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}})
    for (const Ports& ports : portForms(wE, wF))
      for (const bool subnormals : {false, true}) checkAll(adders(ports, subnormals, wF == 2));
  for (const bool subnormals : {false, true})
    checkAll(adders(portForms(4, 3)[0], subnormals, subnormals));
}

TEST(FloatAdd, DrawnAndHardPairsOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [wE, wF] :
       {std::pair{5, 10}, {6, 9}, {8, 23}, {11, 52}, {15, 112}, {2, 112}, {15, 1}})
    for (const Ports& ports : portForms(wE, wF))
      for (const bool subnormals : {false, true})
        checkDrawn(adders(ports, subnormals, subnormals), 600, seed++);
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
    for (const bool subnormals : {false, true})
      checkAll(inBlocks(adders(portForms(wE, wF)[subnormals ? 4 : 0], subnormals, subnormals),
                        subnormals ? Shape{2, 5} : Shape{24, 17}));
  for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 23}, {11, 52}, {15, 112}, {15, 1}})
    for (const bool subnormals : {false, true})
      checkDrawn(inBlocks(adders(portForms(wE, wF)[0], subnormals, subnormals), {24, 17}), 400,
                 static_cast<unsigned>(wF));
}

TEST(FloatAdd, AddSubFollowsItsThirdInput) {
  const auto format = ieee(3, 2);
  const Ports ports{"AddSub", {format, format, FixedPoint(1, 0, false)}, {format}};
  for (const bool subnormals : {false, true}) {
    auto configs = configsOf("CFloatAddSub", ports, subnormals, {chosen});
    append(configs, configsOf("CFloatAddSub", ports, subnormals, {chosen}, isAny, 0, 1));
    checkAll(configs);
  }
}

TEST(FloatAdd, FusedUnitGivesSumAndDifference) {
  unsigned seed = 1;
  for (const auto& format : {ieee(3, 2), fpLib(2, 1), ieee(8, 23)})
    for (const bool subnormals : {false, true}) {
      const Ports ports{"fused", {format, format}, {format, format}};
      const auto configs = configsOf("DMFloatFusedAddSub", ports, subnormals, {sum, difference});
      if (format.exp < 8)
        checkAll(configs);
      else
        checkDrawn(configs, 2000, seed++);
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
    const std::vector<Operation> operations{subnormals ? treeSum<true> : treeSum<false>};
    auto configs = configsOf("CFloatAdd", ports, subnormals, operations);
    append(configs, configsOf("CFloatAdd", ports, subnormals, operations, isAny, 0, 1));
    checkDrawn(configs, 6000, 7);
  }
}

TEST(FloatDim, AllPairsOfSmallFormatsAndDrawnOnes) {
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}, {4, 3}, {6, 9}, {8, 23}, {11, 52}})
    for (const bool subnormals : {false, true})
      for (const Ports& ports : portForms(wE, wF)) {
        if (wF > 2 && ports.name != std::string_view("IEEE")) continue;
        const auto configs =
            configsOf("DMFloatDim", ports, subnormals, {ofTwo<mpfr_dim>}, hasEvenTies);
        if (wE < 6)
          checkAll(configs);
        else
          checkDrawn(configs, 4000, seed++);
      }
}

TEST(FloatAdd, WiderBoundsBuySmallerCircuits) {
  for (const int dualPath : {0, 1})
    expectBoundsToPay(
        configOf("CFloatAdd", portForms(8, 23)[0], kPrecisions[0], 0, dualPath, false, {sum}),
        {0.5, 1, 4, 16});
}

}  // namespace
}  // namespace functions::testing
