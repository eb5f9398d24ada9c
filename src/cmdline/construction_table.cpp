#include "cmdline/construction_table.h"

#include <algorithm>
#include <cstdlib>

#include "cmdline/assertion.h"

namespace cmdline {

namespace {

using Numbers = std::vector<std::int64_t>;
using Words = std::vector<std::string>;
using Kind = kiln::FunctionGenerationOption;

int wordAt(const Words& words, std::size_t place) {
  return static_cast<int>(std::strtol(words.at(place).c_str(), nullptr, 10));
}

// Words of FPToFXP: wE wF w f s r. Type 1 and mode 3 choose the rounding at run time.
template <bool AtRunTime>
Numbers toFixedNumbers(const Words& words) {
  constexpr int kModes[] = {6, 3, 0, 1, 5, 4, 2};  // of r from -2 on; any other r counts as 1
  const int r = wordAt(words, 5);
  const int mode = AtRunTime ? 3 : r >= -2 && r <= 4 ? kModes[r + 2] : 1;
  return {
      8, 23, wordAt(words, 2), wordAt(words, 3), wordAt(words, 4) == 1, AtRunTime || r == -1, mode,
      0, 0};
}

// Words of FPAddExpert: wE wF tieBreaksToEven architecture degradeAccuracy. Numbers: subtract,
// dualPath, tiesAway, degradeAccuracy.
Numbers expertSumNumbers(const Words& words) {
  return {0, wordAt(words, 3) > 0, wordAt(words, 2) <= 0, wordAt(words, 4) == 1};
}

std::vector<PushedOption> expertSumOptions(const Words& words) {
  std::vector<PushedOption> options;
  if (wordAt(words, 2) != 0) options.push_back({Kind::kTieBreak});
  options.push_back({Kind::kAddArchitecture, wordAt(words, 3) != 0});
  if (wordAt(words, 4) == 1) options.push_back({Kind::kDegradeAccuracy});
  return options;
}

// Words of FPMulExpert: three formats, then the tie rule. Numbers: 0, 0, tiesAway.
Numbers expertProductNumbers(const Words& words) { return {0, 0, wordAt(words, 6) <= 0}; }

// A unit of the shape of single precision, with the numbers behind the two widths. Units have their
// formats from their ports.
ConstructionRow unit(componentType component, std::string_view word, std::string_view name,
                     Numbers numbers = {0}, std::vector<PushedOption> options = {}) {
  numbers.insert(numbers.begin(), {8, 23});
  return {component, word, name, std::move(numbers), std::move(options)};
}

ConstructionRow comparison(componentType component) {
  return unit(component, "FPCompare", "DMFloatCompare", {component - 52, 0, 1},
              {{Kind::kCompareType, component - 50}});
}

const std::vector<ConstructionRow>& rows() {
  static const std::vector<ConstructionRow> kRows = {
      unit(10, "FXPToFP", "DMFxPToFP", {1, 0, 0, 0}),
      {.component = 11,
       .word = "FPToFXP",
       .unit = "DMFPToFxP",
       .numbers = {},
       .numbersOf = toFixedNumbers<false>},
      {.component = 12,
       .word = "FPToFXP",
       .unit = "DMFPToFxP",
       .numbers = {},
       .numbersOf = toFixedNumbers<true>},
      // Sums, products and magnitudes have numbers of their own, without widths.
      {15, "FPAdd", "CFloatAdd", {0, 0, 0, 0}, {{Kind::kAddArchitecture, 0}}},
      {.component = 16,
       .word = "FPAddExpert",
       .unit = "CFloatAdd",
       .numbers = {},
       .numbersOf = expertSumNumbers,
       .optionsOf = expertSumOptions},
      {17, "FPMul", "CFloatMult", {0, 0, 0}},
      {.component = 18,
       .word = "FPMulExpert",
       .unit = "CFloatMult",
       .numbers = {},
       .numbersOf = expertProductNumbers},
      unit(20, "FPDiv", "DMFloatDiv", {0, 0, 0}),
      unit(21, "FPDiv", "DMFloatDiv", {0, 1, 0}, {{Kind::kDivisionVersion1}}),
      unit(22, "FPDivSqrt", "DMFloatDivSqrt", {}),
      unit(25, "FPFusedAddSub", "DMFloatFusedAddSub", {0, 0}),
      unit(30, "FPInverse", "DMFloatInverse", {0, 0}),
      unit(31, "FPSqrt", "DMFloatSqrt", {0, 0}),
      unit(32, "FPCbrt", "DMFloatCbrt"),
      unit(33, "FPRecipSqrt", "DMFloatInverseSqrt"),
      unit(34, "FPFloor", "DMFloatFloor"),
      unit(35, "FPCeil", "DMFloatCeil"),
      unit(36, "FPRound", "DMFloatRound"),
      unit(37, "FPRint", "DMFloatRint"),
      unit(39, "FPFrac", "DMFloatFrac"),
      unit(40, "FPMod", "DMFloatMod"),
      {41, "FPAbs", "CFloatAbs", {}},
      unit(42, "FPDim", "DMFloatDim"),
      unit(43, "FPMin", "DMFloatMinMax", {0, 0, 0}),
      unit(44, "FPMax", "DMFloatMinMax", {1, 0, 0}, {{Kind::kMaximum}}),
      unit(45, "FPMinAbs", "DMFloatMinMax", {0, 1, 0}, {{Kind::kAbsoluteValues}}),
      unit(46, "FPMaxAbs", "DMFloatMinMax", {1, 1, 0}, {{Kind::kAbsoluteValues}, {Kind::kMaximum}}),
      unit(47, "FPMinMaxFused", "DMFloatFusedMinMax", {0}),
      unit(48, "FPMinMaxAbsFused", "DMFloatFusedMinMax", {1}, {{Kind::kAbsoluteValues}}),
      comparison(50),
      comparison(51),
      comparison(52),
      comparison(53),
      comparison(54),
      comparison(55),
      unit(56, "FPCompareFused", "DMFloatCompareFused"),
      unit(57, "FPSinX", "DMFloatSinX", {0, 0, 0}),
      unit(58, "FPCosX", "DMFloatCosX", {0, 0, 0}),
      unit(59, "FPCosXNoRR", "DMFloatCosX", {1, 0, 0}),
      unit(60, "FPSinXNoRR", "DMFloatSinX", {0, 1, 0}, {{Kind::kNoRangeReduction}}),
      unit(61, "FPSinCosX", "DMFloatSinCosX"),
      unit(62, "FPSinCosPIX", "DMFloatSinCosPiX"),
      unit(63, "FPTanX", "DMFloatTanX", {0, 0}),
      unit(64, "FPCotX", "DMFloatCotX"),
      unit(71, "FPArcsinX", "DMFloatArcSinX"),
      unit(72, "FPArcsinPi", "DMFloatArcSinPi"),
      unit(73, "FPArccosX", "DMFloatArcCosX"),
      unit(74, "FPArccosPi", "DMFloatArcCosPi"),
      unit(75, "FPArctanX", "DMFloatArcTanX"),
      unit(76, "FPArctan2", "DMFloatArcTan2"),
      unit(77, "FPArctanPi", "DMFloatArcTanPi"),
      unit(78, "FPSinPiX", "DMFloatSinPiX"),
      unit(79, "FPCosPiX", "DMFloatCosPiX"),
      unit(80, "FPTanPiX", "DMFloatTanPiX"),
      unit(81, "FPCotPiX", "DMFloatCotPiX"),
      unit(82, "FPLdExp", "DMFloatLdExp", {1, 8, 0}),
      unit(84, "FPHypot", "DMFloatHypot"),
      unit(85, "FPHypot3d", "DMFloatHypot3d"),
      unit(89, "FPFusedMultifunction", "DMFloatFusedMultiFunction"),
      unit(91, "FPLn", "DMFloatLoge", {0, 1}),
      unit(92, "FPLn1px", "DMFloatLoge1px"),
      unit(93, "FPLog10", "DMFloatLog10"),
      unit(94, "FPLog2", "DMFloatLog2"),
      unit(95, "FPExpM1", "DMFloatExpEM1"),
      unit(96, "FPExp2", "DMFloatExp2"),
      unit(97, "FPExp10", "DMFloatExp10"),
      unit(98, "FPExp", "DMFloatExpE", {0, 1}),
      unit(99, "FPPowr", "DMFloatPowr"),
      unit(101, "FPPow", "DMFloatPow"),
  };
  return kRows;
}

template <typename Value>
void push(Options& options, Kind::Kind kind, const Value& value) {
  options.push_back(std::make_unique<kiln::FunctionGenerationOptionValue<Value>>(kind, value));
}

void pushOption(Options& options, const PushedOption& option) {
  if (!option.value) {
    options.push_back(std::make_unique<kiln::FunctionGenerationOption>(option.kind));
  } else if (option.kind == Kind::kCompareType) {
    push(options, Kind::kCompareType,
         static_cast<kiln::FunctionGenerationOptionCmpTypes>(*option.value));
  } else {
    push(options, Kind::kAddArchitecture,
         static_cast<kiln::FunctionGenerationOptionFPAddTypes>(*option.value));
  }
}

}  // namespace

const ConstructionRow* findConstruction(componentType component) {
  const auto row = std::ranges::find(rows(), component, &ConstructionRow::component);
  return row == rows().end() ? nullptr : &*row;
}

void pushFormatOptions(Options& options, const SystemSpec& spec) {
  switch (spec.component) {
    case 10:
    case 17:
    case 18: {
      const kiln::FloatingPoint* type = spec.outputs[0].type.as_floating_point();
      require(type, "fpOutType!=nullptr", "the output is not a floating-point number");
      push(options, Kind::kOutFPType,
           kiln::functionGenerationOptionOutFPType{type->exp, type->frac});
      break;
    }
    case 11:
    case 12: {
      const kiln::FixedPoint* type = spec.outputs[0].type.as_fixed_point();
      require(type, "fxpOutType!=nullptr", "the output is not a fixed-point number");
      push(options, Kind::kOutFXPType,
           kiln::functionGenerationOptionOutFXPType{type->width(), type->fraction(), type->sign()});
      const bool atRunTime = spec.component == 12;
      push(options, Kind::kRoundingAtRunTime, static_cast<int>(atRunTime));
      push(options, Kind::kRoundingMode, atRunTime ? 2 : wordAt(spec.parameters, 5));
      break;
    }
  }
}

void pushRowOptions(Options& options, const ConstructionRow& row, const SystemSpec& spec) {
  for (const PushedOption& option : row.optionsOf ? row.optionsOf(spec.parameters) : row.options)
    pushOption(options, option);
}

std::vector<std::int64_t> variantOf(const ConstructionRow& row, const SystemSpec& spec) {
  return row.numbersOf ? row.numbersOf(spec.parameters) : row.numbers;
}

}  // namespace cmdline
