#include "stimuli/hand_built.h"

#include <algorithm>

namespace {

// Vectors of the operators whose component types lie from `first` to `last`.
struct HandCount {
  componentType first, last;
  int vectors;
};

constexpr HandCount kHandCounts[] = {
    {15, 15, 5},    // FPAdd family, FPSub
    {17, 17, 1},    // FPMul family
    {20, 20, 9},    // FPDiv
    {24, 24, 6},    // FPAddSub
    {25, 25, 9},    // FPFusedAddSub
    {31, 31, 1},    // FPSqrt
    {33, 33, 1},    // FPRecipSqrt
    {37, 37, 3},    // FPRint
    {40, 40, 5},    // FPMod
    {42, 42, 1},    // FPDim
    {47, 47, 10},   // FPMinMaxFused, FPMinMaxAbsFused
    {57, 58, 36},   // FPSinX, FPCosX
    {61, 61, 36},   // FPSinCosX
    {63, 63, 36},   // FPTanX
    {64, 64, 1},    // FPCotX
    {71, 75, 3},    // FPArcsinX, FPArcsinPi, FPArccosX, FPArccosPi, FPArctanX
    {76, 76, 18},   // FPArctan2
    {77, 77, 1},    // FPArctanPi
    {78, 79, 12},   // FPSinPiX, FPCosPiX
    {80, 80, 1},    // FPTanPiX
    {81, 81, 36},   // FPCotPiX
    {84, 84, 6},    // FPHypot, FPRangeReduction
    {91, 91, 8},    // FPLn
    {95, 95, 1},    // FPExpM1
    {97, 97, 13},   // FPExp10
    {98, 98, 23},   // FPExp
    {99, 99, 3},    // FPPowr
    {101, 101, 9},  // FPPow
    {102, 102, 1},  // integers: FXPDiv, IntCstDiv, LongAdd, products, ModularMult
};

}  // namespace

int getHandTestStimuliCount(componentType type) {
  const auto* row = std::ranges::find_if(
      kHandCounts, [type](const HandCount& r) { return r.first <= type && type <= r.last; });
  return row == std::end(kHandCounts) ? 0 : row->vectors;
}

void generateHandTestStimuli(std::vector<NumValue>& values, const PortSpecList& inPorts,
                             const TestingOptions& /*t*/, int /*testIndex*/) {
  for (std::size_t i = 0; i < inPorts.size(); ++i) {
    if (const auto* fp = inPorts[i].type.as_floating_point()) {
      mpfr_set_nan(values[i].real.prepare(fp->frac + 1));
    } else {
      mpfr_set_zero(values[i].real.prepare(inPorts[i].type.width()), 1);
    }
    mpz_set_ui(values[i].pattern.get(), 0);
    values[i].type = NumType::kValue;
    values[i].raw = false;
  }
}
