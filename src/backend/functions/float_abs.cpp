#include "backend/functions/float_abs.h"

#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using graph::Builder;
using graph::Signal;

namespace {

void evaluateAbs(const Signature& signature, std::vector<NumValue>& results,
                 const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                 const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    mpfr_abs(x.get(), x.get(), MPFR_RNDN);
    deliverOdd(results[0], x.get(),
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

std::vector<Signal> decomposeAbs(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  auto x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  x.sign = b.bit(false);
  return {arithmetic::packExact(b, x, outputFormat(request, 0), request.quietNaN)};
}

std::optional<std::string> refuseAbs(const Request& request) {
  if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
  return refuseMixedForms(request);
}

constexpr UnitRow kRows[] = {{"CFloatAbs", evaluateAbs, decomposeAbs, refuseAbs}};

}  // namespace

std::span<const UnitRow> floatAbsUnits() { return kRows; }

}  // namespace functions
