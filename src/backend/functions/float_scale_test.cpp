#include "backend/functions/exact_test_support.h"

namespace functions::testing {
namespace {

int scaled(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  // Beyond every format of 15 exponent and 112 fraction bits.
  constexpr long kFar = 100000;
  const long scale = std::clamp(mpfr_get_si(in[1].get(), MPFR_RNDN), -kFar, kFar);
  return mpfr_mul_2si(r, in[0].get(), scale, direction);
}

std::vector<Config> scalers(const Ports& ports, bool subnormals) {
  return configsOf("DMFloatLdExp", ports, subnormals, {scaled}, hasEvenTies);
}

TEST(FloatLdExp, AllNumbersAndIntegersOfSmallFormats) {
  for (const bool subnormals : {false, true})
    for (const auto& [wE, wF] : {std::pair{2, 1}, {2, 4}, {3, 2}, {4, 3}})
      for (const auto& number : {ieee(wE, wF), fpLib(wE, wF)})
        for (const auto& result : {ieee(wE, wF), fpLib(wE, wF)})
          for (const auto& integer :
               {FixedPoint(1, 0, true), FixedPoint(3, 0, true), FixedPoint(6, 0, true),
                FixedPoint(7, 0, true), FixedPoint(5, 0, false)}) {
            if (wE == 4 && (number.is_fp_lib || result.is_fp_lib || integer.width() % 2 == 0))
              continue;
            checkAll(scalers({"", {number, integer}, {result}}, subnormals));
          }
}

// Drawn numbers, by integers that take them to both ends of the range and about.
TEST(FloatLdExp, DrawnNumbersOfLargeFormats) {
  unsigned seed = 1;
  for (const bool subnormals : {false, true})
    for (const auto& [wE, wF] : {std::pair{6, 9}, {8, 23}, {11, 52}, {15, 112}})
      for (const int width : {8, 11, 17, 32, 64}) {
        const Ports ports{"", {ieee(wE, wF), FixedPoint(width, 0, true)}, {ieee(wE, wF)}};
        Bench bench(scalers(ports, subnormals));
        Draws draws(seed);
        SCOPED_TRACE(fmt::format("{} {} by {} bits, seed {}", wE, wF, width, seed++));
        checkEach(1500, [&](int i) {
          std::vector<MPZ> row = draws.row(ports.in);
          const long exponent = static_cast<long>(field(row[0], wF, wE).toUint64());
          const long lowest = -exponent - wF - 3 + draws.below(wF + 8);
          const long highest = (1L << wE) - exponent - 5 + draws.below(wF + 8);
          if (i % 3 != 0)
            row[1] = MPZ(i % 3 == 1 ? lowest : highest).lowBits(static_cast<unsigned long>(width));
          return bench.check(row);
        });
      }
}

// A subnormal is all that rounding costs: without it no bound makes a difference.
TEST(FloatLdExp, WiderBoundsBuySmallerCircuits) {
  const auto bitsOf = [](bool subnormals) {
    const Ports ports{"", {ieee(8, 23), FixedPoint(8, 0, true)}, {ieee(8, 23)}};
    return logicBitsAt(scalers(ports, subnormals)[0], {0.5, 1});
  };
  const auto gradual = bitsOf(true), flushed = bitsOf(false);
  EXPECT_LT(gradual[1], gradual[0]);
  EXPECT_LT(flushed[0], gradual[1]);
  EXPECT_EQ(flushed[0], flushed[1]);
}

const kiln::Type kLog = FixedPoint(32, 0, true);

// The bits of the integer that a number is a multiple of a power of two by.
MPZ logOf(const Real& x) {
  if (mpfr_zero_p(x.get())) return MPZ::powerOfTwo(31);
  if (!mpfr_regular_p(x.get())) return MPZ::allOnes(31);
  MPZ m;
  const long exponent = mpfr_get_z_2exp(m.get(), x.get());
  mpz_abs(m.get(), m.get());
  return MPZ(static_cast<long>(m.bitLength()) - 1 + exponent).lowBits(32);
}

TEST(FloatILogB, AllNumbersOfSmallFormatsAndDrawnOnes) {
  for (const bool subnormals : {false, true})
    for (const auto& [wE, wF] :
         {std::pair{2, 1}, {2, 9}, {3, 2}, {4, 3}, {5, 10}, {6, 9}, {8, 23}, {11, 52}, {15, 112}})
      for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)}) {
        SCOPED_TRACE(fmt::format("{} {} {}", format.is_fp_lib ? "FPLib" : "IEEE", wE, wF));
        ExactBench bench("DMFloatILogB", {{format}, {kLog}, {}}, subnormals);
        const auto owed = [&](const std::vector<MPZ>& patterns) -> std::vector<MPZ> {
          return {logOf(bench.valueOf(patterns[0], 0))};
        };
        if (wE + wF < 16)
          checkAllExact(bench, owed);
        else
          checkDrawnExact(bench, 4000, 1, owed);
      }
}

// An integer beyond its port counts as the nearest on it, and one never set as 0.
TEST(FloatLdExp, ReferenceHoldsTheIntegerWithinItsPort) {
  const Signature signature{{ieee(8, 23), FixedPoint(4, 0, true)}, {ieee(8, 23)}, {}};
  std::vector<NumValue> inputs(2), results;
  inputs[0].real = Real(24);
  mpfr_set_ui(inputs[0].real.get(), 3, MPFR_RNDN);
  inputs[1].real = Real(64);
  const std::pair<double, double> rows[] = {
      {100, 384}, {-100, 3.0 / 256}, {2.75, 12}, {-2.75, 0.75}};
  for (const auto& [integer, result] : rows) {
    mpfr_set_d(inputs[1].real.get(), integer, MPFR_RNDN);
    findUnit("DMFloatLdExp")->evaluate(signature, results, inputs, {24}, {MPFR_RNDN}, false);
    EXPECT_EQ(mpfr_get_d(results[0].real.get(), MPFR_RNDN), result) << integer;
  }
  mpfr_set_nan(inputs[1].real.get());
  findUnit("DMFloatLdExp")->evaluate(signature, results, inputs, {24}, {MPFR_RNDN}, false);
  EXPECT_EQ(mpfr_get_d(results[0].real.get(), MPFR_RNDN), 3);
  inputs[1].type = NumType::kDontCare;
  findUnit("DMFloatLdExp")->evaluate(signature, results, inputs, {24}, {MPFR_RNDN}, false);
  EXPECT_EQ(results[0].type, NumType::kDontCare);
}

}  // namespace
}  // namespace functions::testing
