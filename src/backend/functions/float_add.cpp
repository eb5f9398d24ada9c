#include "backend/functions/float_add.h"

#include "backend/arithmetic/float_adder.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"

namespace functions {

using graph::Builder;
using graph::Signal;

namespace {

// Places of the numbers in a variant.
enum VariantPlace { kSubtract, kDualPath, kTiesAway, kDegradeAccuracy };

// x + y, or x - y, of exact numbers.
void deliverSum(NumValue& result, mpfr_srcptr x, mpfr_srcptr y, bool subtract,
                const Delivery& delivery) {
  thread_local Real sum;
  mpfr_ptr r = sum.prepare(oddPrecision(delivery.precision));
  const int ternary = subtract ? mpfr_sub(r, x, y, MPFR_RNDZ) : mpfr_add(r, x, y, MPFR_RNDZ);
  // An exact zero sum of numbers that are not zeros of one sign depends on the direction.
  if (mpfr_zero_p(r) && delivery.rounding == MPFR_RNDD) {
    const bool ySign = (mpfr_signbit(y) != 0) != subtract;
    if ((mpfr_signbit(x) != 0) != ySign) mpfr_set_zero(r, -1);
  }
  roundToOdd(r, ternary);
  deliverOdd(result, r, delivery);
}

void evaluateSum(const Signature& signature, std::vector<NumValue>& results,
                 const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                 const std::vector<mpfr_rnd_t>& roundings, bool subnormals, bool subtract) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    thread_local Real x, y;
    readFloat(x, inputs[0], inputFloat(signature, 0), subnormals);
    readFloat(y, inputs[1], inputFloat(signature, 1), subnormals);
    deliverSum(results[0], x.get(), y.get(), subtract,
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .tiesAway = signature.variant[kTiesAway] != 0,
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

void evaluateAdd(const Signature& signature, std::vector<NumValue>& results,
                 const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                 const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateSum(signature, results, inputs, precisions, roundings, subnormals,
              signature.variant[kSubtract] != 0);
}

void evaluateAddSub(const Signature& signature, std::vector<NumValue>& results,
                    const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                    const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateSum(signature, results, inputs, precisions, roundings, subnormals, readBit(inputs[2]));
}

std::vector<Signal> decomposeSum(Builder& b, const Request& request, std::span<const Signal> inputs,
                                 Signal subtract) {
  const Variant& variant = request.signature.variant;
  const auto x = arithmetic::unpack(b, inputs[0], inputFormat(request, 0));
  auto y = arithmetic::unpack(b, inputs[1], inputFormat(request, 1));
  y.sign = b.bitXor(y.sign, subtract);
  const arithmetic::FloatAdderOptions options{
      .out = outputFormat(request, 0),
      .rounding = roundingOf(request, variant[kTiesAway] != 0, inputs),
      .ulps = ulpsOf(request, 0),
      .onesComplement = variant[kDegradeAccuracy] != 0,
      .quietNaN = request.quietNaN};
  return {variant[kDualPath] != 0 ? addDualPath(b, x, y, options)
                                  : addSinglePath(b, x, y, options)};
}

std::vector<Signal> decomposeAdd(Builder& b, const Request& request,
                                 std::span<const Signal> inputs) {
  return decomposeSum(b, request, inputs, b.bit(request.signature.variant[kSubtract] != 0));
}

std::vector<Signal> decomposeAddSub(Builder& b, const Request& request,
                                    std::span<const Signal> inputs) {
  return decomposeSum(b, request, inputs, inputs[2]);
}

std::optional<std::string> refuseAdd(const Request& request) {
  if (auto reason = refusePorts(request, 2, 0, 1)) return reason;
  return refuseMixedWidths(request);
}

std::optional<std::string> refuseAddSub(const Request& request) {
  if (auto reason = refusePorts(request, 2, 1, 1)) return reason;
  return refuseMixedWidths(request);
}

constexpr UnitRow kRows[] = {
    {"CFloatAdd", evaluateAdd, decomposeAdd, refuseAdd},
    {"CFloatAddSub", evaluateAddSub, decomposeAddSub, refuseAddSub},
};

}  // namespace

std::span<const UnitRow> floatAddUnits() { return kRows; }

}  // namespace functions
