#include "backend/functions/float_sine.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

using kiln::ieee;

int sinePi(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_sinpi(r, in[0].get(), direction);
}

constexpr const char* kSinPi = "DMFloatSinPiX";

Ports portsOf(int wE, int wF) { return {"", {ieee(wE, wF)}, {ieee(wE, wF)}}; }

std::vector<Config> sines(const char* unit, const Ports& ports, bool subnormals,
                          Operation operation) {
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions)
    if (precision.tiesAway == 0 && precision.degrade == 0)
      configs.push_back(configOf(unit, ports, precision, 0, 0, subnormals, {operation}));
  for (Config& config : configs) config.request.prices = {};
  return configs;
}

TEST(FloatSine, AllAnglesOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{4, 3}, {3, 4}, {2, 5}, {5, 4}, {2, 1}})
    for (const bool subnormals : {false, true}) {
      const Ports ports = portsOf(wE, wF);
      Bench bench(sines(kSinPi, ports, subnormals, sinePi));
      checkAll(bench, ports.in);
    }
}

TEST(FloatSine, DrawnAngles) {
  unsigned seed = 1;
  for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 23}, {11, 52}})
    for (const bool subnormals : {false, true}) {
      const Ports ports = portsOf(wE, wF);
      Bench bench(sines(kSinPi, ports, subnormals, sinePi));
      checkDrawn(bench, ports.in, 500, seed++);
    }
}

}  // namespace
}  // namespace functions::testing
