#include "backend/functions/float_add.h"

#include <fmt/format.h>

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
struct Ports {
  const char* name;
  kiln::FloatingPoint a, b, q;
};

// Which inputs and outputs have the FPLib form.
std::vector<Ports> portForms(int wE, int wF) {
  const auto i = ieee(wE, wF), f = fpLib(wE, wF);
  return {{"IEEE", i, i, i},
          {"InFPLib", f, f, i},
          {"InFPLibX", f, i, i},
          {"InFPLibOutFPLib", f, f, f},
          {"InFPLibYOutFPLib", i, f, f}};
}

struct Precision {
  const char* name;
  RoundMode mode;
  Accuracy accuracy;
  int tiesAway = 0, degrade = 0;
};
const std::vector<Precision> kPrecisions = {
    {"nearest", RoundMode::kNearestEven, {Accuracy::kCorrect, 0.5}},
    {"down", RoundMode::kDown, {Accuracy::kCorrect, 0.5}},
    {"up", RoundMode::kUp, {Accuracy::kCorrect, 0.5}},
    {"toward zero", RoundMode::kTowardZero, {Accuracy::kCorrect, 0.5}},
    {"ties away", RoundMode::kNearestEven, {Accuracy::kCorrect, 0.5}, 1},
    {"faithful", RoundMode::kNearestEven, {Accuracy::kWithin, 1}, 0, 1},
    {"2 ulps", RoundMode::kNearestEven, {Accuracy::kWithin, 2}},
    {"2 ulps, degraded", RoundMode::kNearestEven, {Accuracy::kWithin, 2}, 0, 1},
    {"5 ulps, degraded", RoundMode::kDown, {Accuracy::kWithin, 5}, 0, 1},
};

std::vector<Config> adders(const Ports& ports, bool subnormals) {
  std::vector<Config> configs;
  for (const int dualPath : {0, 1})
    for (const Precision& precision : kPrecisions) {
      const bool subtract = dualPath != 0;  // one of each is enough
      Config config;
      config.unit = "CFloatAdd";
      config.label = fmt::format("{}{}, {}{}", ports.name, dualPath ? " dual path" : "",
                                 precision.name, subnormals ? ", subnormals" : "");
      config.request.signature = {{ports.a, ports.b},
                                  {ports.q},
                                  {{subtract, dualPath, precision.tiesAway, precision.degrade}}};
      config.request.accuracy = {precision.accuracy};
      config.request.rounding.fixed = precision.mode;
      config.request.subnormals = subnormals;
      config.request.quietNaN = subnormals;
      config.operations = {subtract ? Operation(difference) : Operation(sum)};
      configs.push_back(std::move(config));
    }
  return configs;
}

void checkAllPairs(Bench& bench, const Ports& ports) {
  const auto first = allPatterns(ports.a), second = allPatterns(ports.b);
  int wrong = 0;
  for (const MPZ& a : first)
    for (const MPZ& b : second)
      if (!bench.check({a, b}) && ++wrong == 5) return;
}

TEST(FloatAdd, AllPairsOfSmallFormatsAndForms) {
  for (const auto& [wE, wF] : {std::pair{2, 1}, {3, 2}})
    for (const Ports& ports : portForms(wE, wF))
      for (const bool subnormals : {false, true}) {
        Bench bench(adders(ports, subnormals));
        checkAllPairs(bench, ports);
      }
}

}  // namespace
}  // namespace functions::testing
