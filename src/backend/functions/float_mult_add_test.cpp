#include "backend/functions/float_mult_add.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

using kiln::ieee;

int productAndSum(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_fma(r, in[0].get(), in[1].get(), in[2].get(), direction);
}
int productAndDifference(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_fms(r, in[0].get(), in[1].get(), in[2].get(), direction);
}

std::vector<Config> multiplyAdds(const Ports& ports, bool subnormals) {
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions) {
    // Ties have one rule here, and all bounds from 1 on build one circuit.
    if (precision.tiesAway != 0 || precision.accuracy.ulps > 1) continue;
    configs.push_back(
        configOf("CFloatMultAdd", ports, precision, 0, 0, subnormals, {productAndSum}));
    configs.push_back(
        configOf("CFloatMultAdd", ports, precision, 1, 0, subnormals, {productAndDifference}));
  }
  return configs;
}

Ports threeOf(int wE, int wF) {
  return {"IEEE", {ieee(wE, wF), ieee(wE, wF), ieee(wE, wF)}, {ieee(wE, wF)}};
}

TEST(FloatMultAdd, AllTriplesOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {2, 2}, {3, 1}, {3, 2}})
    for (const bool subnormals : {false, true}) {
      const Ports ports = threeOf(wE, wF);
      Bench bench(multiplyAdds(ports, subnormals));
      checkAll(bench, ports.in);
    }
}

TEST(FloatMultAdd, DrawnTriplesOfLargeFormats) {
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{4, 3}, {5, 10}, {8, 23}, {11, 52}, {15, 112}, {2, 40}})
    for (const bool subnormals : {false, true}) {
      const Ports ports = threeOf(wE, wF);
      Bench bench(multiplyAdds(ports, subnormals));
      checkDrawn(bench, ports.in, 4000, seed++);
    }
}

// Addends at every distance from the product, and within a few units of cancelling it: what random
// triples hardly meet.
TEST(FloatMultAdd, AddendsAtEveryDistanceAndNearlyCancelling) {
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 23}, {11, 52}})
    for (const bool subnormals : {false, true}) {
      const Ports ports = threeOf(wE, wF);
      const Port port{ieee(wE, wF), subnormals};
      Bench bench(multiplyAdds(ports, subnormals));
      Draws draws(seed++);
      int wrong = 0;
      for (int i = 0; i < 6000 && wrong < 5; ++i) {
        std::vector<MPZ> row{draws.number(port.format), draws.number(port.format)};
        const Real x = decode(row[0], port), y = decode(row[1], port);
        Real addend(port.precision());
        mpfr_mul(addend.get(), x.get(), y.get(), i % 2 ? MPFR_RNDD : MPFR_RNDU);
        if (i % 4 < 2)
          mpfr_mul_2si(addend.get(), addend.get(), draws.below(6 * wF) - 3 * wF, MPFR_RNDN);
        const MPZ near = encode(addend.get(), port) + MPZ(draws.below(5) - 2);
        const MPZ sign = MPZ(draws.below(2)) << (wE + wF);
        row.push_back((near < MPZ(0) ? MPZ(0) : near.lowBits(wE + wF)) | sign);
        if (!bench.check(row)) ++wrong;
      }
    }
}

}  // namespace
}  // namespace functions::testing
