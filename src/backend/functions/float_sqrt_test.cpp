#include "backend/functions/float_sqrt.h"

#include "backend/functions/float_test_support.h"

// The square root and the two inverses, which share a circuit.
namespace functions::testing {
namespace {

using kiln::fpLib;
using kiln::ieee;

int squareRoot(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_sqrt(r, in[0].get(), direction);
}
int inverse(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_ui_div(r, 1, in[0].get(), direction);
}
// 1 / -0 is the negative infinity here, other than in MPFR.
int inverseSqrt(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_zero_p(in[0].get()) ? mpfr_ui_div(r, 1, in[0].get(), direction)
                                  : mpfr_rec_sqrt(r, in[0].get(), direction);
}

const std::map<std::string, Operation> kUnits = {
    {"DMFloatSqrt", squareRoot}, {"DMFloatInverse", inverse}, {"DMFloatInverseSqrt", inverseSqrt}};

Bench rootBench(const std::string& unit, const Ports& ports, bool subnormals) {
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions)
    if (precision.tiesAway == 0)
      configs.push_back(configOf(unit, ports, precision, 0, 0, subnormals, {kUnits.at(unit)}));
  return Bench(configs);
}

TEST(FloatRoots, AllNumbersOfSmallFormats) {
  for (const auto& [unit, operation] : kUnits)
    for (const bool subnormals : {false, true})
      for (const auto& [wE, wF] : {std::pair{2, 1}, {2, 5}, {3, 4}, {4, 3}, {3, 7}, {5, 4}})
        for (const auto& result : {ieee(wE, wF), fpLib(wE, wF)}) {
          const Ports ports{"", {ieee(wE, wF)}, {result}};
          Bench bench = rootBench(unit, ports, subnormals);
          checkAll(bench, ports.in);
        }
}

}  // namespace
}  // namespace functions::testing
