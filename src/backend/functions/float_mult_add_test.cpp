#include "backend/functions/float_mult_add.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

std::vector<Config> multiplyAdds(const Ports& ports, bool subnormals) {
  // Ties have one rule here, and all bounds from 1 on build one circuit.
  const auto takes = [](const Precision& p) { return p.tiesAway == 0 && p.accuracy.ulps <= 1; };
  auto configs = configsOf("CFloatMultAdd", ports, subnormals, {ofThree<mpfr_fma>}, takes);
  append(configs, configsOf("CFloatMultAdd", ports, subnormals, {ofThree<mpfr_fms>}, takes, 1));
  return configs;
}

Ports threeOf(int wE, int wF) {
  return {"IEEE", {ieee(wE, wF), ieee(wE, wF), ieee(wE, wF)}, {ieee(wE, wF)}};
}

TEST(FloatMultAdd, AllTriplesOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {2, 2}, {3, 1}, {3, 2}})
    for (const bool subnormals : {false, true}) checkAll(multiplyAdds(threeOf(wE, wF), subnormals));
}

TEST(FloatMultAdd, DrawnTriplesOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{4, 3}, {5, 10}, {8, 23}, {11, 52}, {15, 112}, {2, 40}})
    for (const bool subnormals : {false, true})
      checkDrawn(multiplyAdds(threeOf(wE, wF), subnormals), 4000, seed++);
}

// Addends at every distance from the product, and within a few units of cancelling it: what random
// triples hardly meet.
TEST(FloatMultAdd, AddendsAtEveryDistanceAndNearlyCancelling) {
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 23}, {11, 52}})
    for (const bool subnormals : {false, true}) {
      const Port port{ieee(wE, wF), subnormals};
      Bench bench(multiplyAdds(threeOf(wE, wF), subnormals));
      Draws draws(seed++);
      checkEach(6000, [&](int i) {
        std::vector<MPZ> row{draws.number(port.format), draws.number(port.format)};
        const Real x = decode(row[0], port), y = decode(row[1], port);
        Real addend(port.precision());
        mpfr_mul(addend.get(), x.get(), y.get(), i % 2 ? MPFR_RNDD : MPFR_RNDU);
        if (i % 4 < 2)
          mpfr_mul_2si(addend.get(), addend.get(), draws.below(6 * wF) - 3 * wF, MPFR_RNDN);
        const MPZ near = encode(addend.get(), port) + MPZ(draws.below(5) - 2);
        const MPZ sign = MPZ(draws.below(2)) << (wE + wF);
        row.push_back((near < MPZ(0) ? MPZ(0) : near.lowBits(wE + wF)) | sign);
        return bench.check(row);
      });
    }
}

}  // namespace
}  // namespace functions::testing
