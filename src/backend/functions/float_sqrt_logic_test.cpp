#include "backend/functions/float_sqrt_logic.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

using kiln::fpLib;
using kiln::ieee;

int squareRoot(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_sqrt(r, in[0].get(), direction);
}

// The root has no ties.
std::vector<Config> roots(const Ports& ports, bool subnormals) {
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions) {
    if (precision.tiesAway || precision.degrade) continue;
    configs.push_back(configOf("DMFloatSqrt", ports, precision, 0, 0, subnormals, {squareRoot}));
    configs.back().request.signature.variant = {
        {ports.in[0].as_floating_point()->exp, ports.in[0].as_floating_point()->frac, 0, 0, 1}};
  }
  for (const double ulps : {1.0, 5.0}) {
    configs.push_back(configs.front());
    configs.back().label += fmt::format(", {} ulps", ulps);
    configs.back().request.accuracy = {{Accuracy::kWithin, ulps}};
  }
  return configs;
}

TEST(FloatSqrtLogic, AllPatternsOfSmallFormats) {
  for (const auto& [wE, wF] :
       {std::pair{2, 1}, {2, 6}, {3, 2}, {2, 3}, {4, 3}, {3, 4}, {5, 4}, {4, 7}, {3, 8}})
    for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)})
      for (const bool subnormals : {false, true}) {
        const Ports ports{"small", {format}, {format}};
        Bench bench(roots(ports, subnormals));
        checkAll(bench, ports.in);
      }
}

}  // namespace
}  // namespace functions::testing
