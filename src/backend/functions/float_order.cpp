#include "backend/functions/float_order.h"

#include <fmt/format.h>

#include <array>

#include "backend/arithmetic/carry_logic.h"
#include "backend/functions/float_reference.h"
#include "backend/functions/float_unit.h"
#include "util/failure.h"

namespace functions {

using arithmetic::Comparison;
using arithmetic::Unpacked;
using graph::Builder;
using graph::Signal;

namespace {

// Places of the numbers in a variant.
enum MinMaxPlace { kGreatest = 2, kByMagnitude };
enum FusedMinMaxPlace { kFusedByMagnitude = 2 };
enum ComparePlace { kComparison = 2, kOrdered = 4 };

constexpr int kLowestComparison = -2, kHighestComparison = 3;
Comparison comparisonOf(const Signature& signature) {
  return static_cast<Comparison>(signature.variant[kComparison] - kLowestComparison);
}

constexpr int kSelectBits = 3;
constexpr unsigned kFusedComparisons = 5;  // those that a select has, from kLess

bool precedes(mpfr_srcptr x, mpfr_srcptr y) {
  if (mpfr_zero_p(x) && mpfr_zero_p(y)) return mpfr_signbit(x) && !mpfr_signbit(y);
  return mpfr_less_p(x, y) != 0;
}

bool precedesInMagnitude(mpfr_srcptr x, mpfr_srcptr y) {
  const int order = mpfr_cmpabs(x, y);
  return order != 0 ? order < 0 : precedes(x, y);
}

}  // namespace

mpfr_srcptr extreme(Extreme which, mpfr_srcptr x, mpfr_srcptr y) {
  if (mpfr_nan_p(x)) return y;
  if (mpfr_nan_p(y)) return x;
  switch (which) {
    case Extreme::kLeast:
      return precedes(x, y) ? x : y;
    case Extreme::kGreatest:
      return precedes(x, y) ? y : x;
    case Extreme::kLeastMagnitude:
      return precedesInMagnitude(x, y) ? x : y;
    case Extreme::kGreatestMagnitude:
      return precedesInMagnitude(x, y) ? y : x;
  }
  LOAM_ASSERT(false, "an extreme");
}

bool holds(Comparison comparison, mpfr_srcptr x, mpfr_srcptr y) {
  switch (comparison) {
    case Comparison::kLess:
      return mpfr_less_p(x, y) != 0;
    case Comparison::kLessEqual:
      return mpfr_lessequal_p(x, y) != 0;
    case Comparison::kEqual:
      return mpfr_equal_p(x, y) != 0;
    case Comparison::kGreaterEqual:
      return mpfr_greaterequal_p(x, y) != 0;
    case Comparison::kGreater:
      return mpfr_greater_p(x, y) != 0;
    case Comparison::kNotEqual:
      return mpfr_equal_p(x, y) == 0;
  }
  LOAM_ASSERT(false, "a comparison");
}

namespace {

// The two operands as their ports carry them.
struct Operands {
  Real x, y;
};
Operands& readOperands(const Signature& signature, const std::vector<NumValue>& inputs,
                       bool subnormals) {
  thread_local Operands operands;
  readFloat(operands.x, inputs[0], inputFloat(signature, 0), subnormals);
  readFloat(operands.y, inputs[1], inputFloat(signature, 1), subnormals);
  return operands;
}

void evaluateExtreme(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool subnormals, Extreme which) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  {
    const FullExponentRange range;
    const auto& [x, y] = readOperands(signature, inputs, subnormals);
    deliverOdd(results[0], extreme(which, x.get(), y.get()),
               {.port = outputFloat(signature, 0),
                .precision = precisions[0],
                .rounding = roundings[0],
                .subnormals = subnormals});
  }
  fitToCallersRange(results, roundings);
}

Extreme extremeOf(bool greatest, bool byMagnitude) {
  if (byMagnitude) return greatest ? Extreme::kGreatestMagnitude : Extreme::kLeastMagnitude;
  return greatest ? Extreme::kGreatest : Extreme::kLeast;
}

void evaluateMinMax(const Signature& signature, std::vector<NumValue>& results,
                    const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                    const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  const Variant& variant = signature.variant;
  evaluateExtreme(signature, results, inputs, precisions, roundings, subnormals,
                  extremeOf(variant[kGreatest] != 0, variant[kByMagnitude] != 0));
}

void evaluateFusedMinMax(const Signature& signature, std::vector<NumValue>& results,
                         const std::vector<NumValue>& inputs,
                         const std::vector<unsigned>& precisions,
                         const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateExtreme(signature, results, inputs, precisions, roundings, subnormals,
                  extremeOf(readBit(inputs[2]), signature.variant[kFusedByMagnitude] != 0));
}

// Writes the truth that `decide` tells of the operands.
template <typename Decide>
void evaluateTruth(const Signature& signature, std::vector<NumValue>& results,
                   const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                   const std::vector<mpfr_rnd_t>& roundings, bool subnormals, Decide decide) {
  if (spreadsDontCare(results, inputs, precisions)) return;
  results.resize(1);
  results[0].type = NumType::kValue;
  results[0].raw = false;
  {
    const FullExponentRange range;
    const auto& [x, y] = readOperands(signature, inputs, subnormals);
    const bool truth = decide(x.get(), y.get());
    mpfr_set_ui(results[0].real.prepare(precisions[0]), truth ? 1 : 0, MPFR_RNDN);
  }
  fitToCallersRange(results, roundings);
}

void evaluateCompare(const Signature& signature, std::vector<NumValue>& results,
                     const std::vector<NumValue>& inputs, const std::vector<unsigned>& precisions,
                     const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  evaluateTruth(signature, results, inputs, precisions, roundings, subnormals,
                [&](mpfr_srcptr x, mpfr_srcptr y) {
                  const bool unordered = mpfr_unordered_p(x, y) != 0;
                  if (unordered && signature.variant[kOrdered] == 0) return true;
                  return holds(comparisonOf(signature), x, y);
                });
}

void evaluateCompareFused(const Signature& signature, std::vector<NumValue>& results,
                          const std::vector<NumValue>& inputs,
                          const std::vector<unsigned>& precisions,
                          const std::vector<mpfr_rnd_t>& roundings, bool subnormals) {
  const unsigned select = readSelect(inputs[2], kSelectBits);
  evaluateTruth(signature, results, inputs, precisions, roundings, subnormals,
                [&](mpfr_srcptr x, mpfr_srcptr y) {
                  return select < kFusedComparisons && holds(static_cast<Comparison>(select), x, y);
                });
}

Unpacked operand(Builder& b, const Request& request, std::span<const Signal> inputs,
                 std::size_t port) {
  const auto format = inputFormat(request, port);
  return arithmetic::unpack(b, inputs[port], format, arithmetic::zeroFieldsForOrder(format));
}

enum class Kinds { kByCarry, kNanByGates };

// An operand whose kind is told by carries, as all of the result waits for it. A NaN is told by
// gates where the choice of an extreme waits for six bits and nothing deeper: tools, which make
// functions of eight in one step, would make it once for each bit of the result.
Unpacked operandOfKind(Builder& b, const Request& request, std::span<const Signal> inputs,
                       std::size_t port, Kinds kinds) {
  Unpacked x = operand(b, request, inputs, port);
  const auto& format = x.format;
  if (format.fpLib) return x;
  if (kinds == Kinds::kByCarry) x.isNan = arithmetic::isNanByCarry(b, inputs[port], format);
  if (!format.gradual) {
    const Signal field = b.slice(inputs[port], format.fractionBits, format.exponentBits);
    x.isZero = b.bitNot(arithmetic::anyByCarry(b, field));
  }
  return x;
}

std::vector<Signal> decomposeExtreme(Builder& b, const Request& request,
                                     std::span<const Signal> inputs, Signal greatest,
                                     bool byMagnitude) {
  const auto scope = b.scope("min_max");
  const Kinds kinds = byMagnitude || !b.isLiteral(greatest) ? Kinds::kNanByGates : Kinds::kByCarry;
  const Unpacked x = operandOfKind(b, request, inputs, 0, kinds);
  const Unpacked y = operandOfKind(b, request, inputs, 1, kinds);
  const Signal xPrecedes = byMagnitude ? precedesInMagnitude(b, x, y) : precedes(b, x, y);
  const Signal takesY = extremeIsSecond(b, x, y, xPrecedes, greatest);
  // What packing clears or sets is known before the order is.
  const auto packed = [&](const Unpacked& number) {
    return arithmetic::packExact(b, number, outputFormat(request, 0), request.quietNaN);
  };
  const Signal taken = b.select(takesY, packed(y), packed(x));
  if (!byMagnitude || x.format.fpLib || x.format.gradual) return {taken};
  // Zeros, whose fractions are not cleared for the comparison, differ in their signs alone.
  const Signal sign = b.select(greatest, b.bitAnd(x.sign, y.sign), b.bitOr(x.sign, y.sign));
  return {b.concat({b.select(b.bitAnd(x.isZero, y.isZero), sign, b.topBit(taken)),
                    b.slice(taken, 0, taken.width - 1)})};
}

std::vector<Signal> decomposeMinMax(Builder& b, const Request& request,
                                    std::span<const Signal> inputs) {
  const Variant& variant = request.signature.variant;
  return decomposeExtreme(b, request, inputs, b.bit(variant[kGreatest] != 0),
                          variant[kByMagnitude] != 0);
}

std::vector<Signal> decomposeFusedMinMax(Builder& b, const Request& request,
                                         std::span<const Signal> inputs) {
  return decomposeExtreme(b, request, inputs, inputs[2],
                          request.signature.variant[kFusedByMagnitude] != 0);
}

std::vector<Signal> decomposeCompare(Builder& b, const Request& request,
                                     std::span<const Signal> inputs) {
  const auto scope = b.scope("compare");
  const Unpacked x = operand(b, request, inputs, 0), y = operand(b, request, inputs, 1);
  const Signal truth = holds(b, comparisonOf(request.signature), x, y);
  const bool ordered = request.signature.variant[kOrdered] != 0;
  return {ordered ? truth : b.bitOr(truth, isUnordered(b, x, y))};
}

std::vector<Signal> decomposeCompareFused(Builder& b, const Request& request,
                                          std::span<const Signal> inputs) {
  const auto scope = b.scope("compare");
  const Unpacked x = operandOfKind(b, request, inputs, 0, Kinds::kByCarry),
                 y = operandOfKind(b, request, inputs, 1, Kinds::kByCarry);
  std::array<Signal, kFusedComparisons + 1> truths;
  for (unsigned i = 0; i < kFusedComparisons; ++i)
    truths[i] = holds(b, static_cast<Comparison>(i), x, y);
  truths.back() = b.bit(false);
  return {b.pick(inputs[2], truths)};
}

std::optional<std::string> refuseMinMax(const Request& request) {
  if (auto reason = refusePorts(request, 2, 0, 1)) return reason;
  return refuseMixedForms(request);
}

std::optional<std::string> refuseFusedMinMax(const Request& request) {
  if (auto reason = refusePorts(request, 2, 1, 1)) return reason;
  return refuseMixedForms(request);
}

// Refuses unless there are two floating inputs, a select of `selectBits` where that is not 0, and
// one output of one bit.
std::optional<std::string> refuseTruth(const Request& request, int selectBits) {
  const auto& [in, out, variant] = request.signature;
  const std::size_t inputs = selectBits > 0 ? 3 : 2;
  if (in.size() != inputs || out.size() != 1)
    return fmt::format("{} inputs and {} outputs are not the {} and 1 of this unit", in.size(),
                       out.size(), inputs);
  for (std::size_t i = 0; i < 2; ++i)
    if (!in[i].as_floating_point()) return fmt::format("input {} is not a floating-point port", i);
  if (selectBits > 0 && !isUnsignedOf(in[2], selectBits))
    return fmt::format("input 2 is not an unsigned port of {} bits", selectBits);
  if (!isUnsignedOf(out[0], 1)) return "its output is not an unsigned port of 1 bit";
  if (auto reason = refuseFormats(request)) return reason;
  return refuseMixedForms(request);
}

std::optional<std::string> refuseCompare(const Request& request) {
  const auto comparison = request.signature.variant[kComparison];
  if (comparison < kLowestComparison || comparison > kHighestComparison)
    return fmt::format("comparison {} is out of range {} to {}", comparison, kLowestComparison,
                       kHighestComparison);
  return refuseTruth(request, 0);
}

std::optional<std::string> refuseCompareFused(const Request& request) {
  return refuseTruth(request, kSelectBits);
}

constexpr UnitRow kRows[] = {
    {"DMFloatMinMax", evaluateMinMax, decomposeMinMax, refuseMinMax},
    {"DMFloatFusedMinMax", evaluateFusedMinMax, decomposeFusedMinMax, refuseFusedMinMax},
    {"DMFloatCompare", evaluateCompare, decomposeCompare, refuseCompare},
    {"DMFloatCompareFused", evaluateCompareFused, decomposeCompareFused, refuseCompareFused},
};

}  // namespace

std::span<const UnitRow> floatOrderUnits() { return kRows; }

}  // namespace functions
