#include "backend/functions/float_mult_add.h"

#include "backend/arithmetic/fused_multiply_add.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using graph::Builder;
using graph::Signal;

namespace {

constexpr std::size_t kSubtract = 0;  // place in the variant

void evaluateMultAdd(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x, y, addend;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    readFloat(y, inputs[1], inputFloat(signature, 1), subnormals);
    readFloat(addend, inputs[2], inputFloat(signature, 2), subnormals);
    deliverMultAdd(results[0], x.get(), y.get(), addend.get(), signature.variant[kSubtract] != 0,
                   {.port = outputFloat(signature, 0),
                    .precision = precisions[0],
                    .rounding = roundings[0],
                    .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

std::vector<Signal> decomposeMultAdd(Builder& b, const Request& request,
                                     std::span<const Signal> inputs) {
  const auto factor = [&](std::size_t port) {
    return arithmetic::unpack(b, inputs[port], inputFormat(request, port),
                              arithmetic::ZeroFields::kLikeRegular);
  };
  const auto x = factor(0), y = factor(1);
  auto addend = arithmetic::unpack(b, inputs[2], inputFormat(request, 2));
  if (request.signature.variant[kSubtract] != 0) addend.sign = b.bitNot(addend.sign);
  return {arithmetic::addToProduct(b, arithmetic::multiplyExactly(b, x, y), addend,
                                   {.rounding = roundingOf(request, /*tiesAway=*/false, inputs),
                                    .ulps = ulpsOf(request, 0),
                                    .quietNaN = request.quietNaN,
                                    .budgets = request.budgets,
                                    .firstOne = request.form.firstOne})};
}

std::optional<std::string> refuseMultAdd(const Request& request) {
  if (auto reason = refusePorts(request, 3, 0, 1)) return reason;
  if (auto reason = refuseMixedWidths(request)) return reason;
  if (outputFloat(request.signature, 0).is_fp_lib) return "its ports are IEEE-style";
  return std::nullopt;
}

constexpr UnitRow kRows[] = {{.name = "CFloatMultAdd",
                              .evaluate = evaluateMultAdd,
                              .decompose = decomposeMultAdd,
                              .refuses = refuseMultAdd,
                              .otherForm = Form{.firstOne = arithmetic::FirstOne::kOwnGates}}};

}  // namespace

void deliverMultAdd(NumValue& result, mpfr_srcptr x, mpfr_srcptr y, mpfr_srcptr addend,
                    bool subtract, const Delivery& delivery) {
  thread_local Real sum;
  mpfr_ptr r = sum.prepare(oddPrecision(delivery.precision));
  const int ternary =
      subtract ? mpfr_fms(r, x, y, addend, MPFR_RNDZ) : mpfr_fma(r, x, y, addend, MPFR_RNDZ);
  // An exact zero sum of terms that are not zeros of one sign depends on the direction.
  if (mpfr_zero_p(r) && ternary == 0 && delivery.rounding == MPFR_RNDD) {
    const bool productSign = (mpfr_signbit(x) != 0) != (mpfr_signbit(y) != 0);
    const bool addendSign = (mpfr_signbit(addend) != 0) != subtract;
    if (productSign != addendSign) mpfr_set_zero(r, -1);
  }
  roundToOdd(r, ternary);
  deliverOdd(result, r, delivery);
}

std::span<const UnitRow> floatMultAddUnits() { return kRows; }

}  // namespace functions
