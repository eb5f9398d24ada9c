#include "backend/model/function_blocks.h"

#include <algorithm>

#include "backend/kiln/attributes.h"

namespace {

using Numbers = std::vector<std::int64_t>;

// The widths that units expect among their numbers and take from their ports.
constexpr std::int64_t kE = 8, kF = 23;

FunctionBlock function(const kiln::StaticString& type, std::string_view unit, int inputs = 1,
                       Numbers numbers = {0}) {
  numbers.insert(numbers.begin(), {kE, kF});
  return {.type = &type, .unit = unit, .inputs = inputs, .variant = std::move(numbers)};
}

FunctionBlock pairOf(FunctionBlock block) {
  block.outputs = 2;
  return block;
}

FunctionBlock comparison(const kiln::StaticString& type, std::int64_t kind) {
  FunctionBlock block = function(type, "DMFloatCompare", 2, {kind, 0, 1});
  block.isTruth = true;
  return block;
}

FunctionBlock chosenComparison() {
  FunctionBlock block = function(kiln::A_COMPARECTRL_BLOCK, "DMFloatCompareFused", 2);
  block.select = 3;
  block.isTruth = true;
  return block;
}

const std::vector<FunctionBlock>& rows() {
  using namespace kiln;
  static const std::vector<FunctionBlock> kRows = {
      function(A_DIVIDE_BLOCK, "DMFloatDiv", 2, {0, 0, 0}),
      function(A_RECIPROCAL_BLOCK, "DMFloatInverse", 1, {0, 0}),
      function(A_SQRT_BLOCK, "DMFloatSqrt", 1, {0, 0}),
      function(A_CUBEROOT_BLOCK, "DMFloatCbrt"),
      function(A_RECIP_SQRT_BLOCK, "DMFloatInverseSqrt"),
      function(A_FLOOR_BLOCK, "DMFloatFloor"),
      function(A_CEIL_BLOCK, "DMFloatCeil"),
      function(A_ROUND_BLOCK, "DMFloatRound"),
      function(A_RINT_BLOCK, "DMFloatRint"),
      function(A_FRAC_BLOCK, "DMFloatFrac"),
      function(A_MOD_BLOCK, "DMFloatMod", 2),
      {.type = &A_ABS_BLOCK, .unit = "CFloatAbs", .inputs = 1, .variant = {}},
      function(A_DIM_BLOCK, "DMFloatDim", 2),
      comparison(A_CMP_LT_BLOCK, -2),
      comparison(A_CMP_EQ_BLOCK, 0),
      comparison(A_CMP_GE_BLOCK, 1),
      comparison(A_CMP_NE_BLOCK, 3),
      chosenComparison(),
      function(A_SIN_BLOCK, "DMFloatSinX", 1, {0, 0, 0}),
      function(A_COS_BLOCK, "DMFloatCosX", 1, {0, 0, 0}),
      pairOf(function(A_SINCOSFUSED_BLOCK, "DMFloatSinCosX")),
      function(A_TAN_BLOCK, "DMFloatTanX", 1, {0, 0}),
      function(A_COT_BLOCK, "DMFloatCotX"),
      function(A_ASIN_BLOCK, "DMFloatArcSinX"),
      function(A_ARCSINPI_BLOCK, "DMFloatArcSinPi"),
      function(A_ATAN_BLOCK, "DMFloatArcTanX"),
      function(A_ARCTAN2_BLOCK, "DMFloatArcTan2", 2),
      function(A_ARCTANPI_BLOCK, "DMFloatArcTanPi"),
      function(A_SINPIX_BLOCK, "DMFloatSinPiX"),
      function(A_COSPIX_BLOCK, "DMFloatCosPiX"),
      function(A_TANPIX_BLOCK, "DMFloatTanPiX"),
      function(A_COTPIX_BLOCK, "DMFloatCotPiX"),
      function(A_HYPOT_BLOCK, "DMFloatHypot", 2),
      function(A_HYPOT3D_BLOCK, "DMFloatHypot3d", 3),
      function(A_LOG_BLOCK, "DMFloatLoge", 1, {0, 1}),
      function(A_LOG1P_BLOCK, "DMFloatLoge1px"),
      function(A_LOG10_BLOCK, "DMFloatLog10"),
      function(A_LOG2_BLOCK, "DMFloatLog2"),
      function(A_EXPM1_BLOCK, "DMFloatExpEM1"),
      function(A_EXP2_BLOCK, "DMFloatExp2"),
      function(A_EXP10_BLOCK, "DMFloatExp10"),
      function(A_EXP_BLOCK, "DMFloatExpE", 1, {0, 1}),
      function(A_POWR_BLOCK, "DMFloatPowr", 2),
      function(A_POW_BLOCK, "DMFloatPow", 2),
  };
  return kRows;
}

}  // namespace

const FunctionBlock* findFunctionBlock(const kiln::PureValue* type) {
  const auto row = std::ranges::find(rows(), type, [](const FunctionBlock& block) {
    return static_cast<const kiln::PureValue*>(block.type);
  });
  return row == rows().end() ? nullptr : &*row;
}
