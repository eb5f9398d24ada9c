#include "backend/functions/real_function.h"

#include "backend/functions/float_unit.h"

namespace functions {

void evaluateRealFunction(RealFunction f, const Signature& signature,
                          std::vector<NumValue>& results, const std::vector<NumValue>& inputs,
                          const std::vector<unsigned>& precisions,
                          const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local std::vector<Real> read;
    thread_local Real value;
    if (read.size() < inputs.size()) read.resize(inputs.size());
    for (std::size_t i = 0; i < inputs.size(); ++i)
      readFloat(read[i], inputs[i], inputFloat(signature, i), subnormals);
    mpfr_ptr odd = value.prepare(oddPrecision(precisions[0]));
    const int ternary = f(odd, std::span(read).first(inputs.size()), MPFR_RNDZ);
    roundToOdd(odd, ternary);
    // Below MPFR's own range, which a power of a large number leaves, it is no zero yet.
    if (ternary != 0 && mpfr_zero_p(odd)) ternary < 0 ? mpfr_nextabove(odd) : mpfr_nextbelow(odd);
    deliverOdd(results[0], odd,
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

}  // namespace functions
