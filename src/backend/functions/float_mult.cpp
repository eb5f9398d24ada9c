#include "backend/functions/float_mult.h"

#include "backend/arithmetic/float_multiplier.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using graph::Builder;
using graph::Signal;

namespace {

constexpr std::size_t kTiesAway = 2;  // place in the variant

void evaluateMult(const Signature& signature, std::vector<NumValue>& results,
                  const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                  const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x, y, product;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    readFloat(y, inputs[1], inputFloat(signature, 1), subnormals);
    mpfr_ptr odd = product.prepare(oddPrecision(precisions[0]));
    roundToOdd(odd, mpfr_mul(odd, x.get(), y.get(), MPFR_RNDZ));
    deliverOdd(results[0], odd,
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .tiesAway = signature.variant[kTiesAway] != 0,
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

std::vector<Signal> decomposeMult(Builder& b, const Request& request,
                                  std::span<const Signal> inputs) {
  // The product of a zero is told by its isZero alone.
  const auto zeros = arithmetic::ZeroFields::kLikeRegular;
  const auto x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0), zeros);
  const auto y = arithmetic::unpack(b, inputs[1], inputFormat(request, 1), zeros);
  return {arithmetic::multiplyFloats(
      b, x, y,
      {.out = outputFormat(request, 0),
       .rounding = roundingOf(request, request.signature.variant[kTiesAway] != 0, inputs),
       .ulps = ulpsOf(request, 0),
       .quietNaN = request.quietNaN,
       .codesKind = request.form.codesKind,
       .prices = productPrices(request.prices),
       .budgets = request.budgets})};
}

std::optional<std::string> refuseMult(const Request& request) {
  return refusePorts(request, 2, 0, 1);
}

constexpr UnitRow kRows[] = {{.name = "CFloatMult",
                              .evaluate = evaluateMult,
                              .decompose = decomposeMult,
                              .refuses = refuseMult,
                              .otherForm = Form{.codesKind = true}}};

}  // namespace

std::span<const UnitRow> floatMultUnits() { return kRows; }

}  // namespace functions
