#include <algorithm>
#include <cmath>
#include <span>

#include "backend/functions/fixed_const_mult.h"
#include "backend/functions/fixed_mult.h"
#include "backend/functions/fixed_sine.h"
#include "backend/functions/fixed_to_fp.h"
#include "backend/functions/float_abs.h"
#include "backend/functions/float_add.h"
#include "backend/functions/float_const_mult.h"
#include "backend/functions/float_exponential.h"
#include "backend/functions/float_flags.h"
#include "backend/functions/float_integer_part.h"
#include "backend/functions/float_logarithm.h"
#include "backend/functions/float_mult.h"
#include "backend/functions/float_mult_add.h"
#include "backend/functions/float_multifunction.h"
#include "backend/functions/float_order.h"
#include "backend/functions/float_scale.h"
#include "backend/functions/float_sine.h"
#include "backend/functions/fp_to_fixed.h"
#include "backend/functions/fp_to_fp.h"
#include "backend/functions/int_add.h"
#include "backend/functions/int_bits.h"
#include "backend/functions/int_modular.h"
#include "backend/functions/int_multifunction.h"
#include "backend/functions/sequencers/float_acc.h"
#include "backend/functions/sequencers/float_mult_acc.h"
#include "backend/functions/unit.h"

namespace functions {

namespace {

// One span of rows for each family.
std::span<const UnitRow> (*const kFamilies[])() = {
    floatAddUnits,
    floatMultUnits,
    floatMultAddUnits,
    floatMultAccUnits,
    floatAccUnits,
    floatAbsUnits,
    floatFlagUnits,
    longAddUnits,
    modularUnits,
    bitUnits,
    floatMultiFunctionUnits,
    intMultiFunctionUnits,
    floatOrderUnits,
    floatIntegerPartUnits,
    floatScaleUnits,
    floatSineUnits,
    fixedToFloatUnits,
    floatToFixedUnits,
    floatToFloatUnits,
    floatConstMultUnits,
    floatExponentialUnits,
    floatLogarithmUnits,
    fixedConstMultUnits,
    fixedMultUnits,
    fixedSineUnits,
};

}  // namespace

arithmetic::ProductPrices productPrices(const Prices& prices) {
  return {.lutPerDsp = prices.lutPerDsp,
          .lutPerFurtherDsp = prices.lutPerFurtherDsp,
          .dspWide = prices.dsp.width,
          .dspNarrow = prices.dsp.depth};
}

arithmetic::EvaluationPrices evaluationPrices(const Prices& prices) {
  return {productPrices(prices),
          {.lutPerBit = std::ldexp(1.0, -prices.lutInputs),
           .lutPerMemory = prices.lutPerMemory,
           .memory = prices.memory}};
}

const UnitRow* findUnit(std::string_view name) {
  for (const auto family : kFamilies)
    for (const UnitRow& row : family())
      if (row.name == name) return &row;
  return nullptr;
}

}  // namespace functions
