#include "backend/functions/constant_word.h"

#include <cstdlib>

#include "numbers/real.h"
#include "util/constant_product.h"

namespace functions {

double constantWord(const Signature& signature) {
  const std::vector<std::string>& texts = signature.variant.texts;
  return texts.empty() ? 0.0 : std::strtod(texts[0].c_str(), nullptr);
}

arithmetic::Dyadic exactConstant(double constant, int significantBits) {
  thread_local Real value;
  mpfr_set_d(value.prepare(53), constant, MPFR_RNDN);
  util::roundConstant(value.get(), significantBits);
  if (mpfr_zero_p(value.get())) return {};
  util::MPZ mantissa;
  const mpfr_exp_t exponent = mpfr_get_z_2exp(mantissa.get(), value.get());
  return arithmetic::dyadic(std::move(mantissa), exponent);
}

}  // namespace functions
