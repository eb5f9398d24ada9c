#include "backend/functions/float_div.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

using kiln::fpLib;
using kiln::ieee;

int quotient(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_div(r, in[0].get(), in[1].get(), direction);
}

std::vector<Config> dividers(const Ports& ports, bool subnormals) {
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions) {
    if (precision.tiesAway || precision.degrade) continue;
    configs.push_back(configOf("DMFloatDiv", ports, precision, 0, 0, subnormals, {quotient}));
  }
  for (const double ulps : {1.0, 5.0}) {
    configs.push_back(configs.front());
    configs.back().label += fmt::format(", {} ulps", ulps);
    configs.back().request.accuracy = {{Accuracy::kWithin, ulps}};
  }
  return configs;
}

TEST(FloatDiv, AllPairsOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}, {2, 3}, {4, 3}})
    for (const auto& format : {ieee(wE, wF), fpLib(wE, wF)})
      for (const bool subnormals : {false, true}) {
        const Ports ports{"small", {format, format}, {format}};
        Bench bench(dividers(ports, subnormals));
        checkAll(bench, ports.in);
      }
}

}  // namespace
}  // namespace functions::testing
