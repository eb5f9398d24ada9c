#include "stimuli/random.h"

#include "numbers/draws.h"
#include "util/failure.h"

void generateRandomStimuli(std::vector<NumValue>& values, gmp_randstate_t& state,
                           const PortSpecList& inPorts, const TestingOptions& t) {
  for (std::size_t i = 0; i < inPorts.size(); ++i) {
    NumValue& value = values[i];
    if (const auto* fp = inPorts[i].type.as_floating_point()) {
      genRandFP(value.real, state, *fp, t);
    } else if (const auto* fx = inPorts[i].type.as_fixed_point()) {
      genRandFXP(value.real, state, *fx, t);
    } else {
      loam_assert_handler("false", "cmdGauge", __LINE__, __func__, "Work in progress");
    }
    mpz_set_ui(value.pattern.get(), 0);
    value.type = NumType::kValue;
    value.raw = false;
  }
}
