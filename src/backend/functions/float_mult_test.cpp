#include "backend/functions/float_mult.h"

#include "backend/arithmetic/float_multiplier.h"
#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

std::vector<Config> multipliers(const Ports& ports, bool subnormals) {
  return configsOf("CFloatMult", ports, subnormals, {ofTwo<mpfr_mul>});
}

void checkAllPairs(const Ports& ports) {
  for (const bool subnormals : {false, true}) checkAll(multipliers(ports, subnormals));
}

TEST(FloatMult, AllPairsOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}, {4, 3}}) {
    const auto i = ieee(wE, wF), f = fpLib(wE, wF);
    checkAllPairs({"IEEE", {i, i}, {i}});
    checkAllPairs({"OutFPLib", {i, i}, {f}});
    if (wE < 4) checkAllPairs({"FPLib", {f, f}, {f}});
    if (wE < 4) checkAllPairs({"InFPLib", {f, i}, {i}});
  }
}

// Results wider and narrower than the product, of more and of less range; with the corners of
// partial products that narrow results leave out.
TEST(FloatMult, AllPairsOfMixedFormats) {
  checkAllPairs({"3 2 by 2 3 to 4 6", {ieee(3, 2), ieee(2, 3)}, {ieee(4, 6)}});
  checkAllPairs({"3 3 by 3 2 to 2 1", {ieee(3, 3), ieee(3, 2)}, {ieee(2, 1)}});
  checkAllPairs({"2 5 by 2 5 to 3 3", {ieee(2, 5), ieee(2, 5)}, {ieee(3, 3)}});
  checkAllPairs({"2 4 by 4 4 to 5 4", {ieee(2, 4), ieee(4, 3)}, {ieee(5, 4)}});
}

// In the other form, too, of what a product is packed as.
TEST(FloatMult, AllPairsWithACodedKind) {
  const auto i = ieee(3, 3), f = fpLib(3, 3);
  for (const Ports& ports : {Ports{"IEEE", {i, i}, {i}},
                             {"OutFPLib", {i, i}, {f}},
                             {"3 3 by 3 2 to 2 1", {i, ieee(3, 2)}, {ieee(2, 1)}}}) {
    std::vector<Config> configs = multipliers(ports, /*subnormals=*/false);
    for (Config& config : configs) config.request.form.codesKind = true;
    checkAll(configs);
  }
}

TEST(FloatMult, DrawnAndHardPairsOfLargeFormats) {
  const auto same = [](int wE, int wF) {
    return Ports{"same", {ieee(wE, wF), ieee(wE, wF)}, {ieee(wE, wF)}};
  };
  const std::vector<Ports> forms = {
      same(5, 10),
      same(6, 9),
      same(8, 23),
      same(11, 52),
      same(15, 112),
      same(2, 112),
      {"OutFPLib", {ieee(8, 23), ieee(8, 23)}, {fpLib(8, 23)}},
      {"half to single", {ieee(5, 10), ieee(5, 10)}, {ieee(8, 23)}},
      {"double to half", {ieee(11, 52), ieee(8, 23)}, {ieee(5, 10)}},
      {"single to single, wide range", {ieee(8, 23), ieee(8, 23)}, {ieee(11, 23)}}};
  unsigned seed = 1;
  for (const Ports& ports : forms)
    for (const bool subnormals : {false, true})
      checkDrawn(multipliers(ports, subnormals), 4000, seed++);
}

TEST(FloatMult, TruncationLeavesOutOnlyWhatPays) {
  using arithmetic::planTruncation;
  // 16 by 16 is one block whatever is left out; 24 by 24 is two, or one and a strip of logic.
  EXPECT_EQ(planTruncation(16, 16, {.droppedBits = 15}, {}).a, 0);
  EXPECT_EQ(planTruncation(24, 24, {.droppedBits = 23}, {}).a, 7);
  const auto faithful = planTruncation(53, 53, {.droppedBits = 52}, {});
  EXPECT_EQ(faithful.a + faithful.b, 51);
  EXPECT_EQ(faithful.correction, util::MPZ::powerOfTwo(51));
  const auto wider = planTruncation(53, 53, {.droppedBits = 52, .ulps = 4}, {});

  EXPECT_GT(wider.a + wider.b, 51);
}

TEST(FloatAbs, AllPatternsOfSmallFormats) {
  for (const auto& format : {ieee(2, 1), ieee(4, 3), fpLib(3, 2)})
    for (const bool subnormals : {false, true})
      checkAll({configOf("CFloatAbs", {"abs", {format}, {format}}, kPrecisions[0], 0, 0, subnormals,
                         {ofFirst<mpfr_abs>})});
}

}  // namespace
}  // namespace functions::testing
