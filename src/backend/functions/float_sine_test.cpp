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

// The bounds and roundings that one unit is built for: all, those to nearest, or one.
enum class Kinds { kAll, kNearest, kFaithful };
std::vector<Config> sines(const Function& function, const Ports& ports, bool subnormals,
                          Kinds kinds = Kinds::kAll) {
  std::vector<Config> configs;
  for (const Precision& precision : kPrecisions) {
    const bool isFaithful = precision.accuracy.ulps == 1;
    if (precision.tiesAway != 0 || (precision.degrade != 0 && !isFaithful)) continue;
    if (kinds != Kinds::kAll && precision.mode != RoundMode::kNearestEven) continue;
    if (kinds == Kinds::kFaithful && !isFaithful) continue;
    configs.push_back(
        configOf(function.unit, ports, precision, 0, 0, subnormals, {function.operation}));
    configs.back().request.prices = {};
    configs.back().request.signature.variant.numbers.clear();
  }
  return configs;
}

TEST(FloatSine, AllAnglesOfSmallFormats) {
  for (const auto& [wE, wF] : {std::pair{4, 3}, {3, 4}, {2, 1}})
    for (const bool subnormals : {false, true})
      for (const Function& function : kFunctions) {
        const Ports ports = portsOf(wE, wF);
        Bench bench(sines(function, ports, subnormals));
        checkAll(bench, ports.in);
      }
}

void checkDrawnAndHard(int wE, int wF, Kinds kinds, int draws, int stride) {
  for (const Function& function : kFunctions) {
    SCOPED_TRACE(fmt::format("{} {} {}", function.unit, wE, wF));
    const Ports ports = portsOf(wE, wF);
    Bench bench(sines(function, ports, true, kinds));
    checkDrawn(bench, ports.in, draws, 1);
    if (function.operation == sine)
      for (const MPZ& pattern : hardestRadians(ieee(wE, wF), stride)) bench.check({pattern});
  }
}

TEST(FloatSine, DrawnAndHardestAnglesOfSinglePrecision) {
  checkDrawnAndHard(8, 23, Kinds::kAll, 400, 1);
}
TEST(FloatSine, DrawnAndHardestAnglesOfOddFormats) {
  checkDrawnAndHard(7, 16, Kinds::kNearest, 200, 1);
  checkDrawnAndHard(9, 30, Kinds::kFaithful, 200, 3);
}

// An FPLib format has a binade more at either end and no subnormals.
TEST(FloatSine, AllAnglesOfFPLibPorts) {
  const Ports ports{"FPLib", {kiln::fpLib(4, 3)}, {kiln::fpLib(4, 3)}};
  Bench bench(sines(kFunctions[0], ports, false));
  checkAll(bench, ports.in);
}

// Minutes: every input of the formats of 16 bits.
TEST(FloatSine, DISABLED_AllAnglesOf16Bits) {
  for (const auto& [wE, wF] : {std::pair{5, 10}, {8, 7}, {6, 9}})
    for (const bool subnormals : {false, true})
      for (const Function& function : kFunctions) {
        const Ports ports = portsOf(wE, wF);
        Bench bench(sines(function, ports, subnormals));
        checkAll(bench, ports.in);
      }
}

}  // namespace
}  // namespace functions::testing
