#include "backend/functions/float_sqrt.h"

#include "backend/functions/float_sqrt_logic.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/real_function.h"

namespace functions {

using arithmetic::FloatRoot;
using arithmetic::Root;
using graph::Builder;
using graph::Signal;

namespace {

constexpr std::size_t kRecurrence = 4;  // place in the variant

// What a request for a root of one floating-point port asks of the circuit.
FloatRoot floatRootOf(const Request& request, Root root) {
  return {.root = root,
          .in = inputFormat(request, 0),
          .out = outputFormat(request, 0),
          .rounding = request.rounding.fixed,
          .ulps = ulpsOf(request, 0),
          .quietNaN = request.quietNaN,
          .prices = evaluationPrices(request.prices),
          .budgets = request.budgets};
}

bool isRecurrence(const Request& request) { return request.signature.variant[kRecurrence] != 0; }

std::vector<Signal> decomposeSqrt(Builder& b, const Request& request,
                                  std::span<const Signal> inputs) {
  if (isRecurrence(request)) return decomposeSqrtLogic(b, request, inputs);
  return decomposeFloatRoot(b, request, inputs, Root::kSquareRoot);
}

std::optional<std::string> refuseSqrt(const Request& request) {
  if (isRecurrence(request)) {
    if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
    return refuseMixedForms(request);
  }
  return refuseFloatRoot(request, Root::kSquareRoot);
}

constexpr UnitRow kRows[] = {
    {"DMFloatSqrt", evaluateReal<ofFirst<mpfr_sqrt>>, decomposeSqrt, refuseSqrt},
};

}  // namespace

std::vector<Signal> decomposeFloatRoot(Builder& b, const Request& request,
                                       std::span<const Signal> inputs, Root root) {
  const FloatRoot how = floatRootOf(request, root);
  const auto x = arithmetic::unpack(b, inputs[0], how.in, arithmetic::ZeroFields::kLikeRegular);
  return {arithmetic::rootOfFloat(b, x, how)};
}

std::optional<std::string> refuseFloatRoot(const Request& request, Root root) {
  if (auto reason = refusePorts(request, 1, 0, 1)) return reason;
  if (auto reason = refuseMixedWidths(request)) return reason;
  return arithmetic::refuseFloatRoot(floatRootOf(request, root));
}

std::span<const UnitRow> floatSqrtUnits() { return kRows; }

}  // namespace functions
