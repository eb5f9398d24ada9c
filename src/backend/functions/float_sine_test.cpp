#include "backend/functions/float_sine.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

using kiln::ieee;

int sinePi(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_sinpi(r, in[0].get(), direction);
}

int sine(mpfr_ptr r, const std::vector<Real>& in, mpfr_rnd_t direction) {
  return mpfr_sin(r, in[0].get(), direction);
}

struct Function {
  const char* unit;
  Operation operation;
};
constexpr Function kFunctions[] = {{"DMFloatSinPiX", sinePi}, {"DMFloatSinX", sine}};

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

void checkEvery(int wE, int wF, int draws, unsigned seed) {
  for (const bool subnormals : {false, true})
    for (const auto& [unit, operation] : kFunctions) {
      SCOPED_TRACE(fmt::format("{} {} {}", unit, wE, wF));
      const Ports ports = portsOf(wE, wF);
      Bench bench(sines(unit, ports, subnormals, operation));
      if (draws == 0)
        checkAll(bench, ports.in);
      else
        checkDrawn(bench, ports.in, draws, seed++);
    }
}

TEST(FloatSine, AllAnglesOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{4, 3}, {3, 4}, {2, 5}, {2, 1}}) checkEvery(wE, wF, 0, 0);
}

TEST(FloatSine, DrawnAnglesOfHalfPrecision) { checkEvery(5, 10, 300, 1); }
TEST(FloatSine, DrawnAnglesOfSinglePrecision) { checkEvery(8, 23, 300, 1); }
TEST(FloatSine, DrawnAnglesOfDoublePrecision) { checkEvery(11, 52, 200, 1); }

}  // namespace
}  // namespace functions::testing
