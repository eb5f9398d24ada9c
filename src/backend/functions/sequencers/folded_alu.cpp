#include "backend/functions/sequencers/folded_alu.h"

#include <fmt/format.h>

#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"
#include "backend/functions/sequencers/folded_circuit.h"

namespace functions {

using graph::Builder;
using graph::Signal;

namespace {

enum Input { kX, kY, kOp, kGo, kInputs };
constexpr int kOpBits = 3;
// From 3 bits on the check of a candidate can do with its lowest bits.
constexpr int kLeastFraction = 3, kMostFraction = 52;

int applyOp(unsigned op, mpfr_ptr r, mpfr_srcptr x, mpfr_srcptr y, mpfr_rnd_t direction) {
  switch (op) {
    case kReciprocalRoot:
      if (mpfr_zero_p(x)) {
        mpfr_set_inf(r, mpfr_signbit(x) != 0 ? -1 : 1);
        return 0;
      }
      return mpfr_rec_sqrt(r, x, direction);
    case kRoot:
      return mpfr_sqrt(r, x, direction);
    case kReciprocal:
      return mpfr_ui_div(r, 1, x, direction);
    case kQuotient:
      return mpfr_div(r, x, y, direction);
    default:
      return mpfr_mul(r, x, y, direction);
  }
}

void evaluateFolded(const Signature& signature, std::vector<NumValue>& results,
                    const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                    const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  const unsigned op = readSelect(inputs[kOp], kOpBits);
  if (op > kProduct) {
    results[0].type = NumType::kDontCare;
    results[0].raw = false;
    mpfr_set_zero(results[0].real.prepare(precisions[0]), 1);
    return;
  }
  {
    const FullExponentRange range;
    thread_local Real x, y, value;
    readFloat(x, inputs[kX], inputFloat(signature, kX), subnormals);
    readFloat(y, inputs[kY], inputFloat(signature, kY), subnormals);
    mpfr_ptr odd = value.prepare(oddPrecision(precisions[0]));
    roundToOdd(odd, applyOp(op, odd, x.get(), y.get(), MPFR_RNDZ));
    deliverOdd(results[0], odd,
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

bool isChecked(const Request& request) { return ulpsOf(request, 0) < 1; }

std::optional<FoldedPlan> planOf(const Request& request) {
  return planFolded(outputFormat(request, 0).fractionBits, isChecked(request), request.prices,
                    request.budgets);
}

std::vector<Signal> decomposeFolded(Builder& b, const Request& request,
                                    std::span<const Signal> inputs) {
  const Signal go = request.valid ? b.bitAnd(inputs[kGo], request.valid) : inputs[kGo];
  return {foldedCircuit(b, *planOf(request),
                        {.format = outputFormat(request, 0),
                         .rounding = request.rounding.fixed,
                         .quietNaN = request.quietNaN,
                         .dsp = request.prices.dsp},
                        inputs, go)};
}

std::optional<std::string> refuseFolded(const Request& request) {
  const auto& [in, out, variant] = request.signature;
  if (in.size() != kInputs || out.size() != 1 || !in[kX].as_floating_point() ||
      !in[kY].as_floating_point() || !out[0].as_floating_point() ||
      !isUnsignedOf(in[kOp], kOpBits) || !isUnsignedOf(in[kGo], 1))
    return "its inputs are two numbers, an opcode of 3 bits and a bit, its output a number";
  for (const kiln::Type* type : {&in[kX], &in[kY], &out[0]})
    if (type->as_floating_point()->is_fp_lib) return "its ports are IEEE-style";
  if (request.rounding.port) return "its rounding is not chosen at run time";
  if (auto reason = refuseFormats(request)) return reason;
  if (auto reason = refuseMixedWidths(request)) return reason;
  const int wF = outputFloat(request.signature, 0).frac;
  Request asked = request;
  asked.budgets = nullptr;
  if (wF < kLeastFraction || wF > kMostFraction || !planOf(asked))
    return fmt::format("wF {} is out of range {} to {}: one iteration from a seed must do", wF,
                       kLeastFraction, kMostFraction);
  return std::nullopt;
}

constexpr UnitRow kRows[] = {
    {"CFPFoldedALUNR", evaluateFolded, decomposeFolded, refuseFolded, Protocol::kSequence}};

}  // namespace

std::span<const UnitRow> foldedAluUnits() { return kRows; }

}  // namespace functions
