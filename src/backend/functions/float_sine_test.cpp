#include "backend/functions/float_sine.h"

#include "backend/functions/float_test_support.h"

namespace functions::testing {
namespace {

struct Function {
  const char* unit;
  Operation operation;
};
constexpr Function kFunctions[] = {{"DMFloatSinPiX", ofFirst<mpfr_sinpi>},
                                   {"DMFloatSinX", ofFirst<mpfr_sin>}};

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

void checkAllAngles(const std::vector<FloatingPoint>& formats) {
  for (const FloatingPoint& format : formats)
    for (const bool subnormals : {false, true})
      for (const Function& function : kFunctions)
        checkAll(sines(function, {"", {format}, {format}}, subnormals));
}

TEST(FloatSine, AllAnglesOfSmallFormats) {
  checkAllAngles({ieee(4, 3), ieee(3, 4), ieee(2, 1)});
  // An FPLib format has a binade more at either end and no subnormals.
  checkAll(sines(kFunctions[0], {"FPLib", {fpLib(4, 3)}, {fpLib(4, 3)}}, false));
}

void checkDrawnAndHard(int wE, int wF, Kinds kinds, int draws, int stride) {
  for (const Function& function : kFunctions) {
    SCOPED_TRACE(fmt::format("{} {} {}", function.unit, wE, wF));
    const Ports ports{"", {ieee(wE, wF)}, {ieee(wE, wF)}};
    Bench bench(sines(function, ports, true, kinds));
    checkDrawn(bench, ports.in, draws, 1);
    if (function.operation == Operation{ofFirst<mpfr_sin>})
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

// Minutes: every input of the formats of 16 bits.
TEST(FloatSine, DISABLED_AllAnglesOf16Bits) {
  checkAllAngles({ieee(5, 10), ieee(8, 7), ieee(6, 9)});
}

}  // namespace
}  // namespace functions::testing
