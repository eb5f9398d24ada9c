#include "backend/kiln/attributes.h"
#include "cmdline/system_generator.h"

namespace cmdline {

namespace {

using namespace kiln;

struct DictionaryRow {
  componentType component;
  const StaticString& block;
};

const DictionaryRow kRows[] = {
    {10, A_CAST_BLOCK},
    {20, A_DIVIDE_BLOCK},
    {21, A_DIVIDE_BLOCK},
    {30, A_RECIPROCAL_BLOCK},
    {31, A_SQRT_BLOCK},
    {32, A_CUBEROOT_BLOCK},
    {33, A_RECIP_SQRT_BLOCK},
    {34, A_FLOOR_BLOCK},
    {35, A_CEIL_BLOCK},
    {36, A_ROUND_BLOCK},
    {37, A_RINT_BLOCK},
    {39, A_FRAC_BLOCK},
    {40, A_MOD_BLOCK},
    {41, A_ABS_BLOCK},
    {42, A_DIM_BLOCK},
    // The kit has no blocks of its own for <= and >; these are what stands there for them.
    {50, A_CMP_LT_BLOCK},
    {51, A_CMP_GE_BLOCK},
    {52, A_CMP_EQ_BLOCK},
    {53, A_CMP_GE_BLOCK},
    {54, A_CMP_LT_BLOCK},
    {55, A_CMP_NE_BLOCK},
    {56, A_COMPARECTRL_BLOCK},
    {57, A_SIN_BLOCK},
    {58, A_COS_BLOCK},
    {59, A_COS_BLOCK},
    {60, A_SIN_BLOCK},
    {61, A_SINCOSFUSED_BLOCK},
    {63, A_TAN_BLOCK},
    {64, A_COT_BLOCK},
    {71, A_ASIN_BLOCK},
    {72, A_ARCSINPI_BLOCK},
    {75, A_ATAN_BLOCK},
    {76, A_ARCTAN2_BLOCK},
    {77, A_ARCTANPI_BLOCK},
    {78, A_SINPIX_BLOCK},
    {79, A_COSPIX_BLOCK},
    {80, A_TANPIX_BLOCK},
    {81, A_COTPIX_BLOCK},
    {84, A_HYPOT_BLOCK},
    {85, A_HYPOT3D_BLOCK},
    {91, A_LOG_BLOCK},
    {92, A_LOG1P_BLOCK},
    {93, A_LOG10_BLOCK},
    {94, A_LOG2_BLOCK},
    {95, A_EXPM1_BLOCK},
    {96, A_EXP2_BLOCK},
    {97, A_EXP10_BLOCK},
    {98, A_EXP_BLOCK},
    {99, A_POWR_BLOCK},
    {101, A_POW_BLOCK},
};

}  // namespace

void SystemGeneratorKILN::setupKILNBlockDic() {
  for (const DictionaryRow& row : kRows) m_blockDic[row.component] = row.block;
}

}  // namespace cmdline
